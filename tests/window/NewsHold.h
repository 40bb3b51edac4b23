#pragma once

#include <QStringList>

class NewsView;

/// The longest time for which some news hold the window.
struct NewsHold
{
    /// Milliseconds of the GUI thread's own processor time: what else the machine has to do does
    /// not count.
    double time = 0;
    QByteArray when;

    /// Shows the news in a panel, paints, selects, scrolls and resizes it.
    static NewsHold measure(NewsView *view, const QStringList &news);
};
