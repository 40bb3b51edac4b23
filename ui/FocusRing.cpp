#include "ui/FocusRing.h"

#include "config/Colors.h"

#include <QAbstractButton>
#include <QApplication>
#include <QKeyEvent>
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

bool isModifier(int key)
{
    return key == Qt::Key_Shift || key == Qt::Key_Control || key == Qt::Key_Alt ||
           key == Qt::Key_AltGr || key == Qt::Key_Meta;
}

/// Lets the ring stand off, and whole: its round corners reach into the widget's rectangle, which
/// styles mask out, and it reaches out of what holds the widget, such as a box's row of buttons.
class RingStyle : public QProxyStyle
{
public:
    int styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                  QStyleHintReturn *returnData) const override
    {
        if (hint == SH_FocusFrame_Mask)
            return 0;
        if (hint == SH_FocusFrame_AboveWidget) // makes it a child of the window
            return 1;
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
        painter.setPen(QPen(QColor(Colors::kAccent), kRingWidth));
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
    switch (event->type()) {
    case QEvent::ShortcutOverride: // all that comes of a key that is a shortcut
    case QEvent::KeyPress:
        keyPressed(static_cast<const QKeyEvent *>(event)->key());
        break;
    case QEvent::MouseButtonPress:
    case QEvent::TouchBegin:
    case QEvent::TabletPress:
        m_byKeyboard = false;
        surround(nullptr);
        break;
    case QEvent::FocusIn:
        if (watched->isWidgetType())
            surround(static_cast<QWidget *>(watched));
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void FocusRing::keyPressed(int key)
{
    if (isModifier(key)) // half of a key or of a click
        return;
    m_byKeyboard = true;
    // The focus stays where nothing else can have it, as on a box's only button.
    if (key == Qt::Key_Tab || key == Qt::Key_Backtab)
        surround(QApplication::focusWidget());
}

/// The focus's reason does not tell: a box gives its first button the focus as if Tab had been
/// pressed, and a window that becomes active again does not say who made it so.
void FocusRing::surround(QWidget *focused)
{
    const bool shown = m_byKeyboard && focused && needsRing(focused);
    if (shown && !m_frame)
        m_frame = new RingFrame(focused->window());
    if (m_frame)
        m_frame->setWidget(shown ? focused : nullptr);
}
