#include "tests/publish/Publisher.h"
#include "tests/support/Files.h"
#include "tests/support/Platform.h"
#include "tests/support/TestEnvironment.h"
#include "tests/updater/SampleUpdate.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <windows.h>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kAddress = u"http://veyra.test/";

/// How many names the file has.
DWORD namesOf(const QString &path)
{
    BY_HANDLE_FILE_INFORMATION information{};
    const HANDLE handle = ::CreateFileW(
        reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(path).utf16()), GENERIC_READ,
        FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ::GetFileInformationByHandle(handle, &information);
    ::CloseHandle(handle);
    return information.nNumberOfLinks;
}

} // namespace

/// veyra-publier where there are no links that a web server could follow.
class TestWindowsPublisher : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void tellsWhichFolderIsTheSite();
    void eachSiteHasTheState();
    void unchangedFilesShareTheirBytes();
    void sendingIsRefused();
    void aLauncherIsOffered();
    void aRehearsalHasNoMistakes();

private:
    Publisher::Result addNews() const
    {
        return m_publisher->run({u"nouvelles"_s, u"ajouter"_s, u"Titre"_s, u"Texte"_s});
    }
    QByteArray stateOf(const QString &generation) const
    {
        return Files::read(m_publisher->path(u"publications/%1/api/status.php"_s.arg(generation)));
    }
    QString native(const QString &name) const
    {
        return QDir::toNativeSeparators(m_publisher->path(name));
    }

    const KeyPair m_keys;
    std::unique_ptr<Publisher> m_publisher;
};

void TestWindowsPublisher::init()
{
    m_publisher = std::make_unique<Publisher>();
    Files::write(m_publisher->beside(u"cle.pub"_s), m_keys.publicKeyFile());
    const Publisher::Result result = m_publisher->run(
        {u"init"_s, QString::fromUtf16(kAddress), u"--cle"_s, m_publisher->beside(u"cle.pub"_s)});
    QVERIFY2(result.code == 0, qPrintable(result.errors));
    QVERIFY2(result.output.contains(native(u"publications/0001"_s)), qPrintable(result.output));
    QVERIFY(!result.output.contains(u"nginx"_s));
}

void TestWindowsPublisher::tellsWhichFolderIsTheSite()
{
    QCOMPARE(addNews().code, 0);
    const Publisher::Result online = m_publisher->run({u"mettre-en-ligne"_s});
    QCOMPARE(online.code, 0);
    QVERIFY2(online.output.contains(native(u"publications/0002"_s)), qPrintable(online.output));
    QCOMPARE(m_publisher->sitePath(), m_publisher->path(u"publications/0002"_s));
    QVERIFY(m_publisher->site().value(u"api/news.php"_s).contains("Titre"));
    const Publisher::Result back = m_publisher->run({u"annuler"_s});
    QCOMPARE(back.code, 0);
    QVERIFY2(back.output.contains(native(u"publications/0001"_s)), qPrintable(back.output));
    QCOMPARE(m_publisher->sitePath(), m_publisher->path(u"publications/0001"_s));
}

/// Each is sent to a web server as it lies there.
void TestWindowsPublisher::eachSiteHasTheState()
{
    QVERIFY(stateOf(u"0001"_s).contains("\"players\": 0"));
    QCOMPARE(addNews().code, 0);
    QCOMPARE(m_publisher->run({u"etat"_s, u"en-ligne"_s, u"7"_s}).code, 0);
    QVERIFY(stateOf(u"0001"_s).contains("\"players\": 7"));
    QCOMPARE(stateOf(u"0002"_s), stateOf(u"0001"_s));
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QCOMPARE(m_publisher->run({u"etat"_s, u"en-ligne"_s, u"8"_s}).code, 0);
    QVERIFY(stateOf(u"0002"_s).contains("\"players\": 8"));
    // It was not served meanwhile.
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 0);
    QVERIFY(stateOf(u"0001"_s).contains("\"players\": 8"));
    QCOMPARE(addNews().code, 0);
    QVERIFY(stateOf(u"0003"_s).contains("\"players\": 8"));
}

