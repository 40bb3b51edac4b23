#include "tests/publish/Publisher.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"
#include "tests/updater/SampleUpdate.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <functional>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kBaseUrl = u"http://veyra.test/";

/// The program as the compiler leaves it, with the address in UTF-16, which a zero ends, across the
/// place where one piece of a large file ends and the next begins.
QByteArray program(const QString &address)
{
    constexpr qsizetype kPiece = qsizetype{128} * 1024;
    QByteArray content = Files::noise(2 * kPiece);
    QByteArray text(reinterpret_cast<const char *>(address.utf16()), (address.size() + 1) * 2);
    content.replace(kPiece - 10, text.size(), text);
    return content;
}

SampleUpdate goodUpdate()
{
    SampleUpdate update;
    update.version = "98.0.1";
    update.files["VeyraLauncher.exe"] = program(QString::fromUtf16(kBaseUrl));
    return update;
}

using Change = std::function<void(SampleUpdate &)>;

} // namespace

class TestPublishLauncher : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void offersASignedLauncher();
    void aRequiredOneIsMarked();
    void theNextOneMustBeNewer();
    void whatNobodySawMayBeCorrected();
    void theNotesOfTheOneOnlineMayChange();
    void whatWasOnlineStaysInService();
    void aVersionHasOneContentForEver();
    void aDraftThatNobodySawMayBeReplaced();
    void refuses_data();
    void refuses();
    void launchersForLinux();
    void theArchiveOnlineIsKnownWhateverTheSystemIsNow();
    void anArchiveThatIsGoneDoesNotGoOnline();
    void systemsThatThereAreNone();
    void refusesWithoutAKey();
    void refusesOtherKeys();
    void versionsThatAreNone_data();
    void versionsThatAreNone();
    void wantsNotes();

private:
    Publisher::Result publish(const QByteArray &archive, const QStringList &options = {}) const
    {
        Files::write(m_publisher->beside(u"launcher.zip"_s), archive);
        return m_publisher->run(QStringList{u"lanceur"_s, m_publisher->beside(u"launcher.zip"_s),
                                            u"--notes"_s, m_publisher->beside(u"notes.txt"_s)} +
                                options);
    }
    QJsonObject record() const
    {
        return QJsonDocument::fromJson(
                   Files::read(m_publisher->path(u"brouillon/api/launcher_version.json"_s)))
            .object();
    }

    const KeyPair m_keys;
    std::unique_ptr<Publisher> m_publisher;
};

void TestPublishLauncher::init()
{
    m_publisher = std::make_unique<Publisher>();
    Files::write(m_publisher->beside(u"cle.pub"_s), m_keys.publicKeyFile());
    Files::write(m_publisher->beside(u"notes.txt"_s), "• Corrections\n");
    QCOMPARE(m_publisher
                 ->run({u"init"_s, QString::fromUtf16(kBaseUrl), u"--cle"_s,
                        m_publisher->beside(u"cle.pub"_s)})
                 .code,
             0);
}

void TestPublishLauncher::offersASignedLauncher()
{
    const QByteArray archive = goodUpdate().archive(m_keys);
    const Publisher::Result result = publish(archive);
    QVERIFY2(result.code == 0, qPrintable(result.errors));
    const QString name = u"launcher/VeyraLauncher-98.0.1-windows-x64.zip"_s;
    QCOMPARE(record(), (QJsonObject{{u"version"_s, u"98.0.1"_s},
                                    {u"download_url"_s, QString::fromUtf16(kBaseUrl) + name},
                                    {u"changelog"_s, u"• Corrections"_s},
                                    {u"required"_s, false}}));
    QCOMPARE(Files::tree(m_publisher->path(u"brouillon/launcher"_s)),
             QStringList{name.section(u'/', 1)});
    QCOMPARE(Files::read(m_publisher->path(u"brouillon/"_s + name)), archive);
}

void TestPublishLauncher::aRequiredOneIsMarked()
{
    QCOMPARE(publish(goodUpdate().archive(m_keys), {u"--obligatoire"_s}).code, 0);
    QCOMPARE(record().value(u"required"_s), true);
}

