#pragma once

#include <QEventLoop>
#include <QTimer>

#include <chrono>

/// Lets the event loop run until something is done, for a tool whose steps follow each other.
/// Ctrl+C ends it by a Problem.
class Waiting
{
public:
    Waiting();

    void done();
    /// Something has happened: the limit begins anew.
    void goesOn();
    /// False when it was not done in time.
    bool run(std::chrono::milliseconds limit);

private:
    QEventLoop m_loop;
    QTimer m_limit;
    bool m_isDone = false;
};
