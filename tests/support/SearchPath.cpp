#include "tests/support/SearchPath.h"

#include "tests/support/Files.h"
#include "tests/support/Platform.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

SearchPath::SearchPath()
    : m_oldPath(qgetenv("PATH"))
{
    qputenv("PATH", QFile::encodeName(QDir::toNativeSeparators(m_folder.path())));
}

SearchPath::~SearchPath()
{
    qputenv("PATH", m_oldPath);
}

void SearchPath::addStandIn(const QString &name, const StandIn::Behaviour &behaviour)
{
    m_standIns.erase(name); // its end removes the file
    m_standIns.try_emplace(name, pathOf(name)).first->second.behave(behaviour);
}

void SearchPath::addReal(const QString &name)
{
    const QString real = QStandardPaths::findExecutable(
        name, QFile::decodeName(m_oldPath).split(QDir::listSeparator()));
    if (real.isEmpty() || !QFile::link(real, pathOf(name)))
        qFatal("This test needs %s", qPrintable(name));
}

void SearchPath::addBroken(const QString &name)
{
    const QString program = pathOf(name);
    Files::write(program, "no program");
    QFile::setPermissions(program, QFile::permissions(program) | QFile::ExeUser);
}

QList<StandIn::Start> SearchPath::startsOf(const QString &name) const
{
    return StandIn::startsOf(pathOf(name));
}

QString SearchPath::pathOf(const QString &name) const
{
    return m_folder.filePath(Platform::executableName(name));
}
