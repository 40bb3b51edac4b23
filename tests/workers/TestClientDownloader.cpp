#include "install/ClientDownloader.h"

#include "config/Config.h"
#include "install/ArchiveUnpacker.h"
#include "tests/support/Archives.h"
#include "tests/support/Files.h"
#include "tests/support/FullDisk.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Introspection.h"
#include "tests/support/Platform.h"
#include "tests/support/SearchPath.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QNetworkReply>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <optional>
#include <type_traits>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kPath = "/client/DofusClient.zip";

const auto kConnecting = u"progressChanged(0, \"Connexion au serveur...\")"_s;
const auto kKnownSize = u"progressChanged(%1, \"Téléchargement du client: %.1f / %.1f MB\")"_s;
const auto kDownloaded = u"downloadFinished(true, \"Téléchargement terminé\")"_s;
const auto kExtractionStarted = u"extractionStarted()"_s;
const auto kExtracting = u"progressChanged(-1, \"Extraction du client en cours...\")"_s;
const auto kInstalled = u"progressChanged(100, \"Installation terminée !\")"_s;
const auto kSuccess = u"extractionFinished(true, \"Client installé avec succès !\")"_s;
const auto kMissing =
    u"extractionFinished(false, \"Erreur: Le client n'a pas été trouvé après extraction\")"_s;
const auto kCancelled =
    u"downloadFinished(false, \"Erreur de téléchargement: Operation canceled\")"_s;

const QStringList kExtraction{kExtractionStarted, kExtracting};
const QStringList kInstallation = kExtraction + QStringList{kInstalled, kSuccess};

QString extractionFailed(const QString &errorText)
{
    return u"extractionFinished(false, \"Erreur d'extraction: "_s + errorText + u"\")"_s;
}

} // namespace

static_assert(
    std::is_same_v<decltype(&ClientDownloader::startDownload), void (ClientDownloader::*)()>);
static_assert(
    std::is_same_v<decltype(&ClientDownloader::startExtraction), void (ClientDownloader::*)()>);
static_assert(
    std::is_same_v<decltype(&ClientDownloader::isClientInstalled), bool (ClientDownloader::*)()>);
static_assert(
    std::is_same_v<decltype(&ClientDownloader::zipPath), QString (ClientDownloader::*)()>);
static_assert(
    std::is_same_v<decltype(&ClientDownloader::installPath), QString (ClientDownloader::*)()>);
static_assert(std::is_same_v<decltype(&ClientDownloader::cancel), void (ClientDownloader::*)()>);

class TestClientDownloader : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void declaresFourSignalsAndThreeSlots();
    void pathsFollowTheGameFolder();
    void tellsWhetherTheClientIsInstalled_data();
    void tellsWhetherTheClientIsInstalled();

    void powerShellGetsThreeArguments();
    void clientInItsSubfolder();
    void secondStartIsIgnored();
    void archiveThatCannotBeCreated_data();
    void archiveThatCannotBeCreated();
    void fullDiskShowsInTheExtraction();

    void failedExtractionCarriesTheStandardError_data();
    void failedExtractionCarriesTheStandardError();
    void crashIsAFailureWhateverItsExitCode();
    void endOfNoExtractionIsReported_data();
    void endOfNoExtractionIsReported();
    void warningsOfUnzipAreNoFailure_data();
    void warningsOfUnzipAreNoFailure();
    void archiveThatLeadsOutsideStaysInside_data();
    void archiveThatLeadsOutsideStaysInside();
    void successWithoutMarkerIsAFailure_data();
    void successWithoutMarkerIsAFailure();
    void unpackerThatCannotBeStartedSaysNothing_data();
    void unpackerThatCannotBeStartedSaysNothing();
    void unpackerThatAsksGetsNoAnswer();
    void realUnpackerInstalls_data();
    void realUnpackerInstalls();
    void brokenArchiveCarriesTheUnpackersWords_data();
    void brokenArchiveCarriesTheUnpackersWords();

    void everyOutcomeLeavesItReadyForAnother_data();
    void everyOutcomeLeavesItReadyForAnother();
    void gameFolderChangedDuringTheDownload();
    void endOfNoTransferDoesNothing();

    void cancelWhileIdleDoesNothing();
    void cancelWhileDownloading_data();
    void cancelWhileDownloading();
    void cancelWhileExtracting();
    void cancelOfACompleteDownloadDropsIt_data();
    void cancelOfACompleteDownloadDropsIt();
    void cancelWithinACancelReportsOnce();
    void cancelFromWithinASlot_data();
    void cancelFromWithinASlot();
    void slotMayStartAnewWhenCancelled();
    void mayBeDestroyedDuringTheExtraction();

