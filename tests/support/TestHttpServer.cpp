#include "tests/support/Certificates.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Platform.h"
#include "tests/support/TestEnvironment.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

/// The scripted server is what most other tests stand on, so it is tested itself.
class TestHttpServer : public QObject
{
    Q_OBJECT

private slots:
    void answersAsScripted_data();
    void answersAsScripted();
    void pathWithoutAnswerIs404();
    void answersInTurnThenRepeatsTheLast();
    void holdsBackUntilReleased();
    void receivesRequestsForOtherServersAsProxy();
    void neverAnswers();
    void speaksTlsToWhoeverBeginsWithIt_data();
    void speaksTlsToWhoeverBeginsWithIt();
    void leadsToAnyServerAsProxy();
    void badCertificateEndsTheConnection();

private:
    QNetworkReply *get(HttpServer &server, const QByteArray &path);
    QNetworkAccessManager m_manager;
};

QNetworkReply *TestHttpServer::get(HttpServer &server, const QByteArray &path)
{
    QNetworkReply *reply = m_manager.get(QNetworkRequest(server.url(QString::fromLatin1(path))));
    reply->setParent(&server);
    return reply;
}

void TestHttpServer::answersAsScripted_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<int>("error");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("skip");

    const QByteArray big(1000000, 'x');
    QTest::newRow("a body with its length") << HttpAnswer::ok(big) << 0 << big << QString();
    QTest::newRow("a chunked body") << HttpAnswer::ok(big).chunked() << 0 << big << QString();
    QTest::newRow("a body that ends with the connection")
        << HttpAnswer::ok(big).withoutLength() << 0 << big << QString();
    QTest::newRow("an empty body") << HttpAnswer::ok({}) << 0 << QByteArray() << QString();
    QTest::newRow("a delayed body")
        << HttpAnswer::ok("late").delayed(50ms) << 0 << "late"_ba << QString();
    QTest::newRow("a dripped body")
        << HttpAnswer::ok("abcdef").dripped(2, 5ms) << 0 << "abcdef"_ba << QString();
    QTest::newRow("an error status")
        << HttpAnswer::status(500, "broken") << int(QNetworkReply::InternalServerError)
        << "broken"_ba << QString();
    QTest::newRow("a truncated body")
        << HttpAnswer::ok("abcdef").truncatedAfter(3) << int(QNetworkReply::RemoteHostClosedError)
        << "abc"_ba << QString();
    QTest::newRow("a reset after half of the body")
        << HttpAnswer::ok("abcdef").resetAfter(3) << int(QNetworkReply::RemoteHostClosedError)
        << "abc"_ba << Platform::reasonToSkipResets();
}

void TestHttpServer::answersAsScripted()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const QString, skip);
    if (!skip.isEmpty()) {
        QSKIP(qPrintable(skip));
    }
    HttpServer server;
    server.answer("/x", answer);

    QNetworkReply *reply = get(server, "/x");
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QVERIFY(finished.wait());
    QTEST(int(reply->error()), "error");
    QTEST(reply->readAll(), "body");
}

void TestHttpServer::pathWithoutAnswerIs404()
{
    HttpServer server;
    QNetworkReply *reply = get(server, "/nowhere");
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QVERIFY(finished.wait());
    QCOMPARE(reply->error(), QNetworkReply::ContentNotFoundError);
    QCOMPARE(server.requestCount("/nowhere"), 1);
}

void TestHttpServer::answersInTurnThenRepeatsTheLast()
{
    HttpServer server;
    server.answerInTurn("/x", {HttpAnswer::ok("1"), HttpAnswer::ok("2")});
    for (const QByteArray &expected : {"1"_ba, "2"_ba, "2"_ba}) {
        QNetworkReply *reply = get(server, "/x");
        QSignalSpy finished(reply, &QNetworkReply::finished);
        QVERIFY(finished.wait());
        QCOMPARE(reply->readAll(), expected);
    }
}

void TestHttpServer::holdsBackUntilReleased()
{
    HttpServer server;
    server.answer("/x", HttpAnswer::ok("abcdef").heldAfter(3));
    QNetworkReply *reply = get(server, "/x");
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QTRY_COMPARE(reply->bytesAvailable(), 3);
    QVERIFY(!finished.wait(50));
    server.release("/x");
    QVERIFY(finished.count() == 1 || finished.wait());
    QCOMPARE(reply->readAll(), "abcdef"_ba);

    // A release ahead of the request counts for one.
    server.release("/x");
    for (const bool held : {false, true}) {
        QNetworkReply *next = get(server, "/x");
        QTRY_COMPARE(next->bytesAvailable(), held ? 3 : 6);
        QTRY_COMPARE(next->isFinished(), !held);
    }
}

