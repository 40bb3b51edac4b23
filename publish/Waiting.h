#pragma once

#include <QEventLoop>

#include <chrono>

/// Lets the event loop run until something is done, for a tool whose steps follow each other.
/// Ctrl+C ends it by a Problem.
class Waiting
{
public:
    void done();
    /// False when it was not done in time.
    bool run(std::chrono::milliseconds limit);

private:
    QEventLoop m_loop;
    bool m_isDone = false;
};
