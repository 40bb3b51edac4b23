#include "tests/support/Files.h"
#include "tests/support/Platform.h"
#include "tests/support/TestEnvironment.h"
#include "tests/updater/Installation.h"

#include <QFileInfo>
#include <QScopeGuard>
#include <QTest>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kLauncher = QString::fromUtf8(Installation::kLauncher);
const auto kUpdater = QString::fromUtf8(Installation::kUpdater);
const auto kJournal = u".veyra-maj/journal.txt"_s;
const auto kDone = u".veyra-maj/termine.txt"_s;
const QStringList kOld{u"old"_s};
const QStringList kNew{u"new"_s};

} // namespace

/// The replacement of the files, ended or hindered at every one of its system calls in turn.
class TestUpdateSwap : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void replacesEverything();
    void everyKillLeavesTheOldLauncherOrTheNew();
    void everyKillOnAVolumeWithoutReplacing();
    void everyKillOfTheMending_data();
    void everyKillOfTheMending();
    void neverEndsWithoutALauncher_data();
    void neverEndsWithoutALauncher();
    void everyFailureIsUndone();
    void everyFailureOfTheRestOfTheDisk();

private:
    void checkState(const QStringList &launcher, bool mayKeepEmptyFolders = false);
    bool isGuarded() const;
    bool hasFile(const QString &name) const;
    void findGuardedCalls();

    Installation m_installation;
    int m_calls = 0;
    /// Under Wine a process takes its time: every so many calls are tried there, elsewhere all.
    const int m_stride = Platform::isWine() ? 19 : 1;
    /// The calls, by the journal's name then, at which this program stands in the launcher's place.
    QMap<QString, QList<int>> m_guardedCalls;
    QString m_context; ///< for whoever reads of a failure
};

void TestUpdateSwap::initTestCase()
{
    QCOMPARE(m_installation.runUpdater().exitCode, 0);
    m_calls = m_installation.callCount();
    QVERIFY2(m_calls > 100, qPrintable(QString::number(m_calls)));
    QCOMPARE(m_installation.startsOf(1), kNew);
    m_installation.restore();
}

void TestUpdateSwap::cleanup()
{
    if (QTest::currentTestFailed())
        qWarning("%s", qPrintable(m_context));
    m_context.clear();
    m_installation.restore();
}

/// The folder is that of the launcher which started there last, byte for byte.
void TestUpdateSwap::checkState(const QStringList &launcher, bool mayKeepEmptyFolders)
{
    QVERIFY2(launcher == kOld || launcher == kNew, qPrintable(launcher.join(u", "_s)));
    auto expected = launcher == kOld ? m_installation.oldState() : m_installation.newState();
    if (mayKeepEmptyFolders) {
        for (const QString &name : {u"licences/"_s, u"licences/anciennes/"_s}) {
            if (QFileInfo::exists(m_installation.folder() + u'/' + name))
                expected.insert(name, {});
        }
    }
    const QMap<QString, QByteArray> found = m_installation.state();
    QCOMPARE(found.keys(), expected.keys());
    QVERIFY(found == expected);
}

bool TestUpdateSwap::hasFile(const QString &name) const
{
    return QFileInfo::exists(m_installation.folder() + u'/' + name);
}

/// Whether this program stands in the launcher's place.
bool TestUpdateSwap::isGuarded() const
{
    return Files::read(m_installation.folder() + u'/' + kLauncher) ==
           m_installation.oldState().value(kUpdater);
}

void TestUpdateSwap::findGuardedCalls()
{
    // The few calls behind the journal's renaming are among them.
    const int stride = std::min(m_stride, 3);
    for (int call = 1; call <= m_calls && !m_guardedCalls.contains(kDone); call += stride) {
        m_installation.restore();
        QCOMPARE(m_installation.runUpdater(u"kill=%1"_s.arg(call)).exitCode, Installation::kKilled);
        if (isGuarded())
            m_guardedCalls[hasFile(kDone) ? kDone : kJournal].append(call);
    }
}

void TestUpdateSwap::replacesEverything()
{
    QCOMPARE(m_installation.runUpdater().exitCode, 0);
    QCOMPARE(m_installation.startsOf(1), kNew);
    checkState(kNew);
    QVERIFY(!m_installation.hasRemains());
}

