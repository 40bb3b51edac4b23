#include "ui/FocusRing.h"

#include "config/Colors.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFocusEvent>
#include <QPainter>
#include <QPen>
#include <QProxyStyle>
#include <QTextEdit>

#include <algorithm>

namespace {

constexpr qreal kRingWidth = 2;
constexpr int kRingDistance = 4;     // from the widget's edge to the ring's outer edge
constexpr qreal kLargestRadius = 18; // goes round the play button

/// Line edits show their caret; what else takes the focus shows nothing by itself.
bool needsRing(const QWidget *widget)
{
    return qobject_cast<const QAbstractButton *>(widget) || qobject_cast<const QTextEdit *>(widget);
}

/// Lets the ring stand off, and whole: its round corners reach into the widget's rectangle, which
/// styles mask out.
class RingStyle : public QProxyStyle
{
public:
    int styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                  QStyleHintReturn *returnData) const override
    {
        if (hint == SH_FocusFrame_Mask)
            return 0;
        return QProxyStyle::styleHint(hint, option, widget, returnData);
    }

    int pixelMetric(PixelMetric metric, const QStyleOption *option,
                    const QWidget *widget) const override
    {
        if (metric == PM_FocusFrameHMargin || metric == PM_FocusFrameVMargin)
            return kRingDistance;
        return QProxyStyle::pixelMetric(metric, option, widget);
    }
};

class RingFrame : public QFocusFrame
{
public:
    explicit RingFrame(QWidget *parent)
        : QFocusFrame(parent)
    {
        auto *style = new RingStyle;
        style->setParent(this);
        setStyle(style);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(QColor(Colors::kText), kRingWidth));
        const qreal inset = kRingWidth / 2;
        const qreal radius = std::min(kLargestRadius, height() / 4.0);
        painter.drawRoundedRect(QRectF(rect()).adjusted(inset, inset, -inset, -inset), radius,
                                radius);
    }
};

} // namespace

FocusRing::FocusRing(QObject *parent)
    : QObject(parent)
{
    qApp->installEventFilter(this);
}

bool FocusRing::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::FocusIn && watched->isWidgetType()) {
        follow(static_cast<QWidget *>(watched), static_cast<const QFocusEvent *>(event)->reason());
    }
    return QObject::eventFilter(watched, event);
}

void FocusRing::follow(QWidget *widget, Qt::FocusReason reason)
{
    // A window that becomes active again shows what it showed before.
    if (reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason) {
        m_byKeyboard = reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason ||
                       reason == Qt::ShortcutFocusReason;
    }

    const bool shown = m_byKeyboard && needsRing(widget);
    if (shown && !m_frame)
        m_frame = new RingFrame(widget->parentWidget());
    if (m_frame)
        m_frame->setWidget(shown ? widget : nullptr);
}
