#include "publish/CentralDirectory.h"
#include "publish/FileNames.h"
#include "publish/Outcome.h"
#include "publish/SharedFile.h"
#include "publish/ZipRecords.h"
#include "tests/publish/Publisher.h"
#include "tests/support/Archives.h"
#include "tests/support/Files.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TestEnvironment.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <QTest>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

using ClientFiles = QMap<QString, QByteArray>;

constexpr qint64 kFiveGB = qint64{5} * 1024 * 1024 * 1024;
/// After the look at the client, before its files are read.
constexpr int kFirstSteps = 2;
constexpr auto kArchive = "brouillon/client/DofusClient.zip";

ino_t inode(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}

/// As if the file had lain there for an hour.
void age(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite) ||
        !file.setFileTime(QDateTime::currentDateTime().addSecs(-3600),
                          QFileDevice::FileModificationTime))
        qFatal("Cannot change the time of %s", qPrintable(path));
}

CentralDirectory directoryOf(const QByteArray &archive)
{
    const auto fetch = [&archive](qint64 offset, qint64 size) { return archive.mid(offset, size); };
    return CentralDirectory::read(archive.size(), fetch).value_or(CentralDirectory());
}

template <typename Integer> QByteArray number(Integer value)
{
    value = qToLittleEndian(value);
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

/// What stands at the end of an archive whose directory begins at 5 GB, with one file.
QByteArray largeDirectory()
{
    const QByteArray other = number(quint16(99)) + number(quint16(2)) + "xx";
    const QByteArray extra = number(quint16(1)) + number(quint16(8)) + number(qint64{0x123456789});
    const QByteArray record = "PK\x01\x02" + QByteArray(16, '\0') + number(quint32(7)) +
                              number(quint32(7)) + number(quint16(1)) +
                              number(quint16(other.size() + extra.size())) + QByteArray(10, '\0') +
                              number(~quint32(0)) + 'a' + other + extra;
    const QByteArray end = "PK\x06\x06" + QByteArray(28, '\0') + number(qint64{1}) +
                           number(qint64(record.size())) + number(kFiveGB);
    const QByteArray locator =
        "PK\x06\x07" + number(quint32(0)) + number(kFiveGB + record.size()) + number(quint32(1));
    return record + end + locator + "PK\x05\x06" + number(quint32(0)) + number(~quint16(0)) +
           number(~quint16(0)) + number(~quint32(0)) + number(~quint32(0)) + number(quint16(0));
}

} // namespace

class TestPublishClient : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void theManifestHasEveryFile();
    void theArchiveIsAsPlayersNeedIt();
    void unzipMakesTheSameFiles();
    void namesAreWrittenInOneForm();
    void aSubfolderOfTheLaunchersKeepsItsName();
    void whatWindowsTakesForAMarkerEndsTheArchiveToo();
    void aSecondRunReadsWhatChangedAndNothingElse();
    void theSameFilesMakeTheSameArchive();
    void largeAndManyFilesComeThroughWhole();
    void whatIsUnchangedIsTakenFromTheEarlierArchive();
    void anArchiveThatWasMadeInAnotherWayIsMadeAnew_data();
    void anArchiveThatWasMadeInAnotherWayIsMadeAnew();
    void whatWasTouchedAloneIsLinked();
    void whatIsTheSamePreparesNothing();
    void aFileThatWasJustWrittenIsReadAgain();
    void exclusionsLeaveOut_data();
    void exclusionsLeaveOut();
    void anUnusedExclusionIsToldOf();
    void exclusionsThatAreNone_data();
    void exclusionsThatAreNone();
    void refuses_data();
    void refuses();
    void refusesLinksAndSpecialFiles();
    void warnsOfFilesAbove2GB();
    void tellsManyProblemsShortly();
    void theWorkshopIsNoClient();
    void whatCannotBeReadIsTheDisksFault_data();
    void whatCannotBeReadIsTheDisksFault();
    void whatIsExcludedNeedNotBeReadable();
    void aFullDiskLeavesTheDraft_data();
    void aFullDiskLeavesTheDraft();
    void anEarlierArchiveThatIsOfNoUseIsNotUsed_data();
    void anEarlierArchiveThatIsOfNoUseIsNotUsed();
    void aFileThatChangesWhileItIsReadIsRefused_data();
    void aFileThatChangesWhileItIsReadIsRefused();
    void interruptionLeavesNothing();
    void aTerminalShowsABar();
    void largeArchivesAreRead();
    void largeArchivesAreWritten();
    void theLastPieceOfACopyIsMissing();
    void aVolumeThatCopiesNothingByItself();
    void damagedArchivesAreNotRead_data();
    void damagedArchivesAreNotRead();
    void namesThatClash_data();
    void namesThatClash();
    void namesThatWindowsTakes_data();
    void namesThatWindowsTakes();

private:
    QString folder() const { return m_publisher->beside(u"client"_s); }
    Publisher::Result publish(const QStringList &options = {}) const
    {
        return m_publisher->run(QStringList{u"client"_s, folder()} + options);
    }
    QByteArray archive() const
    {
        return Files::read(m_publisher->path(QLatin1StringView(kArchive)));
    }
    QStringList archivedNames() const;
    /// Whether `unzip` makes these files of the archive.
    bool unzippedIs(const ClientFiles &files) const;
    /// Of the same client, published at once in another workshop.
    QByteArray archiveOfAFirstRun() const;
    /// In a new workshop.
    bool becomeStranger();

    std::unique_ptr<Publisher> m_publisher;
};

