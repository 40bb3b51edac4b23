#pragma once

#include <QWidget>

/// Tells people with a screen reader what happens elsewhere than where their focus is. Shows
/// nothing; to assistive technology it is a notification whose name is what was announced last.
class Announcer : public QWidget
{
public:
    explicit Announcer(QWidget *window);

    void announce(const QString &text);
    /// Announces each step of 10 % between start and end, which have messages of their own.
    void announceProgress(int percent);

private:
    int m_tenths = 0;
};
