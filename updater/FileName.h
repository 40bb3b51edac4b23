#pragma once

#include <string>
#include <string_view>

/// The names that files of an update may have: relative to the launcher's folder, with "/" between
/// folders. What one of the systems reads in a way of its own is refused on all of them.
namespace FileName {

/// Where this program keeps what it needs while it replaces files, in the launcher's folder.
inline constexpr std::string_view kWorkFolder = ".veyra-maj";
inline constexpr std::string_view kList = "liste.txt";
inline constexpr std::string_view kSignature = "liste.txt.minisig";

/// This program: an update without it could be the last.
inline constexpr std::string_view kUpdater = "LauncherUpdater.exe";

/// Why a file of an update cannot have this name, as the end of a sentence ("caractère interdit");
/// empty where it can.
std::string_view problem(std::string_view name);

/// Two names are the same file on Windows when these are equal.
std::string folded(std::string_view name);

/// The folder part without the "/" at its end; empty for a file of the launcher's folder itself.
std::string_view folderOf(std::string_view name);

/// A name from somebody else's archive between « and », short, with "?" in place of all that is not
/// ASCII: a window or a log could stumble over it.
std::string quoted(std::string_view name);

} // namespace FileName
