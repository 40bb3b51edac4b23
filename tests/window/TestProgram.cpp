#include "tests/support/DrivenLauncher.h"
#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Platform.h"
#include "tests/support/StandIn.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageBox>
#include <QTest>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Generous for a busy machine. What must not hold up the end would take far longer.
constexpr auto kEndTimeout = 5s;
constexpr auto kQuitTimeout = 60s;
constexpr qint64 kHugeFile = 64LL * 1024 * 1024 * 1024;

constexpr auto kVersionPath = "/api/launcher_version.json";
constexpr auto kLauncherPath = "/launcher.zip";
constexpr auto kClientPath = "/client/DofusClient.zip";
constexpr auto kManifestPath = "/updates/version.json";

QByteArray newerVersion(bool required)
{
    const QJsonObject record{{u"version"_s, u"1.0.1"_s},
                             {u"download_url"_s, u"http://veyra.test/launcher.zip"_s},
                             {u"changelog"_s, u"Notes"_s},
                             {u"required"_s, required}};
    return QJsonDocument(record).toJson();
}

QJsonObject manifestEntry(const QString &name, const QByteArray &content)
{
    return {{u"name"_s, name}, {u"hash"_s, Files::sha256(content)}};
}

QByteArray manifest(const QJsonArray &files)
{
    return QJsonDocument(QJsonObject{{u"files"_s, files}}).toJson();
}

QByteArray smallClient()
{
    const QTemporaryDir folder;
    Files::write(folder.filePath(u"DofusInvoker.swf"_s), "client");
    return Files::zipped(folder.path());
}

/// A file of this size that takes no room on the disk.
void writeSparse(const QString &path, qint64 size)
{
    Files::write(path, {});
    if (!QFile::resize(path, size))
        qFatal("Cannot make %s that large", qPrintable(path));
}

bool isModal(const QJsonObject &state, const QString &title)
{
    return state["modalTitle"_L1].toString() == title;
}

int countOf(const QImage &image, const QColor &color)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            count += image.pixel(x, y) == color.rgb() ? 1 : 0;
    }
    return count;
}

} // namespace

/// The real program in processes of their own.
class TestProgram : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void identity();
    void palette_data();
    void palette();
    void toolTipIsDarkOnWhite();
    void selectionIsGreen();

    void firstStartLeavesAnEmptyClientFolder();
    void fromFirstStartToGameRunning();
    void quitsForTheUpdater();
    void paintsDuringAVerificationOnOneProcessor();

    void endsWithTheEventLoopsCode_data();
    void endsWithTheEventLoopsCode();
    void closing_data();
    void closing();

private:
    QJsonObject askFreshLauncher(const QString &question);

    std::unique_ptr<HttpServer> m_server;
};

void TestProgram::init()
{
    m_server = std::make_unique<HttpServer>();
    for (const char *path : {kVersionPath, kClientPath, kManifestPath, kLauncherPath})
        m_server->answer(path, HttpAnswer::never());
    m_server->answer("/api/status.php", HttpAnswer::ok(R"({"online": true, "players": 15})"));
    m_server->answer("/api/news.php", HttpAnswer::ok(R"(["Une nouvelle de ce serveur"])"));
}

QJsonObject TestProgram::askFreshLauncher(const QString &question)
{
    DrivenLauncher launcher(*m_server);
    if (!launcher.start())
        return {};
    QJsonObject answer = launcher.ask(question);
    launcher.ask(u"close"_s);
    launcher.waitForEnd(kEndTimeout);
    return answer;
}

// --- How the application is set up ---

void TestProgram::identity()
{
    const QJsonObject expected{
        {u"name"_s, u"Veyra Launcher"_s}, {u"version"_s, u"1.0.0"_s},
        {u"organisation"_s, u"Veyra"_s},  {u"style"_s, u"fusion"_s},
        {u"iconIsTheLogo"_s, true},       {u"windowHasParent"_s, false},
    };
    QCOMPARE(askFreshLauncher(u"identity"_s), expected);
}

