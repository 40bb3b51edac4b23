#include "config/Config.h"

#include "tests/support/Files.h"
#include "tests/support/FullDisk.h"
#include "tests/support/Platform.h"
#include "tests/support/TestEnvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <optional>
#include <type_traits>

using namespace Qt::Literals::StringLiterals;

static_assert(!std::is_base_of_v<QObject, Config>);
static_assert(!std::is_default_constructible_v<Config>);
static_assert(!std::is_copy_constructible_v<Config> && !std::is_copy_assignable_v<Config>);
static_assert(!std::is_move_constructible_v<Config> && !std::is_move_assignable_v<Config>);
static_assert(std::is_same_v<decltype(&Config::instance), Config &(*)()>);
static_assert(std::is_same_v<decltype(&Config::dofusPath), QString (Config::*)() const>);
static_assert(std::is_same_v<decltype(&Config::setDofusPath), void (Config::*)(const QString &)>);
static_assert(std::is_same_v<decltype(&Config::save), void (Config::*)()>);

/// Each scenario is a run of its own of the probe program, or several that share a folder.
class TestConfig : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void isOneObject();
    void firstStart();
    void fileLiesInTheFolderOfOrganisationAndApplication();
    void readsTheFile_data();
    void readsTheFile();
    void unusableFileGivesTheDefault_data();
    void unusableFileGivesTheDefault();
    void usablePathMakesNoDefaultFolder();
    void defaultFolderThatCannotBeMade();

    void writesTheFile_data();
    void writesTheFile();
    void savedPathComesBack_data();
    void savedPathComesBack();
    void savingDropsOtherKeysAndALongerFile();
    void pathThatIsNotSavedIsLost();
    void pathIsKeptAsItStands();
    void fileIsReadOnce();
    void emptyPathMeansTheDefaultNextTime();
    void fileThatCannotBeWritten_data();
    void fileThatCannotBeWritten();
    void fullDisk();
    void configInMemoryTouchesNothing();

private:
    /// Runs the probe and returns what it prints.
    QStringList run(const QStringList &words) { return run(m_probe, words); }
    QStringList run(const QString &program, const QStringList &words);
    QString configFile() { return m_location + u"/config.json"_s; }
    QString defaultPath() const { return QFileInfo(m_probe).absolutePath() + u"/Client"_s; }

    const QString m_probe = QStringLiteral(CONFIG_PROBE);
    std::optional<QTemporaryDir> m_data;
    QString m_location;
};

void TestConfig::init()
{
    m_data.emplace();
    m_location = run({u"location"_s}).value(0);
    QVERIFY(!m_location.isEmpty());
    QDir(m_location).removeRecursively();
    QFile::remove(defaultPath());
    QDir(defaultPath()).removeRecursively();
}

void TestConfig::cleanup()
{
    QDir(m_location).removeRecursively();
    QFile::remove(defaultPath());
    QDir(defaultPath()).removeRecursively();
    m_data.reset();
}

QStringList TestConfig::run(const QString &program, const QStringList &words)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_DATA_HOME"_s, m_data->path());
    QProcess probe;
    probe.setProcessEnvironment(environment);
    probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    if (!Platform::start(probe, program, words) || !probe.waitForFinished(60000) ||
        probe.exitStatus() != QProcess::NormalExit || probe.exitCode() != 0) {
        return {u"the probe failed: "_s + probe.errorString()};
    }
    QString output = QString::fromUtf8(probe.readAllStandardOutput());
    output.remove(u'\r');
    QStringList lines = output.split(u'\n');
    lines.removeLast(); // behind the last line's end
    return lines;
}

void TestConfig::isOneObject()
{
    QCOMPARE(&Config::instance(), &Config::instance());
    const QString before = Config::instance().dofusPath();
    QCOMPARE(before, QCoreApplication::applicationDirPath() + u"/Client"_s);
    Config::instance().setDofusPath(u"/ailleurs"_s);
    QCOMPARE(Config::instance().dofusPath(), u"/ailleurs"_s);
    Config::instance().setDofusPath(before);
}

