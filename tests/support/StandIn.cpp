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

QString scriptOf(const QString &path)
{
    return path + u".script"_s;
}

/// Windows keeps a program's file as long as the program runs, and those here end soon.
void removeProgram(const QString &path)
{
    constexpr int kAttempts = 200;
    constexpr int kPause = 20; // ms
    for (int i = 0; i < kAttempts && QFile::exists(path) && !QFile::remove(path); ++i)
        QTest::qSleep(kPause);
}

void installProgram(const QString &path, const QString &program)
{
    QDir().mkpath(QFileInfo(path).path());
    removeProgram(path);
    if (!QFile::copy(program, path))
        qFatal("Cannot place %s", qPrintable(path));
}

StandIn::Start readRecord(const QString &path)
{
    QStringList texts = QString::fromUtf8(Files::read(path)).split(u'\0');
    texts.removeLast(); // behind the last NUL
    return {texts.mid(3), texts.value(1), texts.value(2).toLongLong(), texts.value(0)};
}

} // namespace

StandIn::StandIn(const QString &path)
    : StandIn(path, QStringLiteral(VEYRA_STAND_IN))
{
}

StandIn::StandIn(const QString &path, const QString &program)
    : m_path(path)
{
    installProgram(path, program);
}

StandIn::~StandIn()
{
    QFile::remove(scriptOf(m_path));
    for (const QFileInfo &record : recordsOf(m_path))
        QFile::remove(record.filePath());
    removeProgram(m_path);
}

void StandIn::behave(const Behaviour &behaviour)
{
    QByteArrayList words{"say", behaviour.standardError};
    for (const QString &path : behaviour.created)
        words << "create" << path.toUtf8();
    if (behaviour.crashes)
        words << "crash";
    if (behaviour.hangs)
        words << "hang";
    words << "exit" << QByteArray::number(behaviour.exitCode);
    Files::write(scriptOf(m_path), words.join('\0') + '\0');
}

void StandIn::install(const QString &path)
{
    installProgram(path, QStringLiteral(VEYRA_STAND_IN));
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
