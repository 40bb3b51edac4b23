#pragma once

#include <QMessageBox>

class QKeyEvent;
class QTextEdit;

/// A message box whose buttons stay on the screen: where its text would need more than a fair share
/// of that, the text scrolls. Enter then reads on, page by page, and answers only at the text's
/// end. Plain text always: it may hold what a server or an unpacker said, and a picture in it would
/// be read from the disk or from another computer's. Text and buttons are those of the constructor.
class ScrollingMessageBox : public QMessageBox
{
public:
    ScrollingMessageBox(Icon icon, const QString &title, const QString &text,
                        StandardButtons buttons, QWidget *parent);

    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QSize largestSize() const;
    bool isLong() const;
    bool fits() const;
    void makeTextScroll();
    bool readsOn(const QKeyEvent *event);

    QTextEdit *m_view = nullptr; // in the place of Qt's label, once that is too large
    bool m_endSeen = false;
};
