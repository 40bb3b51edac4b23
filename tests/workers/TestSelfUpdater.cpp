#include "update/SelfUpdater.h"

#include "tests/support/Files.h"
#include "tests/support/FullDisk.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Introspection.h"
#include "tests/support/LauncherFiles.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QNetworkReply>
#include <QTest>

#include <memory>
#include <optional>
#include <type_traits>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kVersionPath = "/api/launcher_version.json";
constexpr auto kArchiveUrlPath = "/new/launcher.zip";
constexpr auto kRecord =
    R"({"version": "1.0.1", "download_url": "http://veyra.test/new/launcher.zip"})";

const auto kStarted = u"downloadProgress(0, \"Téléchargement de la mise à jour...\")"_s;
const auto kKnownSize = u"downloadProgress(%1, \"Téléchargement: %.1f / %.1f MB\")"_s;
const auto kDone = u"downloadFinished(true, \"Téléchargement terminé\")"_s;
const auto kInvalidUrl = u"downloadFinished(false, \"URL de téléchargement invalide\")"_s;
const auto kCannotCreate =
    u"downloadFinished(false, \"Impossible de créer le fichier temporaire\")"_s;

} // namespace

static_assert(std::is_same_v<decltype(&SelfUpdater::checkForUpdate), void (SelfUpdater::*)()>);
static_assert(std::is_same_v<decltype(&SelfUpdater::downloadUpdate), void (SelfUpdater::*)()>);

class TestSelfUpdater : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void declaresFourSignalsAndThreeSlots();
    void comparesVersions_data();
    void comparesVersions();

    void reportsWhatTheRecordSays_data();
    void reportsWhatTheRecordSays();
    void checkMayRunAgain();
    void failedCheckKeepsTheAddressOfTheArchive_data();
    void failedCheckKeepsTheAddressOfTheArchive();
    void newRecordReplacesTheAddressOfTheArchive();

    void downloadWithoutAddressFails_data();
    void downloadWithoutAddressFails();
    void downloadAsksForTheAddressAsItStands();
    void secondDownloadReplacesTheFirst();
    void missingUpdaterIsReportedAfterTheSuccess();
    void archiveThatCannotBeCreated();
    void unusableAddressLeavesNothing_data();
    void unusableAddressLeavesNothing();
    void fullDiskIsNotNoticed();

private:
    /// Lets the updater learn the archive's address from a version record.
    void learnAddress(const QByteArray &record = kRecord);
    bool check();
    /// Waits for the end that is a success.
    bool download();

    HttpServer m_server;
    std::unique_ptr<SelfUpdater> m_updater;
    std::optional<SignalSequence> m_reports;
};

void TestSelfUpdater::init()
{
    m_server.clear();
    m_server.becomeProxy();
    QDir(LauncherFiles::archive()).removeRecursively();
    QFile::remove(LauncherFiles::archive());
    Files::write(LauncherFiles::updater(), "updater");
    m_updater = std::make_unique<SelfUpdater>(nullptr);
    m_reports.emplace(m_updater.get());
}

void TestSelfUpdater::learnAddress(const QByteArray &record)
{
    m_server.answer(kVersionPath, HttpAnswer::ok(record));
    QVERIFY(check());
    QTRY_COMPARE(m_updater->findChildren<QNetworkReply *>().size(), 0);
    m_reports->clear();
}

bool TestSelfUpdater::check()
{
    const qsizetype ends = m_reports->count(u"updateCheckFinished"_s);
    m_updater->checkForUpdate();
    return m_reports->waitFor(u"updateCheckFinished"_s, ends + 1);
}

bool TestSelfUpdater::download()
{
    const qsizetype ends = m_reports->count(u"readyToInstall"_s);
    m_updater->downloadUpdate();
    return m_reports->waitFor(u"readyToInstall"_s, ends + 1);
}

void TestSelfUpdater::declaresFourSignalsAndThreeSlots()
{
    QCOMPARE(Introspection::declarations(SelfUpdater::staticMetaObject),
             (QStringList{
                 u"public signal updateCheckFinished(bool updateAvailable, QString newVersion, "
                 "QString changelog, bool required)"_s,
                 u"public signal downloadProgress(int percent, QString message)"_s,
                 u"public signal downloadFinished(bool success, QString message)"_s,
                 u"public signal readyToInstall(QString updaterPath, QString newLauncherPath)"_s,
                 u"private slot onVersionCheckFinished(QNetworkReply* reply)"_s,
                 u"private slot onDownloadProgress(qlonglong received, qlonglong total)"_s,
                 u"private slot onDownloadFinished(QNetworkReply* reply)"_s,
             }));
}