void TestPublishLauncher::theNextOneMustBeNewer()
{
    SampleUpdate update = goodUpdate();
    QCOMPARE(publish(update.archive(m_keys)).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    update.version = "98.0.0";
    const Publisher::Result older = publish(update.archive(m_keys));
    QCOMPARE(older.code, 2);
    QVERIFY2(older.errors.contains(u"n'est pas plus récente que la version 98.0.1"_s),
             qPrintable(older.errors));
    update.version = "98.0.2";
    QCOMPARE(publish(update.archive(m_keys)).code, 0);
    QCOMPARE(record().value(u"version"_s), u"98.0.2"_s);
    // For those who are just downloading it.
    QCOMPARE(Files::tree(m_publisher->path(u"brouillon/launcher"_s)).size(), 2);
}

/// Its notes, its being required, its number: as if it had never been prepared.
void TestPublishLauncher::whatNobodySawMayBeCorrected()
{
    SampleUpdate update = goodUpdate();
    const QByteArray archive = update.archive(m_keys);
    QCOMPARE(publish(archive).code, 0);
    Files::write(m_publisher->beside(u"notes.txt"_s), "• D'autres notes\n");
    const Publisher::Result again = publish(archive, {u"--obligatoire"_s});
    QVERIFY2(again.code == 0, qPrintable(again.errors));
    QCOMPARE(record().value(u"changelog"_s), u"• D'autres notes"_s);
    QCOMPARE(record().value(u"required"_s), true);

    update.version = "98.0.0";
    const Publisher::Result older = publish(update.archive(m_keys));
    QVERIFY2(older.code == 0, qPrintable(older.errors));
    QCOMPARE(Files::tree(m_publisher->path(u"brouillon/launcher"_s)),
             QStringList{u"VeyraLauncher-98.0.0-windows-x64.zip"_s});
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
}

void TestPublishLauncher::theNotesOfTheOneOnlineMayChange()
{
    const QByteArray archive = goodUpdate().archive(m_keys);
    QCOMPARE(publish(archive).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    Files::write(m_publisher->beside(u"notes.txt"_s), "• D'autres notes\n");
    const Publisher::Result again = publish(archive);
    QVERIFY2(again.code == 0, qPrintable(again.errors));
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QVERIFY(Files::read(m_publisher->path(u"site/api/launcher_version.json"_s))
                .contains("D'autres notes"));
    QCOMPARE(
        Files::read(m_publisher->path(u"site/launcher/VeyraLauncher-98.0.1-windows-x64.zip"_s)),
        archive);
}

void TestPublishLauncher::whatWasOnlineStaysInService()
{
    const auto versions = [this] {
        const QByteArray settings = Files::read(m_publisher->path(u"publication.json"_s));
        return QJsonDocument::fromJson(settings).object().value(u"versions"_s).toArray();
    };
    const QJsonArray before = versions();
    const QByteArray archive = goodUpdate().archive(m_keys);
    QCOMPARE(publish(archive).code, 0);
    QCOMPARE(versions(), before);
    const QJsonArray after{before.first(), u"98.0.1"_s};
    for (const QString &command : {u"mettre-en-ligne"_s, u"annuler"_s}) {
        QCOMPARE(m_publisher->run({command}).code, 0);
        QCOMPARE(versions(), after);
    }
    QCOMPARE(publish(archive).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QCOMPARE(versions(), after);
}

void TestPublishLauncher::aVersionHasOneContentForEver()
{
    SampleUpdate update = goodUpdate();
    const QByteArray first = update.archive(m_keys);
    QCOMPARE(publish(first).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 0);
    QCOMPARE(record().value(u"version"_s), QString());

    update.files["LISEZMOI.txt"] = "Une erreur de moins.";
    const Publisher::Result result = publish(update.archive(m_keys));
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"la version 98.0.1 a déjà été en ligne"_s),
             qPrintable(result.errors));
    update.version = "98.0.0";
    const Publisher::Result older = publish(update.archive(m_keys));
    QCOMPARE(older.code, 2);
    QVERIFY2(older.errors.contains(u"n'est pas plus récente que la version 98.0.1"_s),
             qPrintable(older.errors));

    QCOMPARE(publish(first).code, 0);
    QCOMPARE(record().value(u"version"_s), u"98.0.1"_s);
    update.version = "98.0.2";
    QCOMPARE(publish(update.archive(m_keys)).code, 0);
}

void TestPublishLauncher::aDraftThatNobodySawMayBeReplaced()
{
    QCOMPARE(m_publisher->run({u"nouvelles"_s, u"ajouter"_s, u"Titre"_s, u"Texte"_s}).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    SampleUpdate update = goodUpdate();
    QCOMPARE(publish(update.archive(m_keys)).code, 0);
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 0);
    update.files["LISEZMOI.txt"] = "Une erreur de moins.";
    const QByteArray second = update.archive(m_keys);
    QCOMPARE(publish(second).code, 0);
    QCOMPARE(Files::read(
                 m_publisher->path(u"brouillon/launcher/VeyraLauncher-98.0.1-windows-x64.zip"_s)),
             second);
}

void TestPublishLauncher::refuses_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *name, const QString &reason, const Change &change) {
        QTest::newRow(name) << change << reason;
    };
    row("half an archive", u"archive incohérente"_s, [](SampleUpdate &update) {
        update.changeBytes = [](QByteArray &bytes) { bytes.truncate(bytes.size() / 2); };
    });
    row("a list that was changed after it was signed", u"Launcher refusé"_s,
        [](SampleUpdate &update) {
            update.changeSignedList = [](QByteArray &list) { list.replace("98.0.1", "98.0.2"); };
        });
    row("a version that players have", u"n'est pas plus récente"_s,
        [](SampleUpdate &update) { update.version = "0.9"; });
    row("another system", u"un autre système"_s,
        [](SampleUpdate &update) { update.target = "linux-x64"; });
    row("a program for another server", u"n'est pas construit pour http://veyra.test/"_s,
        [](SampleUpdate &update) {
            update.files["VeyraLauncher.exe"] = program(u"http://autre.test/"_s);
        });
    row("a program that knows a longer address", u"n'est pas construit pour http://veyra.test/"_s,
        [](SampleUpdate &update) {
            update.files["VeyraLauncher.exe"] = program(u"http://veyra.test/discord"_s);
        });
    row("an address in another file", u"n'est pas construit pour http://veyra.test/"_s,
        [](SampleUpdate &update) {
            update.files["autre.dll"] = update.files["VeyraLauncher.exe"];
            update.files["VeyraLauncher.exe"] = "program";
        });
    row("no program", u"ne contient pas VeyraLauncher.exe"_s,
        [](SampleUpdate &update) { update.files.remove("VeyraLauncher.exe"); });
    row("a damaged file", u"contenu différent"_s, [](SampleUpdate &update) {
        update.changeList = [](QByteArray &list) {
            const QByteArray sum = Files::sha256("a plugin").toLatin1();
            list.replace(sum, Files::sha256("another").toLatin1());
        };
    });
}

