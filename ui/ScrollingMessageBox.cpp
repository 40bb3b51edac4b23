#include "ui/ScrollingMessageBox.h"

#include <QAbstractButton>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QScreen>
#include <QScrollBar>
#include <QTextDocument>
#include <QTextEdit>

#include <algorithm>
#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qreal kShareOfScreen = 0.8;
constexpr int kComfortableLine = 80;   // characters of average width
constexpr qsizetype kLongText = 2'000; // characters; some twenty lines
constexpr int kTextMargin = 8;

/// Qt's name for the label that shows a box's text.
QLabel *textLabel(const QMessageBox *box)
{
    return box->findChild<QLabel *>(u"qt_msgbox_label"_s);
}

} // namespace

ScrollingMessageBox::ScrollingMessageBox(Icon icon, const QString &title, const QString &text,
                                         StandardButtons buttons, QWidget *parent)
    : QMessageBox(icon, title, text, buttons, parent)
{
    setTextFormat(Qt::PlainText);
}

bool ScrollingMessageBox::event(QEvent *event)
{
    if (event->type() == QEvent::KeyPress && readsOn(static_cast<const QKeyEvent *>(event)))
        return true;
    if (event->type() == QEvent::LayoutRequest && m_view) {
        setFixedSize(layout()->totalMinimumSize()); // Qt's own rule is made for its label
        return true;
    }

    const bool showing = event->type() == QEvent::Show && isVisible();
    if (showing && isLong() && !m_view)
        makeTextScroll();
    const bool handled = QMessageBox::event(event);
    if (!showing)
        return handled;

    // Qt has given the box its size by now.
    if (!m_view && !fits())
        makeTextScroll();
    if (m_view) {
        setFixedSize(layout()->totalMinimumSize());
        adjustPosition(parentWidget());
        setAttribute(Qt::WA_Moved, false); // that was no move of the user's
    }
    return handled;
}

bool ScrollingMessageBox::eventFilter(QObject *watched, QEvent *event)
{
    // A button that has the focus would take Enter before the box hears of it.
    if (event->type() == QEvent::KeyPress && readsOn(static_cast<const QKeyEvent *>(event)))
        return true;
    return QMessageBox::eventFilter(watched, event);
}

QSize ScrollingMessageBox::largestSize() const
{
    // The system's frame is known of a window that is on the screen already.
    const QWidget *framed = parentWidget() ? parentWidget()->window() : this;
    return screen()->availableSize() * kShareOfScreen - (framed->frameSize() - framed->size());
}

/// True for a text that Qt's label would lay out for nothing, which takes it a second.
bool ScrollingMessageBox::isLong() const
{
    return text().size() > kLongText;
}

bool ScrollingMessageBox::fits() const
{
    const QLabel *label = textLabel(this);
    if (!label)
        return true;
    const QSize largest = largestSize();
    const bool longWordIsCut = label->minimumSizeHint().width() > label->width();
    return width() <= largest.width() && height() <= largest.height() && !longWordIsCut;
}

void ScrollingMessageBox::makeTextScroll()
{
    QLabel *label = textLabel(this);
    m_view = new QTextEdit;
    m_view->setReadOnly(true);
    m_view->setTabChangesFocus(true);
    m_view->setFrameShape(QFrame::NoFrame);
    m_view->document()->setDocumentMargin(kTextMargin);
    m_view->setPlainText(text());
    delete layout()->replaceWidget(label, m_view); // the label's layout item
    label->hide();
    m_view->show();

    // What lies around the text is what the box is larger than it.
    const QSize largest = largestSize();
    m_view->setMinimumSize(largest);
    const QSize room = largest - (layout()->totalMinimumSize() - largest);

    // Room for the scroll bar is kept free, so that its appearing breaks no line anew.
    const int bar = m_view->verticalScrollBar()->sizeHint().width();
    const int comfortable = kComfortableLine * m_view->fontMetrics().averageCharWidth();
    QTextDocument *document = m_view->document();
    document->setTextWidth(std::min(room.width() - bar, comfortable));
    // No wider than its lines, but wide enough for the title.
    const qreal width = std::max(document->idealWidth(), document->textWidth() / 2);
    m_view->setMinimumSize(int(std::ceil(width)) + 1 + bar,
                           std::min(room.height(), int(std::ceil(document->size().height()))));

    connect(m_view->verticalScrollBar(), &QScrollBar::valueChanged, this, [this](int value) {
        m_endSeen = m_endSeen || value == m_view->verticalScrollBar()->maximum();
    });
    for (QAbstractButton *button : buttons())
        button->installEventFilter(this);
    m_view->setFocus();
}

/// True where Enter may not answer yet. A key that is held down turns no pages: it may have been
/// pressed before the box appeared.
bool ScrollingMessageBox::readsOn(const QKeyEvent *event)
{
    if (!m_view || (event->key() != Qt::Key_Return && event->key() != Qt::Key_Enter))
        return false;
    QScrollBar *bar = m_view->verticalScrollBar();
    const bool endHidden = bar->maximum() > 0 && !m_endSeen;
    if (endHidden && !event->isAutoRepeat()) {
        // The line that is cut at the bottom comes again, whole.
        const int page = bar->pageStep();
        bar->setValue(bar->value() +
                      std::max(page - m_view->fontMetrics().lineSpacing(), page / 2));
    }
    return endHidden || event->isAutoRepeat();
}
