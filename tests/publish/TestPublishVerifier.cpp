#include "publish/CentralDirectory.h"
#include "publish/LauncherEyes.h"
#include "publish/LauncherSettings.h"
#include "publish/Verifier.h"
#include "tests/publish/Publisher.h"
#include "tests/support/Archives.h"
#include "tests/support/Files.h"
#include "tests/support/FullDisk.h"
#include "tests/support/HttpServer.h"
#include "tests/support/SearchPath.h"
#include "tests/support/TestEnvironment.h"
#include "tests/updater/SampleUpdate.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>
#include <QTest>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr std::chrono::milliseconds kShortWait(300);

/// What a server has under its addresses, without the "/" in front.
class Site : public QMap<QByteArray, HttpAnswer>
{
public:
    QByteArray &body(const QByteArray &place) { return (*this)[place].body; }
    QByteArray &manifest() { return body("updates/version.json"); }
    QByteArray &archive() { return body("client/DofusClient.zip"); }

    void changeManifest(const QByteArray &from, const QByteArray &to)
    {
        if (!manifest().contains(from))
            qFatal("The manifest does not contain %s", from.constData());
        manifest().replace(from, to);
    }

    void offerLauncher(const QByteArray &address, const QByteArray &version = "99.0.0")
    {
        body("api/launcher_version.json") =
            R"({"version": ")" + version + R"(", "download_url": ")" + address + R"("})";
    }
};

using Change = std::function<void(Site &)>;
using UpdateChange = std::function<void(SampleUpdate &)>;

CentralDirectory directoryOf(const QByteArray &archive)
{
    const auto fetch = [&archive](qint64 offset, qint64 size) { return archive.mid(offset, size); };
    return CentralDirectory::read(archive.size(), fetch).value_or(CentralDirectory());
}

QList<Archives::Entry> sampleEntries()
{
    QList<Archives::Entry> entries;
    const QMap<QString, QByteArray> files = Clients::sample();
    for (auto file = files.begin(); file != files.end(); ++file)
        entries.append({file.key().toUtf8(), file.value()});
    const auto isLast = [](const auto &entry) { return entry.name == "DofusInvoker.swf"; };
    const auto last = std::find_if(entries.begin(), entries.end(), isLast);
    Q_ASSERT(last != entries.end());
    std::rotate(last, last + 1, entries.end());
    return entries;
}

/// The sample client with names that are made by `rename`.
QByteArray archiveWith(const std::function<QByteArray(const QByteArray &)> &rename)
{
    QList<Archives::Entry> entries = sampleEntries();
    for (Archives::Entry &entry : entries)
        entry.name = rename(entry.name);
    return Archives::zip(entries);
}

QByteArray archiveAnd(const Archives::Entry &more)
{
    QList<Archives::Entry> entries = sampleEntries();
    entries.prepend(more);
    return Archives::zip(entries);
}

/// One whose first file says that it is as large, in the fields of 64 bits.
QByteArray archiveOfSize(qint64 size)
{
    const QByteArray large("\xff\xff\xff\xff");
    QByteArray archive = Archives::zip(sampleEntries());
    const CentralDirectory::Entry first = directoryOf(archive).entries.first();
    const qint64 number = qToLittleEndian(size);
    QByteArray field = QByteArray::fromHex("01000800");
    field.append(reinterpret_cast<const char *>(&number), sizeof number);
    archive.replace(first.recordOffset + 24, 4, large);
    archive[first.recordOffset + 30] = static_cast<char>(field.size());
    archive.insert(first.recordOffset + 46 + first.name.size(), field);
    // The directory has grown: its size stands at the archive's end.
    const qsizetype at = archive.size() - 10;
    const auto directorySize = qFromLittleEndian<quint32>(archive.constData() + at);
    const quint32 grown = qToLittleEndian(directorySize + quint32(field.size()));
    return archive.replace(at, 4, QByteArray(reinterpret_cast<const char *>(&grown), 4));
}

/// Two bytes of each record in the archive's directory.
void setInDirectory(QByteArray &archive, qint64 field, char low, char high)
{
    const CentralDirectory directory = directoryOf(archive);
    for (const CentralDirectory::Entry &entry : directory.entries) {
        archive[entry.recordOffset + field] = low;
        archive[entry.recordOffset + field + 1] = high;
    }
}

} // namespace

class TestPublishVerifier : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void aSiteOfThisToolIsWithoutFault();
    void theLauncherInstallsItWhole();
    void everyMistakeHasItsCode_data();
    void everyMistakeHasItsCode();
    void aClientThatDiffersIsFoundByInstallingIt();
    void aMistakeIsToldInWords();
    void theWorkshopKnowsAddressAndVersions();
    void anySiteIsLookedOverWithoutAWorkshop();
    void aSiteThatDoesNotAnswer();
    void onlyWarningsHaveACodeOfTheirOwn();
    void aClientWithTwoMarkersIsInOrder_data();
    void aClientWithTwoMarkersIsInOrder();
    void theWholeLookReadsTheLauncher_data();
    void theWholeLookReadsTheLauncher();
    void theWholeLookReadsWhatRangesDoNotShow();
    void theWholeLookReadsTheClientThatRangesDoNotShow_data();
    void theWholeLookReadsTheClientThatRangesDoNotShow();
    void aManifestThatLeadsElsewhereIsNotFollowed();
    void aPartThatIsTheWholeIsNotRead();
    void aDownloadThatStandsStillIsGivenUp();
    void aServerThatFallsSilentIsNotWaitedFor_data();
    void aServerThatFallsSilentIsNotWaitedFor();
    void aLauncherIsWaitedForOnce();
    void whatPlayersSeeIsThatOfTheAddress_data();
    void whatPlayersSeeIsThatOfTheAddress();
    void pagesForWhatIsMissingAreFoundInEachFolder();
    void newsThatAreNoneAreNotCounted();
    void aTerminalIsNotCommandedByASite();
    void aRehearsalOffersTheLauncherOfTheRealSite_data();
    void aRehearsalOffersTheLauncherOfTheRealSite();
    void whatIsInTheWayIsToldInJson();
    void aWorkshopWithoutVersionsIsRefused_data();
    void aWorkshopWithoutVersionsIsRefused();
    void theWholeLookNeedsAnUnpacker();
    void theWholeLookNeedsRoom();
    void anOwnFullDiskIsNoFaultOfTheSite_data();
    void anOwnFullDiskIsNoFaultOfTheSite();
    void aSignalEndsTheVerification_data();
    void aSignalEndsTheVerification();
    void aTerminalThatGoesMayBeIgnored();