void TestPublishLauncher::refuses()
{
    QFETCH(const Change, change);
    QFETCH(const QString, reason);
    SampleUpdate update = goodUpdate();
    change(update);
    const Publisher::Result result = publish(update.archive(m_keys));
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(reason), qPrintable(result.errors));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/0002"_s)));
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/.en-cours"_s)));
}

/// A site is for one system: its launchers read one announcement.
void TestPublishLauncher::launchersForLinux()
{
    m_publisher = std::make_unique<Publisher>();
    Files::write(m_publisher->beside(u"cle.pub"_s), m_keys.publicKeyFile());
    Files::write(m_publisher->beside(u"notes.txt"_s), "• Corrections\n");
    QCOMPARE(m_publisher
                 ->run({u"init"_s, QString::fromUtf16(kBaseUrl), u"--cle"_s,
                        m_publisher->beside(u"cle.pub"_s), u"--cible"_s, u"linux-x64"_s})
                 .code,
             0);
    const Publisher::Result windows = publish(goodUpdate().archive(m_keys));
    QCOMPARE(windows.code, 2);
    QVERIFY2(windows.errors.contains(u"un autre système"_s), qPrintable(windows.errors));

    SampleUpdate update = goodUpdate();
    update.target = "linux-x64";
    const Publisher::Result misnamed = publish(update.archive(m_keys));
    QCOMPARE(misnamed.code, 2);
    QVERIFY2(misnamed.errors.contains(u"ne contient pas VeyraLauncher "_s),
             qPrintable(misnamed.errors));
    update.files["VeyraLauncher"] = update.files.take("VeyraLauncher.exe");
    const QByteArray archive = update.archive(m_keys);
    const Publisher::Result result = publish(archive);
    QVERIFY2(result.code == 0, qPrintable(result.errors));
    const QString name = u"launcher/VeyraLauncher-98.0.1-linux-x64.zip"_s;
    QCOMPARE(record().value(u"download_url"_s).toString(), QString::fromUtf16(kBaseUrl) + name);
    QCOMPARE(Files::read(m_publisher->path(u"brouillon/"_s + name)), archive);
    // Which reads the archive under its name.
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QVERIFY(Files::read(m_publisher->path(u"lanceurs.json"_s))
                .contains(Files::sha256(archive).toLatin1()));
}

