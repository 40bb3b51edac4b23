#include "updater/LauncherUpdate.h"
#include "updater/Platform.h"

int main(int argc, char **argv)
{
    Platform::prepareProcess();
    return int(runUpdater(Platform::arguments(argc, argv), productSettings()));
}
