#include "publish/Commands.h"
#include "publish/Disk.h"
#include "publish/Interruption.h"
#include "publish/LauncherSettings.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <sodium.h>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(LauncherSettings::ownVersion());
    // The launcher's texts with printf-style marks make Qt complain with each report of a download.
    QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
    if (sodium_init() < 0)
        return static_cast<int>(Outcome::Disk);
    Interruption::watch();
    Disk::letOthersRead();
    return static_cast<int>(runPublisher(QCoreApplication::arguments().mid(1)));
}