void TestProgram::palette_data()
{
    QTest::addColumn<QString>("role");
    QTest::addColumn<QString>("color");
    const QList<std::pair<QString, QString>> rows{
        {u"Window"_s, u"#121212"_s},         {u"WindowText"_s, u"#ffffff"_s},
        {u"Base"_s, u"#1e1e1e"_s},           {u"AlternateBase"_s, u"#121212"_s},
        {u"ToolTipBase"_s, u"#ffffff"_s},    {u"ToolTipText"_s, u"#121212"_s},
        {u"Text"_s, u"#ffffff"_s},           {u"Button"_s, u"#1e1e1e"_s},
        {u"ButtonText"_s, u"#ffffff"_s},     {u"BrightText"_s, u"#8bc34a"_s},
        {u"Link"_s, u"#8bc34a"_s},           {u"Highlight"_s, u"#8bc34a"_s},
        {u"HighlightedText"_s, u"#ffffff"_s}};
    for (const auto &[role, color] : rows)
        QTest::newRow(qPrintable(role)) << role << color;
}

void TestProgram::palette()
{
    static const QJsonObject palette = askFreshLauncher(u"palette"_s);
    QFETCH(const QString, role);
    QFETCH(const QString, color);
    // Active, inactive and disabled.
    QCOMPARE(palette.value(role).toString(), QStringList(3, color).join(u' '));
}

void TestProgram::toolTipIsDarkOnWhite()
{
    DrivenLauncher launcher(*m_server);
    QVERIFY(launcher.start());
    // A window that is only just becoming active would take the tool tip away again.
    QVERIFY(launcher.waitForLabel(u"Vérification des mises à jour du launcher..."_s));
    launcher.ask(u"toolTip"_s, {{u"x"_s, 300}, {u"y"_s, 300}});
    const QString file = launcher.folder() + u"/tip.png"_s;
    QVERIFY(
        launcher.ask(u"grab"_s, {{u"file"_s, file}, {u"toolTip"_s, true}})["saved"_L1].toBool());
    const QImage tip(file);
    const int pixels = tip.width() * tip.height();
    QVERIFY2(countOf(tip, Qt::white) > pixels / 3, qPrintable(QString::number(pixels)));
    QVERIFY(countOf(tip, QColor(0x12, 0x12, 0x12)) > 0);

    // The window around it is dark.
    const QString windowFile = launcher.folder() + u"/window.png"_s;
    QVERIFY(launcher.ask(u"grab"_s, {{u"file"_s, windowFile}})["saved"_L1].toBool());
    QCOMPARE_LT(QImage(windowFile)
                    .scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                    .pixelColor(0, 0)
                    .lightness(),
                100);
}

void TestProgram::selectionIsGreen()
{
    DrivenLauncher launcher(*m_server);
    QVERIFY(launcher.start());
    QVERIFY(launcher.waitForState([](const QJsonObject &state) {
        return state["news"_L1].toString() == u"• Une nouvelle de ce serveur"_s;
    }));
    const auto greenPixels = [&launcher] {
        const QString file = launcher.folder() + u"/window.png"_s;
        launcher.ask(u"grab"_s, {{u"file"_s, file}});
        return countOf(QImage(file), QColor(0x8b, 0xc3, 0x4a));
    };
    const int before = greenPixels();
    launcher.ask(u"select"_s);
    QVERIFY(greenPixels() > before + 1000);
}

// --- What it does ---

void TestProgram::firstStartLeavesAnEmptyClientFolder()
{
    DrivenLauncher launcher(*m_server);
    QVERIFY(launcher.start());
    // The client check is what asks for the folder.
    m_server->answer(kVersionPath, HttpAnswer::ok(R"({"version": "1.0.0"})"));
    QVERIFY(launcher.waitForLabel(u"Connexion au serveur..."_s));
    QVERIFY(QFileInfo(launcher.clientFolder()).isDir());
    QVERIFY(!QFile::exists(launcher.configFile()));
    QVERIFY(QFileInfo(launcher.configFile()).dir().exists());
    launcher.ask(u"close"_s);
    QVERIFY(launcher.waitForEnd(kEndTimeout));
    QCOMPARE(launcher.faultsOfItsEnd(), QString());
}