private:
    void serve(const Site &site);
    Publisher::Result verify(const QStringList &options = {}) const
    {
        return m_publisher.run(QStringList{u"verifier"_s, m_server.url(u"/"_s).toString()} +
                               options);
    }
    void startVerification(QProcess &process) const
    {
        process.setWorkingDirectory(m_publisher.path(QString()));
        process.start(Publisher::program(),
                      {u"verifier"_s, u"--complet"_s, m_server.url(u"/"_s).toString()});
    }
    /// `file` is the end of a path.
    static bool reads(const QProcess &process, const QString &file);
    /// With less patience, in this process.
    QStringList look(const Patience &patience, bool whole) const;
    static Audience audience() { return {{u"1.0.0"_s}, u"windows-x64"_s, {}, {}}; }
    static QStringList codes(const Publisher::Result &result);
    static QStringList codes(const QJsonArray &findings);

    Publisher m_publisher;
    HttpServer m_server;
    Site m_good;
};

void TestPublishVerifier::initTestCase()
{
    Clients::write(m_publisher.beside(u"client"_s), Clients::sample());
    QCOMPARE(m_publisher.run({u"init"_s, u"http://veyra.test"_s}).code, 0);
    QCOMPARE(m_publisher.run({u"client"_s, m_publisher.beside(u"client"_s)}).code, 0);
    QCOMPARE(m_publisher.run({u"nouvelles"_s, u"ajouter"_s, u"Titre"_s, u"Texte"_s}).code, 0);
    QCOMPARE(m_publisher.run({u"mettre-en-ligne"_s}).code, 0);
    QCOMPARE(m_publisher.run({u"etat"_s, u"en-ligne"_s, u"12"_s}).code, 0);

    const QMap<QString, QByteArray> files = m_publisher.site();
    for (auto file = files.begin(); file != files.end(); ++file) {
        m_good.insert(
            file.key().toUtf8(),
            HttpAnswer::ok(file.value()).withRanges().header("Cache-Control", "no-cache"));
    }
    const QByteArray launcher =
        Archives::zip({{"liste.txt", "list"}, {"liste.txt.minisig", "signature"}});
    m_good.insert("launcher/a.zip", HttpAnswer::ok(launcher).withRanges());
}

void TestPublishVerifier::init()
{
    m_server.clear();
    m_server.answerEverythingWith(HttpAnswer::status(404, "not found"));
}

void TestPublishVerifier::serve(const Site &site)
{
    for (auto file = site.begin(); file != site.end(); ++file)
        m_server.answer('/' + file.key(), file.value());
}

bool TestPublishVerifier::reads(const QProcess &process, const QString &file)
{
    const QDir open(u"/proc/%1/fd"_s.arg(process.processId()));
    const QStringList descriptors = open.entryList(QDir::Files | QDir::System);
    return std::any_of(descriptors.begin(), descriptors.end(), [&](const QString &descriptor) {
        return QFile::symLinkTarget(open.filePath(descriptor)).endsWith(file);
    });
}

QStringList TestPublishVerifier::look(const Patience &patience, bool whole) const
{
    Verifier verifier(m_server.url(u"/"_s).toString(), audience(), patience);
    verifier.run(whole);
    return codes(verifier.findings().json());
}

QStringList TestPublishVerifier::codes(const Publisher::Result &result)
{
    const QJsonObject report = QJsonDocument::fromJson(result.output.toUtf8()).object();
    return codes(report.value(u"constats"_s).toArray());
}

QStringList TestPublishVerifier::codes(const QJsonArray &findings)
{
    QStringList codes;
    for (const QJsonValue finding : findings)
        codes.append(finding[u"code"_s].toString());
    codes.sort();
    codes.removeDuplicates();
    return codes;
}

void TestPublishVerifier::aSiteOfThisToolIsWithoutFault()
{
    serve(m_good);
    const Publisher::Result result = verify();
    QVERIFY2(result.code == 0, qPrintable(result.output + result.errors));
    QVERIFY2(result.output.contains(u"serveur en ligne, 12 joueurs, 1 actualité, pas de mise "
                                    u"à jour"_s),
             qPrintable(result.output));
    QVERIFY(result.output.contains(u"Aucune erreur."_s));
    // The list at the archive's end was enough.
    for (const HttpRequest &request : m_server.requests()) {
        if (request.path.endsWith("DofusClient.zip") && request.headers.contains("range"))
            return;
    }
    QFAIL("The archive was not looked at");
}

void TestPublishVerifier::theLauncherInstallsItWhole()
{
    serve(m_good);
    const Publisher::Result result = verify({u"--complet"_s});
    QVERIFY2(result.code == 0, qPrintable(result.output + result.errors));
    for (const QString &step : {u"Client : 100 %"_s, u"Décompression"_s, u"Vérification : 100 %"_s})
        QVERIFY2(result.errors.contains(u'\n' + step) || result.errors.startsWith(step),
                 qPrintable(result.errors));
    // What the launcher's own texts make Qt complain of is nothing to operators.
    QVERIFY2(!result.errors.contains(u"QString"_s), qPrintable(result.errors));
}

