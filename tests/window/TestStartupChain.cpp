#include "app/MainWindow.h"
#include "config/Config.h"
#include "install/ClientDownloader.h"
#include "net/NewsFetcher.h"
#include "net/ServerChecker.h"
#include "tests/support/BoxAnswers.h"
#include "tests/support/Files.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"
#include "update/SelfUpdater.h"
#include "update/Updater.h"

#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QMetaMethod>
#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTextEdit>
#include <QTimer>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kNoUpdate = R"({"version": "1.0.0"})";
constexpr auto kManifestPath = "/updates/version.json";
constexpr auto kArchivePath = "/client/DofusClient.zip";
constexpr auto kVersionPath = "/api/launcher_version.json";

const auto kCheckingLauncher = u"Vérification des mises à jour du launcher..."_s;
const auto kFaceAtStart = u"Vérification des mises à jour... |  | 0/100 | JOUER off"_s;
const auto kFaceWhenReady = u"Prêt à jouer ! |  | 100/100 | JOUER on"_s;

QByteArray zipped(const QString &name, const QByteArray &content)
{
    const QTemporaryDir folder;
    Files::write(folder.filePath(name), content);
    return Files::zipped(folder.path());
}

QByteArray clientArchive()
{
    return zipped(u"DofusInvoker.swf"_s, "client");
}

/// Notes the order in which requests are sent and lets the scripted server have them.
class RecordingProxies : public QNetworkProxyFactory
{
public:
    RecordingProxies(const HttpServer &server, QStringList *paths)
        : m_proxy(QNetworkProxy::HttpProxy, u"127.0.0.1"_s, server.port())
        , m_paths(paths)
    {
    }

    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override
    {
        m_paths->append(query.url().path());
        return {m_proxy};
    }

private:
    QNetworkProxy m_proxy;
    QStringList *m_paths;
};

/// Receives what would go to the person's browser.
class Browser : public QObject
{
    Q_OBJECT

public:
    Browser()
    {
        for (const QString &scheme : {u"http"_s, u"https"_s})
            QDesktopServices::setUrlHandler(scheme, this, "open");
    }
    ~Browser() override
    {
        for (const QString &scheme : {u"http"_s, u"https"_s})
            QDesktopServices::unsetUrlHandler(scheme);
    }

    QList<QUrl> opened;

public slots:
    void open(const QUrl &url) { opened.append(url); }
};

} // namespace

/// From the window's construction to the ready state, with the real workers and a real server.
class TestStartupChain : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_launcher = std::make_unique<LauncherFixture>(); }
    void cleanup() { m_launcher.reset(); }

    void hasNoSignals();
    void privateSlots_data();
    void privateSlots();
    void workersInOrder();

    void asksForStatusThenNewsAtOnce();
    void sendsNothingBeforeTheEventLoopRuns();
    void checksTheLauncherAfterHalfASecond();

    void connections_data();
    void connections();
    void eachSignalIsConnectedOnce_data();
    void eachSignalIsConnectedOnce();

    void installedClientIsReadyWithoutManifest();
    void clientInTheSubfolderCounts();
    void missingClientIsDownloaded();
    void wholeInstallation();
    void failedClientDownload();
    void unwritableGameFolder();
    void failedExtraction();
    void archiveWithoutClient();
    void verificationFailure();
    void offlineVerification();
    void differingFiles();

    void downloadProgress_data();
    void downloadProgress();
    void theToolTipTellsThePercentage();
    void extractionBegins();
    void extractionSucceeds();
    void verificationBeginsOneSecondLater();
    void extractionFails();
    void clientDownloadFails();
    void clientDownloadSucceeds();
    void updateProgressLeavesTheMaximum();
    void updateSucceeds();
    void updateFails();

    void chainIsNotRestartedByAnotherFolder();
    void websites_data();
    void websites();

private:
    QString face() const { return m_launcher->face(); }
    QStringList requestPaths() const;
    /// Runs the chain up to the client check.
    void openWithoutUpdate();

    std::unique_ptr<LauncherFixture> m_launcher;
};

QStringList TestStartupChain::requestPaths() const
{
    QStringList paths;
    for (const HttpRequest &request : m_launcher->server.requests())
        paths.append(QString::fromLatin1(request.path));
    return paths;
}

void TestStartupChain::openWithoutUpdate()
{
    m_launcher->server.answer(kVersionPath, HttpAnswer::ok(kNoUpdate));
    m_launcher->open();
}

