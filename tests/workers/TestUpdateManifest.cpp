#include "update/Updater.h"

#include "config/Config.h"
#include "tests/support/BadAnswers.h"
#include "tests/support/Files.h"
#include "tests/support/Introspection.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/TestEnvironment.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include <memory>
#include <optional>
#include <type_traits>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kPath = "/updates/version.json";

const auto kChecking = u"progressChanged(0, \"Vérification des mises à jour...\")"_s;
const auto kBadManifest = u"finished(false, \"Erreur: Format de version invalide\")"_s;
const QStringList kOffline{
    u"progressChanged(100, \"Mode hors ligne - Impossible de vérifier les mises à jour\")"_s,
    u"finished(true, \"Mode hors ligne\")"_s};
const QStringList kNothingToVerify{u"progressChanged(0, \"Vérification de 0 fichiers...\")"_s,
                                   u"progressChanged(100, \"Tous les fichiers sont à jour\")"_s,
                                   u"finished(true, \"Prêt à jouer !\")"_s};

} // namespace

static_assert(!std::is_default_constructible_v<Updater>);
static_assert(std::is_constructible_v<Updater, QObject *>);
static_assert(std::is_same_v<decltype(&Updater::checkForUpdates), void (Updater::*)()>);
static_assert(std::is_same_v<decltype(&Updater::checkFilesInBackground),
                             void (Updater::*)(const QJsonArray &, const QString &)>);
static_assert(std::is_same_v<decltype(&Updater::downloadNextFile), void (Updater::*)()>);
static_assert(std::is_same_v<decltype(&Updater::calculateFileHash), QString (*)(const QString &)>);

/// Fetching the manifest and telling what it is; the verification and the download queue have
/// programs of their own.
class TestUpdateManifest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void declaresTwoSignalsAndFourSlots();
    void ownsItsManager();
    void constructorSendsNothing();
    void requestIsPlain();

    void failureMeansOffline_data();
    void failureMeansOffline();
    void unreachableServerMeansOffline();
    void brokenManifestIsAFailure_data();
    void brokenManifestIsAFailure();
    void manifestWithoutFilesIsUpToDate_data();
    void manifestWithoutFilesIsUpToDate();
    void manifestIsVerified();
    void manifestOf50Megabytes();
    void followsRedirects();
    void gameFolderIsReadForEachRun();
    void secondRunIsARunOfItsOwn();
    void replyIsGoneAfterwards();
    void mayBeDestroyedWhileTheRequestIsUnderWay();

private:
    HttpServer m_server;
    std::optional<QTemporaryDir> m_folder;
};

void TestUpdateManifest::init()
{
    m_server.clear();
    m_server.becomeProxy();
    m_folder.emplace();
    Config::instance().setDofusPath(m_folder->filePath(u"jeu"_s));
}

void TestUpdateManifest::cleanup()
{
    QThreadPool::globalInstance()->waitForDone();
    m_folder.reset();
}

void TestUpdateManifest::declaresTwoSignalsAndFourSlots()
{
    QCOMPARE(Introspection::declarations(Updater::staticMetaObject),
             (QStringList{
                 u"public signal progressChanged(int percent, QString message)"_s,
                 u"public signal finished(bool success, QString message)"_s,
                 u"private slot onVersionCheckFinished(QNetworkReply* reply)"_s,
                 u"private slot onFileDownloadProgress(qlonglong received, qlonglong total)"_s,
                 u"private slot onFileDownloadFinished(QNetworkReply* reply)"_s,
                 u"private slot onHashCheckFinished()"_s,
             }));
    QCOMPARE(Updater::staticMetaObject.superClass(), &QObject::staticMetaObject);
}

void TestUpdateManifest::ownsItsManager()
{
    QObject parent;
    const auto *updater = new Updater(&parent);
    QCOMPARE(updater->parent(), &parent);
    QCOMPARE(updater->children().size(), 1);
    QVERIFY(qobject_cast<QNetworkAccessManager *>(updater->children().first()));
}

void TestUpdateManifest::constructorSendsNothing()
{
    const Updater updater(nullptr);
    QCOMPARE(updater.findChildren<QNetworkReply *>().size(), 0);
    QTest::qWait(50);
    QCOMPARE(m_server.requests().size(), 0);
}

