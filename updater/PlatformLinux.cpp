#include "updater/Platform.h"

#include "updater/FaultPoints.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Platform::Error;

// The list does not tell programs from other files, so all may be run.
constexpr mode_t kFileMode = 0755;
constexpr mode_t kFolderMode = 0755;

Error errorOf(int number)
{
    Error error{Error::Kind::Other, std::strerror(number)};
    switch (number) {
    case ENOENT:
    case ENOTDIR:
        error.kind = Error::Kind::Missing;
        break;
    case EEXIST:
        error.kind = Error::Kind::Exists;
        break;
    case ENOTEMPTY:
        error.kind = Error::Kind::NotEmpty;
        break;
    case EBUSY:
    case ETXTBSY:
        error.kind = Error::Kind::Busy;
        break;
    case EINVAL:
    case ENOSYS:
    case EOPNOTSUPP:
        error.kind = Error::Kind::Unsupported;
        break;
    default:
        break;
    }
    return error;
}

/// Makes a system call that answers -1 and errno for a failure.
template <typename Call> Error attempt(Call call)
{
    if (const int number = FaultPoints::next(); number != 0)
        return errorOf(number);
    return call() == -1 ? errorOf(errno) : Error{};
}

int flush(int handle)
{
    return FaultPoints::waitsForDisk() ? ::fsync(handle) : 0;
}

std::string readLink(const std::string &path)
{
    std::string target(PATH_MAX, '\0');
    const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
    target.resize(length < 0 ? 0 : size_t(length));
    return target;
}

} // namespace

Error Platform::findEntry(const std::string &path, Entry &entry)
{
    struct stat status
    {
    };
    Error error = attempt([&] { return ::lstat(path.c_str(), &status); });
    entry = Entry::Nothing;
    if (error.kind == Error::Kind::Missing)
        return {};
    if (!error) {
        entry = S_ISREG(status.st_mode)   ? Entry::File
                : S_ISDIR(status.st_mode) ? Entry::Folder
                                          : Entry::Other;
    }
    return error;
}