// --- What the class is made of ---

void TestStartupChain::hasNoSignals()
{
    const QMetaObject &type = MainWindow::staticMetaObject;
    QCOMPARE(type.methodCount() - type.methodOffset(), 16);
    QCOMPARE(type.superClass(), &QMainWindow::staticMetaObject);
    QCOMPARE(type.propertyCount(), type.propertyOffset());
    QCOMPARE(type.constructorCount(), 0);
}

void TestStartupChain::privateSlots_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<QByteArray>("names");

    auto row = [index = 0](const char *signature, const char *names) mutable {
        QTest::newRow(signature) << index++ << QByteArray(signature) << QByteArray(names);
    };
    row("onPlayClicked()", "");
    row("onSettingsClicked()", "");
    row("onWebsiteClicked()", "");
    row("onDiscordClicked()", "");
    row("onUpdateProgress(int,QString)", "percent message");
    row("onUpdateFinished(bool,QString)", "success message");
    row("onServerStatusReceived(bool,int)", "online players");
    row("onNewsReceived(QStringList)", "news");
    row("onClientDownloadProgress(int,QString)", "percent message");
    row("onClientDownloadFinished(bool,QString)", "success message");
    row("onClientExtractionStarted()", "");
    row("onClientExtractionFinished(bool,QString)", "success message");
    row("onLauncherUpdateCheckFinished(bool,QString,QString,bool)",
        "updateAvailable newVersion changelog required");
    row("onLauncherDownloadProgress(int,QString)", "percent message");
    row("onLauncherDownloadFinished(bool,QString)", "success message");
    row("onLauncherReadyToInstall(QString,QString)", "updaterPath newLauncherPath");
}

void TestStartupChain::privateSlots()
{
    QFETCH(const int, index);
    const QMetaObject &type = MainWindow::staticMetaObject;
    const QMetaMethod method = type.method(type.methodOffset() + index);
    QTEST(method.methodSignature(), "signature");
    QTEST(method.parameterNames().join(' '), "names");
    QCOMPARE(method.methodType(), QMetaMethod::Slot);
    QCOMPARE(method.access(), QMetaMethod::Private);
    QCOMPARE(method.returnMetaType(), QMetaType::fromType<void>());
}

void TestStartupChain::workersInOrder()
{
    m_launcher->open();
    const QStringList workerNames{u"Updater"_s, u"ServerChecker"_s, u"NewsFetcher"_s,
                                  u"ClientDownloader"_s, u"SelfUpdater"_s};
    QStringList found;
    for (const QObject *child : m_launcher->window()->children()) {
        const QString name = QString::fromLatin1(child->metaObject()->className());
        if (workerNames.contains(name))
            found.append(name);
    }
    QCOMPARE(found, workerNames);
}

// --- The first requests ---

void TestStartupChain::asksForStatusThenNewsAtOnce()
{
    QStringList sent;
    QNetworkProxyFactory::setApplicationProxyFactory(
        new RecordingProxies(m_launcher->server, &sent));
    m_launcher->open();
    QTRY_COMPARE(m_launcher->server.requests().size(), 2);
    QCOMPARE(sent, (QStringList{u"/api/status.php"_s, u"/api/news.php"_s}));
    QCOMPARE(m_launcher->server.requestCount("/api/status.php"), 1);
    QCOMPARE(m_launcher->server.requestCount("/api/news.php"), 1);
}

void TestStartupChain::sendsNothingBeforeTheEventLoopRuns()
{
    m_launcher->open();
    // Both requests wait in their managers.
    QCOMPARE(m_launcher->worker<ServerChecker>()->findChildren<QNetworkReply *>().size(), 1);
    QCOMPARE(m_launcher->worker<NewsFetcher>()->findChildren<QNetworkReply *>().size(), 1);
    QTest::qSleep(600);
    QCOMPARE(m_launcher->server.requests().size(), 0);
    QCOMPARE(m_launcher->worker<SelfUpdater>()->findChildren<QNetworkReply *>().size(), 0);
    QCOMPARE(face(), kFaceAtStart);
    QTRY_COMPARE(m_launcher->server.requests().size(), 3);
}

