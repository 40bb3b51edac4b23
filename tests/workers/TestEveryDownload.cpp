#include "tests/support/Archives.h"
#include "tests/support/BackgroundServer.h"
#include "tests/support/BadAnswers.h"
#include "tests/support/Files.h"
#include "tests/support/Introspection.h"
#include "tests/support/MemoryRise.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/TestEnvironment.h"
#include "tests/workers/EveryRequest.h"

#include <QTest>

#include <optional>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr qsizetype kMegabyte = qsizetype{1024} * 1024;
// Enough for a server that has no time to lose: an unbounded reply takes all of kLarge meanwhile.
constexpr auto kBusyTime = 400ms;
constexpr qsizetype kLarge = 96 * kMegabyte;
// What a bounded download may take of that, in MB.
constexpr qint64 kMostMemory = 32;

HttpAnswer redirect(qsizetype bodySize = 0, int code = 302)
{
    HttpAnswer answer = HttpAnswer::redirect("http://mirror.test/moved", code);
    answer.body = QByteArray(bodySize, 'x');
    return answer;
}

} // namespace

/// What may happen to a download, whichever worker it is that has one.
class TestEveryDownload : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_requests.emplace(); }
    void cleanup() { m_requests.reset(); }

    void arrivesWhole_data();
    void arrivesWhole();
    void reportsProgressAsItComes_data() { addRows(); }
    void reportsProgressAsItComes();
    void reportsUnknownSize_data() { addRows(); }
    void reportsUnknownSize();
    void progressTexts_data();
    void progressTexts();
    void busyThreadLetsLittlePileUp_data();
    void busyThreadLetsLittlePileUp();
    void brokenTransferLeavesNothing_data();
    void brokenTransferLeavesNothing();

private:
    static void addRows() { EveryRequest::addRows(EveryRequest::downloadNames()); }

    std::optional<EveryRequest> m_requests;
};

void TestEveryDownload::arrivesWhole_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<HttpAnswer>("moved");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("lastPercent");
    const QByteArray content = Files::noise(300001);
    const QByteArray large = Files::noise(24 * kMegabyte + 7);
    const QByteArray text = Files::noise(5 * kMegabyte).toHex();
    const QByteArray packed = Archives::gzipped(text);
    for (const QString &request : EveryRequest::downloadNames()) {
        const auto row = [&](const char *words, const HttpAnswer &answer, const QByteArray &body,
                             int lastPercent = 100, const HttpAnswer &moved = {}) {
            EveryRequest::newRow(request, words) << answer << moved << body << lastPercent;
        };
        // Once everything is there Qt knows the size of any body but an empty one.
        row("with its length", HttpAnswer::ok(content), content);
        row("in chunks", HttpAnswer::ok(content).chunked(), content);
        row("until the connection ends", HttpAnswer::ok(content).withoutLength(), content);
        row("in small chunks, slowly",
            HttpAnswer::ok(content.left(2000)).chunked().dripped(100, 1ms), content.left(2000));
        row("one byte", HttpAnswer::ok("x"), "x");
        row("nothing at all", HttpAnswer::ok({}), "", -1);
        row("late", HttpAnswer::ok(content).delayed(100ms), content);
        row("of 24 MB with their length", HttpAnswer::ok(large), large);
        row("of 24 MB in chunks", HttpAnswer::ok(large).chunked(), large);
        row("of 24 MB until the connection ends", HttpAnswer::ok(large).withoutLength(), large);

        const auto moved = [&](const char *words, const HttpAnswer &answer) {
            row(words, answer, large, 100, HttpAnswer::ok(large));
        };
        moved("behind a redirect", redirect());
        moved("behind a redirect of 1 MB", redirect(kMegabyte));
        moved("behind a redirect of 5 MB in chunks", redirect(5 * kMegabyte, 307).chunked());
        moved("behind the redirect of a proxy, of 5 MB", redirect(5 * kMegabyte, 305));
        row("packed with gzip", HttpAnswer::ok(packed).header("Content-Encoding", "gzip"), text);
        row("packed with gzip, in chunks",
            HttpAnswer::ok(packed).header("Content-Encoding", "gzip").chunked(), text);
    }
}

