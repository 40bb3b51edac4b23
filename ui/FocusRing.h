#pragma once

#include <QFocusFrame>
#include <QObject>
#include <QPointer>

/// Shows people who use the keyboard where they are: a ring around the widget that gets the focus
/// while the keyboard is what was used last. The style sheets draw no focus of their own.
/// One for all of the application's windows; GUI thread.
class FocusRing : public QObject
{
    Q_OBJECT

public:
    explicit FocusRing(QObject *parent);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void keyPressed(int key);
    void surround(QWidget *focused);

    // A child of the framed widget's window: it goes with a dialog that ends.
    QPointer<QFocusFrame> m_frame;
    bool m_byKeyboard = false; // a key was pressed after the last click
};
