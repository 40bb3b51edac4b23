#include "tests/updater/Installation.h"

#include "tests/support/Files.h"
#include "tests/support/Platform.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <algorithm>
#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

const auto kWorkFolder = u".veyra-maj/"_s;

/// The file's last line tells the versions apart; the program does not mind.
QByteArray program(const char *path, const char *version)
{
    return Files::read(QString::fromUtf8(path)) + '\n' + version;
}

QMap<QString, QByteArray> contents(const QString &folder)
{
    QMap<QString, QByteArray> result;
    for (const QString &name : Files::tree(folder))
        result.insert(name, name.endsWith(u'/') ? QByteArray() : Files::read(folder + u'/' + name));
    return result;
}

/// Writes only what differs: the programs are large.
void makeFolder(const QString &folder, const QMap<QString, QByteArray> &wanted)
{
    const QMap<QString, QByteArray> found = contents(folder);
    for (auto entry = found.end(); entry != found.begin();) {
        --entry;
        if (wanted.contains(entry.key()))
            continue;
        const QString path = folder + u'/' + entry.key();
        if (entry.key().endsWith(u'/'))
            QDir().rmdir(path);
        else
            QFile::remove(path);
    }
    for (auto entry = wanted.begin(); entry != wanted.end(); ++entry) {
        const QString path = folder + u'/' + entry.key();
        if (entry.key().endsWith(u'/')) {
            QDir().mkpath(path);
            continue;
        }
        if (!found.contains(entry.key()) || found.value(entry.key()) != entry.value()) {
            // It may be running. Windows removes it when it has ended.
            [[maybe_unused]] const bool isRemoved =
                QTest::qWaitFor([&] { return !QFile::exists(path) || QFile::remove(path); },
                                int(std::chrono::milliseconds(20s).count()));
            Files::write(path, entry.value());
        }
        QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner | QFile::ExeGroup |
                                        QFile::ExeOther);
    }
}

} // namespace

Installation::Installation(const QString &name)
    : environment(QProcessEnvironment::systemEnvironment())
    , m_folder(m_folders.filePath(u"programmes/"_s + name))
{
    const QMap<QByteArray, QByteArray> oldFiles{{kLauncher, program(FAKE_LAUNCHER, "old")},
                                                {kUpdater, program(UPDATER_PROBE, "old")},
                                                {"Qt6Core.dll", "the old core"},
                                                {"licences/anciennes/Zlib.txt", "only the old one"},
                                                {"platforms/qwindows.dll", "the same"},
                                                {"tls/qschannel.dll", "only the old one"}};
    m_newFiles = {{kLauncher, program(FAKE_LAUNCHER, "new")},
                  {kUpdater, program(UPDATER_PROBE, "new")},
                  {"Qt6Core.dll", "the new core"},
                  {"Qt6Svg.dll", "only the new one"},
                  {"platforms/qwindows.dll", "the same"},
                  {"platforms/themes/noir/theme.css", ""},
                  {"styles/moderne/style.dll", "only the new one"}};
    const QMap<QString, QByteArray> others{{u"Client/"_s, {}},
                                           {u"Client/Dofus.exe"_s, "the game"},
                                           {u"notes.txt"_s, "the person's own"},
                                           {u"tls/"_s, {}},
                                           {u"tls/certificat.pem"_s, "the person's own"},
                                           {u"vide/"_s, {}}};

    const auto stateOf = [&](const QMap<QByteArray, QByteArray> &files, const char *version) {
        QMap<QString, QByteArray> state = others;
        for (auto file = files.begin(); file != files.end(); ++file) {
            const QString path = QString::fromUtf8(file.key());
            state.insert(path, file.value());
            for (qsizetype slash = path.indexOf(u'/'); slash >= 0;
                 slash = path.indexOf(u'/', slash + 1))
                state.insert(path.left(slash + 1), {});
        }
        const QByteArray list = sampleList(version, SampleUpdate::kTarget, files);
        state.insert(u"liste.txt"_s, list);
        state.insert(u"liste.txt.minisig"_s, m_keys.sign(list));
        return state;
    };
    m_oldState = stateOf(oldFiles, "1.0.0");
    m_newState = stateOf(m_newFiles, "1.0.1");
    m_kept = m_oldState;
    QDir().mkpath(m_folder);
    restore();
    writeArchive(update().archive(m_keys));

    environment.insert(u"VEYRA_PROBE_KEY"_s, QString::fromStdString(m_keys.publicKey()));
    environment.insert(u"VEYRA_PROBE_WAIT"_s, u"20000"_s);
    environment.insert(u"VEYRA_PROBE_RETRY"_s, u"0"_s);
    // Tests that are about the disk itself wait for it.
    environment.insert(u"VEYRA_PROBE_NO_FLUSH"_s, u"1"_s);
    environment.insert(u"VEYRA_PROBE_RECORD"_s, recordPath());
    environment.insert(u"VEYRA_PROBE_CALLS"_s, callsPath());
    environment.insert(u"XDG_DATA_HOME"_s, m_folders.filePath(u"data"_s));
}

