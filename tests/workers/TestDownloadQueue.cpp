#include "update/Updater.h"

#include "config/Config.h"
#include "tests/support/Files.h"
#include "tests/support/FullDisk.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Platform.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include <memory>
#include <optional>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

const auto kFinished = u"finished(true, \"Prêt à jouer !\")"_s;
const QStringList kDone{u"progressChanged(100, \"Mise à jour terminée !\")"_s, kFinished};

QString started(int percent, const QString &name)
{
    return u"progressChanged(%1, \"Téléchargement: "_s.arg(percent) + name + u"\")"_s;
}

QString progress(int percent, const QString &name)
{
    return u"progressChanged(%1, \"Téléchargement: "_s.arg(percent) + name +
           u" (%.2f / %.2f MB)\")"_s;
}

QString failed(const QString &name)
{
    return u"finished(false, \"Erreur de téléchargement: "_s + name + u"\")"_s;
}

QString cannotWrite(const QString &name)
{
    return u"finished(false, \"Erreur: Impossible d'écrire "_s + name + u"\")"_s;
}

QByteArray urlPath(const QString &name)
{
    return "/updates/files/" + name.toUtf8();
}

} // namespace

/// The queue that fetches what a verification found to differ. Nothing but a test starts it.
class TestDownloadQueue : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void emptyQueueEndsAtOnce();
    void verificationDoesNotStartIt();
    void fetchesOneAfterTheOther();
    void percentagesOfTheWholeQueue_data();
    void percentagesOfTheWholeQueue();
    void reportsProgressAsItComes();
    void percentageOfTheSecondOfTwo();
    void progressTextOfANameWithPlaceholders_data();
    void progressTextOfANameWithPlaceholders();
    void nameOfTheFile_data();
    void nameOfTheFile();
    void entryWithoutName();
    void replacesWhatIsThere();

    void failureOfTheSecondOfThreeStopsTheQueue();
    void failureLeavesTheOldFile();
    void fileThatCannotBeWrittenStopsTheQueue_data();
    void fileThatCannotBeWrittenStopsTheQueue();
    void failedRenameGoesUnnoticed_data();
    void failedRenameGoesUnnoticed();
    void fullDiskGoesUnnoticed();

    void gameFolderChangedDuringATransfer();
    void gameFolderChangedDuringAFailingTransfer();
    void queueEmptiedDuringATransfer();
    void newVerificationStartsTheQueueAnew();

private:
    QString game(const QString &name) const { return m_gamePath + u'/' + name; }
    /// Lets a verification find that these files differ.
    void prime(const QStringList &names);
    bool download();
    void reportProgress(qint64 received, qint64 total);

    HttpServer m_server;
    std::optional<QTemporaryDir> m_folder;
    QString m_gamePath;
    std::unique_ptr<Updater> m_updater;
    std::optional<SignalSequence> m_reports;
};

void TestDownloadQueue::init()
{
    m_server.clear();
    m_server.becomeProxy();
    m_folder.emplace();
    m_gamePath = m_folder->filePath(u"jeu"_s);
    Config::instance().setDofusPath(m_gamePath);
    m_updater = std::make_unique<Updater>(nullptr);
    m_reports.emplace(m_updater.get());
}

void TestDownloadQueue::cleanup()
{
    QThreadPool::globalInstance()->waitForDone();
    m_updater.reset();
    m_folder.reset();
}

void TestDownloadQueue::prime(const QStringList &names)
{
    QJsonArray files;
    for (const QString &name : names)
        files.append(QJsonObject{{u"name"_s, name}, {u"hash"_s, u"differs"_s}});
    m_reports->clear();
    m_updater->checkFilesInBackground(files, m_gamePath);
    QVERIFY(m_reports->waitFor(u"finished"_s));
    QCOMPARE(m_reports->last(), kFinished);
    m_reports->clear();
}

