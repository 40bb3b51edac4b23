#include "tests/support/Files.h"
#include "tests/support/Platform.h"
#include "tests/support/TestEnvironment.h"
#include "tests/updater/Installation.h"

#include "updater/Platform.h"

#include <QDir>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTest>

#include <algorithm>
#include <functional>

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
    void everyKillAfterAFailureAtTheEnd_data();
    void everyKillAfterAFailureAtTheEnd();
    void everyFailureOfTheMending_data();
    void everyFailureOfTheMending();
    void leavesALauncherThatIsHeldWhereItIs();
    void mendsBesideTheOldLauncher();
    void undoesWhereAFileWasMadeSince();
    void leavesALauncherThatSomebodyInstalled_data();
    void leavesALauncherThatSomebodyInstalled();
    void updatesALauncherThatSomebodyInstalled_data();
    void updatesALauncherThatSomebodyInstalled();
    void mendsWhatSomebodyUnpacked_data();
    void mendsWhatSomebodyUnpacked();
    void everyLossOfTheNewLauncher_data();
    void everyLossOfTheNewLauncher();
    void keepsWhatIsStagedWithItsJournal();

private:
    void checkState(const QStringList &launcher, bool mayKeepEmptyFolders = false);
    bool isGuarded() const;
    bool hasFile(const QString &name) const;
    QMap<QString, QByteArray> otherVersion() const;
    void unpack(const QMap<QString, QByteArray> &files);
    void findGuardedCalls();
    void interruptIn(const QString &stateFile);
    void restoreForSameCalls();
    int firstCall(const std::function<bool()> &isReached, const QString &faults = {});
    bool isStaged() const;
    bool isReplaced() const;
    bool isFinished() const;

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

/// As late as the folder is in this state, with this program in the launcher's place.
void TestUpdateSwap::interruptIn(const QString &stateFile)
{
    if (m_guardedCalls.isEmpty())
        findGuardedCalls();
    restoreForSameCalls();
    const int interrupted = m_guardedCalls.value(stateFile).constLast();
    QCOMPARE(m_installation.runUpdater(u"kill=%1"_s.arg(interrupted)).exitCode,
             Installation::kKilled);
}

/// A launcher that still ends would be waited for, by calls that come on top.
void TestUpdateSwap::restoreForSameCalls()
{
    const std::string launcher = (m_installation.folder() + u'/' + kLauncher).toStdString();
    QTRY_VERIFY_WITH_TIMEOUT(Platform::processesRunning(launcher).empty(), 20000);
    m_installation.restore();
}

/// The first call before which the folder is in this state, which lasts from then on.
int TestUpdateSwap::firstCall(const std::function<bool()> &isReached, const QString &faults)
{
    int before = 0;
    int call = m_calls;
    while (call - before > 1) {
        const int middle = (before + call) / 2;
        restoreForSameCalls();
        m_installation.runUpdater(faults + u" kill=%1"_s.arg(middle));
        (isReached() ? call : before) = middle;
    }
    restoreForSameCalls();
    return call;
}

bool TestUpdateSwap::isStaged() const
{
    return hasFile(kJournal) || isReplaced();
}

bool TestUpdateSwap::isReplaced() const
{
    return hasFile(kDone) || isFinished();
}

bool TestUpdateSwap::isFinished() const
{
    return Files::read(m_installation.folder() + u'/' + kLauncher) ==
           m_installation.newState().value(kLauncher);
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
    int finishedLater = 0;
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
        QVERIFY(!hasFile(kJournal));
        if (!hasFile(kDone))
            continue;

        // The new launcher is there, but what remains of the old one could not be cleared.
        ++finishedLater;
        QVERIFY(outcome.exitCode == 0);
        QVERIFY(hasFile(u".veyra-maj/ancien/Qt6Core.dll"_s));
        QVERIFY(m_installation.start(kUpdater).exitCode == 0);
        QVERIFY(m_installation.startsOf(1) == kNew);
        checkState(kNew);
        QVERIFY(!QTest::currentTestFailed());
        QVERIFY(!m_installation.hasRemains());
    }
    // Nothing else than these: what was replaced can always be undone.
    if (m_stride == 1) {
        QCOMPARE(codes.keys(), QList<int>({0, 3, 4, 5}));
        QCOMPARE(finishedLater, 2);
    }
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

