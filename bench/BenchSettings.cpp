#include "config/BuildSettings.h"

/// Takes the place of the build's own settings: the server is the one that the bench has started.
namespace BuildSettings {

QString launcherVersion()
{
    return QStringLiteral(VEYRA_VERSION);
}

QString serverBaseUrl()
{
    return qEnvironmentVariable("VEYRA_BENCH_SERVER");
}

QString discordInviteUrl()
{
    return serverBaseUrl();
}

} // namespace BuildSettings
