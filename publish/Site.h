#pragma once

#include <QLatin1StringView>
#include <QString>

class Generation;
class Workshop;

/// What lies where on a site that the launcher reads, and what a site needs that has nothing yet.
namespace Site {

inline constexpr QLatin1StringView kLauncherVersion{"api/launcher_version.json"};
inline constexpr QLatin1StringView kNews{"api/news.php"};
inline constexpr QLatin1StringView kStatus{"api/status.php"};
inline constexpr QLatin1StringView kClientFolder{"client/"};
inline constexpr QLatin1StringView kClientArchive{"client/DofusClient.zip"};
inline constexpr QLatin1StringView kUpdatesFolder{"updates/"};
inline constexpr QLatin1StringView kManifest{"updates/version.json"};
inline constexpr QLatin1StringView kFiles{"updates/files/"};
inline constexpr QLatin1StringView kIndexPage{"index.html"};

void writeEmpty(const Generation &generation);
/// The state is the same for all generations: it lies beside them. Where there are no links they
/// have copies of it, see Workshop::spreadStatus().
void linkStatus(const Generation &generation);

/// Of the launcher that the workshop's draft offers; empty where it offers none.
QString publishedVersion(const Workshop &workshop);
/// Its archive, whatever system the workshop is for by now.
QString publishedArchive(const Workshop &workshop);
/// `target` as in LauncherArchive::targets().
QString launcherArchive(const QString &version, const QString &target);

/// Tells the operator of folders that keep the web server out.
void warnOfClosedFolders(const QString &folder);

/// For nginx: a server that serves the workshop's site.
QString nginxBlock(const Workshop &workshop);

} // namespace Site
