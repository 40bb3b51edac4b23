#include "updater/UpdateArchive.h"

#include "updater/Failure.h"

#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"
#include "tests/updater/SampleUpdate.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

Q_DECLARE_METATYPE(SampleUpdate)

namespace {

constexpr auto kNoKeys = "ce programme est construit sans clé de mise à jour";
constexpr auto kInconsistent = "archive incohérente (";
constexpr auto kTooLarge = "plus de 1 Go au total";
constexpr auto kDamaged =
    "contenu différent de celui que liste.txt annonce : « VeyraLauncher.exe »";
constexpr auto kWrongSize = "taille différente de celle de liste.txt : « VeyraLauncher.exe »";

// Where VeyraLauncher.exe stands among the entries.
constexpr qsizetype kLauncher = 0;

constexpr quint16 kEncrypted = 1;
constexpr quint16 kUtf8 = 1 << 11;
constexpr quint32 kSymbolicLink = 0120777u << 16;

/// The text of the Failure, or the names and contents of all files.
QString verdict(const QString &path, const UpdateTerms &terms)
{
    try {
        const UpdateArchive archive(path.toStdString(), terms);
        QByteArray unpacked;
        for (const UpdateList::File &file : archive.list().files) {
            unpacked += QByteArray::fromStdString(file.name) + '=';
            archive.extract(file, [&unpacked, &file](const char *bytes, size_t count) {
                unpacked.append(bytes, qsizetype(count));
                if (std::uint64_t(unpacked.size()) > file.bytes + 100000)
                    qFatal("More is handed over than the list allows");
            });
            unpacked += ';';
        }
        return QString::fromUtf8(unpacked);
    } catch (const Failure &failure) {
        return failure.code == ExitCode::Refused ? QString::fromStdString(failure.text)
                                                 : u"another exit code"_s;
    }
}

} // namespace

class TestUpdateArchive : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void good_data();
    void good();
    void hostile_data();
    void hostile();
    void refusesWhatOtherKeysSigned();
    void refusesEverythingWithoutKeys();
    void refusesAFileThatIsNotThere();
    void refusesWhatIsNotNewer_data();
    void refusesWhatIsNotNewer();
    void unpacksWhatItChecked();
    void bearsEveryTurnedByte();
    void bearsEveryLength();

private:
    QString verdictOf(const QByteArray &archive) const;

    const KeyPair m_keys;
    QTemporaryDir m_folder;
    UpdateTerms m_terms;
    QString m_good;
};

void TestUpdateArchive::initTestCase()
{
    m_terms.keys = {UpdateKey::parse(KeyPair().publicKey()), UpdateKey::parse(m_keys.publicKey())};
    m_terms.target = SampleUpdate::kTarget;
    m_terms.versions = {"1.0.0"};
    m_good = u"VeyraLauncher.exe=the new launcher;platforms/qwindows.dll=a plugin;vide.txt=;"_s;
}

QString TestUpdateArchive::verdictOf(const QByteArray &archive) const
{
    const QString path = m_folder.filePath(u"archive.zip"_s);
    QFile::remove(path); // Linux hurries to the disk with what overwrites a file
    Files::write(path, archive);
    return verdict(path, m_terms);
}

void TestUpdateArchive::good_data()
{
    QTest::addColumn<SampleUpdate>("update");

    const auto row = [](const char *name, const SampleUpdate &update) {
        QTest::newRow(name) << update;
    };
    row("as it is made", {});
    row("stored throughout", {.changeZip = [](ZipBuilder &zip) {
            for (ZipEntry &entry : zip.entries)
                entry.deflated = false;
        }});
    row("in another order", {.changeZip = [](ZipBuilder &zip) {
            std::reverse(zip.entries.begin(), zip.entries.end());
        }});
    row("with a comment", {.changeZip = [](ZipBuilder &zip) { zip.comment = "Veyra"; }});
    row("with names marked as UTF-8", {.changeZip = [](ZipBuilder &zip) {
            for (ZipEntry &entry : zip.entries)
                entry.flags |= kUtf8;
        }});
    // The list decides what a file is; the archive's own opinion is not asked.
    row("with a file that claims to be a symbolic link", {.changeZip = [](ZipBuilder &zip) {
            zip.entries[kLauncher].externalAttributes = kSymbolicLink;
        }});
}

void TestUpdateArchive::good()
{
    QFETCH(const SampleUpdate, update);
    QCOMPARE(verdictOf(update.archive(m_keys)), m_good);
}