void TestProgram::fromFirstStartToGameRunning()
{
    const QTemporaryDir client;
    const auto textName = u"données/été/lisez-moi.txt"_s;
    StandIn::install(client.filePath(u"Dofus.exe"_s));
    Files::write(client.filePath(u"DofusInvoker.swf"_s), "client");
    Files::write(client.filePath(textName), "Bonjour à tous\n");
    QJsonArray files;
    for (const QString &name : {u"DofusInvoker.swf"_s, u"Dofus.exe"_s, textName})
        files.append(manifestEntry(name, Files::read(client.filePath(name))));
    m_server->answer(kVersionPath, HttpAnswer::ok(R"({"version": "1.0.0"})"));
    m_server->answer(kClientPath, HttpAnswer::ok(Files::zipped(client.path())));
    m_server->answer(kManifestPath, HttpAnswer::ok(manifest(files)).heldAfter(1));

    DrivenLauncher launcher(*m_server);
    QVERIFY(launcher.start());
    QVERIFY(launcher.waitForState([](const QJsonObject &state) {
        return state["status"_L1].toString() == u"Serveur en ligne"_s &&
               state["players"_L1].toString() == u"15 joueurs connectés"_s &&
               state["news"_L1].toString() == u"• Une nouvelle de ce serveur"_s;
    }));
    QVERIFY(launcher.waitForLabel(u"Client installé avec succès !"_s));
    QCOMPARE(launcher.state()["play"_L1].toString(), u"Téléchargement..."_s);
    QVERIFY(launcher.waitForLabel(u"Vérification des mises à jour..."_s));
    QCOMPARE(launcher.state()["play"_L1].toString(), u"Mise à jour..."_s);
    m_server->release(kManifestPath);
    QVERIFY(launcher.waitForLabel(u"Prêt à jouer !"_s));

    QJsonObject state = launcher.state();
    QCOMPARE(state["labelStyle"_L1].toString(), u"color: #8bc34a;"_s);
    QCOMPARE(state["value"_L1].toInt(), 100);
    QCOMPARE(state["maximum"_L1].toInt(), 100);
    QCOMPARE(state["play"_L1].toString(), u"JOUER"_s);
    QVERIFY(state["playEnabled"_L1].toBool());
    QVERIFY(!QFile::exists(launcher.clientFolder() + u"/DofusClient.zip"_s));
    QCOMPARE(Files::read(launcher.clientFolder() + u'/' + textName), "Bonjour à tous\n"_ba);

    const QString gamePath = launcher.clientFolder() + u"/Dofus.exe"_s;
    launcher.ask(u"click"_s, {{u"button"_s, u"playButton"_s}});
    QVERIFY(launcher.waitForLabel(u"Jeu lancé !"_s));
    QTRY_COMPARE(StandIn::startsOf(gamePath).size(), 1);
    const StandIn::Start start = StandIn::startsOf(gamePath).first();
    QCOMPARE(start.workingDirectory, launcher.clientFolder());
    QCOMPARE(start.arguments, QStringList());
    QVERIFY(launcher.state()["visible"_L1].toBool());
    launcher.ask(u"close"_s);
    QVERIFY(launcher.waitForEnd(kEndTimeout));
    QCOMPARE(launcher.faultsOfItsEnd(), QString());

    // The next start finds the client and asks for nothing more.
    QVERIFY(launcher.start());
    QVERIFY(launcher.waitForLabel(u"Prêt à jouer !"_s));
    state = launcher.state();
    QCOMPARE(state["labelStyle"_L1].toString(), QString());
    QVERIFY(state["playEnabled"_L1].toBool());
    QCOMPARE(m_server->requestCount(kVersionPath), 2);
    QCOMPARE(m_server->requestCount(kClientPath), 1);
    QCOMPARE(m_server->requestCount(kManifestPath), 1);
    launcher.ask(u"close"_s);
    QVERIFY(launcher.waitForEnd(kEndTimeout));
    QCOMPARE(launcher.faultsOfItsEnd(), QString());
}

