#pragma once

#include <QLocalServer>
#include <QLockFile>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <chrono>

class QDeadlineTimer;

/// How long a closed launcher may live on, for a verification that is stuck in the system. A later
/// start is more patient than that.
inline constexpr std::chrono::milliseconds kLongestEnd{5000};

/// Keeps a launcher from running twice. The same launcher is the one in the same folder with the
/// same settings. The first holds a lock in the settings folder and listens on a local socket; a
/// later one has it bring its window to the front. Made by main(), outlives the window; GUI thread.
///
/// Only an answer keeps a launcher from starting. Where the lock cannot be made, or nobody answers
/// in time, it runs: a player who started it shall see a window.
class SingleInstance
{
public:
    SingleInstance(const QString &settingsFolder, const QString &installationFolder);

    /// True when another launcher has shown its window, so that this one is to leave. Waits some
    /// seconds for one that does not answer, or that is just ending.
    bool isShownByAnother();

    /// Names the window that is brought to the front for others.
    void setWindow(QWidget *window) { m_window = window; }

private:
    void listen();
    void answerOthers();
    bool askFirst(const QDeadlineTimer &deadline);
    bool bringToFront();

    QString m_name; // the same for the same launcher
    QLockFile m_lock;
    QLocalServer m_server;
    QPointer<QWidget> m_window;
};
