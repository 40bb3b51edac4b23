#pragma once

#include <QObject>
#include <QPoint>
#include <QTextCursor>
#include <QUrl>

class QFocusEvent;
class QHelpEvent;
class QKeyEvent;
class QMouseEvent;
class QTextEdit;

/// Opens the web links in a read-only text in the browser: with the mouse, which has a hand over
/// them, or with Tab, which goes from link to link, and Enter. Other links do nothing: what comes
/// over the network may not make the launcher open a file. A tool tip tells a link's host. Belongs
/// to the text's widget; GUI thread.
class NewsLinks : public QObject
{
    Q_OBJECT

public:
    explicit NewsLinks(QTextEdit *text);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void focusEvent(const QFocusEvent *event);
    void mouseEvent(const QMouseEvent *event);
    void showCursorFor(QPoint position) const;
    void showToolTip(const QHelpEvent *event) const;
    bool keyPressed(const QKeyEvent *event);
    bool goOn(bool forward);
    void leave();
    bool isOnLink() const;
    QUrl linkAt(QPoint position) const;

    QTextEdit *m_text;
    QTextCursor m_link;           // the one that Tab has come to
    bool m_cameBackwards = false; // the focus, with Shift+Tab
    QUrl m_pressed;
    QPoint m_pressedAt;
};
