#pragma once

#include <QTest>

#include <chrono>

/// Gives what must not happen the time to happen. Whatever must happen is waited for by name.
inline void waitForStragglers(std::chrono::milliseconds time = std::chrono::milliseconds(50))
{
    QTest::qWait(int(time.count()));
}
