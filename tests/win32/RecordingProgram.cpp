#include "tests/win32/RecordingProgram.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

RecordingProgram::RecordingProgram(const QString &path)
    : m_path(path)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile::remove(path);
    if (!QFile::copy(QStringLiteral(VEYRA_RECORDING_PROGRAM), path))
        qFatal("Cannot make %s", qPrintable(path));
}

RecordingProgram::~RecordingProgram()
{
    QFile::remove(m_path + u".record"_s);
    QFile::remove(m_path + u".does"_s);
    // A program that has just ended is still open for a moment.
    for (int attempt = 0; QFile::exists(m_path) && !QFile::remove(m_path) && attempt < 100;
         ++attempt)
        QTest::qWait(20);
}

void RecordingProgram::does(const QString &behaviour)
{
    QFile file(m_path + u".does"_s);
    if (!file.open(QIODevice::WriteOnly) || file.write(behaviour.toUtf8()) < 0)
        qFatal("Cannot write %s", qPrintable(file.fileName()));
}

bool RecordingProgram::wasStarted() const
{
    return QFile::exists(m_path + u".record"_s);
}

QString RecordingProgram::commandLine() const
{
    return recordLine(0);
}

QString RecordingProgram::workingDirectory() const
{
    return recordLine(1);
}

QString RecordingProgram::recordLine(int index) const
{
    QFile file(m_path + u".record"_s);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(u'\n').value(index);
}