void TestPublishClient::init()
{
    static const QList<QByteArray> kWithoutWorkshop{"namesThatWindowsTakes",
                                                    "namesThatClash",
                                                    "largeArchivesAreRead",
                                                    "damagedArchivesAreNotRead",
                                                    "largeArchivesAreWritten",
                                                    "theLastPieceOfACopyIsMissing",
                                                    "aVolumeThatCopiesNothingByItself"};
    if (kWithoutWorkshop.contains(QTest::currentTestFunction()))
        return;
    m_publisher = std::make_unique<Publisher>();
    QCOMPARE(m_publisher->run({u"init"_s, u"http://veyra.test/"_s}).code, 0);
}

bool TestPublishClient::becomeStranger()
{
    m_publisher = std::make_unique<Publisher>();
    return m_publisher->runAsStranger() &&
           m_publisher->run({u"init"_s, u"http://veyra.test/"_s}).code == 0;
}

QStringList TestPublishClient::archivedNames() const
{
    QStringList names;
    const CentralDirectory directory = directoryOf(archive());
    for (const CentralDirectory::Entry &entry : directory.entries)
        names.append(QString::fromUtf8(entry.name));
    return names;
}

bool TestPublishClient::unzippedIs(const ClientFiles &files) const
{
    const QString target = m_publisher->beside(u"joueur"_s);
    if (QProcess::execute(u"unzip"_s,
                          {u"-q"_s, u"-o"_s, m_publisher->path(QLatin1StringView(kArchive)),
                           u"-d"_s, target}) != 0)
        return false;
    return std::all_of(files.keyBegin(), files.keyEnd(), [&](const QString &name) {
        return Files::read(target + u'/' + name) == files.value(name);
    });
}

QByteArray TestPublishClient::archiveOfAFirstRun() const
{
    const Publisher other;
    other.run({u"init"_s, u"http://veyra.test/"_s});
    other.run({u"client"_s, folder()});
    return Files::read(other.path(QLatin1StringView(kArchive)));
}

void TestPublishClient::theManifestHasEveryFile()
{
    const ClientFiles files = Clients::sample();
    Clients::write(folder(), files);
    const Publisher::Result result = publish();
    QCOMPARE(result.code, 0);
    QVERIFY2(result.output.contains(u"Publication 0002 préparée"_s), qPrintable(result.output));

    QJsonArray expected;
    for (auto file = files.begin(); file != files.end(); ++file) {
        expected.append(
            QJsonObject{{u"name"_s, file.key()}, {u"hash"_s, Files::sha256(file.value())}});
        QCOMPARE(Files::read(m_publisher->path(u"brouillon/updates/files/"_s + file.key())),
                 file.value());
    }
    const QByteArray manifest = Files::read(m_publisher->path(u"brouillon/updates/version.json"_s));
    QCOMPARE(QJsonDocument::fromJson(manifest).object().value(u"files"_s).toArray(), expected);
}

void TestPublishClient::theArchiveIsAsPlayersNeedIt()
{
    Clients::write(folder(), Clients::sample());
    QCOMPARE(publish().code, 0);

    QCOMPARE(archivedNames(), (QStringList{u"Dofus.exe"_s, u"data/texte.json"_s, u"data/vide"_s,
                                           u"data/Île aux Cèdres.map"_s, u"DofusInvoker.swf"_s}));
    const QByteArray bytes = archive();
    const CentralDirectory directory = directoryOf(bytes);
    for (const CentralDirectory::Entry &entry : directory.entries) {
        QVERIFY2(entry.saysUtf8(), entry.name.constData());
        QVERIFY2((bytes.at(entry.headerOffset + 7) & 8) != 0, entry.name.constData());
        const bool isPacked = entry.name == "data/texte.json";
        QCOMPARE(entry.method, isPacked ? CentralDirectory::kDeflated : CentralDirectory::kStored);
        QCOMPARE(entry.externalAttributes >> 16, entry.name == "Dofus.exe" ? 0100755U : 0100644U);
        // Midnight, 1 January 1980.
        QCOMPARE(bytes.mid(entry.headerOffset + 10, 4), QByteArray("\0\0\x21\0", 4));
        QCOMPARE(bytes.mid(entry.recordOffset + 12, 4), QByteArray("\0\0\x21\0", 4));
    }
}

void TestPublishClient::unzipMakesTheSameFiles()
{
    const ClientFiles files = Clients::sample();
    Clients::write(folder(), files);
    QCOMPARE(publish().code, 0);
    QVERIFY(unzippedIs(files));
}

void TestPublishClient::namesAreWrittenInOneForm()
{
    ClientFiles files = Clients::sample();
    files.insert(u"data/e\u0301te\u0301.ogg"_s, "music");
    Clients::write(folder(), files);
    QCOMPARE(publish().code, 0);
    QVERIFY(archivedNames().contains(u"data/\u00e9t\u00e9.ogg"_s));
    QVERIFY(Files::read(m_publisher->path(u"brouillon/updates/version.json"_s))
                .contains("data/\xc3\xa9t\xc3\xa9.ogg"));
    QCOMPARE(Files::read(m_publisher->path(u"brouillon/updates/files/data/\u00e9t\u00e9.ogg"_s)),
             "music");
}

void TestPublishClient::aSubfolderOfTheLaunchersKeepsItsName()
{
    Clients::write(folder() + u"/Client 2.51"_s, Clients::sample());
    QCOMPARE(publish().code, 0);
    QCOMPARE(archivedNames().last(), u"Client 2.51/DofusInvoker.swf"_s);
    QVERIFY(Files::read(m_publisher->path(u"brouillon/updates/version.json"_s))
                .contains("\"Client 2.51/Dofus.exe\""));
}

void TestPublishClient::whatWindowsTakesForAMarkerEndsTheArchiveToo()
{
    ClientFiles files = Clients::sample();
    files.insert(u"client 2.51/dofusinvoker.swf"_s, "another marker");
    Clients::write(folder(), files);
    QCOMPARE(publish().code, 0);
    QCOMPARE(archivedNames().last(2),
             (QStringList{u"DofusInvoker.swf"_s, u"client 2.51/dofusinvoker.swf"_s}));
}

