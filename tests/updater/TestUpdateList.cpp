#include "updater/UpdateList.h"

#include "updater/Failure.h"
#include "updater/FileName.h"
#include "updater/Version.h"

#include "tests/support/TestEnvironment.h"

#include <QTest>

#include <string_view>

using namespace Qt::Literals::StringLiterals;

namespace {

const QByteArray kHash(64, 'a');
const QByteArray kHead = "veyra-lanceur 1\n1.0.1\nwindows-x64\n";

QByteArray line(const QByteArray &name, const QByteArray &size = "5")
{
    return kHash + ' ' + size + ' ' + name + '\n';
}

/// Empty for an accepted list, else why it is refused.
QString verdict(const QByteArray &text)
{
    try {
        UpdateList::parse(text.toStdString());
    } catch (const Failure &failure) {
        return failure.code == ExitCode::Refused ? QString::fromStdString(failure.text)
                                                 : u"another exit code"_s;
    }
    return {};
}

} // namespace

class TestUpdateList : public QObject
{
    Q_OBJECT

private slots:
    void readsWhatItWrites();
    void tellsItsSize();
    void lists_data();
    void lists();
    void names_data();
    void names();
    void foldsLettersAlone();
    void cutsOffTheFolder();
    void quotesWithoutControlCharacters();
    void versions_data();
    void versions();
};

void TestUpdateList::readsWhatItWrites()
{
    UpdateList list;
    list.version = "1.2.3";
    list.target = "windows-x64";
    // '.' and '/' stand before the letters: a folder's files are not always beside each other.
    list.files = {{std::string(64, 'b'), 7, "b/c.dll"},
                  {std::string(64, 'a'), 0, "b.dll"},
                  {std::string(64, '0'), 1073741816, "Z.exe"}};

    const std::string text = list.text();
    QCOMPARE(text, "veyra-lanceur 1\n1.2.3\nwindows-x64\n" + std::string(64, '0') +
                       " 1073741816 Z.exe\n" + std::string(64, 'a') + " 0 b.dll\n" +
                       std::string(64, 'b') + " 7 b/c.dll\n");

    const UpdateList read = UpdateList::parse(text);
    QCOMPARE(read.version, list.version);
    QCOMPARE(read.target, list.target);
    QCOMPARE(read.files.size(), size_t(3));
    QCOMPARE(read.files.at(2).name, std::string("b/c.dll"));
    QCOMPARE(read.files.at(2).bytes, std::uint64_t(7));
    QCOMPARE(read.files.at(2).sha256, std::string(64, 'b'));
    QCOMPARE(read.text(), text);
}

void TestUpdateList::tellsItsSize()
{
    const UpdateList list =
        UpdateList::parse((kHead + line("A.dll", "5") + line("b.dll", "12")).toStdString());
    QCOMPARE(list.totalBytes(), std::uint64_t(17));
    QVERIFY(list.find("a.DLL"));
    QCOMPARE(list.find("a.DLL")->name, std::string("A.dll"));
    QVERIFY(!list.find("c.dll"));
}

