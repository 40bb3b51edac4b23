#include "tests/support/StandIn.h"

#include "tests/support/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace {

QFileInfoList recordsOf(const QString &path)
{
    const QFileInfo program(path);
    return program.dir().entryInfoList({program.fileName() + u".*.start"_s}, QDir::Files,
                                       QDir::Name);
}

StandIn::Start readRecord(const QString &path)
{
    QStringList texts = QString::fromUtf8(Files::read(path)).split(u'\0');
    texts.removeLast(); // behind the last NUL
    return {texts.mid(2), texts.value(0), texts.value(1).toLongLong()};
}

} // namespace

StandIn::StandIn(const QString &path)
    : m_path(path)
{
    install(path);
}

StandIn::~StandIn()
{
    for (const QFileInfo &record : recordsOf(m_path))
        QFile::remove(record.filePath());
    QFile::remove(m_path + u".hang"_s);
    QFile::remove(m_path);
}

void StandIn::hang()
{
    Files::write(m_path + u".hang"_s, {});
}

void StandIn::install(const QString &path)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile::remove(path);
    if (!QFile::copy(QStringLiteral(FAKE_PROGRAM), path))
        qFatal("Cannot place %s", qPrintable(path));
}

void StandIn::installUnstartable(const QString &path)
{
    Files::write(path, "This is no program.\n");
    // Neither a right to execute nor a format that any system knows.
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
}

QList<StandIn::Start> StandIn::startsOf(const QString &path)
{
    QList<Start> starts;
    for (const QFileInfo &record : recordsOf(path))
        starts.append(readRecord(record.filePath()));
    return starts;
}