void TestPublishClient::aSecondRunReadsWhatChangedAndNothingElse()
{
    ClientFiles files = Clients::sample();
    Clients::write(folder(), files);
    for (auto file = files.begin(); file != files.end(); ++file)
        age(folder() + u'/' + file.key());
    QCOMPARE(publish().code, 0);
    const QString map = u"/updates/files/data/Île aux Cèdres.map"_s;
    const ino_t before = inode(m_publisher->path(u"publications/0002"_s + map));

    // Who read the file would find out that this is not its sum.
    const QByteArray real = Files::sha256(files.value(u"data/Île aux Cèdres.map"_s)).toLatin1();
    const QByteArray wrong = QByteArray(64, 'f');
    for (const QString &name : {u"empreintes.json"_s, u"brouillon/updates/version.json"_s}) {
        const QByteArray content = Files::read(m_publisher->path(name));
        QVERIFY(content.contains(real));
        Files::write(m_publisher->path(name), QByteArray(content).replace(real, wrong));
    }
    Files::write(folder() + u"/data/texte.json"_s, "changed");
    QVERIFY(QFile::remove(folder() + u"/data/vide"_s));
    Files::write(folder() + u"/data/nouveau"_s, "new");
    const Publisher::Result result = publish();
    QCOMPARE(result.code, 0);
    QVERIFY2(result.output.contains(u"5 fichiers, 2 nouveaux ou changés, 1 retiré."_s),
             qPrintable(result.output));
    QCOMPARE(inode(m_publisher->path(u"publications/0003"_s + map)), before);
    QVERIFY(before != 0);
    QVERIFY(Files::read(m_publisher->path(u"brouillon/updates/version.json"_s)).contains(wrong));
    QCOMPARE(Files::read(m_publisher->path(u"brouillon/updates/files/data/texte.json"_s)),
             "changed");
    QVERIFY(!QFile::exists(m_publisher->path(u"brouillon/updates/files/data/vide"_s)));
}

void TestPublishClient::theSameFilesMakeTheSameArchive()
{
    Clients::write(folder(), Clients::sample());
    QCOMPARE(publish().code, 0);
    Files::write(folder() + u"/data/texte.json"_s, QByteArray(5000, 'y'));
    QCOMPARE(publish().code, 0);
    QVERIFY(archive() == archiveOfAFirstRun());
}

