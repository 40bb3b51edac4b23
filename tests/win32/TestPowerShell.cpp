#include "config/Config.h"
#include "install/ClientDownloader.h"
#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Platform.h"
#include "tests/support/StandIn.h"
#include "tests/support/TestEnvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kProcessTimeout = 30'000; // ms

QByteArray clientArchive()
{
    const QTemporaryDir folder;
    Files::write(folder.filePath(u"DofusInvoker.swf"_s), "marker");
    Files::write(folder.filePath(u"contenu/cartes/Forêt des Échos.map"_s), QByteArray(100000, 'x'));
    return Files::zipped(folder.path());
}

} // namespace

/// How the client archive is unpacked on Windows: by a real child process called "powershell",
/// found beside the launcher's own program before any other.
class TestPowerShell : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void unpacksInto_data();
    void unpacksInto();
    void overwritesWhatIsThere();
    void aQuoteInThePathIsAnError();
    void itsStandardErrorIsShown();
    void aCrashIsAnError();
    void successWithoutTheClientIsAnError();
    void cancelKillsIt();

private:
    void install();
    QString expectedCommandLine() const;

    QTemporaryDir m_folder;
    QString m_gamePath;
    HttpServer m_server;
    std::unique_ptr<StandIn> m_powerShell;
    std::unique_ptr<ClientDownloader> m_downloader;
    std::unique_ptr<QSignalSpy> m_finished;
};

void TestPowerShell::init()
{
    m_gamePath = m_folder.path() + u"/Client"_s;
    QDir(m_gamePath).removeRecursively();
    m_server.clear();
    m_server.becomeProxy();
    m_server.answer("/client/DofusClient.zip", HttpAnswer::ok(clientArchive()));
    m_powerShell =
        std::make_unique<StandIn>(QCoreApplication::applicationDirPath() + u"/powershell.exe"_s,
                                  QStringLiteral(VEYRA_POWERSHELL_STAND_IN));
    m_downloader = std::make_unique<ClientDownloader>(nullptr);
    m_finished =
        std::make_unique<QSignalSpy>(m_downloader.get(), &ClientDownloader::extractionFinished);
}

void TestPowerShell::cleanup()
{
    m_finished.reset();
    m_downloader.reset();
    m_powerShell.reset();
}

void TestPowerShell::install()
{
    Config::instance().setDofusPath(m_gamePath);
    m_downloader->startDownload();
    QVERIFY(m_finished->wait(kProcessTimeout));
    QCOMPARE(m_finished->count(), 1);
    QVERIFY(!QFile::exists(m_gamePath + u"/DofusClient.zip"_s));
}

QString TestPowerShell::expectedCommandLine() const
{
    // Two blanks behind the program: Qt's own way.
    return u"powershell  -NoProfile -Command \"Expand-Archive -Path '%1/DofusClient.zip' "
           "-DestinationPath '%1' -Force\""_s.arg(m_gamePath);
}

void TestPowerShell::unpacksInto_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("a plain folder") << u"Client"_s;
    QTest::newRow("a folder with spaces") << u"Mes jeux  et clients"_s;
    QTest::newRow("a folder with accents") << u"Été à l’île, œuvre"_s;
    QTest::newRow("a folder with letters of other scripts") << u"Игры ゲーム"_s;
    QTest::newRow("a folder with signs that shells care for") << u"a&b (c) $d `e; %PATH% [f]"_s;
    QTest::newRow("a deep folder") << QString(u"/dossier"_s.repeated(12)).mid(1);
}

void TestPowerShell::unpacksInto()
{
    QFETCH(const QString, name);
    m_gamePath = m_folder.filePath(name);
    install();

    QCOMPARE(m_powerShell->starts().value(0).commandLine, expectedCommandLine());
    QCOMPARE(m_finished->value(0), QVariantList({true, u"Client installé avec succès !"_s}));
    QCOMPARE(Files::read(m_gamePath + u"/DofusInvoker.swf"_s), "marker"_ba);
    QCOMPARE(Files::read(m_gamePath + u"/contenu/cartes/Forêt des Échos.map"_s).size(), 100000);
}

void TestPowerShell::overwritesWhatIsThere()
{
    const QString marker = m_gamePath + u"/DofusInvoker.swf"_s;
    Files::write(marker, "an older marker, longer than the new one");
    install();
    QCOMPARE(m_finished->value(0).value(0).toBool(), true);
    QCOMPARE(Files::read(marker), "marker"_ba);
}

void TestPowerShell::aQuoteInThePathIsAnError()
{
    m_gamePath = m_folder.filePath(u"L'été"_s);
    install();

    QCOMPARE(m_powerShell->starts().value(0).commandLine, expectedCommandLine());
    QCOMPARE(m_finished->value(0),
             QVariantList({false, u"Erreur d'extraction: Expand-Archive : Impossible de trouver un "
                                  "paramètre positionnel.\n"_s}));
    QVERIFY(!QFile::exists(m_gamePath + u"/DofusInvoker.swf"_s));
}

void TestPowerShell::itsStandardErrorIsShown()
{
    m_powerShell->behave(
        {.standardError = "L’archive est endommagée : « été » ✗\n", .exitCode = 1});
    install();
    QCOMPARE(
        m_finished->value(0),
        QVariantList({false, u"Erreur d'extraction: L’archive est endommagée : « été » ✗\n"_s}));
}

void TestPowerShell::aCrashIsAnError()
{
    m_powerShell->behave({.crashes = true});
    install();
    QCOMPARE(m_finished->value(0).value(0).toBool(), false);
    QVERIFY(m_finished->value(0).value(1).toString().startsWith(u"Erreur d'extraction: "_s));
}

void TestPowerShell::successWithoutTheClientIsAnError()
{
    // Expand-Archive may end well although an entry failed.
    m_powerShell->behave({});
    install();
    QCOMPARE(m_finished->value(0),
             QVariantList({false, u"Erreur: Le client n'a pas été trouvé après extraction"_s}));
}

void TestPowerShell::cancelKillsIt()
{
    m_powerShell->behave({.hangs = true});
    Config::instance().setDofusPath(m_gamePath);
    m_downloader->startDownload();
    QTRY_COMPARE_WITH_TIMEOUT(m_powerShell->starts().size(), 1, kProcessTimeout);

    QElapsedTimer timer;
    timer.start();
    m_downloader->cancel();
    m_downloader.reset();
    QVERIFY(timer.elapsed() < kProcessTimeout);
    QVERIFY(m_finished->isEmpty());
    QTRY_VERIFY(!Platform::isRunning(m_powerShell->starts().value(0).processId));
}

VEYRA_CORE_TEST_MAIN(TestPowerShell)
#include "TestPowerShell.moc"
