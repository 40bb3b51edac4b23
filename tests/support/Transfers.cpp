#include "tests/support/Transfers.h"

#include "tests/support/Archives.h"
#include "tests/support/BadAnswers.h"
#include "tests/support/Files.h"
#include "tests/support/MemoryRise.h"

#include <QNetworkReply>
#include <QTest>

using namespace std::chrono_literals;

namespace {

constexpr qsizetype kMegabyte = qsizetype{1024} * 1024;
// Enough for a server that has no time to lose: an unbounded reply takes all of kLarge meanwhile.
constexpr auto kBusyTime = 400ms;
constexpr qsizetype kLarge = 96 * kMegabyte;

HttpAnswer redirect(qsizetype bodySize = 0, int code = 302)
{
    HttpAnswer answer = HttpAnswer::redirect("http://mirror.test/moved", code);
    answer.body = QByteArray(bodySize, 'x');
    return answer;
}

} // namespace

void Transfers::addWhole()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<HttpAnswer>("moved");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("lastPercent");
    const QByteArray content = Files::noise(300001);
    const QByteArray large = Files::noise(24 * kMegabyte + 7);
    const auto row = [](const char *name, const HttpAnswer &answer, const QByteArray &body,
                        int lastPercent = 100) {
        QTest::newRow(name) << answer << HttpAnswer() << body << lastPercent;
    };
    const auto moved = [&large](const char *name, const HttpAnswer &answer) {
        QTest::newRow(name) << answer << HttpAnswer::ok(large) << large << 100;
    };
    // Once everything is there Qt knows the size of any body but an empty one.
    row("with its length", HttpAnswer::ok(content), content);
    row("in chunks", HttpAnswer::ok(content).chunked(), content);
    row("until the connection ends", HttpAnswer::ok(content).withoutLength(), content);
    row("in small chunks, slowly", HttpAnswer::ok(content.left(2000)).chunked().dripped(100, 1ms),
        content.left(2000));
    row("one byte", HttpAnswer::ok("x"), "x");
    row("nothing at all", HttpAnswer::ok({}), {}, -1);
    row("late", HttpAnswer::ok(content).delayed(100ms), content);
    row("24 MB with their length", HttpAnswer::ok(large), large);
    row("24 MB in chunks", HttpAnswer::ok(large).chunked(), large);
    row("24 MB until the connection ends", HttpAnswer::ok(large).withoutLength(), large);

    moved("behind a redirect", redirect());
    moved("behind a redirect of 1 MB", redirect(kMegabyte));
    moved("behind a redirect of 5 MB in chunks", redirect(5 * kMegabyte, 307).chunked());
    moved("behind the redirect of a proxy, of 5 MB", redirect(5 * kMegabyte, 305));
    const QByteArray text = Files::noise(5 * kMegabyte).toHex();
    row("packed with gzip",
        HttpAnswer::ok(Archives::gzipped(text)).header("Content-Encoding", "gzip"), text);
    row("packed with gzip, in chunks",
        HttpAnswer::ok(Archives::gzipped(text)).header("Content-Encoding", "gzip").chunked(), text);
}

void Transfers::addFailures(const QByteArray &content)
{
    BadAnswers::addFailures(content);
    const auto row = [](const char *name, const HttpAnswer &answer) {
        QTest::newRow(name) << answer << BadAnswers::reasonToSkip(answer);
    };
    const qint64 half = content.size() / 2;
    row("cut off after half", HttpAnswer::ok(content).truncatedAfter(half));
    row("reset after half", HttpAnswer::ok(content).resetAfter(half));
    row("chunks that are cut off after half",
        HttpAnswer::ok(content).chunked().truncatedAfter(half));
    row("chunks that are reset after half", HttpAnswer::ok(content).chunked().resetAfter(half));

    const QByteArray large = Files::noise(5 * kMegabyte);
    row("404 of 5 MB", HttpAnswer::status(404, large));
    row("401 of 5 MB",
        HttpAnswer::status(401, large).header("WWW-Authenticate", "Basic realm=\"x\""));
    row("a redirect of 5 MB that names no place", HttpAnswer::status(302, large));
    row("a redirect of a proxy, of 5 MB, that names no place", HttpAnswer::status(305, large));
    row("5 MB that only claim to be gzip",
        HttpAnswer::ok(large).header("Content-Encoding", "gzip"));
    row("5 MB of gzip that breaks midway",
        HttpAnswer::ok(Archives::brokenGzip(large)).header("Content-Encoding", "gzip"));
}

void Transfers::addProgress()
{
    QTest::addColumn<qint64>("received");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<int>("percent");
    const auto row = [](const char *name, qint64 received, qint64 total, int percent) {
        QTest::newRow(name) << received << total << percent;
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

void Transfers::addLarge()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<HttpAnswer>("moved");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("skip");
    const QByteArray content = Files::noise(kMegabyte).repeated(kLarge / kMegabyte);
    const auto row = [&content](const char *name, const HttpAnswer &answer,
                                const HttpAnswer &moved = {}) {
        QTest::newRow(name) << answer << moved << content << MemoryRise::reasonToSkip();
    };
    row("with its length", HttpAnswer::ok(content));
    row("in chunks", HttpAnswer::ok(content).chunked());
    row("behind a redirect", redirect(), HttpAnswer::ok(content));
    row("behind a redirect of 1 MB", redirect(kMegabyte), HttpAnswer::ok(content));
}

void Transfers::beBusyAtEachHead(QNetworkReply *reply)
{
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply,
                     [] { QTest::qSleep(int(kBusyTime.count())); });
}
