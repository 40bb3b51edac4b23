#include "ui/NewsLinks.h"

#include <QApplication>
#include <QDesktopServices>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>

#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Invalid where no browser is meant for it.
QUrl webAddress(const QString &reference)
{
    const QUrl url(reference);
    const bool web = url.scheme() == "http"_L1 || url.scheme() == "https"_L1;
    return web && !url.host().isEmpty() ? url : QUrl();
}

QUrl addressUnder(const QTextCursor &link)
{
    return webAddress(link.charFormat().anchorHref());
}

/// All web links, in the text's order. A link may be in several pieces, one of them bold.
QList<QTextCursor> linksIn(QTextDocument *document)
{
    QList<QTextCursor> links;
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
        for (auto piece = block.begin(); !piece.atEnd(); ++piece) {
            const QTextFragment text = piece.fragment();
            const QUrl url = webAddress(text.charFormat().anchorHref());
            if (!url.isValid())
                continue;
            const bool goesOn = !links.isEmpty() && links.last().position() == text.position() &&
                                addressUnder(links.last()) == url;
            if (!goesOn) {
                links.append(QTextCursor(document));
                links.last().setPosition(text.position());
            }
            links.last().setPosition(text.position() + text.length(), QTextCursor::KeepAnchor);
        }
    }
    return links;
}

} // namespace

NewsLinks::NewsLinks(QTextEdit *text)
    : QObject(text)
    , m_text(text)
{
    text->installEventFilter(this);
    text->viewport()->setMouseTracking(true);
    text->viewport()->installEventFilter(this);
}

/// Takes no event of the mouse away: a text with links in it can be selected as any other.
bool NewsLinks::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseMove:
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
        if (watched == m_text->viewport())
            mouseEvent(static_cast<const QMouseEvent *>(event));
        break;
    case QEvent::KeyPress:
        if (watched == m_text && keyPressed(static_cast<const QKeyEvent *>(event)))
            return true;
        break;
    case QEvent::FocusOut: {
        // Whoever comes back from the browser finds the link that was opened.
        const Qt::FocusReason reason = static_cast<const QFocusEvent *>(event)->reason();
        if (reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason)
            leave();
        break;
    }
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void NewsLinks::mouseEvent(const QMouseEvent *event)
{
    const QPoint position = event->position().toPoint();
    if (event->type() == QEvent::MouseMove) {
        const bool link = event->buttons() == Qt::NoButton && linkAt(position).isValid();
        m_text->viewport()->setCursor(link ? Qt::PointingHandCursor : Qt::IBeamCursor);
        return;
    }
    if (event->type() == QEvent::MouseButtonPress) {
        m_pressed = event->button() == Qt::LeftButton ? linkAt(position) : QUrl();
        m_pressedAt = position;
        return;
    }
    // The system may let other events in while it opens the address.
    const QUrl pressed = std::exchange(m_pressed, {});
    const bool dragged =
        (position - m_pressedAt).manhattanLength() >= QApplication::startDragDistance();
    if (event->button() == Qt::LeftButton && !dragged && pressed.isValid() &&
        linkAt(position) == pressed)
        QDesktopServices::openUrl(pressed);
}

/// True for a key that is not the text's any more.
bool NewsLinks::keyPressed(const QKeyEvent *event)
{
    if (event->modifiers() & (Qt::ControlModifier | Qt::AltModifier))
        return false;
    switch (event->key()) {
    case Qt::Key_Tab:
        return goOn(true);
    case Qt::Key_Backtab:
        return goOn(false);
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (isOnLink() && !event->isAutoRepeat())
            QDesktopServices::openUrl(addressUnder(m_link));
        return isOnLink();
    default:
        return false;
    }
}

/// Selects the next link, or the one before. False where there is none: the focus goes on then.
bool NewsLinks::goOn(bool forward)
{
    const QList<QTextCursor> links = linksIn(m_text->document());
    qsizetype next = forward ? 0 : links.size() - 1;
    if (isOnLink())
        next = links.indexOf(m_link) + (forward ? 1 : -1);
    else if (!forward)
        return false; // from the text's beginning, where Tab has come in
    if (next < 0 || next >= links.size())
        return false;
    m_link = links[next];
    m_text->setTextCursor(m_link);
    m_text->ensureCursorVisible();
    return true;
}

void NewsLinks::leave()
{
    if (isOnLink()) {
        QTextCursor cursor = m_link;
        cursor.clearSelection();
        m_text->setTextCursor(cursor);
    }
    m_link = QTextCursor();
}

/// Not any more where something else was selected since, or other news have come.
bool NewsLinks::isOnLink() const
{
    const QTextCursor cursor = m_text->textCursor();
    return !m_link.isNull() && cursor == m_link && cursor.anchor() == m_link.anchor() &&
           cursor.hasSelection();
}

QUrl NewsLinks::linkAt(QPoint position) const
{
    return webAddress(m_text->anchorAt(position));
}
