#include "tests/window/NewsHold.h"

#include "ui/NewsView.h"
#include "ui/ThreadTime.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QPixmap>
#include <QScrollBar>
#include <QTextDocument>

#include <chrono>

using namespace std::chrono_literals;

namespace {

/// Longer than the parser takes for anything, under a sanitizer too.
constexpr auto kPatience = 120s;

template <typename Action> void watch(NewsHold *hold, const char *what, Action action)
{
    const auto start = threadTime();
    action();
    const double time = std::chrono::duration<double, std::milli>(threadTime() - start).count();
    if (time > hold->time)
        *hold = {time, what};
}

/// Lets the layout go its steps: it takes one every ten milliseconds.
void watchLayout(NewsHold *hold, const char *what, const QTextDocument *document)
{
    constexpr int kLaidOutAtOnce = 1000; // characters
    const auto letGo = [] { QCoreApplication::processEvents(); };
    watch(hold, what, letGo);
    if (document->characterCount() <= kLaidOutAtOnce)
        return;
    qreal height = -1;
    for (int idleRounds = 0; idleRounds < 5;) {
        const QDeadlineTimer round(5ms);
        while (!round.hasExpired())
            watch(hold, what, letGo);
        const qreal reached = document->size().height();
        idleRounds = reached == height ? idleRounds + 1 : 0;
        height = reached;
    }
}

} // namespace

NewsHold NewsHold::measure(NewsView *view, const QStringList &news)
{
    NewsHold hold;
    const auto paint = [view] { view->grab(); };
    const QTextDocument *before = view->document();
    watch(&hold, "showing", [&] { view->showNews(news); });
    for (const QDeadlineTimer end(kPatience); view->document() == before;) {
        if (end.hasExpired())
            qFatal("The news were not shown");
        watch(&hold, "arriving", [] { QCoreApplication::processEvents(); });
    }
    watch(&hold, "painting", paint);
    watch(&hold, "selecting", [view] { view->selectAll(); });
    watch(&hold, "painting the selection", paint);
    watchLayout(&hold, "laying out", view->document());
    watch(&hold, "scrolling",
          [view] { view->verticalScrollBar()->setValue(view->verticalScrollBar()->maximum()); });
    watch(&hold, "painting the end", paint);

    const QSize size = view->size();
    for (const QSize other : {size / 2, size}) {
        watch(&hold, "resizing", [view, other] { view->resize(other); });
        watch(&hold, "painting the new size", paint);
        watchLayout(&hold, "laying out anew", view->document());
    }
    return hold;
}
