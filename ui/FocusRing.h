#pragma once

#include <QFocusFrame>
#include <QObject>
#include <QPointer>

/// Shows people who use the keyboard where they are: a ring around the widget that has the focus
/// when the keyboard has moved it there. The style sheets draw no focus of their own.
/// One for all of the application's windows; GUI thread.
class FocusRing : public QObject
{
    Q_OBJECT

public:
    explicit FocusRing(QObject *parent);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void follow(QWidget *widget, Qt::FocusReason reason);

    // A child of the framed widget's parent, as every focus frame: it goes with a dialog that ends.
    QPointer<QFocusFrame> m_frame;
    bool m_byKeyboard = false;
};
