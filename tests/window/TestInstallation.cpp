#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QHostAddress>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds kTimeout = 60s;

} // namespace

/// "cmake --install" of this build into an empty folder, and the program that comes of it.
class TestInstallation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void filesLieInTheUsualPlaces();
    void programStarts();

private:
    QString path(const QString &name) const { return m_prefix.filePath(name); }

    QTemporaryDir m_prefix;
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
};

void TestInstallation::initTestCase()
{
    m_environment.remove(u"DESTDIR"_s);
    QProcess cmake;
    cmake.setProcessEnvironment(m_environment);
    cmake.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    cmake.start(QStringLiteral(CMAKE_PROGRAM),
                {u"--install"_s, QStringLiteral(BUILD_FOLDER), u"--prefix"_s, m_prefix.path()});
    QVERIFY(cmake.waitForFinished(kTimeout.count()));
    QCOMPARE(cmake.exitStatus(), QProcess::NormalExit);
    QCOMPARE(cmake.exitCode(), 0);
}

void TestInstallation::filesLieInTheUsualPlaces()
{
    QStringList files = Files::tree(m_prefix.path());
    files.removeIf([](const QString &name) { return name.endsWith(u'/'); });
    const QStringList expected{
        u"bin/VeyraLauncher"_s,
        u"share/applications/veyra-launcher.desktop"_s,
        u"share/doc/VeyraLauncher/CHANGELOG.md"_s,
        u"share/doc/VeyraLauncher/LICENSE"_s,
        u"share/icons/hicolor/16x16/apps/veyra-launcher.png"_s,
        u"share/icons/hicolor/24x24/apps/veyra-launcher.png"_s,
        u"share/icons/hicolor/256x256/apps/veyra-launcher.png"_s,
        u"share/icons/hicolor/32x32/apps/veyra-launcher.png"_s,
        u"share/icons/hicolor/48x48/apps/veyra-launcher.png"_s,
    };
    QCOMPARE(files, expected);
    QVERIFY(QFileInfo(path(u"bin/VeyraLauncher"_s)).isExecutable());
}

// The default game folder comes into being beside the program, when the window stands, the event
// loop runs and the question for a newer launcher has been answered or, as here, has failed.
void TestInstallation::programStarts()
{
    if (!QHostAddress(QUrl(QStringLiteral(SERVER_URL)).host()).isLoopback())
        QSKIP("this launcher would ask a real server");
    const QTemporaryDir home;
    for (const QString &variable :
         {u"HOME"_s, u"XDG_DATA_HOME"_s, u"XDG_CONFIG_HOME"_s, u"XDG_CACHE_HOME"_s, u"TMPDIR"_s})
        m_environment.insert(variable, home.path());
    QProcess launcher;
    launcher.setProcessEnvironment(m_environment);
    launcher.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    launcher.start(path(u"bin/VeyraLauncher"_s), {});
    QVERIFY2(launcher.waitForStarted(), qPrintable(launcher.errorString()));

    const auto hasGameFolder = [this] { return QFileInfo(path(u"bin/Client"_s)).isDir(); };
    QTRY_VERIFY_WITH_TIMEOUT(hasGameFolder() || launcher.state() == QProcess::NotRunning,
                             int(kTimeout.count()));
    QVERIFY(hasGameFolder());
    QCOMPARE(launcher.state(), QProcess::Running);
    launcher.kill();
    QVERIFY(launcher.waitForFinished(kTimeout.count()));
}

VEYRA_CORE_TEST_MAIN(TestInstallation)

#include "TestInstallation.moc"
