#include "tests/support/LauncherFiles.h"

#include <QCoreApplication>
#include <QStandardPaths>

using namespace Qt::Literals::StringLiterals;

QString LauncherFiles::archive()
{
    return QStandardPaths::writableLocation(QStandardPaths::TempLocation) +
           u"/VeyraLauncher_update.zip"_s;
}

QString LauncherFiles::updater()
{
    return QCoreApplication::applicationDirPath() + u"/LauncherUpdater.exe"_s;
}
