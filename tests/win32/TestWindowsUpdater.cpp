#include "tests/support/Files.h"
#include "tests/support/Platform.h"
#include "tests/support/TestEnvironment.h"
#include "tests/updater/Installation.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <QTest>

#include <windows.h>

#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kProcessTimeout = 30'000; // ms
constexpr qint64 kLargest = 1048576;    // bytes, since everybody downloads it
constexpr auto kTitle = L"Mise à jour de Veyra Launcher";

// What Windows takes from its own folder whatever lies beside a program, on 10 and 11:
// HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\KnownDLLs.
const QStringList kKnownLibraries{
    u"advapi32.dll"_s, u"clbcatq.dll"_s,  u"combase.dll"_s,  u"comdlg32.dll"_s, u"gdi32.dll"_s,
    u"imm32.dll"_s,    u"kernel32.dll"_s, u"msctf.dll"_s,    u"msvcrt.dll"_s,   u"normaliz.dll"_s,
    u"nsi.dll"_s,      u"ole32.dll"_s,    u"oleaut32.dll"_s, u"psapi.dll"_s,    u"rpcrt4.dll"_s,
    u"sechost.dll"_s,  u"setupapi.dll"_s, u"shell32.dll"_s,  u"shlwapi.dll"_s,  u"user32.dll"_s,
    u"wldap32.dll"_s,  u"ws2_32.dll"_s};

// Each of them is loaded by Windows' own libraries when a program shows a window, looks for a
// folder, asks who holds a file or what rights it has, or for random numbers and sums.
const QStringList kPlanted{
    u"bcrypt.dll"_s,  u"comctl32.dll"_s, u"cryptbase.dll"_s, u"cryptsp.dll"_s, u"dwmapi.dll"_s,
    u"ncrypt.dll"_s,  u"ntdsapi.dll"_s,  u"ntmarta.dll"_s,   u"profapi.dll"_s, u"propsys.dll"_s,
    u"uxtheme.dll"_s, u"rstrtmgr.dll"_s, u"version.dll"_s,   u"winmm.dll"_s};

QString updater()
{
    return QString::fromUtf8(LAUNCHER_UPDATER);
}

template <typename Number> Number numberAt(const QByteArray &bytes, qsizetype place)
{
    return place >= 0 && place + qsizetype(sizeof(Number)) <= bytes.size()
               ? qFromLittleEndian<Number>(bytes.constData() + place)
               : Number(0);
}

/// A program file, as far as this test looks into it.
class ProgramFile
{
public:
    explicit ProgramFile(const QByteArray &bytes)
        : m_bytes(bytes)
        , m_header(numberAt<quint32>(bytes, 0x3c))
    {
    }

    bool isProgram() const { return m_bytes.mid(m_header, 4) == QByteArray("PE\0\0", 4); }
    quint16 subsystem() const { return numberAt<quint16>(m_bytes, m_header + 0x5c); }

    /// In lower case.
    QStringList imports() const
    {
        constexpr qsizetype kDelayedTable = 0xf0; // where libraries stand that are loaded later
        QStringList names = namesIn(kImportTable, kImportEntry, kImportName);
        names += namesIn(kDelayedTable, 32, 4);
        return names;
    }

    /// What is taken from one of the libraries when the program is loaded.
    QStringList functions(const QString &library) const
    {
        QStringList names;
        for (qsizetype entry = placeOf(numberAt<quint32>(m_bytes, m_header + kImportTable));;
             entry += kImportEntry) {
            const auto name = numberAt<quint32>(m_bytes, entry + kImportName);
            if (name == 0)
                return names;
            if (textAt(name).toLower() != library)
                continue;
            qsizetype place = placeOf(numberAt<quint32>(m_bytes, entry));
            while (const auto function = numberAt<quint64>(m_bytes, place)) {
                constexpr quint32 kHint = 2; // a number stands before the name
                names.append(textAt(quint32(function) + kHint));
                place += qsizetype(sizeof function);
            }
        }
    }

private:
    static constexpr qsizetype kImportTable = 0x90; // behind the place of the header
    static constexpr qsizetype kImportEntry = 20;
    static constexpr qsizetype kImportName = 12;

    QString textAt(quint32 address) const
    {
        return QString::fromLatin1(m_bytes.constData() + placeOf(address));
    }

