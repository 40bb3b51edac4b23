#pragma once

#include <QJsonObject>
#include <QObject>
#include <QString>

class QWidget;

/// Watches the program that it is linked into, from its application object on: sees the first
/// frame, collects figures and prints them as one line of JSON. Changes nothing in the program's
/// course.
class Observer : public QObject
{
public:
    /// Kilobytes, as the kernel counts them.
    struct Memory
    {
        qint64 resident = 0;
        qint64 peak = 0;
    };

    explicit Observer(QObject *parent);

    static Memory memory();
    /// Lets the peak start anew from what is resident now.
    static void resetPeak();

    void note(const QString &figure, double value) { m_figures.insert(figure, value); }
    /// Notes what is resident now, and the peak so far.
    void noteMemory(const QString &phase);
    void print() const;
    /// Prints and ends the process on the spot: what it would still do is not measured.
    [[noreturn]] void end(int exitCode = 0) const;

    /// What the run was started for: "ready", "idle", "downloaded", ...
    static QString goal();

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QJsonObject m_figures;
};

/// Each program says here what happens once its window's first frame is painted.
void onFirstFrame(Observer &observer, QWidget &window);
