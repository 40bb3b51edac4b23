#pragma once

#include <cstdio>
#include <string>

/// What the last run did, for whoever helps a player: "mise-a-jour.log" in the launcher's local
/// data. A log that cannot be written is none.
///
/// What a run has to tell before it begins is kept back: where it ends because another one is under
/// way, it stands behind what that one wrote.
class RunLog
{
public:
    RunLog() = default;
    ~RunLog();
    RunLog(const RunLog &) = delete;
    RunLog &operator=(const RunLog &) = delete;

    /// From here on nothing of earlier runs is kept.
    void begin();
    void write(const std::string &text);

private:
    void open();

    std::FILE *m_file = nullptr;
    bool m_hasBegun = false;
    std::string m_keptBack;
};