void TestStartupChain::checksTheLauncherAfterHalfASecond()
{
    // Two timers around the one in question: whatever else the machine does, they fire in the order
    // of their times.
    QStringList faces;
    const auto note = [this, &faces] {
        faces.append(face());
        faces.append(m_launcher->worker<SelfUpdater>()->findChildren<QNetworkReply *>().isEmpty()
                         ? u"no request"_s
                         : u"requested"_s);
    };
    QTimer::singleShot(490ms, Qt::PreciseTimer, this, note);
    m_launcher->open();
    QTimer::singleShot(510ms, Qt::PreciseTimer, this, note);

    QTRY_COMPARE(faces.size(), 4);
    QCOMPARE(faces,
             (QStringList{kFaceAtStart, u"no request"_s,
                          kCheckingLauncher + u" |  | 0/100 | JOUER off"_s, u"requested"_s}));
}

// --- The twelve connections ---

void TestStartupChain::connections_data()
{
    QTest::addColumn<std::function<void(LauncherFixture &)>>("report");
    QTest::addColumn<std::function<QString(LauncherFixture &)>>("look");
    QTest::addColumn<QString>("expected");

    using Report = std::function<void(LauncherFixture &)>;
    using Look = std::function<QString(LauncherFixture &)>;
    const Look face = [](LauncherFixture &launcher) { return launcher.face(); };

    QTest::newRow("the progress of the verification") << Report([](LauncherFixture &launcher) {
        emit launcher.worker<Updater>()->progressChanged(41, u"message"_s);
    }) << face << u"message |  | 41/100 | JOUER off"_s;
    QTest::newRow("the end of the verification") << Report([](LauncherFixture &launcher) {
        emit launcher.worker<Updater>()->finished(true, u"message"_s);
    }) << face << u"message |  | 100/100 | JOUER on"_s;
    QTest::newRow("the server's status") << Report([](LauncherFixture &launcher) {
        emit launcher.worker<ServerChecker>()->statusReceived(true, 3);
    }) << Look([](LauncherFixture &launcher) { return launcher.label(u"playersLabel"_s)->text(); })
                                         << u"3 joueurs connectés"_s;
    QTest::newRow("the news") << Report([](LauncherFixture &launcher) {
        emit launcher.worker<NewsFetcher>()->newsReceived({u"item"_s});
    }) << Look([](LauncherFixture &launcher) { return launcher.news()->toPlainText(); })
                              << u"• item"_s;
    QTest::newRow("the progress of the client's download") << Report([](LauncherFixture &launcher) {
        emit launcher.worker<ClientDownloader>()->progressChanged(42, u"message"_s);
    }) << face << u"message |  | 42/100 | JOUER off"_s;
    QTest::newRow("the failure of the client's download") << Report([](LauncherFixture &launcher) {
        emit launcher.worker<ClientDownloader>()->downloadFinished(false, u"message"_s);
    }) << face << u"message | color: #f44336; | 0/100 | JOUER on"_s;
    QTest::newRow("the beginning of the extraction") << Report([](LauncherFixture &launcher) {
        emit launcher.worker<ClientDownloader>()->extractionStarted();
    }) << face << u"Extraction du client en cours... |  | busy | JOUER off"_s;
    QTest::newRow("the end of the extraction") << Report([](LauncherFixture &launcher) {
        emit launcher.worker<ClientDownloader>()->extractionFinished(true, u"message"_s);
    }) << face << u"message | color: #8bc34a; | 100/100 | JOUER off"_s;
    QTest::newRow("the answer about the launcher's version")
        << Report([](LauncherFixture &launcher) {
               launcher.installClient();
               emit launcher.worker<SelfUpdater>()->updateCheckFinished(false, {}, {}, false);
           })
        << face << kFaceWhenReady;
    QTest::newRow("the progress of the launcher's download")
        << Report([](LauncherFixture &launcher) {
               emit launcher.worker<SelfUpdater>()->downloadProgress(43, u"message"_s);
           })
        << face << u"message |  | 43/100 | JOUER off"_s;
    QTest::newRow("the failure of the launcher's download")
        << Report([](LauncherFixture &launcher) {
               emit launcher.worker<SelfUpdater>()->downloadFinished(false, u"message"_s);
           })
        << face << u"Connexion au serveur... | color: #f44336; | 0/100 | Téléchargement... off"_s;
    QTest::newRow("the launcher that is ready to install") << Report([](LauncherFixture &launcher) {
        launcher.installClient();
        emit launcher.worker<SelfUpdater>()->readyToInstall(u"/nowhere/updater"_s,
                                                            u"/nowhere/archive"_s);
    }) << face << kFaceWhenReady;
}

