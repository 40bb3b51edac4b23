#include "tests/support/StandInProgram.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h> // knows nothing without the other
#else
#include <unistd.h>
#endif

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr auto kLongestHang = 5min; // no forgotten program stays for good
constexpr auto kHangPause = 20ms;

std::string toBytes(const std::u8string &text)
{
    return {text.begin(), text.end()};
}

fs::path fromBytes(const std::string &text)
{
    return fs::path(std::u8string(text.begin(), text.end()));
}

#ifdef _WIN32

/// To UTF-8 by way of a path, but without its separators.
std::string toBytes(const wchar_t *text)
{
    return toBytes(fs::path(text).u8string());
}

/// What Windows handed over, to the letter.
std::string commandLine()
{
    return toBytes(GetCommandLineW());
}

std::vector<std::string> arguments(int, char **)
{
    int count = 0;
    wchar_t **wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> texts;
    for (int i = 1; i < count; ++i)
        texts.push_back(toBytes(wide[i]));
    return texts;
}

fs::path ownPath()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return path;
}

std::string processId()
{
    return std::to_string(GetCurrentProcessId());
}

/// What the parent sees of a program that touched memory it must not. The real thing would start
/// whatever debugger the machine has.
void crash()
{
    TerminateProcess(GetCurrentProcess(), DWORD(EXCEPTION_ACCESS_VIOLATION));
}

void keepLineEndsOfStandardError()
{
    _setmode(_fileno(stderr), _O_BINARY);
}

#else

std::string commandLine()
{
    return {};
}

std::vector<std::string> arguments(int argc, char **argv)
{
    return {argv + 1, argv + argc};
}

fs::path ownPath()
{
    return fs::read_symlink("/proc/self/exe");
}

std::string processId()
{
    return std::to_string(getpid());
}

void crash()
{
    std::abort();
}

void keepLineEndsOfStandardError() {}

#endif

fs::path beside(const std::string &suffix)
{
    return ownPath() += suffix;
}

void record(const std::vector<std::string> &texts)
{
    std::string content = commandLine() + '\0' + toBytes(fs::current_path().generic_u8string()) +
                          '\0' + processId() + '\0';
    for (const std::string &text : texts)
        content += text + '\0';
    // The names sort by the time of the start.
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto count = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    const std::string name = '.' + std::to_string(count) + '-' + processId();
    // Renamed when it is whole, so that nobody reads half a record.
    std::ofstream(beside(name), std::ios::binary) << content;
    fs::rename(beside(name), beside(name + ".start"));
}

void create(const fs::path &path)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path) << "made by a stand-in";
}

/// Until somebody takes the script away.
void hang(const fs::path &script)
{
    const auto end = std::chrono::steady_clock::now() + kLongestHang;
    std::error_code error;
    while (fs::exists(script, error) && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(kHangPause);
}

} // namespace

std::optional<int> StandInProgram::run(int argc, char **argv)
{
    keepLineEndsOfStandardError();
    record(arguments(argc, argv));

    const fs::path path = beside(".script");
    std::ifstream script(path, std::ios::binary);
    if (!script)
        return std::nullopt;
    std::string word;
    std::string detail;
    while (std::getline(script, word, '\0')) {
        if (word == "crash")
            crash();
        else if (word == "hang") {
            script.close(); // Windows removes no file that is open
            hang(path);
        } else if (std::getline(script, detail, '\0')) {
            if (word == "say")
                std::cerr << detail << std::flush;
            else if (word == "create")
                create(fromBytes(detail));
            else if (word == "exit")
                return std::stoi(detail);
        }
    }
    return 0;
}
