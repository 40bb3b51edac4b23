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
/// name; "--silent" before them shows nothing. With a folder alone it mends what an interrupted run
/// left there, and starts the launcher; without any it does so in the folder where it lies: it may
/// stand in the launcher's place then. Where it cannot replace its own file it ends at once, with
/// Done, and a copy of it does the work.
ExitCode runUpdater(const std::vector<std::string> &arguments, const UpdaterSettings &settings);