/// To the end of the queue, or to its first failure.
bool TestDownloadQueue::download()
{
    m_updater->downloadNextFile();
    return m_reports->waitFor(u"finished"_s);
}

void TestDownloadQueue::reportProgress(qint64 received, qint64 total)
{
    QVERIFY(QMetaObject::invokeMethod(m_updater.get(), "onFileDownloadProgress",
                                      Q_ARG(qint64, received), Q_ARG(qint64, total)));
}

void TestDownloadQueue::emptyQueueEndsAtOnce()
{
    m_updater->downloadNextFile();
    QCOMPARE(m_reports->texts(), kDone);

    prime({});
    m_updater->downloadNextFile();
    QCOMPARE(m_reports->texts(), kDone);
    QCOMPARE(m_server.requests().size(), 0);
}

void TestDownloadQueue::verificationDoesNotStartIt()
{
    prime({u"a.txt"_s, u"b.txt"_s});
    waitForStragglers();
    QCOMPARE(m_server.requests().size(), 0);
    QCOMPARE(m_updater->findChildren<QNetworkReply *>().size(), 0);
    QVERIFY(!QDir(m_gamePath).exists());
}

void TestDownloadQueue::fetchesOneAfterTheOther()
{
    const QStringList names{u"a.txt"_s, u"b/b.txt"_s, u"c/c/c.txt"_s};
    for (const QString &name : names)
        m_server.answer(urlPath(name), HttpAnswer::ok(name.toUtf8()).heldAfter(1));
    prime(names);
    m_updater->downloadNextFile();
    QCOMPARE(m_reports->texts(), QStringList{started(0, names.first())});

    for (qsizetype i = 0; i < names.size(); ++i) {
        QTRY_COMPARE(m_server.requests().size(), i + 1);
        waitForStragglers(); // nothing else is asked for meanwhile
        QCOMPARE(m_server.requests().size(), i + 1);
        QCOMPARE(m_server.requests().last().path, urlPath(names.at(i)));
        QVERIFY(QFile::exists(game(names.at(i) + u".tmp"_s)));
        QVERIFY(!QFile::exists(game(names.at(i))));
        m_server.release(urlPath(names.at(i)));
        QTRY_COMPARE(Files::read(game(names.at(i))), names.at(i).toUtf8());
    }
    QVERIFY(m_reports->waitFor(u"finished"_s));
    waitForStragglers();
    QCOMPARE(m_reports->withoutRepeats(),
             (QStringList{started(0, names[0]), progress(33, names[0]), started(33, names[1]),
                          progress(66, names[1]), started(66, names[2]), progress(100, names[2])} +
              kDone));
    QCOMPARE(Files::tree(m_gamePath),
             (QStringList{u"a.txt"_s, u"b/"_s, u"b/b.txt"_s, u"c/"_s, u"c/c/"_s, u"c/c/c.txt"_s}));
}

void TestDownloadQueue::percentagesOfTheWholeQueue_data()
{
    QTest::addColumn<QList<int>>("percentages"); // when each file begins
    QTest::newRow("one file") << QList<int>{0};
    QTest::newRow("two files") << QList<int>{0, 50};
    QTest::newRow("three files") << QList<int>{0, 33, 66};
    QTest::newRow("seven files") << QList<int>{0, 14, 28, 42, 57, 71, 85};
}

void TestDownloadQueue::percentagesOfTheWholeQueue()
{
    QFETCH(const QList<int>, percentages);
    QStringList names;
    QStringList expected;
    for (const int percent : percentages) {
        names.append(u"f%1"_s.arg(names.size()));
        expected.append(started(percent, names.last()));
        m_server.answer(urlPath(names.last()), HttpAnswer::ok("x"));
    }
    prime(names);
    QVERIFY(download());
    const QStringList starts =
        m_reports->texts().filter(QRegularExpression(u"Téléchargement: f\\d\""_s));
    QCOMPARE(starts, expected);
}

