#include "tests/support/DrivenLauncher.h"
#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/TestEnvironment.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTest>

#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr quint32 kSeed = 20240229;
constexpr int kRounds = 5;
constexpr int kLaunchersAtATime = 4;
// The chain of a fresh installation takes about this long until it verifies.
constexpr int kLatestClose = 3200;
constexpr auto kEndTimeout = 10s;
constexpr qint64 kLargeFile = 16LL * 1024 * 1024 * 1024;

struct Run
{
    std::unique_ptr<DrivenLauncher> launcher;
    int closeAt = 0;
    bool closed = false;
    QElapsedTimer elapsed;
};

} // namespace

/// Closes the window at moments that nobody has chosen, several launchers at a time. The seed is
/// fixed: every run of the test tries the same moments.
class TestRandomClosing : public QObject
{
    Q_OBJECT

private slots:
    void closesAtAnyMoment_data();
    void closesAtAnyMoment();

private:
    void runUntilClosed(std::vector<Run> &runs);
};

void TestRandomClosing::closesAtAnyMoment_data()
{
    QTest::addColumn<QList<int>>("moments");
    QRandomGenerator random(kSeed);
    for (int round = 0; round < kRounds; ++round) {
        QList<int> moments;
        QStringList texts;
        for (int i = 0; i < kLaunchersAtATime; ++i) {
            moments.append(random.bounded(kLatestClose));
            texts.append(QString::number(moments.last()));
        }
        QTest::addRow("after %s ms", qPrintable(texts.join(u", "_s))) << moments;
    }
}

void TestRandomClosing::runUntilClosed(std::vector<Run> &runs)
{
    for (bool allClosed = false; !allClosed; QTest::qWait(1)) {
        allClosed = true;
        for (Run &run : runs) {
            if (!run.closed && run.elapsed.elapsed() >= run.closeAt) {
                run.launcher->ask(u"close"_s);
                run.closed = true;
            }
            allClosed = allClosed && run.closed;
        }
    }
}

void TestRandomClosing::closesAtAnyMoment()
{
    QFETCH(const QList<int>, moments);
    HttpServer server;
    const QTemporaryDir client;
    Files::write(client.filePath(u"DofusInvoker.swf"_s), "client");
    Files::write(client.filePath(u"filling"_s), Files::noise(200000));
    server.answer("/api/status.php", HttpAnswer::ok("{\"online\": true}").delayed(300ms));
    server.answer("/api/news.php", HttpAnswer::ok("[\"Une nouvelle\"]").delayed(700ms));
    server.answer("/api/launcher_version.json",
                  HttpAnswer::ok("{\"version\": \"1.0.0\"}").delayed(100ms));
    server.answer("/client/DofusClient.zip",
                  HttpAnswer::ok(Files::zipped(client.path())).dripped(10000, 20ms));
    server.answer("/updates/version.json",
                  HttpAnswer::ok(R"({"files": [{"name": "large", "hash": "0"}]})").delayed(100ms));

    std::vector<Run> runs;
    for (const int moment : moments) {
        Run run;
        run.launcher = std::make_unique<DrivenLauncher>(server);
        run.closeAt = moment;
        const QString large = run.launcher->clientFolder() + u"/large"_s;
        Files::write(large, {});
        QVERIFY(QFile::resize(large, kLargeFile));
        QVERIFY(run.launcher->start());
        run.elapsed.start();
        runs.push_back(std::move(run));
    }
    runUntilClosed(runs);
    for (const Run &run : runs) {
        QVERIFY(run.launcher->waitForEnd(kEndTimeout));
        QCOMPARE(run.launcher->faultsOfItsEnd(), QString());
    }
}

VEYRA_CORE_TEST_MAIN(TestRandomClosing)
#include "TestRandomClosing.moc"