void TestPublishVerifier::everyMistakeHasItsCode_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const QStringList &expected, const Change &change) {
        QTest::newRow(name) << change << expected;
    };
    const auto withoutRanges = [](Site &site) { site["client/DofusClient.zip"].ranges = false; };
    const QByteArray sum = Files::sha256("program").toLatin1();
    const QByteArray accented = QByteArrayLiteral("data/Île aux Cèdres.map");

    row("a sum in upper case", {u"M01"_s},
        [=](Site &site) { site.changeManifest(sum, sum.toUpper()); });
    row("a sum of MD5", {u"M02"_s}, [=](Site &site) { site.changeManifest(sum, sum.left(32)); });
    row("\"Files\"", {u"M03"_s}, [](Site &site) { site.changeManifest("\"files\"", "\"Files\""); });
    row("\"Name\"", {u"M03"_s, u"M11"_s},
        [](Site &site) { site.changeManifest("\"name\"", "\"Name\""); });
    row("no file at all in the manifest", {u"M03"_s, u"M11"_s},
        [](Site &site) { site.manifest() = R"({"files": []})"; });
    row("a manifest that is a list", {u"M03"_s}, [](Site &site) { site.manifest() = "[]"; });
    row("backslashes in the manifest", {u"M04"_s},
        [](Site &site) { site.changeManifest("data/", "data\\\\"); });
    row("backslashes in the archive", {u"M04"_s, u"M10"_s, u"M11"_s}, [](Site &site) {
        site.archive() = archiveWith([](QByteArray name) { return name.replace('/', '\\'); });
    });
    row("a name in another case", {u"M05"_s},
        [](Site &site) { site.changeManifest("Dofus.exe", "dofus.exe"); });
    row("a name in another normal form", {u"M17"_s},
        [](Site &site) { site.changeManifest("\u00ce", "I\u0302"); });
    row("names without the launcher's folder", {u"M06"_s}, [](Site &site) {
        site.archive() = archiveWith([](const QByteArray &name) { return "Client 2.51/" + name; });
    });
    row("names with a folder that the archive lacks", {u"M06"_s},
        [](Site &site) { site.changeManifest("\"name\": \"", "\"name\": \"Client 2.51/"); });
    row("names without the UTF-8 flag", {u"M07"_s},
        [](Site &site) { setInDirectory(site.archive(), 8, 0, 0); });
    row("a file between the two markers", {u"M08"_s, u"M11"_s}, [](Site &site) {
        const Archives::Entry other{"Client 2.51/DofusInvoker.swf", "marker"};
        site.archive() = Archives::zip(sampleEntries() + QList{{"data/reste", "content"}, other});
    });
    row("the marker of the client that is played behind another one", {u"M08"_s, u"M11"_s},
        [](Site &site) {
            QList<Archives::Entry> entries = sampleEntries();
            entries.insert(entries.size() - 1, {"Client 2.51/DofusInvoker.swf", "marker"});
            site.archive() = Archives::zip(entries);
        });
    row("the marker at the beginning", {u"M08"_s}, [](Site &site) {
        QList<Archives::Entry> entries = sampleEntries();
        entries.move(entries.size() - 1, 0);
        site.archive() = Archives::zip(entries);
    });
    row("a folder around the client", {u"M09"_s, u"M10"_s, u"M11"_s, u"M13"_s}, [](Site &site) {
        site.archive() = archiveWith([](const QByteArray &name) { return "Veyra/" + name; });
    });
    row("a file that the archive lacks", {u"M10"_s, u"M11"_s},
        [](Site &site) { site.changeManifest("data/vide", "data/autre"); });
    row("a file that the manifest lacks", {u"M11"_s}, [](Site &site) {
        site.archive() = archiveAnd({"data/de trop", "content"});
    });
    row("half an archive", {u"M12"_s},
        [](Site &site) { site.archive().truncate(site.archive().size() / 2); });
    row("a page in place of the archive", {u"M12"_s},
        [](Site &site) { site.archive() = "<html>Bientôt</html>"; });
    row("an archive without the game's program", {u"M10"_s, u"M13"_s}, [](Site &site) {
        QList<Archives::Entry> entries = sampleEntries();
        entries.removeFirst();
        site.archive() = Archives::zip(entries);
    });
    row("a way of packing that Windows does not know", {u"M14"_s},
        [](Site &site) { setInDirectory(site.archive(), 10, 93, 0); });
    row("encrypted files", {u"M14"_s}, [](Site &site) { setInDirectory(site.archive(), 8, 1, 8); });
    row("a name that Windows refuses", {u"M11"_s, u"M15"_s}, [](Site &site) {
        site.archive() = archiveAnd({"data/aux.txt", "content"});
    });
    row("two names that differ by case", {u"M11"_s, u"M15"_s}, [](Site &site) {
        site.archive() = archiveAnd({"DATA/vide", "content"});
    });

    row("a file and a folder of one name in the archive", {u"M11"_s, u"M15"_s}, [](Site &site) {
        site.archive() = archiveAnd({"DATA", "content"});
    });
    row("a file and an empty folder of one name in the archive", {u"M15"_s}, [](Site &site) {
        site.archive() = archiveAnd({"DATA/vide/", ""});
    });
    row("a file and a folder of one name in the manifest", {u"M10"_s, u"M11"_s, u"M15"_s},
        [](Site &site) { site.changeManifest("data/texte.json", "DOFUS.EXE/a/b"); });

    row("a symbolic link in the archive", {u"M11"_s, u"M18"_s}, [](Site &site) {
        site.archive() = archiveAnd({"data/lien", "texte.json", true});
    });
    row("files above 2 GB", {u"M19"_s}, [](Site &site) {
        setInDirectory(site.archive(), 26, 0, '\x90'); // the higher half of their sizes
    });
    row("sizes that are negative", {u"M12"_s},
        [](Site &site) { site.archive() = archiveOfSize(-1); });
    row("sizes beyond all numbers", {u"M19"_s},
        [](Site &site) { site.archive() = archiveOfSize(std::numeric_limits<qint64>::max()); });
    row("a name twice in the manifest", {}, [=](Site &site) {
        site.changeManifest("[", R"([{"name": "Dofus.exe", "hash": ")" + sum + R"("}, )");
    });
    row("a name twice in the manifest with two sums", {u"M10"_s}, [=](Site &site) {
        site.changeManifest("[", R"([{"name": "Dofus.exe", "hash": ")" + QByteArray(64, '0') +
                                     R"("}, )");
    });
    row("names in lower case that Windows finds", {u"M05"_s}, [](Site &site) {
        site.archive() = archiveWith([](const QByteArray &name) {
            return name.startsWith("Dofus") ? name.toLower() : name;
        });
    });

    row("no news", {u"M20"_s}, [](Site &site) { site.remove("api/news.php"); });
    row("an error of the server", {u"M20"_s},
        [](Site &site) { site["api/status.php"] = HttpAnswer::status(500); });
    row("no client", {u"M20"_s}, [](Site &site) {
        site.remove("client/DofusClient.zip");
        site.remove("updates/version.json");
    });
    row("redirects that go round", {u"M21"_s},
        [](Site &site) { site["api/status.php"] = HttpAnswer::redirect("/api/status.php"); });
    row("a redirect of the archive that goes round", {u"M21"_s}, [](Site &site) {
        site["client/DofusClient.zip"] = HttpAnswer::redirect("/client/DofusClient.zip");
    });
    row("a redirect to the file", {u"M22"_s}, [](Site &site) {
        site["api/etat.php"] = site["api/status.php"];
        site["api/status.php"] = HttpAnswer::redirect("/api/etat.php");
    });
    row("PHP that nobody runs", {u"M23"_s},
        [](Site &site) { site.body("api/status.php") = "<?php echo json_encode($etat);"; });
    row("a page in place of data", {u"M24"_s},
        [](Site &site) { site.body("api/news.php") = "\n<!DOCTYPE html><p>Bientôt"; });
    row("pages for all that does not exist", {u"M24"_s, u"M25"_s, u"M30"_s}, [](Site &site) {
        site.remove("api/news.php");
        site["*"] = HttpAnswer::ok("<p>Perdu ?");
    });
    row("data that are cut off in themselves", {u"M26"_s},
        [](Site &site) { site.body("api/launcher_version.json").chop(4); });
    row("a state in words", {u"M26"_s},
        [](Site &site) { site.body("api/status.php") = R"({"online": "true", "players": 12})"; });
    row("players in words", {u"M26"_s},
        [](Site &site) { site.body("api/status.php") = R"({"online": true, "players": "12"})"; });
    row("news that are no list", {u"M26"_s},
        [](Site &site) { site.body("api/news.php") = R"({"news": []})"; });
    row("an item of news with a title that is a number", {u"M26"_s},
        [](Site &site) { site.body("api/news.php") = R"([{"title": 5}])"; });
    row("an item of news without a title", {},
        [](Site &site) { site.body("api/news.php") = R"([{"content": "Texte"}])"; });
    row("a state without a number of players", {},
        [](Site &site) { site.body("api/status.php") = R"({"online": false})"; });
    row("a launcher's record that is a list", {u"M26"_s},
        [](Site &site) { site.body("api/launcher_version.json") = "[]"; });
    row("an archive packed again on its way", {u"M27"_s, u"M31"_s}, [](Site &site) {
        site["client/DofusClient.zip"] =
            HttpAnswer::ok(Archives::gzipped(site.archive())).header("Content-Encoding", "gzip");
    });
    row("an archive of unknown size", {u"M28"_s},
        [](Site &site) { site["client/DofusClient.zip"].chunked(); });
    row("an answer that breaks off", {u"M29"_s},
        [](Site &site) { site["api/status.php"].truncatedAfter(5); });
    row("a state that caches keep", {u"M30"_s},
        [](Site &site) { site["api/status.php"].headers.clear(); });
    row("a server that sends whole files alone", {u"M31"_s}, withoutRanges);
    row("a page in place of the archive without ranges", {u"M12"_s}, [=](Site &site) {
        site.archive() = "<!DOCTYPE html><p>Bientôt";
        withoutRanges(site);
    });
    row("words in place of the archive without ranges", {u"M12"_s}, [=](Site &site) {
        site.archive() = "Bientôt";
        withoutRanges(site);
    });
    row("a part as the answer to every question", {u"M31"_s}, [](Site &site) {
        HttpAnswer &answer = site["client/DofusClient.zip"];
        answer.ranges = false;
        answer.code = 206;
        answer.header("Content-Range", "bytes 0-3/" + QByteArray::number(answer.body.size()));
    });
    row("a state without end", {u"M32"_s},
        [](Site &site) { site["api/status.php"].body = QByteArray(9'000'000, ' '); });

    row("a version with a letter", {u"M40"_s},
        [](Site &site) { site.offerLauncher("http://veyra.test/a.zip", "v2.0"); });
    row("a version that is a number", {u"M40"_s},
        [](Site &site) { site.body("api/launcher_version.json") = R"({"version": 2})"; });
    row("a launcher without an address", {u"M41"_s}, [](Site &site) { site.offerLauncher(""); });
    row("a launcher at half an address", {u"M41"_s},
        [](Site &site) { site.offerLauncher("/launcher/a.zip"); });
    row("a launcher at an address of another kind", {u"M41"_s},
        [](Site &site) { site.offerLauncher("ftp://veyra.test/a.zip"); });
    row("a launcher in a file of this machine", {u"M41"_s},
        [](Site &site) { site.offerLauncher("file:///a.zip"); });
    row("an older launcher without an address", {},
        [](Site &site) { site.offerLauncher("", "0.1"); });
    row("a launcher as it should be", {},
        [this](Site &site) { site.offerLauncher(m_server.url(u"/launcher/a.zip"_s).toEncoded()); });
    row("an update that is required in words", {u"M43"_s}, [](Site &site) {
        site.body("api/launcher_version.json") = R"({"version": "", "required": "true"})";
    });
    row("notes that are no text", {u"M44"_s}, [](Site &site) {
        site.body("api/launcher_version.json") = R"({"version": "", "changelog": ["a", "b"]})";
    });
    row("an older launcher that is gone", {u"M20"_s}, [this](Site &site) {
        site.remove("launcher/a.zip");
        site.offerLauncher(m_server.url(u"/launcher/a.zip"_s).toEncoded(), "0.1");
    });
    row("a launcher of no bytes", {u"M42"_s}, [this](Site &site) {
        site.body("launcher/a.zip").clear();
        site.offerLauncher(m_server.url(u"/launcher/a.zip"_s).toEncoded());
    });
    row("a client of no bytes", {u"M12"_s}, [](Site &site) { site.archive().clear(); });
    row("half a launcher", {u"M42"_s}, [this](Site &site) {
        site.body("launcher/a.zip").chop(30);
        site.offerLauncher(m_server.url(u"/launcher/a.zip"_s).toEncoded());
    });
    row("a launcher that is not signed", {u"M42"_s}, [this](Site &site) {
        site.body("launcher/a.zip") = Archives::zip({{"liste.txt", "list"}});
        site.offerLauncher(m_server.url(u"/launcher/a.zip"_s).toEncoded());
    });
}