Error Platform::listFolder(const std::string &path, std::vector<std::string> &names)
{
    DIR *folder = nullptr;
    Error error = attempt([&] {
        folder = ::opendir(path.c_str());
        return folder ? 0 : -1;
    });
    if (!folder)
        return error;
    while (const dirent *entry = ::readdir(folder)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    ::closedir(folder);
    std::sort(names.begin(), names.end());
    return {};
}

Error Platform::makeFolder(const std::string &path)
{
    return attempt([&] { return ::mkdir(path.c_str(), kFolderMode); });
}

Error Platform::removeFolder(const std::string &path)
{
    return attempt([&] { return ::rmdir(path.c_str()); });
}

Error Platform::removeFile(const std::string &path)
{
    return attempt([&] { return ::unlink(path.c_str()); });
}

Error Platform::rename(const std::string &from, const std::string &to)
{
    Error error = attempt([&] {
        return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    });
    if (error.kind != Error::Kind::Unsupported)
        return error;

    // A volume that does not know the flag.
    Entry entry{};
    if (Error unknown = findEntry(to, entry))
        return unknown;
    if (entry != Entry::Nothing)
        return errorOf(EEXIST);
    return attempt([&] { return ::rename(from.c_str(), to.c_str()); });
}

Error Platform::replace(const std::string &from, const std::string &to)
{
    switch (FaultPoints::replacing()) {
    case FaultPoints::Replacing::Unknown:
        return rename(from, to);
    case FaultPoints::Replacing::Held:
        return errorOf(ETXTBSY);
    case FaultPoints::Replacing::Works:
        break;
    }
    return attempt([&] { return ::rename(from.c_str(), to.c_str()); });
}

Error Platform::flushFolder(const std::string &path)
{
    return attempt([&] {
        const int handle = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (handle == -1)
            return -1;
        // Some volumes have nothing to flush and say so.
        const bool failed = flush(handle) != 0 && errno != EINVAL;
        const int number = errno;
        ::close(handle);
        errno = number;
        return failed ? -1 : 0;
    });
}

std::optional<std::uint64_t> Platform::freeBytes(const std::string &folder)
{
    if (const auto pretended = FaultPoints::freeBytes())
        return pretended;
    struct statvfs status
    {
    };
    if (::statvfs(folder.c_str(), &status) != 0)
        return std::nullopt;
    return std::uint64_t(status.f_bavail) * status.f_frsize;
}

std::optional<std::uint64_t> Platform::fileSize(const std::string &path)
{
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return std::uint64_t(status.st_size);
}

Error Platform::openForReading(const std::string &path, std::FILE *&file)
{
    return attempt([&] {
        // "e": programs that are started do not inherit it.
        file = std::fopen(path.c_str(), "rbe");
        return file ? 0 : -1;
    });
}

std::FILE *Platform::openForWriting(const std::string &path)
{
    return std::fopen(path.c_str(), "wbe");
}

std::FILE *Platform::openForAppending(const std::string &path)
{
    return std::fopen(path.c_str(), "abe");
}

std::vector<std::string> Platform::holders(const std::string &)
{
    // An open file keeps nobody from renaming it.
    return {};
}

std::string Platform::absolutePath(const std::string &path)
{
    char *const resolved = ::realpath(path.c_str(), nullptr);
    std::string result = resolved ? resolved : "";
    std::free(resolved);
    return result;
}

Platform::OutputFile::~OutputFile()
{
    if (m_handle != -1)
        ::close(int(m_handle));
}

Error Platform::OutputFile::create(const std::string &path)
{
    return attempt([&] {
        m_handle = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
        return int(m_handle);
    });
}

Error Platform::OutputFile::write(const char *bytes, size_t count)
{
    while (count > 0) {
        ssize_t written = 0;
        Error error = attempt([&] {
            written = ::write(int(m_handle), bytes, std::min(count, FaultPoints::longestWrite()));
            return written < 0 && errno != EINTR ? -1 : 0;
        });
        if (error)
            return error;
        bytes += std::max<ssize_t>(written, 0);
        count -= size_t(std::max<ssize_t>(written, 0));
    }
    return {};
}

Error Platform::OutputFile::close()
{
    Error error = attempt([&] { return flush(int(m_handle)); });
    const int handle = int(m_handle);
    m_handle = -1;
    if (::close(handle) != 0 && !error)
        return errorOf(errno);
    return error;
}

Error Platform::OutputFile::takeRightsOf(const std::string &path)
{
    struct stat status
    {
    };
    return attempt([&] {
        return ::stat(path.c_str(), &status) == 0
                   ? ::fchmod(int(m_handle), status.st_mode & mode_t(07777))
                   : -1;
    });
}

void Platform::prepareProcess() {}

std::vector<std::string> Platform::arguments(int argc, char **argv)
{
    return std::vector<std::string>(argv + std::min(argc, 1), argv + argc);
}

std::string Platform::ownExecutable()
{
    return readLink("/proc/self/exe");
}

bool Platform::mustStepAside(const std::string &)
{
    return false;
}

bool Platform::continueAsCopy(const std::string &, const std::vector<std::string> &)
{
    // The file of a running program can be replaced.
    return false;
}

void Platform::leaveWorkingDirectory()
{
    // It can only fail where there is no root folder.
    [[maybe_unused]] const int result = ::chdir("/");
}

std::vector<std::string> Platform::processesRunning(const std::string &path)
{
    std::vector<std::string> found;
    struct stat program
    {
    };
    std::vector<std::string> processes;
    if (::stat(path.c_str(), &program) != 0 || listFolder("/proc", processes))
        return found;

    const std::string self = std::to_string(::getpid());
    for (const std::string &process : processes) {
        struct stat running
        {
        };
        if (process == self || process.find_first_not_of("0123456789") != std::string::npos ||
            ::stat(("/proc/" + process + "/exe").c_str(), &running) != 0 ||
            running.st_dev != program.st_dev || running.st_ino != program.st_ino)
            continue;
        constexpr size_t kLongestName = 64;
        std::string name;
        if (readFile("/proc/" + process + "/comm", kLongestName, name))
            name.assign(1, '?'); // GCC 12 warns wrongly of an assigned text
        name.erase(std::remove(name.begin(), name.end(), '\n'), name.end());
        found.push_back(name.append(", processus ").append(process));
    }
    return found;
}

Error Platform::start(const std::string &program, const std::string &workingDirectory)
{
    // The child reports through it why the program could not be started; starting it closes it.
    int report[2] = {-1, -1};
    if (::pipe2(report, O_CLOEXEC) != 0)
        return errorOf(errno);

    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        for (int stream = STDIN_FILENO; null >= 0 && stream <= STDERR_FILENO; ++stream)
            ::dup2(null, stream);
        char *const arguments[] = {const_cast<char *>(program.c_str()), nullptr};
        if (::chdir(workingDirectory.c_str()) == 0)
            ::execv(program.c_str(), arguments);
        const int number = errno;
        [[maybe_unused]] const ssize_t written = ::write(report[1], &number, sizeof number);
        ::_exit(127);
    }
    Error error = child == -1 ? errorOf(errno) : Error{};
    ::close(report[1]);
    int number = 0;
    if (child != -1 && ::read(report[0], &number, sizeof number) == ssize_t(sizeof number)) {
        ::waitpid(child, nullptr, 0);
        error = errorOf(number);
    }
    ::close(report[0]);
    return error;
}

Platform::FolderLock::~FolderLock()
{
    release();
}

void Platform::FolderLock::release()
{
    if (m_handle != -1)
        ::close(int(m_handle));
    m_handle = -1;
}

bool Platform::FolderLock::tryLock(const std::string &folder)
{
    if (m_handle == -1)
        m_handle = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return m_handle != -1 && ::flock(int(m_handle), LOCK_EX | LOCK_NB) == 0;
}

std::string Platform::dataFolder()
{
    const char *const data = std::getenv("XDG_DATA_HOME");
    const char *const home = std::getenv("HOME");
    std::string base = data ? data : "";
    if (base.empty() || base.front() != '/')
        base = std::string(home ? home : "") + "/.local/share";

    std::string folder = base + "/Veyra/Veyra Launcher";
    for (size_t slash = folder.find('/', 1); slash != std::string::npos;
         slash = folder.find('/', slash + 1))
        ::mkdir(folder.substr(0, slash).c_str(), S_IRWXU);
    ::mkdir(folder.c_str(), S_IRWXU);
    return folder;
}
