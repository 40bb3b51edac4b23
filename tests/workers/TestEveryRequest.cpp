#include "config/Config.h"
#include "install/ClientDownloader.h"
#include "net/NewsFetcher.h"
#include "net/ServerChecker.h"
#include "tests/support/BadAnswers.h"
#include "tests/support/Introspection.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/workers/EveryRequest.h"
#include "update/SelfUpdater.h"
#include "update/Updater.h"

#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>

#include <optional>
#include <type_traits>

using namespace Qt::Literals::StringLiterals;

namespace {

using MakeWorker = QObject *(*)(QObject *parent);

template <typename Worker> QObject *make(QObject *parent)
{
    static_assert(!std::is_default_constructible_v<Worker>);
    return new Worker(parent);
}

} // namespace

/// What holds for every worker that asks a server for something, and for all that they ask for.
class TestEveryRequest : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_requests.emplace(); }
    void cleanup() { m_requests.reset(); }

    void newWorkerIsIdle_data();
    void newWorkerIsIdle();
    void requestIsPlain_data() { EveryRequest::addRows(); }
    void requestIsPlain();
    void redirectsAreFollowed_data() { EveryRequest::addRows(); }
    void redirectsAreFollowed();
    void badAnswerIsAFailure_data();
    void badAnswerIsAFailure();
    void unreachableServerIsAFailure_data() { EveryRequest::addRows(); }
    void unreachableServerIsAFailure();
    void nonsenseIsNoJson_data();
    void nonsenseIsNoJson();
    void replyIsGoneAfterItsEnd_data();
    void replyIsGoneAfterItsEnd();
    void workerMayBeDestroyedMeanwhile_data();
    void workerMayBeDestroyedMeanwhile();

private:
    std::optional<EveryRequest> m_requests;
};

void TestEveryRequest::newWorkerIsIdle_data()
{
    QTest::addColumn<MakeWorker>("make");
    QTest::addColumn<QByteArrayList>("children");
    const QByteArrayList manager{"QNetworkAccessManager"};
    QTest::newRow("the server checker")
        << MakeWorker(make<ServerChecker>) << manager + QByteArrayList{"QTimer"};
    QTest::newRow("the news fetcher") << MakeWorker(make<NewsFetcher>) << manager;
    QTest::newRow("the self-updater") << MakeWorker(make<SelfUpdater>) << manager;
    QTest::newRow("the client downloader") << MakeWorker(make<ClientDownloader>) << manager;
    QTest::newRow("the updater") << MakeWorker(make<Updater>) << manager;
}

void TestEveryRequest::newWorkerIsIdle()
{
    QFETCH(const MakeWorker, make);
    QObject parent;
    const QObject *worker = make(&parent);
    QCOMPARE(worker->parent(), &parent);
    QCOMPARE(worker->metaObject()->superClass(), &QObject::staticMetaObject);
    QByteArrayList children;
    for (const QObject *child : worker->children())
        children.append(child->metaObject()->className());
    QTEST(children, "children");
    QCOMPARE(worker->findChildren<QNetworkReply *>().size(), 0);
    waitForStragglers();
    QCOMPARE(m_requests->server.requests().size(), 0);
    QVERIFY(!QDir(Config::instance().dofusPath()).exists());
    QCOMPARE(m_requests->filesOnDisk(), QStringList());
}

void TestEveryRequest::requestIsPlain()
{
    const WorkerRequest sent = m_requests->fetched();
    const WorkerRequest::Worker worker = sent.prepare(m_requests->server);
    m_requests->server.clear();
    SignalSequence reports(worker.get());
    sent.send(*worker);
    QCOMPARE(reports.texts(), sent.atOnce);
    QVERIFY(!sent.isDownload() || QFile::exists(sent.part));
    const QPointer<QNetworkReply> reply = Introspection::pendingReply(*worker);
    QVERIFY(reply);
    QCOMPARE(reply->operation(), QNetworkAccessManager::GetOperation);
    QCOMPARE(Introspection::traits(reply->request()), sent.traits);

    QTRY_VERIFY(!reply);
    QCOMPARE(m_requests->targets(),
             QStringList{u"plain http://veyra.test"_s + QString::fromLatin1(sent.path)});
    QCOMPARE(m_requests->server.requests().size(), 1);
    QCOMPARE(m_requests->server.requests().first().method, "GET"_ba);
}

