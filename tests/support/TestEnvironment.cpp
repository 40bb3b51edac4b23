#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QtGlobal>

namespace {

void setFolderVariable(const char *name, const QString &path)
{
    QDir().mkpath(path);
    qputenv(name, QFile::encodeName(path));
}

} // namespace

TestEnvironment::TestEnvironment()
{
    setFolderVariable("XDG_DATA_HOME", folder() + QStringLiteral("/data"));
    setFolderVariable("XDG_CONFIG_HOME", folder() + QStringLiteral("/config"));
    setFolderVariable("XDG_CACHE_HOME", folder() + QStringLiteral("/cache"));
    setFolderVariable("TMPDIR", folder() + QStringLiteral("/tmp"));
    // Read when a request is made; a proxy of the person's would answer in the server's place.
    for (const char *name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"})
        qunsetenv(name);
}
