#include "config/BuildSettings.h"

#include "tests/support/TestEnvironment.h"

#include <QRegularExpression>
#include <QTest>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

class TestBuildSettings : public QObject
{
    Q_OBJECT

private slots:
    void comeFromTheConfiguration();
    void versionIsMadeOfThreeNumbers();
    void serverAddressTakesPathsAsTheyStand();
};

void TestBuildSettings::comeFromTheConfiguration()
{
    QCOMPARE(BuildSettings::launcherVersion(), QStringLiteral(EXPECTED_VERSION));
    QCOMPARE(BuildSettings::serverBaseUrl(), QStringLiteral(EXPECTED_SERVER_URL));
    QCOMPARE(BuildSettings::discordInviteUrl(), QStringLiteral(EXPECTED_DISCORD_URL));
}

void TestBuildSettings::versionIsMadeOfThreeNumbers()
{
    static const QRegularExpression threeNumbers(u"\\A(0|[1-9][0-9]*)(\\.(0|[1-9][0-9]*)){2}\\z"_s);
    QVERIFY(threeNumbers.match(BuildSettings::launcherVersion()).hasMatch());
}

void TestBuildSettings::serverAddressTakesPathsAsTheyStand()
{
    const QUrl base(BuildSettings::serverBaseUrl());
    QVERIFY(base.scheme() == u"http" || base.scheme() == u"https");
    QVERIFY(!base.host().isEmpty());
    QCOMPARE(base.path(), u"/"_s);

    const QUrl url(BuildSettings::serverBaseUrl() + u"api/status.php"_s);
    QVERIFY(url.isValid());
    QCOMPARE(url.host(), base.host());
    QCOMPARE(url.path(), u"/api/status.php"_s);
}

VEYRA_CORE_TEST_MAIN(TestBuildSettings)
#include "TestBuildSettings.moc"
