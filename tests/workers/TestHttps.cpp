#include "tests/support/Certificates.h"
#include "tests/support/TestEnvironment.h"
#include "tests/workers/EveryRequest.h"

#include <QTest>

#include <optional>

using namespace Qt::Literals::StringLiterals;

/// What the workers of a launcher do that is built for https://veyra.test/.
class TestHttps : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { m_requests.emplace(); }
    void cleanup() { m_requests.reset(); }

    void goodCertificateIsTrusted_data() { EveryRequest::addRows(); }
    void goodCertificateIsTrusted();
    void badCertificateIsAFailure_data();
    void badCertificateIsAFailure();
    void redirectWithinHttpsIsFollowed_data() { EveryRequest::addRows(); }
    void redirectWithinHttpsIsFollowed();
    void redirectToHttpIsAFailure_data() { EveryRequest::addRows(); }
    void redirectToHttpIsAFailure();

private:
    std::optional<Certificates::TrustedAuthority> m_authority;
    std::optional<EveryRequest> m_requests;
};

void TestHttps::initTestCase()
{
    if (const QString reason = Certificates::missing(); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    m_authority.emplace();
}

void TestHttps::goodCertificateIsTrusted()
{
    const WorkerRequest sent = m_requests->fetched();
    HttpServer &server = m_requests->server;
    server.setIdentity(Certificates::identity(Certificates::Kind::Good));

    const EveryRequest::Outcome outcome =
        m_requests->run(sent, [&] { server.answer(sent.path, HttpAnswer::ok(sent.body)); });
    m_requests->compareSuccess(outcome, sent);
    QCOMPARE(m_requests->targets(), QStringList{u"encrypted "_s + QString::fromLatin1(sent.path)});
    QCOMPARE(server.lastRequest(sent.path).headers.value("host"), "veyra.test"_ba);
}

void TestHttps::badCertificateIsAFailure_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<Certificates::Kind>("kind");

    const QList<std::pair<const char *, Certificates::Kind>> kinds{
        {"an expired certificate", Certificates::Kind::Expired},
        {"the certificate of another host", Certificates::Kind::AnotherHost},
        {"a certificate by an unknown authority", Certificates::Kind::UnknownAuthority},
        {"a certificate that signs itself", Certificates::Kind::SelfSigned},
    };
    for (const QString &name : EveryRequest::names()) {
        for (const auto &[words, kind] : kinds)
            EveryRequest::newRow(name, words) << kind;
    }
}

void TestHttps::badCertificateIsAFailure()
{
    QFETCH(const Certificates::Kind, kind);
    const WorkerRequest sent = m_requests->fetched();
    HttpServer &server = m_requests->server;
    server.setIdentity(Certificates::identity(Certificates::Kind::Good));

    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        server.answer(sent.path, HttpAnswer::ok(sent.body));
        server.setIdentity(Certificates::identity(kind));
    });
    m_requests->compareFailure(outcome, sent);
    // It was asked, but not told for what.
    QVERIFY(server.tunnels().contains("veyra.test:443"));
    QCOMPARE(m_requests->targets(), QStringList());
}

void TestHttps::redirectWithinHttpsIsFollowed()
{
    const WorkerRequest sent = m_requests->fetched();
    HttpServer &server = m_requests->server;
    server.setIdentity(Certificates::identity(Certificates::Kind::Good));

    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        server.answer(sent.path, HttpAnswer::redirect("https://veyra.test:8443/moved"));
        server.answer("/moved", HttpAnswer::ok(sent.body));
    });
    m_requests->compareSuccess(outcome, sent);
    QCOMPARE(m_requests->targets(), (QStringList{u"encrypted "_s + QString::fromLatin1(sent.path),
                                                 u"encrypted /moved"_s}));
    QCOMPARE(server.tunnels().last(), "veyra.test:8443"_ba);
}

void TestHttps::redirectToHttpIsAFailure()
{
    const WorkerRequest sent = m_requests->fetched();
    HttpServer &server = m_requests->server;
    server.setIdentity(Certificates::identity(Certificates::Kind::Good));

    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        server.answer(sent.path, HttpAnswer::redirect("http://veyra.test/moved"));
        server.answer("/moved", HttpAnswer::ok(sent.body));
    });
    m_requests->compareFailure(outcome, sent);
    QCOMPARE(m_requests->targets(), QStringList{u"encrypted "_s + QString::fromLatin1(sent.path)});
}

VEYRA_CORE_TEST_MAIN(TestHttps)
#include "TestHttps.moc"
