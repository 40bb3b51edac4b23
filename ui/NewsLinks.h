#pragma once

#include <QObject>
#include <QPoint>
#include <QUrl>

class QTextEdit;

/// Opens the web links in a text in the browser when they are clicked, and shows a hand over them.
/// Other links do nothing: what comes over the network may not make the launcher open a file.
/// Belongs to the text's widget; GUI thread.
class NewsLinks : public QObject
{
    Q_OBJECT

public:
    explicit NewsLinks(QTextEdit *text);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QUrl linkAt(QPoint position) const;

    QTextEdit *m_text;
    QUrl m_pressed;
    QPoint m_pressedAt;
};
