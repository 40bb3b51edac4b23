#pragma once

#include <QString>
#include <QStringList>

/// What the launcher sees of a site: its own workers look, as the version and at the address that
/// LauncherSettings tells.
namespace LauncherEyes {

struct Sight
{
    bool online = false;
    int players = 0;
    QStringList news;
    QString newVersion; ///< empty where it is offered none
};
/// State, news and its own newer version.
Sight look();

/// Why nothing can be unpacked here, as a sentence; empty where it can. The launcher would wait.
QString unpackerProblem();

/// Installs the client in the folder and verifies it. Empty when that ends as it should; else what
/// the launcher says.
QString install(const QString &folder);

} // namespace LauncherEyes
