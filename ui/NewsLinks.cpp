#include "ui/NewsLinks.h"

#include <QApplication>
#include <QCursor>
#include <QDesktopServices>
#include <QHash>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>
#include <QToolTip>

#include <algorithm>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Invalid where no browser is meant for it.
QUrl webAddress(const QString &reference)
{
    const QUrl url(reference);
    const bool web = url.scheme() == "http"_L1 || url.scheme() == "https"_L1;
    // In "https://jeu.fr@autre.test/" the host is not what it looks like.
    return web && !url.host().isEmpty() && url.userInfo().isEmpty() ? url : QUrl();
}

QUrl addressUnder(const QTextCursor &link)
{
    return webAddress(link.charFormat().anchorHref());
}

/// Positions in the text. A cursor for each would look for its place in the layout.
struct Link
{
    int start = 0;
    int end = 0;
    QString reference;
};

/// All web links, in the text's order. A link may be in several pieces, one of them bold.
QList<Link> linksIn(const QTextDocument *document)
{
    QList<Link> links;
    QHash<QString, bool> isWeb; // looking at an address takes its time
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
        for (auto piece = block.begin(); !piece.atEnd(); ++piece) {
            const QTextFragment text = piece.fragment();
            const QString reference = text.charFormat().anchorHref();
            if (reference.isEmpty())
                continue;
            auto known = isWeb.find(reference);
            if (known == isWeb.end())
                known = isWeb.insert(reference, webAddress(reference).isValid());
            if (!*known)
                continue;
            const int end = text.position() + text.length();
            const bool goesOn = !links.isEmpty() && links.last().end == text.position() &&
                                links.last().reference == reference;
            if (goesOn)
                links.last().end = end;
            else
                links.append({text.position(), end, reference});
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
    // The text may move below a mouse that rests.
    connect(text->verticalScrollBar(), &QScrollBar::valueChanged, this, [this] {
        const QWidget *viewport = m_text->viewport();
        if (viewport->underMouse() && QGuiApplication::mouseButtons() == Qt::NoButton)
            showCursorFor(viewport->mapFromGlobal(QCursor::pos()));
    });
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
    case QEvent::ToolTip:
        if (watched == m_text->viewport()) {
            showToolTip(static_cast<const QHelpEvent *>(event));
            return true;
        }
        break;
    case QEvent::KeyPress:
        if (watched == m_text && keyPressed(static_cast<const QKeyEvent *>(event)))
            return true;
        break;
    case QEvent::FocusIn:
    case QEvent::FocusOut:
        // It may lose the focus by its own end, when it is a plain widget already.
        if (watched == m_text && qobject_cast<QTextEdit *>(watched))
            focusEvent(static_cast<const QFocusEvent *>(event));
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void NewsLinks::focusEvent(const QFocusEvent *event)
{
    // Whoever comes back from the browser finds the link that was opened.
    const Qt::FocusReason reason = event->reason();
    if (reason == Qt::ActiveWindowFocusReason || reason == Qt::PopupFocusReason)
        return;
    if (event->gotFocus())
        m_cameBackwards = reason == Qt::BacktabFocusReason;
    else
        leave();
}

void NewsLinks::mouseEvent(const QMouseEvent *event)
{
    const QPoint position = event->position().toPoint();
    if (event->type() == QEvent::MouseMove) {
        if (event->buttons() == Qt::NoButton)
            showCursorFor(position);
        else
            m_text->viewport()->setCursor(Qt::IBeamCursor);
        return;
    }
    if (event->type() == QEvent::MouseButtonPress) {
        m_cameBackwards = false;
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

void NewsLinks::showCursorFor(QPoint position) const
{
    const bool link = linkAt(position).isValid();
    m_text->viewport()->setCursor(link ? Qt::PointingHandCursor : Qt::IBeamCursor);
}

/// Where a link leads, whatever its text says. Foreign letters that look like others are spelled
/// out ("xn--").
void NewsLinks::showToolTip(const QHelpEvent *event) const
{
    const QUrl link = linkAt(event->pos());
    const QString host = link.host(QUrl::FullyEncoded);
    QToolTip::showText(event->globalPos(), host, m_text->viewport());
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
    if (!isOnLink() && forward == m_cameBackwards)
        return false; // back to where the focus has come from
    const QList<Link> links = linksIn(m_text->document());
    qsizetype next = forward ? 0 : links.size() - 1;
    if (isOnLink()) {
        const auto isShown = [this](const Link &link) { return link.end == m_link.position(); };
        const auto shown = std::find_if(links.begin(), links.end(), isShown);
        if (shown == links.end())
            return false;
        next = shown - links.begin() + (forward ? 1 : -1);
    }
    if (next < 0 || next >= links.size())
        return false;
    m_link = QTextCursor(m_text->document());
    m_link.setPosition(links[next].start);
    m_link.setPosition(links[next].end, QTextCursor::KeepAnchor);
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
