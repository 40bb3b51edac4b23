#include "update/SelfUpdater.h"

#include "tests/support/BackgroundServer.h"
#include "tests/support/BadAnswers.h"
#include "tests/support/Files.h"
#include "tests/support/FullDisk.h"
#include "tests/support/Introspection.h"
#include "tests/support/MemoryRise.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/TestEnvironment.h"
#include "tests/support/Transfers.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QStandardPaths>
#include <QTest>

#include <type_traits>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kVersionPath = "/api/launcher_version.json";
constexpr auto kArchiveUrlPath = "/new/launcher.zip";
constexpr auto kRecord =
    R"({"version": "1.0.1", "download_url": "http://veyra.test/new/launcher.zip"})";

const auto kNoUpdate = u"updateCheckFinished(false, \"\", \"\", false)"_s;
const auto kStarted = u"downloadProgress(0, \"Téléchargement de la mise à jour...\")"_s;
const auto kUnknownSize = u"downloadProgress(-1, \"Téléchargement en cours...\")"_s;
const auto kKnownSize = u"downloadProgress(%1, \"Téléchargement: %.1f / %.1f MB\")"_s;
const auto kDone = u"downloadFinished(true, \"Téléchargement terminé\")"_s;
const auto kInvalidUrl = u"downloadFinished(false, \"URL de téléchargement invalide\")"_s;
const auto kCannotCreate =
    u"downloadFinished(false, \"Impossible de créer le fichier temporaire\")"_s;

QString archivePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::TempLocation) +
           u"/VeyraLauncher_update.zip"_s;
}

QString updaterPath()
{
    return QCoreApplication::applicationDirPath() + u"/LauncherUpdater.exe"_s;
}

/// -1 for an unknown size.
QString progress(int percent)
{
    return percent < 0 ? kUnknownSize : kKnownSize.arg(percent);
}

QString failed(const QString &errorText)
{
    return u"downloadFinished(false, \"Erreur de téléchargement: "_s + errorText + u"\")"_s;
}

QString readyToInstall()
{
    return u"readyToInstall(\""_s + updaterPath() + u"\", \""_s + archivePath() + u"\")"_s;
}

} // namespace

static_assert(!std::is_default_constructible_v<SelfUpdater>);
static_assert(std::is_constructible_v<SelfUpdater, QObject *>);
static_assert(std::is_same_v<decltype(&SelfUpdater::checkForUpdate), void (SelfUpdater::*)()>);
static_assert(std::is_same_v<decltype(&SelfUpdater::downloadUpdate), void (SelfUpdater::*)()>);

class TestSelfUpdater : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void declaresFourSignalsAndThreeSlots();
    void ownsItsManager();
    void constructorSendsNothing();
    void comparesVersions_data();
    void comparesVersions();

    void checkSendsAPlainRequest();
    void reportsWhatTheRecordSays_data();
    void reportsWhatTheRecordSays();
    void brokenRecordMeansNoUpdate_data();
    void brokenRecordMeansNoUpdate();
    void failedCheckMeansNoUpdate_data();
    void failedCheckMeansNoUpdate();
    void unreachableServerMeansNoUpdate();
    void checkFollowsRedirects();
    void checkMayRunAgain();
    void failedCheckKeepsTheAddressOfTheArchive_data();
    void failedCheckKeepsTheAddressOfTheArchive();
    void newRecordReplacesTheAddressOfTheArchive();

    void downloadWithoutAddressFails_data();
    void downloadWithoutAddressFails();
    void downloadSendsAPlainRequest();
    void downloadsAndHandsOver_data();
    void downloadsAndHandsOver();
    void reportsProgressAsItComes();
    void reportsUnknownSize();
    void progressTexts_data();
    void progressTexts();
    void busyThreadLetsLittlePileUp_data();
    void busyThreadLetsLittlePileUp();
    void secondDownloadReplacesTheFirst();
    void missingUpdaterIsReportedAfterTheSuccess();
    void archiveThatCannotBeCreated();
    void failedDownloadLeavesNothing_data();
    void failedDownloadLeavesNothing();
    void unusableAddressLeavesNothing_data();
    void unusableAddressLeavesNothing();
    void fullDiskIsNotNoticed();
    void replyIsGoneAfterTheDownload();
    void mayBeDestroyedDuringTheDownload();

