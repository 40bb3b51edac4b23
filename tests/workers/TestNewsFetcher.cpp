#include "net/NewsFetcher.h"

#include "tests/support/HttpServer.h"
#include "tests/support/Introspection.h"
#include "tests/support/TestEnvironment.h"

#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

#include <type_traits>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kPath = "/api/news.php";
const QStringList kNothing{u"Aucune actualité pour le moment."_s};

} // namespace

static_assert(std::is_same_v<decltype(&NewsFetcher::fetchNews), void (NewsFetcher::*)()>);

class TestNewsFetcher : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void declaresOneSignalAndOneSlot();
    void formatsTheItems_data();
    void formatsTheItems();
    void manyItemsKeepTheirOrder();
    void moreItemsThanAnybodyReadsAreLeftOut_data();
    void moreItemsThanAnybodyReadsAreLeftOut();
    void anItemOfTooManyValuesIsLeftOut_data();
    void anItemOfTooManyValuesIsLeftOut();

private:
    QStringList fetch();
    HttpServer m_server;
};

void TestNewsFetcher::init()
{
    m_server.clear();
    m_server.becomeProxy();
}

/// The news of the one report.
QStringList TestNewsFetcher::fetch()
{
    NewsFetcher fetcher(nullptr);
    QSignalSpy received(&fetcher, &NewsFetcher::newsReceived);
    fetcher.fetchNews();
    if (!received.wait(60000) || received.size() != 1)
        return {};
    return received.first().first().toStringList();
}

void TestNewsFetcher::declaresOneSignalAndOneSlot()
{
    QCOMPARE(Introspection::declarations(NewsFetcher::staticMetaObject),
             (QStringList{u"public signal newsReceived(QStringList news)"_s,
                          u"private slot onFetchFinished(QNetworkReply* reply)"_s}));
}

void TestNewsFetcher::formatsTheItems_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("news");

    const auto row = [](const char *name, const char *body, const QStringList &news) {
        QTest::newRow(name) << QByteArray(body) << news;
    };
    const auto undated = u"<span style='color: #10b981;'>%1</span><br/>%2"_s;

    row("an empty array", "[]", kNothing);
    row("an object instead of an array", R"({"news": []})", kNothing);
    row("an object that holds items", R"({"news": ["Maintenance"]})", kNothing);
    row("nothing but other types", "[3, true, null, [\"x\"], 1.5]", kNothing);
    row("an array of empty arrays", "[[], [[]]]", kNothing);
    row("other types between the items", R"(["Maintenance ce soir", 3, null])",
        {u"Maintenance ce soir"_s});
    row("a text keeps its markup", R"(["<b>Événement</b> & <i>fête</i>"])",
        {u"<b>Événement</b> & <i>fête</i>"_s});
    row("an empty text is an item", R"([""])", {u""_s});
    row("a text with placeholders stays as it is", R"(["%1 et %2"])", {u"%1 et %2"_s});
    row("a whole item", R"([{"title": "A", "date": "12/05", "content": "B"}])",
        {u"<b>[12/05]</b> <span style='color: #10b981;'>A</span><br/>B"_s});
    row("an item without date", R"([{"title": "A", "content": "B"}])",
        {u"<span style='color: #10b981;'>A</span><br/>B"_s});
    row("an item with an empty date", R"([{"title": "A", "date": "", "content": "B"}])",
        {u"<span style='color: #10b981;'>A</span><br/>B"_s});
    row("an item with a title only", R"([{"title": "A"}])",
        {u"<span style='color: #10b981;'>A</span><br/>"_s});
    row("an item with a date only", R"([{"date": "12/05"}])",
        {u"<b>[12/05]</b> <span style='color: #10b981;'></span><br/>"_s});
    row("an empty item", "[{}]", {u"<span style='color: #10b981;'></span><br/>"_s});
    row("a date that is a number", R"([{"title": "A", "date": 1205, "content": "B"}])",
        {u"<span style='color: #10b981;'>A</span><br/>B"_s});
    row("values of other types read as empty",
        R"([{"title": 1, "date": "12/05", "content": ["B"]}])",
        {u"<b>[12/05]</b> <span style='color: #10b981;'></span><br/>"_s});
    row("other keys do not matter", R"([{"id": 7, "title": "A", "content": "B", "tags": []}])",
        {u"<span style='color: #10b981;'>A</span><br/>B"_s});
    row("a date of blanks is a date", R"([{"title": "A", "date": " ", "content": "B"}])",
        {u"<b>[ ]</b> <span style='color: #10b981;'>A</span><br/>B"_s});
    row("accents and an emoji",
        R"([{"title": "Été à Astrub", "date": "1ᵉʳ août", "content": "🎉"}])",
        {u"<b>[1ᵉʳ août]</b> <span style='color: #10b981;'>Été à Astrub</span><br/>🎉"_s});

    // The fillings come one after the other, each into the lowest placeholder that is left.
    row("a date that holds %2 receives the title",
        R"([{"title": "A", "date": "le %2", "content": "B"}])",
        {u"<b>[le A]</b> <span style='color: #10b981;'>A</span><br/>B"_s});
    row("a date that holds %1 takes the title's turn",
        R"([{"title": "A", "date": "le %1", "content": "B"}])",
        {u"<b>[le A]</b> <span style='color: #10b981;'>B</span><br/>%3"_s});
    row("a title that holds %2 receives the content", R"([{"title": "A %2", "content": "B"}])",
        {u"<span style='color: #10b981;'>A B</span><br/>B"_s});
    row("a content that holds %1 stays as it is", R"([{"title": "A", "content": "100 %1"}])",
        {undated.arg(u"A"_s, u"100 %1"_s)});
    row("both forms in one feed", R"(["un", {"title": "deux"}, "trois"])",
        {u"un"_s, u"<span style='color: #10b981;'>deux</span><br/>"_s, u"trois"_s});
    row("two that are alike stay two", R"(["un", "un", {"title": "A"}, {"title": "A"}])",
        {u"un"_s, u"un"_s, undated.arg(u"A"_s, u""_s), undated.arg(u"A"_s, u""_s)});
    row("a byte order mark does no harm", "\xef\xbb\xbf[\"un\"]", {u"un"_s});
}

