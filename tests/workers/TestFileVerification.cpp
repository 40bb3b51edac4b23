#include "update/Updater.h"

#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/MemoryRise.h"
#include "tests/support/Platform.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFutureWatcher>
#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QRunnable>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QThreadPool>

#include <memory>
#include <optional>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kUpToDate = u"progressChanged(100, \"Tous les fichiers sont à jour\")"_s;
const auto kFinished = u"finished(true, \"Prêt à jouer !\")"_s;

QString announced(qsizetype count)
{
    return u"progressChanged(0, \"Vérification de %1 fichiers...\")"_s.arg(count);
}

QString verified(int percent, int current, int total)
{
    return u"progressChanged(%1, \"Vérification des fichiers: %2/%3\")"_s.arg(percent)
        .arg(current)
        .arg(total);
}

QString differing(int count)
{
    return u"progressChanged(100, \"%1 fichier(s) à mettre à jour (désactivé)\")"_s.arg(count);
}

QJsonObject entry(const QString &name, const QString &hash)
{
    return {{u"name"_s, name}, {u"hash"_s, hash}};
}

/// Keeps the one thread of the pool busy until it is told otherwise.
class BusyPool
{
public:
    BusyPool()
        : m_threads(QThreadPool::globalInstance()->maxThreadCount())
    {
        QThreadPool::globalInstance()->setMaxThreadCount(1);
        QThreadPool::globalInstance()->start(QRunnable::create([this] { m_mayEnd.acquire(); }));
    }
    ~BusyPool()
    {
        release();
        QThreadPool::globalInstance()->waitForDone();
        QThreadPool::globalInstance()->setMaxThreadCount(m_threads);
    }
    Q_DISABLE_COPY_MOVE(BusyPool)

    void release() { m_mayEnd.release(); }

private:
    int m_threads;
    QSemaphore m_mayEnd;
};

} // namespace

class TestFileVerification : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void hashesAFile_data();
    void hashesAFile();
    void hashOfWhatCannotBeOpenedIsNull();

    void threeMatchingFiles();
    void oneOfThreeIsMissing();
    void noFilesAtAll();
    void percentagesAreCut_data();
    void percentagesAreCut();
    void thousandFiles();
    void judgesAnEntry_data();
    void judgesAnEntry();
    void elementsThatAreNoObjectsAreUpToDate();
    void largeFile();
    void largeFileTakesLittleMemory();

    void worksOnThePoolAndReportsOnThisThread();
    void secondRunAfterTheFirst();
    void secondRunWhileTheFirstIsWaiting();
    void secondRunWhileTheFirstIsRunning();
    void secondRunFromWithinAProgressReport();
    void ownsOneWatcherAtATime();
    void watcherGoesWithTheUpdater();
    // The last: it cannot be taken back.
    void abandonedVerificationEndsAtOnce();

private:
    QString game(const QString &name) const { return m_folder->filePath(name); }
    QJsonArray threeFiles();
    /// A large file that takes no room on the disk.
    void makeZeros(const QString &name, qint64 megabytes);

    HttpServer m_server;
    std::optional<QTemporaryDir> m_folder;
};

void TestFileVerification::initTestCase()
{
    m_server.becomeProxy();
    // On a machine with one processor the pool has one thread, and nothing runs beside another.
    QThreadPool::globalInstance()->setMaxThreadCount(4);
}

void TestFileVerification::init()
{
    m_server.clear();
    m_folder.emplace();
}

void TestFileVerification::cleanup()
{
    QThreadPool::globalInstance()->waitForDone();
    m_folder.reset();
    QCOMPARE(m_server.requests().size(), 0); // a verification never fetches anything
}

QJsonArray TestFileVerification::threeFiles()
{
    QJsonArray files;
    for (const QString &name : {u"a.txt"_s, u"données/été 1.d2p"_s, u"c/c/c.swf"_s}) {
        Files::write(game(name), name.toUtf8());
        files.append(entry(name, Files::sha256(name.toUtf8())));
    }
    return files;
}

