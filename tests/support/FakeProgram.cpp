// Takes the place of another program, under its name: writes down its arguments and working
// directory, then does what its script says. Plain C++, because it has to run on a PATH that leads
// to nothing else. tests/support/FakePrograms.h writes the scripts and reads the records. Where no
// script is given the record goes beside the program itself: tests/support/StandIn.h.

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

namespace {

std::string toBytes(const fs::path &path)
{
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

fs::path fromBytes(const std::string &text)
{
    return fs::path(std::u8string(text.begin(), text.end()));
}

/// The command line in UTF-8.
std::vector<std::string> arguments([[maybe_unused]] int argc, [[maybe_unused]] char **argv)
{
#ifdef _WIN32
    int count = 0;
    wchar_t **wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i) {
        // By way of a path, but without its separators.
        const std::u8string text = fs::path(wide[i]).u8string();
        texts.emplace_back(text.begin(), text.end());
    }
    return texts;
#else
    return {argv, argv + argc};
#endif
}

std::string readFile(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

/// Written elsewhere and renamed, so that nobody reads half a record.
void writeRecord(const fs::path &path, const std::string &content)
{
    fs::path draft = path;
    draft += ".draft";
    std::ofstream(draft, std::ios::binary) << content;
    fs::rename(draft, path);
}

#ifdef _WIN32
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
#else
fs::path ownPath()
{
    return fs::read_symlink("/proc/self/exe");
}

std::string processId()
{
    return std::to_string(getpid());
}
#endif

int recordBeside(const std::vector<std::string> &texts)
{
    const fs::path self = ownPath();
    std::string record = toBytes(fs::current_path()) + '\0' + processId() + '\0';
    for (std::size_t i = 1; i < texts.size(); ++i)
        record += texts[i] + '\0';
    // The names sort by the time of the start.
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto count = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    const auto beside = [&self](const std::string &suffix) { return fs::path(self) += suffix; };
    writeRecord(beside('.' + std::to_string(count) + '-' + processId() + ".start"), record);

    if (fs::exists(beside(".hang")))
        std::this_thread::sleep_for(std::chrono::minutes(5));
    return 0;
}

int followScript(const fs::path &folder, const std::vector<std::string> &texts)
{
    const std::string name = toBytes(fromBytes(texts.at(0)).stem());
    const fs::path base = folder / fromBytes(name);

    std::string record;
    for (std::size_t i = 1; i < texts.size(); ++i)
        record += texts[i] + '\0';
    const auto beside = [&base](const char *suffix) { return fs::path(base) += suffix; };
    writeRecord(beside(".folder"), toBytes(fs::current_path()));
    writeRecord(beside(".arguments"), record);

    std::cerr << readFile(beside(".stderr")) << std::flush;
    std::istringstream script(readFile(beside(".script")));
    std::string word;
    while (script >> word) {
        if (word == "create") {
            std::string path;
            std::getline(script >> std::ws, path);
            fs::create_directories(fromBytes(path).parent_path());
            std::ofstream(fromBytes(path)) << name;
        } else if (word == "crash") {
            std::abort();
        } else if (word == "hang") {
            std::this_thread::sleep_for(std::chrono::minutes(5));
        } else if (word == "exit") {
            int code = 0;
            script >> code;
            return code;
        }
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
#ifdef _WIN32
    _setmode(_fileno(stderr), _O_BINARY); // to the letter, without carriage returns
#endif
    const std::vector<std::string> texts = arguments(argc, argv);
    const char *folder = std::getenv("VEYRA_FAKE_PROGRAMS");
    return folder ? followScript(fromBytes(folder), texts) : recordBeside(texts);
}
