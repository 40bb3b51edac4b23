#pragma once

#include <QStringList>

class NewsView;

/// The longest time for which some news hold the window.
struct NewsHold
{
    /// Milliseconds of the GUI thread's own processor time, since what else the machine has to do
    /// does not count, and of its waiting for the parser.
    double time = 0;
    QByteArray when;
    /// How many times as long as on the machine of the limit this one took just before.
    double slowness = 1;

    /// Shows the news in a panel, paints, selects, goes to their end, copies, goes from link to
    /// link and turns the panel round.
    static NewsHold measure(NewsView *view, const QStringList &news);

    /// For longer than the window may stand still, on a machine as fast as this one is at the
    /// moment: it may share its processor with others, and sanitizers make all slower.
    bool isTooLong() const;

    /// Milliseconds and what was done meanwhile.
    QByteArray description() const;
};
