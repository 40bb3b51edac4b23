#include "tests/support/Certificates.h"
#include "tests/support/Platform.h"
#include "tests/support/TestEnvironment.h"
#include "tests/workers/EveryRequest.h"

#include <QTest>

#include <optional>

using namespace Qt::Literals::StringLiterals;

/// What the workers of a launcher do that is built for http://veyra.test/ when the server sends
/// them to https://.
class TestHttpsRedirects : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_requests.emplace(); }
    void cleanup() { m_requests.reset(); }

    void plainRequestsLoadNoTlsLibrary(); // the first: later ones do
    void redirectToHttpsIsFollowed_data() { addRequests(); }
    void redirectToHttpsIsFollowed();
    void redirectToABadCertificateIsAFailure_data() { addRequests(); }
    void redirectToABadCertificateIsAFailure();
    void redirectToHttpsAndBackIsAFailure_data() { addRequests(); }
    void redirectToHttpsAndBackIsAFailure();

private:
    static void addRequests();
    static QString plain(const WorkerRequest &request);
    /// Has a server with the certificate of this kind say `moved` where the request is sent to.
    EveryRequest::Outcome runAgainst(Certificates::Kind kind, const WorkerRequest &sent,
                                     const HttpAnswer &moved);

    std::optional<EveryRequest> m_requests;
};

void TestHttpsRedirects::addRequests()
{
    if (const QString reason = Certificates::missing(); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    EveryRequest::addRows();
}

QString TestHttpsRedirects::plain(const WorkerRequest &request)
{
    return u"plain http://veyra.test"_s + QString::fromLatin1(request.path);
}

void TestHttpsRedirects::plainRequestsLoadNoTlsLibrary()
{
    if (Platform::isWine()) {
        QSKIP("Under Wine a process that has made plain requests first verifies no certificate "
              "later");
    }
    for (const QString &name : EveryRequest::names()) {
        const WorkerRequest sent = m_requests->named(name);
        const EveryRequest::Outcome outcome = m_requests->run(sent, [this, &sent] {
            m_requests->server.answer(sent.path, HttpAnswer::ok(sent.body));
        });
        QCOMPARE(outcome.reports, sent.success);
    }
    QVERIFY(!Platform::hasLoadedTls());
    if (const QString reason = Certificates::missing(); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    QVERIFY(Platform::hasLoadedTls());
}

EveryRequest::Outcome TestHttpsRedirects::runAgainst(Certificates::Kind kind,
                                                     const WorkerRequest &sent,
                                                     const HttpAnswer &moved)
{
    const Certificates::TrustedAuthority authority;
    HttpServer &server = m_requests->server;
    server.setIdentity(Certificates::identity(kind));
    return m_requests->run(sent, [&] {
        server.answer(sent.path, HttpAnswer::redirect("https://veyra.test/moved"));
        server.answer("/moved", moved);
        server.answer("/back", HttpAnswer::ok(sent.body));
    });
}

void TestHttpsRedirects::redirectToHttpsIsFollowed()
{
    const WorkerRequest sent = m_requests->fetched();
    const EveryRequest::Outcome outcome =
        runAgainst(Certificates::Kind::Good, sent, HttpAnswer::ok(sent.body));
    m_requests->compareSuccess(outcome, sent);
    QCOMPARE(m_requests->targets(), (QStringList{plain(sent), u"encrypted /moved"_s}));
}

void TestHttpsRedirects::redirectToABadCertificateIsAFailure()
{
    const WorkerRequest sent = m_requests->fetched();
    const EveryRequest::Outcome outcome =
        runAgainst(Certificates::Kind::UnknownAuthority, sent, HttpAnswer::ok(sent.body));
    m_requests->compareFailure(outcome, sent);
    QVERIFY(m_requests->server.tunnels().contains("veyra.test:443"));
    QCOMPARE(m_requests->targets(), QStringList{plain(sent)});
}

void TestHttpsRedirects::redirectToHttpsAndBackIsAFailure()
{
    const WorkerRequest sent = m_requests->fetched();
    const EveryRequest::Outcome outcome =
        runAgainst(Certificates::Kind::Good, sent, HttpAnswer::redirect("http://veyra.test/back"));
    m_requests->compareFailure(outcome, sent);
    QCOMPARE(m_requests->targets(), (QStringList{plain(sent), u"encrypted /moved"_s}));
}

VEYRA_CORE_TEST_MAIN(TestHttpsRedirects)
#include "TestHttpsRedirects.moc"
