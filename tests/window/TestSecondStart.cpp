#include "tests/support/Desktop.h"
#include "tests/support/DrivenLauncher.h"
#include "tests/support/Files.h"
#include "tests/support/FullDisk.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Platform.h"
#include "tests/support/StandIn.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageBox>
#include <QTest>

#ifdef Q_OS_UNIX
#include <csignal>
#endif

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kEndTimeout = 5s;
constexpr auto kQuitTimeout = 60s;
// A second start that does not find the first stays for good.
constexpr auto kHandOverTimeout = 60s;
// Shorter than the launcher waits for one that does not answer.
constexpr auto kNoWait = 4s;

constexpr auto kVersionPath = "/api/launcher_version.json";
constexpr auto kStatusPath = "/api/status.php";
constexpr auto kNewsPath = "/api/news.php";
constexpr auto kClientPath = "/client/DofusClient.zip";
constexpr auto kManifestPath = "/updates/version.json";

const auto kChecking = u"Vérification des mises à jour du launcher..."_s;
const auto kDownloading = u"Connexion au serveur..."_s; // what is shown before much has arrived
const auto kExtracting = u"Extraction du client en cours..."_s;
const auto kReady = u"Prêt à jouer !"_s;

const QStringList kInstalledClient{u"DofusInvoker.swf"_s, u"data/"_s, u"data/carte.d2p"_s};