void TestDownloadQueue::reportsProgressAsItComes()
{
    // Qt reports at most ten times a second, for the first time after a tenth.
    m_server.answer(urlPath(u"a"_s), HttpAnswer::ok("a"));
    m_server.answer(urlPath(u"b"_s), HttpAnswer::ok("bb").delayed(150ms).dripped(1, 150ms));
    prime({u"a"_s, u"b"_s});
    QVERIFY(download());
    QCOMPARE(m_reports->withoutRepeats(),
             (QStringList{started(0, u"a"_s), progress(50, u"a"_s), started(50, u"b"_s),
                          progress(75, u"b"_s), progress(100, u"b"_s)} +
              kDone));
}

void TestDownloadQueue::percentageOfTheSecondOfTwo()
{
    m_server.answer(urlPath(u"a"_s), HttpAnswer::ok("a"));
    m_server.answer(urlPath(u"b"_s), HttpAnswer::never());
    prime({u"a"_s, u"b"_s});
    m_updater->downloadNextFile();
    QTRY_COMPARE(m_server.requestCount(urlPath(u"b"_s)), 1);
    QCOMPARE(m_reports->last(), started(50, u"b"_s));
    m_reports->clear();
    reportProgress(1, 3);
    reportProgress(5, -1); // of an unknown size nothing is said
    reportProgress(999999, 1000000);
    QCOMPARE(m_reports->texts(), (QStringList{progress(66, u"b"_s), progress(99, u"b"_s)}));
}

void TestDownloadQueue::progressTextOfANameWithPlaceholders_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("shown");
    // They are filled with the figures that were meant for the marks.
    QTest::newRow("%1") << u"b%1"_s << u"b1"_s;
    QTest::newRow("%1 and %2") << u"b%1-%2"_s << u"b1-2"_s;
}

void TestDownloadQueue::progressTextOfANameWithPlaceholders()
{
    QFETCH(const QString, name);
    QFETCH(const QString, shown);
    prime({name});
    m_updater->downloadNextFile();
    m_reports->clear();
    reportProgress(1048576, 2097152);
    QCOMPARE(m_reports->texts(), QStringList{progress(50, shown)});
    QTRY_COMPARE(m_server.requests().size(), 1); // it must not reach a later test
}

void TestDownloadQueue::nameOfTheFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("requested");
    QTest::addColumn<QString>("file"); // below the test's folder
    const auto row = [](const char *title, const QString &name, const char *requested,
                        const QString &file) {
        QTest::newRow(title) << name << "/updates/" + QByteArray(requested) << file;
    };
    row("two folders that do not exist yet", u"d1/d2/f.txt"_s, "files/d1/d2/f.txt",
        u"jeu/d1/d2/f.txt"_s);
    row("accents and blanks", u"données/été 1.d2p"_s, "files/donn%C3%A9es/%C3%A9t%C3%A9%201.d2p",
        u"jeu/données/été 1.d2p"_s);
    row("a lone percent sign", u"100% sûr.txt"_s, "files/100%25%20s%C3%BBr.txt",
        u"jeu/100% sûr.txt"_s);
    row("a percent code stays one in the address", u"a%C3%A9.txt"_s, "files/a%C3%A9.txt",
        u"jeu/a%C3%A9.txt"_s);
    row("a placeholder", u"%1.txt"_s, "files/%251.txt", u"jeu/%1.txt"_s);
    row("a question mark begins the query", u"a?b.txt"_s, "files/a?b.txt", u"jeu/a?b.txt"_s);
    row("a number sign ends the address", u"a#b.txt"_s, "files/a", u"jeu/a#b.txt"_s);
    row("a plus sign and an ampersand", u"a+b&c.txt"_s, "files/a+b&c.txt", u"jeu/a+b&c.txt"_s);
    row("a single quote", u"l'été.txt"_s, "files/l'%C3%A9t%C3%A9.txt", u"jeu/l'été.txt"_s);
    row("a name that leaves the folder", u"../dehors.txt"_s, "dehors.txt", u"dehors.txt"_s);
    row("a slash in front", u"/f.txt"_s, "files//f.txt", u"jeu/f.txt"_s);
}