    QStringList namesIn(qsizetype table, qsizetype entrySize, qsizetype namePlace) const
    {
        QStringList names;
        const auto address = numberAt<quint32>(m_bytes, m_header + table);
        if (address == 0)
            return names;
        for (qsizetype entry = placeOf(address);; entry += entrySize) {
            const auto name = numberAt<quint32>(m_bytes, entry + namePlace);
            if (name == 0)
                return names;
            names.append(textAt(name).toLower());
        }
    }

    /// Where in the file lies what has this address in memory.
    qsizetype placeOf(quint32 address) const
    {
        const auto sections = numberAt<quint16>(m_bytes, m_header + 6);
        const qsizetype first = m_header + 24 + numberAt<quint16>(m_bytes, m_header + 20);
        for (qsizetype section = first; section < first + 40 * sections; section += 40) {
            const auto start = numberAt<quint32>(m_bytes, section + 12);
            const auto size = numberAt<quint32>(m_bytes, section + 16);
            if (address >= start && address - start < size)
                return qsizetype(numberAt<quint32>(m_bytes, section + 20)) + address - start;
        }
        return -1;
    }

    QByteArray m_bytes;
    qsizetype m_header;
};

} // namespace

/// LauncherUpdater.exe as Windows sees it.
class TestWindowsUpdater : public QObject
{
    Q_OBJECT

private slots:
    void importsOnlyWhatWindowsProtects();
    void importsNothingThatIsHandedOn();
    void isSmall();
    void opensNoConsole();
    void asksForNoRights();
    void describesItself();
    void loadsNothingThatLiesBesideIt_data();
    void loadsNothingThatLiesBesideIt();
    void tellsOfAFailureInAWindow();

private:
    static HWND waitForWindow(DWORD process);
};

void TestWindowsUpdater::importsOnlyWhatWindowsProtects()
{
    const ProgramFile program(Files::read(updater()));
    QVERIFY(program.isProgram());
    const QStringList imports = program.imports();
    QVERIFY(imports.contains(u"kernel32.dll"_s));
    for (const QString &name : imports)
        QVERIFY2(kKnownLibraries.contains(name), qPrintable(name));
}

/// Functions which those libraries hand on to others that Windows does not protect: it looks for
/// them while the program is loaded, beside the program first.
void TestWindowsUpdater::importsNothingThatIsHandedOn()
{
    const QStringList functions = ProgramFile(Files::read(updater())).functions(u"advapi32.dll"_s);
    // Nothing of its random numbers, which are cryptbase.dll's and cryptsp.dll's.
    QCOMPARE(functions, QStringList{u"GetSecurityInfo"_s});
}

void TestWindowsUpdater::isSmall()
{
    const qsizetype size = Files::read(updater()).size();
    QVERIFY2(size > 0 && size < kLargest, qPrintable(QString::number(size)));
}

void TestWindowsUpdater::opensNoConsole()
{
    QCOMPARE(ProgramFile(Files::read(updater())).subsystem(), IMAGE_SUBSYSTEM_WINDOWS_GUI);
}

void TestWindowsUpdater::asksForNoRights()
{
    const QByteArray program = Files::read(updater());
    QCOMPARE(program.count("<requestedExecutionLevel"), 1);
    QVERIFY(program.contains("<requestedExecutionLevel level=\"asInvoker\" uiAccess=\"false\"/>"));
    QVERIFY(program.contains(">true</longPathAware>"));
    QVERIFY(program.contains(">true</dpiAware>"));
}

void TestWindowsUpdater::describesItself()
{
    const QString path = QDir::toNativeSeparators(updater());
    const auto *const file = reinterpret_cast<const wchar_t *>(path.utf16());
    const DWORD size = GetFileVersionInfoSizeW(file, nullptr);
    QVERIFY(size > 0);
    std::vector<char> information(size);
    QVERIFY(GetFileVersionInfoW(file, 0, size, information.data()));
    const auto value = [&](const QString &name) {
        const QString key = u"\\StringFileInfo\\040C04B0\\"_s + name;
        wchar_t *text = nullptr;
        UINT length = 0;
        const bool isThere =
            VerQueryValueW(information.data(), reinterpret_cast<const wchar_t *>(key.utf16()),
                           reinterpret_cast<void **>(&text), &length);
        return isThere ? QString::fromWCharArray(text) : QString();
    };
    QCOMPARE(value(u"FileDescription"_s),
             u"Installateur des nouvelles versions de Veyra Launcher"_s);
    QCOMPARE(value(u"ProductName"_s), u"Veyra Launcher"_s);
    QCOMPARE(value(u"OriginalFilename"_s), u"LauncherUpdater.exe"_s);
    QCOMPARE(value(u"FileVersion"_s), u"" VEYRA_VERSION ""_s);
}