private:
    QString game(const QString &name) const { return m_gamePath + u'/' + name; }
    /// A PowerShell that "unpacks" the marker.
    void addGoodPowerShell(const QString &marker = u"DofusInvoker.swf"_s);
    /// Downloads, and waits until what follows has ended.
    bool install();

    HttpServer m_server;
    std::optional<QTemporaryDir> m_folder;
    QString m_gamePath;
    std::optional<SearchPath> m_programs;
    std::unique_ptr<ClientDownloader> m_downloader;
    std::optional<SignalSequence> m_reports;
};

void TestClientDownloader::init()
{
    m_server.clear();
    m_server.becomeProxy();
    m_folder.emplace();
    m_gamePath = m_folder->filePath(u"Jeux vidéo/Veyra 2"_s);
    Config::instance().setDofusPath(m_gamePath);
    m_programs.emplace();
    m_downloader = std::make_unique<ClientDownloader>(nullptr);
    m_reports.emplace(m_downloader.get());
}

void TestClientDownloader::cleanup()
{
    m_reports.reset();
    m_downloader.reset();
    m_programs.reset();
    m_folder.reset();
}

void TestClientDownloader::addGoodPowerShell(const QString &marker)
{
    m_programs->addStandIn(u"powershell"_s, {.created = {game(marker)}});
}

bool TestClientDownloader::install()
{
    const qsizetype ends = m_reports->count(u"extractionFinished"_s);
    m_downloader->startDownload();
    return m_reports->waitFor(u"extractionFinished"_s, ends + 1);
}

void TestClientDownloader::declaresFourSignalsAndThreeSlots()
{
    QCOMPARE(Introspection::declarations(ClientDownloader::staticMetaObject),
             (QStringList{
                 u"public signal progressChanged(int percent, QString message)"_s,
                 u"public signal downloadFinished(bool success, QString message)"_s,
                 u"public signal extractionStarted()"_s,
                 u"public signal extractionFinished(bool success, QString message)"_s,
                 u"private slot onDownloadProgress(qlonglong received, qlonglong total)"_s,
                 u"private slot onDownloadFinished()"_s,
                 u"private slot onExtractionFinished(int exitCode, "
                 "QProcess::ExitStatus exitStatus)"_s,
             }));
}

void TestClientDownloader::pathsFollowTheGameFolder()
{
    QCOMPARE(m_downloader->installPath(), m_gamePath);
    QCOMPARE(m_downloader->zipPath(), game(u"DofusClient.zip"_s));
    Config::instance().setDofusPath(u"/ailleurs"_s);
    QCOMPARE(m_downloader->installPath(), u"/ailleurs"_s);
    QCOMPARE(m_downloader->zipPath(), u"/ailleurs/DofusClient.zip"_s);
}

void TestClientDownloader::tellsWhetherTheClientIsInstalled_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("installed");
    QTest::newRow("no game folder") << QString() << false;
    QTest::newRow("marker in the game folder") << u"DofusInvoker.swf"_s << true;
    QTest::newRow("marker in its sub-folder") << u"Client 2.51/DofusInvoker.swf"_s << true;
    QTest::newRow("marker in another sub-folder") << u"Client/DofusInvoker.swf"_s << false;
    QTest::newRow("marker too deep") << u"Client 2.51/bin/DofusInvoker.swf"_s << false;
    QTest::newRow("something else") << u"Dofus.exe"_s << false;
    QTest::newRow("the archive alone") << u"DofusClient.zip"_s << false;
    QTest::newRow("a folder of the marker's name counts")
        << u"DofusInvoker.swf/something"_s << true;
}

void TestClientDownloader::tellsWhetherTheClientIsInstalled()
{
    QFETCH(const QString, file);
    if (!file.isEmpty())
        Files::write(game(file), "x");
    QTEST(m_downloader->isClientInstalled(), "installed");
}

void TestClientDownloader::powerShellGetsThreeArguments()
{
    m_server.answer(kPath, HttpAnswer::ok("archive"));
    addGoodPowerShell();
    QVERIFY(install());
    QCOMPARE(
        m_programs->startsOf(u"powershell"_s).value(0).arguments,
        (QStringList{u"-NoProfile"_s, u"-Command"_s,
                     u"Expand-Archive -Path '"_s + m_gamePath +
                         u"/DofusClient.zip' -DestinationPath '"_s + m_gamePath + u"' -Force"_s}));
}

void TestClientDownloader::clientInItsSubfolder()
{
    m_server.answer(kPath, HttpAnswer::ok("archive"));
    addGoodPowerShell(u"Client 2.51/DofusInvoker.swf"_s);
    QVERIFY(install());
    QCOMPARE(m_reports->last(), kSuccess);
}