void TestDownloadQueue::nameOfTheFile()
{
    QFETCH(const QString, name);
    QFETCH(const QByteArray, requested);
    QFETCH(const QString, file);
    if (Platform::kIsWindows && name.contains(u'?'))
        QSKIP("Windows has no such names");
    QVERIFY(QDir().mkpath(m_gamePath)); // a way up leads only out of a folder that is there
    m_server.answer(requested, HttpAnswer::ok("content"));
    prime({name});
    m_updater->downloadNextFile();
    QVERIFY(QFile::exists(m_folder->filePath(file) + u".tmp"_s));
    QVERIFY(m_reports->waitFor(u"finished"_s));
    QCOMPARE(m_server.requests().size(), 1);
    QCOMPARE(m_server.requests().first().path, requested);
    QCOMPARE(m_reports->texts().first(), started(0, name));
    QCOMPARE(m_reports->last(), kFinished);
    QCOMPARE(Files::read(m_folder->filePath(file)), "content"_ba);
    QVERIFY(!QFile::exists(m_folder->filePath(file) + u".tmp"_s));
}

void TestDownloadQueue::entryWithoutName()
{
    m_server.answer("/updates/files/", HttpAnswer::ok("index"));
    m_server.answer(urlPath(u"b"_s), HttpAnswer::ok("b"));
    prime({u""_s, u"b"_s});
    QVERIFY(download());
    QCOMPARE(m_reports->last(), kFinished);
    // The game folder itself is the target, and stays.
    QCOMPARE(Files::tree(m_gamePath), (QStringList{u".tmp"_s, u"b"_s}));
}

void TestDownloadQueue::replacesWhatIsThere()
{
    Files::write(game(u"f"_s), "the old one, and longer");
    Files::write(game(u"f.tmp"_s), QByteArray(1000, 't'));
    m_server.answer(urlPath(u"f"_s), HttpAnswer::ok("new"));
    prime({u"f"_s});
    m_updater->downloadNextFile();
    QCOMPARE(Files::read(game(u"f"_s)), "the old one, and longer"_ba); // until all is there
    QVERIFY(m_reports->waitFor(u"finished"_s));
    QCOMPARE(Files::read(game(u"f"_s)), "new"_ba);
    QCOMPARE(Files::tree(m_gamePath), QStringList{u"f"_s});
}

void TestDownloadQueue::failureOfTheSecondOfThreeStopsTheQueue()
{
    Files::write(game(u"a"_s), "old a");
    Files::write(game(u"b"_s), "old b");
    m_server.answer(urlPath(u"a"_s), HttpAnswer::ok("new a"));
    m_server.answer(urlPath(u"b"_s), HttpAnswer::status(404, "not found"));
    m_server.answer(urlPath(u"c"_s), HttpAnswer::ok("new c"));
    prime({u"a"_s, u"b"_s, u"c"_s});
    QVERIFY(download());
    waitForStragglers();
    QCOMPARE(m_reports->last(), failed(u"b"_s));
    QCOMPARE(m_reports->count(u"finished"_s), 1);
    QCOMPARE(m_reports->withoutRepeats().first(3),
             (QStringList{started(0, u"a"_s), progress(33, u"a"_s), started(33, u"b"_s)}));
    QCOMPARE(m_server.requestCount(urlPath(u"c"_s)), 0);
    QCOMPARE(Files::tree(m_gamePath), (QStringList{u"a"_s, u"b"_s}));
    QCOMPARE(Files::read(game(u"a"_s)), "new a"_ba);
    QCOMPARE(Files::read(game(u"b"_s)), "old b"_ba);

    // The next call tries the failed one again.
    m_reports->clear();
    m_server.answer(urlPath(u"b"_s), HttpAnswer::ok("new b"));
    QVERIFY(download());
    QCOMPARE(m_reports->withoutRepeats(), (QStringList{started(33, u"b"_s), progress(66, u"b"_s),
                                                       started(66, u"c"_s), progress(100, u"c"_s)} +
                                           kDone));
    QCOMPARE(Files::read(game(u"b"_s)), "new b"_ba);
    QCOMPARE(Files::read(game(u"c"_s)), "new c"_ba);
}

