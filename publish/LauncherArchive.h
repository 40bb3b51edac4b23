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
    static UpdateTerms terms(const QStringList &keys, const QStringList &versions);

    static constexpr auto kProgram = "VeyraLauncher.exe";
};