private:
    /// Lets the updater learn the archive's address from a version record.
    void learnAddress(SelfUpdater &updater, const QByteArray &record = kRecord);

    HttpServer m_server;
};

void TestSelfUpdater::init()
{
    m_server.clear();
    m_server.becomeProxy();
    QDir(archivePath()).removeRecursively();
    QFile::remove(archivePath());
    Files::write(updaterPath(), "updater");
}

void TestSelfUpdater::learnAddress(SelfUpdater &updater, const QByteArray &record)
{
    m_server.answer(kVersionPath, HttpAnswer::ok(record));
    SignalSequence reports(&updater);
    updater.checkForUpdate();
    QVERIFY(reports.waitFor(u"updateCheckFinished"_s));
    QTRY_COMPARE(updater.findChildren<QNetworkReply *>().size(), 0);
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
    QCOMPARE(SelfUpdater::staticMetaObject.superClass(), &QObject::staticMetaObject);
}

void TestSelfUpdater::ownsItsManager()
{
    QObject parent;
    const auto *updater = new SelfUpdater(&parent);
    QCOMPARE(updater->parent(), &parent);
    QCOMPARE(updater->children().size(), 1);
    QVERIFY(qobject_cast<QNetworkAccessManager *>(updater->children().first()));
}

void TestSelfUpdater::constructorSendsNothing()
{
    const SelfUpdater updater(nullptr);
    QCOMPARE(updater.findChildren<QNetworkReply *>().size(), 0);
    QTest::qWait(50);
    QCOMPARE(m_server.requests().size(), 0);
    QVERIFY(!QFile::exists(archivePath()));
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

void TestSelfUpdater::checkSendsAPlainRequest()
{
    SelfUpdater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdate();

    const QNetworkReply *reply = Introspection::pendingReply(updater);
    QVERIFY(reply);
    QCOMPARE(reply->operation(), QNetworkAccessManager::GetOperation);
    QCOMPARE(Introspection::traits(reply->request()), QStringList());

    QVERIFY(reports.waitFor(u"updateCheckFinished"_s));
    QCOMPARE(m_server.requests().size(), 1);
    QCOMPARE(m_server.requests().first().method, "GET"_ba);
    QCOMPARE(m_server.requests().first().target, "http://veyra.test/api/launcher_version.json"_ba);
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
    SelfUpdater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdate();
    QVERIFY(reports.waitFor(u"updateCheckFinished"_s));
    QCOMPARE(reports.texts(), QStringList{report});
}

void TestSelfUpdater::brokenRecordMeansNoUpdate_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    for (const auto &[name, answer] : BadAnswers::brokenJson())
        QTest::newRow(name) << answer;
}

void TestSelfUpdater::brokenRecordMeansNoUpdate()
{
    QFETCH(const HttpAnswer, answer);
    m_server.answer(kVersionPath, answer);
    SelfUpdater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdate();
    QVERIFY(reports.waitFor(u"updateCheckFinished"_s));
    QCOMPARE(reports.texts(), QStringList{kNoUpdate});
}

void TestSelfUpdater::failedCheckMeansNoUpdate_data()
{
    BadAnswers::addFailures(R"({"version": "9", "required": true})");
}

void TestSelfUpdater::failedCheckMeansNoUpdate()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const QString, skip);
    if (!skip.isEmpty()) {
        QSKIP(qPrintable(skip));
    }
    m_server.answer(kVersionPath, answer);
    BadAnswers::loopAt(m_server);
    SelfUpdater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdate();
    QVERIFY(reports.waitFor(u"updateCheckFinished"_s));
    QCOMPARE(reports.texts(), QStringList{kNoUpdate});
}

void TestSelfUpdater::unreachableServerMeansNoUpdate()
{
    HttpServer dead;
    dead.becomeProxy();
    dead.stopListening();
    SelfUpdater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdate();
    QVERIFY(reports.waitFor(u"updateCheckFinished"_s));
    QCOMPARE(reports.texts(), QStringList{kNoUpdate});
}

void TestSelfUpdater::checkFollowsRedirects()
{
    m_server.answer(kVersionPath, HttpAnswer::redirect("/moved"));
    m_server.answer("/moved", HttpAnswer::ok(R"({"version": "5"})"));
    SelfUpdater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdate();
    QVERIFY(reports.waitFor(u"updateCheckFinished"_s));
    QCOMPARE(reports.texts(), QStringList{u"updateCheckFinished(true, \"5\", \"\", false)"_s});
}