void TestPublishVerifier::everyMistakeHasItsCode()
{
    QFETCH(const Change, change);
    QFETCH(const QStringList, expected);
    Site site = m_good;
    change(site);
    if (site.contains("*"))
        m_server.answerEverythingWith(site.take("*"));
    serve(site);
    const Publisher::Result result = verify({u"--json"_s});
    QVERIFY2(codes(result) == expected, qPrintable(result.output + result.errors));
    static const QStringList kWarnings{u"M11"_s, u"M19"_s, u"M22"_s, u"M28"_s,
                                       u"M30"_s, u"M31"_s, u"M44"_s};
    const bool isHarmless = std::all_of(expected.begin(), expected.end(), [](const QString &code) {
        return kWarnings.contains(code);
    });
    QCOMPARE(result.code, expected.isEmpty() ? 0 : isHarmless ? 4 : 3);
}

void TestPublishVerifier::aClientThatDiffersIsFoundByInstallingIt()
{
    Site site = m_good;
    site.changeManifest(Files::sha256("program").toLatin1(), Files::sha256("another").toLatin1());
    serve(site);
    QCOMPARE(verify().code, 0);
    const Publisher::Result result = verify({u"--complet"_s});
    QCOMPARE(result.code, 3);
    QVERIFY2(result.output.contains(u"M16"_s) &&
                 result.output.contains(u"1 fichier(s) à mettre à jour"_s),
             qPrintable(result.output));

    site.archive() = Archives::zip({{"Dofus.exe", "program"}});
    serve(site);
    QVERIFY(codes(verify({u"--complet"_s, u"--json"_s})).contains(u"M16"_s));
    site.remove("client/DofusClient.zip");
    m_server.clear();
    serve(site);
    QVERIFY(codes(verify({u"--complet"_s, u"--json"_s})).contains(u"M33"_s));
    site = m_good;
    site.manifest() = "[]";
    serve(site);
    QVERIFY(codes(verify({u"--complet"_s, u"--json"_s})).contains(u"M16"_s));
}

void TestPublishVerifier::aMistakeIsToldInWords()
{
    Site site = m_good;
    setInDirectory(site.archive(), 8, 0, 0);
    serve(site);
    const Publisher::Result result = verify();
    QCOMPARE(result.code, 3);
    QVERIFY2(
        result.output.contains(u"M07  erreur, client/DofusClient.zip\n"
                               u"     nom sans le drapeau UTF-8 : « data/Île aux Cèdres.map ».\n"
                               u"     Joueurs : les noms accentués arrivent abîmés"_s),
        qPrintable(result.output));
    QVERIFY(result.output.contains(u"     Remède : refaire l'archive"_s));
}