void TestConfig::firstStart()
{
    QCOMPARE(run({u"path"_s}), QStringList{defaultPath()});
    QVERIFY(QDir(defaultPath()).exists());
    QCOMPARE(Files::tree(defaultPath()), QStringList());
    QVERIFY(QDir(m_location).exists()); // made for the file that may come
    QCOMPARE(Files::tree(m_location), QStringList());
}

void TestConfig::fileLiesInTheFolderOfOrganisationAndApplication()
{
    QVERIFY2(m_location.endsWith(u"/Veyra/Veyra Launcher"_s), qPrintable(m_location));
    run({u"set"_s, u"/jeu"_s, u"save"_s});
    QVERIFY(QFile::exists(configFile()));
}

void TestConfig::readsTheFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("path");
    const auto row = [](const char *name, const char *content, const QString &path) {
        QTest::newRow(name) << QByteArray(content) << path;
    };
    row("as it is written", "{\n    \"dofus_path\": \"/jeu\"\n}\n", u"/jeu"_s);
    row("on one line", R"({"dofus_path":"/jeu"})", u"/jeu"_s);
    row("with Windows line ends", "{\r\n \"dofus_path\": \"C:/Jeux\"\r\n}\r\n", u"C:/Jeux"_s);
    row("with other keys", R"({"a": [1, {"b": null}], "dofus_path": "/jeu", "z": 1.5})", u"/jeu"_s);
    row("with accents and an emoji", R"({"dofus_path": "/Été/Jeux vidéo/🎮"})",
        u"/Été/Jeux vidéo/🎮"_s);
    row("with escapes", R"({"dofus_path": "C:\\Jeux\\\u00e9t\u00e9\"\/"})", u"C:\\Jeux\\été\"/"_s);
    row("a folder that does not exist", R"({"dofus_path": "/does/not/exist"})",
        u"/does/not/exist"_s);
    row("a slash at the end stays", R"({"dofus_path": "/jeu/"})", u"/jeu/"_s);
    row("a relative path stays", R"({"dofus_path": "jeu/../x"})", u"jeu/../x"_s);
    row("a blank is a path", R"({"dofus_path": " "})", u" "_s);
    row("a byte order mark does no harm", "\xef\xbb\xbf{\"dofus_path\": \"/jeu\"}", u"/jeu"_s);
    row("a key that comes twice", R"({"dofus_path": "/a", "dofus_path": "/b"})", u"/b"_s);
}

void TestConfig::readsTheFile()
{
    QFETCH(const QByteArray, content);
    QFETCH(const QString, path);
    Files::write(configFile(), content);
    QCOMPARE(run({u"path"_s}), QStringList{path});
    QVERIFY(!QDir(u"/does/not/exist"_s).exists());
    QCOMPARE(Files::read(configFile()), content); // reading changes nothing
}

void TestConfig::unusableFileGivesTheDefault_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("an empty file") << ""_ba;
    QTest::newRow("an empty path") << R"({"dofus_path": ""})"_ba;
    QTest::newRow("a number") << R"({"dofus_path": 7})"_ba;
    QTest::newRow("null") << R"({"dofus_path": null})"_ba;
    QTest::newRow("a boolean") << R"({"dofus_path": true})"_ba;
    QTest::newRow("an array") << R"({"dofus_path": ["/jeu"]})"_ba;
    QTest::newRow("an object") << R"({"dofus_path": {"path": "/jeu"}})"_ba;
    QTest::newRow("no such key") << R"({"path": "/jeu"})"_ba;
    QTest::newRow("the key in another case") << R"({"Dofus_Path": "/jeu"})"_ba;
    QTest::newRow("an empty object") << "{}"_ba;
    QTest::newRow("an array at the top") << R"([{"dofus_path": "/jeu"}])"_ba;
    QTest::newRow("a string at the top") << R"("/jeu")"_ba;
    QTest::newRow("no JSON") << "dofus_path=/jeu"_ba;
    QTest::newRow("cut off") << R"({"dofus_path": "/je)"_ba;
    QTest::newRow("something behind it") << R"({"dofus_path": "/jeu"} x)"_ba;
    QTest::newRow("invalid UTF-8") << "{\"dofus_path\": \"/\xff\xfe\"}"_ba;
    QTest::newRow("Latin-1") << "{\"dofus_path\": \"/\xe9t\xe9\"}"_ba;
    QTest::newRow("NUL bytes") << QByteArray(4096, '\0');
    QTest::newRow("100,000 brackets") << QByteArray(100000, '[');
    QTest::newRow("100,000 nested objects") << QByteArray("{\"dofus_path\":").repeated(100000);
    QTest::newRow("50 MB of noise") << QByteArray(qsizetype{50} * 1024 * 1024, 'x');
}

