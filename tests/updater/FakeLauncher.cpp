// Stands for the launcher: adds a line to the file that VEYRA_PROBE_RECORD names, with the last
// word of its own file (which tells the versions apart), its working directory and its arguments'
// number. Where VEYRA_PROBE_HANG is set it then waits that many milliseconds. On Windows it holds
// the file that VEYRA_PROBE_HOLD names meanwhile, so that nobody else can open it.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#ifdef _WIN32
#include <array>
#include <windows.h>
#endif

namespace {

std::filesystem::path ownFile([[maybe_unused]] const char *name)
{
#ifdef _WIN32
    // Names come in the system's code page, which does not know all of them.
    std::array<wchar_t, MAX_PATH> path{};
    GetModuleFileNameW(nullptr, path.data(), DWORD(path.size()));
    return path.data();
#else
    return name;
#endif
}

std::string utf8(const std::filesystem::path &path)
{
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

void hold()
{
#ifdef _WIN32
    // Windows lets go of it when the program ends.
    if (const wchar_t *const path = _wgetenv(L"VEYRA_PROBE_HOLD"))
        CreateFileW(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
#endif
}

} // namespace

int main(int argc, char **argv)
{
    std::ifstream self(ownFile(argv[0]), std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(self), {}};
    const std::string line = content.substr(content.rfind('\n') + 1) + '|' +
                             utf8(std::filesystem::current_path()) + '|' +
                             std::to_string(argc - 1) + '\n';
    hold();
    if (const char *const record = std::getenv("VEYRA_PROBE_RECORD")) {
        if (std::FILE *const file = std::fopen(record, "ab")) {
            std::fwrite(line.data(), 1, line.size(), file);
            std::fclose(file);
        }
    }
    if (const char *const milliseconds = std::getenv("VEYRA_PROBE_HANG"))
        std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(milliseconds)));
}
