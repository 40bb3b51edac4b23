// LauncherUpdater.exe with settings and faults that a test chooses through the environment.

#include "updater/LauncherUpdate.h"
#include "updater/Platform.h"

#include <cstdlib>

namespace {

std::string setting(const char *name)
{
    const char *const value = std::getenv(name);
    return value ? value : "";
}

} // namespace

int main(int argc, char **argv)
{
    Platform::prepareProcess();
    UpdaterSettings settings;
    settings.version = "1.0.0";
    settings.target = "windows-x64";
    settings.keys = {setting("VEYRA_PROBE_KEY")};
    settings.waitFor = std::chrono::milliseconds(std::stoi(setting("VEYRA_PROBE_WAIT")));
    settings.retryFor = std::chrono::milliseconds(std::stoi(setting("VEYRA_PROBE_RETRY")));
    return int(runUpdater(Platform::arguments(argc, argv), settings));
}
