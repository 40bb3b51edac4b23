#include "tests/window/NewsHold.h"

#include "ui/NewsView.h"
#include "ui/ThreadTime.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMimeData>
#include <QPixmap>
#include <QTextDocument>
#include <QThreadPool>

#include <algorithm>
#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// Longer than the parser takes for anything on a busy machine, under a sanitizer too.
constexpr auto kPatience = 200s;

using Milliseconds = std::chrono::duration<double, std::milli>;

// Sanitizers make our own part of it slower, beside what they make of the whole machine.
#ifdef VEYRA_SANITIZED
constexpr Milliseconds kLimit = 1000ms;
#else
constexpr Milliseconds kLimit = 250ms;
#endif

template <typename Action>
void watch(NewsHold *hold, const char *what, Action action, Milliseconds wait = {})
{
    QElapsedTimer clock;
    clock.start();
    const auto start = threadTime();
    action();
    const Milliseconds used = threadTime() - start;
    const Milliseconds passed = std::chrono::nanoseconds(clock.nsecsElapsed());
    const Milliseconds time = std::min(used + wait, std::max(used, passed));
    if (time.count() <= hold->time)
        return;
    hold->time = time.count();
    hold->when = what;
}

/// How many times as long as on the machine of the limit this one takes.
double slowness()
{
    constexpr Milliseconds kUsual = 17ms;
    constexpr double kMost = 4;
    const auto start = threadTime();
    QTextDocument document;
    document.setHtml(
        u"<p><b>Dès ce soir</b>, la saison commence avec des nouveautés"_s.repeated(600));
    document.setTextWidth(920);
    document.size(); // all of it
    const Milliseconds used = threadTime() - start;
    return std::clamp(used / kUsual, 1.0, kMost);
}

} // namespace

NewsHold NewsHold::measure(NewsView *view, const QStringList &news)
{
    NewsHold hold;
    hold.slowness = ::slowness();
    const auto paint = [view] { view->grab(); };
    const auto letGo = [] { QCoreApplication::processEvents(); };
    // Lays out in one go what else is laid out bit by bit.
    const auto goToEnd = [view] { view->moveCursor(QTextCursor::End); };

    const QTextDocument *before = view->document();
    watch(
        &hold, "showing", [&] { view->showNews(news); }, NewsView::kPatience);
    for (const QDeadlineTimer end(kPatience); view->document() == before;) {
        if (end.hasExpired())
            qFatal("The news were not shown");
        QThreadPool::globalInstance()->waitForDone(
            static_cast<int>(std::chrono::milliseconds(kPatience).count()));
        watch(&hold, "arriving", letGo);
    }
    watch(&hold, "painting", paint);
    watch(&hold, "laying out", letGo);
    watch(&hold, "selecting", [view] { view->selectAll(); });
    watch(&hold, "painting the selection", paint);
    watch(&hold, "going to the end", goToEnd);
    watch(&hold, "painting the end", paint);
    watch(&hold, "copying", [view] {
        view->selectAll();
        view->copy();
        QGuiApplication::clipboard()->mimeData()->html();
    });
    for (int i = 0; i < 3; ++i) {
        watch(&hold, "going to a link", [view] {
            QKeyEvent tab(QEvent::KeyPress, Qt::Key_Tab, Qt::NoModifier);
            QCoreApplication::sendEvent(view, &tab);
        });
    }

    watch(&hold, "resizing", [view] { view->resize(view->size().transposed()); });
    watch(&hold, "painting the new size", paint);
    watch(&hold, "laying out anew", letGo);
    watch(&hold, "going to the new end", goToEnd);
    return hold;
}

bool NewsHold::isTooLong() const
{
    return time > kLimit.count() && time > kLimit.count() * std::max(slowness, ::slowness());
}

QByteArray NewsHold::description() const
{
    return QByteArray::number(time, 'f', 1) + " ms " + when;
}