void TestClientDownloader::secondStartIsIgnored()
{
    m_server.answer(kPath, HttpAnswer::ok("abcdef").heldAfter(3));
    addGoodPowerShell();
    QByteArray archive;
    connect(m_downloader.get(), &ClientDownloader::downloadFinished, this,
            [&] { archive = Files::read(m_downloader->zipPath()); });
    m_downloader->startDownload();
    m_downloader->startDownload();
    QTRY_COMPARE(m_server.requestCount(kPath), 1);
    m_downloader->startDownload();
    QCOMPARE(m_reports->texts(), QStringList{kConnecting});

    m_server.release(kPath);
    QVERIFY(m_reports->waitFor(u"extractionFinished"_s));
    QCOMPARE(m_reports->withoutRepeats(),
             (QStringList{kConnecting, kKnownSize.arg(100), kDownloaded} + kInstallation));
    QCOMPARE(archive, "abcdef"_ba);
    QCOMPARE(m_server.requestCount(kPath), 1);
}

void TestClientDownloader::archiveThatCannotBeCreated_data()
{
    QTest::addColumn<QString>("inTheWay"); // a file of this name below the test's folder
    QTest::newRow("a folder lies in the archive's place")
        << u"Jeux vidéo/Veyra 2/DofusClient.zip/something"_s;
    QTest::newRow("a file lies in the game folder's place") << u"Jeux vidéo/Veyra 2"_s;
    QTest::newRow("a file lies in the place of its parent") << u"Jeux vidéo"_s;
}

void TestClientDownloader::archiveThatCannotBeCreated()
{
    QFETCH(const QString, inTheWay);
    Files::write(m_folder->filePath(inTheWay), "in the way");
    m_downloader->startDownload();
    QCOMPARE(m_reports->texts(),
             QStringList{u"downloadFinished(false, \"Erreur: Impossible de créer le fichier "_s +
                         m_gamePath + u"/DofusClient.zip\")"_s});
    QCOMPARE(m_downloader->findChildren<QNetworkReply *>().size(), 0);
    waitForStragglers();
    QCOMPARE(m_server.requests().size(), 0);

    // The way is free again, and so is the downloader.
    QVERIFY(QFile::remove(m_folder->filePath(u"Jeux vidéo"_s)) ||
            QDir(m_folder->filePath(u"Jeux vidéo"_s)).removeRecursively());
    m_server.answer(kPath, HttpAnswer::ok("archive"));
    addGoodPowerShell();
    QVERIFY(install());
    QCOMPARE(m_reports->last(), kSuccess);
}

void TestClientDownloader::fullDiskShowsInTheExtraction()
{
    if (!FullDisk::isPossible())
        QSKIP("This system knows no limit for the size of files");
    m_server.answer(kPath, HttpAnswer::ok(Files::noise(300000)));
    m_programs->addStandIn(u"powershell"_s, {.standardError = "archive incomplète", .exitCode = 1});
    {
        const FullDisk disk(1000);
        QVERIFY(install());
    }
    QCOMPARE(m_reports->withoutRepeats(),
             (QStringList{kConnecting, kKnownSize.arg(100), kDownloaded} + kExtraction +
              QStringList{extractionFailed(u"archive incomplète"_s)}));
    QVERIFY(!QFile::exists(m_downloader->zipPath()));
}

void TestClientDownloader::failedExtractionCarriesTheStandardError_data()
{
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<bool>("crashes");
    QTest::addColumn<QByteArray>("standardError");
    QTest::addColumn<QString>("text");
    QTest::newRow("a complaint") << 1 << false << "Expand-Archive : échec\r\n"_ba
                                 << u"Expand-Archive : échec\r\n"_s;
    QTest::newRow("no complaint") << 1 << false << ""_ba << QString();
    QTest::newRow("another exit code") << 255 << false << "x"_ba << u"x"_s;
    QTest::newRow("a crash") << 0 << true << "juste avant"_ba << u"juste avant"_s;
    QTest::newRow("a silent crash") << 0 << true << ""_ba << QString();
    QTest::newRow("placeholders in the complaint") << 1 << false << "%1 %2"_ba << u"%1 %2"_s;
    QTest::newRow("a complaint that is no UTF-8")
        << 1 << false << "\xe9t\xe9"_ba << u"\ufffdt\ufffd"_s;
    QTest::newRow("a complaint of 1 MB")
        << 1 << false << QByteArray(1 << 20, 'x') << QString(1 << 20, u'x');
}