void TestPublishVerifier::theWorkshopKnowsAddressAndVersions()
{
    serve(m_good);
    const Publisher publisher;
    QCOMPARE(publisher.run({u"init"_s, m_server.url(u"/"_s).toString()}).code, 0);
    const QString settings = publisher.path(u"publication.json"_s);
    QJsonObject object = QJsonDocument::fromJson(Files::read(settings)).object();
    object.insert(u"versions"_s, QJsonArray{u"0.9"_s, u"1.1"_s});
    Files::write(settings, QJsonDocument(object).toJson());

    Site site = m_good;
    site.offerLauncher(m_server.url(u"/launcher/a.zip"_s).toEncoded(), "1.0");
    serve(site);
    const Publisher::Result result = publisher.run({u"verifier"_s});
    QVERIFY2(result.code == 0, qPrintable(result.output));
    QVERIFY2(result.output.contains(u"Launcher 0.9 : serveur en ligne, 12 joueurs, 1 "
                                    u"actualité, mise à jour vers 1.0 proposée\nLauncher 1.1 : "
                                    u"serveur en ligne, 12 joueurs, 1 actualité, pas de mise à "
                                    u"jour"_s),
             qPrintable(result.output));
}

void TestPublishVerifier::anySiteIsLookedOverWithoutAWorkshop()
{
    serve(m_good);
    const Publisher nobodys;
    const QString address = m_server.url(u"/"_s).toString();
    const Publisher::Result result = nobodys.run({u"verifier"_s, address});
    QVERIFY2(result.code == 0, qPrintable(result.output + result.errors));
    const QString version = nobodys.run({u"--version"_s}).output.section(u' ', 1).trimmed();
    QVERIFY2(result.output.startsWith(u"Launcher %1 : serveur en ligne"_s.arg(version)),
             qPrintable(result.output));
    QCOMPARE(nobodys.run({u"verifier"_s}).code, 2);
    QCOMPARE(nobodys.run({u"verifier"_s, u"veyra.test"_s}).code, 2);
}

void TestPublishVerifier::aSiteThatDoesNotAnswer()
{
    HttpServer gone;
    const QString nobody = gone.url(u"/"_s).toString();
    gone.stopListening();
    const Publisher::Result result = m_publisher.run({u"verifier"_s, nobody});
    QCOMPARE(result.code, 5);
    QVERIFY2(result.errors.contains(u"ne répond pas"_s), qPrintable(result.errors));
    QCOMPARE(m_publisher.run({u"verifier"_s, u"nulle part"_s}).code, 2);
}

void TestPublishVerifier::onlyWarningsHaveACodeOfTheirOwn()
{
    Site site = m_good;
    site["api/news.php"].headers.clear();
    serve(site);
    QCOMPARE(verify().code, 4);
}

void TestPublishVerifier::aClientWithTwoMarkersIsInOrder_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("last");
    const QString inside = u"Client 2.51/"_s;
    const QString marker = u"DofusInvoker.swf"_s;
    QTest::newRow("the client outside is played")
        << QStringList{marker, u"Dofus.exe"_s, inside + marker, inside + u"Dofus.exe"_s}
        << QStringList{marker, inside + marker};
    QTest::newRow("the client inside is played")
        << QStringList{marker, inside + marker, inside + u"Dofus.exe"_s}
        << QStringList{inside + marker, marker};
}

/// An unpacking that is cut off between the two leaves the client whole that is played.
void TestPublishVerifier::aClientWithTwoMarkersIsInOrder()
{
    QFETCH(const QStringList, names);
    QFETCH(const QStringList, last);
    const Publisher publisher;
    for (const QString &name : names)
        Files::write(publisher.beside(u"client/"_s + name), name.toUtf8());
    QCOMPARE(publisher.run({u"init"_s, u"http://veyra.test"_s}).code, 0);
    QCOMPARE(publisher.run({u"client"_s, publisher.beside(u"client"_s)}).code, 0);
    QCOMPARE(publisher.run({u"mettre-en-ligne"_s}).code, 0);
    Site site = m_good;
    site.archive() = Files::read(publisher.path(u"site/client/DofusClient.zip"_s));
    site.manifest() = Files::read(publisher.path(u"site/updates/version.json"_s));
    serve(site);
    const Publisher::Result result = verify();
    QVERIFY2(result.code == 0, qPrintable(result.output));

    QStringList archived;
    const CentralDirectory directory = directoryOf(site.archive());
    for (const CentralDirectory::Entry &entry : directory.entries)
        archived.append(QString::fromUtf8(entry.name));
    QCOMPARE(archived.last(last.size()), last);
}

void TestPublishVerifier::theWholeLookReadsTheLauncher_data()
{
    QTest::addColumn<UpdateChange>("change");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QString>("target");
    const auto row = [](const char *name, const QStringList &expected, const UpdateChange &change,
                        const QString &target = u"windows-x64"_s) {
        QTest::newRow(name) << change << expected << target;
    };
    const auto forLinux = [](SampleUpdate &update) {
        update.target = "linux-x64";
        update.files["VeyraLauncher"] = update.files.take("VeyraLauncher.exe");
    };
    row("a launcher as it should be", {}, [](SampleUpdate &) {});
    row("a launcher for Linux", {}, forLinux, u"linux-x64"_s);
    row("a launcher for Linux where players have Windows", {u"M42"_s}, forLinux);
    row(
        "a launcher for Windows where players have Linux", {u"M42"_s}, [](SampleUpdate &) {},
        u"linux-x64"_s);
    row("a damaged file", {u"M42"_s}, [](SampleUpdate &update) {
        update.changeList = [](QByteArray &list) {
            list.replace(Files::sha256("a plugin").toLatin1(), Files::sha256("no").toLatin1());
        };
    });
    row("a list that was changed after it was signed", {u"M42"_s}, [](SampleUpdate &update) {
        update.changeSignedList = [](QByteArray &list) { list.replace("99.0.0", "99.0.1"); };
    });
    row("another version than the site tells", {u"M42"_s},
        [](SampleUpdate &update) { update.version = "99.0.1"; });
    row("no program", {u"M42"_s},
        [](SampleUpdate &update) { update.files.remove("VeyraLauncher.exe"); });
    row("a program for another site", {u"M45"_s},
        [](SampleUpdate &update) { update.files["VeyraLauncher.exe"] = "program"; });
}

