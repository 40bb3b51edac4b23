#include "app/MainWindow.h"
#include "net/ServerChecker.h"
#include "tests/support/Stragglers.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QImage>
#include <QLabel>
#include <QTest>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>
#include <QTextFrame>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kOnlineStyle =
    u"color: #8bc34a; font-size: 16px; font-weight: bold; padding: 10px 20px; "
    "background: rgba(0, 0, 0, 0.5); border-radius: 10px;"_s;
const auto kOfflineStyle =
    u"color: #f44336; font-size: 16px; font-weight: bold; padding: 10px 20px; "
    "background: rgba(0, 0, 0, 0.5); border-radius: 10px;"_s;

constexpr QRgb kMagenta = qRgb(255, 0, 255);

bool showsMagenta(QWidget *widget)
{
    const QImage image = widget->grab().toImage();
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixel(x, y) == kMagenta)
                return true;
        }
    }
    return false;
}

} // namespace

/// What the window shows of the server's status and news.
class TestStatusAndNews : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_launcher.reset(); }

    void status_data();
    void status();
    void eachReportOverwritesBothLabels();
    void statusFromTheServer_data();
    void statusFromTheServer();
    void onlyTheStatusLabelHasASheetOfItsOwn();

    void news_data();
    void news();
    void newsAreParagraphsWithAMargin();
    void newsReplaceEarlierOnes();
    void noNewsShowThePlaceholder();
    void newsLoadNothing_data();
    void newsLoadNothing();
    void newsReadNoStyleSheets_data();
    void newsReadNoStyleSheets();

private:
    QLabel *statusLabel() const { return m_launcher->label(u"statusLabel"_s); }
    QLabel *playersLabel() const { return m_launcher->label(u"playersLabel"_s); }

    std::unique_ptr<LauncherFixture> m_launcher;
};

void TestStatusAndNews::init()
{
    m_launcher = std::make_unique<LauncherFixture>();
    m_launcher->open();
}

void TestStatusAndNews::status_data()
{
    QTest::addColumn<bool>("online");
    QTest::addColumn<int>("players");
    QTest::addColumn<QString>("count");

    QTest::newRow("nobody is singular") << true << 0 << u"0 joueur connecté"_s;
    QTest::newRow("one player") << true << 1 << u"1 joueur connecté"_s;
    QTest::newRow("two players") << true << 2 << u"2 joueurs connectés"_s;
    QTest::newRow("fifteen players") << true << 15 << u"15 joueurs connectés"_s;
    QTest::newRow("many players, without separators")
        << true << 2147483647 << u"2147483647 joueurs connectés"_s;
    QTest::newRow("a negative count is not shown") << true << -1 << QString();
    QTest::newRow("the smallest number is not shown") << true << (-2147483647 - 1) << QString();
    QTest::newRow("offline with players") << false << 12 << QString();
    QTest::newRow("offline without players") << false << 0 << QString();
    QTest::newRow("offline with a negative count") << false << -1 << QString();
}

void TestStatusAndNews::status()
{
    QFETCH(const bool, online);
    QFETCH(const int, players);
    playersLabel()->setText(u"from before"_s);
    m_launcher->call("onServerStatusReceived", online, players);
    QCOMPARE(statusLabel()->text(), online ? u"Serveur en ligne"_s : u"Serveur hors ligne"_s);
    QCOMPARE(statusLabel()->styleSheet(), online ? kOnlineStyle : kOfflineStyle);
    QTEST(playersLabel()->text(), "count");
}

void TestStatusAndNews::eachReportOverwritesBothLabels()
{
    m_launcher->call("onServerStatusReceived", true, 5);
    m_launcher->call("onServerStatusReceived", false, 5);
    QCOMPARE(statusLabel()->text(), u"Serveur hors ligne"_s);
    QCOMPARE(statusLabel()->styleSheet(), kOfflineStyle);
    QCOMPARE(playersLabel()->text(), QString());
    m_launcher->call("onServerStatusReceived", true, 1);
    QCOMPARE(statusLabel()->text(), u"Serveur en ligne"_s);
    QCOMPARE(statusLabel()->styleSheet(), kOnlineStyle);
    QCOMPARE(playersLabel()->text(), u"1 joueur connecté"_s);
}

