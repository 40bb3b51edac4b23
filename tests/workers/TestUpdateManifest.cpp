#include "update/Updater.h"

#include "config/Config.h"
#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Introspection.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"

#include <QNetworkReply>
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
    void arrayIsNoManifest();
    void manifestWithoutFilesIsUpToDate_data();
    void manifestWithoutFilesIsUpToDate();
    void manifestIsVerified();
    void manifestOf50Megabytes();
    void gameFolderIsReadForEachRun();
    void secondRunIsARunOfItsOwn();

private:
    bool run();

    HttpServer m_server;
    std::optional<QTemporaryDir> m_folder;
    std::unique_ptr<Updater> m_updater;
    std::optional<SignalSequence> m_reports;
};

void TestUpdateManifest::init()
{
    m_server.clear();
    m_server.becomeProxy();
    m_folder.emplace();
    Config::instance().setDofusPath(m_folder->filePath(u"jeu"_s));
    m_updater = std::make_unique<Updater>(nullptr);
    m_reports.emplace(m_updater.get());
}

void TestUpdateManifest::cleanup()
{
    QThreadPool::globalInstance()->waitForDone();
    m_updater.reset();
    m_folder.reset();
}

/// Waits as well for whatever else it might say.
bool TestUpdateManifest::run()
{
    const qsizetype ends = m_reports->count(u"finished"_s);
    m_updater->checkForUpdates();
    const bool ended = m_reports->waitFor(u"finished"_s, ends + 1);
    waitForStragglers();
    return ended;
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
}

void TestUpdateManifest::arrayIsNoManifest()
{
    for (const QByteArray &body : {"[]"_ba, R"([{"files": []}])"_ba}) {
        m_server.answer(kPath, HttpAnswer::ok(body));
        QVERIFY(run());
        QCOMPARE(m_reports->texts(), (QStringList{kChecking, kBadManifest}));
        m_reports->clear();
    }
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
    QVERIFY(run());
    QCOMPARE(m_reports->texts(), QStringList{kChecking} + kNothingToVerify);
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
    QVERIFY(run());
    QCOMPARE(m_reports->texts(),
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
    QVERIFY(run());
    QCOMPARE(m_reports->texts(), QStringList{kChecking} + kNothingToVerify);
}

void TestUpdateManifest::gameFolderIsReadForEachRun()
{
    m_server.answer(kPath, HttpAnswer::ok(R"({"files": [{"name": "a.txt", "hash": ")" +
                                          Files::sha256("abc").toLatin1() + R"("}]})"));
    const QString other = m_folder->filePath(u"autre"_s);
    Files::write(other + u"/a.txt"_s, "abc");
    QVERIFY(run());
    QVERIFY(m_reports->texts().contains(
        u"progressChanged(100, \"1 fichier(s) à mettre à jour (désactivé)\")"_s));

    m_reports->clear();
    m_updater->checkForUpdates();
    Config::instance().setDofusPath(other); // as late as while the manifest is under way
    QVERIFY(m_reports->waitFor(u"finished"_s));
    QVERIFY(
        m_reports->texts().contains(u"progressChanged(100, \"Tous les fichiers sont à jour\")"_s));
}

void TestUpdateManifest::secondRunIsARunOfItsOwn()
{
    m_server.answerInTurn(kPath, {HttpAnswer::ok("[]").heldAfter(0), HttpAnswer::status(404)});
    m_updater->checkForUpdates();
    QTRY_COMPARE(m_server.requestCount(kPath), 1);
    QVERIFY(run());
    m_server.release(kPath);
    QVERIFY(m_reports->waitFor(u"finished"_s, 2));
    waitForStragglers();
    QCOMPARE(m_reports->texts(),
             (QStringList{kChecking, kChecking} + kOffline + QStringList{kBadManifest}));
    QCOMPARE(m_server.requestCount(kPath), 2);
}

VEYRA_CORE_TEST_MAIN(TestUpdateManifest)
#include "TestUpdateManifest.moc"