void TestUpdateSwap::everyKillLeavesTheOldLauncherOrTheNew()
{
    int guarded = 0;
    int finished = 0;
    int updated = 0;
    for (int call = 1; call <= m_calls; call += m_stride) {
        m_context = u"killed at call %1 of %2"_s.arg(call).arg(m_calls);
        m_installation.restore();
        QCOMPARE(m_installation.runUpdater(u"kill=%1"_s.arg(call)).exitCode, Installation::kKilled);

        // A person starts the launcher, whatever stands in its place.
        const bool isPending = isGuarded();
        guarded += isPending ? 1 : 0;
        QVERIFY(m_installation.start(kLauncher).exitCode == 0);
        const QStringList launcher = m_installation.startsOf(1);
        finished += launcher == kNew ? 1 : 0;
        checkState(launcher);
        QVERIFY(!QTest::currentTestFailed());
        QVERIFY(!isPending || !m_installation.hasRemains());

        // Without remains the folder is one of the two that updates are known to work in.
        if (!m_installation.hasRemains())
            continue;
        ++updated;

        // The next update finds nothing in its way.
        const bool isDone = launcher == kNew;
        QVERIFY(m_installation.runUpdater().exitCode == (isDone ? 3 : 0));
        QVERIFY(m_installation.startsOf(1) == kNew);
        checkState(kNew);
        QVERIFY(!QTest::currentTestFailed());
        QVERIFY(!m_installation.hasRemains());
    }
    QVERIFY2(updated > 20 / m_stride, qPrintable(QString::number(updated)));
    QVERIFY2(guarded > 20 / m_stride, qPrintable(QString::number(guarded)));
    QVERIFY2(finished > 0 && finished < m_calls / 2, qPrintable(QString::number(finished)));
}

void TestUpdateSwap::everyKillOnAVolumeWithoutReplacing()
{
    QCOMPARE(m_installation.runUpdater(u"no-replace"_s).exitCode, 0);
    QCOMPARE(m_installation.startsOf(1), kNew);
    const int calls = m_installation.callCount();
    QVERIFY(calls > m_calls);

    int missing = 0;
    for (int call = 1; call <= calls; call += m_stride) {
        m_context = u"killed at call %1 of %2"_s.arg(call).arg(calls);
        m_installation.restore();
        QCOMPARE(m_installation.runUpdater(u"no-replace kill=%1"_s.arg(call)).exitCode,
                 Installation::kKilled);

        // Such a volume knows moments without the launcher. Then the updater program is there.
        const bool isMissing = !hasFile(kLauncher);
        missing += isMissing ? 1 : 0;
        const QString program = isMissing ? kUpdater : kLauncher;
        QVERIFY(m_installation.start(program, u"no-replace"_s).exitCode == 0);
        checkState(m_installation.startsOf(1));
        QVERIFY(!QTest::currentTestFailed());
    }
    if (m_stride == 1)
        QCOMPARE(missing, 2);
}

void TestUpdateSwap::everyKillOfTheMending_data()
{
    QTest::addColumn<QString>("stateFile");
    QTest::addColumn<bool>("isLast");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("nothing is replaced yet") << kJournal << false << kOld;
    QTest::newRow("all but the launcher is replaced") << kJournal << true << kOld;
    QTest::newRow("only the launcher is missing") << kDone << false << kNew;
}

void TestUpdateSwap::everyKillOfTheMending()
{
    QFETCH(const QString, stateFile);
    QFETCH(const bool, isLast);
    QFETCH(const QStringList, expected);

    findGuardedCalls();
    const QList<int> calls = m_guardedCalls.value(stateFile);
    QVERIFY(!calls.isEmpty());
    const int interrupted = isLast ? calls.constLast() : calls.constFirst();
    m_installation.restore();
    QCOMPARE(m_installation.runUpdater(u"kill=%1"_s.arg(interrupted)).exitCode,
             Installation::kKilled);
    const auto resetKept = qScopeGuard([this] { m_installation.forget(); });
    m_installation.keep();
    QCOMPARE(m_installation.start(kLauncher).exitCode, 0);
    QCOMPARE(m_installation.startsOf(1), expected);
    const int mendingCalls = m_installation.callCount();
    QVERIFY2(mendingCalls > 15, qPrintable(QString::number(mendingCalls)));

    for (int call = 1; call <= mendingCalls; call += m_stride) {
        m_context = u"killed at call %1 of %2"_s.arg(call).arg(mendingCalls);
        m_installation.restore();
        QVERIFY(isGuarded());
        const Installation::Outcome killed =
            m_installation.start(kLauncher, u"kill=%1"_s.arg(call));
        QVERIFY2(killed.exitCode == Installation::kKilled, qPrintable(killed.errors));
        QVERIFY(m_installation.start(kLauncher).exitCode == 0);
        QVERIFY(m_installation.startsOf(1) == expected);
        checkState(expected);
        QVERIFY(!QTest::currentTestFailed());
    }
}

