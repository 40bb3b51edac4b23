#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

class QProcess;

/// What differs between systems about programs and processes.
namespace Platform {

/// "powershell" as a file is named that the system starts under that name.
QString executableName(const QString &name);

/// Where the launcher keeps its settings when XDG_DATA_HOME is `dataHome`. On Windows that has no
/// say: there it is the folder of Qt's test mode.
QString settingsFolder(const QString &dataHome);

/// Puts `folder` in front of the value of PATH.
QString searchPathWith(const QString &folder);

/// False as well for a process that has ended but that nobody has collected yet.
bool isRunning(qint64 processId);

/// The processes, dead ones that nobody has collected included, that have `entry` ("NAME=value") in
/// their environment. Empty where a system does not tell.
QList<qint64> processesWithEnvironment(const QByteArray &entry);

/// Whether this process has the file open.
bool hasOpen(const QString &path);

/// While it lives, this process and those that it starts have one processor. Where a program counts
/// the machine's processors all the same, it does nothing.
class OneProcessor
{
public:
    OneProcessor();
    ~OneProcessor();
    Q_DISABLE_COPY_MOVE(OneProcessor)

private:
    QByteArray m_before;
};

/// Whether this is Windows, which unpacks with PowerShell alone and has fewer file names.
#ifdef Q_OS_WIN
inline constexpr bool kIsWindows = true;
#else
inline constexpr bool kIsWindows = false;
#endif

/// Whether this process has loaded a TLS library. Qt does so when the first connection wants one.
bool hasLoadedTls();

/// True under Wine, which now and then keeps to itself that a connection was reset.
bool isWine();

/// Starts the process; under Wine, which fails to start one in thousands, more than once if need
/// be. False when it could not be started.
bool start(QProcess &process, const QString &program, const QStringList &arguments = {});

/// Why a row about a connection that is reset is not run here; empty where it is.
QString reasonToSkipResets();

} // namespace Platform
