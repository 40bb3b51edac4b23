#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

/// Every system call on the disk passes here first, so that a test can make any one of them fail or
/// be the last. The executable chooses the answers: what players run links NoFaultPoints.cpp, which
/// lets everything through.
namespace FaultPoints {

/// 0, or the error number that the call about to be made shall fail with.
int next();
/// What renaming onto an existing file does. Some volumes do not know it; one that another program
/// holds can be read only.
enum class Replacing { Works, Unknown, Held };
Replacing replacing();
/// At most so many bytes are written at once.
std::size_t longestWrite();
/// False spares a test of some thousand runs the wait for the disk.
bool waitsForDisk();
/// In place of what the volume tells.
std::optional<std::uint64_t> freeBytes();

} // namespace FaultPoints