SampleUpdate Installation::update() const
{
    SampleUpdate result;
    result.files = m_newFiles;
    // The programs are large: packing them would take its time.
    result.changeZip = [](ZipBuilder &zip) {
        for (ZipEntry &entry : zip.entries)
            entry.deflated = false;
    };
    return result;
}

void Installation::writeArchive(const QByteArray &bytes) const
{
    Files::write(archive(), bytes);
}

QMap<QString, QByteArray> Installation::state() const
{
    QMap<QString, QByteArray> result = contents(m_folder);
    for (auto entry = result.begin(); entry != result.end();)
        entry = entry.key().startsWith(kWorkFolder) ? result.erase(entry) : std::next(entry);
    return result;
}

bool Installation::hasRemains() const
{
    return QFileInfo::exists(m_folder + u'/' + kWorkFolder);
}

void Installation::restore()
{
    makeFolder(m_folder, m_kept);
}

void Installation::keep()
{
    m_kept = contents(m_folder);
}

void Installation::letStrangersIn()
{
    constexpr auto kLookInside =
        QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
    // The test's own folder and, around it, the test program's.
    for (const QString &path : {m_folders.path(), QFileInfo(QDir::tempPath()).path()})
        QFile::setPermissions(path, QFile::permissions(path) | kLookInside);
}

/// Where it replaces its own file: such a copy as it makes of itself. Otherwise empty.
QString Installation::copyOf(const QString &program) const
{
#ifdef Q_OS_WIN
    const QByteArray content = Files::read(m_folder + u'/' + program);
    if (!content.contains("liste.txt.minisig"))
        return {};
    QString copy = m_folders.filePath(u"copie/LauncherUpdater.exe"_s);
    if (Files::read(copy) != content) {
        QFile::remove(copy);
        Files::write(copy, content);
    }
    return copy;
#else
    Q_UNUSED(program)
    return {};
#endif
}

Installation::Outcome Installation::run(const QString &program, const QStringList &arguments,
                                        const QString &faults)
{
    const QString errors = m_folders.filePath(u"errors.txt"_s);
#ifdef Q_OS_WIN
    const QString data = qEnvironmentVariable("LOCALAPPDATA"); // the system asks nothing else
#else
    const QString data = m_folders.filePath(u"data"_s);
#endif
    const QString log = data + u"/Veyra/Veyra Launcher/mise-a-jour.log"_s;
    // Linux hurries to the disk with what overwrites a file: some thousand times, that takes
    // minutes.
    for (const QString &path : {errors, callsPath()})
        QFile::remove(path);

    QProcess process;
    QProcessEnvironment variables = environment;
    variables.insert(u"VEYRA_PROBE_FAULTS"_s, faults);
    process.setProcessEnvironment(variables);
    process.setWorkingDirectory(m_folder);
    process.setStandardErrorFile(errors);
    if (prepareProcess)
        prepareProcess(process);
    const QString copy = copyOf(program);
    QStringList given = arguments;
    if (!copy.isEmpty() && (given.isEmpty() || given == QStringList{u"--silent"_s}))
        given.append(m_folder);
    const bool hasEnded =
        Platform::start(process, copy.isEmpty() ? m_folder + u'/' + program : copy, given) &&
        process.waitForFinished(int(std::chrono::milliseconds(60s).count()));

    Outcome outcome;
    outcome.exitCode =
        hasEnded && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    outcome.errors = QString::fromUtf8(Files::read(errors)).remove(u'\r');
    if (outcome.exitCode == -1)
        outcome.errors += process.errorString();
    outcome.log = QString::fromUtf8(Files::read(log));
    return outcome;
}

bool Installation::startDetached(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(m_folder);
    process.setProgram(m_folder + u'/' + program);
    process.setArguments(arguments);
    return process.startDetached();
}

Installation::Outcome Installation::runUpdater(const QString &faults)
{
    return run(QString::fromUtf8(kUpdater), {archive(), m_folder, QString::fromUtf8(kLauncher)},
               faults);
}

Installation::Outcome Installation::start(const QString &program, const QString &faults)
{
    return run(program, {}, faults);
}

int Installation::callCount() const
{
    return Files::read(callsPath()).toInt();
}

QStringList Installation::startsOf(int count)
{
    QByteArray record;
    [[maybe_unused]] const bool isThere = QTest::qWaitFor(
        [&] {
            record = Files::read(recordPath());
            return record.count('\n') >= count;
        },
        int(std::chrono::milliseconds(20s).count()));
    QFile::remove(recordPath());
    m_lastRecord = QString::fromUtf8(record).split(u'\n', Qt::SkipEmptyParts);
    QStringList versions;
    for (const QString &line : std::as_const(m_lastRecord))
        versions.append(line.section(u'|', 0, 0));
    // A start that Wine says has failed may have taken place, and is tried again.
    if (Platform::isWine())
        versions.erase(std::unique(versions.begin(), versions.end()), versions.end());
    return versions;
}
