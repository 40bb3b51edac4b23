#include "config/BuildSettings.h"

namespace BuildSettings {

QString launcherVersion()
{
    return QStringLiteral(VEYRA_VERSION);
}

QString serverBaseUrl()
{
    return QStringLiteral(VEYRA_SERVER_URL);
}

QString discordInviteUrl()
{
    return QStringLiteral(VEYRA_DISCORD_URL);
}

} // namespace BuildSettings