void TestProgram::quitsForTheUpdater()
{
    m_server->answer(kVersionPath, HttpAnswer::ok(newerVersion(false)));
    m_server->answer(kLauncherPath, HttpAnswer::ok("the new launcher"));
    DrivenLauncher launcher(*m_server);
    const QString updaterPath = launcher.folder() + u"/LauncherUpdater.exe"_s;
    const StandIn updater(updaterPath);
    QVERIFY(launcher.start());
    QVERIFY(launcher.waitForState(
        [](const QJsonObject &state) { return isModal(state, u"Mise à jour disponible"_s); }));
    launcher.ask(u"answer"_s, {{u"button"_s, int(QMessageBox::Yes)}});
    QVERIFY(launcher.waitForEnd(kQuitTimeout));
    QTRY_COMPARE(updater.starts().size(), 1);
    QCOMPARE(launcher.faultsOfItsEnd(), QString());

    const QString archive = launcher.folder() + u"/tmp/VeyraLauncher_update.zip"_s;
    QCOMPARE(
        updater.starts().first().arguments,
        (QStringList{archive, launcher.folder(), QFileInfo(launcher.executable()).fileName()}));
    QCOMPARE(updater.starts().first().workingDirectory, launcher.folder());
    QCOMPARE(Files::read(archive), "the new launcher"_ba);
    QCOMPARE(m_server->requestCount(kClientPath), 0);
}

void TestProgram::endsWithTheEventLoopsCode_data()
{
    QTest::addColumn<bool>("poolIsStuck");
    QTest::addColumn<int>("code");
    QTest::newRow("0") << false << 0;
    QTest::newRow("another code") << false << 7;
    QTest::newRow("0, though a pool thread is stuck in the system") << true << 0;
    QTest::newRow("another code, though a pool thread is stuck in the system") << true << 7;
}

void TestProgram::endsWithTheEventLoopsCode()
{
    QFETCH(const bool, poolIsStuck);
    QFETCH(const int, code);
    DrivenLauncher launcher(*m_server);
    QVERIFY(launcher.start());
    if (poolIsStuck)
        launcher.ask(u"blockPool"_s);
    launcher.ask(u"exit"_s, {{u"code"_s, code}});
    QVERIFY(launcher.waitForEnd(kQuitTimeout));
    QCOMPARE(launcher.faultsOfItsEnd(code), QString());
}

// --- Closing in any phase ---

namespace {

/// One phase: what the server and the folder hold, and how to see that the phase is reached.
struct Phase
{
    std::function<void(HttpServer &, DrivenLauncher &)> prepare;
    std::function<bool(HttpServer &, DrivenLauncher &)> reach;
};

bool waitForRequest(HttpServer &server, const QByteArray &path)
{
    return QTest::qWaitFor([&server, &path] { return server.requestCount(path) > 0; }, 60000);
}

bool waitForModal(DrivenLauncher &launcher, const QString &title)
{
    return launcher.waitForState(
        [&title](const QJsonObject &state) { return isModal(state, title); });
}

void publishNothingNewer(HttpServer &server)
{
    server.answer(kVersionPath, HttpAnswer::ok(R"({"version": "1.0.0"})"));
}

void installClient(const DrivenLauncher &launcher)
{
    Files::write(launcher.clientFolder() + u"/DofusInvoker.swf"_s, "client");
}

} // namespace

void TestProgram::paintsDuringAVerificationOnOneProcessor()
{
    publishNothingNewer(*m_server);
    m_server->answer(kClientPath, HttpAnswer::ok(smallClient()));
    m_server->answer(kManifestPath, HttpAnswer::ok(manifest({manifestEntry(u"huge"_s, {})})));
    const Platform::OneProcessor oneProcessor;
    DrivenLauncher launcher(*m_server);
    writeSparse(launcher.clientFolder() + u"/huge"_s, kHugeFile);
    QVERIFY(launcher.start());
    QVERIFY(launcher.waitForLabel(u"Vérification de 1 fichiers..."_s));
    const QString file = launcher.folder() + u"/window.png"_s;
    QVERIFY(launcher.ask(u"grab"_s, {{u"file"_s, file}})["saved"_L1].toBool());
    QCOMPARE(launcher.state()["label"_L1].toString(), u"Vérification de 1 fichiers..."_s);
    launcher.ask(u"close"_s);
    QVERIFY(launcher.waitForEnd(kEndTimeout));
    QCOMPARE(launcher.faultsOfItsEnd(), QString());
}