void TestUpdateSwap::everyKillAfterAFailureAtTheEnd_data()
{
    QTest::addColumn<QString>("volume");
    QTest::addColumn<int>("steps"); // that put the new launcher into its place

    QTest::newRow("on a volume that replaces files") << QString() << 1;
    QTest::newRow("on a volume without replacing") << u"no-replace"_s << 2;
}

void TestUpdateSwap::everyKillAfterAFailureAtTheEnd()
{
    QFETCH(const QString, volume);
    QFETCH(const int, steps);

    const int finished = firstCall([this] { return isFinished(); }, volume);
    QMap<int, int> codes;
    // The new launcher in its place is looked at once more.
    constexpr int kStepsOfTheLook = 2;
    constexpr int kStepsBehind = 1;
    const int end = finished + kStepsOfTheLook + kStepsBehind;
    for (int failed = finished - steps; failed < end; ++failed) {
        const QString faults = volume + u" fail=%1"_s.arg(failed);
        m_context = u"with \"%1\""_s.arg(faults);
        restoreForSameCalls();
        const Installation::Outcome outcome = m_installation.runUpdater(faults);
        ++codes[outcome.exitCode];
        const int calls = m_installation.callCount();
        QVERIFY(calls >= failed);
        QCOMPARE(m_installation.startsOf(1), outcome.exitCode == 0 ? kNew : kOld);
        checkState(outcome.exitCode == 0 ? kNew : kOld);
        QVERIFY(!QTest::currentTestFailed());

        for (int call = failed + 1; call <= calls; call += m_stride) {
            m_context = u"with \"%1\", killed at call %2 of %3"_s.arg(faults).arg(call).arg(calls);
            restoreForSameCalls();
            QVERIFY(m_installation.runUpdater(faults + u" kill=%1"_s.arg(call)).exitCode ==
                    Installation::kKilled);
            const QString program = hasFile(kLauncher) ? kLauncher : kUpdater;
            const Installation::Outcome mended = m_installation.start(program, volume);
            QVERIFY2(mended.exitCode == 0, qPrintable(mended.errors));
            checkState(m_installation.startsOf(1));
            QVERIFY(!QTest::currentTestFailed());
        }
    }
    QCOMPARE(codes, (QMap<int, int>{{0, kStepsBehind}, {5, steps + kStepsOfTheLook}}));
}

void TestUpdateSwap::everyFailureOfTheMending_data()
{
    QTest::addColumn<QString>("stateFile");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("all but the launcher is replaced") << kJournal << kOld;
    QTest::newRow("only the launcher is missing") << kDone << kNew;
}

/// On a volume without replacing: the launcher's place is empty for a moment there.
void TestUpdateSwap::everyFailureOfTheMending()
{
    QFETCH(const QString, stateFile);
    QFETCH(const QStringList, expected);

    findGuardedCalls();
    const int interrupted = m_guardedCalls.value(stateFile).constLast();
    m_installation.restore();
    QCOMPARE(m_installation.runUpdater(u"kill=%1"_s.arg(interrupted)).exitCode,
             Installation::kKilled);
    const auto resetKept = qScopeGuard([this] { m_installation.forget(); });
    m_installation.keep();
    QCOMPARE(m_installation.start(kLauncher, u"no-replace"_s).exitCode, 0);
    QCOMPARE(m_installation.startsOf(1), expected);
    const int calls = m_installation.callCount();

    int failed = 0;
    for (int call = 1; call <= calls; call += m_stride) {
        m_context = u"failed at call %1 of %2"_s.arg(call).arg(calls);
        m_installation.restore();
        const auto faults = u"no-replace fail=%1"_s.arg(call);
        int code = m_installation.start(kLauncher, faults).exitCode;
        failed += code == 6 ? 1 : 0;
        // What it tells people to start is there, however often that fails.
        for (int again = call; code == 6 && again <= call + 2; ++again) {
            QVERIFY(hasFile(kLauncher));
            code = m_installation.start(kLauncher, u"no-replace fail=%1"_s.arg(again)).exitCode;
        }
        QVERIFY(hasFile(kLauncher));
        if (code != 0)
            QVERIFY(m_installation.start(kLauncher, u"no-replace"_s).exitCode == 0);
        QVERIFY(m_installation.startsOf(1) == expected);
        checkState(expected, true);
        QVERIFY(!QTest::currentTestFailed());
    }
    // Few of them cannot be mended: the sample may miss those.
    if (m_stride == 1)
        QVERIFY2(failed > 5, qPrintable(QString::number(failed)));
}

