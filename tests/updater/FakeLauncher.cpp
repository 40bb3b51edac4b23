// Stands for the launcher: adds a line to the file that VEYRA_PROBE_RECORD names, with the last
// word of its own file (which tells the versions apart), its working directory and its arguments'
// number. Where VEYRA_PROBE_HANG is set it then waits that many milliseconds.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

int main(int argc, char **argv)
{
    std::ifstream self(argv[0], std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(self), {}};
    const std::string line = content.substr(content.rfind('\n') + 1) + '|' +
                             std::filesystem::current_path().string() + '|' +
                             std::to_string(argc - 1) + '\n';
    if (const char *const record = std::getenv("VEYRA_PROBE_RECORD")) {
        if (std::FILE *const file = std::fopen(record, "a")) {
            std::fwrite(line.data(), 1, line.size(), file);
            std::fclose(file);
        }
    }
    if (const char *const milliseconds = std::getenv("VEYRA_PROBE_HANG"))
        std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(milliseconds)));
}
