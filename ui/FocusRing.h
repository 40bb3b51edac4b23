#pragma once

#include <QFocusFrame>

/// Shows people who use the keyboard where they are: a ring around the widget that has the focus,
/// once they have moved it with the keyboard. The style sheets draw no focus of their own.
/// One for all of the application's windows; GUI thread.
class FocusRing : public QFocusFrame
{
    Q_OBJECT

public:
    explicit FocusRing(QWidget *parent);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void follow(QWidget *widget);
};