/// Those of several pieces, stored and packed, one that is a whole piece, and so many small ones
/// that all processors have some.
void TestPublishClient::largeAndManyFilesComeThroughWhole()
{
    constexpr qsizetype kPiece = 524'288; // bytes that are read at once
    ClientFiles files = Clients::sample();
    files.insert(u"data/a packed.txt"_s, QByteArray(3'000'000, 'x') + Files::noise(100'000));
    files.insert(u"data/b stored.d2p"_s, Files::noise(2'000'000));
    files.insert(u"data/c packed.txt"_s, QByteArray(2'000'000, 'y'));
    files.insert(u"data/d piece.d2p"_s, Files::noise(kPiece));
    files.insert(u"data/e piece and a byte.d2p"_s, Files::noise(kPiece + 1));
    for (qsizetype i = 0; i < 200; ++i) {
        const QString name = u"data/%1/%2"_s.arg(i % 7).arg(i);
        files.insert(name, Files::noise(i * 20) + QByteArray(i * 10, 'z'));
    }
    Clients::write(folder(), files);
    QCOMPARE(publish().code, 0);
    QVERIFY(unzippedIs(files));
    for (auto file = files.begin(); file != files.end(); ++file) {
        QVERIFY2(Files::read(m_publisher->path(u"brouillon/updates/files/"_s + file.key())) ==
                     file.value(),
                 qPrintable(file.key()));
    }
    const QByteArray first = archive();
    const CentralDirectory directory = directoryOf(first);
    qint64 end = 0;
    for (const CentralDirectory::Entry &entry : directory.entries) {
        QCOMPARE(entry.headerOffset, end); // nothing between them
        end += 30 + entry.name.size() + entry.packedSize;
        if (entry.size > kPiece) {
            QCOMPARE(entry.method, entry.name.contains("packed") ? CentralDirectory::kDeflated
                                                                 : CentralDirectory::kStored);
        }
    }

    // In the middle one is changed, one is new and one is gone.
    files.insert(u"data/3/3"_s, "changed");
    files.insert(u"data/4/new"_s, Files::noise(700'000));
    Clients::write(folder(), files);
    QVERIFY(QFile::remove(folder() + u"/data/5/5"_s));
    files.remove(u"data/5/5"_s);
    const auto names = files.keys();
    for (const QString &name : names)
        age(folder() + u'/' + name);
    QCOMPARE(publish().code, 0);
    QVERIFY(archive() == archiveOfAFirstRun());
    files.insert(u"data/3/3"_s, "changed again");
    Files::write(folder() + u"/data/3/3"_s, "changed again");
    QCOMPARE(publish().code, 0);
    QVERIFY(unzippedIs(files));
    QVERIFY(archive() == archiveOfAFirstRun());
}

void TestPublishClient::whatIsUnchangedIsTakenFromTheEarlierArchive()
{
    const ClientFiles files = Clients::sample();
    Clients::write(folder(), files);
    for (auto file = files.begin(); file != files.end(); ++file)
        age(folder() + u'/' + file.key());
    QCOMPARE(publish().code, 0);
    // Who packed the file again would not make this.
    QByteArray marked = archive();
    const qsizetype content = marked.indexOf(files.value(u"data/Île aux Cèdres.map"_s).first(100));
    QVERIFY(content > 0);
    marked[content] = char(marked.at(content) + 1);
    Files::write(m_publisher->path(QLatin1StringView(kArchive)), marked);
    age(m_publisher->path(QLatin1StringView(kArchive))); // nobody else's change shows

    Files::write(folder() + u"/data/nouveau"_s, "new");
    QCOMPARE(publish().code, 0);
    const QByteArray taken = marked.mid(content, 200'000);
    QVERIFY(archive().contains(taken));
}

void TestPublishClient::anArchiveThatWasMadeInAnotherWayIsMadeAnew_data()
{
    QTest::addColumn<QString>("way");
    QTest::newRow("with a head that says something else, behind a stored file") << u"head"_s;
    QTest::newRow("with such a head behind a packed file") << u"later head"_s;
    QTest::newRow("no archive at all") << u"text"_s;
    QTest::newRow("none is there") << QString();
}

void TestPublishClient::anArchiveThatWasMadeInAnotherWayIsMadeAnew()
{
    QFETCH(const QString, way);
    ClientFiles files = Clients::sample();
    // Larger than what is read at once, so that their sums come about piece by piece.
    files.insert(u"A stored.d2p"_s, Files::noise(1'000'000));
    files.insert(u"B packed.txt"_s, QByteArray(1'000'000, 'x'));
    Clients::write(folder(), files);
    for (auto file = files.begin(); file != files.end(); ++file)
        age(folder() + u'/' + file.key());
    QCOMPARE(publish().code, 0);
    const QString path = m_publisher->path(QLatin1StringView(kArchive));
    QByteArray other = archive();
    if (way == u"head"_s)
        other[other.indexOf("PK\x03\x04", 100) + 11] = 1; // another time
    else if (way == u"later head"_s)
        other[other.indexOf("PK\x03\x04", other.indexOf("B packed.txt")) + 11] = 1;
    else
        other = "no archive";
    QVERIFY(QFile::remove(path));
    if (!way.isEmpty()) {
        Files::write(path, other);
        age(path); // nobody else's change shows
    }

    files.insert(u"data/nouveau"_s, "new");
    Clients::write(folder(), {{u"data/nouveau"_s, "new"}});
    QCOMPARE(publish().code, 0);
    QVERIFY(unzippedIs(files));
    QVERIFY(archive() == archiveOfAFirstRun());
}

void TestPublishClient::whatWasTouchedAloneIsLinked()
{
    const ClientFiles files = Clients::sample();
    Clients::write(folder(), files);
    QCOMPARE(publish().code, 0);
    const QString map = u"/updates/files/data/Île aux Cèdres.map"_s;
    const ino_t before = inode(m_publisher->path(u"publications/0002"_s + map));
    QVERIFY(before != 0);
    age(folder() + u"/data/Île aux Cèdres.map"_s);
    Files::write(folder() + u"/data/texte.json"_s, "changed");
    QCOMPARE(publish().code, 0);
    QCOMPARE(inode(m_publisher->path(u"publications/0003"_s + map)), before);
    QVERIFY(archive() == archiveOfAFirstRun());
}

void TestPublishClient::whatIsTheSamePreparesNothing()
{
    Clients::write(folder(), Clients::sample());
    QCOMPARE(publish().code, 0);
    const Publisher::Result result = publish();
    QCOMPARE(result.code, 0);
    QVERIFY2(result.output.contains(u"rien à préparer"_s), qPrintable(result.output));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/0003"_s)));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/.en-cours"_s)));
}

void TestPublishClient::aFileThatWasJustWrittenIsReadAgain()
{
    Clients::write(folder(), Clients::sample());
    age(folder() + u"/Dofus.exe"_s);
    QCOMPARE(publish().code, 0);
    const QByteArray known = Files::read(m_publisher->path(u"empreintes.json"_s));
    QVERIFY(known.contains("/Dofus.exe"));
    QVERIFY(!known.contains("/DofusInvoker.swf"));
}

void TestPublishClient::exclusionsLeaveOut_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::newRow("a file by its name") << u"vide"_s;
    QTest::newRow("a file by a pattern") << u"v?d*"_s;
    QTest::newRow("a path") << u"data/vide"_s;
    QTest::newRow("a path by a pattern") << u"*/vide"_s;
    QTest::newRow("a folder by its path") << u"data/creux"_s;
    QTest::newRow("a folder by its name, with a slash") << u"creux/"_s;
    QTest::newRow("a folder by its path, with a slash") << u"data/creux/"_s;
    QTest::newRow("a path from here") << u"./data/vide"_s;
}

void TestPublishClient::exclusionsLeaveOut()
{
    QFETCH(const QString, pattern);
    ClientFiles files = Clients::sample();
    if (pattern.contains(u"creux"_s))
        files.insert(u"data/creux/vide"_s, files.take(u"data/vide"_s));
    Clients::write(folder(), files);
    const Publisher::Result result = publish({u"--exclure"_s, pattern});
    QCOMPARE(result.code, 0);
    QVERIFY2(result.output.contains(u"Exclus : 1 fichier ou dossier."_s),
             qPrintable(result.output));
    QCOMPARE(archivedNames(), (QStringList{u"Dofus.exe"_s, u"data/texte.json"_s,
                                           u"data/Île aux Cèdres.map"_s, u"DofusInvoker.swf"_s}));
}

void TestPublishClient::anUnusedExclusionIsToldOf()
{
    Clients::write(folder(), Clients::sample());
    const Publisher::Result result =
        publish({u"--exclure"_s, u"*.log"_s, u"--exclure"_s, u"data"_s});
    QCOMPARE(result.code, 4);
    QVERIFY2(result.errors.contains(u"--exclure *.log n'a rien exclu"_s),
             qPrintable(result.errors));
    QCOMPARE(archivedNames(), (QStringList{u"Dofus.exe"_s, u"DofusInvoker.swf"_s}));
}

void TestPublishClient::exclusionsThatAreNone_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<int>("code");
    QTest::newRow("another case") << u"VID*"_s << 4;
    QTest::newRow("a path from here that is further down") << u"./vide"_s << 4;
    QTest::newRow("no pattern") << u"[a"_s << 1;
}