void TestPublishVerifier::theWholeLookReadsTheLauncher()
{
    QFETCH(const UpdateChange, change);
    QFETCH(const QStringList, expected);
    QFETCH(const QString, target);
    const KeyPair keys;
    const Publisher publisher;
    const QString address = m_server.url(u"/"_s).toString();
    Files::write(publisher.beside(u"cle.pub"_s), keys.publicKeyFile());
    QCOMPARE(publisher
                 .run({u"init"_s, address, u"--cle"_s, publisher.beside(u"cle.pub"_s), u"--cible"_s,
                       target})
                 .code,
             0);

    SampleUpdate update;
    update.version = "99.0.0";
    update.files["VeyraLauncher.exe"] =
        QByteArray(reinterpret_cast<const char *>(address.utf16()), (address.size() + 1) * 2);
    change(update);
    Site site = m_good;
    site.body("launcher/a.zip") = update.archive(keys);
    site.offerLauncher(m_server.url(u"/launcher/a.zip"_s).toEncoded());
    serve(site);
    const Publisher::Result result = publisher.run({u"verifier"_s, u"--complet"_s, u"--json"_s});
    QVERIFY2(codes(result) == expected, qPrintable(result.output + result.errors));
    // Nobody's keys are known for another site.
    if (expected == QStringList{u"M45"_s})
        QCOMPARE(codes(verify({u"--complet"_s, u"--json"_s})), QStringList());
}

void TestPublishVerifier::theWholeLookReadsWhatRangesDoNotShow()
{
    Site site = m_good;
    site.offerLauncher(m_server.url(u"/launcher/a.zip"_s).toEncoded());
    site["launcher/a.zip"].ranges = false;
    serve(site);
    QCOMPARE(codes(verify({u"--complet"_s, u"--json"_s})), QStringList{u"M31"_s});
    site.body("launcher/a.zip").chop(30);
    serve(site);
    QCOMPARE(codes(verify({u"--json"_s})), QStringList{u"M31"_s});
    QCOMPARE(codes(verify({u"--complet"_s, u"--json"_s})), (QStringList{u"M31"_s, u"M42"_s}));
}

void TestPublishVerifier::theWholeLookReadsTheClientThatRangesDoNotShow_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const QStringList &expected, const Change &change) {
        QTest::newRow(name) << change << expected;
    };
    row("a client as it should be", {}, [](Site &) {});
    row("the marker first, names without the flag, no program", {u"M07"_s, u"M08"_s, u"M13"_s},
        [](Site &site) {
            QList<Archives::Entry> entries = sampleEntries();
            entries.removeIf([](const auto &entry) { return entry.name == "Dofus.exe"; });
            entries.move(entries.size() - 1, 0);
            site.archive() = Archives::zip(entries);
            setInDirectory(site.archive(), 8, 0, 0);
            site.changeManifest("Dofus.exe", "data/vide"); // the sums are what it is about
            site.changeManifest(Files::sha256("program").toLatin1(), Files::sha256("").toLatin1());
        });
    row("a file that the archive lacks", {u"M10"_s, u"M11"_s, u"M16"_s},
        [](Site &site) { site.changeManifest("data/vide", "data/autre"); });
    row("a symbolic link", {u"M11"_s, u"M18"_s}, [](Site &site) {
        site.archive() = archiveAnd({"data/lien", "/dev/zero", true});
    });
    row("half an archive", {u"M12"_s},
        [](Site &site) { site.archive().truncate(site.archive().size() / 2); });
    row("an archive that breaks off", {u"M33"_s},
        [](Site &site) { site["client/DofusClient.zip"].truncatedAfter(1000); });
}

void TestPublishVerifier::theWholeLookReadsTheClientThatRangesDoNotShow()
{
    QFETCH(const Change, change);
    QFETCH(QStringList, expected);
    Site site = m_good;
    change(site);
    site["client/DofusClient.zip"].ranges = false;
    serve(site);
    QCOMPARE(codes(verify({u"--json"_s})), QStringList{u"M31"_s});
    const Publisher::Result result = verify({u"--complet"_s, u"--json"_s});
    expected.append(u"M31"_s);
    expected.sort();
    QVERIFY2(codes(result) == expected, qPrintable(result.output + result.errors));
}

/// What the verification would open there may have no end.
void TestPublishVerifier::aManifestThatLeadsElsewhereIsNotFollowed()
{
    Site site = m_good;
    site.changeManifest(R"("name": "data/vide")",
                        R"("name": ")" + QByteArray("../").repeated(20) + R"(dev/zero")");
    serve(site);
    const Publisher::Result result = verify({u"--complet"_s});
    QCOMPARE(result.code, 3);
    QVERIFY2(result.output.contains(u"Installation : pas essayée, tant que M15"_s) &&
                 result.output.contains(u"\nM15  erreur, updates/version.json"_s),
             qPrintable(result.output));
}

void TestPublishVerifier::aPartThatIsTheWholeIsNotRead()
{
    serve(m_good);
    HttpAnswer all = m_good["client/DofusClient.zip"];
    all.ranges = false;
    HttpAnswer part = all;
    part.code = 206;
    part.header("Content-Range", "bytes 0-3/" + QByteArray::number(part.body.size()));
    m_server.answerInTurn("/client/DofusClient.zip", {all, part});
    const Publisher::Result result = verify();
    QCOMPARE(result.code, 4);
    QVERIFY2(result.output.contains(u"plus que demandé"_s), qPrintable(result.output));
}

void TestPublishVerifier::aDownloadThatStandsStillIsGivenUp()
{
    Site site = m_good;
    site["client/DofusClient.zip"].heldAfter(100).ranges = false;
    serve(site);
    Patience patience;
    patience.standstill = kShortWait;
    QCOMPARE(look(patience, true), (QStringList{u"M31"_s, u"M33"_s}));
}

void TestPublishVerifier::aServerThatFallsSilentIsNotWaitedFor_data()
{
    QTest::addColumn<QByteArray>("place");
    QTest::addColumn<QString>("sight");
    QTest::addColumn<QString>("players");
    QTest::newRow("the state") << QByteArray("api/status.php") << u"serveur sans réponse"_s
                               << u"« Vérification du serveur... », sans fin"_s;
    QTest::newRow("the news") << QByteArray("api/news.php") << u"actualités sans réponse"_s
                              << u"« Chargement des actualités... », sans fin"_s;
    QTest::newRow("the launcher") << QByteArray("api/launcher_version.json")
                                  << u"mise à jour sans réponse"_s
                                  << u"« Vérification des mises à jour du launcher... », sans "
                                     u"fin : personne ne joue"_s;
    QTest::newRow("the manifest") << QByteArray("updates/version.json") << u"serveur en ligne"_s
                                  << u"« Vérification des mises à jour... » après "
                                     u"l'installation, sans fin"_s;
    QTest::newRow("the client") << QByteArray("client/DofusClient.zip") << u"serveur en ligne"_s
                                << u"un téléchargement qui n'avance plus, sans fin"_s;
}

