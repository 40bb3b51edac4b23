#include "app/MainWindow.h"
#include "net/NewsFetcher.h"
#include "net/ServerChecker.h"
#include "tests/support/BoxAnswers.h"
#include "tests/support/Files.h"
#include "tests/support/LauncherFiles.h"
#include "tests/support/Platform.h"
#include "tests/support/StandIn.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"
#include "update/SelfUpdater.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>
#include <QTextEdit>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kVersionPath = "/api/launcher_version.json";
constexpr auto kLauncherPath = "/files/launcher.zip";
constexpr auto kClientPath = "/client/DofusClient.zip";

const auto kPromptTitle = u"Mise à jour disponible"_s;
const auto kReady = u"Prêt à jouer ! |  | 100/100 | JOUER on"_s;
const auto kReadyInRed = u"Prêt à jouer ! | color: #f44336; | 100/100 | JOUER on"_s;
const auto kDownloadBegins =
    u"Téléchargement de la mise à jour... |  | 0/100 | Mise à jour... off"_s;
const auto kClientDownloadBegins = u"Connexion au serveur... |  | 0/100 | Téléchargement... off"_s;

enum class Answer { Yes, No, Ok, Escape, TitleBar };

void give(BoxAnswers &boxes, Answer answer)
{
    switch (answer) {
    case Answer::Yes:
        boxes.click(QMessageBox::Yes);
        break;
    case Answer::No:
        boxes.click(QMessageBox::No);
        break;
    case Answer::Ok:
        boxes.click(QMessageBox::Ok);
        break;
    case Answer::Escape:
        boxes.pressEscape();
        break;
    case Answer::TitleBar:
        boxes.closeFromTitleBar();
        break;
    }
}

} // namespace

/// The prompt for a newer launcher, its download, and the hand-over to the updater program.
class TestLauncherUpdate : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void promptText_data();
    void promptText();
    void versionThatHoldsAPlaceholder();
    void noUpdateNoPrompt_data();
    void noUpdateNoPrompt();
    void optionalUpdateIsDeclined_data();
    void optionalUpdateIsDeclined();
    void optionalUpdateIsAccepted();
    void mandatoryUpdateIsOnlyAnnounced_data();
    void mandatoryUpdateIsOnlyAnnounced();
    void statusAndNewsAreShownBehindThePrompt();

    void progressOfKnownSize();
    void progressOfUnknownSize();
    void successOfTheDownloadShowsNothing();
    void downloadFails();
    void downloadFailsWithoutClient();
    void downloadFailures_data();
    void downloadFailures();
    void failedMandatoryUpdateGoesOn();

    void updaterReceivesThreeArguments();
    void handOverBeforeTheQuit();
    void updaterCannotBeStarted();
    void missingUpdaterWithoutClient();

private:
    QString face() const { return m_launcher->face(); }
    void publish(const QString &changelog, bool required,
                 const QString &url = u"http://veyra.test/files/launcher.zip"_s,
                 const QString &version = u"1.2.0"_s);
    bool isBusy();

    std::unique_ptr<LauncherFixture> m_launcher;
};

void TestLauncherUpdate::init()
{
    m_launcher = std::make_unique<LauncherFixture>();
    m_launcher->server.answer(kLauncherPath, HttpAnswer::never());
    QFile::remove(LauncherFiles::archive());
}

void TestLauncherUpdate::cleanup()
{
    m_launcher.reset();
    QFile::remove(LauncherFiles::updater());
    QDir().rmdir(LauncherFiles::archive());
    QFile::remove(LauncherFiles::archive());
}

void TestLauncherUpdate::publish(const QString &changelog, bool required, const QString &url,
                                 const QString &version)
{
    const QJsonObject record{{u"version"_s, version},
                             {u"download_url"_s, url},
                             {u"changelog"_s, changelog},
                             {u"required"_s, required}};
    m_launcher->server.answer(kVersionPath, HttpAnswer::ok(QJsonDocument(record).toJson()));
}

