#include "tests/support/Files.h"
#include "tests/support/Platform.h"
#include "tests/support/TestEnvironment.h"
#include "tests/updater/Installation.h"

#include "updater/LauncherUpdate.h"
#include "updater/Platform.h"
#include "updater/ProgressView.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTest>

#include <functional>
#include <thread>

#ifdef Q_OS_UNIX
#include <csignal>
#include <sys/resource.h>
#include <unistd.h>
#endif

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kLauncher = QString::fromUtf8(Installation::kLauncher);
const auto kUpdater = QString::fromUtf8(Installation::kUpdater);
const QStringList kOld{u"old"_s};
const QStringList kNew{u"new"_s};
const int kStride = Platform::isWine() ? 5 : 1; // a process takes its time there

enum {
    Done = 0,
    Usage = 1,
    StillRunning = 2,
    Refused = 3,
    NotPrepared = 4,
    RolledBack = 5,
    RollBackFailed = 6,
    NotRestarted = 7
};

/// What a person does who looks at the failure of a run in this process.
std::function<void()> whileAFailureIsShown;

class View : public ProgressView
{
public:
    void showStep(const std::string &) override {}
    void showPercent(int) override {}
    void showFailure(const std::string &) override { whileAFailureIsShown(); }
};

#ifdef Q_OS_WIN
/// Another program that has a file open, so that nobody else can open it.
class Holder
{
public:
    Holder(Installation &installation, const QString &file, int milliseconds)
    {
        const QString path =
            file == u"ARCHIVE" ? installation.archive() : installation.folder() + u'/' + file;
        QProcessEnvironment environment = installation.environment;
        environment.insert(u"VEYRA_PROBE_HOLD"_s, QDir::toNativeSeparators(path));
        environment.insert(u"VEYRA_PROBE_HANG"_s, QString::number(milliseconds));
        m_process.setProcessEnvironment(environment);
        Platform::start(m_process, QString::fromUtf8(FAKE_LAUNCHER));
        // It records its start once it holds the file.
        if (installation.startsOf(1).size() != 1)
            qFatal("The program that is to hold a file does not start");
    }
    ~Holder()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    Holder(const Holder &) = delete;
    Holder &operator=(const Holder &) = delete;

private:
    QProcess m_process;
};
#endif

} // namespace

std::unique_ptr<ProgressView> createProgressView(bool)
{
    return std::make_unique<View>();
}

/// The program as the launcher starts it: what it ends with, says and leaves.
class TestLauncherUpdater : public QObject
{
    Q_OBJECT

private slots:
    void replacesTheLauncherAndItself();
    void replacesItselfFromItsOwnPlace();
    void mendsFromTheLaunchersPlace_data();
    void mendsFromTheLaunchersPlace();
    void mendsOnceWhenItIsStartedTwice();
    void startsTheLauncherInItsOwnFolder();
    void bearsLongPathsWithAccents();
    void replacesALauncherThatIsReadOnly();
    void undoesWithALauncherThatIsReadOnly();
    void saysWhatItDoes();
    void saysNothingWhenSilent();
    void logsTheLastRun();
    void refusesWrongArguments_data();
    void refusesWrongArguments();
    void refusesAndStartsTheOldLauncher_data();
    void refusesAndStartsTheOldLauncher();
    void refusesALauncherUnderAnotherName();
    void refusesAnUpdateWithoutTheUpdater();
    void keepsOldFilesWithoutTheirList_data();
    void keepsOldFilesWithoutTheirList();
    void waitsForTheLauncher();
    void namesTheLauncherThatDoesNotEnd();
    void doesNotRunTwiceInAFolder();
    void letsGoOfTheFolderWhereItTellsToInstallAgain_data();
    void letsGoOfTheFolderWhereItTellsToInstallAgain();
    void preparesNothingOnAFullDisk();
    void preparesNothingWithoutSpace();
    void preparesNothingInAFolderThatIsReadOnly();
    void preparesNothingWhereAFolderHasAFilesName();
    void clearsWhatAnEarlierRunStaged();
    void waitsForEveryFileWhileItPrepares();
    void waitsForTheLauncherToBeLetGo();
    void waitsForTheFilesOfOtherPrograms_data();
    void waitsForTheFilesOfOtherPrograms();
    void tellsWhichProgramHoldsAFile_data();
    void tellsWhichProgramHoldsAFile();
    void waitsForAFileToBeLetGo();
    void undoesWhenAFileIsNotLetGo();
    void tellsThatTheNewLauncherDoesNotStart();
    void theProductKnowsNoFaults();
    void theProductRefusesForeignUpdates();

private:
    void expectUntouched(Installation &installation);
};

/// The old launcher, started once, and everything as it was.
void TestLauncherUpdater::expectUntouched(Installation &installation)
{
    QCOMPARE(installation.startsOf(1), kOld);
    QVERIFY(installation.state() == installation.oldState());
    QVERIFY(!installation.hasRemains());
}