void TestStatusAndNews::statusFromTheServer_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("count");
    QTest::newRow("online with fifteen players")
        << HttpAnswer::ok(R"({"online": true, "players": 15})") << u"Serveur en ligne"_s
        << u"15 joueurs connectés"_s;
    QTest::newRow("an error of the server reads as offline")
        << HttpAnswer::status(500) << u"Serveur hors ligne"_s << QString();
    QTest::newRow("no JSON reads as offline")
        << HttpAnswer::ok("<html>") << u"Serveur hors ligne"_s << QString();
}

void TestStatusAndNews::statusFromTheServer()
{
    QFETCH(const HttpAnswer, answer);
    QFETCH(const QString, status);
    m_launcher->server.answer("/api/status.php", answer);
    m_launcher->worker<ServerChecker>()->checkStatus();
    QTRY_COMPARE(statusLabel()->text(), status);
    QTEST(playersLabel()->text(), "count");
}

void TestStatusAndNews::onlyTheStatusLabelHasASheetOfItsOwn()
{
    m_launcher->call("onServerStatusReceived", true, 5);
    QCOMPARE(playersLabel()->styleSheet(), QString());
    QCOMPARE(m_launcher->label(u"progressLabel"_s)->styleSheet(), QString());
    QCOMPARE(statusLabel()->font().pixelSize(), 16);
    QVERIFY(statusLabel()->font().bold());
    QCOMPARE(statusLabel()->palette().color(QPalette::WindowText), QColor(0x8b, 0xc3, 0x4a));
}

void TestStatusAndNews::news_data()
{
    QTest::addColumn<QStringList>("items");
    QTest::addColumn<QString>("text");

    QTest::newRow("one item") << QStringList{u"Un"_s} << u"• Un"_s;
    QTest::newRow("two items are two paragraphs")
        << QStringList{u"Un"_s, u"Deux"_s} << u"• Un\n• Deux"_s;
    QTest::newRow("two items that are the same are both shown")
        << QStringList{u"Un"_s, u"Un"_s} << u"• Un\n• Un"_s;
    QTest::newRow("HTML is rendered")
        << QStringList{u"<b>Gras</b> &amp; <i>fin</i>"_s} << u"• Gras & fin"_s;
    QTest::newRow("a placeholder in an item stays")
        << QStringList{u"100 %1 et %2"_s} << u"• 100 %1 et %2"_s;
    QTest::newRow("an empty item keeps its bullet") << QStringList{QString()} << u"•"_s;
}

void TestStatusAndNews::news()
{
    QFETCH(const QStringList, items);
    m_launcher->call("onNewsReceived", items);
    QCOMPARE(m_launcher->news()->document()->blockCount(), items.size());
    QTEST(m_launcher->news()->toPlainText().trimmed(), "text");
}

void TestStatusAndNews::newsAreParagraphsWithAMargin()
{
    m_launcher->call("onNewsReceived",
                     QStringList{u"<span style='color: #10b981;'>Un</span>"_s, u"Deux"_s});
    const QTextDocument *document = m_launcher->news()->document();
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
        QCOMPARE(block.blockFormat().topMargin(), 10);
        QCOMPARE(block.blockFormat().bottomMargin(), 10);
        QCOMPARE(block.blockFormat().leftMargin(), 0);
        QVERIFY(block.text().startsWith(u"• "_s));
    }
    // The bullet has the colour of the panel's text, the title its own.
    const QTextBlock first = document->begin();
    auto fragment = first.begin();
    QCOMPARE(fragment.fragment().text(), u"• "_s);
    ++fragment;
    QCOMPARE(fragment.fragment().text(), u"Un"_s);
    QCOMPARE(fragment.fragment().charFormat().foreground().color(), QColor(0x10, 0xb9, 0x81));
}

