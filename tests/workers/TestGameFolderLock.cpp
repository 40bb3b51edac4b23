#include "config/Config.h"
#include "install/ClientDownloader.h"
#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/SearchPath.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QLockFile>
#include <QSignalSpy>
#include <QTest>

#include <functional>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kPath = "/client/DofusClient.zip";
const auto kLockName = u".DofusClient.zip.lock"_s;

} // namespace

/// Of several ClientDownloaders, in one launcher or in many, one installs into a game folder at a
/// time.
class TestGameFolderLock : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void isHeldUntilTheUnpackingHasEnded();
    void isFreeAfterwards_data();
    void isFreeAfterwards();
    void aTakenFolderIsLeftAlone();
    void otherFoldersAreFree();
    void aDeadLockIsNoObstacle();
    void aDeadLockIsRemovedByOneAtATime();

private:
    bool isFree() const
    {
        QLockFile lock(m_gamePath + u'/' + kLockName);
        return lock.tryLock(0) || lock.error() != QLockFile::LockFailedError;
    }

    HttpServer m_server;
    std::optional<QTemporaryDir> m_folder;
    QString m_gamePath;
    std::optional<SearchPath> m_programs;
};

void TestGameFolderLock::init()
{
    m_server.clear();
    m_server.becomeProxy();
    m_server.answer(kPath, HttpAnswer::ok("archive"));
    m_folder.emplace();
    m_gamePath = m_folder->filePath(u"Jeux vidéo"_s);
    Config::instance().setDofusPath(m_gamePath);
    m_programs.emplace();
    m_programs->addStandIn(u"powershell"_s, {.created = {m_gamePath + u"/DofusInvoker.swf"_s}});
}

void TestGameFolderLock::cleanup()
{
    m_programs.reset();
    m_folder.reset();
}

void TestGameFolderLock::isHeldUntilTheUnpackingHasEnded()
{
    ClientDownloader downloader(nullptr);
    QStringList states;
    const auto note = [this, &states](const QString &moment) {
        states.append(moment + (isFree() ? u" free"_s : u" held"_s));
    };
    connect(&downloader, &ClientDownloader::downloadFinished, this, [&note] { note(u"loaded"_s); });
    connect(&downloader, &ClientDownloader::extractionStarted, this,
            [&note] { note(u"unpacking"_s); });
    connect(&downloader, &ClientDownloader::extractionFinished, this,
            [&note] { note(u"unpacked"_s); });
    QSignalSpy ended(&downloader, &ClientDownloader::extractionFinished);
    downloader.startDownload();
    note(u"started"_s);
    QTRY_COMPARE(ended.size(), 1);
    QVERIFY(ended.first().first().toBool());
    QCOMPARE(states, (QStringList{u"started held"_s, u"loaded held"_s, u"unpacking held"_s,
                                  u"unpacked free"_s}));
    QCOMPARE(Files::tree(m_gamePath), QStringList{u"DofusInvoker.swf"_s});
}

using Downloader = std::unique_ptr<ClientDownloader>;

void TestGameFolderLock::isFreeAfterwards_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<StandIn::Behaviour>("unpacker");
    QTest::addColumn<std::function<void(Downloader &)>>("end"); // none: it ends by itself
    const auto archive = HttpAnswer::ok("archive");
    const auto half = HttpAnswer::ok("archive").heldAfter(3);
    const StandIn::Behaviour hanging{.hangs = true};
    const std::function<void(Downloader &)> none;
    const auto cancel = [](Downloader &downloader) { downloader->cancel(); };
    const auto destroy = [](Downloader &downloader) { downloader.reset(); };

    QTest::newRow("the transfer has failed") << HttpAnswer::status(404) << hanging << none;
    QTest::newRow("the unpacker has failed")
        << archive << StandIn::Behaviour{.exitCode = 3} << none;
    QTest::newRow("there was no client in the archive") << archive << StandIn::Behaviour{} << none;
    QTest::newRow("cancelled during the download")
        << half << hanging << std::function<void(Downloader &)>(cancel);
    QTest::newRow("cancelled during the unpacking")
        << archive << hanging << std::function<void(Downloader &)>(cancel);
    QTest::newRow("destroyed during the download")
        << half << hanging << std::function<void(Downloader &)>(destroy);
    QTest::newRow("destroyed during the unpacking")
        << archive << hanging << std::function<void(Downloader &)>(destroy);
}