void TestHttpServer::receivesRequestsForOtherServersAsProxy()
{
    HttpServer server;
    server.answer("/api", HttpAnswer::ok("here"));
    server.becomeProxy();
    QNetworkReply *reply = m_manager.get(QNetworkRequest(QUrl(u"http://veyra.test/api"_s)));
    reply->setParent(&server);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QVERIFY(finished.wait());
    QCOMPARE(reply->readAll(), "here"_ba);
    QCOMPARE(server.lastRequest("/api").target, "http://veyra.test/api"_ba);
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
}

void TestHttpServer::neverAnswers()
{
    HttpServer server;
    server.answer("/x", HttpAnswer::never());
    QNetworkReply *reply = get(server, "/x");
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QTRY_COMPARE(server.requestCount("/x"), 1);
    QVERIFY(!finished.wait(100));
}

void TestHttpServer::speaksTlsToWhoeverBeginsWithIt_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<int>("error");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("skip");

    // Of some twenty such bodies one lacks its last TLS record, which the server has sent.
    const QString lostRecord =
        Platform::isWine() ? u"Wine now and then loses what comes with TLS's end"_s : QString();
    const QByteArray big(1000000, 'x');
    QTest::newRow("a body with its length") << HttpAnswer::ok(big) << 0 << big << QString();
    QTest::newRow("a chunked body") << HttpAnswer::ok(big).chunked() << 0 << big << QString();
    QTest::newRow("a body that ends with the connection")
        << HttpAnswer::ok(big).withoutLength() << 0 << big << lostRecord;
    QTest::newRow("a dripped body")
        << HttpAnswer::ok("abcdef").dripped(2, 5ms) << 0 << "abcdef"_ba << QString();
    QTest::newRow("a truncated body")
        << HttpAnswer::ok("abcdef").truncatedAfter(3) << int(QNetworkReply::RemoteHostClosedError)
        << "abc"_ba << QString();
}

void TestHttpServer::speaksTlsToWhoeverBeginsWithIt()
{
    if (const QString reason = Certificates::missing(); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    QFETCH(const HttpAnswer, answer);
    QFETCH(const QString, skip);
    if (!skip.isEmpty()) {
        QSKIP(qPrintable(skip));
    }
    const Certificates::TrustedAuthority authority;
    HttpServer server;
    server.setIdentity(Certificates::identity(Certificates::Kind::Good));
    server.answer("/x", answer);

    // A client that does not stays unencrypted.
    for (const QString &scheme : {u"https"_s, u"http"_s}) {
        QUrl url = server.url(u"/x"_s);
        url.setScheme(scheme);
        url.setHost(u"localhost"_s);
        QNetworkReply *reply = m_manager.get(QNetworkRequest(url));
        reply->setParent(&server);
        QSignalSpy finished(reply, &QNetworkReply::finished);
        QVERIFY(finished.wait());
        QTEST(int(reply->error()), "error");
        QTEST(reply->readAll(), "body");
        QCOMPARE(server.lastRequest("/x").encrypted, scheme == u"https"_s);
    }
    QVERIFY(server.tunnels().isEmpty());
}

void TestHttpServer::leadsToAnyServerAsProxy()
{
    if (const QString reason = Certificates::missing(); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    const Certificates::TrustedAuthority authority;
    HttpServer server;
    server.setIdentity(Certificates::identity(Certificates::Kind::Good));
    server.answer("/api", HttpAnswer::ok("here"));
    server.becomeProxy();
    QNetworkReply *reply = m_manager.get(QNetworkRequest(QUrl(u"https://veyra.test/api"_s)));
    reply->setParent(&server);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QVERIFY(finished.wait());
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    QCOMPARE(reply->readAll(), "here"_ba);
    QCOMPARE(server.tunnels(), QList<QByteArray>{"veyra.test:443"});
    QCOMPARE(server.requests().size(), 1);
    QCOMPARE(server.requests().first().target, "/api"_ba);
    QVERIFY(server.requests().first().encrypted);
}

void TestHttpServer::badCertificateEndsTheConnection()
{
    if (const QString reason = Certificates::missing(); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    const Certificates::TrustedAuthority authority;
    HttpServer server;
    server.setIdentity(Certificates::identity(Certificates::Kind::AnotherHost));
    server.becomeProxy();
    QNetworkReply *reply = m_manager.get(QNetworkRequest(QUrl(u"https://veyra.test/api"_s)));
    reply->setParent(&server);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QVERIFY(finished.wait());
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    QCOMPARE(reply->error(), QNetworkReply::SslHandshakeFailedError);
    QVERIFY(server.requests().isEmpty());
}

VEYRA_CORE_TEST_MAIN(TestHttpServer)
#include "TestHttpServer.moc"