void TestUpdateList::lists_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char *name, const QByteArray &text, const QString &expected) {
        QTest::newRow(name) << text << expected;
    };
    const QString incomplete = u"liste.txt, ligne %1 : ligne absente ou incomplète"_s;

    row("one file", kHead + line("a.dll"), {});
    row("a name with blanks inside", kHead + line("lisez moi.txt"), {});
    row("nothing at all", "", incomplete.arg(1));
    row("no line end", "veyra-lanceur 1", incomplete.arg(1));
    row("another format", "veyra-lanceur 2\n1.0.1\nwindows-x64\n" + line("a"),
        u"liste.txt, ligne 1 : « veyra-lanceur 1 » attendu"_s);
    row("line ends of Windows", "veyra-lanceur 1\r\n1.0.1\r\nwindows-x64\r\n" + line("a"),
        u"liste.txt, ligne 1 : « veyra-lanceur 1 » attendu"_s);
    row("a mark of the byte order", "\xef\xbb\xbf" + kHead + line("a"),
        u"liste.txt, ligne 1 : « veyra-lanceur 1 » attendu"_s);
    row("only the format", "veyra-lanceur 1\n", incomplete.arg(2));
    row("a version that is none", "veyra-lanceur 1\n1.0.x\nwindows-x64\n" + line("a"),
        u"liste.txt, ligne 2 : numéro de version invalide"_s);
    row("no version", "veyra-lanceur 1\n\nwindows-x64\n" + line("a"),
        u"liste.txt, ligne 2 : numéro de version invalide"_s);
    row("no target", "veyra-lanceur 1\n1.0.1\n", incomplete.arg(3));
    row("an empty target", "veyra-lanceur 1\n1.0.1\n\n" + line("a"),
        u"liste.txt, ligne 3 : système invalide"_s);
    row("a target with a blank", "veyra-lanceur 1\n1.0.1\nwindows x64\n" + line("a"),
        u"liste.txt, ligne 3 : système invalide"_s);
    row("a target that is a novel",
        "veyra-lanceur 1\n1.0.1\n" + QByteArray(33, 'w') + "\n" + line("a"),
        u"liste.txt, ligne 3 : système invalide"_s);
    row("no files", kHead, u"liste.txt ne nomme aucun fichier"_s);
    row("an empty line", kHead + "\n" + line("a"),
        u"liste.txt, ligne 4 : somme SHA-256 invalide"_s);
    row("an empty line at the end", kHead + line("a") + "\n",
        u"liste.txt, ligne 5 : somme SHA-256 invalide"_s);
    row("a sum in upper case", kHead + line("a").replace(kHash, kHash.toUpper()),
        u"liste.txt, ligne 4 : somme SHA-256 invalide"_s);
    row("a sum that is too short", kHead + line("a").mid(1),
        u"liste.txt, ligne 4 : somme SHA-256 invalide"_s);
    row("a sum that is too long", kHead + "a" + line("a"),
        u"liste.txt, ligne 4 : somme SHA-256 invalide"_s);
    row("a sum of other letters", kHead + line("a").replace(0, 1, "g"),
        u"liste.txt, ligne 4 : somme SHA-256 invalide"_s);
    for (const char *size :
         {"", "-1", "+1", "01", "00", "1.0", "0x10", "5a", "99999999999999999999"}) {
        row(qPrintable(u"a size of \"%1\""_s.arg(QLatin1String(size))), kHead + line("a", size),
            u"liste.txt, ligne 4 : taille invalide"_s);
    }
    row("a file of 1 GB", kHead + line("a", "1073741824"), {});
    row("a file of more", kHead + line("a", "1073741825"),
        u"liste.txt, ligne 4 : plus de 1 Go au total"_s);
    row("files of more than 1 GB together", kHead + line("a", "1073741824") + line("b", "1"),
        u"liste.txt, ligne 5 : plus de 1 Go au total"_s);
    row("no name", kHead + kHash + " 5\n",
        u"liste.txt, ligne 4 : nom de fichier refusé, «  » : nom vide"_s);
    row("two blanks before the name", kHead + kHash + " 5  a\n",
        u"liste.txt, ligne 4 : nom de fichier refusé, «  a » : espace initial"_s);
    row("a name above the folder", kHead + line("../a.dll"),
        u"liste.txt, ligne 4 : nom de fichier refusé, « ../a.dll » : chemin relatif"_s);
    row("a carriage return at the end", kHead + line("a\r"),
        u"liste.txt, ligne 4 : nom de fichier refusé, « a? » : caractère de contrôle"_s);
    row("a last line that is cut off", kHead + line("a") + line("b").chopped(1), incomplete.arg(5));
    row("names out of order", kHead + line("b") + line("a"),
        u"liste.txt, ligne 5 : noms en double ou non triés"_s);
    row("a name twice", kHead + line("a") + line("a"),
        u"liste.txt, ligne 5 : noms en double ou non triés"_s);
    row("a name twice by case", kHead + line("A.dll") + line("a.DLL"),
        u"liste.txt : nom en double, à la casse près : « a.DLL »"_s);
    row("a folder that is a file as well", kHead + line("a") + line("a/b/c"),
        u"liste.txt : à la fois fichier et dossier : « a »"_s);
    row("a folder that is a file by case", kHead + line("A/B/c") + line("a/b"),
        u"liste.txt : à la fois fichier et dossier : « a/b »"_s);

    const auto many = [](int count) {
        QByteArray text = kHead;
        for (int i = 0; i < count; ++i)
            text += line(QByteArray::number(10000 + i), "1");
        return text;
    };
    row("2,000 files", many(2000), {});
    row("2,001 files", many(2001), u"liste.txt, ligne 2004 : plus de 2000 fichiers"_s);
    row("more than 1 MB of text", kHead + QByteArray(1024ll * 1024, 'a'),
        u"liste.txt est trop longue"_s);
}

void TestUpdateList::lists()
{
    QFETCH(const QByteArray, text);
    QFETCH(const QString, expected);
    QCOMPARE(verdict(text), expected);
}

