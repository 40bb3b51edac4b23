#include "app/MainWindow.h"
#include "config/Config.h"
#include "net/ServerChecker.h"
#include "tests/support/BoxAnswers.h"
#include "tests/support/Files.h"
#include "tests/support/StandIn.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kGame = u"/Dofus.exe"_s;
const auto kSubfolder = u"/Client 2.51"_s;

QString missingText(const QString &executable)
{
    return u"Dofus.exe introuvable:\n"_s + executable +
           u"\n\nConfigurez le chemin dans les paramètres."_s;
}

} // namespace

/// A click on "JOUER".
class TestGameLaunch : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_launcher = std::make_unique<LauncherFixture>(); }
    void cleanup() { m_launcher.reset(); }

    void startsTheGame_data();
    void startsTheGame();
    void prefersTheGameFolderItself();
    void eachClickStartsAnother();
    void readsTheGameFolderAtEachClick();
    void missingGame_data();
    void missingGame();
    void emptyGameFolder();
    void failedStartIsNotReported();
    void keepsTheColour();
    void windowStaysAsItWas();
    void doesNothingWhileBusy_data();
    void doesNothingWhileBusy();
    void startsTheGameAfterAFailedExtraction();
    void startsTheGameAfterAFailedVerification();
    void looksForTheGameAfterADownloadThatFailedAtOnce();

private:
    QString face() const { return m_launcher->face(); }
    QString gamePath() const { return m_launcher->gameFolder() + kGame; }
    /// The start-up chain's end: the button can be clicked.
    void openReady();
    void clickPlay() { QTest::mouseClick(m_launcher->playButton(), Qt::LeftButton); }

    std::unique_ptr<LauncherFixture> m_launcher;
};

void TestGameLaunch::openReady()
{
    m_launcher->installClient();
    m_launcher->open();
    m_launcher->call("onLauncherUpdateCheckFinished", false, QString(), QString(), false);
    QCOMPARE(face(), u"Prêt à jouer ! |  | 100/100 | JOUER on"_s);
}

void TestGameLaunch::startsTheGame_data()
{
    QTest::addColumn<QString>("subfolder");
    QTest::newRow("from the game folder") << QString();
    QTest::newRow("from the sub-folder of the client") << kSubfolder;
}

void TestGameLaunch::startsTheGame()
{
    QFETCH(const QString, subfolder);
    const QString folder = m_launcher->gameFolder() + subfolder;
    const StandIn game(folder + kGame);
    openReady();
    BoxAnswers boxes;
    clickPlay();
    QCOMPARE(face(), u"Jeu lancé ! |  | 100/100 | JOUER on"_s);
    QTRY_COMPARE(game.starts().size(), 1);
    QCOMPARE(game.starts().first().arguments, QStringList());
    QCOMPARE(game.starts().first().workingDirectory, QDir(folder).canonicalPath());
    QVERIFY(boxes.seen().isEmpty());
}

void TestGameLaunch::prefersTheGameFolderItself()
{
    const StandIn game(gamePath());
    const StandIn other(m_launcher->gameFolder() + kSubfolder + kGame);
    openReady();
    clickPlay();
    QTRY_COMPARE(game.starts().size(), 1);
    QCOMPARE(game.starts().first().workingDirectory,
             QDir(m_launcher->gameFolder()).canonicalPath());
    waitForStragglers(std::chrono::milliseconds(100));
    QVERIFY(other.starts().isEmpty());
}

void TestGameLaunch::eachClickStartsAnother()
{
    const StandIn game(gamePath());
    openReady();
    for (int i = 0; i < 3; ++i)
        clickPlay();
    QTRY_COMPARE(game.starts().size(), 3);
}

void TestGameLaunch::readsTheGameFolderAtEachClick()
{
    const StandIn game(gamePath());
    const QTemporaryDir otherFolder;
    const StandIn other(otherFolder.path() + kGame);
    openReady();
    clickPlay();
    Config::instance().setDofusPath(otherFolder.path());
    clickPlay();
    QTRY_COMPARE(game.starts().size(), 1);
    QTRY_COMPARE(other.starts().size(), 1);
}

