#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/// A program at a certain place, where the launcher or the one under test looks for it: the game,
/// the updater program. It records each start and ends at once. Removed with its records at the end
/// of the test. FakePrograms is for programs on the search path that have to behave in some way.
class StandIn
{
public:
    struct Start
    {
        QStringList arguments;
        QString workingDirectory;
        qint64 processId = 0;
    };

    /// Installs it at `path`; makes the folder.
    explicit StandIn(const QString &path);
    ~StandIn();
    Q_DISABLE_COPY_MOVE(StandIn)

    /// From now on a started one runs until it is killed.
    void hang();
    QList<Start> starts() const { return startsOf(m_path); }

    /// Installs one that stays, for an archive say.
    static void install(const QString &path);
    /// A file that is there but cannot be started.
    static void installUnstartable(const QString &path);
    /// The starts so far of the one at `path`, the earliest first.
    static QList<Start> startsOf(const QString &path);

private:
    QString m_path;
};