void TestUpdateArchive::hostile_data()
{
    QTest::addColumn<SampleUpdate>("update");
    QTest::addColumn<QString>("reason");

    // The reason is how the text begins.
    const auto row = [](const QString &name, const QString &reason, const SampleUpdate &update) {
        QTest::newRow(qPrintable(name)) << update << reason;
    };
    const auto bytes = [](const std::function<void(QByteArray &)> &change) {
        return SampleUpdate{.changeBytes = change};
    };
    const auto zip = [](const std::function<void(ZipBuilder &)> &change) {
        return SampleUpdate{.changeZip = change};
    };
    const auto launcher = [zip](const std::function<void(ZipEntry &)> &change) {
        return zip([change](ZipBuilder &builder) { change(builder.entries[kLauncher]); });
    };
    const QString inconsistent = QString::fromUtf8(kInconsistent);
    const QString tooLarge = QString::fromUtf8(kTooLarge);
    const QString damaged = QString::fromUtf8(kDamaged);
    const QString wrongSize = QString::fromUtf8(kWrongSize);

    // No archives
    row(u"an empty file"_s, inconsistent, bytes([](QByteArray &all) { all.clear(); }));
    row(u"a web page"_s, inconsistent, bytes([](QByteArray &all) { all = "<html>404</html>"; }));
    row(u"zeros"_s, inconsistent, bytes([](QByteArray &all) { all.fill('\0'); }));
    row(u"the first half"_s, inconsistent,
        bytes([](QByteArray &all) { all.chop(all.size() / 2); }));
    row(u"all but the last byte"_s, inconsistent, bytes([](QByteArray &all) { all.chop(1); }));
    row(u"the second half"_s, inconsistent,
        bytes([](QByteArray &all) { all.remove(0, all.size() / 2); }));
    row(u"without its first byte"_s, inconsistent,
        bytes([](QByteArray &all) { all.remove(0, 1); }));
    row(u"an archive of nothing"_s, u"l'archive ne contient pas liste.txt"_s,
        zip([](ZipBuilder &builder) { builder.entries.clear(); }));

    // Headers that contradict each other
    row(u"another name before the content than in the directory"_s, inconsistent,
        launcher([](ZipEntry &entry) { entry.localName = "VeyraLauncher.dll"; }));
    row(u"another size before the content"_s, inconsistent,
        launcher([](ZipEntry &entry) { entry.localSize = 15; }));
    row(u"more entries announced than there are"_s, inconsistent,
        zip([](ZipBuilder &builder) { builder.claimedEntries = 6; }));
    row(u"fewer entries announced than there are"_s, inconsistent,
        zip([](ZipBuilder &builder) { builder.claimedEntries = 4; }));
    row(u"65,535 entries announced"_s, inconsistent,
        zip([](ZipBuilder &builder) { builder.claimedEntries = 65535; }));
    row(u"a directory beyond the end"_s, inconsistent,
        zip([](ZipBuilder &builder) { builder.claimedDirectoryOffset = 0x7fffffff; }));
    row(u"a directory at the start"_s, inconsistent,
        zip([](ZipBuilder &builder) { builder.claimedDirectoryOffset = 0; }));
    row(u"two entries that share their content"_s, inconsistent, zip([](ZipBuilder &builder) {
            builder.add(builder.entries.at(kLauncher));
            builder.entries.last().name = "autre.exe";
            builder.entries.last().contentOf = int(kLauncher);
        }));

    // What libraries make of it differs
    for (const int method : {1, 6, 9, 12, 14, 93, 95, 98, 65535}) {
        row(u"compression method %1"_s.arg(method),
            u"compression non admise dans l'archive : « VeyraLauncher.exe »"_s,
            launcher([method](ZipEntry &entry) { entry.method = quint16(method); }));
    }
    row(u"encryption by AES without its parameters"_s, inconsistent,
        launcher([](ZipEntry &entry) { entry.method = quint16(99); }));
    row(u"an encrypted file"_s, u"entrée chiffrée dans l'archive : « VeyraLauncher.exe »"_s,
        launcher([](ZipEntry &entry) { entry.flags = kEncrypted; }));
    row(u"a list in another compression"_s,
        u"compression non admise dans l'archive : « liste.txt »"_s,
        zip([](ZipBuilder &builder) { builder.entries[3].method = 12; }));

    // Names
    const auto named = [zip](const QByteArray &name) {
        return zip([name](ZipBuilder &builder) { builder.add({.name = name, .content = "evil"}); });
    };
    const auto badName = [&row, &named](const QByteArray &name, const QString &reason) {
        QByteArray shown = name;
        for (char &c : shown)
            c = c < ' ' || c > '~' ? '?' : c;
        row(u"the name \"%1\""_s.arg(QString::fromLatin1(name.toPercentEncoding(" /\\:*"))),
            u"nom refusé dans l'archive, « %1 » : %2"_s.arg(QString::fromLatin1(shown), reason),
            named(name));
    };
    badName("../evil.dll", u"chemin relatif"_s);
    badName("platforms/../../evil.dll", u"chemin relatif"_s);
    badName("./version.dll", u"chemin relatif"_s);
    badName("..", u"chemin relatif"_s);
    badName("/etc/passwd", u"chemin absolu"_s);
    badName("//server/share/evil.dll", u"chemin absolu"_s);
    badName("C:/Windows/evil.dll", u"caractère interdit"_s);
    badName("C:evil.dll", u"caractère interdit"_s);
    badName("..\\evil.dll", u"caractère interdit"_s);
    badName("\\\\server\\share\\evil.dll", u"caractère interdit"_s);
    badName("VeyraLauncher.exe:stream", u"caractère interdit"_s);
    badName("VEYRAL~1.EXE", u"caractère interdit"_s);
    badName("evil?.dll", u"caractère interdit"_s);
    badName("NUL", u"nom réservé par Windows"_s);
    badName("platforms/con.dll", u"nom réservé par Windows"_s);
    badName("Com1", u"nom réservé par Windows"_s);
    badName("VeyraLauncher.exe.", u"point ou espace final"_s);
    badName("VeyraLauncher.exe ", u"point ou espace final"_s);
    badName("platforms./evil.dll", u"point ou espace final"_s);
    badName("platforms/", u"élément vide dans le chemin"_s);
    badName("platforms//evil.dll", u"élément vide dans le chemin"_s);
    badName("evil\n.dll", u"caractère de contrôle"_s);
    badName("evil\x7f.dll", u"caractère de contrôle"_s);
    badName("\xc3\xa9vil.dll", u"caractère hors ASCII"_s);
    badName("Client/Dofus.exe", u"nom réservé au launcher"_s);
    badName("client/dofus.exe", u"nom réservé au launcher"_s);
    badName(".veyra-maj/journal.txt", u"nom réservé au launcher"_s);
    badName("LISTE.txt", u"nom réservé au launcher"_s);
    row(u"a name of 201 characters"_s, u"nom refusé dans l'archive, « aaa"_s,
        named(QByteArray(201, 'a')));
    row(u"an entry without a name"_s, u"nom refusé dans l'archive, «  » : nom vide"_s, named(""));
    row(u"a name twice"_s, inconsistent, named("VeyraLauncher.exe"));
    row(u"a name twice by case"_s,
        u"nom en double dans l'archive, à la casse près : « veyralauncher.EXE »"_s,
        named("veyralauncher.EXE"));
    row(u"a second list"_s, inconsistent, named("liste.txt"));

    // Sizes
    row(u"a file of 4 GB"_s, tooLarge, zip([](ZipBuilder &builder) {
            builder.add({.name = "gros", .deflated = true, .size = 0xfffffffe});
        }));
    row(u"files of more than 1 GB together"_s, tooLarge, zip([](ZipBuilder &builder) {
            for (const char *name : {"gros1", "gros2"})
                builder.add({.name = name, .deflated = true, .size = 0x20000001});
        }));
    row(u"2,001 entries"_s, u"plus de 2000 entrées dans l'archive"_s, zip([](ZipBuilder &builder) {
            while (builder.entries.size() < 2001)
                builder.add({.name = "f" + QByteArray::number(builder.entries.size())});
        }));
    row(u"65,534 entries"_s, u"plus de 2000 entrées dans l'archive"_s, zip([](ZipBuilder &builder) {
            while (builder.entries.size() < 65534)
                builder.add({.name = "f" + QByteArray::number(builder.entries.size())});
        }));
    row(u"a list of more than 1 MB"_s, u"liste.txt est trop grand"_s,
        {.changeSignedList = [](QByteArray &list) { list = QByteArray(1024 * 1024 + 1, ' '); }});
    row(u"a signature of more than 4 KB"_s, u"liste.txt.minisig est trop grand"_s,
        {.changeSignature = [](QByteArray &signature) { signature = QByteArray(4097, ' '); }});

    // The signature
    row(u"no list"_s, u"l'archive ne contient pas liste.txt"_s,
        zip([](ZipBuilder &builder) { builder.entries.remove(3); }));
    row(u"no signature"_s, u"l'archive ne contient pas liste.txt.minisig"_s,
        zip([](ZipBuilder &builder) { builder.entries.remove(4); }));
    row(u"a list that was changed after it was signed"_s, u"la signature de liste.txt est fausse"_s,
        {.changeSignedList = [](QByteArray &list) { list.replace("1.0.1", "1.0.2"); }});
    row(u"a list with a line more"_s, u"la signature de liste.txt est fausse"_s,
        {.changeSignedList = [](QByteArray &list) { list += QByteArray(64, 'a') + " 1 zz\n"; }});
    row(u"a signature that is empty"_s, u"liste.txt.minisig n'est pas une signature minisign"_s,
        {.changeSignature = [](QByteArray &signature) { signature.clear(); }});
    row(u"a signature that is turned by one bit"_s, u"la signature de liste.txt est fausse"_s,
        {.changeSignature = [](QByteArray &signature) {
            QList<QByteArray> lines = signature.split('\n');
            QByteArray raw = QByteArray::fromBase64(lines.at(1));
            raw[50] = char(raw.at(50) ^ 4);
            lines[1] = raw.toBase64();
            signature = lines.join('\n');
        }});
    row(u"a list whose sum in the archive is wrong"_s, u"liste.txt est abîmé dans l'archive"_s,
        zip([](ZipBuilder &builder) { builder.entries[3].crc = 1; }));
    row(u"a list that cannot be unpacked"_s, u"liste.txt est abîmé dans l'archive"_s,
        zip([](ZipBuilder &builder) { builder.entries[3].packed = "\xff\xff\xff\xff"; }));
    row(u"a list that unpacks to more than it says"_s, u"liste.txt est abîmé dans l'archive"_s,
        zip([](ZipBuilder &builder) {
            ZipEntry &list = builder.entries[3];
            list.packed = ZipBuilder::deflated(list.content + "more");
        }));

    // The list, signed as it is
    row(u"a list that is no list"_s, u"liste.txt, ligne 1 : « veyra-lanceur 1 » attendu"_s,
        {.changeList = [](QByteArray &list) { list = "hello\n"; }});
    row(u"a list with a hostile name"_s,
        u"liste.txt, ligne 4 : nom de fichier refusé, « ../evil.dll » : chemin relatif"_s,
        {.changeList = [](QByteArray &list) { list.replace("VeyraLauncher.exe", "../evil.dll"); }});
    row(u"another system"_s,
        u"mise à jour pour un autre système : linux-x64 au lieu de windows-x64"_s,
        {.target = "linux-x64"});
    row(u"an older version"_s, u"la version 0.9.9 n'est pas plus récente que la version 1.0.0"_s,
        {.version = "0.9.9"});
    row(u"the same version"_s, u"la version 1.0.0 n'est pas plus récente que la version 1.0.0"_s,
        {.version = "1.0.0"});

    // List and archive
    row(u"a file that the list does not name"_s, u"fichier absent de liste.txt : « version.dll »"_s,
        named("version.dll"));
    row(u"a file that the archive lacks"_s,
        u"fichier absent de l'archive : « VeyraLauncher.exe »"_s,
        zip([](ZipBuilder &builder) { builder.entries.remove(kLauncher); }));
    row(u"a file under another name"_s, u"fichier absent de l'archive : « VeyraLauncher.exe »"_s,
        launcher([](ZipEntry &entry) { entry.name = "veyralauncher.exe"; }));
    row(u"another content of the same size"_s, damaged,
        launcher([](ZipEntry &entry) { entry.content = "the old launcher"; }));
    row(u"another content of the same size, stored"_s, damaged, launcher([](ZipEntry &entry) {
            entry.content = "the old launcher";
            entry.deflated = false;
        }));
    row(u"a content that is longer"_s, wrongSize,
        launcher([](ZipEntry &entry) { entry.content += "!"; }));
    row(u"a content that is shorter"_s, wrongSize,
        launcher([](ZipEntry &entry) { entry.content.chop(1); }));
    row(u"an empty content"_s, wrongSize, launcher([](ZipEntry &entry) { entry.content.clear(); }));
    row(u"a content that unpacks to more than it says"_s, damaged, launcher([](ZipEntry &entry) {
            entry.packed = ZipBuilder::deflated(entry.content + "and a virus");
        }));
    row(u"a content that unpacks to a thousand times what it says"_s, damaged,
        launcher([](ZipEntry &entry) {
            entry.packed = ZipBuilder::deflated(QByteArray(16ll * 1024 * 1024, '\0'));
        }));
    row(u"a content that unpacks to less than it says"_s, damaged, launcher([](ZipEntry &entry) {
            entry.packed = ZipBuilder::deflated(entry.content.chopped(1));
        }));
    row(u"a content that cannot be unpacked"_s, damaged,
        launcher([](ZipEntry &entry) { entry.packed = "\xff\xff\xff\xff"; }));
    row(u"a content that is cut off"_s, damaged, launcher([](ZipEntry &entry) {
            entry.packed = ZipBuilder::deflated(entry.content).chopped(3);
        }));
    row(u"a wrong sum in the archive"_s, damaged, launcher([](ZipEntry &entry) { entry.crc = 1; }));
}

