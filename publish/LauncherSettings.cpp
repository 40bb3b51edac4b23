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

/// Takes the place of the build's own settings. No worker asks for the invite to the chat.
namespace BuildSettings {

QString launcherVersion()
{
    return currentVersion;
}

QString serverBaseUrl()
{
    return currentBaseUrl;
}

} // namespace BuildSettings
