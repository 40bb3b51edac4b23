#include "install/ArchiveUnpacker.h"

#include "tests/support/Archives.h"
#include "tests/support/Files.h"
#include "tests/support/Platform.h"
#include "tests/support/SearchPath.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QProcess>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

class TestArchiveUnpacker : public QObject
{
    Q_OBJECT

private slots:
    void choosesFromWhatThereIs_data();
    void choosesFromWhatThereIs();
    void powerShellCommandHoldsThePathsAsTheyStand_data();
    void powerShellCommandHoldsThePathsAsTheyStand();
    void unpacks_data();
    void unpacks();
    void overwritesWhatIsThere_data();
    void overwritesWhatIsThere();
    void saysWhatIsWrong_data();
    void saysWhatIsWrong();
    void staysInTheFolder_data();
    void staysInTheFolder();
    void judgesTheEnd_data();
    void judgesTheEnd();
};

void TestArchiveUnpacker::choosesFromWhatThereIs_data()
{
    QTest::addColumn<QStringList>("available");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");

    const QStringList powershell{
        u"-NoProfile"_s, u"-Command"_s,
        u"Expand-Archive -Path '/jeu/a.zip' -DestinationPath '/jeu' -Force"_s};
    const QStringList unzip{u"-q"_s, u"-o"_s, u"/jeu/a.zip"_s, u"-d"_s, u"/jeu"_s};
    const QStringList bsdtar{u"-x"_s, u"-f"_s, u"/jeu/a.zip"_s, u"-C"_s, u"/jeu"_s};

    QTest::newRow("powershell is first choice")
        << QStringList{u"powershell"_s, u"unzip"_s, u"bsdtar"_s} << u"powershell"_s << powershell;
    QTest::newRow("powershell alone")
        << QStringList{u"powershell"_s} << u"powershell"_s << powershell;
    QTest::newRow("unzip is second choice")
        << QStringList{u"unzip"_s, u"bsdtar"_s} << u"unzip"_s << unzip;
    QTest::newRow("unzip alone") << QStringList{u"unzip"_s} << u"unzip"_s << unzip;
    QTest::newRow("bsdtar alone") << QStringList{u"bsdtar"_s} << u"bsdtar"_s << bsdtar;
    QTest::newRow("nothing at all") << QStringList{} << u"unzip"_s << unzip;
}

void TestArchiveUnpacker::choosesFromWhatThereIs()
{
    QFETCH(const QStringList, available);
    if (Platform::kIsWindows && !available.contains(u"powershell"_s)) {
        QSKIP("Windows has a PowerShell at all times");
    }
    SearchPath programs;
    for (const QString &name : available)
        programs.addStandIn(name, {});
    const UnpackCommand command = unpackCommand(u"/jeu/a.zip"_s, u"/jeu"_s);
    QTEST(command.program, "program");
    QTEST(command.arguments, "arguments");
}

void TestArchiveUnpacker::powerShellCommandHoldsThePathsAsTheyStand_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("command");
    QTest::newRow("blanks and accents")
        << u"C:/Jeux vidéo"_s
        << u"Expand-Archive -Path 'C:/Jeux vidéo/a.zip' -DestinationPath 'C:/Jeux vidéo' -Force"_s;
    QTest::newRow("a single quote is not escaped")
        << u"C:/L'été"_s
        << u"Expand-Archive -Path 'C:/L'été/a.zip' -DestinationPath 'C:/L'été' -Force"_s;
    QTest::newRow("a lone percent sign")
        << u"C:/100 %"_s
        << u"Expand-Archive -Path 'C:/100 %/a.zip' -DestinationPath 'C:/100 %' -Force"_s;
    // The first path is filled in before the second.
    QTest::newRow("a %2 in the folder takes the destination")
        << u"C:/%2"_s << u"Expand-Archive -Path 'C:/C:/%2/a.zip' -DestinationPath 'C:/%2' -Force"_s;
}

void TestArchiveUnpacker::powerShellCommandHoldsThePathsAsTheyStand()
{
    QFETCH(const QString, folder);
    SearchPath programs;
    programs.addStandIn(u"powershell"_s, {});
    const UnpackCommand command = unpackCommand(folder + u"/a.zip"_s, folder);
    QCOMPARE(command.arguments.size(), 3);
    QTEST(command.arguments.last(), "command");
}