void TestUpdateManifest::requestIsPlain()
{
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QCOMPARE(reports.texts(), QStringList{kChecking});

    const QNetworkReply *reply = Introspection::pendingReply(updater);
    QVERIFY(reply);
    QCOMPARE(reply->operation(), QNetworkAccessManager::GetOperation);
    QCOMPARE(Introspection::traits(reply->request()), QStringList());

    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(m_server.requests().size(), 1);
    QCOMPARE(m_server.requests().first().method, "GET"_ba);
    QCOMPARE(m_server.requests().first().target, "http://veyra.test/updates/version.json"_ba);
}

void TestUpdateManifest::failureMeansOffline_data()
{
    BadAnswers::addFailures(R"({"files": []})");
}

void TestUpdateManifest::failureMeansOffline()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const QString, skip);
    if (!skip.isEmpty()) {
        QSKIP(qPrintable(skip));
    }
    m_server.answer(kPath, answer);
    BadAnswers::loopAt(m_server);
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QVERIFY(reports.waitFor(u"finished"_s));
    QTest::qWait(20);
    QCOMPARE(reports.texts(), QStringList{kChecking} + kOffline);
}

void TestUpdateManifest::unreachableServerMeansOffline()
{
    HttpServer dead;
    dead.becomeProxy();
    dead.stopListening();
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(reports.texts(), QStringList{kChecking} + kOffline);
}

void TestUpdateManifest::brokenManifestIsAFailure_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    for (const auto &[name, answer] : BadAnswers::brokenJson())
        QTest::newRow(name) << answer;
    QTest::newRow("an array") << HttpAnswer::ok("[]");
    QTest::newRow("an array that holds a manifest") << HttpAnswer::ok(R"([{"files": []}])");
}

void TestUpdateManifest::brokenManifestIsAFailure()
{
    QFETCH(const HttpAnswer, answer);
    m_server.answer(kPath, answer);
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QVERIFY(reports.waitFor(u"finished"_s));
    QTest::qWait(20);
    QCOMPARE(reports.texts(), (QStringList{kChecking, kBadManifest}));
}

void TestUpdateManifest::manifestWithoutFilesIsUpToDate_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("an empty object") << "{}"_ba;
    QTest::newRow("an empty list") << R"({"files": []})"_ba;
    QTest::newRow("files as null") << R"({"files": null})"_ba;
    QTest::newRow("files as a text") << R"({"files": "a.txt"})"_ba;
    QTest::newRow("files as a number") << R"({"files": 3})"_ba;
    QTest::newRow("files as a boolean") << R"({"files": true})"_ba;
    QTest::newRow("files as an object") << R"({"files": {"name": "a", "hash": "b"}})"_ba;
    QTest::newRow("files under another name") << R"({"Files": [{"name": "a", "hash": "b"}]})"_ba;
    QTest::newRow("other keys only") << R"({"version": "2.51", "size": 1e300, "date": -0})"_ba;
    QTest::newRow("a byte order mark") << "\xef\xbb\xbf{}"_ba;
}

void TestUpdateManifest::manifestWithoutFilesIsUpToDate()
{
    QFETCH(const QByteArray, body);
    m_server.answer(kPath, HttpAnswer::ok(body));
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QVERIFY(reports.waitFor(u"finished"_s));
    QTest::qWait(20);
    QCOMPARE(reports.texts(), QStringList{kChecking} + kNothingToVerify);
    QCOMPARE(m_server.requests().size(), 1);
}