void TestConfig::unusableFileGivesTheDefault()
{
    QFETCH(const QByteArray, content);
    Files::write(configFile(), content);
    QCOMPARE(run({u"path"_s}), QStringList{defaultPath()});
    QVERIFY(QDir(defaultPath()).exists());
    QVERIFY(Files::read(configFile()) == content); // the default is not written back
}

void TestConfig::usablePathMakesNoDefaultFolder()
{
    Files::write(configFile(), R"({"dofus_path": "/jeu"})");
    QCOMPARE(run({u"path"_s}), QStringList{u"/jeu"_s});
    QVERIFY(!QDir(defaultPath()).exists());
}

void TestConfig::defaultFolderThatCannotBeMade()
{
    Files::write(defaultPath(), "in the way");
    QCOMPARE(run({u"path"_s}), QStringList{defaultPath()});
    QCOMPARE(Files::read(defaultPath()), "in the way"_ba);
}

void TestConfig::writesTheFile_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("a path") << u"/jeu"_s << "{\n    \"dofus_path\": \"/jeu\"\n}\n"_ba;
    QTest::newRow("accents stay UTF-8")
        << u"/Été/Jeux vidéo/🎮"_s << "{\n    \"dofus_path\": \"/Été/Jeux vidéo/🎮\"\n}\n"_ba;
    QTest::newRow("backslashes and quotes are escaped")
        << u"C:\\\"a\""_s << "{\n    \"dofus_path\": \"C:\\\\\\\"a\\\"\"\n}\n"_ba;
    QTest::newRow("an empty path") << u""_s << "{\n    \"dofus_path\": \"\"\n}\n"_ba;
}

void TestConfig::writesTheFile()
{
    QFETCH(const QString, path);
    run({u"set"_s, path, u"save"_s});
    QTEST(Files::read(configFile()), "content");
    QCOMPARE(Files::tree(m_location), QStringList{u"config.json"_s});
}

void TestConfig::savedPathComesBack_data()
{
    QTest::addColumn<QString>("path");
    for (const QString &path : {u"/jeu"_s, u"C:/Jeux vidéo/Été 100 % [1] 'a' %1"_s,
                                u"\\\\nas\\jeu"_s, u"/🎮/œuvre"_s, u" "_s, QString(5000, u'x')})
        QTest::addRow("%s", qPrintable(path.left(40))) << path;
}

void TestConfig::savedPathComesBack()
{
    QFETCH(const QString, path);
    run({u"set"_s, path, u"save"_s});
    QCOMPARE(run({u"path"_s}), QStringList{path});
}

void TestConfig::savingDropsOtherKeysAndALongerFile()
{
    Files::write(configFile(),
                 R"({"dofus_path": "/jeu", "other": ")" + QByteArray(1000, 'x') + R"("})");
    QCOMPARE(run({u"path"_s, u"set"_s, u"/autre"_s, u"save"_s, u"path"_s}),
             (QStringList{u"/jeu"_s, u"/autre"_s}));
    QCOMPARE(Files::read(configFile()), "{\n    \"dofus_path\": \"/autre\"\n}\n"_ba);
}