void TestClientDownloader::failedExtractionCarriesTheStandardError()
{
    QFETCH(const int, exitCode);
    QFETCH(const bool, crashes);
    QFETCH(const QByteArray, standardError);
    QFETCH(const QString, text);
    // The marker does not help: the exit tells.
    m_programs->addStandIn(u"powershell"_s, {.standardError = standardError,
                                             .created = {game(u"DofusInvoker.swf"_s)},
                                             .exitCode = exitCode,
                                             .crashes = crashes});
    m_server.answer(kPath, HttpAnswer::ok("archive"));
    bool archiveGone = false;
    connect(m_downloader.get(), &ClientDownloader::extractionFinished, this,
            [&] { archiveGone = !QFile::exists(m_downloader->zipPath()); });
    QVERIFY(install());
    waitForStragglers();
    QCOMPARE(m_reports->withoutRepeats(),
             (QStringList{kConnecting, kKnownSize.arg(100), kDownloaded} + kExtraction +
              QStringList{extractionFailed(text)}));
    QVERIFY(archiveGone);
    QCOMPARE(Files::tree(m_gamePath), QStringList{u"DofusInvoker.swf"_s});
    QCOMPARE(m_downloader->findChildren<QProcess *>().size(), 0);
}

void TestClientDownloader::crashIsAFailureWhateverItsExitCode()
{
    m_programs->addStandIn(u"powershell"_s,
                           {.created = {game(u"DofusInvoker.swf"_s)}, .hangs = true});
    m_downloader->startExtraction();
    QTRY_VERIFY(m_downloader->isClientInstalled());
    QVERIFY(QMetaObject::invokeMethod(m_downloader.get(), "onExtractionFinished", Q_ARG(int, 0),
                                      Q_ARG(QProcess::ExitStatus, QProcess::CrashExit)));
    QCOMPARE(m_reports->texts(), (kExtraction + QStringList{extractionFailed({})}));
}

void TestClientDownloader::endOfNoExtractionIsReported_data()
{
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QProcess::ExitStatus>("exitStatus");
    QTest::addColumn<bool>("installed");
    QTest::addColumn<QStringList>("expected");
    const QStringList failure{extractionFailed({})};
    QTest::newRow("a failure") << 1 << QProcess::NormalExit << true << failure;
    QTest::newRow("a crash") << 0 << QProcess::CrashExit << true << failure;
    QTest::newRow("no marker") << 0 << QProcess::NormalExit << false << QStringList{kMissing};
    QTest::newRow("a success") << 0 << QProcess::NormalExit << true
                               << QStringList{kInstalled, kSuccess};
}

void TestClientDownloader::endOfNoExtractionIsReported()
{
    QFETCH(const int, exitCode);
    QFETCH(const QProcess::ExitStatus, exitStatus);
    QFETCH(const bool, installed);
    QFETCH(const QStringList, expected);
    Files::write(m_downloader->zipPath(), "archive");
    if (installed)
        Files::write(game(u"DofusInvoker.swf"_s), "x");
    QVERIFY(QMetaObject::invokeMethod(m_downloader.get(), "onExtractionFinished",
                                      Q_ARG(int, exitCode),
                                      Q_ARG(QProcess::ExitStatus, exitStatus)));
    QCOMPARE(m_reports->texts(), expected);
    QVERIFY(!QFile::exists(m_downloader->zipPath()));
}

void TestClientDownloader::warningsOfUnzipAreNoFailure_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("created");
    QTest::addColumn<QStringList>("after");
    const auto marker = u"DofusInvoker.swf"_s;
    QTest::newRow("unzip warns") << u"unzip"_s << 1 << marker << QStringList{kInstalled, kSuccess};
    QTest::newRow("unzip warns, and the marker is missing")
        << u"unzip"_s << 1 << u"Dofus.exe"_s << QStringList{kMissing};
    QTest::newRow("unzip fails") << u"unzip"_s << 2 << marker
                                 << QStringList{extractionFailed(u"words"_s)};
    QTest::newRow("bsdtar knows no warnings")
        << u"bsdtar"_s << 1 << marker << QStringList{extractionFailed(u"words"_s)};
}

void TestClientDownloader::warningsOfUnzipAreNoFailure()
{
    QFETCH(const QString, program);
    QFETCH(const int, exitCode);
    QFETCH(const QString, created);
    QFETCH(const QStringList, after);
    if (Platform::kIsWindows) {
        QSKIP("Windows unpacks with PowerShell");
    }
    m_programs->addStandIn(
        program, {.standardError = "words", .created = {game(created)}, .exitCode = exitCode});
    m_downloader->startExtraction();
    QVERIFY(m_reports->waitFor(u"extractionFinished"_s));
    QCOMPARE(m_reports->texts(), kExtraction + after);
}

void TestClientDownloader::archiveThatLeadsOutsideStaysInside_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("last");
    const auto row = [](const char *title, const char *program, const char *name,
                        const QString &last) {
        QTest::newRow(title) << QString::fromLatin1(program) << QByteArray(name) << last;
    };
    row("unzip leaves out the way up", "unzip", "../f", kSuccess);
    row("unzip warns of the root", "unzip", "/f", kSuccess);
    row("bsdtar refuses the way up", "bsdtar", "../f",
        extractionFailed(u"../f: Path contains '..': Unknown error -1\nbsdtar: Error exit delayed "
                         "from previous errors.\n"_s));
    row("bsdtar leaves out the root", "bsdtar", "/f", kSuccess);
}

