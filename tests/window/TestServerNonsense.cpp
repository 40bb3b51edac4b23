#include "app/Identity.h"
#include "tests/support/BoxAnswers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QTextEdit>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qsizetype kHuge = 50'000'000;
/// Reading and parsing 50 MB takes a second or two under a sanitizer; showing it would take
/// minutes.
constexpr int kPatience = 30'000;
/// From the request to the painted news: a second at most, ten times that under a sanitizer.
constexpr int kSoon = 10'000;

const QByteArray kHugeText(kHuge, 'x');

} // namespace

/// The whole window against a server that answers nonsense: it goes on to its ready state.
class TestServerNonsense : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Identity::apply(); }
    void init();
    void cleanup() { m_launcher.reset(); }
    void becomesReadyWhateverComes_data();
    void becomesReadyWhateverComes();
    void hugeNewsAreShownInPart();
    void longNewsAreShownInPart();
    void newsThatRepeatEachOtherAreCut();
    void hostileNewsAreShownSoon_data();
    void hostileNewsAreShownSoon();
    void usualNewsStayAsTheyAre_data();
    void usualNewsStayAsTheyAre();
    void aHugeChangelogStillAsks();
    void errorsAreNoHtml();

private:
    HttpServer &server() { return m_launcher->server; }
    QString progressText() const { return m_launcher->label(u"progressLabel"_s)->text(); }

    std::unique_ptr<LauncherFixture> m_launcher;
};

void TestServerNonsense::init()
{
    m_launcher = std::make_unique<LauncherFixture>();
    server().clear();
    m_launcher->installClient();
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
    server().answerEverythingWith(HttpAnswer::ok(body));
    m_launcher->open();
    QTRY_COMPARE_WITH_TIMEOUT(progressText(), u"Prêt à jouer !"_s, kPatience);
    QVERIFY(m_launcher->playButton()->isEnabled());
    QTRY_COMPARE_WITH_TIMEOUT(server().requestCount("/api/news.php"), 1, kPatience);
}

