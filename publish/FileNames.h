#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/// The names that files of the client may have on players' machines: relative to the game folder,
/// with "/" between folders.
namespace FileNames {

/// Why Windows, or the launcher, cannot have a file of this name, as the end of a sentence; empty
/// where they can.
QString problem(const QString &name);

/// Two names are the same file on Windows or on a Mac when these are equal.
QString folded(const QString &name);

struct Clash
{
    QString first;
    QString second;
    bool isFolder; ///< where `second` has a folder, `first` is a file; else they are the same file
};
/// Names that a player's machine cannot have all, at most one clash for each. Those of folders end
/// with a "/".
QList<Clash> clashes(const QStringList &names);

} // namespace FileNames