void TestClientDownloader::archiveThatLeadsOutsideStaysInside()
{
    QFETCH(const QString, program);
    QFETCH(const QByteArray, name);
    QFETCH(const QString, last);
    if (Platform::kIsWindows) {
        QSKIP("Windows unpacks with PowerShell");
    }
    m_programs->addReal(program);
    m_server.answer(kPath,
                    HttpAnswer::ok(Archives::zip({{name, "x"}, {"DofusInvoker.swf", "client"}})));
    QVERIFY(install());
    QCOMPARE(m_reports->last(), last);
    QCOMPARE(Files::tree(m_gamePath), last == kSuccess
                                          ? QStringList({u"DofusInvoker.swf"_s, u"f"_s})
                                          : QStringList{u"DofusInvoker.swf"_s});
    QVERIFY(!QFile::exists(m_gamePath + u"/../f"_s));
    QVERIFY(!QFile::exists(u"/f"_s));
}

void TestClientDownloader::successWithoutMarkerIsAFailure_data()
{
    QTest::addColumn<QString>("created");
    QTest::newRow("nothing unpacked") << QString();
    QTest::newRow("another file") << u"Dofus.exe"_s;
    QTest::newRow("the marker in another folder") << u"Client/DofusInvoker.swf"_s;
}

void TestClientDownloader::successWithoutMarkerIsAFailure()
{
    QFETCH(const QString, created);
    m_programs->addStandIn(
        u"powershell"_s,
        {.standardError = "not shown",
         .created = created.isEmpty() ? QStringList() : QStringList{game(created)}});
    m_server.answer(kPath, HttpAnswer::ok("archive"));
    QVERIFY(install());
    waitForStragglers();
    QCOMPARE(m_reports->withoutRepeats(),
             (QStringList{kConnecting, kKnownSize.arg(100), kDownloaded} + kExtraction +
              QStringList{kMissing}));
    QVERIFY(!QFile::exists(m_downloader->zipPath()));
    QVERIFY(created.isEmpty() || QFile::exists(game(created)));
}

void TestClientDownloader::unpackerThatCannotBeStartedSaysNothing_data()
{
    QTest::addColumn<bool>("present");
    QTest::newRow("there is none") << false;
    QTest::newRow("it is no program") << true;
}

void TestClientDownloader::unpackerThatCannotBeStartedSaysNothing()
{
    QFETCH(const bool, present);
    if (present)
        m_programs->addBroken(u"powershell"_s);
    m_server.answer(kPath, HttpAnswer::ok("archive"));
    m_downloader->startDownload();
    QVERIFY(m_reports->waitFor(u"extractionStarted"_s));
    waitForStragglers(100ms);
    QCOMPARE(m_reports->withoutRepeats(),
             (QStringList{kConnecting, kKnownSize.arg(100), kDownloaded} + kExtraction));
    QCOMPARE(Files::read(m_downloader->zipPath()), "archive"_ba);

    // Nothing keeps another attempt from success.
    m_reports->clear();
    addGoodPowerShell();
    QVERIFY(install());
    QCOMPARE(m_reports->last(), kSuccess);
}

void TestClientDownloader::unpackerThatAsksGetsNoAnswer()
{
    if (Platform::kIsWindows) {
        QSKIP("Windows has no such scripts");
    }
    // It reads to the end of its standard input before it unpacks into its fifth argument.
    const QString folder = m_folder->filePath(u"programmes"_s);
    const QString unzip = folder + u"/unzip"_s;
    Files::write(unzip, "#!/bin/sh\n"
                        "while read -r answer; do :; done\n"
                        ": > \"$5/DofusInvoker.swf\"\n");
    QVERIFY(QFile::setPermissions(unzip, QFile::ReadOwner | QFile::ExeOwner));
    qputenv("PATH", QFile::encodeName(folder)); // m_programs puts the old one back

    m_server.answer(kPath, HttpAnswer::ok("archive"));
    QVERIFY(install());
    QCOMPARE(m_reports->last(), kSuccess);
}

namespace {

/// Rows for what unpacks on a machine without PowerShell.
void addRealUnpackers()
{
    QTest::addColumn<QString>("program");
    QTest::newRow("unzip") << u"unzip"_s;
    QTest::newRow("bsdtar") << u"bsdtar"_s;
}

} // namespace

void TestClientDownloader::realUnpackerInstalls_data()
{
    addRealUnpackers();
}

