#include "tests/publish/Publisher.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QTest>

#include <functional>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kMostSteps = 600;
constexpr auto kDoomed = ".a-supprimer-*"_L1;

} // namespace

/// Killed at any of its changes on the disk, the tool leaves a site that is whole: the one before
/// or the one after. The next run goes on from what it finds.
class TestPublishKilled : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void anyStepOfAClient();
    void anyStepOfAClientLeavesAWholeDraft();
    void anyStepOfNews();
    void anyStepOfPuttingOnline();
    void anyStepOfTakingBack();
    void anyStepOfTheState();
    void anyStepOfTheBeginning();
    void anyStepOfRemovingOldGenerations();
    void anyStepOfTakingBackLeavesAWayBack();

private:
    using Site = QMap<QString, QByteArray>;

    /// Runs it until it comes through, killed one step later each time. Returns how often it was
    /// killed, or -1 when the site was neither of the two.
    int killAtEveryStep(const QStringList &arguments, const Site &before, const Site &after) const;
    /// The same with a fresh copy of the workshop for each step. `check` is called after each kill;
    /// it tells whether all is well.
    int killCopiesAtEveryStep(const QStringList &arguments,
                              const std::function<bool(const Publisher &)> &check) const;

    bool publishClient() const
    {
        Clients::write(m_publisher->beside(u"client"_s), Clients::sample());
        return m_publisher->run({u"client"_s, m_publisher->beside(u"client"_s)}).code == 0;
    }
    bool putOnline() const { return m_publisher->run({u"mettre-en-ligne"_s}).code == 0; }
    bool publishNews(const QString &title) const
    {
        return m_publisher->run({u"nouvelles"_s, u"ajouter"_s, title, u"Texte"_s}).code == 0;
    }
    /// Generations 2 to 5 have been online one after the other, and 6 is to follow.
    bool publishFiveGenerations() const;

    static Site contentOf(const Publisher &publisher, const QString &folder);
    /// Everything that could ever be served again, by name and number.
    static QMap<QString, Site> generationsOf(const Publisher &publisher);
    static int served(const Publisher &publisher)
    {
        return QFileInfo(QFile::symLinkTarget(publisher.path(u"site"_s))).fileName().toInt();
    }

    std::unique_ptr<Publisher> m_publisher;
    Site m_empty;
};

int TestPublishKilled::killAtEveryStep(const QStringList &arguments, const Site &before,
                                       const Site &after) const
{
    for (int step = 1; step < kMostSteps; ++step) {
        const Publisher::Result result = m_publisher->runUntil(step, arguments);
        const Site site = m_publisher->site();
        if (site != before && site != after) {
            qWarning("Step %d leaves another site", step);
            return -1;
        }
        if (result.code == 0)
            return step - 1;
        if (result.code != Publisher::kKilled) {
            qWarning("Step %d: %s", step, qPrintable(result.errors));
            return -1;
        }
    }
    return -1;
}

int TestPublishKilled::killCopiesAtEveryStep(
    const QStringList &arguments, const std::function<bool(const Publisher &)> &check) const
{
    for (int step = 1; step < kMostSteps; ++step) {
        const Publisher copy;
        if (QProcess::execute(u"cp"_s, {u"-a"_s, m_publisher->path(u"."_s), copy.path(u""_s)}) != 0)
            return -1;
        const Publisher::Result result = copy.runUntil(step, arguments);
        if (!check(copy)) {
            qWarning("Step %d: %s", step, qPrintable(result.errors));
            return -1;
        }
        if (result.code == 0)
            return step - 1;
    }
    return -1;
}

bool TestPublishKilled::publishFiveGenerations() const
{
    bool isGood = true;
    for (int i = 2; i <= 5; ++i)
        isGood = isGood && publishNews(QString::number(i)) && putOnline();
    return isGood && publishNews(u"6"_s);
}

TestPublishKilled::Site TestPublishKilled::contentOf(const Publisher &publisher,
                                                     const QString &folder)
{
    Site content;
    const QStringList names = Files::tree(publisher.path(folder));
    for (const QString &name : names) {
        if (!name.endsWith(u'/'))
            content.insert(name, Files::read(publisher.path(folder + u'/' + name)));
    }
    return content;
}

QMap<QString, TestPublishKilled::Site> TestPublishKilled::generationsOf(const Publisher &publisher)
{
    QMap<QString, Site> generations;
    const QStringList numbers = QDir(publisher.path(u"publications"_s))
                                    .entryList({u"[0-9]*"_s}, QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &number : numbers)
        generations.insert(number, contentOf(publisher, u"publications/"_s + number));
    return generations;
}

void TestPublishKilled::init()
{
    m_publisher = std::make_unique<Publisher>();
    QCOMPARE(m_publisher->run({u"init"_s, u"http://veyra.test/"_s}).code, 0);
    m_empty = m_publisher->site();
    QVERIFY(!m_empty.isEmpty());
}

void TestPublishKilled::anyStepOfAClient()
{
    const QMap<QString, QByteArray> files = Clients::sample();
    Clients::write(m_publisher->beside(u"client"_s), files);
    QVERIFY(killAtEveryStep({u"client"_s, m_publisher->beside(u"client"_s)}, m_empty, m_empty) >
            20);
    QVERIFY(!QFile::exists(m_publisher->path(u"publications/.en-cours"_s)));
    for (auto file = files.begin(); file != files.end(); ++file) {
        QCOMPARE(Files::read(m_publisher->path(u"brouillon/updates/files/"_s + file.key())),
                 file.value());
    }
}

