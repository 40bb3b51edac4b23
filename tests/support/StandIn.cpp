#include "tests/support/StandIn.h"

#include "tests/support/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

QFileInfoList recordsOf(const QString &path)
{
    const QFileInfo program(path);
    return program.dir().entryInfoList({program.fileName() + u".*.start"_s}, QDir::Files,
                                       QDir::Name);
}

/// Windows keeps a program's file as long as the program runs, and those here end soon.
void removeProgram(const QString &path)
{
    constexpr int kAttempts = 200;
    constexpr int kPause = 20; // ms
    for (int i = 0; i < kAttempts && QFile::exists(path) && !QFile::remove(path); ++i)
        QTest::qSleep(kPause);
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
    removeProgram(m_path);
}

void StandIn::hang()
{
    Files::write(m_path + u".hang"_s, {});
}

void StandIn::install(const QString &path)
{
    QDir().mkpath(QFileInfo(path).path());
    removeProgram(path);
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