void TestUpdateSwap::leavesALauncherThatIsHeldWhereItIs()
{
    const Installation::Outcome outcome = m_installation.runUpdater(u"held"_s);
    QVERIFY2(outcome.exitCode == 5, qPrintable(outcome.errors));
    QCOMPARE(m_installation.startsOf(1), kOld);
    checkState(kOld);
    QVERIFY(!m_installation.hasRemains());
}

/// A person may start the updater program while the launcher runs.
void TestUpdateSwap::mendsBesideTheOldLauncher()
{
    const int staged = firstCall([this] { return isStaged(); });
    QCOMPARE(m_installation.runUpdater(u"kill=%1"_s.arg(staged)).exitCode, Installation::kKilled);
    QVERIFY(hasFile(kJournal) && !isGuarded());

    QProcess launcher;
    QProcessEnvironment environment = m_installation.environment;
    environment.insert(u"VEYRA_PROBE_HANG"_s, u"60000"_s);
    launcher.setProcessEnvironment(environment);
    QVERIFY(Platform::start(launcher, m_installation.folder() + u'/' + kLauncher));
    QCOMPARE(m_installation.startsOf(1), kOld);

    // Windows replaces no program that runs. Elsewhere the probe says so.
    const Installation::Outcome outcome = m_installation.start(kUpdater, u"held"_s);
    launcher.kill();
    QVERIFY(launcher.waitForFinished());
    QVERIFY2(outcome.exitCode == 0, qPrintable(outcome.errors));
    QCOMPARE(m_installation.startsOf(1), kOld);
    checkState(kOld);
    QVERIFY(!m_installation.hasRemains());
}

void TestUpdateSwap::undoesWhereAFileWasMadeSince()
{
    const int replaced = firstCall([this] { return isReplaced(); });
    QCOMPARE(m_installation.runUpdater(u"kill=%1"_s.arg(replaced - 1)).exitCode,
             Installation::kKilled);
    const QString file = u"tls/qschannel.dll"_s; // of the old version alone
    QVERIFY(hasFile(kJournal) && !hasFile(file));
    Files::write(m_installation.folder() + u'/' + file, "made since");

    const Installation::Outcome outcome = m_installation.start(kLauncher);
    QVERIFY2(outcome.exitCode == 0, qPrintable(outcome.errors));
    QCOMPARE(m_installation.startsOf(1), kOld);
    checkState(kOld);
    QVERIFY(!m_installation.hasRemains());
}

/// Another version, complete and of its own list, as somebody unpacks it by hand.
QMap<QString, QByteArray> TestUpdateSwap::otherVersion() const
{
    QMap<QByteArray, QByteArray> files = m_installation.update().files;
    files[Installation::kLauncher] += "er";
    QMap<QString, QByteArray> result;
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        result.insert(QString::fromUtf8(file.key()), file.value());
    result.insert(u"liste.txt"_s, sampleList("1.0.0", SampleUpdate::kTarget, files));
    return result;
}

/// Over what is there.
void TestUpdateSwap::unpack(const QMap<QString, QByteArray> &files)
{
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        const QString path = m_installation.folder() + u'/' + file.key();
        if (file.key().endsWith(u'/')) {
            QDir().mkpath(path);
            continue;
        }
        QFile::remove(path);
        Files::write(path, file.value());
        QVERIFY(QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner));
    }
}

