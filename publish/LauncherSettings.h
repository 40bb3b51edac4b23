#pragma once

#include <QString>

/// In this program the launcher's workers are built with no fixed version and address: they ask
/// here.
namespace LauncherSettings {

/// The workers that are made from here on belong to this launcher.
void become(const QString &version, const QString &baseUrl);

/// The version that this program came with.
QString ownVersion();

} // namespace LauncherSettings