void TestStartupChain::connections()
{
    using Report = std::function<void(LauncherFixture &)>;
    using Look = std::function<QString(LauncherFixture &)>;
    QFETCH(const Report, report);
    QFETCH(const Look, look);
    m_launcher->open();
    BoxAnswers boxes;
    report(*m_launcher);
    QTEST(look(*m_launcher), "expected");
}

void TestStartupChain::eachSignalIsConnectedOnce_data()
{
    QTest::addColumn<QByteArray>("worker");
    QTest::addColumn<QByteArray>("signal");

    const auto row = [](const char *worker, const char *signal) {
        QTest::addRow("%s of %s", signal, worker) << QByteArray(worker) << QByteArray(signal);
    };
    row("Updater", "progressChanged(int,QString)");
    row("Updater", "finished(bool,QString)");
    row("ServerChecker", "statusReceived(bool,int)");
    row("NewsFetcher", "newsReceived(QStringList)");
    row("ClientDownloader", "progressChanged(int,QString)");
    row("ClientDownloader", "downloadFinished(bool,QString)");
    row("ClientDownloader", "extractionStarted()");
    row("ClientDownloader", "extractionFinished(bool,QString)");
    row("SelfUpdater", "updateCheckFinished(bool,QString,QString,bool)");
    row("SelfUpdater", "downloadProgress(int,QString)");
    row("SelfUpdater", "downloadFinished(bool,QString)");
    row("SelfUpdater", "readyToInstall(QString,QString)");
}

namespace {

/// The number of receivers is for the sender's own eyes; this opens them.
class Receivers : public QObject
{
public:
    static int of(const QObject *sender, const QByteArray &signal)
    {
        const auto method = &Receivers::receivers;
        return (sender->*method)(QByteArray('2' + signal).constData());
    }
};

} // namespace

void TestStartupChain::eachSignalIsConnectedOnce()
{
    QFETCH(const QByteArray, worker);
    QFETCH(const QByteArray, signal);
    m_launcher->open();
    for (const QObject *child : m_launcher->window()->children()) {
        if (child->metaObject()->className() == worker) {
            QCOMPARE(Receivers::of(child, signal), 1);
            return;
        }
    }
    QFAIL("no such worker");
}

// --- The chain against the server ---

void TestStartupChain::installedClientIsReadyWithoutManifest()
{
    m_launcher->installClient();
    openWithoutUpdate();
    QTRY_COMPARE(face(), kFaceWhenReady);
    waitForStragglers();
    QStringList paths = requestPaths();
    paths.sort();
    QCOMPARE(paths, (QStringList{u"/api/launcher_version.json"_s, u"/api/news.php"_s,
                                 u"/api/status.php"_s}));
}

void TestStartupChain::clientInTheSubfolderCounts()
{
    Files::write(m_launcher->gameFolder() + u"/Client 2.51/DofusInvoker.swf"_s, "client");
    openWithoutUpdate();
    QTRY_COMPARE(face(), kFaceWhenReady);
    QCOMPARE(m_launcher->server.requestCount(kArchivePath), 0);
}

void TestStartupChain::missingClientIsDownloaded()
{
    openWithoutUpdate();
    QTRY_COMPARE(m_launcher->server.requestCount(kArchivePath), 1);
    QCOMPARE(face(), u"Connexion au serveur... |  | 0/100 | Téléchargement... off"_s);
}

