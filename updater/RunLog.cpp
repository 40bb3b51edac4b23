#include "updater/RunLog.h"

#include "updater/Platform.h"

#include <array>
#include <ctime>

RunLog::RunLog()
    : m_file(Platform::openForWriting(Platform::dataFolder() + "/mise-a-jour.log"))
{
}

RunLog::~RunLog()
{
    if (m_file)
        std::fclose(m_file);
}

void RunLog::write(const std::string &text)
{
    if (!m_file)
        return;
    const std::time_t now = std::time(nullptr);
    std::array<char, sizeof "2026-01-31T23:59:59Z"> time{};
    std::strftime(time.data(), time.size(), "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
    std::fprintf(m_file, "%s %s\n", time.data(), text.c_str());
    // What ends the program must not take the lines along that tell why.
    std::fflush(m_file);
}
