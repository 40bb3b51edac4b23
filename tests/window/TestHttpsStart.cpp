#include "tests/support/BoxAnswers.h"
#include "tests/support/Certificates.h"
#include "tests/support/Files.h"
#include "tests/support/LauncherFiles.h"
#include "tests/support/StandIn.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"
#include "update/Updater.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QTest>
#include <QTextEdit>

#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kVersionPath = "/api/launcher_version.json";
constexpr auto kLauncherPath = "/launcher.zip";
constexpr auto kMapName = "données/carte.d2p";

QByteArray version(const QString &number)
{
    const QJsonObject record{{u"version"_s, number},
                             {u"download_url"_s, u"https://veyra.test/launcher.zip"_s},
                             {u"changelog"_s, u"Notes"_s},
                             {u"required"_s, true}};
    return QJsonDocument(record).toJson();
}

QByteArray mapContent()
{
    return Files::noise(500000);
}

QByteArray clientArchive()
{
    const QTemporaryDir folder;
    Files::write(folder.filePath(u"DofusInvoker.swf"_s), "client");
    Files::write(folder.filePath(QString::fromUtf8(kMapName)), mapContent());
    return Files::zipped(folder.path());
}

/// Right about one of two files.
QByteArray manifest()
{
    const QJsonArray files{QJsonObject{{u"name"_s, QString::fromUtf8(kMapName)},
                                       {u"hash"_s, Files::sha256(mapContent())}},
                           QJsonObject{{u"name"_s, u"DofusInvoker.swf"_s}, {u"hash"_s, u"0"_s}}};
    return QJsonDocument(QJsonObject{{u"files"_s, files}}).toJson();
}

} // namespace

/// The window of a launcher that is built for https://veyra.test/, with the real workers.
class TestHttpsStart : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_launcher.reset(); }

    void fromStartToReady();
    void newLauncherIsHandedOver();
    void badCertificateLeavesTheLauncherOffline_data();
    void badCertificateLeavesTheLauncherOffline();

private:
    QString face() const { return m_launcher->face(); }
    QString text(const char *label) const
    {
        return m_launcher->label(QString::fromLatin1(label))->text();
    }

    std::optional<Certificates::TrustedAuthority> m_authority;
    std::unique_ptr<LauncherFixture> m_launcher;
};

void TestHttpsStart::initTestCase()
{
    if (const QString reason = Certificates::missing(); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    m_authority.emplace();
}

void TestHttpsStart::init()
{
    QFile::remove(LauncherFiles::archive());
    m_launcher = std::make_unique<LauncherFixture>();
    HttpServer &server = m_launcher->server;
    server.setIdentity(Certificates::identity(Certificates::Kind::Good));
    server.answer("/api/status.php", HttpAnswer::ok(R"({"online": true, "players": 15})"));
    server.answer("/api/news.php", HttpAnswer::ok(R"(["Une nouvelle"])"));
    server.answer(kVersionPath, HttpAnswer::ok(version(u"1.0.0"_s)));
    server.answer("/client/DofusClient.zip", HttpAnswer::ok(clientArchive()));
    server.answer("/updates/version.json", HttpAnswer::ok(manifest()));
}

void TestHttpsStart::fromStartToReady()
{
    BoxAnswers boxes;
    QStringList steps;
    m_launcher->open();
    connect(m_launcher->worker<Updater>(), &Updater::progressChanged, this,
            [&steps](int, const QString &message) { steps.append(message); });

    QTRY_COMPARE(text("statusLabel"), u"Serveur en ligne"_s);
    QTRY_COMPARE(text("playersLabel"), u"15 joueurs connectés"_s);
    QTRY_COMPARE(m_launcher->news()->toPlainText(), u"• Une nouvelle"_s);
    QTRY_COMPARE(face(), u"Prêt à jouer ! | color: #8bc34a; | 100/100 | JOUER on"_s);
    QCOMPARE(steps.last(), u"1 fichier(s) à mettre à jour (désactivé)"_s);
    QCOMPARE(Files::tree(m_launcher->gameFolder()),
             (QStringList{u"DofusInvoker.swf"_s, u"données/"_s, QString::fromUtf8(kMapName)}));
    QVERIFY(boxes.seen().isEmpty());

    const HttpServer &server = m_launcher->server;
    for (const HttpRequest &request : server.requests())
        QVERIFY2(request.encrypted, request.target.constData());
    QCOMPARE(server.requests().size(), 5);
}

void TestHttpsStart::newLauncherIsHandedOver()
{
    HttpServer &server = m_launcher->server;
    server.answer(kVersionPath, HttpAnswer::ok(version(u"1.0.1"_s)));
    server.answer(kLauncherPath, HttpAnswer::ok("the new launcher"));
    const StandIn updater(LauncherFiles::updater());
    BoxAnswers boxes;
    boxes.click(QMessageBox::Ok);
    m_launcher->open();

    QTRY_COMPARE(updater.starts().size(), 1);
    QCOMPARE(updater.starts().first().arguments.first(), LauncherFiles::archive());
    QCOMPARE(Files::read(LauncherFiles::archive()), "the new launcher"_ba);
    QVERIFY(server.lastRequest(kLauncherPath).encrypted);
    QCOMPARE(boxes.seen().size(), 1);
}

void TestHttpsStart::badCertificateLeavesTheLauncherOffline_data()
{
    QTest::addColumn<Certificates::Kind>("kind");
    QTest::newRow("an expired certificate") << Certificates::Kind::Expired;
    QTest::newRow("the certificate of another host") << Certificates::Kind::AnotherHost;
    QTest::newRow("a certificate by an unknown authority") << Certificates::Kind::UnknownAuthority;
    QTest::newRow("a certificate that signs itself") << Certificates::Kind::SelfSigned;
}

void TestHttpsStart::badCertificateLeavesTheLauncherOffline()
{
    QFETCH(const Certificates::Kind, kind);
    HttpServer &server = m_launcher->server;
    server.setIdentity(Certificates::identity(kind));
    server.answer(kVersionPath, HttpAnswer::ok(version(u"1.0.1"_s)));
    server.answer(kLauncherPath, HttpAnswer::ok("the new launcher"));
    const StandIn updater(LauncherFiles::updater());
    BoxAnswers boxes;
    boxes.click(QMessageBox::Ok);
    m_launcher->open();

    QTRY_COMPARE(boxes.seen().size(), 1);
    const BoxAnswers::Box box = boxes.seen().first();
    QCOMPARE(box.title, u"Erreur de téléchargement"_s);
    QVERIFY2(box.text.startsWith(u"Erreur de téléchargement: "_s), qPrintable(box.text));
    QTRY_COMPARE(face(), box.text + u" | color: #f44336; | 0/100 | JOUER on"_s);
    QTRY_COMPARE(text("statusLabel"), u"Serveur hors ligne"_s);
    QTRY_VERIFY(m_launcher->news()->toPlainText().contains(u"Bienvenue sur Veyra !"_s));

    waitForStragglers();
    QCOMPARE(boxes.seen().size(), 1);
    QVERIFY(!server.tunnels().isEmpty());
    QVERIFY(server.requests().isEmpty());
    QCOMPARE(Files::tree(m_launcher->gameFolder()), QStringList());
    QVERIFY(!QFile::exists(LauncherFiles::archive()));
    QVERIFY(updater.starts().isEmpty());
}

VEYRA_WIDGET_TEST_MAIN(TestHttpsStart)
#include "TestHttpsStart.moc"
