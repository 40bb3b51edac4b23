#include "publish/Commands.h"
#include "publish/Disk.h"
#include "publish/Interruption.h"
#include "publish/LauncherSettings.h"

#include <QCoreApplication>

#include <sodium.h>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(LauncherSettings::ownVersion());
    if (sodium_init() < 0)
        return static_cast<int>(Outcome::Disk);
    Interruption::watch();
    Disk::letOthersRead();
    return static_cast<int>(runPublisher(QCoreApplication::arguments().mid(1)));
}