void TestFileVerification::makeZeros(const QString &name, qint64 megabytes)
{
    QFile file(game(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.resize(megabytes * 1024 * 1024));
}

void TestFileVerification::hashesAFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("hash");
    QTest::newRow("an empty file")
        << ""_ba << u"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"_s;
    QTest::newRow("three letters")
        << "abc"_ba << u"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_s;
    QTest::newRow("a line end stays as it is") << "a\r\n"_ba << Files::sha256("a\r\n");
    QTest::newRow("a million times a")
        << QByteArray(1000000, 'a')
        << u"cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"_s;
}

void TestFileVerification::hashesAFile()
{
    QFETCH(const QByteArray, content);
    Files::write(game(u"file"_s), content);
    QTEST(Updater::calculateFileHash(game(u"file"_s)), "hash");
}

void TestFileVerification::hashOfWhatCannotBeOpenedIsNull()
{
    QVERIFY(Updater::calculateFileHash(game(u"missing"_s)).isNull());
    QVERIFY(Updater::calculateFileHash(m_folder->path()).isNull());
    QVERIFY(Updater::calculateFileHash(m_folder->path() + u'/').isNull());
    QVERIFY(Updater::calculateFileHash(QString()).isNull());
    Files::write(game(u"file"_s), "x");
    QVERIFY(Updater::calculateFileHash(game(u"file/below"_s)).isNull());
}

void TestFileVerification::threeMatchingFiles()
{
    const QJsonArray files = threeFiles();
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground(files, m_folder->path());
    QCOMPARE(reports.texts(), QStringList{announced(3)});
    QVERIFY(reports.waitFor(u"finished"_s));
    waitForStragglers();
    QCOMPARE(reports.texts(), (QStringList{announced(3), verified(33, 1, 3), verified(66, 2, 3),
                                           verified(100, 3, 3), kUpToDate, kFinished}));
}