QByteArray clientArchive()
{
    const QTemporaryDir folder;
    Files::write(folder.filePath(u"DofusInvoker.swf"_s), "client");
    Files::write(folder.filePath(u"data/carte.d2p"_s), Files::noise(100'000));
    return Files::zipped(folder.path());
}

/// Of which nothing but the beginning arrives, until HttpServer::release().
HttpAnswer heldClient()
{
    return HttpAnswer::ok(clientArchive()).heldAfter(50'000);
}

QByteArray newerVersion()
{
    return R"({"version": "1.0.1", "download_url": "http://veyra.test/launcher.zip"})";
}

void installClient(const DrivenLauncher &launcher)
{
    Files::write(launcher.clientFolder() + u"/DofusInvoker.swf"_s, "client");
}

void useGameFolder(const DrivenLauncher &launcher, const QString &folder)
{
    const QJsonObject settings{{u"dofus_path"_s, folder}};
    Files::write(launcher.configFile(), QJsonDocument(settings).toJson());
}

/// What a launcher leaves on the disk while it runs, or when it crashes. On Windows a file whose
/// reader is just ending may stay a moment longer than the one who removed it.
QStringList lockFiles(const DrivenLauncher &launcher)
{
    QStringList found;
    for (const QString &folder :
         {QFileInfo(launcher.configFile()).path(), launcher.clientFolder()}) {
        QDirIterator files(folder, {u"*.lock"_s}, QDir::Files | QDir::Hidden);
        while (files.hasNext())
            found.append(files.next());
    }
    return found;
}

/// Until some of the archive has arrived: what the server holds back it can release from then on.
bool waitForArchive(const QString &gameFolder)
{
    const QString archive = gameFolder + u"/DofusClient.zip"_s;
    return QTest::qWaitFor([&archive] { return QFileInfo(archive).size() > 0; }, 60000);
}

bool isModal(const QJsonObject &state, const QString &title)
{
    return state["modalTitle"_L1].toString() == title;
}

bool waitForModal(DrivenLauncher &launcher, const QString &title)
{
    return launcher.waitForState(
        [&title](const QJsonObject &state) { return isModal(state, title); });
}

/// What tells a first launcher that nobody has disturbed it.
QString progressOf(const QJsonObject &state)
{
    return u"%1, %2 of %3, %4, %5"_s.arg(state["label"_L1].toString())
        .arg(state["value"_L1].toInt())
        .arg(state["maximum"_L1].toInt())
        .arg(state["play"_L1].toString(), state["modalTitle"_L1].toString());
}

} // namespace

/// Several launchers at once, each a real process.
class TestSecondStart : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void raisesTheFirst_data();
    void raisesTheFirst();
    void ofTwoAtTheSameMomentOneStays();
    void bringsTheFirstToTheFrontOfOtherWindows();

    void aCrashLeavesNoObstacle_data();
    void aCrashLeavesNoObstacle();
    void goesOnWhereTheFirstDoesNotAnswer_data();
    void goesOnWhereTheFirstDoesNotAnswer();
    void goesOnWhereTheFirstIsEnding_data();
    void goesOnWhereTheFirstIsEnding();
    void startsWhereNoLockCanBeMade_data();
    void startsWhereNoLockCanBeMade();

    void installationsInTwoFoldersDoNotMeet();
    void otherSettingsAreAnotherLauncher();
    void oneInstallationAtATimeInAGameFolder();
    void aCrashFreesTheGameFolder();

private:
    std::unique_ptr<HttpServer> m_server;
};

void TestSecondStart::init()
{
    m_server = std::make_unique<HttpServer>();
    m_server->answer(kVersionPath, HttpAnswer::ok(R"({"version": "1.0.0"})"));
    m_server->answer(kClientPath, heldClient());
    m_server->answer(kManifestPath, HttpAnswer::ok(R"({"files": []})"));
    m_server->answer(kStatusPath, HttpAnswer::ok(R"({"online": true, "players": 15})"));
    m_server->answer(kNewsPath, HttpAnswer::ok("[]"));
}

// --- The window that is there already ---

namespace {

/// One phase of the first launcher: what the server and the folder hold, and how to see that it is
/// reached.
struct Phase
{
    std::function<void(HttpServer &, DrivenLauncher &)> prepare;
    std::function<bool(DrivenLauncher &)> reach;
};

} // namespace

void TestSecondStart::raisesTheFirst_data()
{
    QTest::addColumn<Phase>("phase");

    QTest::newRow("during the version check")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     server.answer(kVersionPath, HttpAnswer::never());
                 },
                 [](DrivenLauncher &launcher) { return launcher.waitForLabel(kChecking); }};
    QTest::newRow("while a newer launcher is asked about")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     server.answer(kVersionPath, HttpAnswer::ok(newerVersion()));
                 },
                 [](DrivenLauncher &launcher) {
                     return waitForModal(launcher, u"Mise à jour disponible"_s);
                 }};
    QTest::newRow("while the client is downloaded")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     server.answer(kClientPath, HttpAnswer::never());
                 },
                 [](DrivenLauncher &launcher) { return launcher.waitForLabel(kDownloading); }};
    QTest::newRow("while the client is unpacked")
        << Phase{[](HttpServer &server, DrivenLauncher &launcher) {
                     server.answer(kClientPath, HttpAnswer::ok(clientArchive()));
                     launcher.environment().insert(
                         u"PATH"_s, Platform::searchPathWith(launcher.folder() + u"/bin"_s));
                 },
                 [](DrivenLauncher &launcher) { return launcher.waitForLabel(kExtracting); }};
    QTest::newRow("while a failure is shown")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     server.answer(kClientPath, HttpAnswer::status(404));
                 },
                 [](DrivenLauncher &launcher) {
                     return waitForModal(launcher, u"Erreur de téléchargement"_s);
                 }};
    QTest::newRow("while the settings are open")
        << Phase{[](HttpServer &, DrivenLauncher &launcher) { installClient(launcher); },
                 [](DrivenLauncher &launcher) {
                     if (!launcher.waitForLabel(kReady))
                         return false;
                     launcher.ask(u"click"_s, {{u"button"_s, u"settingsButton"_s}});
                     return waitForModal(launcher, u"Paramètres"_s);
                 }};
    QTest::newRow("when the game is ready")
        << Phase{[](HttpServer &, DrivenLauncher &launcher) { installClient(launcher); },
                 [](DrivenLauncher &launcher) { return launcher.waitForLabel(kReady); }};
}