void TestClientDownloader::realUnpackerInstalls()
{
    QFETCH(const QString, program);
    if (Platform::kIsWindows) {
        QSKIP("Windows unpacks with PowerShell");
    }
    const QString source = m_folder->filePath(u"source"_s);
    const auto accents = u"Client 2.51/données/été à Astrub.d2p"_s;
    Files::write(source + u"/Client 2.51/DofusInvoker.swf"_s, "new");
    Files::write(source + u'/' + accents, Files::noise(1000000));
    m_programs.reset(); // to find the program that makes the archive
    m_server.answer(kPath, HttpAnswer::ok(Files::zipped(source)));
    m_programs.emplace();
    m_programs->addReal(program);
    Files::write(game(u"Client 2.51/DofusInvoker.swf"_s), "an older one, and longer");
    Files::write(game(u"Client 2.51/réglages.xml"_s), "mine");

    // A session in which nobody set up a language.
    const QByteArray oldLocale = qgetenv("LC_ALL");
    qputenv("LC_ALL", "C");
    QVERIFY(install());
    qputenv("LC_ALL", oldLocale);
    // How many pieces the archive arrives in is the network's business.
    QCOMPARE(m_reports->texts().mid(m_reports->texts().indexOf(kDownloaded)),
             QStringList{kDownloaded} + kInstallation);
    QCOMPARE(Files::tree(m_gamePath),
             (QStringList{u"Client 2.51/"_s, u"Client 2.51/DofusInvoker.swf"_s,
                          u"Client 2.51/données/"_s, accents, u"Client 2.51/réglages.xml"_s}));
    QCOMPARE(Files::read(game(accents)), Files::noise(1000000));
    QCOMPARE(Files::read(game(u"Client 2.51/DofusInvoker.swf"_s)), "new"_ba);
    QCOMPARE(Files::read(game(u"Client 2.51/réglages.xml"_s)), "mine"_ba);
}

void TestClientDownloader::brokenArchiveCarriesTheUnpackersWords_data()
{
    addRealUnpackers();
}

void TestClientDownloader::brokenArchiveCarriesTheUnpackersWords()
{
    QFETCH(const QString, program);
    if (Platform::kIsWindows) {
        QSKIP("Windows unpacks with PowerShell");
    }
    m_programs->addReal(program);

    // What it says when it is called by hand.
    Files::write(m_downloader->zipPath(), "no archive");
    const UnpackCommand command = unpackCommand(m_downloader->zipPath(), m_gamePath);
    QProcess byHand;
    byHand.setProcessEnvironment(command.environment);
    byHand.start(command.program, command.arguments);
    QVERIFY(byHand.waitForFinished());
    const QString words = QString::fromUtf8(byHand.readAllStandardError());
    QVERIFY(!words.isEmpty());

    m_server.answer(kPath, HttpAnswer::ok("no archive"));
    QVERIFY(install());
    QCOMPARE(m_reports->last(), extractionFailed(words));
    QCOMPARE(Files::tree(m_gamePath), QStringList());
}

void TestClientDownloader::everyOutcomeLeavesItReadyForAnother_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("last");
    QTest::newRow("after a success") << HttpAnswer::ok("a") << 0 << u"extractionFinished"_s;
    QTest::newRow("after a failed download")
        << HttpAnswer::status(404) << 0 << u"downloadFinished"_s;
    QTest::newRow("after a failed extraction")
        << HttpAnswer::ok("a") << 1 << u"extractionFinished"_s;
}

void TestClientDownloader::everyOutcomeLeavesItReadyForAnother()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const int, exitCode);
    QFETCH(const QString, last);
    m_server.answer(kPath, answer);
    m_programs->addStandIn(u"powershell"_s,
                           {.created = {game(u"DofusInvoker.swf"_s)}, .exitCode = exitCode});
    m_downloader->startDownload();
    QVERIFY(m_reports->waitFor(last));
    QTest::qWait(0);
    QCOMPARE(m_downloader->children().size(), 1);
    QCOMPARE(m_programs->startsOf(u"powershell"_s).isEmpty(), last == u"downloadFinished"_s);

    m_reports->clear();
    m_server.answer(kPath, HttpAnswer::ok("archive"));
    addGoodPowerShell();
    QVERIFY(install());
    QCOMPARE(m_reports->withoutRepeats(),
             (QStringList{kConnecting, kKnownSize.arg(100), kDownloaded} + kInstallation));
}

