#include "publish/LauncherSettings.h"

#include "config/BuildSettings.h"

namespace {

QString currentVersion;
QString currentBaseUrl;

} // namespace

void LauncherSettings::become(const QString &version, const QString &baseUrl)
{
    currentVersion = version;
    currentBaseUrl = baseUrl;
}

QString LauncherSettings::ownVersion()
{
    return QStringLiteral(VEYRA_VERSION);
}

/// Takes the place of the build's own settings.
namespace BuildSettings {

QString launcherVersion()
{
    return currentVersion;
}

QString serverBaseUrl()
{
    return currentBaseUrl;
}

/// No worker shows it.
QString discordInviteUrl()
{
    return currentBaseUrl;
}

} // namespace BuildSettings