void TestNewsFetcher::formatsTheItems()
{
    QFETCH(const QByteArray, body);
    m_server.answer(kPath, HttpAnswer::ok(body));
    QTEST(fetch(), "news");
}

void TestNewsFetcher::manyItemsKeepTheirOrder()
{
    QByteArray body = "[";
    QStringList expected;
    for (int i = 0; i < 10000; ++i) {
        body += (i > 0 ? ", \"" : "\"") + QByteArray::number(i) + '"';
        expected.append(QString::number(i));
    }
    m_server.answer(kPath, HttpAnswer::ok(body + ']').chunked());
    QCOMPARE(fetch(), expected);
}

void TestNewsFetcher::moreItemsThanAnybodyReadsAreLeftOut_data()
{
    QTest::addColumn<QByteArray>("item");
    QTest::addColumn<int>("copies");
    QTest::newRow("5 MB of empty objects") << QByteArray("{}") << 1'700'000;
    QTest::newRow("5 MB of empty texts") << QByteArray("\"\"") << 1'700'000;
    // Each becomes a thousand times longer.
    QTest::newRow("placeholders in every date")
        << R"({"date": ")" + QByteArray("%2").repeated(1000) + R"(", "title": ")" +
               QByteArray(1000, 'x') + "\"}"
        << 1000;
}

/// Formatting them all would hold the window for seconds, or take gigabytes.
void TestNewsFetcher::moreItemsThanAnybodyReadsAreLeftOut()
{
    QFETCH(const QByteArray, item);
    QFETCH(const int, copies);
    const QByteArray body = '[' + (item + ',').repeated(copies) + "\"fin\"]";
    m_server.answer(kPath, HttpAnswer::ok(body));
    const QStringList news = fetch();
    QVERIFY(!news.isEmpty());
    QCOMPARE(news.count(news.first()), news.size()); // the beginning, then nothing
    const qsizetype length = news.join(QString()).size();
    QVERIFY2(length > 1'000'000 || news.size() > 50'000, qPrintable(QString::number(news.size())));
    QVERIFY2(length < 10'000'000 && news.size() < 200'000,
             qPrintable(QString::number(news.size())));
}

void TestNewsFetcher::anItemOfTooManyValuesIsLeftOut_data()
{
    const auto times = [](const char *text, int count) { return QByteArray(text).repeated(count); };
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("news");
    QTest::newRow("an object of many members")
        << "[\"[un]\",{" + times("\"a\":1,", 600'000) + "\"title\":\"deux\"},\"trois\"]"
        << QStringList{u"[un]"_s};
    QTest::newRow("many arrays in each other")
        << "[\"un\",\"deux\"," + times("[[1]],", 700'000) + "\"trois\"]"
        << QStringList{u"un"_s, u"deux"_s};
    QTest::newRow("the first item")
        << "[{" + times("\"a\":1,", 600'000) + "\"b\":1},\"deux\"]" << kNothing;
    // What only looks like values does not count.
    const QString text = u"[{,"_s.repeated(400'000);
    QTest::newRow("a long text") << "[\"" + text.toLatin1() + "\",\"deux\"]"
                                 << QStringList{text, u"deux"_s};
    QTest::newRow("a long text with quotes in it")
        << "[\"\\\\\\\"" + text.toLatin1() + "\",\"deux\"]"
        << QStringList{u"\\\""_s + text, u"deux"_s};
}

/// Parsing them would hold the window.
void TestNewsFetcher::anItemOfTooManyValuesIsLeftOut()
{
    QFETCH(const QByteArray, body);
    m_server.answer(kPath, HttpAnswer::ok(body));
    QTEST(fetch(), "news");
}

VEYRA_CORE_TEST_MAIN(TestNewsFetcher)
#include "TestNewsFetcher.moc"