void TestServerNonsense::hugeNewsAreShownInPart()
{
    server().answer("/api/news.php",
                    HttpAnswer::ok("[\"premier\", \"" + kHugeText + "\", \"dernier\"]"));
    m_launcher->open();
    auto *news = m_launcher->news();
    QTRY_VERIFY_WITH_TIMEOUT(news->toPlainText().startsWith(u"• premier"), kPatience);
    QVERIFY(news->toPlainText().size() > 5'000); // endless words take the layout longest
    QVERIFY(news->toPlainText().size() < 60'000);
    QVERIFY(!news->toPlainText().contains(u"dernier"));
}

void TestServerNonsense::longNewsAreShownInPart()
{
    server().answer("/api/news.php",
                    HttpAnswer::ok("[\"premier\", \"" +
                                   QByteArray("Saison d'hiver. ").repeated(300'000) +
                                   "\", \"dernier\"]"));
    m_launcher->open();
    auto *news = m_launcher->news();
    QTRY_VERIFY_WITH_TIMEOUT(news->toPlainText().startsWith(u"• premier"), kPatience);
    QVERIFY(news->toPlainText().size() > 40'000);
    QVERIFY(!news->toPlainText().contains(u"dernier"));
}

void TestServerNonsense::newsThatRepeatEachOtherAreCut()
{
    const QByteArray item = R"({"date":")" + QByteArray("%2").repeated(1000) + R"(","title":")" +
                            QByteArray("%3").repeated(1000) + R"(","content":")" +
                            QByteArray(1000, 'x') + R"("})";
    server().answer("/api/news.php", HttpAnswer::ok('[' + item + ",\"dernier\"]"));
    m_launcher->open();
    QTRY_VERIFY_WITH_TIMEOUT(m_launcher->news()->toPlainText().contains(u"xxx"), kPatience);
}

void TestServerNonsense::hostileNewsAreShownSoon_data()
{
    QTest::addColumn<QByteArray>("item");
    QTest::addColumn<int>("count");
    const QByteArray table = "<table><tr><td>";
    QTest::newRow("3,000 nested tables") << table.repeated(3000) << 1;
    QTest::newRow("20 nested tables") << table.repeated(20) << 1;
    QTest::newRow("tables nested over many items") << table.repeated(5) << 200;
    QTest::newRow("margins of millions of pixels")
        << "<p style='margin-top:9000000px'>x</p>"_ba.repeated(6) << 1;
    QTest::newRow("half a surrogate pair beside them")
        << R"(<p title='\ud800' style='margin-top:9000000px'>x</p>)"_ba.repeated(6) << 1;
    QTest::newRow("a long title beside them")
        << "<p title='1234567' style='margin-top:9000000px'>x</p>"_ba.repeated(6) << 1;
    QTest::newRow("margins in large units")
        << "<p style='margin-top:9999.5em'>x</p>"_ba.repeated(50) << 20;
    QTest::newRow("pictures larger than any screen")
        << "<img width=30000 height=30000>"_ba.repeated(600) << 1;
    QTest::newRow("many large pictures") << "<img width=9999 height=9999>"_ba.repeated(9) << 100;
    QTest::newRow("60,000 tags") << "<b>"_ba.repeated(60'000) << 1;
    QTest::newRow("tags left open in many items") << "<div><ul><li>"_ba.repeated(3) << 2000;
    QTest::newRow("a million empty items") << QByteArray() << 1'000'000;
    QTest::newRow("an open angle bracket and digits")
        << QByteArray("<" + QByteArray(40'000, '9')) << 1;
}

void TestServerNonsense::hostileNewsAreShownSoon()
{
    QFETCH(const QByteArray, item);
    QFETCH(const int, count);
    QByteArray feed = ('"' + item + "\",").repeated(count);
    feed.chop(1);
    server().answer("/api/news.php", HttpAnswer::ok('[' + feed + ']'));
    m_launcher->open();
    auto *news = m_launcher->news();
    QElapsedTimer elapsed;
    elapsed.start();
    QTRY_VERIFY_WITH_TIMEOUT(!news->document()->isEmpty(), kPatience);
    news->grab();
    QApplication::processEvents();
    QVERIFY2(elapsed.elapsed() < kSoon, qPrintable(u"%1 ms"_s.arg(elapsed.elapsed())));
}

void TestServerNonsense::usualNewsStayAsTheyAre_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QString>("shown");
    QTest::newRow("tags") << u"<b>Gras</b> et <i>penché</i>"_s << u"• Gras et penché"_s;
    QTest::newRow("a colour of six digits")
        << u"<span style='color: #123456; font-size: 14px'>Bleu</span>"_s << u"• Bleu"_s;
    QTest::newRow("a link with a long number")
        << u"<a href='http://forum.test/sujet/1234567'>Forum</a>"_s << u"• Forum"_s;
    QTest::newRow("an anchor with a long number")
        << u"<a name='1234567'></a>Ancre"_s << u"• Ancre"_s;
    QTest::newRow("large numbers in the text")
        << u"Plus de 1000000 joueurs"_s << u"• Plus de 1000000 joueurs"_s;
    QTest::newRow("a picture") << u"Avant<IMG src='x.png'>, après"_s << u"• Avant, après"_s;
    QTest::newRow("a picture that is cut off") << u"Avant<img src='x.png'"_s << u"• Avant"_s;
    QTest::newRow("a wide table") << u"<table width='1200'><tr><td>Lundi</td></tr></table>"_s
                                  << u"• \nLundi"_s;
}

void TestServerNonsense::usualNewsStayAsTheyAre()
{
    QFETCH(const QString, item);
    server().answer("/api/news.php", HttpAnswer::ok("[\"" + item.toUtf8() + "\"]"));
    m_launcher->open();
    auto *news = m_launcher->news();
    QTRY_VERIFY(!news->document()->isEmpty());
    QTEST(news->toPlainText().trimmed(), "shown");
}

void TestServerNonsense::errorsAreNoHtml()
{
    QVERIFY(QFile::remove(m_launcher->gameFolder() + u"/DofusInvoker.swf"_s));
    HttpAnswer answer = HttpAnswer::status(404);
    answer.reason = "<b>gras</b> <img src='/nowhere.png'>";
    server().answer("/client/DofusClient.zip", answer);
    BoxAnswers answers;
    QMessageBox *box = nullptr;
    Qt::TextFormat format = Qt::AutoText;
    answers.meanwhile([&] {
        box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        format = box->textFormat();
    });
    answers.click(QMessageBox::Ok);
    m_launcher->open();
    QTRY_COMPARE(answers.seen().size(), 1);
    QTRY_VERIFY(box);
    QVERIFY(answers.seen().first().text.contains(u"<b>gras</b>"));
    QCOMPARE(format, Qt::PlainText);
    QCOMPARE(m_launcher->label(u"progressLabel"_s)->textFormat(), Qt::PlainText);
    QVERIFY(progressText().contains(u"<b>gras</b>"));
    QTRY_VERIFY(!QApplication::activeModalWidget());
}

void TestServerNonsense::aHugeChangelogStillAsks()
{
    server().answer("/api/launcher_version.json",
                    HttpAnswer::ok("{\"version\": \"2.0\", \"changelog\": \"" + kHugeText + "\"}"));
    BoxAnswers answers;
    bool buttonsAreSeen = false;
    answers.meanwhile([&buttonsAreSeen] {
        const auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        const QWidget *no = box->button(QMessageBox::No);
        const QRect button(no->mapToGlobal(QPoint()), no->size());
        buttonsAreSeen = box->screen()->availableGeometry().contains(button);
    });
    answers.click(QMessageBox::No);
    m_launcher->open();
    QTRY_COMPARE_WITH_TIMEOUT(answers.seen().size(), 1, kPatience);
    QTRY_VERIFY(buttonsAreSeen);
    QVERIFY(answers.seen().first().text.size() < 25'000);
    QVERIFY(answers.seen().first().text.endsWith(u"\n\nVoulez-vous mettre à jour maintenant ?"));
    QTRY_COMPARE(progressText(), u"Prêt à jouer !"_s);
}

VEYRA_WIDGET_TEST_MAIN(TestServerNonsense)
#include "TestServerNonsense.moc"
