#include "tests/support/FakePrograms.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("Cannot write %s", qPrintable(path));
}

QString executableName(const QString &name)
{
#ifdef Q_OS_WIN
    return name + u".exe"_s;
#else
    return name;
#endif
}

} // namespace

FakePrograms::FakePrograms()
    : m_oldPath(qgetenv("PATH"))
{
    qputenv("VEYRA_FAKE_PROGRAMS", QFile::encodeName(m_records.path()));
    qputenv("PATH", QFile::encodeName(QDir::toNativeSeparators(m_programs.path())));
}

FakePrograms::~FakePrograms()
{
    qputenv("PATH", m_oldPath);
    qunsetenv("VEYRA_FAKE_PROGRAMS");
}

void FakePrograms::addFake(const QString &name, const Behaviour &behaviour)
{
    const QString program = m_programs.filePath(executableName(name));
    QFile::remove(program);
    if (!QFile::copy(QStringLiteral(FAKE_PROGRAM), program))
        qFatal("Cannot make the fake %s", qPrintable(program));

    QByteArray script;
    for (const QString &path : behaviour.created)
        script += "create " + path.toUtf8() + '\n';
    if (behaviour.crashes)
        script += "crash\n";
    if (behaviour.hangs)
        script += "hang\n";
    script += "exit " + QByteArray::number(behaviour.exitCode) + '\n';
    write(recordPath(name, u".script"_s), script);
    write(recordPath(name, u".stderr"_s), behaviour.standardError);
    QFile::remove(recordPath(name, u".arguments"_s));
}

void FakePrograms::addReal(const QString &name)
{
    const QString real = QStandardPaths::findExecutable(
        name, QFile::decodeName(m_oldPath).split(QDir::listSeparator()));
    if (real.isEmpty() || !QFile::link(real, m_programs.filePath(executableName(name))))
        qFatal("This test needs %s", qPrintable(name));
}

void FakePrograms::addBroken(const QString &name)
{
    const QString program = m_programs.filePath(executableName(name));
    write(program, "no program");
    QFile::setPermissions(program, QFile::permissions(program) | QFile::ExeUser);
}

bool FakePrograms::wasCalled(const QString &name) const
{
    return QFile::exists(recordPath(name, u".arguments"_s));
}

QStringList FakePrograms::arguments(const QString &name) const
{
    QStringList texts =
        QString::fromUtf8(contentOf(recordPath(name, u".arguments"_s))).split(u'\0');
    texts.removeLast(); // behind the last NUL
    return texts;
}

QString FakePrograms::recordPath(const QString &name, const QString &suffix) const
{
    return m_records.filePath(name + suffix);
}
