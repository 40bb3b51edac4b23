#include "app/Identity.h"
#include "tests/support/BoxAnswers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

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
        m_process.waitForFinished();
    }

    /// This process answers the bus meanwhile.
    QJsonObject ask(const QByteArray &command, const QString &key)
    {
        m_process.write(command + '\n');
        QJsonObject answer;
        const bool answered = QTest::qWaitFor(
            [&] {
                readAll();
                const auto found =
                    std::find_if(m_answers.begin(), m_answers.end(),
                                 [&](const QJsonObject &one) { return one.contains(key); });
                if (found == m_answers.end())
                    return false;
                answer = *found;
                m_answers.erase(found);
                return true;
            },
            int(kPatience.count()));
        if (!answered)
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
    void cleanup();
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
    Identity::apply();
}

void TestAssistiveTechnology::init()
{
    m_launcher.emplace();
    m_launcher->open();
    QVERIFY(QTest::qWaitForWindowExposed(m_launcher->window()));
    m_observer.emplace();
    QVERIFY(!m_observer->ask("listen", u"listening"_s).isEmpty());

    // It takes a moment until the bus has told this process that somebody listens.
    bool online = false;
    QVERIFY(QTest::qWaitFor(
        [&] {
            status(online = !online);
            QTest::qWait(50);
            return !m_observer->said().isEmpty();
        },
        int(kPatience.count())));
    status(false);
    status(true);
    QTRY_COMPARE_WITH_TIMEOUT(m_observer->said().last(), u"Serveur en ligne"_s, kPatience.count());
    QTest::qWait(100); // the last of them
    m_observer->said();
    m_observer->forget();
}

void TestAssistiveTechnology::cleanup()
{
    m_observer.reset();
    m_launcher.reset();
}

Part TestAssistiveTechnology::part(const QString &role, const QString &name)
{
    const QJsonArray tree = m_observer->ask("tree", u"tree"_s)[u"tree"_s].toArray();
    for (const QJsonValue &entry : tree) {
        if (entry[0].toString() != role || (!name.isNull() && entry[1].toString() != name))
            continue;
        QStringList states;
        for (const QJsonValue &state : entry[2].toArray())
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
    const Part logo = part(QString::fromLatin1("label"), u"Veyra Launcher"_s);
    QVERIFY(!logo.role.isEmpty());
    QVERIFY(logo.states.contains(u"showing"_s));
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
    status(true); // as before
    status(false);
    status(false);
    status(true);
    const QStringList expected{u"Serveur hors ligne"_s, u"Serveur en ligne"_s};
    QTRY_COMPARE_WITH_TIMEOUT(m_observer->said(), expected, kPatience.count());
}

void TestAssistiveTechnology::progressIsSaidInStepsOfTen()
{
    for (const int percent : {0, 3, 9, 10, 11, 19, 25, 29, 71, 100}) {
        m_launcher->call("onClientDownloadProgress", percent, u"Téléchargement du client"_s);
        QTest::qWait(20); // as it comes from a network
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