void TestEveryDownload::arrivesWhole()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const HttpAnswer, moved);
    QFETCH(const QByteArray, content);
    QFETCH(const int, lastPercent);
    WorkerRequest sent = m_requests->fetched();
    sent.body = content;
    for (const QString &file : {sent.part, sent.file})
        Files::write(file, "an older one, and longer than the shortest"_ba);
    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        m_requests->server.answer(sent.path, answer);
        m_requests->server.answer("/moved", moved);
    });
    m_requests->compareSuccess(outcome, sent);
    const qsizetype rest = sent.success.size() - sent.atOnce.size();
    QCOMPARE(SignalSequence::withoutRepeats(outcome.allReports).last(rest + 1),
             (sent.atOnce + sent.progressAt(lastPercent)).last(1) + sent.success.last(rest));
}

void TestEveryDownload::reportsProgressAsItComes()
{
    const WorkerRequest sent = m_requests->fetched();
    // Qt reports at most ten times a second, for the first time after a tenth.
    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        m_requests->server.answer(sent.path,
                                  HttpAnswer::ok("abc").delayed(150ms).dripped(1, 150ms));
    });
    QCOMPARE(SignalSequence::withoutRepeats(outcome.allReports),
             sent.atOnce + sent.progressAt(33) + sent.progressAt(66) + sent.progressAt(100) +
                 sent.success.sliced(sent.atOnce.size()));
}

void TestEveryDownload::reportsUnknownSize()
{
    const WorkerRequest sent = m_requests->fetched();
    const EveryRequest::Outcome outcome = m_requests->run(sent, [&] {
        m_requests->server.answer(sent.path,
                                  HttpAnswer::ok("abc").chunked().delayed(150ms).dripped(1, 150ms));
    });
    // The last progress is Qt's: with all bytes there, their number is the size.
    const QStringList unknown = sent.progressAt(-1);
    QCOMPARE(outcome.allReports, sent.atOnce + unknown + unknown + unknown + sent.progressAt(100) +
                                     sent.success.sliced(sent.atOnce.size()));
}

void TestEveryDownload::progressTexts_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<qint64>("received");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<int>("percent");
    for (const QString &request : EveryRequest::downloadNames()) {
        const auto row = [&](const char *words, qint64 received, qint64 total, int percent) {
            EveryRequest::newRow(request, words) << received << total << percent;
        };
        row("half of 10 MB", 5242880, 10485760, 50);
        row("a third is cut, not rounded", 1, 3, 33);
        row("two thirds are cut, not rounded", 2, 3, 66);
        row("nothing yet", 0, 10, 0);
        row("one byte of one", 1, 1, 100);
        row("almost all", 999999, 1000000, 99);
        row("more than 2^31 bytes", 3000000000, 6000000000, 50);
        row("a petabyte", 1125899906842623, 1125899906842624, 99);
        row("total 0", 5, 0, -1);
        row("total -1", 5, -1, -1);
    }
}

void TestEveryDownload::progressTexts()
{
    QFETCH(const qint64, received);
    QFETCH(const qint64, total);
    QFETCH(const int, percent);
    const WorkerRequest sent = m_requests->fetched();
    const WorkerRequest::Worker worker = sent.prepare(m_requests->server);
    m_requests->server.answer(sent.path, HttpAnswer::never());
    sent.send(*worker);
    const SignalSequence reports(worker.get());
    QVERIFY(QMetaObject::invokeMethod(worker.get(), sent.progressSlot, Q_ARG(qint64, received),
                                      Q_ARG(qint64, total)));
    QCOMPARE(reports.texts(), sent.progressAt(percent));
}

