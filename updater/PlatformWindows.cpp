#include "updater/Platform.h"

#include "updater/FaultPoints.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cwchar>
#include <utility>

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
#include <restartmanager.h>
#include <shellapi.h>
#include <shlobj.h>
#include <tlhelp32.h>

namespace {

using Platform::Error;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr size_t kLongestPath = 32768;
constexpr const wchar_t *kCopies = L"VeyraLauncher-maj-";

/// Tells the setup program that some update is going on, whatever the folder.
HANDLE presence = nullptr;

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
    // A drive's name alone is the folder that happens to be the current one there.
    constexpr size_t kDriveLength = 2;
    if (result.size() == kDriveLength && result.back() == L':')
        result += L'\\';
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

/// Makes a call that removes `file` in one way or another. One that is read-only does not let it,
/// however often it is tried: it loses that attribute, and gets it back where the call fails still.
template <typename Call> bool withoutProtection(const std::wstring &file, Call call)
{
    if (call())
        return true;
    DWORD number = ::GetLastError();
    const DWORD attributes = ::GetFileAttributesW(file.c_str());
    const bool isReadOnly = attributes != INVALID_FILE_ATTRIBUTES &&
                            (attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
                            (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    if (isReadOnly &&
        ::SetFileAttributesW(file.c_str(), attributes & ~DWORD(FILE_ATTRIBUTE_READONLY))) {
        if (call())
            return true;
        number = ::GetLastError();
        ::SetFileAttributesW(file.c_str(), attributes);
    }
    ::SetLastError(number);
    return false;
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

std::wstring systemFolder()
{
    return textOf(
        [](wchar_t *text, DWORD size) { return DWORD(::GetSystemDirectoryW(text, size)); });
}

/// What Windows knows of programs and the files that they have open. Its library is taken from
/// Windows' own folder when it is needed: in the import table it could be somebody else's.
class RestartManager
{
public:
    RestartManager()
        : m_library(::LoadLibraryW((systemFolder() + L"\\rstrtmgr.dll").c_str()))
    {
    }
    ~RestartManager()
    {
        if (m_library)
            ::FreeLibrary(m_library);
    }
    RestartManager(const RestartManager &) = delete;
    RestartManager &operator=(const RestartManager &) = delete;

    void listHolders(const std::wstring &file, std::vector<std::string> &found) const;

private:
    template <typename Function> Function *function(const char *name) const
    {
        return m_library ? reinterpret_cast<Function *>(
                               reinterpret_cast<void *>(::GetProcAddress(m_library, name)))
                         : nullptr;
    }

    HMODULE m_library;
};

void RestartManager::listHolders(const std::wstring &file, std::vector<std::string> &found) const
{
    auto *const startSession = function<decltype(::RmStartSession)>("RmStartSession");
    auto *const registerFiles = function<decltype(::RmRegisterResources)>("RmRegisterResources");
    auto *const list = function<decltype(::RmGetList)>("RmGetList");
    auto *const endSession = function<decltype(::RmEndSession)>("RmEndSession");
    std::array<wchar_t, CCH_RM_SESSION_KEY + 1> key{};
    DWORD session = 0;
    if (!startSession || !registerFiles || !list || !endSession ||
        startSession(&session, 0, key.data()) != ERROR_SUCCESS)
        return;

    const wchar_t *path = file.c_str();
    // More of them would not be read by anybody.
    std::array<RM_PROCESS_INFO, 8> processes{};
    UINT needed = 0;
    auto count = UINT(processes.size());
    DWORD reasons = 0;
    const bool isListed =
        registerFiles(session, 1, &path, 0, nullptr, 0, nullptr) == ERROR_SUCCESS &&
        list(session, &needed, &count, processes.data(), &reasons) == ERROR_SUCCESS;
    for (UINT index = 0; isListed && index < std::min(count, UINT(processes.size())); ++index) {
        const RM_PROCESS_INFO &process = processes[index];
        if (process.Process.dwProcessId == ::GetCurrentProcessId())
            continue;
        found.push_back(utf8(process.strAppName) + ", processus " +
                        std::to_string(process.Process.dwProcessId));
    }
    endSession(session);
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
        return withoutProtection(file, [&] { return ::DeleteFileW(file.c_str()) != 0; });
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
    switch (FaultPoints::replacing()) {
    case FaultPoints::Replacing::Unknown:
        return rename(from, to);
    case FaultPoints::Replacing::Held:
        return errorOf(ERROR_SHARING_VIOLATION);
    case FaultPoints::Replacing::Works:
        break;
    }
    return attempt([&] {
        const std::wstring target = extended(to);
        return withoutProtection(target, [&] {
            return ::MoveFileExW(extended(from).c_str(), target.c_str(),
                                 MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
        });
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

Error Platform::openForReading(const std::string &path, std::FILE *&file)
{
    HANDLE handle = INVALID_HANDLE_VALUE;
    if (Error error = attempt([&] {
            handle = ::CreateFileW(extended(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
            return handle != INVALID_HANDLE_VALUE;
        }))
        return error;
    const int descriptor = ::_open_osfhandle(std::intptr_t(handle), _O_RDONLY | _O_BINARY);
    if (descriptor == -1) {
        ::CloseHandle(handle);
        return errorOf(ERROR_TOO_MANY_OPEN_FILES);
    }
    file = ::_fdopen(descriptor, "rb");
    if (!file) {
        ::_close(descriptor);
        return errorOf(ERROR_TOO_MANY_OPEN_FILES);
    }
    return {};
}

std::FILE *Platform::openForWriting(const std::string &path)
{
    return ::_wfopen(extended(path).c_str(), L"wbN");
}

std::FILE *Platform::openForAppending(const std::string &path)
{
    return ::_wfopen(extended(path).c_str(), L"abN");
}

std::vector<std::string> Platform::holders(const std::string &path)
{
    std::vector<std::string> found;
    const RestartManager manager;
    manager.listHolders(native(path), found);
    return found;
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

Error Platform::OutputFile::takeRightsOf(const std::string &path)
{
    // The folder hands its own on. Only that nobody should write to it is the file's.
    return attempt([&] {
        const DWORD attributes = ::GetFileAttributesW(extended(path).c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
            return false;
        if ((attributes & FILE_ATTRIBUTE_READONLY) == 0)
            return true;
        FILE_BASIC_INFO information{};
        information.FileAttributes = FILE_ATTRIBUTE_READONLY;
        return ::SetFileInformationByHandle(HANDLE(m_handle), FileBasicInfo, &information,
                                            sizeof information) != 0;
    });
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

bool Platform::mustStepAside(const std::string &path)
{
    return isSamePath(native(absolutePath(path)), native(absolutePath(ownExecutable())));
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
    // Programs may be forbidden there. Then this one does it from its own place: its file is
    // renamed, and goes when an update finds it.
    ::DeleteFileW(copy.c_str());
    ::RemoveDirectoryW(copies.c_str());
    return false;
}

void Platform::leaveWorkingDirectory()
{
    ::SetCurrentDirectoryW(systemFolder().c_str());
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
    release();
}

void Platform::FolderLock::release()
{
    if (m_handle != -1) {
        ::ReleaseMutex(HANDLE(m_handle));
        ::CloseHandle(HANDLE(m_handle));
        m_handle = -1;
    }
    if (presence)
        ::CloseHandle(std::exchange(presence, nullptr));
}

bool Platform::FolderLock::tryLock(const std::string &folder)
{
    if (m_handle == -1) {
        // Of the session alone: the launcher is installed for one person, and a name for all
        // sessions could be taken by anybody else on the machine.
        if (!presence)
            presence = ::CreateMutexW(nullptr, FALSE, L"Local\\VeyraLauncher-maj");
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
