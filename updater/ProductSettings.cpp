#include "updater/LauncherUpdate.h"

UpdaterSettings productSettings()
{
    UpdaterSettings settings;
    settings.version = VEYRA_VERSION;
    settings.target = VEYRA_UPDATE_TARGET;
    settings.keys = {VEYRA_UPDATE_KEY, VEYRA_SPARE_UPDATE_KEY};
    return settings;
}