/// True when a click on the play button does nothing: one of the busy flags is set. Otherwise it
/// reaches for the game, which is there, and says so.
bool TestLauncherUpdate::isBusy()
{
    const StandIn game(m_launcher->gameFolder() + u"/Dofus.exe"_s);
    QLabel *label = m_launcher->label(u"progressLabel"_s);
    const QString before = label->text();
    m_launcher->call("onPlayClicked");
    const bool busy = label->text() == before;
    label->setText(before);
    return busy;
}

// --- The prompt ---

void TestLauncherUpdate::promptText_data()
{
    QTest::addColumn<QString>("changelog");
    QTest::addColumn<bool>("required");
    QTest::addColumn<QString>("expected");

    const auto body = u"Une nouvelle version du launcher est disponible !\n\n"
                      "Version actuelle: 1.0.0\nNouvelle version: 1.2.0\n\nNouveautés:\n"_s;
    const auto question = u"\n\nVoulez-vous mettre à jour maintenant ?"_s;
    const auto obligation = u"\n\nCette mise à jour est obligatoire."_s;
    const auto lines = u"- Un\n- Deux"_s;

    QTest::newRow("an optional update is a question") << lines << false << body + lines + question;
    QTest::newRow("a mandatory update says so") << lines << true << body + lines + obligation;
    QTest::newRow("no change notes") << QString() << false << body + question;
    QTest::newRow("change notes that hold %1 stay as they are")
        << u"100%1 de %2 et %3"_s << false << body + u"100%1 de %2 et %3"_s + question;
    QTest::newRow("%1 in the notes of a mandatory update")
        << u"%1"_s << true << body + u"%1"_s + obligation;
    QTest::newRow("HTML in the notes is handed on")
        << u"<b>Gras</b><br/>&amp; suite"_s << false
        << body + u"<b>Gras</b><br/>&amp; suite"_s + question;
}

void TestLauncherUpdate::versionThatHoldsAPlaceholder()
{
    // The placeholders are filled one after the other, so the notes fill it as well.
    publish(u"Notes"_s, false, {}, u"2.%3"_s);
    BoxAnswers boxes;
    m_launcher->installClient();
    m_launcher->open();
    QTRY_COMPARE(boxes.seen().size(), 1);
    QCOMPARE(boxes.seen().first().text,
             u"Une nouvelle version du launcher est disponible !\n\n"
             "Version actuelle: 1.0.0\nNouvelle version: 2.Notes\n\nNouveautés:\nNotes\n\n"
             "Voulez-vous mettre à jour maintenant ?"_s);
}

void TestLauncherUpdate::promptText()
{
    QFETCH(const QString, changelog);
    QFETCH(const bool, required);
    publish(changelog, required);
    BoxAnswers boxes;
    m_launcher->installClient();
    m_launcher->open();
    QTRY_COMPARE(boxes.seen().size(), 1);

    const BoxAnswers::Box box = boxes.seen().first();
    QCOMPARE(box.title, kPromptTitle);
    QTEST(box.text, "expected");
    QCOMPARE(box.icon, required ? QMessageBox::Information : QMessageBox::Question);
    QCOMPARE(box.buttons, required ? QMessageBox::StandardButtons(QMessageBox::Ok)
                                   : QMessageBox::Yes | QMessageBox::No);
    QCOMPARE(box.parent, m_launcher->window());
    QVERIFY(box.modal);
}

void TestLauncherUpdate::noUpdateNoPrompt_data()
{
    QTest::addColumn<bool>("required");
    QTest::newRow("nothing newer") << false;
    QTest::newRow("nothing newer, though the server calls it mandatory") << true;
}

void TestLauncherUpdate::noUpdateNoPrompt()
{
    QFETCH(const bool, required);
    m_launcher->installClient();
    m_launcher->open();
    BoxAnswers boxes;
    m_launcher->call("onLauncherUpdateCheckFinished", false, u"1.0.0"_s, QString(), required);
    QCOMPARE(face(), kReady);
    QVERIFY(boxes.seen().isEmpty());
    QVERIFY(!isBusy());
}