void TestEveryRequest::redirectsAreFollowed()
{
    const WorkerRequest sent = m_requests->fetched();
    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        m_requests->server.answer(sent.path, HttpAnswer::redirect("/moved", 301));
        m_requests->server.answer("/moved", HttpAnswer::redirect("http://veyra.test/away", 302));
        m_requests->server.answer("/away", HttpAnswer::redirect("/there", 308));
        m_requests->server.answer("/there", HttpAnswer::ok(sent.body));
    });
    m_requests->compareSuccess(outcome, sent);
    QStringList expected;
    for (const QByteArray &path : {sent.path, "/moved"_ba, "/away"_ba, "/there"_ba})
        expected.append(u"plain http://veyra.test"_s + QString::fromLatin1(path));
    QCOMPARE(m_requests->targets(), expected);
}

void TestEveryRequest::badAnswerIsAFailure_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<HttpAnswer>("answer");
    const EveryRequest requests;
    for (const QString &request : EveryRequest::names()) {
        for (const auto &[words, answer] : BadAnswers::failures(requests.named(request).body))
            EveryRequest::newRow(request, words) << answer;
    }
}

void TestEveryRequest::badAnswerIsAFailure()
{
    QFETCH(const HttpAnswer, answer);
    if (const QString reason = BadAnswers::reasonToSkip(answer); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    const WorkerRequest sent = m_requests->fetched();
    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        m_requests->server.answer(sent.path, answer);
        BadAnswers::loopAt(m_requests->server);
    });
    m_requests->compareFailure(outcome, sent);
}

void TestEveryRequest::unreachableServerIsAFailure()
{
    const WorkerRequest sent = m_requests->fetched();
    const EveryRequest::Outcome outcome =
        m_requests->run(sent, [this] { m_requests->server.stopListening(); });
    m_requests->compareFailure(outcome, sent);
}

void TestEveryRequest::nonsenseIsNoJson_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<HttpAnswer>("answer");
    const EveryRequest requests;
    const QList<BadAnswers::NamedAnswer> answers = BadAnswers::brokenJson();
    for (const QString &request : EveryRequest::names()) {
        if (requests.named(request).nonsense.isEmpty())
            continue;
        for (const auto &[words, answer] : answers)
            EveryRequest::newRow(request, words) << answer;
    }
}

void TestEveryRequest::nonsenseIsNoJson()
{
    QFETCH(const HttpAnswer, answer);
    const WorkerRequest sent = m_requests->fetched();
    const EveryRequest::Outcome outcome =
        m_requests->run(sent, [&] { m_requests->server.answer(sent.path, answer); });
    QCOMPARE(outcome.reports, sent.nonsense);
}

void TestEveryRequest::replyIsGoneAfterItsEnd_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<HttpAnswer>("answer");
    const EveryRequest requests;
    for (const QString &request : EveryRequest::names()) {
        EveryRequest::newRow(request, "a good answer")
            << HttpAnswer::ok(requests.named(request).body);
        EveryRequest::newRow(request, "an array") << HttpAnswer::ok("[]");
        EveryRequest::newRow(request, "an error") << HttpAnswer::status(500);
    }
}

void TestEveryRequest::replyIsGoneAfterItsEnd()
{
    QFETCH(const HttpAnswer, answer);
    const WorkerRequest sent = m_requests->fetched();
    const WorkerRequest::Worker worker = sent.prepare(m_requests->server);
    m_requests->server.answer(sent.path, answer);
    sent.send(*worker);
    const QPointer<QNetworkReply> reply = Introspection::pendingReply(*worker);
    QVERIFY(reply);
    QTRY_VERIFY(!reply);
    QCOMPARE(worker->findChildren<QNetworkReply *>().size(), 0);
}

void TestEveryRequest::workerMayBeDestroyedMeanwhile_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<bool>("within");
    for (const QString &request : EveryRequest::names()) {
        EveryRequest::newRow(request, "before the answer") << false;
        EveryRequest::newRow(request, "within the answer") << true;
    }
}

void TestEveryRequest::workerMayBeDestroyedMeanwhile()
{
    QFETCH(const bool, within);
    const WorkerRequest sent = m_requests->fetched();
    WorkerRequest::Worker worker = sent.prepare(m_requests->server);
    const HttpAnswer half = HttpAnswer::ok(sent.body).heldAfter(sent.body.size() / 2);
    m_requests->server.answer(sent.path, within ? half : HttpAnswer::never());
    SignalSequence reports(worker.get());
    sent.send(*worker);
    const QSignalSpy arrived(Introspection::pendingReply(*worker), &QNetworkReply::readyRead);
    QTRY_COMPARE(m_requests->server.requestCount(sent.path), 1);
    QTRY_VERIFY(!within || !arrived.isEmpty());
    worker.reset();
    waitForStragglers();
    QCOMPARE(sent.withoutProgress(reports.texts()), sent.atOnce);
}

VEYRA_CORE_TEST_MAIN(TestEveryRequest)
#include "TestEveryRequest.moc"
