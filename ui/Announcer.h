#pragma once

#include <QObject>

class QWidget;

/// Tells people with a screen reader what happens elsewhere than where their focus is. Does nothing
/// while no assistive technology runs.
class Announcer : public QObject
{
public:
    explicit Announcer(QWidget *window);

    void announce(const QString &text);
    /// Announces each step of 10 % between start and end, which have messages of their own.
    void announceProgress(int percent);

private:
    QWidget *m_window;
    int m_tenths = 0;
};
