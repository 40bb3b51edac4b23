#include "app/Identity.h"
#include "app/MainWindow.h"
#include "config/Config.h"
#include "tests/support/BoxAnswers.h"
#include "tests/support/HttpServer.h"
#include "tests/support/TestEnvironment.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qsizetype kHuge = 50'000'000;
/// Reading and parsing 50 MB takes a second or two under a sanitizer; showing it would take minutes.
constexpr int kPatience = 30'000;

const QByteArray kHugeText(kHuge, 'x');

} // namespace

/// The whole window against a server that answers nonsense: it goes on to its ready state.
class TestServerNonsense : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void becomesReadyWhateverComes_data();
    void becomesReadyWhateverComes();
    void hugeNewsAreShownInPart();
    void aHugeChangelogStillAsks();

private:
    QTemporaryDir m_game;
    HttpServer m_server;
};

void TestServerNonsense::initTestCase()
{
    QApplication::setStyle(u"Fusion"_s);
    m_server.becomeProxy();
    Config::instance().setDofusPath(m_game.path());
    QFile marker(m_game.path() + u"/DofusInvoker.swf"_s);
    QVERIFY(marker.open(QIODevice::WriteOnly));
}

void TestServerNonsense::init()
{
    m_server.clear();
    m_server.answerEverythingWith(HttpAnswer::status(404));
}

void TestServerNonsense::becomesReadyWhateverComes_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("NUL bytes") << QByteArray(1000, '\0');
    QTest::newRow("invalid UTF-8") << QByteArray("{\"version\": \"\xff\xfe\", \"online\": \xc3}");
    QTest::newRow("100,000 open brackets") << QByteArray(100'000, '[');
    QTest::newRow("100,000 open objects") << QByteArray("{\"a\":").repeated(100'000);
    QTest::newRow("odd numbers")
        << "{\"version\": 1e999, \"required\": -0, \"online\": true, \"players\": 1e400}"_ba;
    QTest::newRow("a number beyond 32 bits")
        << "{\"version\": [], \"online\": true, \"players\": 4294967296}"_ba;
    QTest::newRow("50 MB of text") << kHugeText;
    QTest::newRow("50 MB of white space") << QByteArray(kHuge, ' ');
    QTest::newRow("a lone string of 50 MB") << '"' + kHugeText + '"';
}

void TestServerNonsense::becomesReadyWhateverComes()
{
    QFETCH(const QByteArray, body);
    m_server.answerEverythingWith(HttpAnswer::ok(body));
    MainWindow window;
    window.show();
    auto *progress = window.findChild<QLabel *>(u"progressLabel"_s);
    QTRY_COMPARE_WITH_TIMEOUT(progress->text(), u"Prêt à jouer !"_s, kPatience);
    QVERIFY(window.findChild<QPushButton *>(u"playButton"_s)->isEnabled());
    QTRY_COMPARE_WITH_TIMEOUT(m_server.requestCount("/api/news.php"), 1, kPatience);
}

void TestServerNonsense::hugeNewsAreShownInPart()
{
    m_server.answer("/api/news.php", HttpAnswer::ok("[\"premier\", \"" + kHugeText + "\", \"dernier\"]"));
    MainWindow window;
    window.show();
    auto *news = window.findChild<QTextEdit *>(u"newsWidget"_s);
    QTRY_VERIFY_WITH_TIMEOUT(news->toPlainText().startsWith(u"• premier"), kPatience);
    QVERIFY(news->toPlainText().size() > 100'000);
    QVERIFY(news->toPlainText().size() < 250'000);
    QVERIFY(!news->toPlainText().contains(u"dernier"));
}

void TestServerNonsense::aHugeChangelogStillAsks()
{
    m_server.answer("/api/launcher_version.json",
                    HttpAnswer::ok("{\"version\": \"2.0\", \"changelog\": \"" + kHugeText + "\"}"));
    BoxAnswers answers;
    answers.click(QMessageBox::No);
    MainWindow window;
    window.show();
    QTRY_COMPARE_WITH_TIMEOUT(answers.seen().size(), 1, kPatience);
    QVERIFY(answers.seen().first().text.size() < 25'000);
    QVERIFY(answers.seen().first().text.endsWith(u"\n\nVoulez-vous mettre à jour maintenant ?"));
    QTRY_COMPARE(window.findChild<QLabel *>(u"progressLabel"_s)->text(), u"Prêt à jouer !"_s);
}

VEYRA_WIDGET_TEST_MAIN(TestServerNonsense)
#include "TestServerNonsense.moc"