void TestSecondStart::raisesTheFirst()
{
    QFETCH(const Phase, phase);
    DrivenLauncher first(*m_server);
    // On the search path in one of the phases only.
    StandIn powershell(first.folder() + u"/bin/"_s + Platform::executableName(u"powershell"_s));
    powershell.behave({.hangs = true});
    phase.prepare(*m_server, first);
    QVERIFY(first.start());
    QVERIFY(phase.reach(first));
    first.ask(u"minimize"_s);
    const QJsonObject before = first.state();
    QVERIFY(before["minimized"_L1].toBool());
    const QStringList files = Files::tree(first.clientFolder());

    // Again and again: the first goes on answering.
    for (int i = 0; i < 3; ++i) {
        DrivenLauncher second = first.again();
        QElapsedTimer elapsed;
        elapsed.start();
        second.launch();
        QVERIFY(second.waitForEnd(kHandOverTimeout));
        qInfo("It left after %lld ms", elapsed.elapsed());
        QCOMPARE(second.faultsOfItsEnd(), QString());
    }

    const QJsonObject after = first.state();
    QVERIFY(after["visible"_L1].toBool());
    QVERIFY(!after["minimized"_L1].toBool());
    QVERIFY(after["active"_L1].toBool());
    QCOMPARE(progressOf(after), progressOf(before));
    QCOMPARE(Files::tree(first.clientFolder()), files);
    QTRY_COMPARE(m_server->requestCount(kNewsPath), 1); // every window asks once
    first.ask(u"close"_s);
    QVERIFY(first.waitForEnd(kEndTimeout));
    QCOMPARE(first.faultsOfItsEnd(), QString());
    QTRY_COMPARE(lockFiles(first), QStringList());
}

void TestSecondStart::ofTwoAtTheSameMomentOneStays()
{
    DrivenLauncher one(*m_server);
    DrivenLauncher other = one.again();
    one.launch();
    other.launch();
    QVERIFY(waitForArchive(one.clientFolder()));
    QTRY_VERIFY_WITH_TIMEOUT(one.isRunning() != other.isRunning(), 60000);
    DrivenLauncher &stayed = one.isRunning() ? one : other;
    DrivenLauncher &left = one.isRunning() ? other : one;
    QCOMPARE(left.faultsOfItsEnd(), QString());
    QCOMPARE(m_server->requestCount(kClientPath), 1);

    m_server->release(kClientPath);
    QVERIFY(stayed.waitForLabel(kReady));
    QCOMPARE(Files::tree(stayed.clientFolder()), kInstalledClient);
    QCOMPARE(m_server->requestCount(kVersionPath), 1);
    QTRY_COMPARE(m_server->requestCount(kNewsPath), 1);
    stayed.ask(u"close"_s);
    QVERIFY(stayed.waitForEnd(kEndTimeout));
    QCOMPARE(stayed.faultsOfItsEnd(), QString());
}

namespace {

bool isActive(const QJsonObject &state)
{
    return state["active"_L1].toBool();
}

} // namespace

void TestSecondStart::bringsTheFirstToTheFrontOfOtherWindows()
{
    if (Platform::kIsWindows)
        QSKIP("A test of X11");
    const Desktop desktop;
    if (!desktop.isReady())
        QSKIP("This takes Xvfb and openbox");

    DrivenLauncher first(*m_server);
    first.showOn(desktop);
    installClient(first);
    QVERIFY(first.start());
    QVERIFY(first.waitForState(isActive));
    DrivenLauncher above(*m_server);
    above.showOn(desktop);
    installClient(above);
    QVERIFY(above.start());
    QVERIFY(above.waitForState(isActive));
    QVERIFY(first.waitForState([](const QJsonObject &state) { return !isActive(state); }));

    for (const bool minimized : {false, true}) {
        if (minimized) {
            first.ask(u"minimize"_s);
            QVERIFY(above.waitForState(isActive));
        }
        DrivenLauncher second = first.again();
        second.launch();
        QVERIFY(second.waitForEnd(kHandOverTimeout));
        QCOMPARE(second.faultsOfItsEnd(), QString());
        QVERIFY(first.waitForState(isActive));
        QVERIFY(!first.state()["minimized"_L1].toBool());
        QVERIFY(above.waitForState([](const QJsonObject &state) { return !isActive(state); }));
    }
}