void TestStartupChain::wholeInstallation()
{
    HttpServer &server = m_launcher->server;
    const QByteArray archive = clientArchive();
    server.answer(kArchivePath, HttpAnswer::ok(archive).heldAfter(archive.size() / 2));
    server.answer(kManifestPath, HttpAnswer::ok(R"({"files": [{"name": "DofusInvoker.swf", "hash":
                      "948fe603f61dc036b5c596dc09fe3ce3f3d30dc90f024c85f3c82db2ccab679d"}]})")
                                     .heldAfter(5));
    openWithoutUpdate();

    QTRY_COMPARE(server.requestCount(kArchivePath), 1);
    QCOMPARE(face(), u"Connexion au serveur... |  | 0/100 | Téléchargement... off"_s);
    QStringList faces;
    const auto note = [this, &faces] { faces.append(face()); };
    const auto *downloader = m_launcher->worker<ClientDownloader>();
    connect(downloader, &ClientDownloader::progressChanged, this, note);
    server.release(kArchivePath);
    QTRY_COMPARE(face(), u"Client installé avec succès ! | color: #8bc34a; | 100/100 | "
                         "Téléchargement... off"_s);
    const auto downloaded =
        u"Téléchargement du client: %.1f / %.1f MB |  | 100/100 | Téléchargement... off"_s;
    QVERIFY(faces.contains(downloaded));
    QCOMPARE(faces.mid(faces.lastIndexOf(downloaded) + 1),
             (QStringList{u"Extraction du client en cours... |  | busy | Téléchargement... off"_s,
                          u"Installation terminée ! |  | 100/100 | Téléchargement... off"_s}));
    QCOMPARE(server.requestCount(kManifestPath), 0);
    QTRY_COMPARE(face(), u"Vérification des mises à jour... | color: #8bc34a; | 0/100 | "
                         "Mise à jour... off"_s);
    QTRY_COMPARE(server.requestCount(kManifestPath), 1);

    // Every message of the verification, in green.
    faces.clear();
    connect(m_launcher->worker<Updater>(), &Updater::progressChanged, this, note);
    QSignalSpy finished(m_launcher->worker<Updater>(), &Updater::finished);
    server.release(kManifestPath);
    QTRY_COMPARE(finished.count(), 1);
    QCOMPARE(faces,
             (QStringList{
                 u"Vérification de 1 fichiers... | color: #8bc34a; | 0/100 | Mise à jour... off"_s,
                 u"Vérification des fichiers: 1/1 | color: #8bc34a; | 100/100 | "
                 "Mise à jour... off"_s,
                 u"Tous les fichiers sont à jour | color: #8bc34a; | 100/100 | "
                 "Mise à jour... off"_s}));
    QCOMPARE(face(), u"Prêt à jouer ! | color: #8bc34a; | 100/100 | JOUER on"_s);
}

void TestStartupChain::failedClientDownload()
{
    BoxAnswers boxes;
    QString faceBehindBox;
    boxes.meanwhile([this, &faceBehindBox] { faceBehindBox = face(); }).click(QMessageBox::Ok);
    m_launcher->server.answer(kArchivePath, HttpAnswer::status(404));
    openWithoutUpdate();

    QTRY_COMPARE(boxes.seen().size(), 1);
    const BoxAnswers::Box box = boxes.seen().first();
    QCOMPARE(box.title, u"Erreur de téléchargement"_s);
    QVERIFY2(box.text.startsWith(u"Erreur de téléchargement: "_s), qPrintable(box.text));
    QVERIFY(box.text.size() > 30);
    QCOMPARE(box.icon, QMessageBox::Critical);
    QCOMPARE(box.buttons, QMessageBox::Ok);
    QCOMPARE(box.parent, m_launcher->window());
    QVERIFY(box.modal);
    const QString expected = box.text + u" | color: #f44336; | 0/100 | JOUER on"_s;
    QTRY_COMPARE(faceBehindBox, expected);
    QCOMPARE(face(), expected);
    // The chain ends here, the button works again.
    QCOMPARE(m_launcher->server.requestCount(kManifestPath), 0);
    boxes.click(QMessageBox::Ok);
    QTRY_VERIFY(!QApplication::activeModalWidget());
    QTest::mouseClick(m_launcher->playButton(), Qt::LeftButton);
    QCOMPARE(boxes.seen().size(), 2);
    QCOMPARE(boxes.seen().last().title, u"Erreur"_s);
}

void TestStartupChain::unwritableGameFolder()
{
    // A folder stands where the archive should go.
    QVERIFY(QDir().mkpath(m_launcher->gameFolder() + u"/DofusClient.zip"_s));
    BoxAnswers boxes;
    boxes.click(QMessageBox::Ok);
    openWithoutUpdate();
    QTRY_COMPARE(boxes.seen().size(), 1);
    const QString message = u"Erreur: Impossible de créer le fichier %1/DofusClient.zip"_s.arg(
        m_launcher->gameFolder());
    QCOMPARE(boxes.seen().first().title, u"Erreur de téléchargement"_s);
    QCOMPARE(boxes.seen().first().text, message);
    QCOMPARE(face(), message + u" | color: #f44336; | 0/100 | JOUER on"_s);
}

