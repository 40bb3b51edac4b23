#include "tests/support/Certificates.h"
#include "tests/support/Platform.h"
#include "tests/support/TestEnvironment.h"
#include "tests/workers/EveryRequest.h"

#include <QTest>

#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kMovedToHttps = "https://veyra.test/moved";

} // namespace

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

void TestHttpsRedirects::redirectToHttpsIsFollowed()
{
    QFETCH(const QString, request);
    const WorkerRequest sent = m_requests->named(request);
    HttpServer &server = m_requests->server;
    const Certificates::TrustedAuthority authority;
    server.setIdentity(Certificates::identity(Certificates::Kind::Good));

    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        server.answer(sent.path, HttpAnswer::redirect(kMovedToHttps));
        server.answer("/moved", HttpAnswer::ok(sent.body));
    });
    QCOMPARE(outcome.reports, sent.success);
    QCOMPARE(m_requests->targets(), (QStringList{plain(sent), u"encrypted /moved"_s}));
    if (sent.isDownload())
        QCOMPARE(outcome.content, sent.body);
}

void TestHttpsRedirects::redirectToABadCertificateIsAFailure()
{
    QFETCH(const QString, request);
    const WorkerRequest sent = m_requests->named(request);
    HttpServer &server = m_requests->server;
    const Certificates::TrustedAuthority authority;
    server.setIdentity(Certificates::identity(Certificates::Kind::UnknownAuthority));

    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        server.answer(sent.path, HttpAnswer::redirect(kMovedToHttps));
        server.answer("/moved", HttpAnswer::ok(sent.body));
    });
    QVERIFY(!outcome.errorText.isEmpty());
    QCOMPARE(outcome.reports, sent.failureWith(outcome.errorText));
    QVERIFY(server.tunnels().contains("veyra.test:443"));
    QCOMPARE(m_requests->targets(), QStringList{plain(sent)});
    QCOMPARE(m_requests->filesOnDisk(), QStringList());
}

void TestHttpsRedirects::redirectToHttpsAndBackIsAFailure()
{
    QFETCH(const QString, request);
    const WorkerRequest sent = m_requests->named(request);
    HttpServer &server = m_requests->server;
    const Certificates::TrustedAuthority authority;
    server.setIdentity(Certificates::identity(Certificates::Kind::Good));

    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        server.answer(sent.path, HttpAnswer::redirect(kMovedToHttps));
        server.answer("/moved", HttpAnswer::redirect("http://veyra.test/back"));
        server.answer("/back", HttpAnswer::ok(sent.body));
    });
    QVERIFY(!outcome.errorText.isEmpty());
    QCOMPARE(outcome.reports, sent.failureWith(outcome.errorText));
    QCOMPARE(m_requests->targets(), (QStringList{plain(sent), u"encrypted /moved"_s}));
    QCOMPARE(m_requests->filesOnDisk(), QStringList());
}

VEYRA_CORE_TEST_MAIN(TestHttpsRedirects)
#include "TestHttpsRedirects.moc"