// --- A first one that is no longer any use ---

void TestSecondStart::aCrashLeavesNoObstacle_data()
{
    QTest::addColumn<QString>("phase");
    QTest::addColumn<bool>("emptied");
    QTest::addColumn<bool>("numberLivesOn");
    QTest::newRow("when the game was ready") << kReady << false << false;
    QTest::newRow("during the download") << kDownloading << false << false;
    QTest::newRow("during the unpacking") << kExtracting << false << false;
    QTest::newRow("during the download, and the power went off") << kDownloading << true << false;
    QTest::newRow("during the download, and its process number is another launcher's now")
        << kDownloading << false << true;
}

void TestSecondStart::aCrashLeavesNoObstacle()
{
    QFETCH(const QString, phase);
    QFETCH(const bool, emptied);
    QFETCH(const bool, numberLivesOn);
    // On Windows all have one settings folder, and making a launcher empties it.
    DrivenLauncher bystander(*m_server);
    DrivenLauncher first(*m_server);
    StandIn powershell(first.folder() + u"/bin/"_s + Platform::executableName(u"powershell"_s));
    powershell.behave({.hangs = true});
    if (phase == kReady)
        installClient(first);
    if (phase == kExtracting) {
        m_server->answer(kClientPath, HttpAnswer::ok(clientArchive()));
        first.environment().insert(u"PATH"_s, Platform::searchPathWith(first.folder() + u"/bin"_s));
    }
    QVERIFY(first.start());
    QVERIFY(first.waitForLabel(phase));
    const qint64 oldNumber = first.processId();
    first.kill();
    const QStringList locks = lockFiles(first);
    QVERIFY(!locks.isEmpty());

    if (numberLivesOn)
        QVERIFY(bystander.start());
    for (const QString &file : locks) {
        // Wine lets go of a killed program's files a moment after its end.
        QTRY_VERIFY(QFile(file).open(QIODevice::ReadWrite));
        if (emptied)
            Files::write(file, {});
        if (numberLivesOn) {
            QByteArray content = Files::read(file);
            content.replace(QByteArray::number(oldNumber),
                            QByteArray::number(bystander.processId()));
            Files::write(file, content);
        }
    }

    // The client's own folder alone counts here, not what the orphaned unpacker does.
    m_server->answer(kClientPath, HttpAnswer::ok(clientArchive()));
    DrivenLauncher second = first.again();
    second.environment().insert(u"PATH"_s, qEnvironmentVariable("PATH"));
    QVERIFY(second.start());
    QVERIFY(second.waitForLabel(kReady));
    // It has taken the place of the first.
    DrivenLauncher third = second.again();
    third.launch();
    QVERIFY(third.waitForEnd(kHandOverTimeout));
    QCOMPARE(third.faultsOfItsEnd(), QString());

    second.ask(u"close"_s);
    QVERIFY(second.waitForEnd(kEndTimeout));
    QCOMPARE(second.faultsOfItsEnd(), QString());
    bystander.ask(u"close"_s);
    QVERIFY(bystander.waitForEnd(kEndTimeout));
    QTRY_COMPARE(lockFiles(second), QStringList());
    if (phase != kReady)
        QCOMPARE(Files::tree(second.clientFolder()), kInstalledClient);
}

void TestSecondStart::goesOnWhereTheFirstDoesNotAnswer_data()
{
    QTest::addColumn<bool>("isStopped");
    QTest::newRow("its event loop stands still") << false;
    QTest::newRow("the system has stopped it") << true;
}