void TestStartupChain::failedExtraction()
{
    BoxAnswers boxes;
    boxes.pressEscape();
    m_launcher->server.answer(kArchivePath, HttpAnswer::ok("this is no archive"));
    openWithoutUpdate();
    QTRY_COMPARE(boxes.seen().size(), 1);
    const BoxAnswers::Box box = boxes.seen().first();
    QCOMPARE(box.title, u"Erreur d'extraction"_s);
    QVERIFY2(box.text.startsWith(u"Erreur d'extraction: "_s), qPrintable(box.text));
    QCOMPARE(box.icon, QMessageBox::Critical);
    QCOMPARE(box.buttons, QMessageBox::Ok);
    QTRY_COMPARE(face(), box.text + u" | color: #f44336; | 0/100 | JOUER on"_s);
    QCOMPARE(m_launcher->server.requestCount(kManifestPath), 0);
}

void TestStartupChain::archiveWithoutClient()
{
    BoxAnswers boxes;
    boxes.closeFromTitleBar();
    m_launcher->server.answer(kArchivePath, HttpAnswer::ok(zipped(u"readme.txt"_s, "no client")));
    openWithoutUpdate();
    QTRY_COMPARE(boxes.seen().size(), 1);
    const auto message = u"Erreur: Le client n'a pas été trouvé après extraction"_s;
    QCOMPARE(boxes.seen().first().title, u"Erreur d'extraction"_s);
    QCOMPARE(boxes.seen().first().text, message);
    QTRY_COMPARE(face(), message + u" | color: #f44336; | 0/100 | JOUER on"_s);
}

void TestStartupChain::verificationFailure()
{
    BoxAnswers boxes;
    m_launcher->server.answer(kArchivePath, HttpAnswer::ok(clientArchive()));
    m_launcher->server.answer(kManifestPath, HttpAnswer::ok("[]"));
    openWithoutUpdate();
    // The bar stays where the check began.
    QTRY_COMPARE(face(),
                 u"Erreur: Format de version invalide | color: #f44336; | 0/100 | JOUER on"_s);
    waitForStragglers();
    QVERIFY(boxes.seen().isEmpty());
}

void TestStartupChain::offlineVerification()
{
    m_launcher->server.answer(kArchivePath, HttpAnswer::ok(clientArchive()));
    m_launcher->server.answer(kManifestPath, HttpAnswer::status(500));
    openWithoutUpdate();
    QTRY_COMPARE(face(), u"Mode hors ligne | color: #8bc34a; | 100/100 | JOUER on"_s);
}

void TestStartupChain::differingFiles()
{
    m_launcher->server.answer(kArchivePath, HttpAnswer::ok(clientArchive()));
    m_launcher->server.answer(kManifestPath,
                              HttpAnswer::ok(R"({"files": [{"name": "a", "hash": "0"}]})"));
    QStringList texts;
    openWithoutUpdate();
    connect(m_launcher->worker<Updater>(), &Updater::progressChanged, this,
            [this, &texts] { texts.append(m_launcher->label(u"progressLabel"_s)->text()); });
    QTRY_COMPARE(face(), u"Prêt à jouer ! | color: #8bc34a; | 100/100 | JOUER on"_s);
    QCOMPARE(texts.last(), u"1 fichier(s) à mettre à jour (désactivé)"_s);
    QCOMPARE(m_launcher->server.requestCount("/updates/files/a"), 0);
}

// --- Each slot by itself ---

void TestStartupChain::downloadProgress_data()
{
    QTest::addColumn<QByteArray>("slot");
    for (const char *slot : {"onClientDownloadProgress", "onLauncherDownloadProgress"})
        QTest::newRow(slot) << QByteArray(slot);
}

void TestStartupChain::downloadProgress()
{
    QFETCH(const QByteArray, slot);
    m_launcher->open();
    const auto report = [this, &slot](int percent, const QString &message) {
        m_launcher->call(slot.constData(), percent, message);
        return face();
    };
    QCOMPARE(report(12, u"Une"_s), u"Une |  | 12/100 | JOUER off"_s);
    QCOMPARE(report(-1, u"Deux"_s), u"Deux |  | busy | JOUER off"_s);
    QCOMPARE(m_launcher->progressBar()->minimum(), 0);
    QCOMPARE(report(0, u"Trois"_s), u"Trois |  | 0/100 | JOUER off"_s);
    QCOMPARE(report(-7, {}), u" |  | busy | JOUER off"_s);
    QCOMPARE(report(100, u"<b>Quatre</b>"_s), u"<b>Quatre</b> |  | 100/100 | JOUER off"_s);
}