void TestProgram::closing_data()
{
    QTest::addColumn<Phase>("phase");
    const auto promptTitle = u"Mise à jour disponible"_s;

    QTest::newRow("as soon as it is there") << Phase{
        [](HttpServer &, DrivenLauncher &) {}, [](HttpServer &, DrivenLauncher &) { return true; }};
    QTest::newRow("while status and news are under way")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     server.answer("/api/status.php", HttpAnswer::ok("{}").heldAfter(1));
                     server.answer("/api/news.php", HttpAnswer::never());
                 },
                 [](HttpServer &server, DrivenLauncher &) {
                     return waitForRequest(server, "/api/status.php") &&
                            waitForRequest(server, "/api/news.php");
                 }};
    QTest::newRow("while the version check is never answered") << Phase{
        [](HttpServer &, DrivenLauncher &) {},
        [](HttpServer &server, DrivenLauncher &) { return waitForRequest(server, kVersionPath); }};
    QTest::newRow("when the game is ready")
        << Phase{[](HttpServer &server, DrivenLauncher &launcher) {
                     publishNothingNewer(server);
                     installClient(launcher);
                 },
                 [](HttpServer &, DrivenLauncher &launcher) {
                     return launcher.waitForLabel(u"Prêt à jouer !"_s);
                 }};
    for (const bool required : {false, true}) {
        QTest::newRow(required ? "while a mandatory update is announced"
                               : "while an optional update is asked about")
            << Phase{[required](HttpServer &server, DrivenLauncher &) {
                         server.answer(kVersionPath, HttpAnswer::ok(newerVersion(required)));
                     },
                     [promptTitle](HttpServer &, DrivenLauncher &launcher) {
                         return waitForModal(launcher, promptTitle);
                     }};
    }
    QTest::newRow("after the prompt was closed, while the client is asked for")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     server.answer(kVersionPath, HttpAnswer::ok(newerVersion(false)));
                 },
                 [promptTitle](HttpServer &, DrivenLauncher &launcher) {
                     if (!waitForModal(launcher, promptTitle))
                         return false;
                     launcher.ask(u"closeBox"_s);
                     return launcher.waitForLabel(u"Connexion au serveur..."_s);
                 }};
    QTest::newRow("while the new launcher is downloaded")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     server.answer(kVersionPath, HttpAnswer::ok(newerVersion(true)));
                     server.answer(kLauncherPath,
                                   HttpAnswer::ok(QByteArray(1000000, 'l')).dripped(1000, 10ms));
                 },
                 [promptTitle](HttpServer &, DrivenLauncher &launcher) {
                     if (!waitForModal(launcher, promptTitle))
                         return false;
                     launcher.ask(u"escapeBox"_s);
                     return launcher.waitForLabel(u"Téléchargement: %.1f / %.1f MB"_s);
                 }};
    QTest::newRow("while the client is downloaded")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     publishNothingNewer(server);
                     server.answer(kClientPath,
                                   HttpAnswer::ok(QByteArray(1000000, 'c')).dripped(1000, 10ms));
                 },
                 [](HttpServer &, DrivenLauncher &launcher) {
                     return launcher.waitForLabel(u"Téléchargement du client: %.1f / %.1f MB"_s);
                 }};
    QTest::newRow("while a failure is shown")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     publishNothingNewer(server);
                     server.answer(kClientPath, HttpAnswer::status(404));
                 },
                 [](HttpServer &, DrivenLauncher &launcher) {
                     return waitForModal(launcher, u"Erreur de téléchargement"_s);
                 }};
    QTest::newRow("while the client is unpacked") << Phase{
        [](HttpServer &server, DrivenLauncher &launcher) {
            publishNothingNewer(server);
            server.answer(kClientPath, HttpAnswer::ok(smallClient()));
            launcher.environment().insert(u"PATH"_s,
                                          Platform::searchPathWith(launcher.folder() + u"/bin"_s));
        },
        [](HttpServer &, DrivenLauncher &launcher) {
            const QString path =
                launcher.folder() + u"/bin/"_s + Platform::executableName(u"powershell"_s);
            return launcher.waitForLabel(u"Extraction du client en cours..."_s) &&
                   QTest::qWaitFor([&path] { return !StandIn::startsOf(path).isEmpty(); }, 60000);
        }};
    QTest::newRow("in the second before the verification")
        << Phase{[](HttpServer &server, DrivenLauncher &) {
                     publishNothingNewer(server);
                     server.answer(kClientPath, HttpAnswer::ok(smallClient()));
                 },
                 [](HttpServer &, DrivenLauncher &launcher) {
                     return launcher.waitForLabel(u"Client installé avec succès !"_s);
                 }};
    QTest::newRow("while the manifest is never answered") << Phase{
        [](HttpServer &server, DrivenLauncher &) {
            publishNothingNewer(server);
            server.answer(kClientPath, HttpAnswer::ok(smallClient()));
        },
        [](HttpServer &server, DrivenLauncher &) { return waitForRequest(server, kManifestPath); }};
    QTest::newRow("while files of many GB are verified") << Phase{
        [](HttpServer &server, DrivenLauncher &launcher) {
            publishNothingNewer(server);
            server.answer(kClientPath, HttpAnswer::ok(smallClient()));
            server.answer(kManifestPath, HttpAnswer::ok(manifest({manifestEntry(u"huge"_s, {}),
                                                                  manifestEntry(u"huge"_s, {})})));
            writeSparse(launcher.clientFolder() + u"/huge"_s, kHugeFile);
        },
        [](HttpServer &, DrivenLauncher &launcher) {
            return launcher.waitForLabel(u"Vérification de 2 fichiers..."_s);
        }};
    QTest::newRow("while many small files are verified") << Phase{
        [](HttpServer &server, DrivenLauncher &) {
            publishNothingNewer(server);
            server.answer(kClientPath, HttpAnswer::ok(smallClient()));
            QJsonArray files;
            for (int i = 0; i < 50000; ++i)
                files.append(manifestEntry(u"DofusInvoker.swf"_s, "client"));
            server.answer(kManifestPath, HttpAnswer::ok(manifest(files)));
        },
        [](HttpServer &, DrivenLauncher &launcher) {
            return launcher.waitForState([](const QJsonObject &state) {
                return state["label"_L1].toString().startsWith(u"Vérification des fichiers: "_s);
            });
        }};
    QTest::newRow("while the settings are open")
        << Phase{[](HttpServer &, DrivenLauncher &) {},
                 [](HttpServer &, DrivenLauncher &launcher) {
                     launcher.ask(u"click"_s, {{u"button"_s, u"settingsButton"_s}});
                     return waitForModal(launcher, u"Paramètres"_s);
                 }};
}

void TestProgram::closing()
{
    QFETCH(const Phase, phase);
    DrivenLauncher launcher(*m_server);
    // On the search path in one of the phases only.
    StandIn powershell(launcher.folder() + u"/bin/"_s + Platform::executableName(u"powershell"_s));
    powershell.behave({.hangs = true});
    phase.prepare(*m_server, launcher);
    QVERIFY(launcher.start());
    QVERIFY(phase.reach(*m_server, launcher));

    QElapsedTimer elapsed;
    elapsed.start();
    launcher.ask(u"close"_s);
    QVERIFY(launcher.waitForEnd(kEndTimeout));
    qInfo("It ended after %lld ms", elapsed.elapsed());
    for (const StandIn::Start &start : powershell.starts())
        QTRY_VERIFY(!Platform::isRunning(start.processId));
    QCOMPARE(launcher.faultsOfItsEnd(), QString());
}

VEYRA_CORE_TEST_MAIN(TestProgram)
#include "TestProgram.moc"