void TestSecondStart::goesOnWhereTheFirstDoesNotAnswer()
{
    QFETCH(const bool, isStopped);
    if (isStopped && Platform::kIsWindows)
        QSKIP("No signals here");
    DrivenLauncher first(*m_server);
    QVERIFY(first.start());
    QVERIFY(first.waitForLabel(kDownloading));
    if (isStopped) {
#ifdef Q_OS_UNIX
        ::kill(pid_t(first.processId()), SIGSTOP);
#endif
    } else {
        first.ask(u"blockLoop"_s);
    }

    DrivenLauncher second = first.again();
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(second.start());
    // The first may go on some day: its archive is left alone.
    const QString error = u"Erreur: Impossible de créer le fichier %1"_s.arg(second.clientFolder() +
                                                                             u"/DofusClient.zip"_s);
    QVERIFY(second.waitForLabel(error));
    qInfo("It went on after less than %lld ms", elapsed.elapsed());
    QCOMPARE(m_server->requestCount(kClientPath), 1);
    second.ask(u"close"_s);
    QVERIFY(second.waitForEnd(kEndTimeout));
    QCOMPARE(second.faultsOfItsEnd(), QString());
    first.kill();
}

void TestSecondStart::goesOnWhereTheFirstIsEnding_data()
{
    QTest::addColumn<bool>("isHeldUp");
    QTest::newRow("at once") << false;
    QTest::newRow("later, because a verification is stuck in the system") << true;
}

void TestSecondStart::goesOnWhereTheFirstIsEnding()
{
    QFETCH(const bool, isHeldUp);
    DrivenLauncher first(*m_server);
    installClient(first);
    QVERIFY(first.start());
    QVERIFY(first.waitForLabel(kReady));
    if (isHeldUp)
        first.ask(u"blockPool"_s);
    first.ask(u"close"_s);

    DrivenLauncher second = first.again();
    QVERIFY(second.start());
    QVERIFY(second.waitForLabel(kReady));
    QVERIFY(first.waitForEnd(kQuitTimeout));
    QCOMPARE(first.faultsOfItsEnd(), QString());
    // The first has not taken the second's place with it.
    DrivenLauncher third = second.again();
    third.launch();
    QVERIFY(third.waitForEnd(kHandOverTimeout));
    QVERIFY(second.isRunning());
    second.ask(u"close"_s);
    QVERIFY(second.waitForEnd(kEndTimeout));
    QCOMPARE(second.faultsOfItsEnd(), QString());
}

void TestSecondStart::startsWhereNoLockCanBeMade_data()
{
    QTest::addColumn<bool>("diskIsFull");
    QTest::newRow("there can be no settings folder") << false;
    QTest::newRow("the disk is full") << true;
}

void TestSecondStart::startsWhereNoLockCanBeMade()
{
    QFETCH(const bool, diskIsFull);
    if (Platform::kIsWindows)
        QSKIP("The settings folder cannot be moved here, nor the disk filled");
    DrivenLauncher launcher(*m_server);
    installClient(launcher);
    const auto timeToStart = [&launcher] {
        QElapsedTimer elapsed;
        elapsed.start();
        launcher.start();
        return elapsed.elapsed();
    };
    const auto usualTime = timeToStart();
    launcher.ask(u"close"_s);
    QVERIFY(launcher.waitForEnd(kQuitTimeout));

    std::unique_ptr<FullDisk> fullDisk;
    if (diskIsFull) {
        fullDisk = std::make_unique<FullDisk>(0);
    } else {
        const QString file = launcher.folder() + u"/file"_s;
        Files::write(file, {});
        launcher.environment().insert(u"XDG_DATA_HOME"_s, file);
    }
    const auto time = timeToStart();
    fullDisk.reset();
    QVERIFY(launcher.waitForLabel(kReady));
    QCOMPARE_LT(time, usualTime + qint64(std::chrono::milliseconds(kNoWait).count()));
    launcher.ask(u"close"_s);
    QVERIFY(launcher.waitForEnd(kEndTimeout));
    QCOMPARE(launcher.faultsOfItsEnd(), QString());
}