void TestStatusAndNews::newsReplaceEarlierOnes()
{
    m_launcher->call("onNewsReceived", QStringList{u"Un"_s, u"Deux"_s});
    m_launcher->call("onNewsReceived", QStringList{u"Trois"_s});
    QCOMPARE(m_launcher->news()->toPlainText(), u"• Trois"_s);
}

void TestStatusAndNews::noNewsShowThePlaceholder()
{
    const QImage placeholder = m_launcher->news()->grab().toImage();
    m_launcher->call("onNewsReceived", QStringList{u"Un"_s});
    QVERIFY(m_launcher->news()->grab().toImage() != placeholder);
    m_launcher->call("onNewsReceived", QStringList());
    QVERIFY(m_launcher->news()->document()->isEmpty());
    QCOMPARE(m_launcher->news()->grab().toImage(), placeholder);
}

void TestStatusAndNews::newsLoadNothing_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<bool>("isLocal");
    QTest::newRow("a picture by its URL") << u"file://%1"_s << true;
    QTest::newRow("a picture by its path") << u"%1"_s << true;
    QTest::newRow("a picture on the server") << u"http://veyra.test/picture.png"_s << false;
}

void TestStatusAndNews::newsLoadNothing()
{
    QFETCH(const QString, source);
    QFETCH(const bool, isLocal);
    QImage picture(60, 60, QImage::Format_RGB32);
    picture.fill(kMagenta);
    const QString file = m_launcher->gameFolder() + u"/picture.png"_s;
    QVERIFY(picture.save(file));
    // A drive's letter has a slash before it in a URL.
    const QString path = source.startsWith(u"file:") ? QUrl::fromLocalFile(file).path() : file;
    const QString url = isLocal ? source.arg(path) : source;
    const QString html = u"<img src=\"%1\" width=\"60\" height=\"60\"/>"_s.arg(url);

    // A plain text widget would show it.
    QTextEdit plain;
    plain.setHtml(html);
    plain.show();
    QCOMPARE(showsMagenta(&plain), isLocal);

    m_launcher->call("onNewsReceived", QStringList{html});
    QVERIFY(!showsMagenta(m_launcher->news()));
    const auto type = QTextDocument::ImageResource;
    const QVariant used = m_launcher->news()->document()->resource(type, QUrl(url));
    QVERIFY(used.value<QImage>() != picture);
    waitForStragglers();
    QCOMPARE(m_launcher->server.requestCount("/picture.png"), 0);
}

void TestStatusAndNews::newsReadNoStyleSheets_data()
{
    QTest::addColumn<QString>("html");
    QTest::newRow("linked") << u"<link rel='stylesheet' type='text/css' href='%1'/><p>Un</p>"_s;
    QTest::newRow("imported") << u"<style>@import url('%1');</style><p>Un</p>"_s;
}

void TestStatusAndNews::newsReadNoStyleSheets()
{
    QFETCH(const QString, html);
    QFile sheet(m_launcher->gameFolder() + u"/style.css"_s);
    QVERIFY(sheet.open(QIODevice::WriteOnly));
    sheet.write("p { background-color: #ff00ff; }");
    sheet.close();
    const QString news = html.arg(QUrl::fromLocalFile(sheet.fileName()).toString());

    // A plain text widget would follow it.
    QTextEdit plain;
    plain.setHtml(news);
    plain.show();
    QVERIFY(showsMagenta(&plain));

    m_launcher->call("onNewsReceived", QStringList{news});
    QVERIFY(m_launcher->news()->toPlainText().contains(u"Un"));
    QVERIFY(!showsMagenta(m_launcher->news()));
}

VEYRA_WIDGET_TEST_MAIN(TestStatusAndNews)
#include "TestStatusAndNews.moc"