void TestSelfUpdater::comparesVersions_data()
{
    QTest::addColumn<QString>("candidate");
    QTest::addColumn<QString>("current");
    QTest::addColumn<bool>("newer");

    const auto row = [](const char *name, const char *candidate, const char *current, bool newer) {
        QTest::newRow(name) << QString::fromUtf8(candidate) << QString::fromUtf8(current) << newer;
    };
    row("the same version", "1.0.0", "1.0.0", false);
    row("a newer last part", "1.0.1", "1.0.0", true);
    row("an older last part", "1.0.0", "1.0.1", false);
    row("a newer middle part", "1.1.0", "1.0.9", true);
    row("an older middle part beats a newer last one", "1.0.9", "1.1.0", false);
    row("a newer first part", "2.0.0", "1.9.9", true);
    row("an older first part beats all that follows", "0.9.9", "1.0.0", false);
    row("one part that is newer", "2", "1.0.0", true);
    row("one part that is equal", "1", "1.0.0", false);
    row("two parts that are equal", "1.0", "1.0.0", false);
    row("a missing part counts as zero, on this side", "1.0", "1.0.1", false);
    row("a missing part counts as zero, on that side", "1.0.1", "1.0", true);
    row("a fourth part that is not zero", "1.0.0.1", "1.0.0", true);
    row("a fourth part that is zero", "1.0.0.0", "1.0.0", false);
    row("parts are numbers, not texts", "1.10.0", "1.9.0", true);
    row("zeros in front do not count", "1.01.0", "1.1.0", false);
    row("zeros in front of a newer part", "1.002", "1.1", true);
    row("a letter reads as zero", "1.0.a", "1.0.0", false);
    row("a letter behind a number reads as zero", "1.1a", "1.0", false);
    row("a letter here reads as zero there too", "1.0.1", "1.0.b", true);
    row("a v in front reads as zero", "v2.0", "1.0.0", false);
    row("a v in front of the running version", "0.1", "v2.0", true);
    row("a suffix reads as zero", "2-beta", "1.0.0", false);
    row("a hexadecimal number reads as zero", "0x2", "1", false);
    row("an exponent reads as zero", "2e1", "1", false);
    row("empty", "", "1.0.0", false);
    row("empty against zero", "", "0", false);
    row("both empty", "", "", false);
    row("anything against empty", "0.1", "", true);
    row("only dots", "...", "1", false);
    row("an empty part is zero", "1..2", "1.0.1", true);
    row("an empty part is no more than zero", "1..2", "1.1.0", false);
    row("a dot in front", ".2", "0.1", true);
    row("a dot behind", "1.0.", "1.0.0", false);
    row("below zero is never newer", "-1", "1.0.0", false);
    row("below zero is older than nothing", "0.-1", "0", false);
    row("a plus sign belongs to a number", "+2", "1", true);
    row("a blank in front reads as zero", " 2", "1.0.0", false);
    row("a blank behind reads as zero", "2 ", "1.0.0", false);
    row("blanks around a part read as zero", "1. 5 .0", "1.0.0", false);
    row("a line end reads as zero", "2\n", "1.0.0", false);
    row("a no-break space reads as zero", "2\u00a0", "1.0.0", false);
    QTest::newRow("a NUL behind reads as zero") << u"2\0"_s << u"1.0.0"_s << false;
    QTest::newRow("a NUL within reads as zero") << u"2\0.5"_s << u"1.0.0"_s << false;
    row("two signs read as zero", "++2", "1.0.0", false);
    row("a sign behind reads as zero", "2+", "1.0.0", false);
    row("a sign alone reads as zero", "1.+", "1.0", false);
    row("a decimal comma reads as zero", "2,5", "1.0.0", false);
    row("digits of another script read as zero", "\u0662", "1", false);
    row("the largest 32-bit number", "2147483647", "2147483646", true);
    row("2^31 does not fit and reads as zero", "2147483648", "1.0.0", false);
    row("99999999999 does not fit and reads as zero", "99999999999", "1.0.0", false);
    row("a number of a thousand digits", QByteArray(1000, '9').constData(), "1.0.0", false);
    row("the smallest 32-bit number", "-2147483648", "0", false);
}

void TestSelfUpdater::comparesVersions()
{
    QFETCH(const QString, candidate);
    QFETCH(const QString, current);
    QTEST(SelfUpdater::isNewerVersion(candidate, current), "newer");
}

