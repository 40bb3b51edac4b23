#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QtGlobal>

namespace {

void setFolderVariable(const char *name, const QString &path)
{
    QDir().mkpath(path);
    qputenv(name, QFile::encodeName(path));
}

#ifdef Q_OS_WIN
/// No variable moves the application data folder on Windows. Qt's test mode does, to a folder that
/// all test programs share, hence emptied first; programs must not run side by side.
void redirectFolders(const QString &folder)
{
    setFolderVariable("TEMP", folder + QStringLiteral("/tmp"));
    setFolderVariable("TMP", folder + QStringLiteral("/tmp"));
    QStandardPaths::setTestModeEnabled(true);
    // Neither application nor organisation has a name yet: this is the root of them all.
    QDir roaming(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation));
    if (roaming.dirName() != QStringLiteral("qttest"))
        qFatal("Not a folder for tests: %s", qPrintable(roaming.path()));
    roaming.removeRecursively();
}
#else
void redirectFolders(const QString &folder)
{
    setFolderVariable("XDG_DATA_HOME", folder + QStringLiteral("/data"));
    setFolderVariable("XDG_CONFIG_HOME", folder + QStringLiteral("/config"));
    setFolderVariable("XDG_CACHE_HOME", folder + QStringLiteral("/cache"));
    setFolderVariable("TMPDIR", folder + QStringLiteral("/tmp"));
}
#endif

} // namespace

TestEnvironment::TestEnvironment()
{
    redirectFolders(folder());
    // Read when a request is made; a proxy of the person's would answer in the server's place.
    for (const char *name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"})
        qunsetenv(name);
}
