#include "updater/Platform.h"

#include "updater/FaultPoints.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cwchar>

#include <fcntl.h>
#include <io.h>

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>
#include <tlhelp32.h>

namespace {

using Platform::Error;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr size_t kLongestPath = 32768;
constexpr const wchar_t *kCopies = L"VeyraLauncher-maj-";

/// A handle of the system's that is closed at the end.
class Handle
{
public:
    explicit Handle(HANDLE handle)
        : m_handle(handle)
    {
    }
    ~Handle()
    {
        if (*this)
            ::CloseHandle(m_handle);
    }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;

    explicit operator bool() const { return m_handle && m_handle != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return m_handle; }

private:
    HANDLE m_handle;
};

std::wstring utf16(std::string_view text)
{
    const int size = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), int(text.size()), nullptr, 0);
    std::wstring result(size_t(size), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), int(text.size()), result.data(), size);
    return result;
}

std::string utf8(std::wstring_view text)
{
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), int(text.size()), nullptr, 0,
                                           nullptr, nullptr);
    std::string result(size_t(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), int(text.size()), result.data(), size, nullptr,
                          nullptr);
    return result;
}

/// As Windows writes it: what programs and messages get.
std::wstring native(const std::string &path)
{
    std::wstring result = utf16(path);
    std::replace(result.begin(), result.end(), L'/', L'\\');
    return result;
}

/// For calls on files: of any length, where it begins with a drive or a server.
std::wstring extended(const std::string &path)
{
    const std::wstring result = native(path);
    if (result.size() > 2 && result[1] == L':' && result[2] == L'\\')
        return L"\\\\?\\" + result;
    if (result.starts_with(L"\\\\") && !result.starts_with(L"\\\\?\\"))
        return L"\\\\?\\UNC\\" + result.substr(2);
    return result;
}

/// The other way round.
std::string portable(std::wstring_view path)
{
    constexpr std::wstring_view kExtended = L"\\\\?\\";
    constexpr std::wstring_view kServer = L"\\\\?\\UNC\\";
    std::wstring result;
    if (path.starts_with(kServer))
        result = L"\\\\" + std::wstring(path.substr(kServer.size()));
    else
        result = path.substr(path.starts_with(kExtended) ? kExtended.size() : 0);
    std::replace(result.begin(), result.end(), L'\\', L'/');
    return utf8(result);
}

std::string messageOf(DWORD number)
{
    std::array<wchar_t, 512> text{};
    DWORD size = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                  nullptr, number, 0, text.data(), DWORD(text.size()), nullptr);
    while (size > 0 && (text[size - 1] <= L' ' || text[size - 1] == L'.'))
        --size;
    return utf8({text.data(), size}) + " (erreur " + std::to_string(number) + ")";
}

Error errorOf(DWORD number)
{
    Error error{Error::Kind::Other, messageOf(number)};
    switch (number) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        error.kind = Error::Kind::Missing;
        break;
    case ERROR_ALREADY_EXISTS:
    case ERROR_FILE_EXISTS:
        error.kind = Error::Kind::Exists;
        break;
    case ERROR_DIR_NOT_EMPTY:
        error.kind = Error::Kind::NotEmpty;
        break;
    // A virus scanner, and also a file that is gone as soon as the last program lets go of it.
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
    case ERROR_DELETE_PENDING:
    case ERROR_CURRENT_DIRECTORY:
        error.kind = Error::Kind::Busy;
        break;
    case ERROR_INVALID_FUNCTION:
    case ERROR_NOT_SUPPORTED:
        error.kind = Error::Kind::Unsupported;
        break;
    default:
        break;
    }
    return error;
}

/// Makes a system call that tells whether it succeeded.
template <typename Call> Error attempt(Call call)
{
    if (const int number = FaultPoints::next(); number != 0)
        return errorOf(DWORD(number));
    return call() ? Error{} : errorOf(::GetLastError());
}

/// A text that a call writes into a buffer of at most kLongestPath characters.
template <typename Call> std::wstring textOf(Call call)
{
    std::wstring text(kLongestPath, L'\0');
    const DWORD size = call(text.data(), DWORD(text.size()));
    text.resize(size < kLongestPath ? size : 0);
    return text;
}

std::wstring ownFile()
{
    return textOf(
        [](wchar_t *text, DWORD size) { return ::GetModuleFileNameW(nullptr, text, size); });
}