void TestUpdateManifest::manifestIsVerified()
{
    Files::write(m_folder->filePath(u"jeu/données/été.txt"_s), "abc");
    m_server.answer(kPath, HttpAnswer::ok(R"({"version": 7, "files": [
        {"name": "données/été.txt", "size": 3, "hash": ")" +
                                          Files::sha256("abc").toLatin1() + R"("},
        {"name": "absent.txt", "hash": ")" +
                                          Files::sha256("abc").toLatin1() + R"("}]})"));
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QVERIFY(reports.waitFor(u"finished"_s));
    QTest::qWait(20);
    QCOMPARE(reports.texts(),
             (QStringList{kChecking, u"progressChanged(0, \"Vérification de 2 fichiers...\")"_s,
                          u"progressChanged(50, \"Vérification des fichiers: 1/2\")"_s,
                          u"progressChanged(100, \"Vérification des fichiers: 2/2\")"_s,
                          u"progressChanged(100, \"1 fichier(s) à mettre à jour (désactivé)\")"_s,
                          u"finished(true, \"Prêt à jouer !\")"_s}));
    // Nothing is fetched.
    QCOMPARE(m_server.requests().size(), 1);
}

void TestUpdateManifest::manifestOf50Megabytes()
{
    m_server.answer(kPath, HttpAnswer::ok(R"({"files": [], "notes": ")" +
                                          QByteArray(qsizetype{50} * 1024 * 1024, 'x') + R"("})"));
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(reports.texts(), QStringList{kChecking} + kNothingToVerify);
}

void TestUpdateManifest::followsRedirects()
{
    m_server.answer(kPath, HttpAnswer::redirect("/moved", 308));
    m_server.answer("/moved", HttpAnswer::ok("{}"));
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(reports.texts(), QStringList{kChecking} + kNothingToVerify);
}

void TestUpdateManifest::gameFolderIsReadForEachRun()
{
    m_server.answer(kPath, HttpAnswer::ok(R"({"files": [{"name": "a.txt", "hash": ")" +
                                          Files::sha256("abc").toLatin1() + R"("}]})"));
    const QString other = m_folder->filePath(u"autre"_s);
    Files::write(other + u"/a.txt"_s, "abc");
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QVERIFY(reports.waitFor(u"finished"_s));
    QVERIFY(reports.texts().contains(
        u"progressChanged(100, \"1 fichier(s) à mettre à jour (désactivé)\")"_s));

    reports.clear();
    updater.checkForUpdates();
    Config::instance().setDofusPath(other); // as late as while the manifest is under way
    QVERIFY(reports.waitFor(u"finished"_s));
    QVERIFY(reports.texts().contains(u"progressChanged(100, \"Tous les fichiers sont à jour\")"_s));
}

void TestUpdateManifest::secondRunIsARunOfItsOwn()
{
    m_server.answerInTurn(kPath, {HttpAnswer::ok("[]").heldAfter(0), HttpAnswer::status(404)});
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdates();
    QTRY_COMPARE(m_server.requestCount(kPath), 1);
    updater.checkForUpdates();
    QVERIFY(reports.waitFor(u"finished"_s));
    m_server.release(kPath);
    QVERIFY(reports.waitFor(u"finished"_s, 2));
    QTest::qWait(20);
    QCOMPARE(reports.texts(),
             (QStringList{kChecking, kChecking} + kOffline + QStringList{kBadManifest}));
    QCOMPARE(m_server.requestCount(kPath), 2);
}

void TestUpdateManifest::replyIsGoneAfterwards()
{
    for (const HttpAnswer &answer :
         {HttpAnswer::ok("{}"), HttpAnswer::ok("[]"), HttpAnswer::status(500)}) {
        m_server.answer(kPath, answer);
        Updater updater(nullptr);
        SignalSequence reports(&updater);
        updater.checkForUpdates();
        const QPointer<QNetworkReply> reply = Introspection::pendingReply(updater);
        QVERIFY(reply);
        QVERIFY(reports.waitFor(u"finished"_s));
        QTRY_VERIFY(!reply);
    }
}

void TestUpdateManifest::mayBeDestroyedWhileTheRequestIsUnderWay()
{
    m_server.answer(kPath, HttpAnswer::never());
    auto updater = std::make_unique<Updater>(nullptr);
    SignalSequence reports(updater.get());
    updater->checkForUpdates();
    QTRY_COMPARE(m_server.requestCount(kPath), 1);
    updater.reset();
    QTest::qWait(20);
    QCOMPARE(reports.texts(), QStringList{kChecking});
}

VEYRA_CORE_TEST_MAIN(TestUpdateManifest)
#include "TestUpdateManifest.moc"
