#pragma once

#include <QString>

/// Where a launcher of this process keeps what a newer one is installed with.
namespace LauncherFiles {

/// The downloaded archive of the newer one.
QString archive();
/// The program that installs it.
QString updater();

} // namespace LauncherFiles