/// The failure's, with its title.
HWND TestWindowsUpdater::waitForWindow(DWORD process)
{
    HWND found = nullptr;
    [[maybe_unused]] const bool isThere = QTest::qWaitFor(
        [&] {
            for (found = nullptr; (found = FindWindowExW(nullptr, found, L"#32770", kTitle));) {
                DWORD owner = 0;
                GetWindowThreadProcessId(found, &owner);
                if (owner == process)
                    return true;
            }
            return false;
        },
        kProcessTimeout);
    return found;
}

void TestWindowsUpdater::loadsNothingThatLiesBesideIt_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("isSilent");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("started");

    // The keys' owner has not signed the test's archive.
    QTest::newRow("a refusal, silent") << updater() << true << 3 << u"old"_s;
    QTest::newRow("a refusal, with its windows") << updater() << false << 3 << u"old"_s;
    QTest::newRow("a whole update, by a program of the same parts that knows the test's key")
        << QString::fromUtf8(UPDATER_PROBE) << true << 0 << u"new"_s;
}

void TestWindowsUpdater::loadsNothingThatLiesBesideIt()
{
    QFETCH(const QString, file);
    QFETCH(const bool, isSilent);
    QFETCH(const int, exitCode);
    QFETCH(const QString, started);

    Installation installation;
    const QTemporaryDir folder;
    const QByteArray library = Files::read(QString::fromUtf8(PLANTED_LIBRARY));
    for (const QString &name : kPlanted)
        Files::write(folder.filePath(name), library);
    const QString program = folder.filePath(u"LauncherUpdater.exe"_s);
    Files::write(program, Files::read(file));

    QProcess process;
    process.setProcessEnvironment(installation.environment);
    process.setWorkingDirectory(folder.path());
    QStringList arguments{installation.archive(), installation.folder(),
                          QString::fromUtf8(Installation::kLauncher)};
    if (isSilent)
        arguments.prepend(u"--silent"_s);
    QVERIFY(Platform::start(process, program, arguments));
    if (!isSilent) {
        HWND const window = waitForWindow(DWORD(process.processId()));
        QVERIFY(window);
        PostMessageW(window, WM_COMMAND, IDOK, 0);
    }
    QVERIFY(process.waitForFinished(kProcessTimeout));
    QCOMPARE(process.exitCode(), exitCode);
    QCOMPARE(installation.startsOf(1), QStringList{started});
    const QStringList loaded = QDir(folder.path()).entryList({u"*.loaded"_s});
    QVERIFY2(loaded.isEmpty(), qPrintable(loaded.join(u", "_s)));

    // The planted libraries do tell when they are loaded.
    const QString path = QDir::toNativeSeparators(folder.filePath(u"profapi.dll"_s));
    HMODULE const module = LoadLibraryW(reinterpret_cast<const wchar_t *>(path.utf16()));
    QVERIFY(module);
    FreeLibrary(module);
    QCOMPARE(QDir(folder.path()).entryList({u"*.loaded"_s}), QStringList{u"profapi.dll.loaded"_s});
}

void TestWindowsUpdater::tellsOfAFailureInAWindow()
{
    QProcess process;
    QVERIFY(Platform::start(process, updater(), {u"a"_s, u"b"_s}));
    HWND const window = waitForWindow(DWORD(process.processId()));
    QVERIFY(window);
    constexpr int kTextOfMessageBox = 0xffff;
    HWND const text = GetDlgItem(window, kTextOfMessageBox);
    std::vector<wchar_t> content(1000);
    GetWindowTextW(text, content.data(), int(content.size()));
    const QString shown = QString::fromWCharArray(content.data());
    QVERIFY2(shown.contains(u"Usage : LauncherUpdater.exe"_s) &&
                 shown.contains(u"Installe la mise à jour ARCHIVE"_s),
             qPrintable(shown));
    PostMessageW(window, WM_COMMAND, IDOK, 0);
    QVERIFY(process.waitForFinished(kProcessTimeout));
    QCOMPARE(process.exitCode(), 1);
}

VEYRA_CORE_TEST_MAIN(TestWindowsUpdater)
#include "TestWindowsUpdater.moc"
