#pragma once

#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTcpServer>
#include <QTemporaryDir>

#include <chrono>
#include <functional>
#include <memory>

class Desktop;
class HttpServer;
class QTcpSocket;

/// The launcher as a real process: the real main() with a driver inside (LauncherDriver) that tells
/// what the window shows and uses it like a user. Each lies in a fresh folder with a configuration
/// and a game folder of its own, as on a machine that has never seen a launcher.
class DrivenLauncher : public QObject
{
    Q_OBJECT

public:
    /// Its requests go to `server`.
    explicit DrivenLauncher(const HttpServer &server);
    ~DrivenLauncher() override;
    /// Another process of the same program: in the same folder, with the same environment so far.
    DrivenLauncher again() const { return DrivenLauncher(m_folder, m_environment); }

    QString folder() const { return m_folder->path(); }
    QString executable() const;
    QString clientFolder() const;
    QString configFile() const;
    QProcessEnvironment &environment() { return m_environment; }
    /// Its windows are real ones then. Before it is started.
    void showOn(const Desktop &desktop);

    /// False when it does not come up.
    bool start();
    /// Starts it and waits for nothing: it may be meant to leave at once.
    void launch();
    /// Ends it as a crash does.
    void kill();
    qint64 processId() const { return m_process.processId(); }

    /// Has a command of LauncherDriver executed; the answer is empty when none came.
    QJsonObject ask(const QString &command, const QJsonObject &details = {});
    /// What the window shows; see LauncherDriver.
    QJsonObject state() { return ask(QStringLiteral("state")); }
    bool waitForState(const std::function<bool(const QJsonObject &)> &condition,
                      std::chrono::milliseconds timeout = std::chrono::seconds(60));
    /// Waits until the progress label shows this.
    bool waitForLabel(const QString &text);

    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    bool waitForEnd(std::chrono::milliseconds timeout);
    /// What was wrong with its end; empty when it ended well: with this exit code, with nothing but
    /// known remarks on the standard error, and with no process of its own left behind.
    QString faultsOfItsEnd(int exitCode = 0);

private:
    DrivenLauncher(const std::shared_ptr<QTemporaryDir> &folder,
                   const QProcessEnvironment &environment);
    void listen();

    std::shared_ptr<QTemporaryDir> m_folder;
    QTcpServer m_control;
    QPointer<QTcpSocket> m_connection;
    QProcess m_process;
    QProcessEnvironment m_environment;
    QByteArray m_mark;
};