void TestPublishLauncher::theArchiveOnlineIsKnownWhateverTheSystemIsNow()
{
    const QByteArray archive = goodUpdate().archive(m_keys);
    QCOMPARE(publish(archive).code, 0);
    const QString settings = m_publisher->path(u"publication.json"_s);
    Files::write(settings, Files::read(settings).replace("windows-x64", "linux-x64"));
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QVERIFY(Files::read(m_publisher->path(u"lanceurs.json"_s))
                .contains(Files::sha256(archive).toLatin1()));

    // Where that was not so, its sum is not known: it is learnt now.
    Files::write(settings, Files::read(settings).replace("linux-x64", "windows-x64"));
    Files::write(m_publisher->path(u"lanceurs.json"_s), R"({"98.0.1": ""})");
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 0);
    const Publisher::Result result = publish(archive);
    QVERIFY2(result.code == 0, qPrintable(result.errors));
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QVERIFY(Files::read(m_publisher->path(u"lanceurs.json"_s))
                .contains(Files::sha256(archive).toLatin1()));
}

void TestPublishLauncher::anArchiveThatIsGoneDoesNotGoOnline()
{
    QCOMPARE(publish(goodUpdate().archive(m_keys)).code, 0);
    const QString name = u"launcher/VeyraLauncher-98.0.1-windows-x64.zip"_s;
    QVERIFY(QFile::remove(m_publisher->path(u"brouillon/"_s + name)));
    const Publisher::Result result = m_publisher->run({u"mettre-en-ligne"_s});
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(name), qPrintable(result.errors));
    QVERIFY(!QFile::exists(m_publisher->path(u"lanceurs.json"_s)));
    QVERIFY(QFile::symLinkTarget(m_publisher->path(u"site"_s)).endsWith(u"/0001"_s));
}

void TestPublishLauncher::systemsThatThereAreNone()
{
    const Publisher other;
    const Publisher::Result result =
        other.run({u"init"_s, QString::fromUtf16(kBaseUrl), u"--cible"_s, u"beos-x64"_s});
    QCOMPARE(result.code, 1);
    QVERIFY2(result.errors.contains(u"windows-x64 ou linux-x64"_s), qPrintable(result.errors));

    const QString settings = m_publisher->path(u"publication.json"_s);
    const QByteArray content = Files::read(settings);
    QVERIFY(content.contains("windows-x64"));
    Files::write(settings, QByteArray(content).replace("windows-x64", "beos-x64"));
    const Publisher::Result wrong = publish(goodUpdate().archive(m_keys));
    QCOMPARE(wrong.code, 2);
    QVERIFY2(wrong.errors.contains(u"« cible » doit être"_s), qPrintable(wrong.errors));
    // As before there was a choice.
    Files::write(settings, QByteArray(content).replace("\"cible\"", "\"autre\""));
    QCOMPARE(publish(goodUpdate().archive(m_keys)).code, 0);
}

