#include "config/Config.h"
#include "tests/support/StandIn.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"
#include "ui/WindowsExtras.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QTest>

#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kProcessTimeout = 30'000; // ms

QString roamingFolder()
{
    PWSTR path = nullptr;
    if (FAILED(SHGetKnownFolderPath(FOLDERID_RoamingAppData, 0, nullptr, &path)))
        return {};
    const QString folder = QDir::fromNativeSeparators(QString::fromWCharArray(path));
    CoTaskMemFree(path);
    return folder;
}

QString nativeQuoted(const QString &argument)
{
    return argument.contains(u' ') ? u'"' + argument + u'"' : argument;
}

/// As Qt writes a command line: with a blank behind the program and one before each argument.
QString commandLine(const QString &program, const QStringList &arguments)
{
    QString line = nativeQuoted(QDir::toNativeSeparators(program)) + u' ';
    for (const QString &argument : arguments)
        line += u' ' + nativeQuoted(argument);
    return line;
}

/// The launcher's program as data, so that its resources can be read without starting it.
class Program
{
public:
    Program()
        : m_module(LoadLibraryExW(
              reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path()).utf16()), nullptr,
              LOAD_LIBRARY_AS_DATAFILE))
    {
    }
    ~Program() { FreeLibrary(m_module); }
    Q_DISABLE_COPY_MOVE(Program)

    static QString path() { return QStringLiteral(VEYRA_LAUNCHER); }

    QByteArray resource(const wchar_t *name, const wchar_t *type) const
    {
        const HRSRC place = FindResourceW(m_module, name, type);
        if (!place)
            return {};
        const HGLOBAL loaded = LoadResource(m_module, place);
        return {static_cast<const char *>(LockResource(loaded)),
                qsizetype(SizeofResource(m_module, place))};
    }

private:
    HMODULE m_module;
};

QString versionText(const QString &key)
{
    const QString program = Program::path();
    const auto *path = reinterpret_cast<const wchar_t *>(program.utf16());
    std::vector<char> data(GetFileVersionInfoSizeW(path, nullptr));
    if (data.empty() || !GetFileVersionInfoW(path, 0, DWORD(data.size()), data.data()))
        return {};
    const QString query = u"\\StringFileInfo\\040C04B0\\"_s + key;
    void *value = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(data.data(), reinterpret_cast<const wchar_t *>(query.utf16()), &value,
                        &length))
        return {};
    return QString::fromWCharArray(static_cast<const wchar_t *>(value));
}

quint16 wordAt(const QByteArray &data, qsizetype offset)
{
    return quint16(quint8(data[offset]) | quint8(data[offset + 1]) << 8);
}

} // namespace

/// What Windows sees of the launcher: the programs it starts, where it keeps its settings, and what
/// its file says about it.
class TestWindowsCitizen : public QObject
{
    Q_OBJECT

private slots:
    void startsTheGame_data();
    void startsTheGame();
    void handsOverToTheUpdater_data();
    void handsOverToTheUpdater();
    void keepsItsSettingsInTheRoamingFolder();

    void describesItselfInItsVersionResource_data();
    void describesItselfInItsVersionResource();
    void hasAnIconForEverySize();
    void hasAManifest_data();
    void hasAManifest();
    void opensNoConsole();
    void newerPartsOfWindowsDoNoHarm();

private:
    QTemporaryDir m_folder;
};

void TestWindowsCitizen::startsTheGame_data()
{
    QTest::addColumn<QString>("gameFolder");
    QTest::addColumn<QString>("subfolder");
    QTest::newRow("from the game folder") << u"Client"_s << QString();
    QTest::newRow("from its subfolder") << u"Client"_s << u"/Client 2.51"_s;
    QTest::newRow("from a folder with spaces and accents") << u"Mes jeux préférés"_s << QString();
    QTest::newRow("from a folder with a quote") << u"L'été"_s << u"/Client 2.51"_s;
}

void TestWindowsCitizen::startsTheGame()
{
    QFETCH(const QString, gameFolder);
    QFETCH(const QString, subfolder);
    const QString game = m_folder.filePath(gameFolder);
    const QString place = game + subfolder;
    const StandIn program(place + u"/Dofus.exe"_s);
    LauncherFixture launcher;
    Config::instance().setDofusPath(game);
    launcher.open();
    launcher.call("onPlayClicked");
    // Before the start-up chain writes its own.
    QCOMPARE(launcher.label(u"progressLabel"_s)->text(), u"Jeu lancé !"_s);
    QTRY_COMPARE_WITH_TIMEOUT(program.starts().size(), 1, kProcessTimeout);
    QCOMPARE(program.starts().first().commandLine, commandLine(place + u"/Dofus.exe"_s, {}));
    QCOMPARE(program.starts().first().workingDirectory, place);
}

void TestWindowsCitizen::handsOverToTheUpdater_data()
{
    QTest::addColumn<QString>("archive");
    QTest::newRow("an archive in a plain folder") << u"C:/Temp/VeyraLauncher_update.zip"_s;
    QTest::newRow("an archive in a folder with spaces and accents")
        << u"C:/Users/Zoé Élise/AppData/Local/Temp/VeyraLauncher_update.zip"_s;
}