void TestGameLaunch::missingGame_data()
{
    QTest::addColumn<QString>("answer");
    for (const char *answer : {"Ok", "Escape", "the title bar"})
        QTest::addRow("the box is closed by %s", answer) << QString::fromLatin1(answer);
}

void TestGameLaunch::missingGame()
{
    QFETCH(const QString, answer);
    openReady();
    BoxAnswers boxes;
    QString faceBehindBox;
    boxes.meanwhile([this, &faceBehindBox] { faceBehindBox = face(); });
    if (answer == u"Ok"_s)
        boxes.click(QMessageBox::Ok);
    else if (answer == u"Escape"_s)
        boxes.pressEscape();
    else
        boxes.closeFromTitleBar();
    const QString before = face();
    clickPlay();

    QCOMPARE(boxes.seen().size(), 1);
    const BoxAnswers::Box box = boxes.seen().first();
    QCOMPARE(box.title, u"Erreur"_s);
    QCOMPARE(box.text, missingText(gamePath()));
    QCOMPARE(box.icon, QMessageBox::Critical);
    QCOMPARE(box.buttons, QMessageBox::Ok);
    QCOMPARE(box.parent, m_launcher->window());
    QVERIFY(box.modal);
    QCOMPARE(faceBehindBox, before);
    QCOMPARE(face(), before);
}

void TestGameLaunch::emptyGameFolder()
{
    openReady();
    Config::instance().setDofusPath(QString());
    BoxAnswers boxes;
    clickPlay();
    QCOMPARE(boxes.seen().size(), 1);
    QCOMPARE(boxes.seen().first().text, missingText(u"/Dofus.exe"_s));
}

void TestGameLaunch::failedStartIsNotReported()
{
    StandIn::installUnstartable(gamePath());
    openReady();
    BoxAnswers boxes;
    clickPlay();
    QCOMPARE(face(), u"Jeu lancé ! |  | 100/100 | JOUER on"_s);
    waitForStragglers();
    QVERIFY(boxes.seen().isEmpty());
}

void TestGameLaunch::keepsTheColour()
{
    const StandIn game(gamePath());
    openReady();
    m_launcher->call("onUpdateFinished", false, u"Raté"_s);
    clickPlay();
    QCOMPARE(face(), u"Jeu lancé ! | color: #f44336; | 100/100 | JOUER on"_s);
}

void TestGameLaunch::windowStaysAsItWas()
{
    const StandIn game(gamePath());
    openReady();
    const QRect place = m_launcher->window()->geometry();
    clickPlay();
    QTRY_COMPARE(game.starts().size(), 1);
    QVERIFY(m_launcher->window()->isVisible());
    QCOMPARE(m_launcher->window()->windowState(), Qt::WindowNoState);
    QCOMPARE(m_launcher->window()->geometry(), place);

    // And goes on with its life.
    m_launcher->server.answer("/api/status.php",
                              HttpAnswer::ok(R"({"online": true, "players": 2})"));
    m_launcher->worker<ServerChecker>()->checkStatus();
    QTRY_COMPARE(m_launcher->label(u"playersLabel"_s)->text(), u"2 joueurs connectés"_s);
    QCOMPARE(m_launcher->label(u"progressLabel"_s)->text(), u"Jeu lancé !"_s);
}

void TestGameLaunch::doesNothingWhileBusy_data()
{
    QTest::addColumn<std::function<void(LauncherFixture &)>>("becomeBusy");
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("request");

    using BecomeBusy = std::function<void(LauncherFixture &)>;
    QTest::newRow("the files are verified") << BecomeBusy([](LauncherFixture &launcher) {
        launcher.call("onClientExtractionFinished", true, u"Fini"_s);
    }) << u"Mise à jour..."_s << u"/updates/version.json"_s;
    QTest::newRow("the client is downloaded") << BecomeBusy([](LauncherFixture &launcher) {
        launcher.call("onLauncherUpdateCheckFinished", false, QString(), QString(), false);
    }) << u"Téléchargement..."_s << u"/client/DofusClient.zip"_s;
    QTest::newRow("the launcher is updated") << BecomeBusy([](LauncherFixture &launcher) {
        launcher.server.answer("/api/launcher_version.json",
                               HttpAnswer::ok(R"({"version": "2", "required": true,
                                      "download_url": "http://veyra.test/launcher.zip"})"));
        launcher.server.answer("/launcher.zip", HttpAnswer::never());
    }) << u"Mise à jour..."_s << u"/launcher.zip"_s;
}

