#include "updater/LauncherUpdate.h"
#include "updater/Platform.h"

int main(int argc, char **argv)
{
    return int(runUpdater(Platform::arguments(argc, argv), productSettings()));
}
