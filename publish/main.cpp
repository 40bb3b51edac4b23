#include "config/BuildSettings.h"
#include "publish/Commands.h"
#include "publish/Interruption.h"

#include <QCoreApplication>

#include <sodium.h>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(BuildSettings::launcherVersion());
    if (sodium_init() < 0)
        return static_cast<int>(Outcome::Disk);
    Interruption::watch();
    return static_cast<int>(runPublisher(QCoreApplication::arguments().mid(1)));
}
