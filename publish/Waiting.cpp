#include "publish/Waiting.h"

#include "publish/Interruption.h"

using namespace std::chrono_literals;

namespace {

constexpr auto kLookForInterruption = 100ms;

} // namespace

Waiting::Waiting()
{
    m_limit.setSingleShot(true);
    QObject::connect(&m_limit, &QTimer::timeout, &m_loop, &QEventLoop::quit);
}

void Waiting::done()
{
    m_isDone = true;
    m_loop.quit();
}

void Waiting::goesOn()
{
    if (m_limit.isActive())
        m_limit.start();
}

bool Waiting::run(std::chrono::milliseconds limit)
{
    if (m_isDone)
        return true;
    m_limit.start(limit);
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, &m_loop, [this] {
        if (Interruption::wasRequested())
            m_loop.quit();
    });
    look.start(kLookForInterruption);
    m_loop.exec();
    m_limit.stop();
    Interruption::check();
    return m_isDone;
}