void TestSelfUpdater::reportsWhatTheRecordSays_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("report");

    const auto row = [](const char *name, const char *body, const char *report) {
        QTest::newRow(name) << QByteArray(body)
                            << u"updateCheckFinished("_s + QString::fromUtf8(report) + u')';
    };
    row("the same version, required", R"({"version": "1.0.0", "required": true})",
        R"(false, "1.0.0", "", true)");
    row("a newer version",
        R"({"version": "1.0.1", "download_url": "...", "changelog": "Corrections"})",
        R"(true, "1.0.1", "Corrections", false)");
    row("a newer version, required", R"({"version": "1.0.1", "required": true})",
        R"(true, "1.0.1", "", true)");
    row("one part", R"({"version": "2"})", R"(true, "2", "", false)");
    row("an older version", R"({"version": "0.9.9"})", R"(false, "0.9.9", "", false)");
    row("a version that is a number", R"({"version": 2})", R"(false, "", "", false)");
    row("a version that is null", R"({"version": null})", R"(false, "", "", false)");
    row("an empty object", "{}", R"(false, "", "", false)");
    row("an older version keeps its notes", R"({"version": "0.1", "changelog": "Vieux"})",
        R"(false, "0.1", "Vieux", false)");
    row("notes of another type", R"({"version": "3", "changelog": ["a"]})",
        R"(true, "3", "", false)");
    row("notes that are a number", R"({"version": "3", "changelog": 7})",
        R"(true, "3", "", false)");
    row("notes with accents, lines and placeholders",
        R"({"version": "3", "changelog": "Été\n%1 é 🎉"})", "true, \"3\", \"Été\n%1 é 🎉\", false");
    row("required as a text", R"({"version": "3", "required": "true"})", R"(true, "3", "", false)");
    row("required as a number", R"({"version": "3", "required": 1})", R"(true, "3", "", false)");
    row("required as null", R"({"version": "3", "required": null})", R"(true, "3", "", false)");
    row("keys in another case do not count", R"({"Version": "3"})", R"(false, "", "", false)");
    row("a byte order mark does no harm", "\xef\xbb\xbf{\"version\": \"3\"}",
        R"(true, "3", "", false)");
    row("an array", "[]", R"(false, "", "", false)");
    row("an array that holds a record", R"([{"version": "3"}])", R"(false, "", "", false)");
}

void TestSelfUpdater::reportsWhatTheRecordSays()
{
    QFETCH(const QByteArray, body);
    QFETCH(const QString, report);
    m_server.answer(kVersionPath, HttpAnswer::ok(body));
    QVERIFY(check());
    QCOMPARE(m_reports->texts(), QStringList{report});
}

void TestSelfUpdater::checkMayRunAgain()
{
    m_server.answerInTurn(kVersionPath, {HttpAnswer::ok(R"({"version": "5", "changelog": "a",
                                                            "required": true})"),
                                         HttpAnswer::ok(R"({"version": "0.5"})")});
    QVERIFY(check());
    QVERIFY(check());
    QCOMPARE(m_reports->texts(),
             (QStringList{u"updateCheckFinished(true, \"5\", \"a\", true)"_s,
                          u"updateCheckFinished(false, \"0.5\", \"\", false)"_s}));
}

void TestSelfUpdater::failedCheckKeepsTheAddressOfTheArchive_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::newRow("after an error") << HttpAnswer::status(500);
    QTest::newRow("after an array") << HttpAnswer::ok("[]");
    QTest::newRow("after noise") << HttpAnswer::ok("noise");
}

void TestSelfUpdater::failedCheckKeepsTheAddressOfTheArchive()
{
    QFETCH(const HttpAnswer, answer);
    m_server.answer(kArchiveUrlPath, HttpAnswer::ok("archive"));
    learnAddress();
    m_server.answer(kVersionPath, answer);
    QVERIFY(check());

    QVERIFY(download());
    QCOMPARE(Files::read(LauncherFiles::archive()), "archive"_ba);
}

void TestSelfUpdater::newRecordReplacesTheAddressOfTheArchive()
{
    learnAddress();
    learnAddress(R"({"version": "0.1"})");
    m_updater->downloadUpdate();
    QCOMPARE(m_reports->texts(), QStringList{kInvalidUrl});
}

void TestSelfUpdater::downloadWithoutAddressFails_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::newRow("no check at all") << QByteArray();
    QTest::newRow("a record without address") << R"({"version": "2"})"_ba;
    QTest::newRow("a record with an empty address") << R"({"version": "2", "download_url": ""})"_ba;
    QTest::newRow("an address that is a number") << R"({"version": "2", "download_url": 7})"_ba;
    QTest::newRow("a check that failed") << "noise"_ba;
}

void TestSelfUpdater::downloadWithoutAddressFails()
{
    QFETCH(const QByteArray, record);
    if (!record.isNull())
        learnAddress(record);
    const qsizetype requests = m_server.requests().size();

    m_updater->downloadUpdate();
    QCOMPARE(m_reports->texts(), QStringList{kInvalidUrl});
    QVERIFY(!QFile::exists(LauncherFiles::archive()));
    QCOMPARE(m_updater->findChildren<QNetworkReply *>().size(), 0);
    waitForStragglers();
    QCOMPARE(m_server.requests().size(), requests);
}

