#pragma once

#include <QProcess>
#include <QString>

/// An X server of the test's own, with a window manager that keeps windows from coming up of their
/// own accord.
class Desktop
{
public:
    Desktop();
    ~Desktop();
    Q_DISABLE_COPY_MOVE(Desktop)

    /// False where a program that it takes is missing.
    bool isReady() const { return !m_display.isEmpty(); }
    QString display() const { return m_display; }

    /// What a property of a window says, as text; empty where it has none.
    QString property(qint64 windowId, const QString &name) const;

private:
    QProcess m_process;
    QString m_display;
};