void TestPublishClient::exclusionsThatAreNone()
{
    QFETCH(const QString, pattern);
    QFETCH(const int, code);
    Clients::write(folder(), Clients::sample());
    const Publisher::Result result = publish({u"--exclure"_s, pattern});
    QCOMPARE(result.code, code);
    QVERIFY2(result.errors.contains(pattern), qPrintable(result.errors));
    QCOMPARE(archivedNames().contains(u"data/vide"_s), code == 4);
}

void TestPublishClient::refuses_data()
{
    const QStringList good{u"Dofus.exe"_s, u"DofusInvoker.swf"_s};
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("reason");

    QTest::newRow("a client without its marker")
        << QStringList{u"Dofus.exe"_s} << u"DofusInvoker.swf manque"_s;
    QTest::newRow("a marker in another case")
        << QStringList{u"Dofus.exe"_s, u"dofusinvoker.swf"_s} << u"DofusInvoker.swf manque"_s;
    QTest::newRow("a client without its program")
        << QStringList{u"DofusInvoker.swf"_s} << u"Dofus.exe manque"_s;
    QTest::newRow("a top folder around the client")
        << QStringList{u"Veyra/Dofus.exe"_s, u"Veyra/DofusInvoker.swf"_s}
        << u"DofusInvoker.swf est dans « Veyra »"_s;
    QTest::newRow("the launcher's folder within another one")
        << QStringList{u"v/Client 2.51/Dofus.exe"_s, u"v/Client 2.51/DofusInvoker.swf"_s}
        << u"est dans « v/Client 2.51 »"_s;
    QTest::newRow("two names that differ by case")
        << good + QStringList{u"Éa.txt"_s, u"éA.TXT"_s} << u"le même nom pour Windows"_s;
    QTest::newRow("two names that differ by their normal form")
        << good + QStringList{u"e\u0301.txt"_s, u"\u00e9.txt"_s} << u"le même nom pour Windows"_s;
    QTest::newRow("a file and a folder that differ by case")
        << good + QStringList{u"Data"_s, u"data/a"_s} << u"fichier et dossier du même nom"_s;
    QTest::newRow("a file and a folder far above another file")
        << good + QStringList{u"Data"_s, u"data/a/b/c"_s}
        << u"« Data » et « data/a/b/c » : fichier et dossier du même nom"_s;
    QTest::newRow("a file and a folder within a folder")
        << good + QStringList{u"a/B"_s, u"A/b/c/d"_s} << u"fichier et dossier du même nom"_s;
    QTest::newRow("a device of Windows")
        << good + QStringList{u"data/Aux.txt"_s} << u"nom réservé par Windows"_s;
    QTest::newRow("a backslash") << good + QStringList{u"data\\a"_s} << u"caractère interdit"_s;
    QTest::newRow("a full stop at the end")
        << good + QStringList{u"data./a"_s} << u"point ou espace final"_s;
    QTest::newRow("a path that is too long")
        << good + QStringList{QString(100, u'a') + u'/' + QString(100, u'b')}
        << u"chemin trop long"_s;
    QTest::newRow("the launcher's own archive")
        << good + QStringList{u"DofusClient.zip"_s} << u"nom réservé au launcher"_s;
}

void TestPublishClient::refuses()
{
    QFETCH(const QStringList, files);
    QFETCH(const QString, reason);
    for (const QString &name : files)
        Files::write(folder() + u'/' + name, "content");
    const Publisher::Result result = publish();
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(reason), qPrintable(result.errors));
    QVERIFY(result.errors.contains(u"rien n'a été changé"_s));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/0002"_s)));
}

void TestPublishClient::refusesLinksAndSpecialFiles()
{
    Clients::write(folder(), Clients::sample());
    QVERIFY(QFile::link(u"Dofus.exe"_s, folder() + u"/lien"_s));
    QVERIFY(QFile::link(u"data"_s, folder() + u"/dossier"_s));
    QCOMPARE(::mkfifo(QFile::encodeName(folder() + u"/tube"_s).constData(), 0600), 0);
    const Publisher::Result result = publish();
    QCOMPARE(result.code, 2);
    for (const QString &name : {u"lien"_s, u"dossier"_s, u"tube"_s}) {
        QVERIFY2(result.errors.contains(u"« %1 » : lien ou fichier spécial"_s.arg(name)),
                 qPrintable(result.errors));
    }
}

void TestPublishClient::warnsOfFilesAbove2GB()
{
    // Refused as well, so that nobody has to wait for it to be read.
    Files::write(folder() + u"/DofusInvoker.swf"_s, "marker");
    Files::write(folder() + u"/data/enorme.d2p"_s, "");
    QVERIFY(QFile::resize(folder() + u"/data/enorme.d2p"_s, qint64{2} * 1024 * 1024 * 1024 + 1));
    const Publisher::Result result = publish();
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"« data/enorme.d2p » dépasse 2 Go"_s),
             qPrintable(result.errors));
}

void TestPublishClient::tellsManyProblemsShortly()
{
    for (int i = 0; i < 30; ++i)
        Files::write(folder() + u"/a%1:"_s.arg(i), "content");
    const Publisher::Result result = publish();
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"… et 11 autres\n"_s), qPrintable(result.errors));
    for (int i = 20; i < 30; ++i)
        QVERIFY(QFile::remove(folder() + u"/a%1:"_s.arg(i)));
    const Publisher::Result fewer = publish();
    QVERIFY2(fewer.errors.contains(u"… et 1 autre\n"_s), qPrintable(fewer.errors));
    QCOMPARE(m_publisher->run({u"client"_s, u"absent"_s}).code, 2);
}