/// As Windows compares names.
bool isSamePath(const std::wstring &left, const std::wstring &right)
{
    return ::CompareStringOrdinal(left.data(), int(left.size()), right.data(), int(right.size()),
                                  TRUE) == CSTR_EQUAL;
}

/// So that the started program reads it as one argument again.
std::wstring quoted(const std::wstring &argument)
{
    std::wstring result = L"\"";
    size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"')
            result.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        result += c;
    }
    return result.append(backslashes, L'\\') + L'"';
}

Error startProcess(const std::wstring &program, const std::vector<std::string> &arguments,
                   const wchar_t *workingDirectory)
{
    std::wstring line = quoted(program);
    for (const std::string &argument : arguments)
        line += L' ' + quoted(utf16(argument));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    // This program's own error mode is not for others.
    if (!::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE,
                          CREATE_DEFAULT_ERROR_MODE, nullptr, workingDirectory, &startup, &process))
        return errorOf(::GetLastError());
    // Its window may come to the front.
    ::AllowSetForegroundWindow(process.dwProcessId);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return {};
}

std::wstring temporaryFolder()
{
    return textOf([](wchar_t *text, DWORD size) { return ::GetTempPathW(size, text); });
}

/// Those of earlier runs; one that still runs stays.
void removeOldCopies()
{
    const std::wstring folder = temporaryFolder();
    WIN32_FIND_DATAW found{};
    HANDLE const search = ::FindFirstFileW((folder + kCopies + L"*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return;
    do {
        const std::wstring copies = folder + found.cFileName;
        ::DeleteFileW((copies + L"\\LauncherUpdater.exe").c_str());
        ::RemoveDirectoryW(copies.c_str());
    } while (::FindNextFileW(search, &found));
    ::FindClose(search);
}

/// A folder that nobody else has put anything into; empty on failure.
std::wstring makeFolderForCopy()
{
    const std::wstring start = temporaryFolder() + kCopies;
    const std::wstring process = std::to_wstring(::GetCurrentProcessId());
    for (int attempts = 0; attempts < 100; ++attempts) {
        std::wstring folder = start + process + L'-' + std::to_wstring(attempts);
        if (::CreateDirectoryW(folder.c_str(), nullptr))
            return folder;
    }
    return {};
}

} // namespace

Error Platform::findEntry(const std::string &path, Entry &entry)
{
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    Error error = attempt([&] {
        attributes = ::GetFileAttributesW(extended(path).c_str());
        return attributes != INVALID_FILE_ATTRIBUTES;
    });
    entry = Entry::Nothing;
    if (error.kind == Error::Kind::Missing)
        return {};
    if (!error) {
        const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        entry = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ? Entry::Other
                : isFolder                                       ? Entry::Folder
                                                                 : Entry::File;
    }
    return error;
}

Error Platform::listFolder(const std::string &path, std::vector<std::string> &names)
{
    WIN32_FIND_DATAW found{};
    HANDLE search = INVALID_HANDLE_VALUE;
    Error error = attempt([&] {
        search = ::FindFirstFileW((extended(path) + L"\\*").c_str(), &found);
        return search != INVALID_HANDLE_VALUE;
    });
    if (search == INVALID_HANDLE_VALUE)
        return error;
    do {
        const std::string name = utf8(found.cFileName);
        if (name != "." && name != "..")
            names.push_back(name);
    } while (::FindNextFileW(search, &found));
    ::FindClose(search);
    std::sort(names.begin(), names.end());
    return {};
}

Error Platform::makeFolder(const std::string &path)
{
    return attempt([&] { return ::CreateDirectoryW(extended(path).c_str(), nullptr); });
}

Error Platform::removeFolder(const std::string &path)
{
    return attempt([&] { return ::RemoveDirectoryW(extended(path).c_str()); });
}

Error Platform::removeFile(const std::string &path)
{
    return attempt([&] {
        const std::wstring file = extended(path);
        if (::DeleteFileW(file.c_str()))
            return true;
        // A file that is read-only is not deleted, however often it is tried.
        const DWORD number = ::GetLastError();
        const DWORD attributes = ::GetFileAttributesW(file.c_str());
        const bool isReadOnly = attributes != INVALID_FILE_ATTRIBUTES &&
                                (attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
                                (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
        if (isReadOnly &&
            ::SetFileAttributesW(file.c_str(), attributes & ~DWORD(FILE_ATTRIBUTE_READONLY)) &&
            ::DeleteFileW(file.c_str()))
            return true;
        ::SetLastError(number);
        return false;
    });
}

Error Platform::rename(const std::string &from, const std::string &to)
{
    return attempt([&] {
        return ::MoveFileExW(extended(from).c_str(), extended(to).c_str(), MOVEFILE_WRITE_THROUGH);
    });
}

Error Platform::replace(const std::string &from, const std::string &to)
{
    if (!FaultPoints::canReplace())
        return rename(from, to);
    return attempt([&] {
        return ::MoveFileExW(extended(from).c_str(), extended(to).c_str(),
                             MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
    });
}

Error Platform::flushFolder(const std::string &path)
{
    return attempt([&] {
        if (!FaultPoints::waitsForDisk())
            return true;
        // MOVEFILE_WRITE_THROUGH has done so for every name, as far as the volume knows it. This
        // asks once more where the system lets it.
        const Handle folder(::CreateFileW(extended(path).c_str(), GENERIC_WRITE, kShareAll, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        if (folder)
            ::FlushFileBuffers(folder.get());
        return true;
    });
}

std::optional<std::uint64_t> Platform::freeBytes(const std::string &folder)
{
    if (const auto pretended = FaultPoints::freeBytes())
        return pretended;
    ULARGE_INTEGER available{};
    if (!::GetDiskFreeSpaceExW(extended(folder).c_str(), &available, nullptr, nullptr))
        return std::nullopt;
    return available.QuadPart;
}

std::optional<std::uint64_t> Platform::fileSize(const std::string &path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(extended(path).c_str(), GetFileExInfoStandard, &data))
        return std::nullopt;
    return (std::uint64_t(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

std::FILE *Platform::openForReading(const std::string &path)
{
    HANDLE const handle = ::CreateFileW(extended(path).c_str(), GENERIC_READ, FILE_SHARE_READ,
                                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return nullptr;
    const int descriptor = ::_open_osfhandle(std::intptr_t(handle), _O_RDONLY | _O_BINARY);
    if (descriptor == -1) {
        ::CloseHandle(handle);
        return nullptr;
    }
    std::FILE *const file = ::_fdopen(descriptor, "rb");
    if (!file)
        ::_close(descriptor);
    return file;
}

std::FILE *Platform::openForWriting(const std::string &path)
{
    return ::_wfopen(extended(path).c_str(), L"wbN");
}

std::string Platform::absolutePath(const std::string &path)
{
    const Handle file(::CreateFileW(extended(path).c_str(), 0, kShareAll, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file)
        return {};
    std::wstring found = textOf([&](wchar_t *text, DWORD size) {
        return ::GetFinalPathNameByHandleW(file.get(), text, size, FILE_NAME_NORMALIZED);
    });
    // Some disks that programs make up have no such name.
    if (found.empty()) {
        const std::wstring given = native(path);
        found = textOf([&](wchar_t *text, DWORD size) {
            return ::GetFullPathNameW(given.c_str(), size, text, nullptr);
        });
    }
    std::string result = portable(found);
    while (result.size() > 1 && result.back() == '/')
        result.pop_back();
    return result;
}

Platform::OutputFile::~OutputFile()
{
    if (m_handle != -1)
        ::CloseHandle(HANDLE(m_handle));
}

Error Platform::OutputFile::create(const std::string &path)
{
    return attempt([&] {
        m_handle = std::intptr_t(::CreateFileW(extended(path).c_str(), GENERIC_WRITE, 0, nullptr,
                                               CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        return m_handle != -1;
    });
}

Error Platform::OutputFile::write(const char *bytes, size_t count)
{
    while (count > 0) {
        constexpr size_t kLongestCall = 1u << 30;
        DWORD written = 0;
        Error error = attempt([&] {
            const auto size = DWORD(std::min({count, FaultPoints::longestWrite(), kLongestCall}));
            return ::WriteFile(HANDLE(m_handle), bytes, size, &written, nullptr);
        });
        if (error)
            return error;
        bytes += written;
        count -= written;
    }
    return {};
}

Error Platform::OutputFile::close()
{
    Error error = attempt(
        [&] { return !FaultPoints::waitsForDisk() || ::FlushFileBuffers(HANDLE(m_handle)); });
    const auto handle = HANDLE(m_handle);
    m_handle = -1;
    if (!::CloseHandle(handle) && !error)
        return errorOf(::GetLastError());
    return error;
}

Error Platform::OutputFile::takeRightsOf(const std::string &)
{
    // The folder hands its own on.
    return {};
}

void Platform::prepareProcess()
{
    ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    // Where a disk is missing it is an error like others, without a box of Windows' own.
    ::SetErrorMode(SEM_FAILCRITICALERRORS);
}

std::vector<std::string> Platform::arguments(int, char **)
{
    // main()'s own are in the system's code page, which does not know all names.
    int count = 0;
    LPWSTR *const list = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    std::vector<std::string> result;
    for (int index = 1; list && index < count; ++index)
        result.push_back(utf8(list[index]));
    ::LocalFree(list);
    return result;
}

std::string Platform::ownExecutable()
{
    return portable(ownFile());
}

bool Platform::continueAsCopy(const std::string &folder, const std::vector<std::string> &arguments)
{
    removeOldCopies();
    const std::wstring self = ownFile();
    const std::string own = absolutePath(portable(self));
    const std::string place = absolutePath(folder);
    if (own.empty() || place.empty() ||
        !isSamePath(native(own.substr(0, own.rfind('/'))), native(place)))
        return false;

    const std::wstring copies = makeFolderForCopy();
    if (copies.empty())
        return false;
    const std::wstring copy = copies + L"\\LauncherUpdater.exe";
    if (::CopyFileW(extended(own).c_str(), copy.c_str(), TRUE) &&
        !startProcess(copy, arguments, nullptr))
        return true;
    // Then this program does it as well as it can: its own old file stays until the next time.
    ::DeleteFileW(copy.c_str());
    ::RemoveDirectoryW(copies.c_str());
    return false;
}

void Platform::leaveWorkingDirectory()
{
    const std::wstring system =
        textOf([](wchar_t *text, DWORD size) { return DWORD(::GetSystemDirectoryW(text, size)); });
    ::SetCurrentDirectoryW(system.c_str());
}

std::vector<std::string> Platform::processesRunning(const std::string &path)
{
    std::vector<std::string> found;
    const Handle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    const std::wstring program = native(path);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    if (!snapshot || !::Process32FirstW(snapshot.get(), &entry))
        return found;
    do {
        if (entry.th32ProcessID == ::GetCurrentProcessId())
            continue;
        const Handle process(
            ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ProcessID));
        if (!process)
            continue;
        const std::wstring running = textOf([&](wchar_t *text, DWORD size) {
            return ::QueryFullProcessImageNameW(process.get(), 0, text, &size) ? size : 0;
        });
        if (isSamePath(running, program)) {
            found.push_back(utf8(entry.szExeFile) + ", processus " +
                            std::to_string(entry.th32ProcessID));
        }
    } while (::Process32NextW(snapshot.get(), &entry));
    return found;
}

Error Platform::start(const std::string &program, const std::string &workingDirectory)
{
    return startProcess(native(program), {}, native(workingDirectory).c_str());
}

Platform::FolderLock::~FolderLock()
{
    if (m_handle == -1)
        return;
    ::ReleaseMutex(HANDLE(m_handle));
    ::CloseHandle(HANDLE(m_handle));
}

bool Platform::FolderLock::tryLock(const std::string &folder)
{
    if (m_handle == -1) {
        // Names of such objects have neither backslashes nor the length of paths.
        std::wstring name = native(folder);
        ::CharLowerBuffW(name.data(), DWORD(name.size()));
        std::uint64_t sum = 14695981039346656037ull; // FNV-1a
        for (const wchar_t c : name)
            sum = (sum ^ std::uint64_t(c)) * 1099511628211ull;
        name = L"Local\\VeyraLauncher-maj-" + std::to_wstring(sum);
        HANDLE const mutex = ::CreateMutexW(nullptr, FALSE, name.c_str());
        if (!mutex)
            return false;
        m_handle = std::intptr_t(mutex);
    }
    const DWORD result = ::WaitForSingleObject(HANDLE(m_handle), 0);
    // What the other one left is mended.
    return result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

std::string Platform::dataFolder()
{
    std::string folder;
    PWSTR found = nullptr;
    if (SUCCEEDED(::SHGetKnownFolderPath(FOLDERID_LocalAppData, KF_FLAG_CREATE, nullptr, &found)))
        folder = portable(found);
    ::CoTaskMemFree(found);
    for (const char *const name : {"/Veyra", "/Veyra Launcher"}) {
        folder += name;
        ::CreateDirectoryW(extended(folder).c_str(), nullptr);
    }
    return folder;
}