void TestLauncherUpdate::optionalUpdateIsDeclined_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("installed");
    QTest::addColumn<QString>("expected");

    QTest::newRow("No leads to the installed client") << Answer::No << true << kReady;
    QTest::newRow("Escape counts as No") << Answer::Escape << true << kReady;
    QTest::newRow("closing the box counts as No") << Answer::TitleBar << true << kReady;
    QTest::newRow("No leads to the client's download")
        << Answer::No << false << kClientDownloadBegins;
    QTest::newRow("Escape leads to the client's download")
        << Answer::Escape << false << kClientDownloadBegins;
}

void TestLauncherUpdate::optionalUpdateIsDeclined()
{
    QFETCH(const Answer, answer);
    QFETCH(const bool, installed);
    publish(u"Notes"_s, false);
    if (installed)
        m_launcher->installClient();
    BoxAnswers boxes;
    bool busyBehindBox = true;
    QString faceBehindBox;
    boxes.meanwhile([this, &busyBehindBox, &faceBehindBox] {
        busyBehindBox = isBusy();
        faceBehindBox = face();
    });
    give(boxes, answer);
    m_launcher->open();

    QTRY_COMPARE(boxes.seen().size(), 1);
    QVERIFY(!busyBehindBox);
    QCOMPARE(faceBehindBox,
             u"Vérification des mises à jour du launcher... |  | 0/100 | JOUER off"_s);
    QFETCH(const QString, expected);
    QTRY_COMPARE(face(), expected);
    QCOMPARE(isBusy(), !installed);
    QCOMPARE(m_launcher->server.requestCount(kLauncherPath), 0);
}

void TestLauncherUpdate::optionalUpdateIsAccepted()
{
    publish(u"Notes"_s, false);
    m_launcher->installClient();
    BoxAnswers boxes;
    boxes.click(QMessageBox::Yes);
    m_launcher->open();
    QTRY_COMPARE(m_launcher->server.requestCount(kLauncherPath), 1);
    QCOMPARE(face(), kDownloadBegins);
    QVERIFY(isBusy());
    QCOMPARE(m_launcher->server.lastRequest(kLauncherPath).target,
             "http://veyra.test/files/launcher.zip"_ba);
}

void TestLauncherUpdate::mandatoryUpdateIsOnlyAnnounced_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::newRow("Ok starts the download") << Answer::Ok;
    QTest::newRow("Escape starts it as well") << Answer::Escape;
    QTest::newRow("closing the box starts it as well") << Answer::TitleBar;
}

void TestLauncherUpdate::mandatoryUpdateIsOnlyAnnounced()
{
    QFETCH(const Answer, answer);
    publish(u"Notes"_s, true);
    m_launcher->installClient();
    BoxAnswers boxes;
    qsizetype requestsBehindBox = -1;
    boxes.meanwhile([this, &requestsBehindBox] {
        requestsBehindBox = m_launcher->server.requestCount(kLauncherPath);
    });
    give(boxes, answer);
    m_launcher->open();
    QTRY_COMPARE(m_launcher->server.requestCount(kLauncherPath), 1);
    QCOMPARE(requestsBehindBox, 0);
    QCOMPARE(face(), kDownloadBegins);
    QVERIFY(isBusy());
    QCOMPARE(boxes.seen().size(), 1);
}

void TestLauncherUpdate::statusAndNewsAreShownBehindThePrompt()
{
    HttpServer &server = m_launcher->server;
    server.answer("/api/status.php",
                  HttpAnswer::ok(R"({"online": true, "players": 7})").heldAfter(3));
    server.answer("/api/news.php", HttpAnswer::ok(R"(["Une nouvelle"])").heldAfter(3));
    publish(u"Notes"_s, false);
    m_launcher->installClient();

    BoxAnswers boxes;
    QString statusBehindBox;
    bool isOpen = false;
    boxes
        .meanwhile([this, &server, &statusBehindBox] {
            statusBehindBox = m_launcher->label(u"statusLabel"_s)->text();
            server.release("/api/status.php");
            server.release("/api/news.php");
        })
        .until([this] {
            return m_launcher->label(u"playersLabel"_s)->text() == u"7 joueurs connectés"_s &&
                   m_launcher->news()->toPlainText() == u"• Une nouvelle"_s;
        })
        .meanwhile([&isOpen] { isOpen = QApplication::activeModalWidget() != nullptr; })
        .click(QMessageBox::No);
    m_launcher->open();
    QTRY_COMPARE(face(), kReady);
    QVERIFY(isOpen);
    QCOMPARE(statusBehindBox, u"Vérification du serveur..."_s);
    QCOMPARE(m_launcher->label(u"statusLabel"_s)->text(), u"Serveur en ligne"_s);
    QCOMPARE(m_launcher->label(u"playersLabel"_s)->text(), u"7 joueurs connectés"_s);
    QCOMPARE(boxes.seen().size(), 1);
}

