#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What differs between systems, one file for each. Paths are UTF-8 with "/" between folders.
/// Nothing here throws.
namespace Platform {

struct Error
{
    enum class Kind {
        None,
        Missing,     ///< nothing of this name
        Exists,      ///< something of this name is in the way
        NotEmpty,    ///< a folder that still holds something
        Busy,        ///< held by another program: may pass
        Unsupported, ///< not on this volume
        Other
    };

    Kind kind = Kind::None;
    std::string text; ///< what the system says

    explicit operator bool() const { return kind != Kind::None; }
};

// --- Files and folders. Links are never followed at the end of a path.

enum class Entry { Nothing, File, Folder, Other };
Error findEntry(const std::string &path, Entry &entry);
Error listFolder(const std::string &path, std::vector<std::string> &names);
Error makeFolder(const std::string &path);
Error removeFolder(const std::string &path); ///< only an empty one
Error removeFile(const std::string &path);
/// Never onto something that exists.
Error rename(const std::string &from, const std::string &to);
/// In one step onto a file that may exist. Exists or Unsupported where the volume cannot.
Error replace(const std::string &from, const std::string &to);
/// Makes sure that what happened to the names in a folder outlasts a power cut.
Error flushFolder(const std::string &path);
std::optional<std::uint64_t> freeBytes(const std::string &folder);
std::optional<std::uint64_t> fileSize(const std::string &path);
/// Fails for what is longer than `limit`.
Error readFile(const std::string &path, size_t limit, std::string &content);
/// While it is open nobody can write to the file, where the system knows such locks.
Error openForReading(const std::string &path, std::FILE *&file);
/// Null on failure. What was in the file before is lost.
std::FILE *openForWriting(const std::string &path);
/// Null on failure. What is written comes behind what is in the file.
std::FILE *openForAppending(const std::string &path);
/// Which programs have the file open, as a person knows them, where the system tells.
std::vector<std::string> holders(const std::string &path);
/// A path that stays the same from every working directory; empty when there is nothing.
std::string absolutePath(const std::string &path);

/// A new file. What is not closed is incomplete.
class OutputFile
{
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    /// Fails where something of that name exists.
    Error create(const std::string &path);
    Error write(const char *bytes, size_t count);
    /// Returns once it outlasts a power cut.
    Error close();
    /// The other file's rights: on some systems they tell whether it is a program.
    Error takeRightsOf(const std::string &path);

private:
    std::intptr_t m_handle = -1;
};

// --- Processes

/// The first thing that the program does: from then on nothing is loaded that was put beside it.
void prepareProcess();
/// The arguments without the program's name.
std::vector<std::string> arguments(int argc, char **argv);
std::string ownExecutable();
/// Whether it is this program's own file, and the system replaces none that runs. It can be renamed
/// there.
bool mustStepAside(const std::string &path);
/// Where the file of a running program can be neither replaced nor removed, and this program lies
/// in `folder`: starts a copy of it with these arguments. Then, and only then, it returns true.
bool continueAsCopy(const std::string &folder, const std::vector<std::string> &arguments);
/// A working directory keeps its folder from being renamed or removed.
void leaveWorkingDirectory();
/// The processes that run the program `path`, without this one, as a person knows them.
std::vector<std::string> processesRunning(const std::string &path);
/// Starts a program that goes on alone; an empty Error means that it runs.
Error start(const std::string &program, const std::string &workingDirectory);

/// At most one process at a time has the lock of a folder. It ends with the process. The setup
/// program knows of it from the first attempt to lock it until its release.
class FolderLock
{
public:
    FolderLock() = default;
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    bool tryLock(const std::string &folder);
    void release();

private:
    std::intptr_t m_handle = -1;
};

// --- The person

/// Where the launcher's local data lie; made if missing.
std::string dataFolder();

} // namespace Platform
