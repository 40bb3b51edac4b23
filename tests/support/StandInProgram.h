#pragma once

#include <optional>

/// What every program has in it that takes another one's place in tests. Plain C++, because it has
/// to run on a search path that leads to nothing else. tests/support/StandIn.h places such
/// programs, writes their scripts and reads their records.
namespace StandInProgram {

/// Writes down beside the program's file how it was started, then does what the script there says.
/// Returns the exit code; nothing when there is no script.
std::optional<int> run(int argc, char **argv);

} // namespace StandInProgram