void TestPublishVerifier::aServerThatFallsSilentIsNotWaitedFor()
{
    QFETCH(const QByteArray, place);
    QFETCH(const QString, sight);
    QFETCH(const QString, players);
    Site site = m_good;
    site[place] = HttpAnswer::never();
    serve(site);
    Patience patience;
    patience.answer = kShortWait;
    patience.sight = kShortWait;
    Verifier verifier(m_server.url(u"/"_s).toString(), audience(), patience);
    verifier.run(false);
    QCOMPARE(codes(verifier.findings().json()), QStringList{u"M20"_s});
    QVERIFY2(verifier.sights().first().contains(sight), qPrintable(verifier.sights().first()));
    QVERIFY2(verifier.findings().text().contains(players), qPrintable(verifier.findings().text()));
}

/// All three of them are waited for together.
void TestPublishVerifier::aLauncherIsWaitedForOnce()
{
    Site site = m_good;
    for (const char *place : {"api/status.php", "api/news.php", "api/launcher_version.json"})
        site[place] = HttpAnswer::never();
    serve(site);
    Patience patience;
    patience.sight = std::chrono::milliseconds(1000);
    LauncherSettings::become(u"1.0.0"_s, m_server.url(u"/"_s).toString());
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!LauncherEyes::look(patience).hasState);
    QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
}

void TestPublishVerifier::whatPlayersSeeIsThatOfTheAddress_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const QString &expected, const Change &change) {
        QTest::newRow(name) << change << expected;
    };
    row("a manifest that is cut off in itself",
        u"« Erreur: Format de version invalide » après l'installation"_s,
        [](Site &site) { site.manifest().chop(5); });
    row("a manifest that is a list", u"« Erreur: Format de version invalide »"_s,
        [](Site &site) { site.manifest() = "[]"; });
    row("a page in place of the manifest", u"« Erreur: Format de version invalide »"_s,
        [](Site &site) { site.manifest() = "<p>"; });
    row("a manifest without files", u"« Prêt à jouer ! », sans qu'aucun fichier"_s,
        [](Site &site) { site.manifest() = "{}"; });
    row("no manifest", u"« Mode hors ligne » après l'installation"_s,
        [](Site &site) { site.remove("updates/version.json"); });
    row("no client", u"« Erreur de téléchargement »"_s,
        [](Site &site) { site.remove("client/DofusClient.zip"); });
    row("no news", u"« Bienvenue sur Veyra ! » au lieu des actualités"_s,
        [](Site &site) { site.remove("api/news.php"); });
    row("news that are no list", u"« Aucune actualité pour le moment. »"_s,
        [](Site &site) { site.body("api/news.php") = "{}"; });
    row("no state", u"« Serveur hors ligne »"_s, [](Site &site) { site.remove("api/status.php"); });
    row("players in words", u"« 0 joueur connecté »"_s,
        [](Site &site) { site.body("api/status.php") = R"({"online": true, "players": "12"})"; });
    row("redirects that go round", u"« Serveur hors ligne », après 51 requêtes"_s,
        [](Site &site) { site["api/status.php"] = HttpAnswer::redirect("/api/status.php"); });
    row("a redirect to another kind of address", u"« Serveur hors ligne », après 1 requête"_s,
        [](Site &site) { site["api/status.php"] = HttpAnswer::redirect("ftp://veyra.test/"); });
}

void TestPublishVerifier::whatPlayersSeeIsThatOfTheAddress()
{
    QFETCH(const Change, change);
    QFETCH(const QString, expected);
    Site site = m_good;
    change(site);
    serve(site);
    const Publisher::Result result = verify();
    QCOMPARE(result.code, 3);
    QVERIFY2(result.output.contains(u"Joueurs : "_s + expected), qPrintable(result.output));
}

void TestPublishVerifier::pagesForWhatIsMissingAreFoundInEachFolder()
{
    m_server.answerEverythingWith(HttpAnswer::ok("<p>Perdu ?"));
    Site site = m_good;
    site.offerLauncher(m_server.url(u"/launcher/a.zip"_s).toEncoded());
    serve(site);
    const QString output = verify().output;
    for (const QString &folder : {u"api/"_s, u"client/"_s, u"updates/"_s, u"launcher/"_s})
        QVERIFY2(output.contains(u"M25  erreur, "_s + folder), qPrintable(output));
}

void TestPublishVerifier::newsThatAreNoneAreNotCounted()
{
    Site site = m_good;
    site.body("api/news.php") = "[]";
    serve(site);
    QVERIFY(verify().output.contains(u"12 joueurs, 0 actualité, "_s));
    site["api/news.php"] = HttpAnswer::status(404);
    serve(site);
    QVERIFY(verify().output.contains(u"texte d'accueil au lieu des actualités"_s));
}

void TestPublishVerifier::aTerminalIsNotCommandedByASite()
{
    Site site = m_good;
    site.archive() = archiveAnd({"data/\x1b[2J\nAucune erreur.\n", "content"});
    site.body("api/launcher_version.json") = "{\"version\": \"9\\u001b[2J\"}";
    serve(site);
    const QString output = verify().output;
    QVERIFY2(!output.contains(u'\x1b') && !output.contains(u"\nAucune erreur."_s) &&
                 output.contains(u"\\u001b[2J\\u000aAucune"_s),
             qPrintable(output));
}

/// At another address than the workshop's own, from which it has the launcher's.
void TestPublishVerifier::aRehearsalOffersTheLauncherOfTheRealSite_data()
{
    QTest::addColumn<UpdateChange>("change");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("a launcher as it should be")
        << UpdateChange([](SampleUpdate &) {}) << QStringList();
    QTest::newRow("a launcher that was changed after it was signed")
        << UpdateChange([](SampleUpdate &update) {
               update.changeSignedList = [](QByteArray &list) { list.replace("99.0.0", "99.0.1"); };
           })
        << QStringList{u"M42"_s};
    QTest::newRow("a launcher for another site")
        << UpdateChange([](SampleUpdate &update) { update.files["VeyraLauncher.exe"] = "program"; })
        << QStringList{u"M45"_s};
}

void TestPublishVerifier::aRehearsalOffersTheLauncherOfTheRealSite()
{
    QFETCH(const UpdateChange, change);
    QFETCH(const QStringList, expected);
    const KeyPair keys;
    const Publisher publisher;
    const QString home = u"http://veyra.test/"_s;
    Files::write(publisher.beside(u"cle.pub"_s), keys.publicKeyFile());
    QCOMPARE(publisher.run({u"init"_s, home, u"--cle"_s, publisher.beside(u"cle.pub"_s)}).code, 0);
    SampleUpdate update;
    update.version = "99.0.0";
    update.files["VeyraLauncher.exe"] =
        QByteArray(reinterpret_cast<const char *>(home.utf16()), (home.size() + 1) * 2);
    change(update);
    Site site = m_good;
    site.body("launcher/a.zip") = update.archive(keys);
    site.offerLauncher(home.toUtf8() + "launcher/a.zip");
    serve(site);
    const Publisher::Result result = publisher.run(
        {u"verifier"_s, u"--complet"_s, u"--json"_s, m_server.url(u"/"_s).toString()});
    QVERIFY2(codes(result) == expected, qPrintable(result.output + result.errors));
}