void TestStartupChain::theToolTipTellsThePercentage()
{
    m_launcher->open();
    const auto *bar = m_launcher->progressBar();
    QCOMPARE(bar->toolTip(), u"0\u00a0%"_s);
    for (const char *slot : {"onClientDownloadProgress", "onLauncherDownloadProgress"}) {
        m_launcher->call(slot, 42, u"Une"_s);
        QCOMPARE(bar->toolTip(), u"42\u00a0%"_s);
        m_launcher->call(slot, -1, u"Deux"_s); // nobody knows
        QCOMPARE(bar->toolTip(), QString());
        m_launcher->call(slot, 42, u"Trois"_s);
        QCOMPARE(bar->toolTip(), u"42\u00a0%"_s);
        m_launcher->call(slot, 0, u"Quatre"_s);
        m_launcher->call(slot, -1, u"Cinq"_s);
        m_launcher->call(slot, 0, u"Six"_s); // a value that the bar has kept
        QCOMPARE(bar->toolTip(), u"0\u00a0%"_s);
    }
    m_launcher->call("onClientExtractionStarted");
    QCOMPARE(bar->toolTip(), QString());
    m_launcher->call("onClientExtractionFinished", true, u"Fini"_s);
    QCOMPARE(bar->toolTip(), u"100\u00a0%"_s);
    m_launcher->call("onUpdateProgress", 33, u"Sept"_s);
    QCOMPARE(bar->toolTip(), u"33\u00a0%"_s);

    m_launcher->call("onClientDownloadProgress", 0, u"Huit"_s);
    m_launcher->call("onClientExtractionStarted");
    BoxAnswers boxes;
    m_launcher->call("onClientExtractionFinished", false, u"Raté"_s);
    QCOMPARE(bar->toolTip(), u"0\u00a0%"_s);
    QVERIFY(!bar->isTextVisible());
}

void TestStartupChain::extractionBegins()
{
    m_launcher->open();
    m_launcher->call("onClientExtractionStarted");
    QCOMPARE(face(), u"Extraction du client en cours... |  | busy | JOUER off"_s);
}

void TestStartupChain::extractionSucceeds()
{
    m_launcher->open();
    m_launcher->call("onClientExtractionStarted");
    m_launcher->call("onClientExtractionFinished", true, u"Fini"_s);
    QCOMPARE(face(), u"Fini | color: #8bc34a; | 100/100 | JOUER off"_s);
}

void TestStartupChain::verificationBeginsOneSecondLater()
{
    m_launcher->open();
    m_launcher->call("onClientDownloadProgress", 1, u"x"_s);
    QStringList faces;
    const auto note = [this, &faces] { faces.append(face()); };
    QElapsedTimer elapsed;
    elapsed.start();
    // Around the timer in question; see checksTheLauncherAfterHalfASecond().
    QTimer::singleShot(990ms, Qt::PreciseTimer, this, note);
    m_launcher->call("onClientExtractionFinished", true, u"Fini"_s);
    QTimer::singleShot(1010ms, Qt::PreciseTimer, this, note);

    // What the launcher check does in between is not of interest here.
    QTRY_COMPARE(faces.size(), 2);
    QCOMPARE(faces.first(), kCheckingLauncher + u" | color: #8bc34a; | 100/100 | JOUER off"_s);
    QCOMPARE(faces.last(), u"Vérification des mises à jour... | color: #8bc34a; | 0/100 | "
                           "Mise à jour... off"_s);
    QVERIFY(elapsed.elapsed() >= 1000);
    QTRY_COMPARE(m_launcher->server.requestCount(kManifestPath), 1);
}

void TestStartupChain::extractionFails()
{
    m_launcher->open();
    m_launcher->call("onClientExtractionStarted");
    BoxAnswers boxes;
    QString faceBehindBox;
    boxes.meanwhile([this, &faceBehindBox] { faceBehindBox = face(); }).closeFromTitleBar();
    m_launcher->call("onClientExtractionFinished", false, u"Raté"_s);
    QCOMPARE(faceBehindBox, u"Raté | color: #f44336; | 0/100 | JOUER on"_s);
    QCOMPARE(face(), faceBehindBox);
    QCOMPARE(boxes.seen().size(), 1);
    QCOMPARE(boxes.seen().first().title, u"Erreur d'extraction"_s);
    QCOMPARE(boxes.seen().first().text, u"Raté"_s);
}

