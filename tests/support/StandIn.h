#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

/// A program at a certain place, where the launcher or the one under test looks for it: the game,
/// the updater program, an unpacker. It records each start and ends at once, unless it is told to
/// behave otherwise. Removed with its records at the end of the test. SearchPath has such programs
/// on the search path.
class StandIn
{
public:
    struct Behaviour
    {
        QByteArray standardError = {};
        QStringList created = {}; ///< files it makes, with their folders
        int exitCode = 0;
        bool crashes = false;
        bool hangs = false; ///< until it is killed, or the stand-in removed
    };
    struct Start
    {
        QStringList arguments;
        QString workingDirectory;
        qint64 processId = 0;
        QString commandLine; ///< what Windows handed over, to the letter; empty elsewhere
    };

    /// Installs it at `path`; makes the folder.
    explicit StandIn(const QString &path);
    /// Installs `program`, another one than usual that keeps the same records.
    StandIn(const QString &path, const QString &program);
    ~StandIn();
    Q_DISABLE_COPY_MOVE(StandIn)

    /// What it does from the next start on.
    void behave(const Behaviour &behaviour);
    /// The starts so far, the earliest first.
    QList<Start> starts() const { return startsOf(m_path); }

    /// Installs one that stays, for an archive say.
    static void install(const QString &path);
    /// A file that is there but cannot be started.
    static void installUnstartable(const QString &path);
    /// The starts so far of the one at `path`.
    static QList<Start> startsOf(const QString &path);

private:
    QString m_path;
};
