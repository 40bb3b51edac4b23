#include "app/Identity.h"
#include "tests/support/BoxAnswers.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QApplication>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <optional>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds kPatience = 30s;

/// The program that looks at this one through the accessibility bus.
class Observer
{
public:
    Observer()
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(u"/usr/bin/python3"_s,
                        {QStringLiteral(VEYRA_OBSERVER), QApplication::applicationName()});
    }
    ~Observer()
    {
        m_process.closeWriteChannel();
        // It may be asking this process something.
        const bool ended = QTest::qWaitFor(
            [this] { return m_process.state() == QProcess::NotRunning; }, int(kPatience.count()));
        if (!ended)
            qWarning("the observer does not end");
    }

    /// This process answers the bus meanwhile, some hundred questions: QTest's waits would sleep
    /// before each.
    QJsonObject ask(const QByteArray &command, const QString &key)
    {
        QJsonObject answer;
        QEventLoop loop;
        QTimer::singleShot(kPatience, &loop, &QEventLoop::quit);
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &loop, [&] {
            answer = takeAnswer(key);
            if (!answer.isEmpty())
                loop.quit();
        });
        m_process.write(command + '\n');
        loop.exec();
        if (answer.isEmpty())
            qWarning("no answer to %s", command.constData());
        return answer;
    }

    /// All that was said until now.
    QStringList said()
    {
        readAll();
        return m_said;
    }
    void forget() { m_said.clear(); }

private:
    QJsonObject takeAnswer(const QString &key)
    {
        readAll();
        const auto found = std::find_if(m_answers.begin(), m_answers.end(),
                                        [&](const auto &one) { return one.contains(key); });
        if (found == m_answers.end())
            return {};
        QJsonObject answer = *found;
        m_answers.erase(found);
        return answer;
    }

    void readAll()
    {
        while (m_process.canReadLine()) {
            const QJsonObject line = QJsonDocument::fromJson(m_process.readLine()).object();
            if (line.contains(u"said"_s))
                m_said.append(line[u"said"_s].toString());
            else
                m_answers.append(line);
        }
    }

    QProcess m_process;
    QList<QJsonObject> m_answers;
    QStringList m_said;
};

struct Part
{
    QString role;
    QString name;
    QStringList states;
    double value = -1;
};

} // namespace

/// What a screen reader learns, on a real accessibility bus.
class TestAssistiveTechnology : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_launcher.reset(); }
    void cleanupTestCase();
    void thePlayButtonIsCalledWhatItShows();
    void theLogoHasAName();
    void aBusyBarIsBusy();
    void theServersStateIsSaidWhenItChanges();
    void progressIsSaidInStepsOfTen();
    void anErrorIsSaid();
    void theEndOfAnUpdateIsSaid();
    void readinessIsSaid();

private:
    /// The part of this role, and of this name when one is given; without a role when there is
    /// none.
    Part part(const QString &role, const QString &name = QString());
    void status(bool online) { m_launcher->call("onServerStatusReceived", online, 3); }

    std::optional<LauncherFixture> m_launcher;
    std::optional<Observer> m_observer;
};

void TestAssistiveTechnology::initTestCase()
{
    if (QApplication::platformName() != u"xcb" ||
        qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) {
        QSKIP("There is no display with a session bus.");
    }
    Identity::apply();
    m_observer.emplace();
    QVERIFY(!m_observer->ask("listen", u"listening"_s).isEmpty());
}

void TestAssistiveTechnology::init()
{
    m_launcher.emplace();
    m_launcher->open();
    QVERIFY(QTest::qWaitForWindowExposed(m_launcher->window()));

    // It takes a moment until the bus has told this process that somebody listens.
    int sayings = 0;
    const auto saying = [&sayings] { return u"Essai %1"_s.arg(sayings); };
    const bool heard = QTest::qWaitFor(
        [&] {
            ++sayings;
            m_launcher->call("onUpdateFinished", true, saying());
            waitForStragglers();
            return !m_observer->said().isEmpty();
        },
        int(kPatience.count()));
    QVERIFY(heard);
    QTRY_COMPARE_WITH_TIMEOUT(m_observer->said().last(), saying(), kPatience.count());
    m_observer->forget();
}