/// One lies in the other: each publication would hold all those before it.
void TestPublishClient::theWorkshopIsNoClient()
{
    Clients::write(m_publisher->path(u"."_s), Clients::sample());
    Clients::write(m_publisher->beside(u"."_s), Clients::sample());
    Clients::write(m_publisher->path(u"publications/jeu"_s), Clients::sample());
    QVERIFY(QFile::link(m_publisher->path(u"."_s), m_publisher->beside(u"lien"_s)));
    for (const QString &place :
         {m_publisher->path(u"."_s), m_publisher->beside(u"."_s), m_publisher->beside(u"lien"_s),
          m_publisher->path(u"publications/jeu"_s), m_publisher->path(u"brouillon"_s)}) {
        const Publisher::Result result = m_publisher->run({u"client"_s, place});
        QCOMPARE(result.code, 2);
        QVERIFY2(result.errors.contains(u"L'atelier et le client"_s), qPrintable(result.errors));
    }
    // As the guide has it.
    Clients::write(m_publisher->path(u"jeu"_s), Clients::sample());
    QCOMPARE(m_publisher->run({u"client"_s, u"jeu"_s}).code, 0);
}

void TestPublishClient::whatCannotBeReadIsTheDisksFault_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QFile::Permissions>("rights");
    const QFile::Permissions none;
    QTest::newRow("a file") << u"/Dofus.exe"_s << none;
    QTest::newRow("a folder of it") << u"/data/cartes"_s << none;
    QTest::newRow("a folder that shows nothing but names")
        << u"/data/cartes"_s << QFile::Permissions(QFile::ReadOwner | QFile::ReadOther);
    QTest::newRow("the folder itself") << QString() << none;
}

void TestPublishClient::whatCannotBeReadIsTheDisksFault()
{
    QFETCH(const QString, name);
    QFETCH(const QFile::Permissions, rights);
    if (!becomeStranger())
        QSKIP("A stranger cannot reach the folder: one around it keeps others out");
    Clients::write(folder(), Clients::sample());
    Files::write(folder() + u"/data/cartes/1"_s, "map");
    const QFile::Permissions before = QFile::permissions(folder() + name);
    QVERIFY(QFile::setPermissions(folder() + name, rights));
    const Publisher::Result result = publish();
    QVERIFY(QFile::setPermissions(folder() + name, before));
    QCOMPARE(result.code, 6);
    QVERIFY2(result.errors.contains(folder() + name), qPrintable(result.errors));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/.en-cours"_s)));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/0002"_s)));
    QCOMPARE(publish().code, 0);
}

void TestPublishClient::whatIsExcludedNeedNotBeReadable()
{
    if (!becomeStranger())
        QSKIP("A stranger cannot reach the folder: one around it keeps others out");
    Clients::write(folder(), Clients::sample());
    Files::write(folder() + u"/data/lost+found/1"_s, "found");
    QVERIFY(QFile::setPermissions(folder() + u"/data/lost+found"_s, {}));
    const Publisher::Result result = publish({u"--exclure"_s, u"data/lost+found"_s});
    QVERIFY(QFile::setPermissions(folder() + u"/data/lost+found"_s,
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QVERIFY2(result.code == 0, qPrintable(result.errors));
    QVERIFY(!archivedNames().contains(u"data/lost+found/1"_s));
}

void TestPublishClient::aFullDiskLeavesTheDraft_data()
{
    QTest::addColumn<qint64>("bytesLeft");
    QTest::addColumn<QString>("file");
    QTest::newRow("while files are copied") << qint64{100'000} << u"/updates/files/"_s;
    // The largest file fits.
    QTest::newRow("while the archive is written")
        << qint64{200'500} << u"/client/DofusClient.zip"_s;
}

void TestPublishClient::aFullDiskLeavesTheDraft()
{
    QFETCH(const qint64, bytesLeft);
    QFETCH(const QString, file);
    Clients::write(folder(), Clients::sample());
    Publisher::Result result;
    {
        const FullDisk disk(bytesLeft);
        result = publish();
    }
    QCOMPARE(result.code, 6);
    QVERIFY2(result.errors.contains(u"Écriture impossible"_s), qPrintable(result.errors));
    QVERIFY2(result.errors.contains(file), qPrintable(result.errors));
    QVERIFY2(!result.errors.contains(u"Unknown error"_s), qPrintable(result.errors));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/.en-cours"_s)));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/0002"_s)));
    QCOMPARE(publish().code, 0);
}

void TestPublishClient::anEarlierArchiveThatIsOfNoUseIsNotUsed_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::newRow("it is gone") << QByteArray();
    QTest::newRow("it is no archive") << QByteArray("page");
    QTest::newRow("it is another one") << Archives::zip({{"a", "b"}});
    const Publisher other;
    QCOMPARE(other.run({u"init"_s, u"http://veyra.test/"_s}).code, 0);
    Clients::write(other.beside(u"client"_s),
                   {{u"Dofus.exe"_s, "b"}, {u"DofusInvoker.swf"_s, "c"}, {u"data/vide"_s, "d"}});
    QCOMPARE(other.run({u"client"_s, other.beside(u"client"_s)}).code, 0);
    QTest::newRow("its files have other sizes")
        << Files::read(other.path(QLatin1StringView(kArchive)));
}