// --- The download ---

void TestLauncherUpdate::progressOfKnownSize()
{
    const QByteArray archive(200000, 'l');
    m_launcher->server.answer(kLauncherPath, HttpAnswer::ok(archive));
    publish({}, true);
    m_launcher->installClient();
    BoxAnswers boxes;
    m_launcher->open();
    QStringList faces;
    connect(m_launcher->worker<SelfUpdater>(), &SelfUpdater::downloadProgress, this,
            [this, &faces] { faces.append(face()); });
    QTRY_COMPARE(face(), kReadyInRed); // there is no updater program
    QCOMPARE(faces.first(), kDownloadBegins);
    QCOMPARE(faces.last(), u"Téléchargement: %.1f / %.1f MB |  | 100/100 | Mise à jour... off"_s);
}

void TestLauncherUpdate::progressOfUnknownSize()
{
    m_launcher->server.answer(kLauncherPath,
                              HttpAnswer::ok("letters").withoutLength().dripped(1, 150ms));
    publish({}, true);
    m_launcher->installClient();
    BoxAnswers boxes;
    m_launcher->open();
    QStringList faces;
    connect(m_launcher->worker<SelfUpdater>(), &SelfUpdater::downloadProgress, this,
            [this, &faces](int percent) {
                if (percent < 0)
                    faces.append(face());
            });
    QTRY_VERIFY(!faces.isEmpty());
    QCOMPARE(faces.first(), u"Téléchargement en cours... |  | busy | Mise à jour... off"_s);
}

void TestLauncherUpdate::successOfTheDownloadShowsNothing()
{
    m_launcher->open();
    m_launcher->call("onLauncherDownloadProgress", 99, u"Presque"_s);
    const QString before = face();
    BoxAnswers boxes;
    m_launcher->call("onLauncherDownloadFinished", true, u"Téléchargement terminé"_s);
    QCOMPARE(face(), before);
    QVERIFY(boxes.seen().isEmpty());
}

void TestLauncherUpdate::downloadFails()
{
    publish({}, true);
    m_launcher->installClient();
    BoxAnswers boxes;
    boxes.click(QMessageBox::Ok);
    m_launcher->open();
    QTRY_COMPARE(face(), kDownloadBegins);
    m_launcher->call("onLauncherDownloadProgress", -1, u"x"_s);

    // Behind the box the flag is cleared already and the failure is shown; the client check, which
    // gives the button back, comes after it.
    QString faceBehindBox;
    bool busyBehindBox = true;
    boxes
        .meanwhile([this, &faceBehindBox, &busyBehindBox] {
            faceBehindBox = face();
            busyBehindBox = isBusy();
        })
        .click(QMessageBox::Ok);
    m_launcher->call("onLauncherDownloadFinished", false, u"Raté %1"_s);
    QCOMPARE(faceBehindBox, u"Raté %1 | color: #f44336; | 0/100 | Mise à jour... off"_s);
    QVERIFY(!busyBehindBox);
    QCOMPARE(boxes.seen().size(), 2);
    const BoxAnswers::Box box = boxes.seen().last();
    QCOMPARE(box.title, u"Erreur de mise à jour"_s);
    QCOMPARE(box.text, u"Raté %1"_s);
    QCOMPARE(box.icon, QMessageBox::Critical);
    QCOMPARE(box.buttons, QMessageBox::Ok);
    QCOMPARE(box.parent, m_launcher->window());
    // Red stays red.
    QCOMPARE(face(), kReadyInRed);
}