namespace {

struct Outcome
{
    int exitCode = -1;
    QByteArray standardError;
};

Outcome run(const UnpackCommand &command)
{
    QProcess process;
    process.setProcessEnvironment(command.environment);
    process.start(command.program, command.arguments);
    process.closeWriteChannel(); // nobody answers questions
    if (!process.waitForFinished() || process.exitStatus() != QProcess::NormalExit)
        return {};
    return {process.exitCode(), process.readAllStandardError()};
}

/// Sets a locale for the time of a test, as a person's session would.
class Locale
{
public:
    explicit Locale(const QByteArray &name)
    {
        qputenv("LANG", name);
        qputenv("LC_ALL", name);
    }
    ~Locale()
    {
        qputenv("LANG", m_oldLang);
        if (m_hadAll)
            qputenv("LC_ALL", m_oldAll);
        else
            qunsetenv("LC_ALL");
    }
    Q_DISABLE_COPY_MOVE(Locale)

private:
    QByteArray m_oldLang = qgetenv("LANG");
    QByteArray m_oldAll = qgetenv("LC_ALL");
    bool m_hadAll = qEnvironmentVariableIsSet("LC_ALL");
};

/// Rows for every unpacker that a machine without PowerShell may have.
void addUnpackers()
{
    if (Platform::kIsWindows) {
        QSKIP("Windows unpacks with PowerShell");
    }
    QTest::addColumn<QString>("program");
    QTest::addColumn<QByteArray>("locale");
    for (const char *program : {"unzip", "bsdtar"}) {
        for (const char *locale : {"C", "C.UTF-8", "POSIX", "xx_YY.ISO-8859-1"}) {
            QTest::addRow("%s in the locale %s", program, locale)
                << QString::fromLatin1(program) << QByteArray(locale);
        }
    }
}

constexpr auto kAccents = "données/été à Astrub/fichier n° 1 — œuvre.txt";

} // namespace

void TestArchiveUnpacker::unpacks_data()
{
    addUnpackers();
}

void TestArchiveUnpacker::unpacks()
{
    QFETCH(const QString, program);
    QFETCH(const QByteArray, locale);

    const QTemporaryDir folder;
    const QString source = folder.filePath(u"source"_s);
    // A game folder as people name theirs; brackets are a pattern for some programs.
    const QString target = folder.filePath(u"L'été [jeux] %1 & co"_s);
    Files::write(source + u"/DofusInvoker.swf"_s, "swf");
    Files::write(source + u'/' + QString::fromUtf8(kAccents), Files::noise(100000));
    Files::write(source + u"/vide/rien.txt"_s, "");
    Files::write(target + u"/a.zip"_s, Files::zipped(source));

    SearchPath programs;
    programs.addReal(program);
    const Locale session(locale);
    const UnpackCommand command = unpackCommand(target + u"/a.zip"_s, target);
    QCOMPARE(command.program, program);
    const Outcome outcome = run(command);
    QCOMPARE(outcome.standardError, ""_ba);
    QCOMPARE(outcome.exitCode, 0);

    QVERIFY(QFile::remove(target + u"/a.zip"_s));
    QCOMPARE(Files::tree(target), Files::tree(source));
    QCOMPARE(Files::read(target + u'/' + QString::fromUtf8(kAccents)), Files::noise(100000));
}

void TestArchiveUnpacker::overwritesWhatIsThere_data()
{
    addUnpackers();
}

void TestArchiveUnpacker::overwritesWhatIsThere()
{
    QFETCH(const QString, program);
    QFETCH(const QByteArray, locale);

    const QTemporaryDir folder;
    const QString source = folder.filePath(u"source"_s);
    const QString target = folder.filePath(u"target"_s);
    Files::write(source + u"/été/jeu.txt"_s, "new");
    Files::write(target + u"/été/jeu.txt"_s, "old and longer");
    Files::write(target + u"/été/à moi.txt"_s, "mine");
    Files::write(target + u"/a.zip"_s, Files::zipped(source));

    SearchPath programs;
    programs.addReal(program);
    const Locale session(locale);
    QCOMPARE(run(unpackCommand(target + u"/a.zip"_s, target)).exitCode, 0);
    QCOMPARE(Files::read(target + u"/été/jeu.txt"_s), "new"_ba);
    QCOMPARE(Files::read(target + u"/été/à moi.txt"_s), "mine"_ba);
}

void TestArchiveUnpacker::saysWhatIsWrong_data()
{
    addUnpackers();
}

void TestArchiveUnpacker::saysWhatIsWrong()
{
    QFETCH(const QString, program);
    QFETCH(const QByteArray, locale);

    const QTemporaryDir folder;
    Files::write(folder.filePath(u"a.zip"_s), "no archive");
    SearchPath programs;
    programs.addReal(program);
    const Locale session(locale);
    const Outcome outcome = run(unpackCommand(folder.filePath(u"a.zip"_s), folder.path()));
    QVERIFY(outcome.exitCode > 0);
    QVERIFY(!outcome.standardError.isEmpty());
}

