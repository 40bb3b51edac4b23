#include "publish/Waiting.h"

#include "publish/Interruption.h"

#include <QTimer>

using namespace std::chrono_literals;

namespace {

constexpr auto kLookForInterruption = 100ms;

} // namespace

void Waiting::done()
{
    m_isDone = true;
    m_loop.quit();
}

bool Waiting::run(std::chrono::milliseconds limit)
{
    if (m_isDone)
        return true;
    QTimer::singleShot(limit, &m_loop, &QEventLoop::quit);
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, &m_loop, [this] {
        if (Interruption::wasRequested())
            m_loop.quit();
    });
    look.start(kLookForInterruption);
    m_loop.exec();
    Interruption::check();
    return m_isDone;
}