void TestUpdateList::names_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("expected");

    const auto row = [](const QByteArray &name, const QByteArray &expected) {
        QTest::newRow(name.toPercentEncoding(" /\\:").left(60).constData()) << name << expected;
    };
    const QByteArray relative = "chemin relatif";
    const QByteArray absolute = "chemin absolu";
    const QByteArray forbidden = "caractère interdit";
    const QByteArray control = "caractère de contrôle";
    const QByteArray foreign = "caractère hors ASCII";
    const QByteArray device = "nom réservé par Windows";
    const QByteArray ending = "point ou espace final";
    const QByteArray own = "nom réservé au launcher";

    row("VeyraLauncher.exe", {});
    row("platforms/qwindows.dll", {});
    row("a b/c (1) [2] {3} #%&=+,;!'@^_$`.txt", {});
    row(".hidden", {});
    row("a..b", {});
    row("...a", {});
    row("console.txt", {});
    row("nulle", {});
    row("com10", {});
    row("com", {});
    row("clients/a", {});
    row("a/Client/b", {});
    row("a/liste.txt", {});
    row(QByteArray(200, 'a'), {});

    row("", "nom vide");
    row(QByteArray(201, 'a'), "nom trop long");
    row(".", relative);
    row("..", relative);
    row("../a", relative);
    row("a/../b", relative);
    row("a/..", relative);
    row("./a", relative);
    row("a/./b", relative);
    row("/a", absolute);
    row("//server/share/a", absolute);
    row("C:/a", forbidden);
    row("C:a", forbidden);
    row("a:stream", forbidden);
    row("\\\\server\\share\\a", forbidden);
    row("\\\\?\\C:\\a", forbidden);
    row("..\\a", forbidden);
    row("a\\b", forbidden);
    for (const char c : QByteArray("<>\"|?*~"))
        row(QByteArray("a") + c, forbidden);
    row("VEYRAL~1.EXE", forbidden);
    row("a//b", "élément vide dans le chemin");
    row("a/", "élément vide dans le chemin");
    row(QByteArray("a\0b", 3), control);
    row("a\nb", control);
    row("a\tb", control);
    row("a\x1f", control);
    row("a\x7f", control);
    row("caf\xc3\xa9", foreign);
    row("cafe\xcc\x81", foreign);
    row("\xff", foreign);
    row("a.", ending);
    row("a ", ending);
    row("a./b", ending);
    row("a /b", ending);
    row("...", ending);
    row(" a", "espace initial");
    for (const char *name :
         {"con", "PRN", "aux", "NUL", "nul.txt", "Nul.tar.gz", "nul .txt", "a/con", "con/a", "com0",
          "COM1", "com9.dll", "lpt1", "LPT9", "conin$", "CONOUT$", "clock$"})
        row(name, device);
    for (const char *name :
         {"client", "Client/Dofus.exe", "CLIENT/a", ".veyra-maj", ".Veyra-Maj/journal.txt",
          "liste.txt", "Liste.TXT", "liste.txt.minisig"})
        row(name, own);
}

void TestUpdateList::names()
{
    QFETCH(const QByteArray, name);
    QFETCH(const QByteArray, expected);
    const std::string_view problem = FileName::problem(name.toStdString());
    QCOMPARE(QByteArray(problem.data(), qsizetype(problem.size())), expected);
}

void TestUpdateList::foldsLettersAlone()
{
    QCOMPARE(FileName::folded("AZaz@[`{09-É"), std::string("azaz@[`{09-É"));
}

void TestUpdateList::cutsOffTheFolder()
{
    QCOMPARE(FileName::folderOf("a/b/c"), std::string_view("a/b"));
    QCOMPARE(FileName::folderOf("c"), std::string_view());
}

void TestUpdateList::quotesWithoutControlCharacters()
{
    QCOMPARE(FileName::quoted("a\nb"), std::string("« a?b »"));
    QCOMPARE(FileName::quoted(std::string(121, 'a')), "« " + std::string(120, 'a') + "… »");
}

void TestUpdateList::versions_data()
{
    QTest::addColumn<QByteArray>("candidate");
    QTest::addColumn<QByteArray>("current");
    QTest::addColumn<bool>("isNewer");

    const auto row = [](const char *candidate, const char *current, bool isNewer) {
        QTest::newRow(qPrintable(
            u"\"%1\" after \"%2\""_s.arg(QLatin1String(candidate), QLatin1String(current))))
            << QByteArray(candidate) << QByteArray(current) << isNewer;
    };
    row("1.0.1", "1.0.0", true);
    row("1.0.10", "1.0.9", true);
    row("2", "1.99.99.99", true);
    row("1.0.0.1", "1.0.0", true);
    row("1.0.999999999", "1.0.999999998", true);
    row("1.0.0", "1.0.0", false);
    row("1.0", "1.0.0", false);
    row("1.0.0.0", "1.0", false);
    row("1.0.0", "1.0.1", false);
    row("0.9.9", "1.0.0", false);
    // Texts that are no versions are never newer.
    for (const char *bad : {"", ".", "1.", ".1", "2..0", "v2.0", "2.a", "-2", "+2", " 2", "2 ",
                            "02", "2.00", "1.2.3.4.5", "2000000000", "99999999999999999999"})
        row(bad, "1.0.0", false);
}

void TestUpdateList::versions()
{
    QFETCH(const QByteArray, candidate);
    QFETCH(const QByteArray, current);
    QFETCH(const bool, isNewer);
    QCOMPARE(Version::isNewer(candidate.toStdString(), current.toStdString()), isNewer);
}

VEYRA_CORE_TEST_MAIN(TestUpdateList)
#include "TestUpdateList.moc"
