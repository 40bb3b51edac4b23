#include "bench/LoopGap.h"

#include <algorithm>
#include <chrono>

using namespace std::chrono_literals;

LoopGap::LoopGap()
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(1ms);
    QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { comeRound(); });
}

void LoopGap::start()
{
    m_longest = 0;
    m_sinceLastRound.start();
    m_timer.start();
}

double LoopGap::stop()
{
    comeRound();
    m_timer.stop();
    return static_cast<double>(m_longest) / 1e6;
}

void LoopGap::comeRound()
{
    m_longest = std::max(m_longest, m_sinceLastRound.nsecsElapsed());
    m_sinceLastRound.restart();
}
