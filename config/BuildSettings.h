#pragma once

#include <QString>

/// What is fixed when the launcher is built: its version and the addresses it talks to.
/// The values come from CMake (project version, VEYRA_SERVER_URL, VEYRA_DISCORD_URL).
namespace BuildSettings {

/// The launcher's own version: dotted decimal numbers.
QString launcherVersion();

/// Base of every request: an http:// or https:// URL that ends in "/".
QString serverBaseUrl();

/// Invite to the community chat.
QString discordInviteUrl();

} // namespace BuildSettings