void TestPublishClient::anEarlierArchiveThatIsOfNoUseIsNotUsed()
{
    QFETCH(const QByteArray, archive);
    const ClientFiles files = Clients::sample();
    Clients::write(folder(), files);
    // Otherwise they are read again, and no earlier archive is asked.
    for (auto file = files.begin(); file != files.end(); ++file)
        age(folder() + u'/' + file.key());
    QCOMPARE(publish().code, 0);
    const QString earlier = m_publisher->path(QLatin1StringView(kArchive));
    QVERIFY(QFile::remove(earlier));
    if (!archive.isEmpty())
        Files::write(earlier, archive);
    Files::write(folder() + u"/data/texte.json"_s, "changed");
    QCOMPARE(publish().code, 0);
    QVERIFY(this->archive() == archiveOfAFirstRun());
}

void TestPublishClient::aFileThatChangesWhileItIsReadIsRefused_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("it grows") << QByteArray("other content");
    QTest::newRow("it shrinks") << QByteArray("other");
    QTest::newRow("it stays as long as it was") << QByteArray("CONTENT");
}

void TestPublishClient::aFileThatChangesWhileItIsReadIsRefused()
{
    QFETCH(const QByteArray, content);
    Clients::write(folder(), Clients::sample());
    Files::write(folder() + u"/data/carte"_s, "content");
    QProcess process;
    m_publisher->startUntil(process, kFirstSteps, {u"client"_s, folder()});
    QTRY_VERIFY(Publisher::isStopped(process));
    Files::write(folder() + u"/data/carte"_s, content);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGCONT), 0);
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), 2);
    const QString errors = QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(errors.contains(u"« data/carte » a changé pendant la lecture"_s), qPrintable(errors));
}

void TestPublishClient::interruptionLeavesNothing()
{
    Clients::write(folder(), Clients::sample());
    for (int i = 0; i < 100; ++i) // more than all threads have in hand at once
        Files::write(folder() + u"/data/%1"_s.arg(i), QByteArray(10'000, 'x'));
    // While the first files are read.
    QProcess process;
    const QString first = m_publisher->path(u"publications/.en-cours/updates/files/Dofus.exe"_s);
    for (int step = kFirstSteps; step < 100; ++step) {
        m_publisher->startUntil(process, step, {u"client"_s, folder()});
        QTRY_VERIFY(Publisher::isStopped(process));
        if (QFile::exists(first))
            break;
        process.kill();
        QVERIFY(process.waitForFinished());
    }
    QVERIFY(QFile::exists(first));
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGINT), 0);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGCONT), 0);
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 130);
    // Not just before what was prepared would count: that may be an hour later.
    const QByteArray errors = process.readAllStandardError();
    QVERIFY2(!errors.contains("100 %"), errors.constData());
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/.en-cours"_s)));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/0002"_s)));
}

void TestPublishClient::aTerminalShowsABar()
{
    Clients::write(folder(), Clients::sample());
    QProcess terminal;
    terminal.setWorkingDirectory(m_publisher->path(QString()));
    terminal.start(u"script"_s,
                   {u"--quiet"_s, u"--return"_s, u"--command"_s,
                    u"'%1' client '%2'"_s.arg(Publisher::program(), folder()), u"/dev/null"_s});
    QVERIFY(terminal.waitForFinished());
    QCOMPARE(terminal.exitCode(), 0);
    const QString shown = QString::fromUtf8(terminal.readAllStandardOutput());
    QVERIFY2(shown.contains(u"\rFichiers [##############################] 100 %\r\n"_s),
             qPrintable(shown));
}

/// With more files than 16 bits count, and a file that begins beyond 4 GB.
void TestPublishClient::largeArchivesAreRead()
{
    QByteArray directory = largeDirectory();
    const auto read = [&directory] {
        // Nobody looks at what stands before it.
        return CentralDirectory::read(
            kFiveGB + directory.size(), [&directory](qint64 offset, qint64 size) {
                const qint64 before = std::min(size, std::max(qint64{0}, kFiveGB - offset));
                return QByteArray(before, '\0') +
                       directory.mid(std::max(qint64{0}, offset - kFiveGB), size - before);
            });
    };
    const std::optional<CentralDirectory> large = read();
    QVERIFY(large.has_value());
    QCOMPARE(large->entries.size(), 1);
    QCOMPARE(large->entries.first().name, "a");
    QCOMPARE(large->entries.first().headerOffset, qint64{0x123456789});
    QCOMPARE(large->entries.first().size, qint64{7});

    directory.replace("PK\x06\x06", "PK\x06\x05");
    QVERIFY(!read());
}

