#pragma once

#include <QFocusFrame>

/// Shows people who use the keyboard where they are: a ring around the widget that has the focus
/// when the keyboard has moved it there. The style sheets draw no focus of their own.
/// One for all of the application's windows; GUI thread.
class FocusRing : public QFocusFrame
{
    Q_OBJECT

public:
    explicit FocusRing(QWidget *parent);

    bool eventFilter(QObject *watched, QEvent *event) override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void follow(QWidget *widget, Qt::FocusReason reason);

    bool m_byKeyboard = false;
};
