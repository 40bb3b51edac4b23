#pragma once

#include <QStringList>

class NewsView;

/// Milliseconds for which the window may stand still; a sanitizer makes everything slower.
#ifdef VEYRA_SANITIZED
inline constexpr double kNewsHoldLimit = 1000;
#else
inline constexpr double kNewsHoldLimit = 250;
#endif

/// The longest time for which some news hold the window.
struct NewsHold
{
    /// Milliseconds of the GUI thread's own processor time, since what else the machine has to do
    /// does not count, and of its waiting for the parser.
    double time = 0;
    QByteArray when;

    /// Shows the news in a panel, paints, selects, goes to their end and turns the panel round.
    static NewsHold measure(NewsView *view, const QStringList &news);

    /// How many times as long as on the machine of the limit this one takes at the moment, which it
    /// may share with others; 1 at least.
    static double slowness();
};