void TestClientDownloader::gameFolderChangedDuringTheDownload()
{
    const QString other = m_folder->filePath(u"autre"_s);
    m_server.answer(kPath, HttpAnswer::ok("archive").heldAfter(3));
    m_programs->addStandIn(u"powershell"_s, {.created = {other + u"/DofusInvoker.swf"_s}});
    m_downloader->startDownload();
    QTRY_COMPARE(m_server.requestCount(kPath), 1);
    Config::instance().setDofusPath(other);
    m_server.release(kPath);
    QVERIFY(m_reports->waitFor(u"extractionFinished"_s));

    // The transfer went on where it began; everything after it looks at the new folder.
    QCOMPARE(Files::read(game(u"DofusClient.zip"_s)), "archive"_ba);
    QCOMPARE(m_programs->startsOf(u"powershell"_s).value(0).arguments.last(),
             u"Expand-Archive -Path '"_s + other + u"/DofusClient.zip' -DestinationPath '"_s +
                 other + u"' -Force"_s);
    QCOMPARE(m_reports->last(), kSuccess);
}

void TestClientDownloader::endOfNoTransferDoesNothing()
{
    QVERIFY(QMetaObject::invokeMethod(m_downloader.get(), "onDownloadFinished"));
    QCOMPARE(m_reports->texts(), QStringList());
}

void TestClientDownloader::cancelWhileIdleDoesNothing()
{
    m_downloader->cancel();
    m_downloader->cancel();
    waitForStragglers();
    QCOMPARE(m_reports->texts(), QStringList());
    QVERIFY(!QDir(m_gamePath).exists());
}

void TestClientDownloader::cancelWhileDownloading_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<int>("wait");
    QTest::newRow("at once") << HttpAnswer::ok("archive") << 0;
    QTest::newRow("before the server says anything") << HttpAnswer::never() << 50;
    QTest::newRow("after the head") << HttpAnswer::ok("archive").heldAfter(0) << 50;
    QTest::newRow("in the middle") << HttpAnswer::ok(Files::noise(300000)).heldAfter(150000) << 50;
    QTest::newRow("in the middle of chunks")
        << HttpAnswer::ok(Files::noise(300000)).chunked().heldAfter(150000) << 50;
}

void TestClientDownloader::cancelWhileDownloading()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const int, wait);
    m_server.answer(kPath, answer);
    m_downloader->startDownload();
    const QPointer<QNetworkReply> reply = Introspection::pendingReply(*m_downloader);
    if (wait > 0)
        QTest::qWait(wait);
    m_reports->clear();

    m_downloader->cancel();
    QCOMPARE(m_reports->last(), kCancelled);
    QCOMPARE(m_reports->count(u"downloadFinished"_s), 1);
    QVERIFY(!QFile::exists(m_downloader->zipPath()));
    const qsizetype count = m_reports->texts().size();
    QTRY_VERIFY(!reply);
    waitForStragglers();
    QCOMPARE(m_reports->texts().size(), count);

    m_server.answer(kPath, HttpAnswer::ok("archive"));
    addGoodPowerShell();
    QVERIFY(install());
    QCOMPARE(m_reports->last(), kSuccess);
}

void TestClientDownloader::cancelWhileExtracting()
{
    m_server.answer(kPath, HttpAnswer::ok("archive"));
    m_programs->addStandIn(u"powershell"_s, {.hangs = true});
    m_downloader->startDownload();
    QVERIFY(m_reports->waitFor(u"extractionStarted"_s));
    QTRY_COMPARE(m_programs->startsOf(u"powershell"_s).size(), 1);
    const QPointer<QProcess> process = m_downloader->findChild<QProcess *>();
    QVERIFY(process);
    m_reports->clear();

    m_downloader->cancel();
    QTRY_VERIFY(!process);
    waitForStragglers();
    QCOMPARE(m_reports->texts(), QStringList());

    addGoodPowerShell();
    QVERIFY(install());
    QCOMPARE(m_reports->last(), kSuccess);
}

void TestClientDownloader::cancelOfACompleteDownloadDropsIt_data()
{
    QTest::addColumn<bool>("startsAnew"); // from within the slot as well
    QTest::newRow("and that is all") << false;
    QTest::newRow("and starts another at once") << true;
}

/// At the last progress report everything is there, and abort() has no say any more.
void TestClientDownloader::cancelOfACompleteDownloadDropsIt()
{
    QFETCH(const bool, startsAnew);
    m_server.answerInTurn(kPath, {HttpAnswer::ok("abcdef"), HttpAnswer::ok("xyz").heldAfter(1)});
    addGoodPowerShell();
    bool again = true;
    connect(m_downloader.get(), &ClientDownloader::progressChanged, this, [&](int percent) {
        // A report of 100 % may also come while the transfer runs.
        if (percent != 100 || !again || !Introspection::pendingReply(*m_downloader)->isFinished())
            return;
        again = false;
        m_downloader->cancel();
        QVERIFY(!QFile::exists(m_downloader->zipPath()));
        if (startsAnew)
            m_downloader->startDownload();
    });
    m_downloader->startDownload();
    const QPointer<QNetworkReply> reply = Introspection::pendingReply(*m_downloader);
    QTRY_VERIFY(!reply);
    waitForStragglers();
    QStringList texts{kConnecting, kKnownSize.arg(100)};
    if (startsAnew)
        texts.append(kConnecting);
    QCOMPARE(m_reports->withoutRepeats(), texts);

    m_reports->clear();
    m_downloader->startDownload(); // ignored where another runs
    QTRY_COMPARE(m_server.requestCount(kPath), 2);
    QByteArray archive;
    connect(m_downloader.get(), &ClientDownloader::downloadFinished, this,
            [&] { archive = Files::read(m_downloader->zipPath()); });
    m_server.release(kPath);
    QVERIFY(m_reports->waitFor(u"extractionFinished"_s));
    QCOMPARE(archive, "xyz"_ba);
    QCOMPARE(m_reports->last(), kSuccess);
}

