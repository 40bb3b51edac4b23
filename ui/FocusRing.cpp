#include "ui/FocusRing.h"

#include "ui/Colors.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFocusEvent>
#include <QPainter>
#include <QPen>
#include <QTextEdit>

#include <algorithm>

namespace {

constexpr qreal kRingWidth = 2;
constexpr qreal kLargestRadius = 17; // goes round the play button

/// Line edits show their caret; what else takes the focus shows nothing by itself.
bool needsRing(const QWidget *widget)
{
    return qobject_cast<const QAbstractButton *>(widget)
        || qobject_cast<const QTextEdit *>(widget);
}

} // namespace

FocusRing::FocusRing(QWidget *parent)
    : QFocusFrame(parent)
{
    hide(); // or the window would show it with its other children
    qApp->installEventFilter(this);
}

bool FocusRing::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::FocusIn && watched->isWidgetType()) {
        follow(static_cast<QWidget *>(watched),
               static_cast<const QFocusEvent *>(event)->reason());
    }
    return QFocusFrame::eventFilter(watched, event);
}

void FocusRing::follow(QWidget *widget, Qt::FocusReason reason)
{
    // A window that becomes active again shows what it showed before.
    if (reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason) {
        m_byKeyboard = reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason
            || reason == Qt::ShortcutFocusReason;
    }
    setWidget(m_byKeyboard && needsRing(widget) ? widget : nullptr);
}

void FocusRing::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(Colors::kText), kRingWidth));
    const qreal inset = kRingWidth / 2;
    const qreal radius = std::min(kLargestRadius, height() / 4.0);
    painter.drawRoundedRect(QRectF(rect()).adjusted(inset, inset, -inset, -inset), radius, radius);
}