void TestGameLaunch::doesNothingWhileBusy()
{
    using BecomeBusy = std::function<void(LauncherFixture &)>;
    QFETCH(const BecomeBusy, becomeBusy);
    QFETCH(const QString, button);
    QFETCH(const QString, request);
    const StandIn game(gamePath());
    BoxAnswers boxes;
    m_launcher->open();
    becomeBusy(*m_launcher);
    QTRY_COMPARE(m_launcher->server.requestCount(request.toLatin1()), 1);
    QCOMPARE(m_launcher->playButton()->text(), button);
    const qsizetype boxesBefore = boxes.seen().size();
    const QString before = face();

    QVERIFY(!m_launcher->playButton()->isEnabled());
    clickPlay();
    // A click that arrives all the same.
    emit m_launcher->playButton()->clicked();
    m_launcher->call("onPlayClicked");
    QCOMPARE(face(), before);
    waitForStragglers(std::chrono::milliseconds(200));
    QVERIFY(game.starts().isEmpty());
    QCOMPARE(boxes.seen().size(), boxesBefore);
}

void TestGameLaunch::startsTheGameAfterAFailedExtraction()
{
    const StandIn game(gamePath());
    m_launcher->open();
    m_launcher->call("onLauncherUpdateCheckFinished", false, QString(), QString(), false);
    QTRY_COMPARE(m_launcher->server.requestCount("/client/DofusClient.zip"), 1);
    m_launcher->call("onClientExtractionStarted");
    BoxAnswers boxes;
    boxes.click(QMessageBox::Ok);
    m_launcher->call("onClientExtractionFinished", false, u"Raté"_s);
    clickPlay();
    QCOMPARE(m_launcher->label(u"progressLabel"_s)->text(), u"Jeu lancé !"_s);
    QTRY_COMPARE(game.starts().size(), 1);
}

void TestGameLaunch::startsTheGameAfterAFailedVerification()
{
    const StandIn game(gamePath());
    m_launcher->server.answer("/updates/version.json", HttpAnswer::ok("[]"));
    m_launcher->open();
    m_launcher->call("onClientExtractionFinished", true, u"Fini"_s);
    QTRY_COMPARE(face(),
                 u"Erreur: Format de version invalide | color: #f44336; | 0/100 | JOUER on"_s);
    clickPlay();
    QCOMPARE(m_launcher->label(u"progressLabel"_s)->text(), u"Jeu lancé !"_s);
    QTRY_COMPARE(game.starts().size(), 1);
}

void TestGameLaunch::looksForTheGameAfterADownloadThatFailedAtOnce()
{
    // No folder can be made below a file.
    const QString file = m_launcher->gameFolder() + u"/fichier"_s;
    Files::write(file, "no folder");
    Config::instance().setDofusPath(file);
    m_launcher->open();
    BoxAnswers boxes;
    boxes.click(QMessageBox::Ok).click(QMessageBox::Ok);
    m_launcher->call("onLauncherUpdateCheckFinished", false, QString(), QString(), false);
    QCOMPARE(boxes.seen().size(), 1);
    QCOMPARE(boxes.seen().first().title, u"Erreur de téléchargement"_s);

    clickPlay();
    QCOMPARE(boxes.seen().size(), 2);
    QCOMPARE(boxes.seen().last().text, missingText(file + kGame));
}

VEYRA_WIDGET_TEST_MAIN(TestGameLaunch)
#include "TestGameLaunch.moc"