void TestSelfUpdater::checkMayRunAgain()
{
    m_server.answerInTurn(kVersionPath, {HttpAnswer::ok(R"({"version": "5", "changelog": "a",
                                                            "required": true})"),
                                         HttpAnswer::ok(R"({"version": "0.5"})")});
    SelfUpdater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkForUpdate();
    QVERIFY(reports.waitFor(u"updateCheckFinished"_s));
    updater.checkForUpdate();
    QVERIFY(reports.waitFor(u"updateCheckFinished"_s, 2));
    QCOMPARE(reports.texts(), (QStringList{u"updateCheckFinished(true, \"5\", \"a\", true)"_s,
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
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    m_server.answer(kVersionPath, answer);
    SignalSequence reports(&updater);
    updater.checkForUpdate();
    QVERIFY(reports.waitFor(u"updateCheckFinished"_s));

    updater.downloadUpdate();
    QVERIFY(reports.waitFor(u"readyToInstall"_s));
    QCOMPARE(Files::read(archivePath()), "archive"_ba);
}

void TestSelfUpdater::newRecordReplacesTheAddressOfTheArchive()
{
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    learnAddress(updater, R"({"version": "0.1"})");
    SignalSequence reports(&updater);
    updater.downloadUpdate();
    QCOMPARE(reports.texts(), QStringList{kInvalidUrl});
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
    SelfUpdater updater(nullptr);
    if (!record.isNull())
        learnAddress(updater, record);
    SignalSequence reports(&updater);
    const qsizetype requests = m_server.requests().size();

    updater.downloadUpdate();
    QCOMPARE(reports.texts(), QStringList{kInvalidUrl});
    QVERIFY(!QFile::exists(archivePath()));
    QCOMPARE(updater.findChildren<QNetworkReply *>().size(), 0);
    QTest::qWait(20);
    QCOMPARE(m_server.requests().size(), requests);
}

void TestSelfUpdater::downloadSendsAPlainRequest()
{
    SelfUpdater updater(nullptr);
    learnAddress(updater, R"({"version": "2",
                              "download_url": "http://dl.veyra.test:81/é à/v 2%20.zip?a=1&b=%C3%A9"})");
    SignalSequence reports(&updater);
    updater.downloadUpdate();

    const QNetworkReply *reply = Introspection::pendingReply(updater);
    QVERIFY(reply);
    QCOMPARE(reply->operation(), QNetworkAccessManager::GetOperation);
    QCOMPARE(Introspection::traits(reply->request()), QStringList());

    QVERIFY(reports.waitFor(u"downloadFinished"_s));
    QCOMPARE(m_server.requests().last().target,
             "http://dl.veyra.test:81/%C3%A9%20%C3%A0/v%202%20.zip?a=1&b=%C3%A9"_ba);
}

void TestSelfUpdater::downloadsAndHandsOver_data()
{
    Transfers::addWhole();
}

void TestSelfUpdater::downloadsAndHandsOver()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const HttpAnswer, moved);
    QFETCH(const QByteArray, content);
    QFETCH(const int, lastPercent);
    m_server.answer(kArchiveUrlPath, answer);
    m_server.answer("/moved", moved);
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    SignalSequence reports(&updater);
    updater.downloadUpdate();
    QCOMPARE(reports.texts(), QStringList{kStarted});
    QVERIFY(QFile::exists(archivePath()));

    QVERIFY(reports.waitFor(u"readyToInstall"_s));
    QCOMPARE(reports.texts().first(), kStarted);
    QStringList tail = reports.withoutRepeats();
    tail.remove(0, tail.size() - 3);
    QCOMPARE(tail, (QStringList{progress(lastPercent), kDone, readyToInstall()}));
    QVERIFY(Files::read(archivePath()) == content);
    QTest::qWait(20);
    QCOMPARE(reports.count(u"downloadFinished"_s), 1);
}

void TestSelfUpdater::reportsProgressAsItComes()
{
    // Qt reports at most ten times a second, for the first time after a tenth.
    m_server.answer(kArchiveUrlPath,
                    HttpAnswer::ok(Files::noise(3)).delayed(150ms).dripped(1, 150ms));
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    SignalSequence reports(&updater);
    updater.downloadUpdate();
    QVERIFY(reports.waitFor(u"readyToInstall"_s));
    QCOMPARE(reports.withoutRepeats(),
             (QStringList{kStarted, kKnownSize.arg(33), kKnownSize.arg(66), kKnownSize.arg(100),
                          kDone, readyToInstall()}));
}