void TestWindowsCitizen::handsOverToTheUpdater()
{
    QFETCH(const QString, archive);
    const QString folder = QCoreApplication::applicationDirPath();
    const QString updater = folder + u"/LauncherUpdater.exe"_s;
    const StandIn program(updater);
    LauncherFixture launcher;
    launcher.open();
    launcher.call("onLauncherReadyToInstall", updater, archive);
    QTRY_COMPARE_WITH_TIMEOUT(program.starts().size(), 1, kProcessTimeout);
    const QString self = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    QCOMPARE(program.starts().first().commandLine, commandLine(updater, {archive, folder, self}));
    QCOMPARE(program.starts().first().workingDirectory, QDir::currentPath());
}

void TestWindowsCitizen::keepsItsSettingsInTheRoamingFolder()
{
    QVERIFY(!roamingFolder().isEmpty());
    // "qttest" is where Qt's test mode moves the folder, so that a person's own stays untouched.
    const QString path = roamingFolder() + u"/qttest/Veyra/Veyra Launcher/config.json"_s;
    const QString game = m_folder.filePath(u"Été & œuvre"_s);
    Config::instance().setDofusPath(game);
    Config::instance().save();

    QFile file(path);
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
    QCOMPARE(QJsonDocument::fromJson(file.readAll()).object(),
             QJsonObject({{u"dofus_path"_s, game}}));
}

void TestWindowsCitizen::describesItselfInItsVersionResource_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("CompanyName") << u"Veyra"_s;
    QTest::newRow("ProductName") << u"Veyra Launcher"_s;
    QTest::newRow("FileDescription") << u"Veyra Launcher"_s;
    QTest::newRow("OriginalFilename") << u"VeyraLauncher.exe"_s;
    QTest::newRow("FileVersion") << QStringLiteral(VEYRA_VERSION);
    QTest::newRow("ProductVersion") << QStringLiteral(VEYRA_VERSION);
}

void TestWindowsCitizen::describesItselfInItsVersionResource()
{
    QFETCH(const QString, text);
    QCOMPARE(versionText(QString::fromLatin1(QTest::currentDataTag())), text);
}

void TestWindowsCitizen::hasAnIconForEverySize()
{
    const Program program;
    const QByteArray group = program.resource(L"IDI_ICON1", RT_GROUP_ICON);
    QVERIFY(group.size() > 6);

    // A head of 6 bytes, then 14 for each picture; its width comes first, and 0 stands for 256.
    QList<int> sizes;
    for (int i = 0; i < wordAt(group, 4); ++i) {
        const int width = quint8(group[6 + 14 * i]);
        sizes.append(width == 0 ? 256 : width);
    }
    std::sort(sizes.begin(), sizes.end());
    for (const int size : {16, 24, 32, 48, 64, 128, 256})
        QVERIFY2(sizes.contains(size), qPrintable(QString::number(size)));
}

void TestWindowsCitizen::hasAManifest_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("contained");
    QTest::newRow("no administrator rights are asked for") << "level=\"asInvoker\""_ba << true;
    QTest::newRow("common controls 6")
        << "name=\"Microsoft.Windows.Common-Controls\" version=\"6.0.0.0\""_ba << true;
    QTest::newRow("made for Windows 10 and 11")
        << "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"_ba << true;
    QTest::newRow("long paths") << ">true</longPathAware>"_ba << true;
    QTest::newRow("the project's version")
        << "name=\"Veyra.Launcher\" version=\"" VEYRA_VERSION ".0\""_ba << true;
    QTest::newRow("UTF-8 is not forced upon it") << "activeCodePage"_ba << false;
}

void TestWindowsCitizen::hasAManifest()
{
    QFETCH(const QByteArray, text);
    QFETCH(const bool, contained);
    const Program program;
    const QByteArray manifest = program.resource(MAKEINTRESOURCEW(1), RT_MANIFEST);
    QVERIFY(!manifest.isEmpty());
    QCOMPARE(manifest.contains(text), contained);
}

void TestWindowsCitizen::opensNoConsole()
{
    QFile file(Program::path());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray head = file.read(4096);
    constexpr qsizetype kHeaderPlace = 0x3c;
    constexpr qsizetype kSubsystemOffset = 0x5c; // behind the place of the PE header
    const qsizetype header = wordAt(head, kHeaderPlace);
    QCOMPARE(head.mid(header, 4), QByteArray("PE\0\0", 4));
    QCOMPARE(wordAt(head, header + kSubsystemOffset), IMAGE_SUBSYSTEM_WINDOWS_GUI);
}

void TestWindowsCitizen::newerPartsOfWindowsDoNoHarm()
{
    // What is behind these calls depends on the system: nothing, a part that answers, or an error.
    WindowsExtras::darkenTitleBars();
    LauncherFixture launcher;
    launcher.open();
    QVERIFY(QTest::qWaitForWindowExposed(launcher.window()));
    WindowsExtras::notifyReaders(launcher.window(), u"Prêt à jouer !"_s);
    QVERIFY(launcher.window()->isVisible());
}

VEYRA_WIDGET_TEST_MAIN(TestWindowsCitizen)
#include "TestWindowsCitizen.moc"