void TestUpdateSwap::neverEndsWithoutALauncher_data()
{
    QTest::addColumn<QString>("stateFile");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("isUndone");

    const QString staged = u".veyra-maj/nouveau/"_s + kLauncher;
    const QString keptAside = u".veyra-maj/ancien/"_s + kLauncher;
    QTest::newRow("the new launcher is gone when only it is missing")
        << kDone << staged << QByteArray() << true;
    QTest::newRow("the new launcher is damaged when only it is missing")
        << kDone << staged << QByteArray("damaged") << true;
    QTest::newRow("the old launcher is gone when all is undone")
        << kJournal << keptAside << QByteArray() << false;
    QTest::newRow("the old launcher is damaged when all is undone")
        << kJournal << keptAside << QByteArray("damaged") << false;
}

void TestUpdateSwap::neverEndsWithoutALauncher()
{
    QFETCH(const QString, stateFile);
    QFETCH(const QString, program);
    QFETCH(const QByteArray, content);
    QFETCH(const bool, isUndone);

    findGuardedCalls();
    QVERIFY(m_guardedCalls.contains(stateFile));
    m_installation.restore();
    const int interrupted = m_guardedCalls.value(stateFile).constFirst();
    QCOMPARE(m_installation.runUpdater(u"kill=%1"_s.arg(interrupted)).exitCode,
             Installation::kKilled);
    const QString path = m_installation.folder() + u'/' + program;
    const QByteArray good = Files::read(path);
    QVERIFY(QFile::remove(path));
    if (!content.isEmpty())
        Files::write(path, content);

    const Installation::Outcome outcome = m_installation.start(kLauncher);
    if (!isUndone) {
        // Neither of the two can be started. The journal stays for the day when one can.
        QCOMPARE(outcome.exitCode, 6);
        QVERIFY2(outcome.errors.contains(u"l'ancien programme VeyraLauncher.exe a disparu"_s),
                 qPrintable(outcome.errors));
        QVERIFY(hasFile(stateFile));
        QVERIFY(isGuarded());
        QCOMPARE(m_installation.startsOf(0), QStringList());
        Files::write(path, good);
        QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner);
        QCOMPARE(m_installation.start(kLauncher).exitCode, 0);
    } else {
        QCOMPARE(outcome.exitCode, 0);
    }
    QCOMPARE(m_installation.startsOf(1), kOld);
    checkState(kOld);
    QVERIFY(!m_installation.hasRemains());
}

void TestUpdateSwap::everyFailureIsUndone()
{
    QMap<int, int> codes;
    for (int call = 1; call <= m_calls; call += m_stride) {
        m_context = u"failed at call %1 of %2"_s.arg(call).arg(m_calls);
        m_installation.restore();
        const Installation::Outcome outcome = m_installation.runUpdater(u"fail=%1"_s.arg(call));
        ++codes[outcome.exitCode];

        // One start in any case: of the new launcher where all went well after all.
        const QStringList launcher = m_installation.startsOf(1);
        const QStringList expected = outcome.exitCode == 0 ? kNew : kOld;
        QVERIFY2(launcher == expected, qPrintable(outcome.log));
        checkState(launcher, outcome.exitCode == 0);
        QVERIFY(!QTest::currentTestFailed());
        QVERIFY(!hasFile(kJournal) && !hasFile(kDone));
    }
    // Nothing else than these: what was replaced can always be undone.
    if (m_stride == 1)
        QCOMPARE(codes.keys(), QList<int>({0, 3, 4, 5}));
    QVERIFY(!codes.contains(-1) && !codes.contains(6));
    QVERIFY(codes.value(4) > 20 / m_stride);
    QVERIFY(codes.value(5) > 20 / m_stride);
}

void TestUpdateSwap::everyFailureOfTheRestOfTheDisk()
{
    QMap<int, int> codes;
    for (int call = 1; call <= m_calls; call += m_stride) {
        m_context = u"failed from call %1 of %2"_s.arg(call).arg(m_calls);
        m_installation.restore();
        const Installation::Outcome outcome =
            m_installation.runUpdater(u"fail-from=%1"_s.arg(call));
        ++codes[outcome.exitCode];
        if (outcome.exitCode != 6) {
            QVERIFY(m_installation.startsOf(1) == (outcome.exitCode == 0 ? kNew : kOld));
        } else {
            // It says what to do, and does not start what may be half replaced.
            QVERIFY(outcome.errors.contains(u"Redémarrez l'ordinateur"_s));
        }

        // The disk is well again, and a person starts the launcher.
        QVERIFY(m_installation.start(kLauncher).exitCode == 0);
        const QStringList launcher = m_installation.startsOf(1);
        checkState(launcher);
        QVERIFY(!QTest::currentTestFailed());
    }
    QVERIFY(codes.value(4) > 20 / m_stride);
    QVERIFY(codes.value(6) > 20 / m_stride);
}

VEYRA_CORE_TEST_MAIN(TestUpdateSwap)
#include "TestUpdateSwap.moc"
