#pragma once

#include "publish/Fingerprints.h"

#include <QList>
#include <QString>
#include <QStringList>

struct ClientFile
{
    QString name; ///< relative to the game folder, with "/", in normal form C
    QString path; ///< where it lies now
    FileStamp stamp;
};

/// A game client on the operator's disk, looked over: whatever could fail at a player's has been
/// refused.
struct ClientFolder
{
    /// Of a file, in bytes.
    static constexpr qint64 kLargestForPowerShell = qint64{2} * 1024 * 1024 * 1024;

    QList<ClientFile> files; ///< sorted by the bytes of their names
    QStringList warnings;
    qsizetype excluded = 0; ///< files and whole folders

    /// Leaves out the files and whole folders that one of `exclusions` matches: a pattern with a
    /// "/" by their whole name, others by the last part of it. Throws a Problem for what is none.
    static ClientFolder scan(const QString &folder, const QStringList &exclusions);

    qint64 totalSize() const;
    /// The files among `names` by which the launcher tells that a client is installed, in the order
    /// in which they end an archive: that of the client which "JOUER" starts is the first of them,
    /// so that an unpacking that is cut off in between leaves it whole.
    static QStringList markers(const QStringList &names);
    /// Whether it is what "JOUER" starts.
    static bool isProgram(const QString &name);

private:
    void add(const QString &name, const QString &path);
};