void TestLauncherUpdate::downloadFailsWithoutClient()
{
    m_launcher->open();
    BoxAnswers boxes;
    boxes.closeFromTitleBar();
    m_launcher->call("onLauncherDownloadFinished", false, u"Raté"_s);
    QCOMPARE(boxes.seen().size(), 1);
    QCOMPARE(face(),
             u"Connexion au serveur... | color: #f44336; | 0/100 | Téléchargement... off"_s);
}

void TestLauncherUpdate::downloadFailures_data()
{
    QTest::addColumn<std::function<void(HttpServer &)>>("prepare");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("wholeMessage");
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<QString>("skip");

    using Prepare = std::function<void(HttpServer &)>;
    const auto url = u"http://veyra.test/files/launcher.zip"_s;
    QTest::newRow("no address of an archive")
        << Prepare([](HttpServer &) {}) << QString() << u"URL de téléchargement invalide"_s << true
        << QByteArray() << QString();
    QTest::newRow("the archive cannot be created")
        << Prepare([](HttpServer &) { QDir().mkpath(LauncherFiles::archive()); }) << url
        << u"Impossible de créer le fichier temporaire"_s << true << QByteArray() << QString();
    QTest::newRow("no archive on the server") << Prepare([](HttpServer &server) {
        server.answer(kLauncherPath, HttpAnswer::status(404, "nothing here"));
    }) << url << u"Erreur de téléchargement: "_s
                                              << false << QByteArray() << QString();
    QTest::newRow("the connection breaks") << Prepare([](HttpServer &server) {
        server.answer(kLauncherPath, HttpAnswer::ok("0123456789").resetAfter(5));
    }) << url << u"Erreur de téléchargement: "_s
                                           << false << QByteArray()
                                           << Platform::reasonToSkipResets();
    QTest::newRow("no updater program; the archive is kept") << Prepare([](HttpServer &server) {
        server.answer(kLauncherPath, HttpAnswer::ok("0123456789"));
    }) << url << u"Programme de mise à jour introuvable: "_s + LauncherFiles::updater()
                                                             << true << "0123456789"_ba
                                                             << QString();
}

void TestLauncherUpdate::downloadFailures()
{
    using Prepare = std::function<void(HttpServer &)>;
    QFETCH(const Prepare, prepare);
    QFETCH(const QString, url);
    QFETCH(const QString, message);
    QFETCH(const bool, wholeMessage);
    QFETCH(const QString, skip);
    if (!skip.isEmpty()) {
        QSKIP(qPrintable(skip));
    }
    prepare(m_launcher->server);
    publish({}, false, url);
    m_launcher->installClient();

    BoxAnswers boxes;
    QString faceBehindBox;
    boxes.click(QMessageBox::Yes)
        .meanwhile([this, &faceBehindBox] { faceBehindBox = face(); })
        .pressEscape();
    m_launcher->open();
    QTRY_COMPARE(face(), kReadyInRed);
    QCOMPARE(boxes.seen().size(), 2);
    const BoxAnswers::Box box = boxes.seen().last();
    QCOMPARE(box.title, u"Erreur de mise à jour"_s);
    if (wholeMessage)
        QCOMPARE(box.text, message);
    else
        QVERIFY2(box.text.startsWith(message) && box.text.size() > message.size(),
                 qPrintable(box.text));
    QCOMPARE(faceBehindBox, box.text + u" | color: #f44336; | 0/100 | Mise à jour... off"_s);
    QVERIFY(!isBusy());
    QTEST(Files::read(LauncherFiles::archive()), "archive");
}

void TestLauncherUpdate::failedMandatoryUpdateGoesOn()
{
    m_launcher->server.answer(kLauncherPath, HttpAnswer::status(500));
    publish({}, true);
    BoxAnswers boxes;
    boxes.click(QMessageBox::Ok).click(QMessageBox::Ok);
    m_launcher->open();
    QTRY_COMPARE(m_launcher->server.requestCount(kClientPath), 1);
    QCOMPARE(boxes.seen().size(), 2);
    QCOMPARE(face(),
             u"Connexion au serveur... | color: #f44336; | 0/100 | Téléchargement... off"_s);
}

// --- The hand-over ---

