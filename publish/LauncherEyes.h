#pragma once

#include "publish/Patience.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

/// What the launcher sees of a site: its own workers look, as the version and at the address that
/// LauncherSettings tells.
namespace LauncherEyes {

struct Sight
{
    bool hasState = false; ///< the server has answered, or has failed to
    bool online = false;
    int players = 0;
    /// Without the launcher's own text where there are none. Nothing where it still waits for them.
    std::optional<QStringList> news;
    bool isWelcomed = false; ///< by that text which stands for news that cannot be had
    /// Empty where it is offered none. Nothing where it still waits for an answer.
    std::optional<QString> newVersion;
};
/// State, news and its own newer version.
Sight look(const Patience &patience = {});

/// Why nothing can be unpacked here, as a sentence; empty where it can. The launcher would wait.
QString unpackerProblem();

struct Installation
{
    QString failure;           ///< what happened in place of what should; empty where all went well
    bool isDownloaded = false; ///< if so, the failure came afterwards
};
/// Gets the archive's path, and tells whether it may be unpacked.
using LookAtArchive = std::function<bool(const QString &archive)>;
/// Installs the client in the folder and verifies it. Ends without a failure, too, where the
/// archive may not be unpacked.
Installation install(const QString &folder, const LookAtArchive &lookAtArchive,
                     const Patience &patience = {});

} // namespace LauncherEyes