void TestPublishLauncher::refusesWithoutAKey()
{
    m_publisher = std::make_unique<Publisher>();
    QCOMPARE(m_publisher->run({u"init"_s, QString::fromUtf16(kBaseUrl)}).code, 0);
    Files::write(m_publisher->beside(u"notes.txt"_s), QByteArray());
    const Publisher::Result result = publish(goodUpdate().archive(m_keys));
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"aucune clé publique"_s), qPrintable(result.errors));
}

void TestPublishLauncher::refusesOtherKeys()
{
    const Publisher::Result result = publish(goodUpdate().archive(KeyPair()));
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"clé inconnue"_s), qPrintable(result.errors));

    const Publisher other;
    Files::write(other.beside(u"cle.pub"_s), "untrusted comment: none\nnone\n");
    QCOMPARE(
        other.run({u"init"_s, QString::fromUtf16(kBaseUrl), u"--cle"_s, other.beside(u"cle.pub"_s)})
            .code,
        2);
    QCOMPARE(other.run({u"init"_s, QString::fromUtf16(kBaseUrl), u"--cle"_s, u"absente"_s}).code,
             2);
}

void TestPublishLauncher::versionsThatAreNone_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::newRow("a needless zero") << QByteArray("01.0");
    QTest::newRow("five numbers") << QByteArray("1.0.0.0.0");
}

/// Nobody may leave them out unsaid: the launcher would not be compared with them.
void TestPublishLauncher::versionsThatAreNone()
{
    QFETCH(const QByteArray, version);
    Files::write(m_publisher->path(u"publication.json"_s),
                 R"({"url": "http://veyra.test/", "versions": ["1.0", ")" + version +
                     R"("], "cles": [")" + m_keys.publicKeyFile().split('\n').at(1) + R"("]})");
    const Publisher::Result result = publish(goodUpdate().archive(m_keys));
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"« versions » doit nommer"_s), qPrintable(result.errors));
}

void TestPublishLauncher::wantsNotes()
{
    const QString archive = m_publisher->beside(u"launcher.zip"_s);
    QCOMPARE(m_publisher->run({u"lanceur"_s, archive}).code, 1);
    QCOMPARE(m_publisher->run({u"lanceur"_s, archive, u"--notes"_s, u"absentes"_s}).code, 2);
    QCOMPARE(
        m_publisher
            ->run({u"lanceur"_s, u"absente"_s, u"--notes"_s, m_publisher->beside(u"notes.txt"_s)})
            .code,
        2);
    Files::write(m_publisher->beside(u"notes.txt"_s), " \n");
    const Publisher::Result empty = publish(goodUpdate().archive(m_keys));
    QCOMPARE(empty.code, 2);
    QVERIFY2(empty.errors.contains(u"les notes sont vides"_s), qPrintable(empty.errors));
    Files::write(m_publisher->beside(u"notes.txt"_s), QByteArray(20'001, 'x'));
    const Publisher::Result result = publish(goodUpdate().archive(m_keys));
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"les notes dépassent"_s), qPrintable(result.errors));
    // Players would see question marks.
    Files::write(m_publisher->beside(u"notes.txt"_s), "Corrig\xe9");
    const Publisher::Result latin1 = publish(goodUpdate().archive(m_keys));
    QCOMPARE(latin1.code, 2);
    QVERIFY2(latin1.errors.contains(u"UTF-8"_s), qPrintable(latin1.errors));
}

VEYRA_CORE_TEST_MAIN(TestPublishLauncher)
#include "TestPublishLauncher.moc"