void TestDownloadQueue::failureLeavesTheOldFile()
{
    const auto name = u"d/f %1.txt"_s;
    Files::write(game(name), "old");
    m_server.answer("/updates/files/d/f%20%251.txt",
                    HttpAnswer::ok(Files::noise(300000)).truncatedAfter(150000));
    prime({name});
    QVERIFY(download());
    // The file's name, not the network's words.
    QCOMPARE(m_reports->last(), failed(name));
    QCOMPARE(Files::tree(m_gamePath), (QStringList{u"d/"_s, name}));
    QCOMPARE(Files::read(game(name)), "old"_ba);
}

void TestDownloadQueue::fileThatCannotBeWrittenStopsTheQueue_data()
{
    QTest::addColumn<QString>("inTheWay"); // a file below the game folder
    QTest::newRow("a folder lies in the temporary file's place") << u"d1/d2/b.txt.tmp/x"_s;
    QTest::newRow("a file lies in a folder's place") << u"d1"_s;
    QTest::newRow("a file lies in the inner folder's place") << u"d1/d2"_s;
}

void TestDownloadQueue::fileThatCannotBeWrittenStopsTheQueue()
{
    QFETCH(const QString, inTheWay);
    const auto name = u"d1/d2/b.txt"_s;
    Files::write(game(inTheWay), "in the way");
    m_server.answer(urlPath(u"a"_s), HttpAnswer::ok("a"));
    m_server.answer(urlPath(name), HttpAnswer::ok("b"));
    prime({u"a"_s, name, u"c"_s});
    QVERIFY(download());
    waitForStragglers();
    QCOMPARE(m_reports->withoutRepeats(), (QStringList{started(0, u"a"_s), progress(33, u"a"_s),
                                                       started(33, name), cannotWrite(name)}));
    QCOMPARE(m_server.requests().size(), 1);
    QCOMPARE(Files::read(game(inTheWay)), "in the way"_ba);

    // The next call begins with the same file.
    QVERIFY(QFile::remove(game(u"d1"_s)) || QDir(game(u"d1"_s)).removeRecursively());
    m_server.answer(urlPath(u"c"_s), HttpAnswer::ok("c"));
    m_reports->clear();
    QVERIFY(download());
    QCOMPARE(m_reports->texts().first(), started(33, name));
    QCOMPARE(m_reports->last(), kFinished);
    QCOMPARE(Files::read(game(name)), "b"_ba);
}

void TestDownloadQueue::failedRenameGoesUnnoticed_data()
{
    QTest::addColumn<QString>("inTheWay");
    QTest::newRow("a folder with something in it") << u"a/x"_s;
    QTest::newRow("an empty folder") << QString();
}

void TestDownloadQueue::failedRenameGoesUnnoticed()
{
    QFETCH(const QString, inTheWay);
    if (inTheWay.isEmpty())
        QVERIFY(QDir().mkpath(game(u"a"_s)));
    else
        Files::write(game(inTheWay), "x");
    m_server.answer(urlPath(u"a"_s), HttpAnswer::ok("new a"));
    m_server.answer(urlPath(u"b"_s), HttpAnswer::ok("new b"));
    prime({u"a"_s, u"b"_s});
    QVERIFY(download());
    QCOMPARE(m_reports->withoutRepeats(), (QStringList{started(0, u"a"_s), progress(50, u"a"_s),
                                                       started(50, u"b"_s), progress(100, u"b"_s)} +
                                           kDone));
    QCOMPARE(Files::read(game(u"a.tmp"_s)), "new a"_ba);
    QVERIFY(QDir(game(u"a"_s)).exists());
    QCOMPARE(Files::read(game(u"b"_s)), "new b"_ba);
}

