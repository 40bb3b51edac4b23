#pragma once

#include <cstdio>
#include <string>

/// What the last run did, for whoever helps a player: "mise-a-jour.log" in the launcher's local
/// data. A log that cannot be written is none.
class RunLog
{
public:
    RunLog();
    ~RunLog();
    RunLog(const RunLog &) = delete;
    RunLog &operator=(const RunLog &) = delete;

    void write(const std::string &text);

private:
    std::FILE *m_file;
};