void TestEveryDownload::busyThreadLetsLittlePileUp_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<HttpAnswer>("moved");
    const QByteArray content = Files::noise(kMegabyte).repeated(kLarge / kMegabyte);
    const HttpAnswer whole = HttpAnswer::ok(content);
    for (const QString &request : EveryRequest::downloadNames()) {
        const auto row = [&](const char *words, const HttpAnswer &answer,
                             const HttpAnswer &moved = {}) {
            EveryRequest::newRow(request, words) << answer << moved;
        };
        row("with its length", whole);
        row("in chunks", HttpAnswer::ok(content).chunked());
        row("behind a redirect", redirect(), whole);
        row("behind a redirect of 1 MB", redirect(kMegabyte), whole);
    }
}

void TestEveryDownload::busyThreadLetsLittlePileUp()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const HttpAnswer, moved);
    const WorkerRequest sent = m_requests->fetched();
    const WorkerRequest::Worker worker = sent.prepare(m_requests->server);
    const BackgroundServer background([&](HttpServer &server) {
        server.answer(sent.path, answer);
        server.answer("/moved", moved);
        server.becomeProxy();
    });
    SignalSequence reports(worker.get());
    const MemoryRise rise;
    qint64 megabytes = -1;
    QByteArray content;
    reports.atEach([&] {
        if (content.isNull() && reports.last() == sent.success.at(sent.atOnce.size())) {
            megabytes = rise.megabytes();
            content = Files::read(sent.file);
        }
    });
    sent.send(*worker);
    const QNetworkReply *reply = Introspection::pendingReply(*worker);
    connect(reply, &QNetworkReply::metaDataChanged, reply,
            [] { QTest::qSleep(int(kBusyTime.count())); });
    QVERIFY(reports.waitUntil([&] { return reports.last() == sent.success.last(); }));
    QVERIFY(content == (moved.body.isEmpty() ? answer : moved).body);
    if (const QString reason = MemoryRise::reasonToSkip(); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    QVERIFY2(megabytes < kMostMemory, qPrintable(QString::number(megabytes)));
}

void TestEveryDownload::brokenTransferLeavesNothing_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<HttpAnswer>("answer");
    const QByteArray content = Files::noise(300000);
    const qint64 half = content.size() / 2;
    const QByteArray large = Files::noise(5 * kMegabyte);
    const QByteArray broken = Archives::brokenGzip(large);
    for (const QString &request : EveryRequest::downloadNames()) {
        const auto row = [&](const char *words, const HttpAnswer &answer) {
            EveryRequest::newRow(request, words) << answer;
        };
        row("cut off after half", HttpAnswer::ok(content).truncatedAfter(half));
        row("reset after half", HttpAnswer::ok(content).resetAfter(half));
        row("in chunks that are cut off after half",
            HttpAnswer::ok(content).chunked().truncatedAfter(half));
        row("in chunks that are reset after half",
            HttpAnswer::ok(content).chunked().resetAfter(half));
        row("404 of 5 MB", HttpAnswer::status(404, large));
        row("401 of 5 MB",
            HttpAnswer::status(401, large).header("WWW-Authenticate", "Basic realm=\"x\""));
        row("a redirect of 5 MB that names no place", HttpAnswer::status(302, large));
        row("a redirect of a proxy, of 5 MB, that names no place", HttpAnswer::status(305, large));
        row("5 MB that only claim to be gzip",
            HttpAnswer::ok(large).header("Content-Encoding", "gzip"));
        row("5 MB of gzip that breaks midway",
            HttpAnswer::ok(broken).header("Content-Encoding", "gzip"));
    }
}

void TestEveryDownload::brokenTransferLeavesNothing()
{
    QFETCH(const HttpAnswer, answer);
    if (const QString reason = BadAnswers::reasonToSkip(answer); !reason.isEmpty())
        QSKIP(qPrintable(reason));
    const WorkerRequest sent = m_requests->fetched();
    const EveryRequest::Outcome outcome =
        m_requests->run(sent, [&] { m_requests->server.answer(sent.path, answer); });
    m_requests->compareFailure(outcome, sent);
}

VEYRA_CORE_TEST_MAIN(TestEveryDownload)
#include "TestEveryDownload.moc"
