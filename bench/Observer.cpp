#include "bench/Observer.h"

#include <QApplication>
#include <QEvent>
#include <QFile>
#include <QJsonDocument>
#include <QWidget>
#include <QWindow>

#include <cstdio>
#include <cstdlib>

#include <time.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kStartedAt = "VEYRA_BENCH_STARTED_NS";
constexpr auto kGoal = "VEYRA_BENCH_UNTIL";

double millisecondsSinceStart()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const qint64 nanoseconds = qint64{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
    return static_cast<double>(nanoseconds - qEnvironmentVariable(kStartedAt).toLongLong()) / 1e6;
}

void observe()
{
    qApp->installEventFilter(new Observer(qApp));
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(observe)

Observer::Observer(QObject *parent)
    : QObject(parent)
{
}

QString Observer::goal()
{
    return qEnvironmentVariable(kGoal);
}

Observer::Memory Observer::memory()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return {};

    Memory memory;
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const qint64 kilobytes = line.simplified().split(' ').value(1).toLongLong();
        if (line.startsWith("VmHWM:"))
            memory.peak = kilobytes;
        else if (line.startsWith("VmRSS:"))
            memory.resident = kilobytes;
    }
    return memory;
}

void Observer::resetPeak()
{
    QFile references(u"/proc/self/clear_refs"_s);
    if (references.open(QIODevice::WriteOnly))
        references.write("5");
}

void Observer::noteMemory(const QString &phase)
{
    const Memory now = memory();
    note(phase + "_resident_kb"_L1, static_cast<double>(now.resident));
    note(phase + "_peak_kb"_L1, static_cast<double>(now.peak));
}

void Observer::print() const
{
    std::puts(QJsonDocument(m_figures).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

void Observer::end(int exitCode) const
{
    print();
    std::_Exit(exitCode);
}

bool Observer::eventFilter(QObject *watched, QEvent *event)
{
    // The window system's word that the window is on the screen: Qt paints and flushes the whole
    // window before it returns from this event.
    auto *window = event->type() == QEvent::Expose ? qobject_cast<QWindow *>(watched) : nullptr;
    if (!window || !window->isExposed())
        return false;

    qApp->removeEventFilter(this);
    watched->event(event);
    note(u"first_frame_ms"_s, millisecondsSinceStart());
    onFirstFrame(*this, *QApplication::topLevelWidgets().constFirst()->window());
    return true;
}