void TestConfig::pathThatIsNotSavedIsLost()
{
    Files::write(configFile(), R"({"dofus_path": "/jeu"})");
    QCOMPARE(run({u"set"_s, u"/autre"_s, u"path"_s, u"path"_s}),
             (QStringList{u"/autre"_s, u"/autre"_s}));
    QCOMPARE(Files::read(configFile()), R"({"dofus_path": "/jeu"})"_ba);
    QCOMPARE(run({u"path"_s}), QStringList{u"/jeu"_s});
}

void TestConfig::pathIsKeptAsItStands()
{
    const QString path = m_data->filePath(u"not/../made/"_s);
    QCOMPARE(run({u"set"_s, path, u"path"_s, u"save"_s, u"path"_s}), (QStringList{path, path}));
    QVERIFY(!QDir(m_data->filePath(u"made"_s)).exists());
    QVERIFY(!QDir(m_data->filePath(u"not"_s)).exists());
}

void TestConfig::fileIsReadOnce()
{
    Files::write(configFile(), R"({"dofus_path": "/jeu"})");
    QCOMPARE(run({u"path"_s, u"file"_s, u"{\"dofus_path\": \"/autre\"}"_s, u"path"_s}),
             (QStringList{u"/jeu"_s, u"/jeu"_s}));
    QCOMPARE(run({u"path"_s}), QStringList{u"/autre"_s});
}

void TestConfig::emptyPathMeansTheDefaultNextTime()
{
    QCOMPARE(run({u"set"_s, u""_s, u"save"_s, u"path"_s}), QStringList{QString()});
    QCOMPARE(run({u"path"_s}), QStringList{defaultPath()});
}

void TestConfig::fileThatCannotBeWritten_data()
{
    QTest::addColumn<QString>("inTheWay");
    QTest::newRow("a folder lies in the file's place") << u"/config.json/x"_s;
    QTest::newRow("a file lies in the folder's place") << u""_s;
}

void TestConfig::fileThatCannotBeWritten()
{
    QFETCH(const QString, inTheWay);
    Files::write(m_location + inTheWay, "in the way");
    QCOMPARE(run({u"path"_s, u"set"_s, u"/jeu"_s, u"save"_s, u"path"_s, u"save"_s}),
             (QStringList{defaultPath(), u"/jeu"_s}));
    QCOMPARE(Files::read(m_location + inTheWay), "in the way"_ba);
    QCOMPARE(run({u"path"_s}), QStringList{defaultPath()});
    QFile::remove(m_location); // for cleanup()
}

void TestConfig::fullDisk()
{
    if (!FullDisk::isPossible())
        QSKIP("This system knows no limit for the size of files");
    QCOMPARE(run({u"full"_s, u"set"_s, u"/jeu"_s, u"save"_s, u"path"_s}), QStringList{u"/jeu"_s});
    QCOMPARE(Files::read(configFile()), ""_ba);
    QCOMPARE(run({u"path"_s}), QStringList{defaultPath()});
}

void TestConfig::configInMemoryTouchesNothing()
{
    const QString probe = QStringLiteral(CONFIG_IN_MEMORY_PROBE);
    QDir(m_location).removeRecursively();
    Files::write(configFile(), R"({"dofus_path": "/ailleurs"})");

    QCOMPARE(run(probe, {u"path"_s, u"set"_s, u"/jeu"_s, u"save"_s, u"path"_s}),
             (QStringList{QString(), u"/jeu"_s}));
    QCOMPARE(Files::read(configFile()), R"({"dofus_path": "/ailleurs"})"_ba);

    QDir(m_location).removeRecursively();
    QCOMPARE(run(probe, {u"path"_s, u"save"_s}), QStringList{QString()});
    QVERIFY(!QDir(m_location).exists());
    QVERIFY(!QDir(QFileInfo(probe).absolutePath() + u"/Client"_s).exists());
}

VEYRA_CORE_TEST_MAIN(TestConfig)
#include "TestConfig.moc"