void TestAssistiveTechnology::cleanupTestCase()
{
    m_observer.reset();
}

Part TestAssistiveTechnology::part(const QString &role, const QString &name)
{
    const QJsonArray tree = m_observer->ask("tree", u"tree"_s)[u"tree"_s].toArray();
    for (const auto &entry : tree) {
        if (entry[0].toString() != role || (!name.isNull() && entry[1].toString() != name))
            continue;
        QStringList states;
        const QJsonArray shown = entry[2].toArray();
        for (const auto &state : shown)
            states.append(state.toString());
        return {role, entry[1].toString(), states, entry[3].toDouble(-1)};
    }
    return {};
}

void TestAssistiveTechnology::thePlayButtonIsCalledWhatItShows()
{
    QCOMPARE(part(u"push button"_s, u"JOUER"_s).role, u"push button"_s);
    m_launcher->playButton()->setText(u"Mise à jour..."_s);
    QCOMPARE(part(u"push button"_s, u"Mise à jour..."_s).role, u"push button"_s);
    QCOMPARE(part(u"push button"_s, u"JOUER"_s).role, QString());
}

void TestAssistiveTechnology::theLogoHasAName()
{
    const Part logo = part(u"image"_s, u"Veyra Launcher"_s);
    QVERIFY2(logo.states.contains(u"showing"_s), qPrintable(logo.states.join(u' ')));
}

void TestAssistiveTechnology::aBusyBarIsBusy()
{
    QProgressBar *bar = m_launcher->progressBar();
    bar->setValue(42);
    Part seen = part(u"progress bar"_s);
    QCOMPARE(seen.name, u"Progression"_s);
    QCOMPARE(seen.value, 42.0);
    QVERIFY(!seen.states.contains(u"busy"_s));

    bar->setMaximum(0);
    seen = part(u"progress bar"_s);
    QVERIFY2(seen.states.contains(u"busy"_s), qPrintable(seen.states.join(u' ')));
    bar->setMaximum(100);
    QVERIFY(!part(u"progress bar"_s).states.contains(u"busy"_s));
}

void TestAssistiveTechnology::theServersStateIsSaidWhenItChanges()
{
    status(true);
    status(true);
    status(false);
    status(false);
    status(true);
    const QStringList expected{u"Serveur en ligne"_s, u"Serveur hors ligne"_s,
                               u"Serveur en ligne"_s};
    QTRY_COMPARE_WITH_TIMEOUT(m_observer->said(), expected, kPatience.count());
}

void TestAssistiveTechnology::progressIsSaidInStepsOfTen()
{
    for (const int percent : {0, 3, 9, 10, 11, 19, 25, 29, 71, 100}) {
        m_launcher->call("onClientDownloadProgress", percent, u"Téléchargement du client"_s);
        waitForStragglers(); // as it comes from a network
    }
    const QStringList expected{u"10 %"_s, u"20 %"_s, u"70 %"_s};
    QTRY_COMPARE_WITH_TIMEOUT(m_observer->said(), expected, kPatience.count());
}

void TestAssistiveTechnology::anErrorIsSaid()
{
    BoxAnswers answers;
    answers.click(QMessageBox::Ok);
    m_launcher->call("onClientDownloadFinished", false, u"Erreur: le disque est plein"_s);
    QTRY_COMPARE_WITH_TIMEOUT(m_observer->said(), QStringList{u"Erreur: le disque est plein"_s},
                              kPatience.count());
}

void TestAssistiveTechnology::theEndOfAnUpdateIsSaid()
{
    m_launcher->call("onUpdateFinished", false, u"Erreur: manifeste illisible"_s);
    QTRY_COMPARE_WITH_TIMEOUT(m_observer->said(), QStringList{u"Erreur: manifeste illisible"_s},
                              kPatience.count());
}

void TestAssistiveTechnology::readinessIsSaid()
{
    m_launcher->installClient();
    m_launcher->call("onLauncherUpdateCheckFinished", false, QString(), QString(), false);
    QTRY_COMPARE_WITH_TIMEOUT(m_observer->said(), QStringList{u"Prêt à jouer !"_s},
                              kPatience.count());
}

VEYRA_WIDGET_TEST_MAIN(TestAssistiveTechnology)
#include "TestAssistiveTechnology.moc"
