#include "tests/support/Desktop.h"
#include "tests/support/DrivenLauncher.h"
#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/TestEnvironment.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTest>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kVersionPath = "/api/launcher_version.json";
constexpr auto kClientPath = "/client/DofusClient.zip";
constexpr auto kManifestPath = "/updates/version.json";

const auto kReady = u"Prêt à jouer !"_s;

QByteArray clientArchive()
{
    const QTemporaryDir folder;
    Files::write(folder.filePath(u"DofusInvoker.swf"_s), Files::noise(100'000));
    return Files::zipped(folder.path());
}

/// Until some of the archive has arrived: what the server holds back it can release from then on.
bool waitForArchive(const DrivenLauncher &launcher)
{
    const QString archive = launcher.clientFolder() + u"/DofusClient.zip"_s;
    return QTest::qWaitFor([&archive] { return QFileInfo(archive).size() > 0; }, 60000);
}

bool isActive(const QJsonObject &state)
{
    return state["active"_L1].toBool();
}

bool isNotActive(const QJsonObject &state)
{
    return !isActive(state);
}

} // namespace

/// How the launcher calls a player who has turned to another window, on a real desktop.
class TestAttention : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void callsWhenALongStepHasEnded_data();
    void callsWhenALongStepHasEnded();
    void doesNotCallWhoIsThere_data();
    void doesNotCallWhoIsThere();

private:
    bool asks(DrivenLauncher &launcher) const;

    Desktop m_desktop;
    std::unique_ptr<HttpServer> m_server;
};

void TestAttention::initTestCase()
{
    if (!m_desktop.isReady() || QStandardPaths::findExecutable(u"xprop"_s).isEmpty())
        QSKIP("This takes Xvfb, openbox and xprop");
}

void TestAttention::init()
{
    m_server = std::make_unique<HttpServer>();
    m_server->answer(kVersionPath, HttpAnswer::ok(R"({"version": "1.0.0"})"));
    m_server->answer("/api/status.php", HttpAnswer::ok(R"({"online": true, "players": 15})"));
    m_server->answer("/api/news.php", HttpAnswer::ok("[]"));
}

bool TestAttention::asks(DrivenLauncher &launcher) const
{
    const qint64 window = launcher.state()["windowId"_L1].toInteger();
    return m_desktop.property(window, u"_NET_WM_STATE"_s).contains(u"DEMANDS_ATTENTION"_s);
}

void TestAttention::callsWhenALongStepHasEnded_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<QByteArray>("manifest");
    QTest::addColumn<QString>("label");
    QTest::newRow("the client is installed and verified")
        << clientArchive() << QByteArray(R"({"files": []})") << kReady;
    QTest::newRow("the verification cannot begin")
        << clientArchive() << QByteArray("[]") << QString();
    QTest::newRow("the client cannot be unpacked, which a box says")
        << QByteArray(100'000, 'x') << QByteArray() << QString();
}

void TestAttention::callsWhenALongStepHasEnded()
{
    QFETCH(const QByteArray, archive);
    QFETCH(const QByteArray, manifest);
    QFETCH(const QString, label);
    m_server->answer(kClientPath, HttpAnswer::ok(archive).heldAfter(50'000));
    m_server->answer(kManifestPath, HttpAnswer::ok(manifest));
    DrivenLauncher launcher(*m_server);
    launcher.showOn(m_desktop);
    QVERIFY(launcher.start());
    QVERIFY(waitForArchive(launcher));

    // The player turns to something else.
    DrivenLauncher above(*m_server);
    above.showOn(m_desktop);
    Files::write(above.clientFolder() + u"/DofusInvoker.swf"_s, "client");
    QVERIFY(above.start());
    QVERIFY(above.waitForState(isActive));
    QVERIFY(launcher.waitForState(isNotActive));
    QVERIFY(!asks(launcher));

    m_server->release(kClientPath);
    QVERIFY(launcher.waitForState([&label](const QJsonObject &state) {
        const QString shown = state["label"_L1].toString();
        return state["playEnabled"_L1].toBool() && (label.isEmpty() || shown == label);
    }));
    QTRY_VERIFY(asks(launcher));
    QVERIFY(!asks(above));
}

void TestAttention::doesNotCallWhoIsThere_data()
{
    QTest::addColumn<bool>("settingsAreOpen");
    QTest::newRow("in the window itself") << false;
    QTest::newRow("in the settings") << true;
}

void TestAttention::doesNotCallWhoIsThere()
{
    QFETCH(const bool, settingsAreOpen);
    m_server->answer(kClientPath, HttpAnswer::ok(clientArchive()).heldAfter(50'000));
    m_server->answer(kManifestPath, HttpAnswer::ok(R"({"files": []})"));
    DrivenLauncher launcher(*m_server);
    launcher.showOn(m_desktop);
    QVERIFY(launcher.start());
    QVERIFY(launcher.waitForState(isActive));
    QVERIFY(waitForArchive(launcher));
    if (settingsAreOpen) {
        launcher.ask(u"click"_s, {{u"button"_s, u"settingsButton"_s}});
        QVERIFY(launcher.waitForState([](const QJsonObject &state) {
            return state["modalTitle"_L1].toString() == u"Paramètres"_s;
        }));
    }
    m_server->release(kClientPath);
    QVERIFY(launcher.waitForLabel(kReady));
    QVERIFY(!asks(launcher));
}

VEYRA_CORE_TEST_MAIN(TestAttention)
#include "TestAttention.moc"