void TestUpdateArchive::hostile()
{
    QFETCH(const SampleUpdate, update);
    QFETCH(const QString, reason);
    const QString found = verdictOf(update.archive(m_keys));
    QVERIFY2(found.startsWith(reason), qPrintable(found));
}

void TestUpdateArchive::refusesWhatOtherKeysSigned()
{
    QCOMPARE(verdictOf(SampleUpdate().archive(KeyPair())),
             u"liste.txt est signée avec une clé inconnue"_s);
    QCOMPARE(verdictOf(SampleUpdate().archive(m_keys.impostor())),
             u"la signature de liste.txt est fausse"_s);
}

void TestUpdateArchive::refusesEverythingWithoutKeys()
{
    UpdateTerms terms = m_terms;
    terms.keys.clear();
    const QString path = m_folder.filePath(u"archive.zip"_s);
    Files::write(path, SampleUpdate().archive(m_keys));
    QCOMPARE(verdict(path, terms), QString::fromUtf8(kNoKeys));
}

void TestUpdateArchive::refusesAFileThatIsNotThere()
{
    const QString path = m_folder.filePath(u"absent.zip"_s);
    QVERIFY(
        verdict(path, m_terms).startsWith(u"archive introuvable ou illisible : %1 : "_s.arg(path)));
}