void TestGameFolderLock::isFreeAfterwards()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const StandIn::Behaviour, unpacker);
    QFETCH(const std::function<void(Downloader &)>, end);
    m_server.answer(kPath, answer);
    m_programs->addStandIn(u"powershell"_s, unpacker);
    auto downloader = std::make_unique<ClientDownloader>(nullptr);
    int failures = 0;
    bool wasFree = false;
    const auto noteFailure = [this, &failures, &wasFree](bool success) {
        failures += success ? 0 : 1;
        wasFree = isFree();
    };
    connect(downloader.get(), &ClientDownloader::downloadFinished, this, noteFailure);
    connect(downloader.get(), &ClientDownloader::extractionFinished, this, noteFailure);
    downloader->startDownload();
    QVERIFY(!isFree());

    if (end) {
        const bool isUnpacking = answer.holdAt < 0;
        QTRY_COMPARE(m_server.requestCount(kPath), 1);
        if (isUnpacking)
            QTRY_COMPARE(m_programs->startsOf(u"powershell"_s).size(), 1);
        QVERIFY(!isFree());
        end(downloader);
        QVERIFY(isFree());
    } else {
        QTRY_COMPARE(failures, 1);
        QVERIFY(wasFree); // already when the failure is reported
    }
    QVERIFY(!QFile::exists(m_gamePath + u'/' + kLockName));
}

void TestGameFolderLock::aTakenFolderIsLeftAlone()
{
    constexpr qint64 kHeldAt = 100'000; // more than stays in a buffer
    m_server.answer(kPath, HttpAnswer::ok(Files::noise(2 * kHeldAt)).heldAfter(kHeldAt));
    ClientDownloader first(nullptr);
    QSignalSpy installed(&first, &ClientDownloader::extractionFinished);
    first.startDownload();
    const QString archive = m_gamePath + u"/DofusClient.zip"_s;
    QTRY_VERIFY(QFileInfo(archive).size() > 0);

    ClientDownloader second(nullptr);
    QSignalSpy refused(&second, &ClientDownloader::downloadFinished);
    QSignalSpy progress(&second, &ClientDownloader::progressChanged);
    second.startDownload();
    QCOMPARE(refused.size(), 1);
    QCOMPARE(refused.first(),
             (QVariantList{false, u"Erreur: Impossible de créer le fichier %1"_s.arg(archive)}));
    QCOMPARE(progress.size(), 0);
    second.cancel();
    QVERIFY(QFileInfo(archive).size() > 0);
    QVERIFY(!isFree());

    m_server.release(kPath);
    QTRY_COMPARE(installed.size(), 1);
    QVERIFY(installed.first().first().toBool());
    // Now it is the other one's turn.
    second.startDownload();
    QCOMPARE(refused.size(), 1);
    QVERIFY(!isFree());
}

void TestGameFolderLock::otherFoldersAreFree()
{
    m_server.answer(kPath, HttpAnswer::never());
    ClientDownloader first(nullptr);
    first.startDownload();
    const QString otherPath = m_folder->filePath(u"ailleurs"_s);
    Config::instance().setDofusPath(otherPath);
    ClientDownloader second(nullptr);
    QSignalSpy refused(&second, &ClientDownloader::downloadFinished);
    second.startDownload();
    QCOMPARE(refused.size(), 0);
    QVERIFY(QFile::exists(otherPath + u"/DofusClient.zip"_s));
}

/// Left by a power cut; as old as it is, it would be respected for ever.
void TestGameFolderLock::aDeadLockIsNoObstacle()
{
    Files::write(m_gamePath + u'/' + kLockName, {});
    ClientDownloader downloader(nullptr);
    QSignalSpy installed(&downloader, &ClientDownloader::extractionFinished);
    downloader.startDownload();
    QTRY_COMPARE(installed.size(), 1);
    QVERIFY(installed.first().first().toBool());
    QCOMPARE(Files::tree(m_gamePath), QStringList{u"DofusInvoker.swf"_s});
}

/// Else the second would remove the lock that the first has taken meanwhile.
void TestGameFolderLock::aDeadLockIsRemovedByOneAtATime()
{
    const QString deadLock = m_gamePath + u'/' + kLockName;
    Files::write(deadLock, {});
    ClientDownloader downloader(nullptr);
    QSignalSpy refused(&downloader, &ClientDownloader::downloadFinished);
    QSignalSpy installed(&downloader, &ClientDownloader::extractionFinished);
    QLockFile removing(deadLock + u".rmlock"_s);
    QVERIFY(removing.tryLock(0));
    downloader.startDownload();
    QCOMPARE(refused.size(), 1);
    QCOMPARE(refused.first().first(), false);
    QVERIFY(QFile::exists(deadLock));

    removing.unlock();
    downloader.startDownload();
    QTRY_COMPARE(installed.size(), 1);
    QVERIFY(installed.first().first().toBool());
}

VEYRA_CORE_TEST_MAIN(TestGameFolderLock)
#include "TestGameFolderLock.moc"
