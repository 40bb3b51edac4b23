#include "ui/FocusRing.h"

#include "ui/Colors.h"

#include <QAbstractButton>
#include <QApplication>
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
    connect(qApp, &QApplication::focusChanged, this,
            [this](QWidget *, QWidget *now) { follow(now); });
}

void FocusRing::follow(QWidget *widget)
{
    const bool byKeyboard = widget && widget->window()->testAttribute(Qt::WA_KeyboardFocusChange);
    setWidget(byKeyboard && needsRing(widget) ? widget : nullptr);
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