void TestUpdateArchive::refusesWhatIsNotNewer_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QByteArray>("installed");
    QTest::addColumn<bool>("isAccepted");

    QTest::newRow("newer than both") << QByteArray("1.2.0") << QByteArray("1.1.0") << true;
    QTest::newRow("as old as the installed one")
        << QByteArray("1.1.0") << QByteArray("1.1.0") << false;
    QTest::newRow("older than the installed one")
        << QByteArray("1.0.5") << QByteArray("1.1.0") << false;
    QTest::newRow("newer than the installed one, older than the program")
        << QByteArray("0.9.0") << QByteArray("0.8.0") << false;
}

void TestUpdateArchive::refusesWhatIsNotNewer()
{
    QFETCH(const QByteArray, version);
    QFETCH(const QByteArray, installed);
    QFETCH(const bool, isAccepted);
    UpdateTerms terms = m_terms;
    terms.versions.push_back(installed.toStdString());
    const QString path = m_folder.filePath(u"archive.zip"_s);
    Files::write(path, SampleUpdate{.version = version}.archive(m_keys));
    const QString found = verdict(path, terms);
    if (isAccepted)
        QCOMPARE(found, m_good);
    else
        QVERIFY2(found.contains(u"n'est pas plus récente"_s), qPrintable(found));
}

