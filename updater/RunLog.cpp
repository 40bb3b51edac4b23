#include "updater/RunLog.h"

#include "updater/Platform.h"

#include <array>
#include <ctime>

namespace {

std::string path()
{
    return Platform::dataFolder() + "/mise-a-jour.log";
}

} // namespace

RunLog::~RunLog()
{
    if (!m_hasBegun)
        open();
    if (m_file)
        std::fclose(m_file);
}

void RunLog::begin()
{
    m_hasBegun = true;
    if (std::FILE *const emptied = Platform::openForWriting(path()))
        std::fclose(emptied);
    open();
}

void RunLog::open()
{
    m_file = Platform::openForAppending(path());
    if (!m_file)
        return;
    std::fputs(m_keptBack.c_str(), m_file);
    std::fflush(m_file);
}

void RunLog::write(const std::string &text)
{
    const std::time_t now = std::time(nullptr);
    std::array<char, sizeof "2026-01-31T23:59:59Z"> time{};
    std::strftime(time.data(), time.size(), "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
    const std::string line = time.data() + (" " + text) + "\n";
    if (!m_hasBegun)
        m_keptBack += line;
    if (!m_file)
        return;
    std::fputs(line.c_str(), m_file);
    // What ends the program must not take the lines along that tell why.
    std::fflush(m_file);
}