void TestArchiveUnpacker::staysInTheFolder_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QList<Archives::Entry>>("entries"); // %1: the folder with everything in it
    QTest::addColumn<QStringList>("unpacked");
    QTest::addColumn<QByteArray>("words"); // on the standard error; empty: nothing is said
    QTest::addColumn<int>("exitCode");
    struct Answer
    {
        QStringList unpacked;
        const char *words;
        int exitCode;
    };
    const auto row = [](const char *name, const QList<Archives::Entry> &entries,
                        const Answer &unzip, const Answer &bsdtar) {
        QTest::addRow("%s, unzip", name)
            << u"unzip"_s << entries << unzip.unpacked << QByteArray(unzip.words) << unzip.exitCode;
        QTest::addRow("%s, bsdtar", name) << u"bsdtar"_s << entries << bsdtar.unpacked
                                          << QByteArray(bsdtar.words) << bsdtar.exitCode;
    };
    row("a name that goes up", {{"../outside/f", "x"}, {"g", "x"}},
        {{u"g"_s, u"outside/"_s, u"outside/f"_s}, "", 0}, {{u"g"_s}, "contains '..'", 1});
    row("a name that goes down and up", {{"d/../../outside/f", "x"}, {"g", "x"}},
        {{u"d/"_s, u"d/outside/"_s, u"d/outside/f"_s, u"g"_s}, "", 0},
        {{u"g"_s}, "contains '..'", 1});
    row("a name from the root", {{"/outside/f", "x"}, {"g", "x"}},
        {{u"g"_s, u"outside/"_s, u"outside/f"_s}, "stripped absolute path", 1},
        {{u"g"_s, u"outside/"_s, u"outside/f"_s}, "Removing leading '/'", 0});
    row("a file by way of a link", {{"l", "%1/outside", true}, {"l/f", "x"}, {"g", "x"}},
        {{u"g"_s, u"l/"_s}, "not directory", 2}, {{u"g"_s, u"l/"_s}, "through symlink", 1});
    row("a file by way of a link that goes up", {{"l", "../outside", true}, {"l/f", "x"}},
        {{u"l/"_s}, "not directory", 2}, {{u"l/"_s}, "through symlink", 1});
    row("a file in the place of a link", {{"l", "%1/outside/mine", true}, {"l", "x"}},
        {{u"l"_s}, "symlink", 0}, {{u"l"_s}, "", 0});
}

/// Neither of them writes outside the folder, whatever the archive says; some of it they unpack
/// inside, the rest they refuse.
void TestArchiveUnpacker::staysInTheFolder()
{
    QFETCH(const QString, program);
    QFETCH(QList<Archives::Entry>, entries);
    QFETCH(const QStringList, unpacked);
    QFETCH(const QByteArray, words);
    QFETCH(const int, exitCode);
    if (Platform::kIsWindows) {
        QSKIP("Windows unpacks with PowerShell");
    }

    const QTemporaryDir folder;
    for (Archives::Entry &entry : entries)
        entry.content.replace("%1", folder.path().toUtf8());
    Files::write(folder.filePath(u"outside/mine"_s), "mine");
    Files::write(folder.filePath(u"a.zip"_s), Archives::zip(entries));
    const QString target = folder.filePath(u"target"_s);
    QVERIFY(QDir().mkpath(target));

    SearchPath programs;
    programs.addReal(program);
    const Outcome outcome = run(unpackCommand(folder.filePath(u"a.zip"_s), target));
    if (words.isEmpty())
        QCOMPARE(outcome.standardError, QByteArray());
    else
        QVERIFY2(outcome.standardError.contains(words), outcome.standardError.constData());
    QCOMPARE(outcome.exitCode, exitCode);
    QCOMPARE(Files::tree(target), unpacked);
    QCOMPARE(Files::tree(folder.filePath(u"outside"_s)), QStringList{u"mine"_s});
    QCOMPARE(Files::read(folder.filePath(u"outside/mine"_s)), "mine"_ba);
}

void TestArchiveUnpacker::judgesTheEnd_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QProcess::ExitStatus>("exitStatus");
    QTest::addColumn<bool>("unpacked");
    for (const char *program : {"powershell", "unzip", "bsdtar", ""}) {
        const auto name = QString::fromLatin1(program);
        const bool mayWarn = name == u"unzip"_s;
        QTest::addRow("0 of \"%s\"", program) << name << 0 << QProcess::NormalExit << true;
        QTest::addRow("1 of \"%s\"", program) << name << 1 << QProcess::NormalExit << mayWarn;
        QTest::addRow("2 of \"%s\"", program) << name << 2 << QProcess::NormalExit << false;
        QTest::addRow("-1 of \"%s\"", program) << name << -1 << QProcess::NormalExit << false;
        QTest::addRow("a crash of \"%s\"", program) << name << 0 << QProcess::CrashExit << false;
        QTest::addRow("a crash with 1 of \"%s\"", program)
            << name << 1 << QProcess::CrashExit << false;
    }
}

void TestArchiveUnpacker::judgesTheEnd()
{
    QFETCH(const QString, program);
    QFETCH(const int, exitCode);
    QFETCH(const QProcess::ExitStatus, exitStatus);
    QTEST(hasUnpacked(program, exitCode, exitStatus), "unpacked");
}

VEYRA_CORE_TEST_MAIN(TestArchiveUnpacker)
#include "TestArchiveUnpacker.moc"