// --- Launchers that are not the same ---

void TestSecondStart::installationsInTwoFoldersDoNotMeet()
{
    DrivenLauncher one(*m_server);
    DrivenLauncher other(*m_server);
    // One user's settings.
    other.environment().insert(u"XDG_DATA_HOME"_s, one.environment().value(u"XDG_DATA_HOME"_s));
    QVERIFY(one.start());
    QVERIFY(waitForArchive(one.clientFolder()));
    QVERIFY(other.start());
    QVERIFY(waitForArchive(other.clientFolder()));
    m_server->release(kClientPath);
    for (DrivenLauncher *launcher : {&one, &other}) {
        QVERIFY(launcher->waitForLabel(kReady));
        QCOMPARE(Files::tree(launcher->clientFolder()), kInstalledClient);
        launcher->ask(u"close"_s);
        QVERIFY(launcher->waitForEnd(kEndTimeout));
        QCOMPARE(launcher->faultsOfItsEnd(), QString());
    }
}

void TestSecondStart::otherSettingsAreAnotherLauncher()
{
    if (Platform::kIsWindows)
        QSKIP("The settings folder cannot be moved here");
    DrivenLauncher one(*m_server);
    installClient(one);
    QVERIFY(one.start());
    QVERIFY(one.waitForLabel(kReady));
    DrivenLauncher other = one.again();
    other.environment().insert(u"XDG_DATA_HOME"_s, other.folder() + u"/other data"_s);
    QVERIFY(other.start());
    QVERIFY(other.waitForLabel(kReady));
    for (DrivenLauncher *launcher : {&one, &other}) {
        launcher->ask(u"close"_s);
        QVERIFY(launcher->waitForEnd(kEndTimeout));
        QCOMPARE(launcher->faultsOfItsEnd(), QString());
    }
}

// --- One game folder ---

void TestSecondStart::oneInstallationAtATimeInAGameFolder()
{
    DrivenLauncher one(*m_server);
    DrivenLauncher other(*m_server);
    const QString gameFolder = one.folder() + u"/Jeux partagés"_s;
    useGameFolder(one, gameFolder);
    useGameFolder(other, gameFolder);
    QVERIFY(one.start());
    QVERIFY(waitForArchive(gameFolder));
    QVERIFY(other.start());
    const QString error =
        u"Erreur: Impossible de créer le fichier %1/DofusClient.zip"_s.arg(gameFolder);
    QVERIFY(waitForModal(other, u"Erreur de téléchargement"_s));
    QCOMPARE(other.state()["boxText"_L1].toString(), error);
    QCOMPARE(other.state()["label"_L1].toString(), error);
    QCOMPARE(m_server->requestCount(kClientPath), 1);

    m_server->release(kClientPath);
    QVERIFY(one.waitForLabel(kReady));
    QCOMPARE(Files::tree(gameFolder), kInstalledClient);
    for (DrivenLauncher *launcher : {&one, &other}) {
        launcher->ask(u"close"_s);
        QVERIFY(launcher->waitForEnd(kEndTimeout));
        QCOMPARE(launcher->faultsOfItsEnd(), QString());
    }
}

void TestSecondStart::aCrashFreesTheGameFolder()
{
    DrivenLauncher one(*m_server);
    DrivenLauncher other(*m_server);
    const QString gameFolder = one.folder() + u"/Jeux partagés"_s;
    useGameFolder(one, gameFolder);
    useGameFolder(other, gameFolder);
    QVERIFY(one.start());
    QVERIFY(waitForArchive(gameFolder));
    one.kill();
    m_server->answer(kClientPath, HttpAnswer::ok(clientArchive()));
    QVERIFY(other.start());
    QVERIFY(other.waitForLabel(kReady));
    QCOMPARE(Files::tree(gameFolder), kInstalledClient);
}

VEYRA_CORE_TEST_MAIN(TestSecondStart)
#include "TestSecondStart.moc"
