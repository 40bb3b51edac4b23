#include "tests/publish/Publisher.h"

#include "tests/support/Files.h"
#include "tests/support/Platform.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QProcess>

#ifdef Q_OS_UNIX
#include <grp.h>
#include <unistd.h>
#endif

using namespace Qt::Literals::StringLiterals;

#ifdef Q_OS_UNIX

namespace {

void becomeNobody()
{
    constexpr uid_t kNobody = 65534;
    if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
        ::_exit(98);
}

} // namespace

bool Publisher::runAsStranger()
{
    if (::geteuid() != 0)
        return true;
    constexpr auto kLookInside =
        QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
    // The test's own folder and, around it, the test program's.
    for (const QString &path : {m_folder.path(), QFileInfo(QDir::tempPath()).path()})
        QFile::setPermissions(path, QFile::permissions(path) | kLookInside);
    m_isStranger = true;
    QFile::setPermissions(path(QString()), kLookInside | QFile::WriteOther | QFile::ReadOwner |
                                               QFile::WriteOwner | QFile::ExeOwner);
    return run({u"--version"_s}).code == 0;
}

Publisher::Result Publisher::runUntil(int step, const QStringList &arguments) const
{
    qputenv("VEYRA_PUBLISHER_DIES_AT", QByteArray::number(step));
    Result result = runProgram(QStringLiteral(VEYRA_MORTAL_PUBLISHER), arguments);
    qunsetenv("VEYRA_PUBLISHER_DIES_AT");
    return result;
}

void Publisher::startUntil(QProcess &process, int step, const QStringList &arguments) const
{
    startMortal(process, u"VEYRA_PUBLISHER_STOPS_AT"_s, step, arguments);
}

void Publisher::startImpatient(QProcess &process, std::chrono::milliseconds patience,
                               const QStringList &arguments) const
{
    startMortal(process, u"VEYRA_PUBLISHER_WAITS"_s, patience.count(), arguments);
}

void Publisher::startMortal(QProcess &process, const QString &variable, qint64 value,
                            const QStringList &arguments) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(variable, QString::number(value));
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(path(QString()));
    process.start(QStringLiteral(VEYRA_MORTAL_PUBLISHER), arguments);
}

bool Publisher::isStopped(const QProcess &process)
{
    const QByteArray state =
        Files::read(QStringLiteral("/proc/%1/status").arg(process.processId()));
    return state.contains("\nState:\tT");
}

#endif

Publisher::Publisher()
{
    QDir().mkpath(path(QString()));
}

QString Publisher::program()
{
    return QStringLiteral(VEYRA_PUBLISHER);
}

Publisher::Result Publisher::run(const QStringList &arguments) const
{
    return runProgram(program(), arguments);
}

Publisher::Result Publisher::runProgram(const QString &program, const QStringList &arguments) const
{
    QProcess process;
    process.setWorkingDirectory(path(QString()));
#ifdef Q_OS_UNIX
    if (m_isStranger)
        process.setChildProcessModifier(becomeNobody);
#endif
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    QObject::connect(&process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    process.start(program, arguments);
    loop.exec();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QString Publisher::sitePath() const
{
    const QString site = path(u"site"_s);
    return Platform::kIsWindows ? path(QString::fromUtf8(Files::read(site))) : site;
}

QMap<QString, QByteArray> Publisher::site() const
{
    QMap<QString, QByteArray> content;
    const QString folder = sitePath();
    const QStringList names = Files::tree(folder);
    for (const QString &name : names) {
        if (!name.endsWith(u'/'))
            content.insert(name, Files::read(folder + u'/' + name));
    }
    return content;
}

QMap<QString, QByteArray> Clients::sample()
{
    return {{u"Dofus.exe"_s, "program"},
            {u"DofusInvoker.swf"_s, "marker"},
            {u"data/Île aux Cèdres.map"_s, Files::noise(200'000)},
            {u"data/texte.json"_s, QByteArray(100'000, 'x')},
            {u"data/vide"_s, ""}};
}

void Clients::write(const QString &folder, const QMap<QString, QByteArray> &files)
{
    for (auto file = files.begin(); file != files.end(); ++file)
        Files::write(folder + u'/' + file.key(), file.value());
}