void TestSelfUpdater::reportsUnknownSize()
{
    m_server.answer(kArchiveUrlPath,
                    HttpAnswer::ok("abc").chunked().delayed(150ms).dripped(1, 150ms));
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    SignalSequence reports(&updater);
    updater.downloadUpdate();
    QVERIFY(reports.waitFor(u"readyToInstall"_s));
    // The last report is Qt's: with all bytes there, their number is the size.
    QCOMPARE(reports.texts(), (QStringList{kStarted, kUnknownSize, kUnknownSize, kUnknownSize,
                                           kKnownSize.arg(100), kDone, readyToInstall()}));
}

void TestSelfUpdater::progressTexts_data()
{
    Transfers::addProgress();
}

void TestSelfUpdater::progressTexts()
{
    QFETCH(const qint64, received);
    QFETCH(const qint64, total);
    QFETCH(const int, percent);
    SelfUpdater updater(nullptr);
    SignalSequence reports(&updater);
    QVERIFY(QMetaObject::invokeMethod(&updater, "onDownloadProgress", Q_ARG(qint64, received),
                                      Q_ARG(qint64, total)));
    QCOMPARE(reports.texts(), QStringList{progress(percent)});
}

void TestSelfUpdater::busyThreadLetsLittlePileUp_data()
{
    Transfers::addLarge();
}

void TestSelfUpdater::busyThreadLetsLittlePileUp()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const HttpAnswer, moved);
    QFETCH(const QByteArray, content);
    QFETCH(const QString, skip);
    const BackgroundServer background([&](HttpServer &server) {
        server.answer(kVersionPath, HttpAnswer::ok(kRecord));
        server.answer(kArchiveUrlPath, answer);
        server.answer("/moved", moved);
        server.becomeProxy();
    });
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    SignalSequence reports(&updater);
    const MemoryRise rise;
    updater.downloadUpdate();
    Transfers::beBusyAtEachHead(Introspection::pendingReply(updater));
    QVERIFY(reports.waitFor(u"readyToInstall"_s));
    const qint64 megabytes = rise.megabytes();
    QVERIFY(Files::read(archivePath()) == content);
    if (!skip.isEmpty()) {
        QSKIP(qPrintable(skip));
    }
    QVERIFY2(megabytes < Transfers::kMostMemory, qPrintable(QString::number(megabytes)));
}

void TestSelfUpdater::secondDownloadReplacesTheFirst()
{
    Files::write(archivePath(), QByteArray(1000, 'o'));
    m_server.answerInTurn(kArchiveUrlPath, {HttpAnswer::ok("the first"), HttpAnswer::ok("second")});
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    SignalSequence reports(&updater);
    updater.downloadUpdate();
    QVERIFY(reports.waitFor(u"readyToInstall"_s));
    QCOMPARE(Files::read(archivePath()), "the first"_ba);
    updater.downloadUpdate();
    QVERIFY(reports.waitFor(u"readyToInstall"_s, 2));
    QCOMPARE(Files::read(archivePath()), "second"_ba);
}

void TestSelfUpdater::missingUpdaterIsReportedAfterTheSuccess()
{
    QVERIFY(QFile::remove(updaterPath()));
    m_server.answer(kArchiveUrlPath, HttpAnswer::ok("archive"));
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    SignalSequence reports(&updater);
    updater.downloadUpdate();
    QVERIFY(reports.waitFor(u"downloadFinished"_s, 2));
    QTest::qWait(20);
    QCOMPARE(reports.withoutRepeats(),
             (QStringList{kStarted, kKnownSize.arg(100), kDone,
                          u"downloadFinished(false, \"Programme de mise à jour introuvable: "_s +
                              updaterPath() + u"\")"_s}));
    QCOMPARE(Files::read(archivePath()), "archive"_ba);
}

void TestSelfUpdater::archiveThatCannotBeCreated()
{
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    const qsizetype requests = m_server.requests().size();
    QVERIFY(QDir().mkpath(archivePath() + u"/in the way"_s));
    SignalSequence reports(&updater);
    updater.downloadUpdate();
    QCOMPARE(reports.texts(), (QStringList{kStarted, kCannotCreate}));
    QTest::qWait(20);
    QCOMPARE(m_server.requests().size(), requests);

    // The way is free again, and so is the updater.
    QVERIFY(QDir(archivePath()).removeRecursively());
    m_server.answer(kArchiveUrlPath, HttpAnswer::ok("archive"));
    updater.downloadUpdate();
    QVERIFY(reports.waitFor(u"readyToInstall"_s));
}

