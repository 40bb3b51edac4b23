#include "publish/Commands.h"
#include "publish/Findings.h"
#include "publish/Outcome.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"

#include <QTest>

using namespace Qt::Literals::StringLiterals;

/// The operator's guide says what the program does.
class TestPublishGuide : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void everyMistakeStandsInTheTable_data();
    void everyMistakeStandsInTheTable();
    void theTableKnowsNoOtherMistakes();
    void everyCommandIsShown();
    void everyExitCodeIsTold();

private:
    QString m_guide;
};

void TestPublishGuide::initTestCase()
{
    m_guide = QString::fromUtf8(Files::read(QStringLiteral(VEYRA_GUIDE)));
    QVERIFY(!m_guide.isEmpty());
}

void TestPublishGuide::everyMistakeStandsInTheTable_data()
{
    QTest::addColumn<QString>("row");
    for (const Mistake &mistake : Findings::catalogue()) {
        QTest::newRow(qPrintable(mistake.code)) << u"| %1 | %2 | %3 | %4 |"_s.arg(
            mistake.code, mistake.isError ? u"erreur"_s : u"avertissement"_s, mistake.players,
            mistake.remedy);
    }
}

void TestPublishGuide::everyMistakeStandsInTheTable()
{
    QFETCH(const QString, row);
    QVERIFY2(m_guide.contains(u'\n' + row + u'\n'), qPrintable(row));
}

void TestPublishGuide::theTableKnowsNoOtherMistakes()
{
    QCOMPARE(m_guide.count(u"\n| M"_s), Findings::catalogue().size());
}

void TestPublishGuide::everyCommandIsShown()
{
    for (const CommandForm &form : commandForms()) {
        QVERIFY2(m_guide.contains(u"\n    veyra-publier "_s + form.name), qPrintable(form.name));
        const QStringList options = form.valueOptions + form.flags;
        for (const QString &option : options)
            QVERIFY2(m_guide.contains(option), qPrintable(option));
    }
}

void TestPublishGuide::everyExitCodeIsTold()
{
    for (const Outcome outcome :
         {Outcome::Good, Outcome::Usage, Outcome::Refused, Outcome::Errors, Outcome::Warnings,
          Outcome::Unreachable, Outcome::Disk, Outcome::BrokenOff, Outcome::Interrupted})
        QVERIFY(m_guide.contains(u"\n| %1 | "_s.arg(static_cast<int>(outcome))));
}

VEYRA_CORE_TEST_MAIN(TestPublishGuide)
#include "TestPublishGuide.moc"