void TestLauncherUpdater::replacesTheLauncherAndItself()
{
    Installation installation;
    installation.environment.remove(u"VEYRA_PROBE_NO_FLUSH"_s);
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    QCOMPARE(installation.startsOf(1), kNew);
    QVERIFY(installation.state() == installation.newState());
    QVERIFY(!installation.hasRemains());
    // The archive is the launcher's.
    QVERIFY(QFileInfo::exists(installation.archive()));
}

void TestLauncherUpdater::replacesItselfFromItsOwnPlace()
{
    Installation installation;
    const QStringList arguments{installation.archive(), installation.folder(), kLauncher};
    QVERIFY(installation.startDetached(kUpdater, arguments));
    QCOMPARE(installation.startsOf(1), kNew);
    QVERIFY(installation.state() == installation.newState());
    QVERIFY(!installation.hasRemains());
}

void TestLauncherUpdater::mendsFromTheLaunchersPlace_data()
{
    QTest::addColumn<bool>("hasTemporaryFolder");

    QTest::newRow("by a copy of itself") << true;
    QTest::newRow("where no copy can be made") << false;
}

void TestLauncherUpdater::mendsFromTheLaunchersPlace()
{
    QFETCH(const bool, hasTemporaryFolder);
    Installation installation;
    if (!hasTemporaryFolder) {
        for (const QString &name : {u"TMP"_s, u"TEMP"_s})
            installation.environment.insert(name, installation.folder() + u"/absent"_s);
    }
    installation.environment.insert(u"VEYRA_PROBE_RETRY"_s, u"10000"_s);
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    const int calls = installation.callCount();
    QCOMPARE(installation.startsOf(1), kNew);

    // In the middle of the replacement the updater program stands in the launcher's place.
    installation.restore();
    const auto program = [&] { return installation.state().value(kLauncher); };
    const QByteArray updater = installation.oldState().value(kUpdater);
    for (int call = calls / 2; call < calls && program() != updater; call += 3) {
        installation.restore();
        QCOMPARE(installation.runUpdater(u"kill=%1"_s.arg(call)).exitCode, Installation::kKilled);
    }
    QVERIFY(program() == updater);

    // It is replaced while it starts.
    QVERIFY(installation.startDetached(kLauncher, {}));
    QCOMPARE(installation.startsOf(1), kOld);
    QVERIFY(installation.state() == installation.oldState());
    if (hasTemporaryFolder)
        QVERIFY(!installation.hasRemains());

    // Its own file may be left where it was in use. The next update finds nothing in its way.
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    QCOMPARE(installation.startsOf(1), kNew);
    QVERIFY(installation.state() == installation.newState());
    QVERIFY(!installation.hasRemains());
}

void TestLauncherUpdater::mendsOnceWhenItIsStartedTwice()
{
    Installation installation;
    QProcess second;
    second.setProcessEnvironment(installation.environment);
    {
        Platform::FolderLock first;
        QVERIFY(first.tryLock(installation.folder().toStdString()));
        QVERIFY(Platform::start(second, QString::fromUtf8(UPDATER_PROBE), {installation.folder()}));
        QByteArray said;
        QTRY_VERIFY_WITH_TIMEOUT(
            (second.waitForReadyRead(10), said += second.readAllStandardError())
                .contains("Attente de la fin d'une autre"),
            20000);
    }
    // The first one has left nothing to do.
    QVERIFY(second.waitForFinished());
    QCOMPARE(second.exitCode(), int(Done));
    QCOMPARE(installation.startsOf(0), QStringList());
    QVERIFY(installation.state() == installation.oldState());
}

void TestLauncherUpdater::startsTheLauncherInItsOwnFolder()
{
    Installation installation;
    installation.prepareProcess = [](QProcess &process) { process.setWorkingDirectory(u"/"_s); };
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    QCOMPARE(installation.startsOf(1), kNew);
    QCOMPARE(installation.lastRecord(), QStringList{u"new|"_s + installation.folder() + u"|0"_s});
}

void TestLauncherUpdater::bearsLongPathsWithAccents()
{
#ifdef Q_OS_WIN
    // Windows starts programs whose path is shorter than 260 characters.
    constexpr qsizetype kLength = 50;
#else
    constexpr qsizetype kLength = 100;
#endif
    Installation installation(QString(kLength, u'é') + u'/' + QString(kLength, u'à') +
                              u"/Été 100 % & co"_s);
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    QCOMPARE(installation.startsOf(1), kNew);
    QVERIFY(installation.state() == installation.newState());
}

