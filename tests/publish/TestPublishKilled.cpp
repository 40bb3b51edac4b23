#include "tests/publish/Publisher.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"

#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kMostSteps = 300;

} // namespace

/// Killed at any of its changes on the disk, the tool leaves a site that is whole: the one before
/// or the one after. The next run goes on from what it finds.
class TestPublishKilled : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void anyStepOfAClient();
    void anyStepOfNews();
    void anyStepOfPuttingOnline();
    void anyStepOfTakingBack();
    void anyStepOfTheState();
    void anyStepOfTheBeginning();

private:
    using Site = QMap<QString, QByteArray>;

    /// Runs it until it comes through, killed one step later each time. Returns how often it was
    /// killed, or -1 when the site was neither of the two.
    int killAtEveryStep(const QStringList &arguments, const Site &before, const Site &after) const;
    QStringList client() const { return {u"client"_s, m_publisher.beside(u"client"_s)}; }

    Publisher m_publisher;
    Site m_empty;
    Site m_full;
};

int TestPublishKilled::killAtEveryStep(const QStringList &arguments, const Site &before,
                                       const Site &after) const
{
    for (int step = 1; step < kMostSteps; ++step) {
        const Publisher::Result result = m_publisher.runUntil(step, arguments);
        const Site site = m_publisher.site();
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

void TestPublishKilled::initTestCase()
{
    Clients::write(m_publisher.beside(u"client"_s), Clients::sample());
    QCOMPARE(m_publisher.run({u"init"_s, u"http://veyra.test/"_s}).code, 0);
    m_empty = m_publisher.site();
    QVERIFY(!m_empty.isEmpty());
}

void TestPublishKilled::anyStepOfAClient()
{
    QVERIFY(killAtEveryStep(client(), m_empty, m_empty) > 20);
    QVERIFY(!QFile::exists(m_publisher.path(u"publications/.en-cours"_s)));
    const QMap<QString, QByteArray> files = Clients::sample();
    for (auto file = files.begin(); file != files.end(); ++file) {
        QCOMPARE(Files::read(m_publisher.path(u"brouillon/updates/files/"_s + file.key())),
                 file.value());
    }
}

void TestPublishKilled::anyStepOfNews()
{
    const QStringList arguments{u"nouvelles"_s, u"ajouter"_s, u"Titre"_s, u"Texte"_s};
    QVERIFY(killAtEveryStep(arguments, m_empty, m_empty) > 10);
}

void TestPublishKilled::anyStepOfPuttingOnline()
{
    const QStringList arguments{u"mettre-en-ligne"_s};
    Site draft;
    const QStringList names = Files::tree(m_publisher.path(u"brouillon"_s));
    for (const QString &name : names) {
        if (!name.endsWith(u'/'))
            draft.insert(name, Files::read(m_publisher.path(u"brouillon/"_s + name)));
    }
    QVERIFY(draft.contains(u"client/DofusClient.zip"_s));
    QVERIFY(killAtEveryStep(arguments, m_empty, draft) >= 4);
    m_full = m_publisher.site();
    QVERIFY(m_full == draft);
}

void TestPublishKilled::anyStepOfTakingBack()
{
    QVERIFY(killAtEveryStep({u"annuler"_s}, m_full, m_empty) >= 4);
    QVERIFY(m_publisher.site() == m_empty);
}

void TestPublishKilled::anyStepOfTheState()
{
    Site online = m_empty;
    online[u"api/status.php"_s] = "{\n    \"online\": true,\n    \"players\": 7\n}\n";
    QVERIFY(killAtEveryStep({u"etat"_s, u"en-ligne"_s, u"7"_s}, m_empty, online) >= 2);
    QVERIFY(m_publisher.site() == online);
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
    QCOMPARE(publisher.run(init).code, 2);
}

VEYRA_CORE_TEST_MAIN(TestPublishKilled)
#include "TestPublishKilled.moc"