/// abort() reports the progress once more.
void TestClientDownloader::cancelWithinACancelReportsOnce()
{
    m_server.answer(kPath, HttpAnswer::ok("abcdef").heldAfter(3));
    m_downloader->startDownload();
    QSignalSpy arrived(Introspection::pendingReply(*m_downloader), &QNetworkReply::readyRead);
    QTRY_VERIFY(!arrived.isEmpty());
    int calls = 0;
    connect(m_downloader.get(), &ClientDownloader::progressChanged, this, [&] {
        ++calls;
        m_downloader->cancel();
    });
    m_downloader->cancel();
    QCOMPARE(calls, 1);
    QCOMPARE(m_reports->last(), kCancelled);
    QCOMPARE(m_reports->count(u"downloadFinished"_s), 1);
    QVERIFY(!QFile::exists(m_downloader->zipPath()));
}

void TestClientDownloader::cancelFromWithinASlot_data()
{
    QTest::addColumn<QString>("moment");
    QTest::addColumn<QStringList>("after");
    QTest::newRow("when it connects: nothing is under way yet") << kConnecting << QStringList();
    QTest::newRow("when the transfer progresses") << kKnownSize.arg(33) << QStringList{kCancelled};
    // Between its two steps nothing runs that could be dropped.
    QTest::newRow("when the transfer is done") << kDownloaded << kInstallation;
    QTest::newRow("when the extraction begins") << kExtractionStarted << kInstallation.mid(1);
    QTest::newRow("when the extraction is announced") << kExtracting << kInstallation.mid(2);
    QTest::newRow("when it is installed") << kInstalled << QStringList{kSuccess};
    QTest::newRow("at the very end") << kSuccess << QStringList();
}

void TestClientDownloader::cancelFromWithinASlot()
{
    QFETCH(const QString, moment);
    QFETCH(const QStringList, after);
    m_server.answer(kPath, HttpAnswer::ok("abc").delayed(150ms).dripped(1, 150ms));
    addGoodPowerShell();
    m_reports->atEach([&] {
        if (m_reports->last() == moment)
            m_downloader->cancel();
    });

    m_downloader->startDownload();
    QTRY_VERIFY(m_reports->texts().contains(moment));
    if (!after.isEmpty())
        QTRY_COMPARE(m_reports->last(), after.last());
    QTRY_COMPARE(m_downloader->children().size(), 1); // no process
    QTRY_COMPARE(m_downloader->findChildren<QNetworkReply *>().size(), 0);
    waitForStragglers();
    const QStringList texts = m_reports->withoutRepeats();
    QCOMPARE(texts.sliced(texts.indexOf(moment) + 1), after);
    QVERIFY(!QFile::exists(m_downloader->zipPath()));
}

void TestClientDownloader::slotMayStartAnewWhenCancelled()
{
    m_server.answerInTurn(kPath, {HttpAnswer::ok("abcdef").heldAfter(3), HttpAnswer::ok("xyz")});
    addGoodPowerShell();
    QByteArray archive;
    connect(m_downloader.get(), &ClientDownloader::downloadFinished, this, [&](bool success) {
        if (success)
            archive = Files::read(m_downloader->zipPath());
        else
            m_downloader->startDownload();
    });
    m_downloader->startDownload();
    QTRY_COMPARE(m_server.requestCount(kPath), 1);
    m_downloader->cancel();
    QVERIFY(m_reports->waitFor(u"extractionFinished"_s));
    QCOMPARE(archive, "xyz"_ba);
    QCOMPARE(m_reports->last(), kSuccess);
}

void TestClientDownloader::mayBeDestroyedDuringTheExtraction()
{
    m_programs->addStandIn(u"powershell"_s, {.hangs = true});
    m_downloader->startExtraction();
    QTRY_COMPARE(m_programs->startsOf(u"powershell"_s).size(), 1);
    m_downloader.reset();
    waitForStragglers();
    QCOMPARE(m_reports->texts(), kExtraction);
}

VEYRA_CORE_TEST_MAIN(TestClientDownloader)
#include "TestClientDownloader.moc"
