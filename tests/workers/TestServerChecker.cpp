#include "net/ServerChecker.h"

#include "tests/support/HttpServer.h"
#include "tests/support/Introspection.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"

#include <QNetworkReply>
#include <QTest>
#include <QTimer>

#include <type_traits>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kPath = "/api/status.php";

} // namespace

static_assert(std::is_same_v<decltype(&ServerChecker::checkStatus), void (ServerChecker::*)()>);

class TestServerChecker : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void declaresOneSignalAndOneSlot();
    void timerRunsFromTheBeginning();
    void timerAsksAgainAndAgain();
    void reportsWhatTheBodySays_data();
    void reportsWhatTheBodySays();
    void eachRequestReportsOnceInTheOrderOfTheAnswers();

private:
    HttpServer m_server;
};

void TestServerChecker::init()
{
    m_server.clear();
    m_server.becomeProxy();
}

void TestServerChecker::declaresOneSignalAndOneSlot()
{
    QCOMPARE(Introspection::declarations(ServerChecker::staticMetaObject),
             (QStringList{u"public signal statusReceived(bool online, int players)"_s,
                          u"private slot onCheckFinished(QNetworkReply* reply)"_s}));
}

void TestServerChecker::timerRunsFromTheBeginning()
{
    const ServerChecker checker(nullptr);
    const auto *timer = checker.findChild<QTimer *>();
    QVERIFY(timer->isActive());
    QVERIFY(!timer->isSingleShot());
    QCOMPARE(timer->interval(), 30000);
}

void TestServerChecker::timerAsksAgainAndAgain()
{
    m_server.answer(kPath, HttpAnswer::ok(R"({"online": true, "players": 15})"));
    ServerChecker checker(nullptr);
    SignalSequence reports(&checker);
    checker.findChild<QTimer *>()->setInterval(20);

    QVERIFY(reports.waitFor(u"statusReceived"_s, 3));
    QCOMPARE(reports.withoutRepeats(), QStringList{u"statusReceived(true, 15)"_s});
}

void TestServerChecker::reportsWhatTheBodySays_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("report");

    const auto row = [](const char *name, const char *body, const char *report) {
        QTest::newRow(name) << QByteArray(body) << QString::fromLatin1(report);
    };
    row("online with players", R"({"online": true, "players": 15})", "statusReceived(true, 15)");
    row("offline with players stays as it reads", R"({"online": false, "players": 12})",
        "statusReceived(false, 12)");
    row("an empty object", "{}", "statusReceived(false, 0)");
    row("online without players", R"({"online": true})", "statusReceived(true, 0)");
    row("players without online", R"({"players": 3})", "statusReceived(false, 3)");
    row("texts instead of values", R"({"online": "true", "players": "7"})",
        "statusReceived(false, 0)");
    row("online as a number", R"({"online": 1, "players": 7})", "statusReceived(false, 7)");
    row("online as null", R"({"online": null, "players": 7})", "statusReceived(false, 7)");
    row("players with a fraction", R"({"online": true, "players": 7.5})",
        "statusReceived(true, 0)");
    row("players as a whole number with a fraction part", R"({"online": true, "players": 7.0})",
        "statusReceived(true, 7)");
    row("players with an exponent", R"({"online": true, "players": 1e2})",
        "statusReceived(true, 100)");
    row("players as an array", R"({"online": true, "players": [7]})", "statusReceived(true, 0)");
    row("players as an object", R"({"online": true, "players": {"now": 7}})",
        "statusReceived(true, 0)");
    row("players as a boolean", R"({"online": true, "players": true})", "statusReceived(true, 0)");
    row("players below zero", R"({"online": true, "players": -1})", "statusReceived(true, -1)");
    row("minus zero players", R"({"online": true, "players": -0})", "statusReceived(true, 0)");
    row("the largest 32-bit number", R"({"online": true, "players": 2147483647})",
        "statusReceived(true, 2147483647)");
    row("the smallest 32-bit number", R"({"online": true, "players": -2147483648})",
        "statusReceived(true, -2147483648)");
    row("2^31 does not fit", R"({"online": true, "players": 2147483648})",
        "statusReceived(true, 0)");
    row("2^63 does not fit", R"({"online": true, "players": 9223372036854775808})",
        "statusReceived(true, 0)");
    row("1e300 does not fit", R"({"online": true, "players": 1e300})", "statusReceived(true, 0)");
    row("other keys do not matter", R"({"motd": [1, {"a": "é"}], "online": true, "players": 2})",
        "statusReceived(true, 2)");
    row("keys in another case do not count", R"({"Online": true, "PLAYERS": 2})",
        "statusReceived(false, 0)");
    row("a byte order mark does no harm", "\xef\xbb\xbf{\"online\": true, \"players\": 4}",
        "statusReceived(true, 4)");
    row("an array", "[]", "statusReceived(false, 0)");
    row("an array that holds an object", R"([{"online": true, "players": 5}])",
        "statusReceived(false, 0)");
}

void TestServerChecker::reportsWhatTheBodySays()
{
    QFETCH(const QByteArray, body);
    m_server.answer(kPath, HttpAnswer::ok(body));
    ServerChecker checker(nullptr);
    SignalSequence reports(&checker);
    checker.checkStatus();
    QVERIFY(reports.waitFor(u"statusReceived"_s));
    QTEST(reports.last(), "report");
}

void TestServerChecker::eachRequestReportsOnceInTheOrderOfTheAnswers()
{
    m_server.answerInTurn(kPath, {HttpAnswer::ok(R"({"online": true, "players": 1})").heldAfter(0),
                                  HttpAnswer::ok(R"({"online": true, "players": 2})"),
                                  HttpAnswer::ok("[]")});
    ServerChecker checker(nullptr);
    SignalSequence reports(&checker);
    for (int i = 1; i <= 3; ++i) {
        checker.checkStatus();
        QTRY_COMPARE(m_server.requestCount(kPath), i);
        QVERIFY(reports.waitFor(u"statusReceived"_s, i - 1)); // the first is still under way
    }
    m_server.release(kPath);
    QVERIFY(reports.waitFor(u"statusReceived"_s, 3));
    waitForStragglers();
    QCOMPARE(reports.texts(),
             (QStringList{u"statusReceived(true, 2)"_s, u"statusReceived(false, 0)"_s,
                          u"statusReceived(true, 1)"_s}));
}

VEYRA_CORE_TEST_MAIN(TestServerChecker)
#include "TestServerChecker.moc"