void TestLauncherUpdate::updaterReceivesThreeArguments()
{
    const StandIn updater(LauncherFiles::updater());
    m_launcher->server.answer(kLauncherPath, HttpAnswer::ok("the new launcher"));
    publish({}, true);
    BoxAnswers boxes;
    m_launcher->open();

    QTRY_COMPARE(updater.starts().size(), 1);
    const StandIn::Start start = updater.starts().first();
    QCOMPARE(start.arguments,
             (QStringList{LauncherFiles::archive(), QCoreApplication::applicationDirPath(),
                          QFileInfo(QCoreApplication::applicationFilePath()).fileName()}));
    QVERIFY(QFileInfo(start.arguments.at(0)).isAbsolute());
    QVERIFY(!start.arguments.at(1).endsWith(u'/'));
    QVERIFY(!start.arguments.at(2).contains(u'/'));
    QCOMPARE(start.workingDirectory, QDir::currentPath());
    QCOMPARE(Files::read(LauncherFiles::archive()), "the new launcher"_ba);
    QCOMPARE(boxes.seen().size(), 1);
    QCOMPARE(m_launcher->server.requestCount(kClientPath), 0);
}

void TestLauncherUpdate::handOverBeforeTheQuit()
{
    // No event loop of the application runs here, so that the quit has no effect and the window
    // can be looked at.
    const StandIn updater(LauncherFiles::updater());
    m_launcher->installClient();
    m_launcher->open();
    m_launcher->call("onLauncherDownloadProgress", 100, u"x"_s);
    BoxAnswers boxes;
    m_launcher->call("onLauncherReadyToInstall", LauncherFiles::updater(),
                     u"/tmp/an archive.zip"_s);
    QCOMPARE(face(), u"Installation de la mise à jour... |  | 100/100 | JOUER off"_s);
    QTRY_COMPARE(updater.starts().size(), 1);
    QCOMPARE(updater.starts().first().arguments.first(), u"/tmp/an archive.zip"_s);
    QVERIFY(boxes.seen().isEmpty());
}

void TestLauncherUpdate::updaterCannotBeStarted()
{
    m_launcher->server.answer(kLauncherPath, HttpAnswer::ok("the new launcher"));
    publish({}, true);
    m_launcher->installClient();
    StandIn::installUnstartable(LauncherFiles::updater());
    BoxAnswers boxes;
    QString faceBehindBox;
    bool busyBehindBox = false;
    boxes.click(QMessageBox::Ok)
        .meanwhile([this, &faceBehindBox, &busyBehindBox] {
            faceBehindBox = face();
            busyBehindBox = isBusy();
        })
        .click(QMessageBox::Ok);
    m_launcher->open();

    QTRY_COMPARE(face(), kReady);
    QCOMPARE(boxes.seen().size(), 2);
    const BoxAnswers::Box box = boxes.seen().last();
    QCOMPARE(box.title, u"Erreur"_s);
    QCOMPARE(box.text, u"Impossible de lancer le programme de mise à jour.\n"
                       "Veuillez télécharger la nouvelle version manuellement."_s);
    QCOMPARE(box.icon, QMessageBox::Critical);
    QCOMPARE(box.buttons, QMessageBox::Ok);
    QCOMPARE(box.parent, m_launcher->window());
    QVERIFY2(faceBehindBox.startsWith(u"Installation de la mise à jour... |  | "_s) &&
                 faceBehindBox.endsWith(u" | Mise à jour... off"_s),
             qPrintable(faceBehindBox));
    QVERIFY(busyBehindBox);
    QVERIFY(!isBusy());
    QCOMPARE(Files::read(LauncherFiles::archive()), "the new launcher"_ba);
}

void TestLauncherUpdate::missingUpdaterWithoutClient()
{
    m_launcher->open();
    BoxAnswers boxes;
    boxes.pressEscape();
    m_launcher->call("onLauncherReadyToInstall", u"/nowhere/LauncherUpdater.exe"_s, u"x"_s);
    QCOMPARE(boxes.seen().size(), 1);
    QCOMPARE(face(), kClientDownloadBegins);
}

VEYRA_WIDGET_TEST_MAIN(TestLauncherUpdate)
#include "TestLauncherUpdate.moc"
