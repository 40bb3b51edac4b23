#include "net/ServerChecker.h"

#include "tests/support/BadAnswers.h"
#include "tests/support/Introspection.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/TestEnvironment.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QTest>
#include <QTimer>

#include <type_traits>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kPath = "/api/status.php";
const auto kOffline = u"statusReceived(false, 0)"_s;

} // namespace

static_assert(!std::is_default_constructible_v<ServerChecker>);
static_assert(std::is_constructible_v<ServerChecker, QObject *>);
static_assert(std::is_same_v<decltype(&ServerChecker::checkStatus), void (ServerChecker::*)()>);

class TestServerChecker : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void declaresOneSignalAndOneSlot();
    void ownsItsManagerAndARunningTimer();
    void constructorSendsNothing();
    void timerAsksAgainAndAgain();
    void requestNamesOnlyTheRedirectPolicy();

    void reportsWhatTheBodySays_data();
    void reportsWhatTheBodySays();
    void brokenBodyReadsAsOffline_data();
    void brokenBodyReadsAsOffline();
    void failureReadsAsOffline_data();
    void failureReadsAsOffline();
    void unreachableServerReadsAsOffline();

    void followsRedirects();
    void eachRequestReportsOnceInTheOrderOfTheAnswers();
    void replyIsGoneAfterItsReport();
    void mayBeDestroyedWhileARequestIsUnderWay();

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
    QCOMPARE(ServerChecker::staticMetaObject.superClass(), &QObject::staticMetaObject);
}

void TestServerChecker::ownsItsManagerAndARunningTimer()
{
    QObject parent;
    const auto *checker = new ServerChecker(&parent);
    QCOMPARE(checker->parent(), &parent);
    QCOMPARE(checker->children().size(), 2);
    QVERIFY(qobject_cast<QNetworkAccessManager *>(checker->children().at(0)));

    const auto *timer = qobject_cast<QTimer *>(checker->children().at(1));
    QVERIFY(timer);
    QVERIFY(timer->isActive());
    QVERIFY(!timer->isSingleShot());
    QCOMPARE(timer->interval(), 30000);
}

void TestServerChecker::constructorSendsNothing()
{
    const ServerChecker checker(nullptr);
    QCOMPARE(checker.findChildren<QNetworkReply *>().size(), 0);
    QTest::qWait(50);
    QCOMPARE(m_server.requests().size(), 0);
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

void TestServerChecker::requestNamesOnlyTheRedirectPolicy()
{
    ServerChecker checker(nullptr);
    SignalSequence reports(&checker);
    checker.checkStatus();

    const QNetworkReply *reply = Introspection::pendingReply(checker);
    QVERIFY(reply);
    QCOMPARE(reply->operation(), QNetworkAccessManager::GetOperation);
    QCOMPARE(
        Introspection::traits(reply->request()),
        QStringList{u"attribute %1 = int 1"_s.arg(int(QNetworkRequest::RedirectPolicyAttribute))});

    QVERIFY(reports.waitFor(u"statusReceived"_s));
    QCOMPARE(m_server.requests().size(), 1);
    QCOMPARE(m_server.requests().first().method, "GET"_ba);
    QCOMPARE(m_server.requests().first().target, "http://veyra.test/api/status.php"_ba);
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

void TestServerChecker::brokenBodyReadsAsOffline_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    for (const auto &[name, answer] : BadAnswers::brokenJson())
        QTest::newRow(name) << answer;
}

void TestServerChecker::brokenBodyReadsAsOffline()
{
    QFETCH(const HttpAnswer, answer);
    m_server.answer(kPath, answer);
    ServerChecker checker(nullptr);
    SignalSequence reports(&checker);
    checker.checkStatus();
    QVERIFY(reports.waitFor(u"statusReceived"_s));
    QCOMPARE(reports.texts(), QStringList{kOffline});
}

void TestServerChecker::failureReadsAsOffline_data()
{
    BadAnswers::addFailures(R"({"online": true, "players": 15})");
}

void TestServerChecker::failureReadsAsOffline()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const QString, skip);
    if (!skip.isEmpty()) {
        QSKIP(qPrintable(skip));
    }
    m_server.answer(kPath, answer);
    BadAnswers::loopAt(m_server);
    ServerChecker checker(nullptr);
    SignalSequence reports(&checker);
    checker.checkStatus();
    QVERIFY(reports.waitFor(u"statusReceived"_s));
    QCOMPARE(reports.texts(), QStringList{kOffline});
}

void TestServerChecker::unreachableServerReadsAsOffline()
{
    HttpServer dead;
    dead.becomeProxy();
    dead.stopListening();
    ServerChecker checker(nullptr);
    SignalSequence reports(&checker);
    checker.checkStatus();
    QVERIFY(reports.waitFor(u"statusReceived"_s));
    QCOMPARE(reports.texts(), QStringList{kOffline});
}

void TestServerChecker::followsRedirects()
{
    m_server.answer(kPath, HttpAnswer::redirect("http://veyra.test/moved"));
    m_server.answer("/moved", HttpAnswer::ok(R"({"online": true, "players": 9})"));
    ServerChecker checker(nullptr);
    SignalSequence reports(&checker);
    checker.checkStatus();
    QVERIFY(reports.waitFor(u"statusReceived"_s));
    QCOMPARE(reports.texts(), QStringList{u"statusReceived(true, 9)"_s});
    QCOMPARE(m_server.requestCount("/moved"), 1);
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
    QTest::qWait(50);
    QCOMPARE(reports.texts(),
             (QStringList{u"statusReceived(true, 2)"_s, kOffline, u"statusReceived(true, 1)"_s}));
}

void TestServerChecker::replyIsGoneAfterItsReport()
{
    for (const HttpAnswer &answer :
         {HttpAnswer::ok("{}"), HttpAnswer::ok("[]"), HttpAnswer::status(500)}) {
        m_server.answer(kPath, answer);
        ServerChecker checker(nullptr);
        checker.checkStatus();
        const QPointer<QNetworkReply> reply = Introspection::pendingReply(checker);
        QVERIFY(reply);
        QTRY_VERIFY(!reply);
    }
}

void TestServerChecker::mayBeDestroyedWhileARequestIsUnderWay()
{
    m_server.answer(kPath, HttpAnswer::never());
    auto checker = std::make_unique<ServerChecker>(nullptr);
    SignalSequence reports(checker.get());
    checker->checkStatus();
    QTRY_COMPARE(m_server.requestCount(kPath), 1);
    checker.reset();
    QTest::qWait(20);
    QCOMPARE(reports.texts(), QStringList());
}

VEYRA_CORE_TEST_MAIN(TestServerChecker)
#include "TestServerChecker.moc"
