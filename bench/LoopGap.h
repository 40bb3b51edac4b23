#pragma once

#include <QElapsedTimer>
#include <QTimer>

/// The longest time for which the event loop did not come round: what a click or a repaint has to
/// wait at worst. Measured with a timer that is due every millisecond.
class LoopGap
{
public:
    LoopGap();

    void start();
    /// Milliseconds. Counts the time since the last round, too: a loop that hangs until the very
    /// end would go unnoticed otherwise.
    double stop();

private:
    void comeRound();

    QTimer m_timer;
    QElapsedTimer m_sinceLastRound;
    qint64 m_longest = 0; // nanoseconds
};