void TestUpdateSwap::leavesALauncherThatSomebodyInstalled_data()
{
    QTest::addColumn<QString>("stateFile");

    QTest::newRow("when all was to be undone") << kJournal;
    QTest::newRow("when only the launcher was missing") << kDone;
}

void TestUpdateSwap::leavesALauncherThatSomebodyInstalled()
{
    QFETCH(const QString, stateFile);

    interruptIn(stateFile);
    unpack(otherVersion());
    const QMap<QString, QByteArray> installed = m_installation.state();

    // There is nothing to mend any more.
    const Installation::Outcome outcome = m_installation.start(kUpdater);
    QVERIFY2(outcome.exitCode == 1, qPrintable(outcome.errors));
    QVERIFY2(outcome.log.contains(u"abandonnée : un autre launcher a été installé"_s),
             qPrintable(outcome.log));
    QVERIFY(m_installation.state() == installed);
    QVERIFY(!m_installation.hasRemains());
    QCOMPARE(m_installation.startsOf(0), QStringList());
}

void TestUpdateSwap::updatesALauncherThatSomebodyInstalled_data()
{
    leavesALauncherThatSomebodyInstalled_data();
}

void TestUpdateSwap::updatesALauncherThatSomebodyInstalled()
{
    QFETCH(const QString, stateFile);

    interruptIn(stateFile);
    unpack(otherVersion());
    const Installation::Outcome outcome = m_installation.runUpdater();
    QVERIFY2(outcome.exitCode == 0, qPrintable(outcome.errors));
    QCOMPARE(m_installation.startsOf(1), kNew);
    checkState(kNew, true);

    interruptIn(stateFile);
    unpack(otherVersion());
    const QMap<QString, QByteArray> installed = m_installation.state();
    const QByteArray archive = Files::read(m_installation.archive());
    const auto reset = qScopeGuard([&] { m_installation.writeArchive(archive); });
    m_installation.writeArchive("no archive");
    QCOMPARE(m_installation.runUpdater().exitCode, 3);
    QCOMPARE(m_installation.startsOf(1), QStringList{u"newer"_s});
    QVERIFY(m_installation.state() == installed);
}

void TestUpdateSwap::mendsWhatSomebodyUnpacked_data()
{
    QTest::addColumn<QString>("stateFile");
    QTest::addColumn<QMap<QString, QByteArray>>("unpacked");
    QTest::addColumn<QStringList>("expected");

    const QMap<QString, QByteArray> cutOff{{kLauncher, "cut off"}};
    const QMap<QString, QByteArray> other{{kLauncher, otherVersion().value(kLauncher)}};
    QTest::newRow("the old version where all was to be undone")
        << kJournal << m_installation.oldState() << kOld;
    QTest::newRow("the old version where only the launcher was missing")
        << kDone << m_installation.oldState() << kOld;
    QTest::newRow("the new version where all was to be undone")
        << kJournal << m_installation.newState() << kNew;
    QTest::newRow("the new version where only the launcher was missing")
        << kDone << m_installation.newState() << kNew;
    QTest::newRow("a part of a launcher where all was to be undone") << kJournal << cutOff << kOld;
    QTest::newRow("a part of a launcher where only the launcher was missing")
        << kDone << cutOff << kNew;
    QTest::newRow("another launcher alone where all was to be undone") << kJournal << other << kOld;
    QTest::newRow("another launcher alone where only the launcher was missing")
        << kDone << other << kNew;
}

void TestUpdateSwap::mendsWhatSomebodyUnpacked()
{
    QFETCH(const QString, stateFile);
    QFETCH(const QStringList, expected);
    using Content = QMap<QString, QByteArray>;
    QFETCH(const Content, unpacked);

    interruptIn(stateFile);
    unpack(unpacked);
    const Installation::Outcome outcome = m_installation.start(kUpdater);
    QVERIFY2(outcome.exitCode == 0, qPrintable(outcome.errors));
    QCOMPARE(m_installation.startsOf(1), expected);
    checkState(expected);
    QVERIFY(!m_installation.hasRemains());
}