void TestSelfUpdater::failedDownloadLeavesNothing_data()
{
    Transfers::addFailures(Files::noise(300000));
}

void TestSelfUpdater::failedDownloadLeavesNothing()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const QString, skip);
    if (!skip.isEmpty()) {
        QSKIP(qPrintable(skip));
    }
    m_server.answer(kArchiveUrlPath, answer);
    BadAnswers::loopAt(m_server);
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    SignalSequence reports(&updater);
    updater.downloadUpdate();

    QNetworkReply *reply = Introspection::pendingReply(updater);
    QVERIFY(reply);
    QString errorText;
    bool goneByThen = false;
    connect(reply, &QNetworkReply::finished, this, [&] { errorText = reply->errorString(); });
    connect(&updater, &SelfUpdater::downloadFinished, this,
            [&] { goneByThen = !QFile::exists(archivePath()); });

    QVERIFY(reports.waitFor(u"downloadFinished"_s));
    QTest::qWait(20);
    QVERIFY(goneByThen);
    QVERIFY(!QFile::exists(archivePath()));
    QVERIFY(!errorText.isEmpty());
    QCOMPARE(reports.texts().first(), kStarted);
    QCOMPARE(reports.last(), failed(errorText));
    QCOMPARE(reports.count(u"downloadFinished"_s), 1);
    QCOMPARE(reports.count(u"readyToInstall"_s), 0);
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
    SelfUpdater updater(nullptr);
    learnAddress(updater, R"({"version": "2", "download_url": ")" + address + R"("})");
    SignalSequence reports(&updater);
    updater.downloadUpdate();
    QVERIFY(reports.waitFor(u"downloadFinished"_s));
    QTest::qWait(20);
    QCOMPARE(reports.texts().first(), kStarted);
    QVERIFY(reports.last().startsWith(u"downloadFinished(false, \"Erreur de téléchargement: "_s));
    QCOMPARE(reports.count(u"downloadFinished"_s), 1);
    QVERIFY(!QFile::exists(archivePath()));
}

void TestSelfUpdater::fullDiskIsNotNoticed()
{
    if (!FullDisk::isPossible())
        QSKIP("This system knows no limit for the size of files");
    m_server.answer(kArchiveUrlPath, HttpAnswer::ok(Files::noise(300000)));
    SelfUpdater updater(nullptr);
    learnAddress(updater);
    SignalSequence reports(&updater);
    {
        const FullDisk disk(1000);
        updater.downloadUpdate();
        QVERIFY(reports.waitFor(u"readyToInstall"_s));
    }
    QCOMPARE(reports.withoutRepeats().mid(2), (QStringList{kDone, readyToInstall()}));
    QVERIFY(Files::read(archivePath()).size() <= 1000);
}

void TestSelfUpdater::replyIsGoneAfterTheDownload()
{
    for (const HttpAnswer &answer : {HttpAnswer::ok("archive"), HttpAnswer::status(500)}) {
        m_server.answer(kArchiveUrlPath, answer);
        SelfUpdater updater(nullptr);
        learnAddress(updater);
        updater.downloadUpdate();
        const QPointer<QNetworkReply> reply = Introspection::pendingReply(updater);
        QVERIFY(reply);
        QTRY_VERIFY(!reply);
        QCOMPARE(updater.findChildren<QNetworkReply *>().size(), 0);
    }
}

void TestSelfUpdater::mayBeDestroyedDuringTheDownload()
{
    m_server.answer(kArchiveUrlPath,
                    HttpAnswer::ok(Files::noise(1000000)).delayed(150ms).heldAfter(500000));
    auto updater = std::make_unique<SelfUpdater>(nullptr);
    learnAddress(*updater);
    SignalSequence reports(updater.get());
    updater->downloadUpdate();
    QVERIFY(reports.waitFor(u"downloadProgress"_s, 2));
    updater.reset();
    QTest::qWait(20);
    QCOMPARE(reports.count(u"downloadFinished"_s), 0);
}

VEYRA_CORE_TEST_MAIN(TestSelfUpdater)
#include "TestSelfUpdater.moc"
