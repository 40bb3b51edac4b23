#include "ui/NewsLinks.h"

#include <QApplication>
#include <QDesktopServices>
#include <QMouseEvent>
#include <QTextEdit>

using namespace Qt::Literals::StringLiterals;

NewsLinks::NewsLinks(QTextEdit *text)
    : QObject(text)
    , m_text(text)
{
    text->viewport()->setMouseTracking(true);
    text->viewport()->installEventFilter(this);
}

/// Takes no event away: a text with links in it can be selected as any other.
bool NewsLinks::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseMove: {
        const auto *mouse = static_cast<const QMouseEvent *>(event);
        const bool link = mouse->buttons() == Qt::NoButton && linkAt(mouse->pos()).isValid();
        m_text->viewport()->setCursor(link ? Qt::PointingHandCursor : Qt::IBeamCursor);
        break;
    }
    case QEvent::MouseButtonPress: {
        const auto *mouse = static_cast<const QMouseEvent *>(event);
        m_pressed = mouse->button() == Qt::LeftButton ? linkAt(mouse->pos()) : QUrl();
        m_pressedAt = mouse->pos();
        break;
    }
    case QEvent::MouseButtonRelease: {
        const auto *mouse = static_cast<const QMouseEvent *>(event);
        const bool dragged =
            (mouse->pos() - m_pressedAt).manhattanLength() >= QApplication::startDragDistance();
        if (mouse->button() == Qt::LeftButton && !dragged && m_pressed.isValid() &&
            linkAt(mouse->pos()) == m_pressed) {
            QDesktopServices::openUrl(m_pressed);
        }
        m_pressed.clear();
        break;
    }
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

/// Invalid where there is no link, or one that no browser is meant for.
QUrl NewsLinks::linkAt(QPoint position) const
{
    const QUrl url(m_text->anchorAt(position));
    const bool web = url.scheme() == "http"_L1 || url.scheme() == "https"_L1;
    return web && !url.host().isEmpty() ? url : QUrl();
}