void TestUpdateSwap::everyLossOfTheNewLauncher_data()
{
    QTest::addColumn<bool>("isMending");

    QTest::newRow("while the files are replaced") << false;
    QTest::newRow("while that is finished") << true;
}

/// A virus scanner takes the new launcher away just before it comes to its place.
void TestUpdateSwap::everyLossOfTheNewLauncher()
{
    QFETCH(const bool, isMending);

    int first = firstCall([this] { return isStaged(); });
    const auto resetKept = qScopeGuard([this] {
        m_installation.forget();
        m_installation.environment.remove(u"VEYRA_PROBE_LOST"_s);
    });
    int last = m_calls;
    if (isMending) {
        interruptIn(kDone);
        m_installation.keep();
        QCOMPARE(m_installation.start(kLauncher).exitCode, 0);
        QCOMPARE(m_installation.startsOf(1), kNew);
        first = 1;
        last = m_installation.callCount();
    }
    m_installation.environment.insert(
        u"VEYRA_PROBE_LOST"_s,
        QDir::toNativeSeparators(m_installation.folder() + u"/.veyra-maj/nouveau/"_s + kLauncher));

    QMap<QString, int> started;
    for (int call = first; call <= last; call += m_stride) {
        m_context = u"lost before call %1 of %2"_s.arg(call).arg(last);
        restoreForSameCalls();
        const QString faults = u"lose=%1"_s.arg(call);
        const int code = isMending ? m_installation.start(kLauncher, faults).exitCode
                                   : m_installation.runUpdater(faults).exitCode;
        const QStringList launcher = m_installation.startsOf(1);
        ++started[launcher.value(0)];
        QVERIFY(code == (isMending || launcher == kNew ? 0 : 5));
        checkState(launcher);
        QVERIFY(!QTest::currentTestFailed());
        QVERIFY(!m_installation.hasRemains());
    }
    if (m_stride == 1)
        QCOMPARE(started.keys(), (QStringList{u"new"_s, u"old"_s}));
}

void TestUpdateSwap::keepsWhatIsStagedWithItsJournal()
{
    const int staged = firstCall([this] { return isStaged(); });
    const QString keptAside = u".veyra-maj/ancien/"_s + kLauncher;
    // The journal's last step fails, and then it cannot be removed.
    for (int call = staged + 1; call <= staged + 2; ++call) {
        m_context = u"failed at calls %1 and %2"_s.arg(staged).arg(call);
        restoreForSameCalls();
        const QString faults = u"fail=%1 fail=%2"_s.arg(staged).arg(call);
        QCOMPARE(m_installation.runUpdater(faults).exitCode, 4);
        QCOMPARE(m_installation.startsOf(1), kOld);
        QVERIFY(hasFile(kJournal) && hasFile(keptAside));

        QCOMPARE(m_installation.runUpdater().exitCode, 0);
        QCOMPARE(m_installation.startsOf(1), kNew);
        checkState(kNew);
        QVERIFY(!m_installation.hasRemains());
    }

    // A program that holds it for a moment is waited for.
    restoreForSameCalls();
    const QString retry = m_installation.environment.value(u"VEYRA_PROBE_RETRY"_s);
    const auto reset =
        qScopeGuard([&] { m_installation.environment.insert(u"VEYRA_PROBE_RETRY"_s, retry); });
    m_installation.environment.insert(u"VEYRA_PROBE_RETRY"_s, u"5000"_s);
    const QString faults = u"fail=%1 busy=%2"_s.arg(staged).arg(staged + 2);
    QCOMPARE(m_installation.runUpdater(faults).exitCode, 4);
    QCOMPARE(m_installation.startsOf(1), kOld);
    QVERIFY(!m_installation.hasRemains());
}

VEYRA_CORE_TEST_MAIN(TestUpdateSwap)
#include "TestUpdateSwap.moc"
