#include "ui/WindowPlacement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QStyle>
#include <QWidget>
#include <QWindow>

#include <algorithm>

namespace {

// The share of the screen up to which Qt has windows appear in the middle.
constexpr double kComfortableShare = 8.0 / 9;

QSize sizeWithFrame(QWidget *window)
{
    window->winId(); // Windows knows the frame as soon as there is a window
    QMargins frame = window->windowHandle()->frameMargins();
    if (frame.isNull())
        frame.setTop(window->style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, window));
    return window->size().grownBy(frame);
}

/// Where Qt is about to show it. The window itself names the first screen until it is shown.
const QScreen *screenFor(const QWidget *window)
{
    const QScreen *underMouse = QGuiApplication::screenAt(QCursor::pos());
    return underMouse ? underMouse : window->screen();
}

} // namespace

QPoint WindowPlacement::cornerFor(QSize windowSize, const QRect &available)
{
    const QSize spare = available.size() - windowSize;
    return available.topLeft() +
           QPoint(std::max(0, spare.width() / 2), std::max(0, spare.height() / 2));
}

void WindowPlacement::keepInReach(QWidget *window)
{
    const QRect available = screenFor(window)->availableGeometry();
    const QSize size = sizeWithFrame(window);
    if (size.width() < available.width() * kComfortableShare &&
        size.height() < available.height() * kComfortableShare) {
        return;
    }
    window->move(cornerFor(size, available));
}