void TestPublishVerifier::whatIsInTheWayIsToldInJson()
{
    HttpServer gone;
    const QString nobody = gone.url(u"/"_s).toString();
    gone.stopListening();
    const Publisher::Result result = m_publisher.run({u"verifier"_s, nobody, u"--json"_s});
    QCOMPARE(result.code, 5);
    const QJsonObject report = QJsonDocument::fromJson(result.output.toUtf8()).object();
    QCOMPARE(report.value(u"constats"_s), QJsonValue(QJsonArray()));
    QVERIFY2(report.value(u"obstacle"_s).toString().contains(u"ne répond pas"_s),
             qPrintable(result.output));
}

void TestPublishVerifier::aWorkshopWithoutVersionsIsRefused_data()
{
    QTest::addColumn<QByteArray>("versions");
    QTest::newRow("none") << QByteArray("[]");
    QTest::newRow("a number") << QByteArray("[1]");
    QTest::newRow("no list") << QByteArray(R"("1.0.0")");
    QTest::newRow("a version that is none") << QByteArray(R"(["1.0.0", "v2"])");
}

/// Nothing would be looked at with their eyes.
void TestPublishVerifier::aWorkshopWithoutVersionsIsRefused()
{
    QFETCH(const QByteArray, versions);
    serve(m_good);
    const Publisher publisher;
    QCOMPARE(publisher.run({u"init"_s, m_server.url(u"/"_s).toString()}).code, 0);
    const QString settings = publisher.path(u"publication.json"_s);
    QJsonObject object = QJsonDocument::fromJson(Files::read(settings)).object();
    object.insert(u"versions"_s,
                  QJsonDocument::fromJson(R"({"v": )" + versions + '}').object().value(u"v"_s));
    Files::write(settings, QJsonDocument(object).toJson());
    const Publisher::Result result = publisher.run({u"verifier"_s});
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"« versions »"_s), qPrintable(result.errors));
    // The state waits for nobody.
    QCOMPARE(publisher.run({u"etat"_s, u"en-ligne"_s, u"3"_s}).code, 0);
}

void TestPublishVerifier::theWholeLookNeedsAnUnpacker()
{
    serve(m_good);
    const SearchPath nothing;
    const Publisher::Result result = verify({u"--complet"_s});
    QCOMPARE(result.code, 6);
    QVERIFY2(result.errors.contains(u"apt install unzip"_s), qPrintable(result.errors));
    QVERIFY(m_server.requests().isEmpty());
    QCOMPARE(verify().code, 0);
}

/// As much as no disk has.
void TestPublishVerifier::theWholeLookNeedsRoom()
{
    Site site = m_good;
    QList<Archives::Entry> entries;
    for (int i = 0; i < 4000; ++i)
        entries.append({"data/" + QByteArray::number(i), "x"});
    site.archive() = Archives::zip(entries + sampleEntries());
    setInDirectory(site.archive(), 26, '\xff', '\xff');
    serve(site);
    const Publisher::Result result = verify({u"--complet"_s});
    QCOMPARE(result.code, 6);
    QVERIFY2(result.errors.contains(u"Il faut"_s) && result.errors.contains(QDir::tempPath()) &&
                 result.errors.contains(u"TMPDIR"_s),
             qPrintable(result.errors));
    // What was found before is told all the same.
    QVERIFY2(result.output.contains(u"M11"_s) && !result.output.contains(u"M16"_s),
             qPrintable(result.output));
}

void TestPublishVerifier::anOwnFullDiskIsNoFaultOfTheSite_data()
{
    QTest::addColumn<bool>("hasRanges");
    QTest::newRow("the archive's size is known before") << true;
    QTest::newRow("its length alone is") << false;
}

void TestPublishVerifier::anOwnFullDiskIsNoFaultOfTheSite()
{
    if (!FullDisk::isPossible())
        QSKIP("Files may become as large as they want here");
    QFETCH(const bool, hasRanges);
    Site site = m_good;
    site["client/DofusClient.zip"].ranges = hasRanges;
    serve(site);
    Publisher::Result result;
    {
        const FullDisk full(50'000);
        result = verify({u"--complet"_s});
    }
    QCOMPARE(result.code, 6);
    QVERIFY2(!result.output.contains(u"M16"_s) && !result.output.contains(u"M33"_s),
             qPrintable(result.output));
    QVERIFY2(result.errors.contains(QDir::tempPath()), qPrintable(result.errors));
}

void TestPublishVerifier::aSignalEndsTheVerification_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("Ctrl+C") << SIGINT;
    QTest::newRow("the request to end") << SIGTERM;
    QTest::newRow("the terminal's end") << SIGHUP;
}

void TestPublishVerifier::aSignalEndsTheVerification()
{
    QFETCH(const int, signal);
    // A large file, in great number: reading all of it takes minutes.
    const QByteArray content(20'000'000, 'x');
    Site site = m_good;
    site.archive() = archiveAnd({"data/gros", content});
    const QByteArray entry =
        R"({"name": "data/gros", "hash": ")" + Files::sha256(content).toLatin1() + "\"}, ";
    site.changeManifest("[", '[' + entry.repeated(10'000));
    serve(site);
    QProcess process;
    startVerification(process);
    QTRY_VERIFY_WITH_TIMEOUT(reads(process, u"/data/gros"_s), 30000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), signal), 0);
    QVERIFY(process.waitForFinished());
    const QByteArray errors = process.readAllStandardError();
    QVERIFY2(process.exitStatus() == QProcess::NormalExit && process.exitCode() == 130,
             errors.constData());
    QVERIFY2(errors.contains("Interrompu"), errors.constData());
    // What was unpacked is gone, too.
    QCOMPARE(QDir(QDir::tempPath()).entryList({u"veyra-publier-*"_s}), QStringList());
}

/// As by nohup.
void TestPublishVerifier::aTerminalThatGoesMayBeIgnored()
{
    Site site = m_good;
    site.archive() = Archives::zip(sampleEntries());
    site["client/DofusClient.zip"].heldAfter(10);
    serve(site);
    QProcess process;
    process.setChildProcessModifier([] { ::signal(SIGHUP, SIG_IGN); });
    startVerification(process);
    QTRY_VERIFY_WITH_TIMEOUT(m_server.requestCount("/client/DofusClient.zip") > 0, 30000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGHUP), 0);
    m_server.clear();
    serve(m_good);
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 30000);
    QVERIFY(process.exitCode() != 130 && process.exitStatus() == QProcess::NormalExit);
}

VEYRA_CORE_TEST_MAIN(TestPublishVerifier)
#include "TestPublishVerifier.moc"