/// Whatever the killed run has left: put online, it is the old site or the new one.
void TestPublishKilled::anyStepOfAClientLeavesAWholeDraft()
{
    const QString client = m_publisher->beside(u"client"_s);
    Clients::write(client, Clients::sample());
    const Publisher other;
    QCOMPARE(other.run({u"init"_s, u"http://veyra.test/"_s}).code, 0);
    QCOMPARE(other.run({u"client"_s, client}).code, 0);
    const Site whole = contentOf(other, u"brouillon"_s);
    QSet<int> served;
    const auto isWhole = [&](const Publisher &publisher) {
        if (publisher.run({u"mettre-en-ligne"_s}).code != 0)
            return false;
        served.insert(TestPublishKilled::served(publisher));
        return publisher.site() == m_empty || publisher.site() == whole;
    };
    QVERIFY(killCopiesAtEveryStep({u"client"_s, client}, isWhole) > 20);
    QCOMPARE(served, (QSet{1, 2}));
}

void TestPublishKilled::anyStepOfNews()
{
    const QStringList arguments{u"nouvelles"_s, u"ajouter"_s, u"Titre"_s, u"Texte"_s};
    QVERIFY(killAtEveryStep(arguments, m_empty, m_empty) > 10);
}

void TestPublishKilled::anyStepOfPuttingOnline()
{
    QVERIFY(publishClient());
    const Site draft = contentOf(*m_publisher, u"brouillon"_s);
    QVERIFY(draft.contains(u"client/DofusClient.zip"_s));
    QVERIFY(killAtEveryStep({u"mettre-en-ligne"_s}, m_empty, draft) >= 4);
    QVERIFY(m_publisher->site() == draft);
}

void TestPublishKilled::anyStepOfTakingBack()
{
    QVERIFY(publishClient());
    QVERIFY(putOnline());
    QVERIFY(killAtEveryStep({u"annuler"_s}, m_publisher->site(), m_empty) >= 4);
    QVERIFY(m_publisher->site() == m_empty);
}

void TestPublishKilled::anyStepOfTheState()
{
    Site online = m_empty;
    online[u"api/status.php"_s] = "{\n    \"online\": true,\n    \"players\": 7\n}\n";
    QVERIFY(killAtEveryStep({u"etat"_s, u"en-ligne"_s, u"7"_s}, m_empty, online) >= 2);
    QVERIFY(m_publisher->site() == online);
}

void TestPublishKilled::anyStepOfTheBeginning()
{
    const Publisher publisher;
    const QStringList init{u"init"_s, u"http://veyra.test/"_s};
    int step = 1;
    while (step < kMostSteps && publisher.runUntil(step, init).code == Publisher::kKilled)
        ++step;
    QVERIFY(step > 10);
    QCOMPARE(publisher.site(), m_empty);
    QCOMPARE(publisher.run(init).code, 0);
}

/// What has a number could be served again: it is there as a whole, or not at all.
void TestPublishKilled::anyStepOfRemovingOldGenerations()
{
    QVERIFY(publishFiveGenerations());
    const QMap<QString, Site> whole = generationsOf(*m_publisher);
    QCOMPARE(whole.keys(), (QStringList{u"0003"_s, u"0004"_s, u"0005"_s, u"0006"_s}));
    int doomed = 0;
    const int steps =
        killCopiesAtEveryStep({u"mettre-en-ligne"_s}, [&](const Publisher &publisher) {
            const QMap<QString, Site> left = generationsOf(publisher);
            for (auto generation = left.begin(); generation != left.end(); ++generation) {
                if (generation.value() != whole.value(generation.key()))
                    return false;
            }
            const QDir publications(publisher.path(u"publications"_s));
            const auto hidden = QDir::Dirs | QDir::Hidden;
            doomed += publications.entryList({kDoomed}, hidden).isEmpty() ? 0 : 1;
            // The next run finishes what this one has begun.
            return publisher.run({u"mettre-en-ligne"_s}).code == 0 &&
                   publications.entryList({kDoomed}, hidden).isEmpty() &&
                   generationsOf(publisher).keys() == whole.keys().mid(1) &&
                   !publications.exists(u"0003.avant"_s);
        });
    QVERIFY2(steps > 10, qPrintable(QString::number(steps)));
    QVERIFY2(doomed > 3, qPrintable(QString::number(doomed)));
}

/// Whatever is done next: what was taken back does not come back by itself.
void TestPublishKilled::anyStepOfTakingBackLeavesAWayBack()
{
    QVERIFY(publishFiveGenerations());
    QVERIFY(putOnline());
    const auto goesBack = [](const Publisher &publisher) {
        QList<int> numbers;
        for (const QString &command : {u"mettre-en-ligne"_s, u"annuler"_s}) {
            publisher.run({command});
            numbers.append(served(publisher));
        }
        return numbers == QList{6, 5} || numbers == QList{5, 4};
    };
    QVERIFY(killCopiesAtEveryStep({u"annuler"_s}, goesBack) >= 4);
}

VEYRA_CORE_TEST_MAIN(TestPublishKilled)
#include "TestPublishKilled.moc"