/// What cannot be tried with real files: they would take minutes.
void TestPublishClient::largeArchivesAreWritten()
{
    CentralDirectory::Entry large;
    large.name = "large";
    large.method = CentralDirectory::kDeflated;
    large.crc = 0x12345678;
    large.size = kFiveGB;
    large.packedSize = kFiveGB - 1;
    const QByteArray header = ZipRecords::header(large);
    QCOMPARE(header.size(), 30 + 5 + 20);
    QCOMPARE(header.mid(18, 8), QByteArray(8, '\xff'));
    QCOMPARE(header.right(20),
             number(quint16(1)) + number(quint16(16)) + number(kFiveGB) + number(kFiveGB - 1));

    std::vector<CentralDirectory::Entry> entries(70'000);
    for (size_t i = 0; i < entries.size(); ++i)
        entries[i].name = QByteArray::number(qulonglong(i));
    entries[1] = large;
    entries[2].headerOffset = 2 * kFiveGB;
    const QByteArray directory = ZipRecords::directory(entries, kFiveGB);
    const auto fetch = [&directory](qint64 offset, qint64 size) {
        const qint64 before = std::min(size, std::max(qint64{0}, kFiveGB - offset));
        return QByteArray(before, '\0') +
               directory.mid(std::max(qint64{0}, offset - kFiveGB), size - before);
    };
    const auto read = CentralDirectory::read(kFiveGB + directory.size(), fetch);
    QVERIFY(read.has_value());
    QCOMPARE(read->entries.size(), 70'000);
    QCOMPARE(read->entries.last().name, "69999");
    QCOMPARE(read->entries.at(1).size, large.size);
    QCOMPARE(read->entries.at(1).packedSize, large.packedSize);
    QCOMPARE(read->entries.at(1).crc, large.crc);
    QCOMPARE(read->entries.at(2).headerOffset, 2 * kFiveGB);
}

void TestPublishClient::theLastPieceOfACopyIsMissing()
{
    const QTemporaryDir place;
    Files::write(place.filePath(u"short"_s), "content");
    SharedFile source(place.filePath(u"short"_s), QIODevice::ReadOnly);
    SharedFile target(place.filePath(u"target"_s), QIODevice::WriteOnly);
    QVERIFY_THROWS_EXCEPTION(Problem, target.copy(source, 3, 100, 0));
    target.copy(source, 3, 4, 2);
    QCOMPARE(Files::read(place.filePath(u"target"_s)).mid(2), "tent");
    QVERIFY_THROWS_EXCEPTION(Problem, SharedFile(place.filePath(u"a/b"_s), QIODevice::WriteOnly));
}

/// The kernel copies nothing out of what it makes up itself.
void TestPublishClient::aVolumeThatCopiesNothingByItself()
{
    const QTemporaryDir place;
    SharedFile source(u"/proc/version"_s, QIODevice::ReadOnly);
    SharedFile target(place.filePath(u"target"_s), QIODevice::WriteOnly);
    target.copy(source, 0, 20, 5);
    QCOMPARE(Files::read(place.filePath(u"target"_s)).mid(5),
             Files::read(u"/proc/version"_s).first(20));
}

void TestPublishClient::damagedArchivesAreNotRead_data()
{
    QTest::addColumn<QByteArray>("archive");
    const QByteArray good = Archives::zip({{"a", "content"}, {"b", "content"}});
    QTest::newRow("nothing at all") << QByteArray();
    QTest::newRow("the end alone") << good.right(10);
    QTest::newRow("a directory beyond the file") << good.right(22);
    QTest::newRow("a record that is none") << QByteArray(good).replace("PK\x01\x02", "PK\x01\x03");
    QByteArray longName = good;
    longName[good.indexOf("PK\x01\x02") + 29] = 1;
    QTest::newRow("a name that is too long") << longName;
}

void TestPublishClient::damagedArchivesAreNotRead()
{
    QFETCH(const QByteArray, archive);
    const auto fetch = [&archive](qint64 offset, qint64 size) { return archive.mid(offset, size); };
    QVERIFY(!CentralDirectory::read(archive.size(), fetch));
}

void TestPublishClient::namesThatClash_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("clashes");
    const auto row = [](const char *name, const QStringList &names, const QStringList &clashes) {
        QTest::newRow(name) << names << clashes;
    };
    row("names that have nothing in common", {u"a/b"_s, u"a/c"_s, u"ab"_s}, {});
    row("a folder in two cases", {u"Data/a"_s, u"data/b"_s}, {});
    row("a folder that the archive names too", {u"data/"_s, u"data/b"_s, u"Data/"_s}, {});
    row("the same name twice", {u"a"_s, u"b"_s, u"a"_s}, {u"a = a"_s});
    row("three names that differ by case", {u"a"_s, u"A"_s, u"Á"_s, u"á"_s},
        {u"a = A"_s, u"Á = á"_s});
    row("a file that is a folder elsewhere", {u"a/b/c/d"_s, u"A/B"_s}, {u"A/B > a/b/c/d"_s});
    row("one clash for each file", {u"a"_s, u"a/b"_s, u"a/b/c"_s},
        {u"a > a/b"_s, u"a/b > a/b/c"_s});
    row("a file and an empty folder", {u"a"_s, u"A/"_s}, {u"a > A/"_s});
}

void TestPublishClient::namesThatClash()
{
    QFETCH(const QStringList, names);
    QFETCH(const QStringList, clashes);
    QStringList found;
    const QList<FileNames::Clash> all = FileNames::clashes(names);
    for (const FileNames::Clash &clash : all)
        found.append(clash.first + (clash.isFolder ? u" > "_s : u" = "_s) + clash.second);
    QCOMPARE(found, clashes);
}

void TestPublishClient::namesThatWindowsTakes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isTaken");
    QTest::newRow("letters with accents") << u"Île aux Cèdres/bœuf.pak"_s << true;
    QTest::newRow("a device's name within another one") << u"conte/auxiliaire"_s << true;
    QTest::newRow("a full stop at the beginning") << u".data/a"_s << true;
    QTest::newRow("a device") << u"nul"_s << false;
    QTest::newRow("a device with blanks") << u"nul .txt"_s << false;
    QTest::newRow("a numbered device") << u"a/COM1"_s << false;
    QTest::newRow("a control character") << u"a\nb"_s << false;
    QTest::newRow("a blank at the end") << u"a /b"_s << false;
    QTest::newRow("a colon") << u"a:b"_s << false;
    QTest::newRow("a part of the path that leads up") << u"a/../b"_s << false;
    QTest::newRow("half a character") << u"a"_s + QChar(0xd800) << false;
    QTest::newRow("more bytes than Linux has room for") << QString(130, u'é') << false;
}

void TestPublishClient::namesThatWindowsTakes()
{
    QFETCH(const QString, name);
    QFETCH(const bool, isTaken);
    QCOMPARE(FileNames::problem(name).isEmpty(), isTaken);
}

VEYRA_CORE_TEST_MAIN(TestPublishClient)
#include "TestPublishClient.moc"