void TestDownloadQueue::fullDiskGoesUnnoticed()
{
    if (!FullDisk::isPossible())
        QSKIP("This system knows no limit for the size of files");
    m_server.answer(urlPath(u"f"_s), HttpAnswer::ok(Files::noise(300000)));
    prime({u"f"_s});
    {
        const FullDisk disk(1000);
        QVERIFY(download());
    }
    QCOMPARE(m_reports->last(), kFinished);
    QVERIFY(Files::read(game(u"f"_s)).size() <= 1000);
}

void TestDownloadQueue::gameFolderChangedDuringATransfer()
{
    m_server.answer(urlPath(u"a"_s), HttpAnswer::ok("new a").heldAfter(1));
    m_server.answer(urlPath(u"b"_s), HttpAnswer::ok("new b"));
    prime({u"a"_s, u"b"_s});
    m_updater->downloadNextFile();
    QTRY_COMPARE(m_server.requestCount(urlPath(u"a"_s)), 1);
    const QString other = m_folder->filePath(u"autre"_s);
    Files::write(other + u"/a"_s, "old a");
    Config::instance().setDofusPath(other);
    m_server.release(urlPath(u"a"_s));
    QVERIFY(m_reports->waitFor(u"finished"_s));
    QCOMPARE(m_reports->last(), kFinished);
    // What was under way stays unfinished in the old folder, and the new one loses its target for
    // nothing; the rest goes to the new one.
    QCOMPARE(Files::tree(m_gamePath), QStringList{u"a.tmp"_s});
    QCOMPARE(Files::tree(other), QStringList{u"b"_s});
}

void TestDownloadQueue::gameFolderChangedDuringAFailingTransfer()
{
    m_server.answer(urlPath(u"a"_s), HttpAnswer::status(500, "broken").heldAfter(1));
    prime({u"a"_s});
    m_updater->downloadNextFile();
    QTRY_COMPARE(m_server.requestCount(urlPath(u"a"_s)), 1);
    Config::instance().setDofusPath(m_folder->filePath(u"autre"_s));
    m_server.release(urlPath(u"a"_s));
    QVERIFY(m_reports->waitFor(u"finished"_s));
    QCOMPARE(m_reports->last(), failed(u"a"_s));
    QCOMPARE(Files::tree(m_gamePath), QStringList{u"a.tmp"_s});
}

void TestDownloadQueue::queueEmptiedDuringATransfer()
{
    m_server.answer(urlPath(u"a"_s),
                    HttpAnswer::ok("abc").delayed(150ms).dripped(1, 150ms).heldAfter(1));
    prime({u"a"_s, u"b"_s});
    m_updater->downloadNextFile();
    QTRY_COMPARE(m_server.requestCount(urlPath(u"a"_s)), 1);
    prime({});
    m_server.release(urlPath(u"a"_s));
    QVERIFY(m_reports->waitFor(u"finished"_s));
    QCOMPARE(m_reports->texts(), kDone); // of no files there is no percentage
    QCOMPARE(Files::read(game(u"a"_s)), "abc"_ba);
}

void TestDownloadQueue::newVerificationStartsTheQueueAnew()
{
    for (const QString &name : {u"a"_s, u"b"_s, u"c"_s})
        m_server.answer(urlPath(name), HttpAnswer::ok(name.toUtf8()));
    prime({u"a"_s});
    QVERIFY(download());

    prime({u"b"_s, u"c"_s});
    QVERIFY(download());
    QCOMPARE(m_reports->withoutRepeats(), (QStringList{started(0, u"b"_s), progress(50, u"b"_s),
                                                       started(50, u"c"_s), progress(100, u"c"_s)} +
                                           kDone));
}

VEYRA_CORE_TEST_MAIN(TestDownloadQueue)
#include "TestDownloadQueue.moc"