void TestFileVerification::oneOfThreeIsMissing()
{
    const QJsonArray files = threeFiles();
    QVERIFY(QFile::remove(game(u"données/été 1.d2p"_s)));
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground(files, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    waitForStragglers();
    QCOMPARE(reports.texts(), (QStringList{announced(3), verified(33, 1, 3), verified(66, 2, 3),
                                           verified(100, 3, 3), differing(1), kFinished}));
}

void TestFileVerification::noFilesAtAll()
{
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground({}, m_folder->path());
    QCOMPARE(reports.texts(), QStringList{announced(0)});
    QVERIFY(reports.waitFor(u"finished"_s));
    waitForStragglers();
    QCOMPARE(reports.texts(), (QStringList{announced(0), kUpToDate, kFinished}));
}

void TestFileVerification::percentagesAreCut_data()
{
    QTest::addColumn<QList<int>>("percentages");
    QTest::newRow("one file") << QList<int>{100};
    QTest::newRow("two files") << QList<int>{50, 100};
    QTest::newRow("three files") << QList<int>{33, 66, 100};
    QTest::newRow("six files") << QList<int>{16, 33, 50, 66, 83, 100};
    QTest::newRow("seven files") << QList<int>{14, 28, 42, 57, 71, 85, 100};
}

void TestFileVerification::percentagesAreCut()
{
    QFETCH(const QList<int>, percentages);
    const int total = int(percentages.size());
    QJsonArray files;
    QStringList expected{announced(total)};
    for (int i = 0; i < total; ++i) {
        files.append(entry(u"missing"_s, u"0"_s));
        expected.append(verified(percentages.at(i), i + 1, total));
    }
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground(files, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(reports.texts(), expected + QStringList({differing(total), kFinished}));
}

void TestFileVerification::thousandFiles()
{
    QJsonArray files;
    QStringList expected{announced(1000)};
    for (int i = 0; i < 1000; ++i) {
        const QString name = u"d%1/f%2"_s.arg(i / 100).arg(i);
        Files::write(game(name), QByteArray::number(i));
        // Every tenth differs.
        files.append(entry(name, Files::sha256(QByteArray::number(i % 10 == 0 ? -1 : i))));
        expected.append(verified((i + 1) / 10, i + 1, 1000));
    }
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground(files, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(reports.texts(), expected + QStringList({differing(100), kFinished}));
}

void TestFileVerification::judgesAnEntry_data()
{
    QTest::addColumn<QString>("file"); // made with the content "abc" when it is named
    QTest::addColumn<QJsonObject>("files");
    QTest::addColumn<bool>("upToDate");

    const QString hash = Files::sha256("abc");
    const auto row = [](const char *name, const QString &file, const QJsonObject &object, bool ok) {
        QTest::newRow(name) << file << object << ok;
    };
    row("the right hash", u"a"_s, entry(u"a"_s, hash), true);
    row("another hash", u"a"_s, entry(u"a"_s, Files::sha256("abd")), false);
    row("a hash in upper case never matches", u"a"_s, entry(u"a"_s, hash.toUpper()), false);
    row("a hash with a blank", u"a"_s, entry(u"a"_s, hash + u' '), false);
    row("half a hash", u"a"_s, entry(u"a"_s, hash.left(32)), false);
    row("a file without hash", u"a"_s, {{u"name"_s, u"a"_s}}, false);
    row("a file with an empty hash", u"a"_s, entry(u"a"_s, u""_s), false);
    row("a hash of another type", u"a"_s, {{u"name"_s, u"a"_s}, {u"hash"_s, 7}}, false);
    row("a missing file", {}, entry(u"a"_s, hash), false);
    row("a missing file without hash", {}, {{u"name"_s, u"a"_s}}, true);
    row("neither name nor hash", u"a"_s, {}, true);
    row("other keys only", u"a"_s, {{u"size"_s, 3}}, true);
    row("a hash without name", u"a"_s, {{u"hash"_s, hash}}, false);
    row("a name of another type", u"a"_s, {{u"name"_s, 1}, {u"hash"_s, hash}}, false);
    row("a folder in the file's place", u"a/b"_s, entry(u"a"_s, hash), false);
    row("a folder without hash", u"a/b"_s, entry(u"a"_s, u""_s), true);
    row("a file in a sub-folder", u"a/b/c"_s, entry(u"a/b/c"_s, hash), true);
    row("a name with an accent and blanks", u"à l'été/n° 1.txt"_s,
        entry(u"à l'été/n° 1.txt"_s, hash), true);
    row("a name with percent signs", u"100%41 %1.txt"_s, entry(u"100%41 %1.txt"_s, hash), true);
    row("a name that begins with a slash", u"a"_s, entry(u"/a"_s, hash), true);
#ifdef Q_OS_WIN
    constexpr bool throughNowhere = true; // Windows follows names, not folders
#else
    constexpr bool throughNowhere = false;
#endif
    row("a name that goes up and down", u"a"_s, entry(u"./x/../a"_s, hash), throughNowhere);
    row("a name that goes up and down through a folder", u"x/a"_s, entry(u"x/../x/a"_s, hash),
        true);
    row("keys in another case do not count", u"a"_s, {{u"Name"_s, u"a"_s}, {u"HASH"_s, hash}},
        true);
}

void TestFileVerification::judgesAnEntry()
{
    QFETCH(const QString, file);
    QFETCH(const QJsonObject, files);
    QFETCH(const bool, upToDate);
    if (!file.isEmpty())
        Files::write(game(file), "abc");
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground({files}, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(reports.texts(), (QStringList{announced(1), verified(100, 1, 1),
                                           upToDate ? kUpToDate : differing(1), kFinished}));
}

void TestFileVerification::elementsThatAreNoObjectsAreUpToDate()
{
    const QJsonArray files{u"a.txt"_s, 7, true, QJsonValue(), QJsonArray{1, 2}};
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground(files, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(reports.texts(),
             (QStringList{announced(5), verified(20, 1, 5), verified(40, 2, 5), verified(60, 3, 5),
                          verified(80, 4, 5), verified(100, 5, 5), kUpToDate, kFinished}));
}

void TestFileVerification::largeFile()
{
    const QByteArray content = Files::noise(8 * 1024 * 1024 + 1);
    Files::write(game(u"large"_s), content);
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground({entry(u"large"_s, Files::sha256(content))}, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    QVERIFY(reports.texts().contains(kUpToDate));
}

void TestFileVerification::largeFileTakesLittleMemory()
{
    if (const QString reason = MemoryRise::reasonToSkip(); !reason.isEmpty()) {
        QSKIP(qPrintable(reason));
    }
    makeZeros(u"large"_s, 128);
    const MemoryRise rise;
    QVERIFY(!Updater::calculateFileHash(game(u"large"_s)).isNull());
    QVERIFY2(rise.megabytes() < 16, qPrintable(QString::number(rise.megabytes())));
}

void TestFileVerification::worksOnThePoolAndReportsOnThisThread()
{
    const QJsonArray files = threeFiles();
    Updater updater(nullptr);
    SignalSequence reports(&updater); // notes a signal from another thread
    {
        // As long as the pool is busy nothing is verified, and this thread does not wait for it.
        BusyPool pool;
        updater.checkFilesInBackground(files, m_folder->path());
        QCOMPARE(reports.texts(), QStringList{announced(3)});
        waitForStragglers();
        QCOMPARE(reports.texts(), QStringList{announced(3)});

        // All of it can be done while this thread does not look; the reports wait for it.
        pool.release();
        QThreadPool::globalInstance()->waitForDone();
        QCOMPARE(reports.texts(), QStringList{announced(3)});
    }
    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(reports.texts(), (QStringList{announced(3), verified(33, 1, 3), verified(66, 2, 3),
                                           verified(100, 3, 3), kUpToDate, kFinished}));
}

void TestFileVerification::secondRunAfterTheFirst()
{
    QJsonArray files = threeFiles();
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground(files, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    reports.clear();

    Files::write(game(u"a.txt"_s), "changed");
    updater.checkFilesInBackground(files, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    QCOMPARE(reports.texts(), (QStringList{announced(3), verified(33, 1, 3), verified(66, 2, 3),
                                           verified(100, 3, 3), differing(1), kFinished}));
}

void TestFileVerification::secondRunWhileTheFirstIsWaiting()
{
    const QJsonArray files = threeFiles();
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    {
        BusyPool pool;
        updater.checkFilesInBackground({entry(u"missing"_s, u"0"_s), QJsonObject()},
                                       m_folder->path());
        updater.checkFilesInBackground(files, m_folder->path());
    }
    QVERIFY(reports.waitFor(u"finished"_s));
    waitForStragglers();
    // Both report their progress, one result counts.
    QCOMPARE(reports.texts(),
             (QStringList{announced(2), announced(3), verified(50, 1, 2), verified(100, 2, 2),
                          verified(33, 1, 3), verified(66, 2, 3), verified(100, 3, 3), kUpToDate,
                          kFinished}));
}

void TestFileVerification::secondRunWhileTheFirstIsRunning()
{
    // The first run needs its time: a large file between two small ones.
    makeZeros(u"large"_s, 192);
    const QJsonArray first{QJsonObject(), entry(u"large"_s, u"0"_s), entry(u"a"_s, u"0"_s)};
    const QJsonArray second = threeFiles();

    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground(first, m_folder->path());
    QVERIFY(reports.waitFor(u"progressChanged"_s, 2));
    QCOMPARE(reports.texts(), (QStringList{announced(3), verified(33, 1, 3)}));
    updater.checkFilesInBackground(QJsonArray{second.at(0), second.at(1)}, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    // Of the second run, whose files are few and small.
    QCOMPARE(reports.count(u"finished"_s), 1);
    QVERIFY(reports.texts().contains(kUpToDate));

    QThreadPool::globalInstance()->waitForDone();
    waitForStragglers();
    QStringList texts = reports.texts();
    QCOMPARE(texts.size(), 2 + 2 + 1 + 2 + 2);
    for (const QString &text :
         {announced(3), verified(33, 1, 3), verified(66, 2, 3), verified(100, 3, 3), announced(2),
          verified(50, 1, 2), verified(100, 2, 2), kUpToDate, kFinished})
        QVERIFY2(texts.removeOne(text), qPrintable(text));
    QCOMPARE(texts, QStringList());
}

void TestFileVerification::secondRunFromWithinAProgressReport()
{
    const QJsonArray files = threeFiles();
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    bool again = true;
    connect(&updater, &Updater::progressChanged, this, [&](int percent) {
        if (percent == 33 && std::exchange(again, false))
            updater.checkFilesInBackground({}, m_folder->path());
    });
    updater.checkFilesInBackground(files, m_folder->path());
    QVERIFY(reports.waitFor(u"finished"_s));
    QThreadPool::globalInstance()->waitForDone();
    waitForStragglers();
    QCOMPARE(reports.count(u"finished"_s), 1);
    QVERIFY(reports.texts().contains(kUpToDate));
    QCOMPARE(reports.texts().size(), 1 + 3 + 1 + 2);
}

void TestFileVerification::ownsOneWatcherAtATime()
{
    Updater updater(nullptr);
    SignalSequence reports(&updater);
    QCOMPARE(updater.children().size(), 1); // the network manager
    updater.checkFilesInBackground({}, m_folder->path());
    QCOMPARE(updater.children().size(), 2);
    const QPointer<QObject> first = updater.findChild<QFutureWatcherBase *>();
    QVERIFY(first);
    QVERIFY(reports.waitFor(u"finished"_s));
    QVERIFY(first); // kept until the next run

    updater.checkFilesInBackground({}, m_folder->path());
    QVERIFY(!first); // gone at once
    QCOMPARE(updater.children().size(), 2);
    QVERIFY(reports.waitFor(u"finished"_s, 2));
}

void TestFileVerification::watcherGoesWithTheUpdater()
{
    auto updater = std::make_unique<Updater>(nullptr);
    SignalSequence reports(updater.get());
    updater->checkFilesInBackground(threeFiles(), m_folder->path());
    const QPointer<QObject> watcher = updater->findChild<QFutureWatcherBase *>();
    QVERIFY(watcher);
    // The pool has to be idle before an updater goes; its posts then go with it.
    QThreadPool::globalInstance()->waitForDone();
    updater.reset();
    QVERIFY(!watcher);
    waitForStragglers();
    QCOMPARE(reports.texts(), QStringList{announced(3)});
}

void TestFileVerification::abandonedVerificationEndsAtOnce()
{
    // Hashing this takes many seconds.
    makeZeros(u"huge"_s, 8192);
    QJsonArray files;
    for (int i = 0; i < 1000; ++i)
        files.append(entry(u"huge"_s, u"0"_s));

    Updater updater(nullptr);
    SignalSequence reports(&updater);
    updater.checkFilesInBackground(files, m_folder->path());
    QTRY_VERIFY(Platform::hasOpen(game(u"huge"_s))); // the first of them is being hashed

    QElapsedTimer clock;
    clock.start();
    Updater::abandonVerifications();
    QVERIFY(QThreadPool::globalInstance()->waitForDone(60000));
    QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
}

VEYRA_CORE_TEST_MAIN(TestFileVerification)
#include "TestFileVerification.moc"
