#pragma once

#include <QProgressBar>
#include <QStyleOptionProgressBar>

/// A bar that begins with a round end as high as itself. Anything narrower has no room for the
/// style sheet's radius and would be a stump with corners.
class RoundedProgressBar : public QProgressBar
{
public:
    using QProgressBar::QProgressBar;

protected:
    void initStyleOption(QStyleOptionProgressBar *option) const override
    {
        QProgressBar::initStyleOption(option);
        const bool busy = option->maximum <= option->minimum;
        const int done = option->progress - option->minimum;
        if (busy || done <= 0 || done * width() >= height() * (option->maximum - option->minimum))
            return;
        // In pixels, as long as it is high.
        option->minimum = 0;
        option->maximum = width();
        option->progress = height();
    }
};