void TestSelfUpdater::downloadAsksForTheAddressAsItStands()
{
    learnAddress(R"({"version": "2",
                     "download_url": "http://dl.veyra.test:81/é à/v 2%20.zip?a=1&b=%C3%A9"})");
    m_updater->downloadUpdate();
    QVERIFY(m_reports->waitFor(u"downloadFinished"_s));
    QCOMPARE(m_server.requests().last().target,
             "http://dl.veyra.test:81/%C3%A9%20%C3%A0/v%202%20.zip?a=1&b=%C3%A9"_ba);
}

void TestSelfUpdater::secondDownloadReplacesTheFirst()
{
    m_server.answerInTurn(kArchiveUrlPath, {HttpAnswer::ok("the first"), HttpAnswer::ok("second")});
    learnAddress();
    QVERIFY(download());
    QCOMPARE(Files::read(LauncherFiles::archive()), "the first"_ba);
    QVERIFY(download());
    QCOMPARE(Files::read(LauncherFiles::archive()), "second"_ba);
}

void TestSelfUpdater::missingUpdaterIsReportedAfterTheSuccess()
{
    QVERIFY(QFile::remove(LauncherFiles::updater()));
    m_server.answer(kArchiveUrlPath, HttpAnswer::ok("archive"));
    learnAddress();
    m_updater->downloadUpdate();
    QVERIFY(m_reports->waitFor(u"downloadFinished"_s, 2));
    waitForStragglers();
    QCOMPARE(m_reports->withoutRepeats(),
             (QStringList{kStarted, kKnownSize.arg(100), kDone,
                          u"downloadFinished(false, \"Programme de mise à jour introuvable: "_s +
                              LauncherFiles::updater() + u"\")"_s}));
    QCOMPARE(Files::read(LauncherFiles::archive()), "archive"_ba);
}

void TestSelfUpdater::archiveThatCannotBeCreated()
{
    learnAddress();
    const qsizetype requests = m_server.requests().size();
    QVERIFY(QDir().mkpath(LauncherFiles::archive() + u"/in the way"_s));
    m_updater->downloadUpdate();
    QCOMPARE(m_reports->texts(), (QStringList{kStarted, kCannotCreate}));
    waitForStragglers();
    QCOMPARE(m_server.requests().size(), requests);

    // The way is free again, and so is the updater.
    QVERIFY(QDir(LauncherFiles::archive()).removeRecursively());
    m_server.answer(kArchiveUrlPath, HttpAnswer::ok("archive"));
    QVERIFY(download());
}

void TestSelfUpdater::unusableAddressLeavesNothing_data()
{
    QTest::addColumn<QByteArray>("address");
    QTest::newRow("no address at all") << "pas une adresse"_ba;
    QTest::newRow("a blank") << " "_ba;
    QTest::newRow("a path") << "/launcher.zip"_ba;
    QTest::newRow("a scheme without host") << "http://"_ba;
    QTest::newRow("an unknown scheme") << "gopher://veyra.test/launcher.zip"_ba;
    QTest::newRow("a broken port") << "http://veyra.test:99999/launcher.zip"_ba;
    QTest::newRow("a local file that is missing") << "file:///does/not/exist.zip"_ba;
}

void TestSelfUpdater::unusableAddressLeavesNothing()
{
    QFETCH(const QByteArray, address);
    learnAddress(R"({"version": "2", "download_url": ")" + address + R"("})");
    m_updater->downloadUpdate();
    QVERIFY(m_reports->waitFor(u"downloadFinished"_s));
    waitForStragglers();
    QCOMPARE(m_reports->texts().first(), kStarted);
    QVERIFY(
        m_reports->last().startsWith(u"downloadFinished(false, \"Erreur de téléchargement: "_s));
    QCOMPARE(m_reports->count(u"downloadFinished"_s), 1);
    QVERIFY(!QFile::exists(LauncherFiles::archive()));
}

void TestSelfUpdater::fullDiskIsNotNoticed()
{
    if (!FullDisk::isPossible())
        QSKIP("This system knows no limit for the size of files");
    m_server.answer(kArchiveUrlPath, HttpAnswer::ok(Files::noise(300000)));
    learnAddress();
    {
        const FullDisk disk(1000);
        QVERIFY(download());
    }
    QCOMPARE(m_reports->withoutRepeats().mid(2),
             (QStringList{kDone, u"readyToInstall(\"%1\", \"%2\")"_s.arg(
                                     LauncherFiles::updater(), LauncherFiles::archive())}));
    QVERIFY(Files::read(LauncherFiles::archive()).size() <= 1000);
}

VEYRA_CORE_TEST_MAIN(TestSelfUpdater)
#include "TestSelfUpdater.moc"