void TestStartupChain::clientDownloadFails()
{
    m_launcher->open();
    m_launcher->call("onClientDownloadProgress", -1, u"x"_s);
    BoxAnswers boxes;
    QString faceBehindBox;
    boxes.meanwhile([this, &faceBehindBox] { faceBehindBox = face(); }).pressEscape();
    m_launcher->call("onClientDownloadFinished", false, u"Raté"_s);
    QCOMPARE(faceBehindBox, u"Raté | color: #f44336; | 0/100 | JOUER on"_s);
    QCOMPARE(boxes.seen().size(), 1);
    QCOMPARE(boxes.seen().first().text, u"Raté"_s);
}

void TestStartupChain::clientDownloadSucceeds()
{
    m_launcher->open();
    m_launcher->call("onClientDownloadProgress", 99, u"x"_s);
    const QString before = face();
    BoxAnswers boxes;
    m_launcher->call("onClientDownloadFinished", true, u"Fini"_s);
    QCOMPARE(face(), before);
    QVERIFY(boxes.seen().isEmpty());
}

void TestStartupChain::updateProgressLeavesTheMaximum()
{
    m_launcher->open();
    m_launcher->progressBar()->setMaximum(250);
    m_launcher->call("onUpdateProgress", 33, u"Une"_s);
    QCOMPARE(face(), u"Une |  | 33/250 | JOUER off"_s);
    m_launcher->progressBar()->setMaximum(0);
    m_launcher->call("onUpdateProgress", 0, u"Deux"_s);
    QCOMPARE(face(), u"Deux |  | busy | JOUER off"_s);
}

void TestStartupChain::updateSucceeds()
{
    m_launcher->open();
    m_launcher->call("onUpdateProgress", 33, u"Une"_s);
    m_launcher->call("onUpdateFinished", true, u"Fini"_s);
    QCOMPARE(face(), u"Fini |  | 100/100 | JOUER on"_s);
}

void TestStartupChain::updateFails()
{
    m_launcher->open();
    m_launcher->call("onUpdateProgress", 33, u"Une"_s);
    BoxAnswers boxes;
    m_launcher->call("onUpdateFinished", false, u"Raté"_s);
    QCOMPARE(face(), u"Raté | color: #f44336; | 33/100 | JOUER on"_s);
    waitForStragglers();
    QVERIFY(boxes.seen().isEmpty());
    // The colour outlives the text.
    m_launcher->call("onUpdateFinished", true, u"Fini"_s);
    QCOMPARE(face(), u"Fini | color: #f44336; | 100/100 | JOUER on"_s);
}

// --- Around the chain ---

void TestStartupChain::chainIsNotRestartedByAnotherFolder()
{
    m_launcher->installClient();
    openWithoutUpdate();
    QTRY_COMPARE(face(), kFaceWhenReady);
    const qsizetype requests = m_launcher->server.requests().size();

    QTemporaryDir emptyFolder;
    QTimer::singleShot(0, this, [&emptyFolder] {
        QWidget *dialog = QApplication::activeModalWidget();
        dialog->findChild<QLineEdit *>()->setText(emptyFolder.path());
        QTest::mouseClick(dialog->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Save),
                          Qt::LeftButton);
    });
    QTest::mouseClick(m_launcher->button(u"Paramètres"_s), Qt::LeftButton);
    QCOMPARE(Config::instance().dofusPath(), emptyFolder.path());
    waitForStragglers(100ms);
    QCOMPARE(face(), kFaceWhenReady);
    QCOMPARE(m_launcher->server.requests().size(), requests);
}

void TestStartupChain::websites_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<QUrl>("url");
    QTest::newRow("the website is the server") << u"Site Web"_s << QUrl(u"http://veyra.test/"_s);
    QTest::newRow("the community chat") << u"Discord"_s << QUrl(u"https://chat.test/veyra"_s);
}

void TestStartupChain::websites()
{
    QFETCH(const QString, button);
    QFETCH(const QUrl, url);
    m_launcher->open();
    Browser browser;
    const QString before = face();
    QTest::mouseClick(m_launcher->button(button), Qt::LeftButton);
    QCOMPARE(browser.opened, QList<QUrl>{url});
    QCOMPARE(face(), before);
}

VEYRA_WIDGET_TEST_MAIN(TestStartupChain)
#include "TestStartupChain.moc"
