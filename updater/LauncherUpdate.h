#pragma once

#include "updater/Failure.h"

#include <chrono>
#include <string>
#include <vector>

/// What one run of the program is built with. main() takes the product's; tests bring their own.
struct UpdaterSettings
{
    std::string version;           ///< this program's own: nothing older is installed
    std::string target;            ///< the system that updates must be for
    std::vector<std::string> keys; ///< public keys as minisign writes them; empty ones do not count

    std::chrono::milliseconds waitFor = std::chrono::seconds(30);  ///< for the launcher to end
    std::chrono::milliseconds retryFor = std::chrono::seconds(10); ///< for a file to be let go
};

/// What was decided when the program was built.
UpdaterSettings productSettings();

/// The whole program. The launcher starts it with the archive, its own folder and its own file
/// name;
/// "--silent" before them shows nothing. Without them it mends what an interrupted run left in the
/// folder where it lies, and starts the launcher: it may stand in the launcher's place then.
ExitCode runUpdater(const std::vector<std::string> &arguments, const UpdaterSettings &settings);
