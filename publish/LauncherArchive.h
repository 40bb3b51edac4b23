#pragma once

#include "updater/UpdateArchive.h"

#include <QString>
#include <QStringList>

/// What an archive of a launcher holds, read as players' updater programs read it.
struct LauncherArchive
{
    QString version;
    bool hasProgram = false;
    bool asksThere = false; ///< the program is built for the site

    /// Reads all of it, so that what is damaged shows. Throws a Failure for every archive that
    /// updater programs would refuse.
    static LauncherArchive read(const QString &path, const UpdateTerms &terms,
                                const QString &baseUrl);
    /// For players with these keys and versions; what is no version is left out.
    static UpdateTerms terms(const QString &target, const QStringList &keys,
                             const QStringList &versions);

    /// The systems that launchers are made for, as the lists of their files name them. The first is
    /// that of most players.
    static QStringList targets();
    /// What the launcher's program is called there.
    static QString program(const QString &target);
};
