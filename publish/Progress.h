#pragma once

#include <QString>

#include <mutex>

/// How far one long step is, on the standard error: a bar on a terminal, elsewhere a line for each
/// 10 %. Any thread may report.
class Progress
{
public:
    Progress(const QString &label, qint64 total);
    ~Progress();
    Q_DISABLE_COPY_MOVE(Progress)

    void advance(qint64 amount);

private:
    void show(int percent);

    const QString m_label;
    const qint64 m_total;
    const bool m_isTerminal;
    std::mutex m_mutex;
    qint64 m_done = 0;
    int m_shown = -1; // per cent
};
