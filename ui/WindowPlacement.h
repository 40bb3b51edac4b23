#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

class QWidget;

/// Where a window appears on a screen that has hardly room for it.
namespace WindowPlacement {

/// The place for the outer corner of a window of this size, frame included: in the middle, or with
/// the title bar and the left edge in reach where that is too large.
QPoint cornerFor(QSize windowSize, const QRect &available);

/// Moves the window there, on the screen where the mouse is, before it is shown. A screen with
/// plenty of room is left to the system, which knows better where people look.
void keepInReach(QWidget *window);

} // namespace WindowPlacement