void TestLauncherUpdater::replacesALauncherThatIsReadOnly()
{
    Installation installation;
    for (const QString &name : {kLauncher, kUpdater}) {
        QVERIFY(QFile::setPermissions(installation.folder() + u'/' + name,
                                      QFile::ReadOwner | QFile::ExeOwner));
    }
    const Installation::Outcome outcome = installation.runUpdater();
    QVERIFY2(outcome.exitCode == Done, qPrintable(outcome.errors));
    QCOMPARE(installation.startsOf(1), kNew);
    QVERIFY(installation.state() == installation.newState());
    QVERIFY(!installation.hasRemains());
}

void TestLauncherUpdater::undoesWithALauncherThatIsReadOnly()
{
    Installation installation;
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    const int calls = installation.callCount();
    QCOMPARE(installation.startsOf(1), kNew);

    installation.restore();
    const QString launcher = installation.folder() + u'/' + kLauncher;
    int undone = 0;
    for (int call = calls * 2 / 3; call < calls && undone == 0; call += 3) {
        installation.restore();
        QVERIFY(QFile::setPermissions(launcher, QFile::ReadOwner | QFile::ExeOwner));
        undone += installation.runUpdater(u"fail=%1"_s.arg(call)).exitCode == RolledBack ? 1 : 0;
        installation.startsOf(1);
    }
    QCOMPARE(undone, 1);
    QVERIFY(installation.state() == installation.oldState());
    QVERIFY(!installation.hasRemains());
    QVERIFY(!QFile::permissions(launcher).testFlag(QFile::WriteOwner));
    QVERIFY(
        QFile::setPermissions(launcher, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

void TestLauncherUpdater::saysWhatItDoes()
{
    Installation installation;
    const Installation::Outcome outcome = installation.runUpdater();
    QCOMPARE(outcome.errors, u"Vérification de la mise à jour...\n"
                             "Préparation de la version 1.0.1...\n"
                             "Remplacement des fichiers...\n"
                             "La version 1.0.1 est installée.\n"_s);
    QCOMPARE(installation.startsOf(1), kNew);
}

void TestLauncherUpdater::saysNothingWhenSilent()
{
    Installation installation;
    installation.writeArchive("no archive");
    const QStringList arguments{u"--silent"_s, installation.archive(), installation.folder(),
                                kLauncher};
    const Installation::Outcome outcome = installation.run(kUpdater, arguments);
    QCOMPARE(outcome.exitCode, int(Refused));
    QCOMPARE(outcome.errors, QString());
    QVERIFY(outcome.log.contains(u"Mise à jour refusée : archive incohérente"_s));
    expectUntouched(installation);
}

void TestLauncherUpdater::logsTheLastRun()
{
    Installation installation;
    const QByteArray good = Files::read(installation.archive());
    installation.writeArchive("no archive");
    QVERIFY(installation.runUpdater().log.contains(u"Mise à jour refusée"_s));
    installation.writeArchive(good);
    const QString log = installation.runUpdater().log;

    const QStringList lines = log.split(u'\n');
    const QRegularExpression time(u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ "_s);
    for (const QString &line : lines.mid(0, lines.size() - 1))
        QVERIFY2(time.match(line).hasMatch(), qPrintable(line));
    QVERIFY(lines.constFirst().endsWith(
        u"Mise à jour de %1 avec %2"_s.arg(installation.folder(), installation.archive())));
    QVERIFY(log.contains(u"La version 1.0.1 est installée."_s));
    QVERIFY(log.contains(u"Launcher démarré : "_s + installation.folder()));
    QVERIFY(log.endsWith(u"Code de sortie 0\n"_s));
    QVERIFY(!log.contains(u"refusée"_s));
    QCOMPARE(installation.startsOf(2), kOld + kNew);
}

void TestLauncherUpdater::refusesWrongArguments_data()
{
    QTest::addColumn<QStringList>("arguments");

    // ARCHIVE and FOLDER are replaced by the real ones.
    const QString archive = u"ARCHIVE"_s;
    const QString folder = u"FOLDER"_s;
    QTest::newRow("none") << QStringList{};
    QTest::newRow("silence alone") << QStringList{u"--silent"_s};
    QTest::newRow("one") << QStringList{archive};
    QTest::newRow("two") << QStringList{archive, folder};
    QTest::newRow("four") << QStringList{archive, folder, kLauncher, kLauncher};
    QTest::newRow("an unknown option") << QStringList{u"--force"_s, archive, folder, kLauncher};
    QTest::newRow("an option behind") << QStringList{archive, folder, kLauncher, u"--silent"_s};
    QTest::newRow("no such folder") << QStringList{archive, folder + u"/absent"_s, kLauncher};
    QTest::newRow("an empty folder") << QStringList{archive, QString(), kLauncher};
    QTest::newRow("the root folder") << QStringList{archive, u"/"_s, kLauncher};
    QTest::newRow("a file for a folder")
        << QStringList{archive, folder + u"/notes.txt"_s, kLauncher};
    QTest::newRow("no such program") << QStringList{archive, folder, u"Absent.exe"_s};
    QTest::newRow("no program") << QStringList{archive, folder, QString()};
    QTest::newRow("a program elsewhere") << QStringList{archive, folder, u"../programmes/x.exe"_s};
    QTest::newRow("a folder for a program") << QStringList{archive, folder, u"Client"_s};
}

void TestLauncherUpdater::refusesWrongArguments()
{
    QFETCH(QStringList, arguments);
    Installation installation;
    arguments.replaceInStrings(u"ARCHIVE"_s, installation.archive());
    arguments.replaceInStrings(u"FOLDER"_s, installation.folder());

    const Installation::Outcome outcome = installation.run(kUpdater, arguments);
    QCOMPARE(outcome.exitCode, int(Usage));
    const bool isSilent = arguments.value(0) == u"--silent"_s;
    QCOMPARE(outcome.errors.contains(u"Usage : LauncherUpdater.exe"_s), !isSilent);
    QVERIFY(installation.state() == installation.oldState());
    QVERIFY(!installation.hasRemains());
    QCOMPARE(installation.startsOf(0), QStringList());
}

void TestLauncherUpdater::refusesAndStartsTheOldLauncher_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<QString>("reason");

    QTest::newRow("an archive that is none") << u"none"_s << u"archive incohérente"_s;
    QTest::newRow("an archive that is absent") << u"absent"_s << u"archive introuvable"_s;
    QTest::newRow("a forged one") << u"forged"_s << u"signée avec une clé inconnue"_s;
    QTest::newRow("one with a file that the list does not promise")
        << u"changed"_s << u"contenu différent de celui que liste.txt annonce"_s;
    QTest::newRow("the version of this program")
        << u"same"_s << u"n'est pas plus récente que la version 1.0.0"_s;
    QTest::newRow("the version that is installed")
        << u"installed"_s << u"n'est pas plus récente que la version 1.0.1"_s;
}

void TestLauncherUpdater::refusesAndStartsTheOldLauncher()
{
    QFETCH(const QString, what);
    QFETCH(const QString, reason);

    Installation installation;
    SampleUpdate update = installation.update();
    const auto store = update.changeZip;
    if (what == u"none")
        installation.writeArchive("no archive");
    if (what == u"absent")
        QFile::remove(installation.archive());
    if (what == u"forged")
        installation.writeArchive(update.archive(KeyPair()));
    if (what == u"changed") {
        // The last file: all others are staged by then.
        update.changeZip = [store](ZipBuilder &zip) {
            store(zip);
            for (ZipEntry &entry : zip.entries) {
                if (entry.name == "styles/moderne/style.dll")
                    entry.content = "ONLY the new one";
            }
        };
        installation.writeArchive(update.archive(installation.keys()));
    }
    if (what == u"same") {
        update.version = "1.0.0";
        installation.writeArchive(update.archive(installation.keys()));
    }
    QMap<QString, QByteArray> before = installation.oldState();
    if (what == u"installed") {
        before[u"liste.txt"_s].replace("1.0.0", "1.0.1");
        Files::write(installation.folder() + u"/liste.txt"_s, before.value(u"liste.txt"_s));
    }

    const Installation::Outcome outcome = installation.runUpdater();
    QCOMPARE(outcome.exitCode, int(Refused));
    QVERIFY2(outcome.errors.contains(u"Mise à jour refusée : "_s) &&
                 outcome.errors.contains(reason),
             qPrintable(outcome.errors));
    QCOMPARE(installation.startsOf(1), kOld);
    QVERIFY(installation.state() == before);
    QVERIFY(!installation.hasRemains());
}

void TestLauncherUpdater::refusesALauncherUnderAnotherName()
{
    Installation installation;
    const QString name = u"Mon lanceur à moi.exe"_s;
    QVERIFY(QFile::rename(installation.folder() + u'/' + kLauncher,
                          installation.folder() + u'/' + name));
    const auto before = installation.state();
    const Installation::Outcome outcome =
        installation.run(kUpdater, {installation.archive(), installation.folder(), name});
    QCOMPARE(outcome.exitCode, int(Refused));
    QVERIFY(outcome.errors.contains(name + u" ne fait pas partie de la mise à jour"_s));
    QCOMPARE(installation.startsOf(1), kOld);
    QVERIFY(installation.state() == before);
}

void TestLauncherUpdater::refusesAnUpdateWithoutTheUpdater()
{
    Installation installation;
    SampleUpdate update = installation.update();
    update.files.remove(Installation::kUpdater);
    installation.writeArchive(update.archive(installation.keys()));
    const Installation::Outcome outcome = installation.runUpdater();
    QCOMPARE(outcome.exitCode, int(Refused));
    QVERIFY(outcome.errors.contains(kUpdater + u" ne fait pas partie de la mise à jour"_s));
    expectUntouched(installation);
}

void TestLauncherUpdater::keepsOldFilesWithoutTheirList_data()
{
    QTest::addColumn<QByteArray>("list");

    QTest::newRow("no list") << QByteArray();
    QTest::newRow("a list that is damaged") << QByteArray("veyra-lanceur 1\n1.0.0\n");
}

void TestLauncherUpdater::keepsOldFilesWithoutTheirList()
{
    QFETCH(const QByteArray, list);
    Installation installation;
    const QString path = installation.folder() + u"/liste.txt"_s;
    QVERIFY(QFile::remove(path));
    if (!list.isEmpty())
        Files::write(path, list);

    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    QCOMPARE(installation.startsOf(1), kNew);
    auto expected = installation.newState();
    for (const QString &name : {u"licences/"_s, u"licences/anciennes/"_s,
                                u"licences/anciennes/Zlib.txt"_s, u"tls/qschannel.dll"_s})
        expected.insert(name, installation.oldState().value(name));
    QVERIFY(installation.state() == expected);
}

void TestLauncherUpdater::waitsForTheLauncher()
{
    Installation installation;
    QProcess launcher;
    QProcessEnvironment environment = installation.environment;
    // Wine takes its time to start the updater meanwhile.
    environment.insert(u"VEYRA_PROBE_HANG"_s, Platform::isWine() ? u"5000"_s : u"600"_s);
    launcher.setProcessEnvironment(environment);
    QVERIFY(Platform::start(launcher, installation.folder() + u'/' + kLauncher));
    QCOMPARE(installation.startsOf(1), kOld);

    const Installation::Outcome outcome = installation.runUpdater();
    QCOMPARE(outcome.exitCode, int(Done));
    QVERIFY(outcome.errors.startsWith(u"Attente de la fermeture du launcher...\nVérification"_s));
    QVERIFY(launcher.waitForFinished());
    QCOMPARE(installation.startsOf(1), kNew);
    QVERIFY(installation.state() == installation.newState());
}

void TestLauncherUpdater::namesTheLauncherThatDoesNotEnd()
{
    Installation installation;
    installation.environment.insert(u"VEYRA_PROBE_WAIT"_s, u"300"_s);
    QProcess launcher;
    QProcessEnvironment environment = installation.environment;
    environment.insert(u"VEYRA_PROBE_HANG"_s, u"60000"_s);
    launcher.setProcessEnvironment(environment);
    QVERIFY(Platform::start(launcher, installation.folder() + u'/' + kLauncher));
    QCOMPARE(installation.startsOf(1), kOld);

    const Installation::Outcome outcome = installation.runUpdater();
    QCOMPARE(outcome.exitCode, int(StillRunning));
#ifdef Q_OS_WIN
    const auto name = kLauncher;
#else
    const auto name = u"VeyraLauncher.e"_s; // the kernel keeps 15 characters
#endif
    QVERIFY2(outcome.errors.contains(u"le launcher est encore ouvert (%1, processus %2)"_s.arg(
                 name, QString::number(launcher.processId()))),
             qPrintable(outcome.errors));
    launcher.kill();
    QVERIFY(launcher.waitForFinished());
    QVERIFY(installation.state() == installation.oldState());
    QVERIFY(!installation.hasRemains());
    QCOMPARE(installation.startsOf(0), QStringList());
}

void TestLauncherUpdater::doesNotRunTwiceInAFolder()
{
    Installation installation;
    installation.environment.insert(u"VEYRA_PROBE_WAIT"_s, u"300"_s);
    const QByteArray good = Files::read(installation.archive());
    installation.writeArchive("no archive");
    QCOMPARE(installation.runUpdater().exitCode, int(Refused));
    QCOMPARE(installation.startsOf(1), kOld);
    installation.writeArchive(good);
    {
        Platform::FolderLock other;
        QVERIFY(other.tryLock(installation.folder().toStdString()));
        const Installation::Outcome outcome = installation.runUpdater();
        QCOMPARE(outcome.exitCode, int(StillRunning));
        QVERIFY(outcome.errors.contains(u"une autre mise à jour du launcher est en cours"_s));
        // What the other one has written stays, with this one's lines behind.
        QVERIFY2(QRegularExpression(u"refusée : archive incohérente.*autre mise à jour"_s,
                                    QRegularExpression::DotMatchesEverythingOption)
                     .match(outcome.log)
                     .hasMatch(),
                 qPrintable(outcome.log));
        QVERIFY(installation.state() == installation.oldState());
    }
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    QCOMPARE(installation.startsOf(1), kNew);
}

/// So that it can be installed again while the reason is shown.
void TestLauncherUpdater::letsGoOfTheFolderWhereItTellsToInstallAgain_data()
{
    QTest::addColumn<QByteArray>("journal");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("the launcher is to be installed again")
        << QByteArray("nonsense") << int(RollBackFailed);
    QTest::newRow("the old launcher is started afterwards") << QByteArray() << int(Refused);
}

void TestLauncherUpdater::letsGoOfTheFolderWhereItTellsToInstallAgain()
{
    QFETCH(const QByteArray, journal);
    QFETCH(const int, exitCode);

    Installation installation;
    installation.writeArchive("no archive");
    if (!journal.isEmpty())
        Files::write(installation.folder() + u"/.veyra-maj/journal.txt"_s, journal);
    int shown = 0;
    bool isFree = false;
    whileAFailureIsShown = [&] {
        ++shown;
        // On Windows a lock is a thread's own.
        std::thread([&] {
            Platform::FolderLock other;
            isFree = other.tryLock(installation.folder().toStdString());
        }).join();
    };
    const QString workingDirectory = QDir::currentPath();
    const QByteArray data = qgetenv("XDG_DATA_HOME");
    const auto reset = qScopeGuard([&] {
        whileAFailureIsShown = {};
        QDir::setCurrent(workingDirectory);
        qputenv("XDG_DATA_HOME", data);
        qunsetenv("VEYRA_PROBE_RECORD");
    });
    for (const char *const name : {"XDG_DATA_HOME", "VEYRA_PROBE_RECORD"})
        qputenv(name, installation.environment.value(QString::fromUtf8(name)).toUtf8());

    UpdaterSettings settings;
    settings.version = "1.0.0";
    settings.target = SampleUpdate::kTarget;
    settings.keys = {installation.keys().publicKey()};
    const auto code = runUpdater({installation.archive().toStdString(),
                                  installation.folder().toStdString(), Installation::kLauncher},
                                 settings);
    QCOMPARE(int(code), exitCode);
    QCOMPARE(shown, 1);
    const bool isStarted = exitCode == Refused;
    QCOMPARE(isFree, !isStarted);
    if (isStarted)
        expectUntouched(installation);
}

void TestLauncherUpdater::preparesNothingOnAFullDisk()
{
#ifdef Q_OS_UNIX
    Installation installation;
    installation.prepareProcess = [](QProcess &process) {
        process.setChildProcessModifier([] {
            std::signal(SIGXFSZ, SIG_IGN);
            constexpr rlim_t kLongestFile = 65536;
            const rlimit limit{kLongestFile, kLongestFile};
            setrlimit(RLIMIT_FSIZE, &limit);
        });
    };
    const Installation::Outcome outcome = installation.runUpdater();
    QCOMPARE(outcome.exitCode, int(NotPrepared));
    QVERIFY(outcome.errors.contains(u"Mise à jour impossible : impossible d'écrire "_s));
    expectUntouched(installation);
#else
    QSKIP("Needs a limit of the size of files");
#endif
}

void TestLauncherUpdater::preparesNothingWithoutSpace()
{
    Installation installation;
    const Installation::Outcome outcome = installation.runUpdater(u"space=3145728"_s);
    QCOMPARE(outcome.exitCode, int(NotPrepared));
    const QRegularExpression text(u"il faut (\\d+) Mo libres sur le disque, il en reste 3\\."_s);
    const QRegularExpressionMatch match = text.match(outcome.errors);
    QVERIFY2(match.hasMatch(), qPrintable(outcome.errors));
    // The files, a copy of the launcher, two of the updater and 16 MB to spare.
    qint64 bytes = 0;
    for (const QByteArray &content : installation.newState())
        bytes += content.size();
    for (const QString &program : {kLauncher, kUpdater, kUpdater})
        bytes += installation.oldState().value(program).size();
    constexpr qint64 kMegabyte = 1048576;
    const qint64 megabytes = bytes / kMegabyte + 16;
    QVERIFY(qAbs(match.captured(1).toLongLong() - megabytes) <= 1);
    expectUntouched(installation);
}

void TestLauncherUpdater::preparesNothingInAFolderThatIsReadOnly()
{
#ifdef Q_OS_UNIX
    Installation installation;
    // Nobody else than root may write anywhere: the updater gets the rights of a stranger.
    const bool isRoot = geteuid() == 0;
    if (isRoot) {
        installation.prepareProcess = [](QProcess &process) {
            process.setChildProcessModifier([] {
                constexpr uid_t kNobody = 65534;
                if (setuid(kNobody) != 0)
                    ::_exit(99);
            });
        };
        installation.letStrangersIn();
    } else {
        QVERIFY(QFile::setPermissions(installation.folder(), QFile::ReadOwner | QFile::ExeOwner));
    }
    const Installation::Outcome outcome = installation.runUpdater();
    QFile::setPermissions(installation.folder(),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    if (outcome.exitCode == -1)
        QSKIP("A stranger cannot reach the folder: one around it keeps others out");
    QCOMPARE(outcome.exitCode, int(NotPrepared));
    QVERIFY2(
        outcome.errors.contains(u"impossible d'écrire dans le dossier "_s + installation.folder()),
        qPrintable(outcome.errors));
    QVERIFY(installation.state() == installation.oldState());
    QVERIFY(!installation.hasRemains());
#else
    QSKIP("Needs rights as Unix has them");
#endif
}

void TestLauncherUpdater::preparesNothingWhereAFolderHasAFilesName()
{
    Installation installation;
    const QString path = installation.folder() + u"/Qt6Svg.dll"_s;
    QVERIFY(QDir().mkdir(path));
    const Installation::Outcome outcome = installation.runUpdater();
    QCOMPARE(outcome.exitCode, int(NotPrepared));
    QVERIFY(outcome.errors.contains(u"un dossier porte le nom du fichier "_s + path));
    QVERIFY(QDir().rmdir(path));
    expectUntouched(installation);
}

void TestLauncherUpdater::clearsWhatAnEarlierRunStaged()
{
    Installation installation;
    Files::write(installation.folder() + u"/.veyra-maj/nouveau/a/b.dll"_s, "left");
    Files::write(installation.folder() + u"/.veyra-maj/journal.partiel"_s, "left");
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    QCOMPARE(installation.startsOf(1), kNew);
    QVERIFY(installation.state() == installation.newState());
    QVERIFY(!installation.hasRemains());
}

void TestLauncherUpdater::waitsForEveryFileWhileItPrepares()
{
    Installation installation;
    installation.environment.insert(u"VEYRA_PROBE_RETRY"_s, u"5000"_s);
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    const int calls = installation.callCount();
    QCOMPARE(installation.startsOf(1), kNew);

    for (int call = 1; call < calls / 2; call += 3 * kStride) {
        installation.restore();
        const Installation::Outcome outcome = installation.runUpdater(u"busy=%1"_s.arg(call));
        // Only what is being written already, by this program alone, is not tried again.
        const bool isWriting = outcome.errors.contains(u"impossible d'écrire "_s) &&
                               outcome.errors.contains(u"/.veyra-maj/"_s);
        QVERIFY2(outcome.exitCode == (isWriting ? NotPrepared : Done), qPrintable(outcome.errors));
        QCOMPARE(installation.startsOf(1), isWriting ? kOld : kNew);
    }
}

void TestLauncherUpdater::waitsForTheLauncherToBeLetGo()
{
    Installation installation;
    installation.writeArchive("no archive");
    QFile launcher(installation.folder() + u'/' + kLauncher);
    // A program that somebody may write to does not start.
    QVERIFY(launcher.open(QFile::ReadWrite));
    Installation::Outcome outcome = installation.runUpdater();
    QCOMPARE(outcome.exitCode, int(Refused));
    QVERIFY2(outcome.errors.contains(u"n'a pas pu être démarré"_s), qPrintable(outcome.errors));
    QCOMPARE(installation.startsOf(0), QStringList());

    installation.environment.insert(u"VEYRA_PROBE_RETRY"_s, u"20000"_s);
    std::thread other([&launcher] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        launcher.close();
    });
    outcome = installation.runUpdater();
    other.join();
    QCOMPARE(outcome.exitCode, int(Refused));
    QVERIFY2(!outcome.errors.contains(u"n'a pas pu être démarré"_s), qPrintable(outcome.errors));
    QCOMPARE(installation.startsOf(1), kOld);
}

void TestLauncherUpdater::waitsForTheFilesOfOtherPrograms_data()
{
    QTest::addColumn<QString>("file");

    QTest::newRow("the archive") << u"ARCHIVE"_s;
    QTest::newRow("a library") << u"Qt6Core.dll"_s;
    QTest::newRow("the installed list") << u"liste.txt"_s;
}

void TestLauncherUpdater::waitsForTheFilesOfOtherPrograms()
{
#ifdef Q_OS_WIN
    QFETCH(const QString, file);
    Installation installation;
    installation.environment.insert(u"VEYRA_PROBE_RETRY"_s, u"20000"_s);
    const Holder holder(installation, file, 3000);
    const Installation::Outcome outcome = installation.runUpdater();
    QVERIFY2(outcome.exitCode == Done, qPrintable(outcome.errors));
    QCOMPARE(installation.startsOf(1), kNew);
    QVERIFY(installation.state() == installation.newState());
#else
    QSKIP("Here an open file keeps nobody from it");
#endif
}

void TestLauncherUpdater::tellsWhichProgramHoldsAFile_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("text");

    QTest::newRow("the archive") << u"ARCHIVE"_s << int(Refused)
                                 << u"archive introuvable ou illisible"_s;
    QTest::newRow("a library") << u"Qt6Core.dll"_s << int(RolledBack)
                               << u"impossible de déplacer"_s;
}

void TestLauncherUpdater::tellsWhichProgramHoldsAFile()
{
#ifdef Q_OS_WIN
    QFETCH(const QString, file);
    QFETCH(const int, exitCode);
    QFETCH(const QString, text);
    Installation installation;
    Installation::Outcome outcome;
    {
        const Holder holder(installation, file, 60000);
        outcome = installation.runUpdater();
        QCOMPARE(installation.startsOf(1), kOld);
    }
    QVERIFY2(outcome.exitCode == exitCode, qPrintable(outcome.errors));
    QVERIFY2(outcome.errors.contains(text) && outcome.errors.contains(u"(erreur 32)"_s),
             qPrintable(outcome.errors));
    QVERIFY(installation.state() == installation.oldState());
    QVERIFY(!installation.hasRemains());
    if (Platform::isWine())
        QSKIP("Wine does not know which program holds a file; the rest was tested");
    QVERIFY2(outcome.errors.contains(u", ouvert par "_s), qPrintable(outcome.errors));
#else
    QSKIP("Here an open file keeps nobody from it");
#endif
}

void TestLauncherUpdater::waitsForAFileToBeLetGo()
{
    Installation installation;
    installation.environment.insert(u"VEYRA_PROBE_RETRY"_s, u"5000"_s);
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    const int calls = installation.callCount();
    QCOMPARE(installation.startsOf(1), kNew);

    // Some call in the middle of the replacement.
    int retried = 0;
    for (int call = calls / 2; call < calls / 2 + 20; call += kStride) {
        installation.restore();
        QCOMPARE(installation.runUpdater(u"busy=%1"_s.arg(call)).exitCode, 0);
        QCOMPARE(installation.startsOf(1), kNew);
        QVERIFY(installation.state() == installation.newState());
        retried += installation.callCount() > calls ? 1 : 0;
    }
    QVERIFY(retried > 0);
}

void TestLauncherUpdater::undoesWhenAFileIsNotLetGo()
{
    Installation installation;
    QCOMPARE(installation.runUpdater().exitCode, int(Done));
    const int calls = installation.callCount();
    QCOMPARE(installation.startsOf(1), kNew);

    // Nothing is tried again: a file that is held once counts as held for good.
    int undone = 0;
    for (int call = calls / 2; call < calls / 2 + 20; call += kStride) {
        installation.restore();
        const Installation::Outcome outcome = installation.runUpdater(u"busy=%1"_s.arg(call));
        if (outcome.exitCode != RolledBack)
            continue;
        ++undone;
        QVERIFY(outcome.errors.contains(u"L'ancienne version a été remise en place."_s));
        expectUntouched(installation);
    }
    QVERIFY(undone > 0);
}

void TestLauncherUpdater::tellsThatTheNewLauncherDoesNotStart()
{
    Installation installation;
    SampleUpdate update = installation.update();
#ifdef Q_OS_WIN
    const QByteArray noProgram("MZ but no program");
#else
    const QByteArray noProgram("\x7f"
                               "ELF but no program");
#endif
    update.files[Installation::kLauncher] = noProgram;
    installation.writeArchive(update.archive(installation.keys()));
    const Installation::Outcome outcome = installation.runUpdater();
    QCOMPARE(outcome.exitCode, int(NotRestarted));
    QVERIFY(outcome.errors.contains(u"n'a pas pu être démarré"_s));
    QVERIFY(!installation.hasRemains());
}

void TestLauncherUpdater::theProductKnowsNoFaults()
{
    const QByteArray product = Files::read(QString::fromUtf8(PRODUCT_UPDATER));
    const QByteArray probe = Files::read(QString::fromUtf8(UPDATER_PROBE));
    QVERIFY(probe.contains("VEYRA_PROBE_FAULTS"));
    QVERIFY(!product.isEmpty());
    QVERIFY(!product.contains("VEYRA_PROBE"));
    QVERIFY(!product.contains("libQt") && !product.contains("Qt6"));
}

void TestLauncherUpdater::theProductRefusesForeignUpdates()
{
    Installation installation;
    const QString path = installation.folder() + u'/' + kUpdater;
    QVERIFY(QFile::remove(path));
    QVERIFY(QFile::copy(QString::fromUtf8(PRODUCT_UPDATER), path));
    const Installation::Outcome outcome = installation.run(
        kUpdater, {u"--silent"_s, installation.archive(), installation.folder(), kLauncher});
    QCOMPARE(outcome.exitCode, int(Refused));
    QVERIFY2(outcome.log.contains(u"" PRODUCT_REFUSAL ""_s), qPrintable(outcome.log));
    QCOMPARE(installation.startsOf(1), kOld);
    QVERIFY(QFile::remove(path));
    auto expected = installation.oldState();
    expected.remove(kUpdater);
    QVERIFY(installation.state() == expected);
}

VEYRA_CORE_TEST_MAIN(TestLauncherUpdater)
#include "TestLauncherUpdater.moc"