void TestWindowsPublisher::unchangedFilesShareTheirBytes()
{
    const QString folder = m_publisher->beside(u"client"_s);
    Clients::write(folder, Clients::sample());
    QCOMPARE(m_publisher->run({u"client"_s, folder}).code, 0);
    Files::write(folder + u"/data/vide"_s, "no longer empty");
    QCOMPARE(m_publisher->run({u"client"_s, folder}).code, 0);
    const QString files = m_publisher->path(u"publications/0003/updates/files/"_s);
    QCOMPARE(namesOf(files + u"data/Île aux Cèdres.map"_s), DWORD{2});
    QCOMPARE(namesOf(files + u"data/vide"_s), DWORD{1});
}

void TestWindowsPublisher::sendingIsRefused()
{
    for (const QString &destination : {m_publisher->beside(u"web"_s), u"sftp://web/srv"_s}) {
        const Publisher::Result result = m_publisher->run({u"envoyer"_s, destination});
        QCOMPARE(result.code, 2);
        QVERIFY2(result.errors.contains(native(u"publications/0001"_s)), qPrintable(result.errors));
        QVERIFY2(result.errors.contains(u"rien n'a été changé"_s), qPrintable(result.errors));
    }
    QVERIFY(!QFile::exists(m_publisher->beside(u"web"_s)));
}

void TestWindowsPublisher::aLauncherIsOffered()
{
    SampleUpdate update;
    update.version = "98.0.1";
    const QString address = QString::fromUtf16(kAddress);
    update.files["VeyraLauncher.exe"] =
        QByteArray(reinterpret_cast<const char *>(address.utf16()), (address.size() + 1) * 2);
    const QByteArray archive = update.archive(m_keys);
    // A folder whose name is in no code page.
    const QString place = m_publisher->beside(u"Île 𝄞/launcher.zip"_s);
    Files::write(place, archive);
    Files::write(m_publisher->beside(u"notes.txt"_s), "• Corrections\r\n");
    const Publisher::Result result =
        m_publisher->run({u"lanceur"_s, place, u"--notes"_s, m_publisher->beside(u"notes.txt"_s)});
    QVERIFY2(result.code == 0, qPrintable(result.errors));
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    const QMap<QString, QByteArray> site = m_publisher->site();
    QCOMPARE(site.value(u"launcher/VeyraLauncher-98.0.1-windows-x64.zip"_s), archive);
    QCOMPARE(QJsonDocument::fromJson(site.value(u"api/launcher_version.json"_s))
                 .object()
                 .value(u"changelog"_s),
             u"• Corrections"_s);
}

/// The tool serves the site and looks it over.
void TestWindowsPublisher::aRehearsalHasNoMistakes()
{
    const QString folder = m_publisher->beside(u"client"_s);
    Clients::write(folder, Clients::sample());
    QCOMPARE(m_publisher->run({u"client"_s, folder}).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QProcess rehearsal;
    rehearsal.setWorkingDirectory(m_publisher->path(QString()));
    QVERIFY(Platform::start(rehearsal, Publisher::program(), {u"essayer"_s}));
    QTRY_VERIFY_WITH_TIMEOUT(rehearsal.canReadLine(), 30'000);
    const QString address = QString::fromUtf8(rehearsal.readLine()).section(u' ', 0, 0);
    const Publisher::Result result = m_publisher->run({u"verifier"_s, address});
    rehearsal.kill();
    QVERIFY(rehearsal.waitForFinished());
    QVERIFY2(result.code == 0, qPrintable(result.output + result.errors));
    QVERIFY2(result.output.contains(u"Aucune erreur."_s), qPrintable(result.output));
}

VEYRA_CORE_TEST_MAIN(TestWindowsPublisher)
#include "TestWindowsPublisher.moc"