void TestUpdateArchive::unpacksWhatItChecked()
{
    const QString path = m_folder.filePath(u"archive.zip"_s);
    Files::write(path, SampleUpdate().archive(m_keys));
    const UpdateArchive archive(path.toStdString(), m_terms);

    // Somebody puts another file in its place, where the system lets them.
    if (QFile::rename(path, m_folder.filePath(u"aside.zip"_s)))
        Files::write(path, "evil");
    else
        QVERIFY(QSysInfo::kernelType() == u"winnt"_s);
    QByteArray unpacked;
    archive.extract(archive.list().files.front(), [&unpacked](const char *bytes, size_t count) {
        unpacked.append(bytes, qsizetype(count));
    });
    QCOMPARE(unpacked, QByteArray("the new launcher"));
}

void TestUpdateArchive::bearsEveryTurnedByte()
{
    const QByteArray good = SampleUpdate().archive(m_keys);
    for (qsizetype i = 0; i < good.size(); ++i) {
        for (const int mask : {0x01, 0xff}) {
            QByteArray changed = good;
            changed[i] = char(changed.at(i) ^ mask);
            const QString found = verdictOf(changed);
            // Times, attributes and the like say nothing about the content.
            QVERIFY2(found == m_good || !found.contains(u"=the"_s), qPrintable(found));
        }
    }
}

void TestUpdateArchive::bearsEveryLength()
{
    const QByteArray good = SampleUpdate().archive(m_keys);
    for (qsizetype length = 0; length < good.size(); ++length)
        QVERIFY(verdictOf(good.left(length)).startsWith(QString::fromUtf8(kInconsistent)));
}

VEYRA_CORE_TEST_MAIN(TestUpdateArchive)
#include "TestUpdateArchive.moc"
