#include "ui/NewsHtml.h"

#include "ui/NewsBounds.h"
#include "ui/ThreadTime.h"

#include <QImage>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

#include <algorithm>
#include <chrono>
#include <utility>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

const auto kItem = u"<p style='margin: 10px 0;'>• %1</p>"_s;

/// Characters. Several hundred printed pages; the parser takes some hundred bytes for each.
constexpr qsizetype kSourceLimit = 524'288;

// Qt's parser goes through tags and ancestors, rules and tags, rows and columns in nested loops,
// and makes every cell of a table beforehand. How much a piece of HTML can ask of it at most is
// counted in efforts: 1 for a tag or a paragraph, and for a tag as many as there are rules.
/// What is parsed first. Half of it rows, half of it columns make 60,000 cells. Twice as much
/// follows as long as all has been found within bounds.
constexpr qsizetype kFirstEffort = 8'000;
constexpr qsizetype kEffortLimit = 128'000;
/// Less than what twenty items of usual news ask for, and their characters.
constexpr qsizetype kQuickEffort = 1'000;
constexpr qsizetype kQuickLength = 16'384;
// Sanitizers and the measuring of coverage make a step take several times as long.
#ifdef VEYRA_INSTRUMENTED
constexpr int kSlowness = 3;
#else
constexpr int kSlowness = 1;
#endif
// A usual step takes some ten milliseconds, on a slow machine some hundred, and twice as long as
// the one before. Another one was made to take longer and longer, and nothing can interrupt the
// next.
constexpr std::chrono::nanoseconds kLongStep = 300ms * kSlowness;
constexpr std::chrono::nanoseconds kNoticeableStep = 150ms * kSlowness;
constexpr int kLargestGrowth = 3;
constexpr qsizetype kEffortOfCell = 16;
constexpr int kSpanLimit = 99;
/// For each tag the parser looks through all style sheets, empty ones too.
constexpr qsizetype kRulesOfStyleSheet = 4;

// Not a character, but what Qt's documents mark frames with.
constexpr QChar kBeginningOfFrame(0xfdd0);
constexpr QChar kEndOfFrame(0xfdd1);

using NewsBounds::kBackslashStandIn;
using NewsBounds::kParenthesisStandIn;

/// They come from the network, so nothing in them may make the launcher open a
/// file: on Windows an image at "//host/share" would even send that host the user's credentials.
class NewsDocument : public QTextDocument
{
public:
    using QTextDocument::QTextDocument;

protected:
    QVariant loadResource(int type, const QUrl &) override
    {
        // For want of an answer Qt would read the file of that name after all.
        if (type != QTextDocument::ImageResource)
            return QByteArray("");
        QImage nothing(1, 1, QImage::Format_ARGB32_Premultiplied);
        nothing.fill(Qt::transparent);
        return nothing;
    }
};

std::unique_ptr<QTextDocument> emptyDocument(const QFont &font)
{
    auto document = std::make_unique<NewsDocument>();
    document->setUndoRedoEnabled(false);
    document->setDefaultFont(font);
    return document;
}

/// Tags that an item leaves open go on in the next: the items are one text to the parser.
QString joined(const QStringList &news)
{
    QString html;
    for (const QString &item : news) {
        if (html.size() >= kSourceLimit)
            break;
        html += kItem.arg(item.left(kSourceLimit));
    }
    html.truncate(kSourceLimit);
    return html;
}

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

/// The character that a reference like "&#99;" stands for, if names and functions are made of such.
QChar referredLetter(QStringView reference)
{
    if (!reference.startsWith("&#"_L1))
        return {};
    const QStringView number = reference.sliced(2).chopped(1);
    const bool isHex = number.startsWith(u'x', Qt::CaseInsensitive);
    const uint code = isHex ? number.sliced(1).toUInt(nullptr, 16) : number.toUInt();
    const QChar letter = code < 0x80 ? QChar(code) : QChar();
    const bool isInNames = letter.isLetterOrNumber() || letter == u'\\' || letter == u'(';
    return isInNames ? letter : QChar();
}

/// The parser knows "c&#111;lspan" for what it is; spelled out it can be found.
QString withLettersSpelledOut(const QString &html)
{
    constexpr qsizetype kLongest = 10; // the parser reads no further
    QString spelled;
    spelled.reserve(html.size());
    for (const QChar c : html) {
        spelled += c;
        if (c != u';')
            continue;
        const QStringView end = QStringView(spelled).last(std::min(spelled.size(), kLongest));
        const qsizetype start = end.lastIndexOf(u'&');
        const QChar letter = start < 0 ? QChar() : referredLetter(end.sliced(start));
        if (letter.isNull())
            continue;
        spelled.chop(end.size() - start);
        spelled += letter;
    }
    return spelled;
}

/// Where the number of the next "colspan" or "rowspan" at or after `from` lies; the text's end when
/// there is none.
qsizetype nextSpan(QStringView html, qsizetype from)
{
    constexpr qsizetype kPrefix = 3;
    for (;;) {
        const qsizetype span = html.indexOf("span"_L1, from, Qt::CaseInsensitive);
        if (span < 0)
            return html.size();
        from = span + 1;
        const QStringView prefix = html.first(span).last(std::min(span, kPrefix));
        if (prefix.compare("col"_L1, Qt::CaseInsensitive) == 0 ||
            prefix.compare("row"_L1, Qt::CaseInsensitive) == 0)
            break;
    }
    const auto isValue = [](QChar c) { return isDigit(c) || c == u'>'; };
    return std::find_if(html.begin() + from, html.end(), isValue) - html.begin();
}

/// The parser makes twenty thousand columns for one tag.
QString withSpansBounded(const QString &html)
{
    const QStringView text = html;
    QString bounded;
    qsizetype done = 0;
    for (qsizetype number = nextSpan(text, 0); number < text.size();) {
        const qsizetype end =
            std::find_if_not(text.begin() + number, text.end(), isDigit) - text.begin();
        bool ok = false;
        const int span = text.sliced(number, end - number).toInt(&ok);
        if (number < end && (!ok || span > kSpanLimit)) {
            bounded += text.sliced(done, number - done);
            bounded += QString::number(kSpanLimit);
            done = end;
        }
        number = nextSpan(text, end);
    }
    bounded += text.sliced(done);
    return bounded;
}

/// Qt 6.4's parser of style sheets reads past its end in "qlineargradient(x1:)" and the like, which
/// ends the process. Where a style sheet begins only the parser knows; so it sees no gradient at
/// all, nor a backslash, with which any letter of one can be spelled. The text gets its own back.
QString withStandIns(QString html)
{
    constexpr auto kEnd = "gradient("_L1;
    for (qsizetype i = 0; (i = html.indexOf(kEnd, i, Qt::CaseInsensitive)) >= 0;) {
        i += kEnd.size();
        html[i - 1] = kParenthesisStandIn;
    }
    html.replace(u'\\', kBackslashStandIn);
    return html;
}

QString withoutStandIns(QString text)
{
    text.replace(kParenthesisStandIn, u'(');
    text.replace(kBackslashStandIn, u'\\');
    return text;
}

/// In the addresses of a block's links.
void removeStandInsOfLinks(const QTextBlock &block, QTextCursor *cursor)
{
    QList<std::pair<QTextFragment, QString>> links; // changing one would spoil the iterator
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QString before = it.fragment().charFormat().anchorHref();
        const QString after = withoutStandIns(before);
        if (after != before)
            links.append({it.fragment(), after});
    }
    for (const auto &[fragment, address] : std::as_const(links)) {
        QTextCharFormat link;
        link.setAnchorHref(address);
        cursor->setPosition(fragment.position());
        cursor->setPosition(fragment.position() + fragment.length(), QTextCursor::KeepAnchor);
        cursor->mergeCharFormat(link);
    }
}

void removeStandIns(QTextDocument *document)
{
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
        removeStandInsOfLinks(block, &cursor);
        const QString before = block.text();
        const QString after = withoutStandIns(before);
        for (int i = 0; i < after.size(); ++i) {
            if (after[i] == before[i])
                continue;
            cursor.setPosition(block.position() + i);
            cursor.setPosition(block.position() + i + 1, QTextCursor::KeepAnchor);
            cursor.insertText(after[i], cursor.charFormat());
        }
    }
    cursor.endEditBlock();
}

/// True if no parser could find another end of a tag with these attributes than the first ">".
bool endsPlainly(QStringView attributes)
{
    QChar quote;
    QChar last;
    for (const QChar c : attributes) {
        if (c == u'<' || c == u'&')
            return false;
        if (c == u'>')
            return quote.isNull();
        if (c == quote) {
            quote = QChar();
        } else if (c == u'"' || c == u'\'') {
            if (!quote.isNull() || last != u'=')
                return false;
            quote = c;
        }
        last = c;
    }
    return false;
}

/// Counts the efforts of a text from its start on. Where it is in doubt it counts more.
class Efforts
{
public:
    explicit Efforts(QStringView html)
        : m_html(html)
    {
    }

    /// The end of the longest piece from the start that asks for no more than `limit`: the text's
    /// end, or an opening angle bracket or the like.
    qsizetype reach(qsizetype limit)
    {
        for (; m_position < m_html.size(); ++m_position) {
            const qsizetype effort = effortAt(m_position);
            if (m_sum + effort > limit)
                break;
            m_sum += effort;
        }
        return m_position;
    }

    /// Among what was counted.
    bool hasStyles() const { return m_hasStyles; }

private:
    qsizetype effortAt(qsizetype position)
    {
        const QChar c = m_html[position];
        if (c == u'<')
            return effortOfTag(position);
        // In a style sheet: a rule, a selector of its own, one that asks for attributes.
        if (m_isInStyles && (c == u'{' || c == u',' || c == u'[')) {
            ++m_rules;
            return 1;
        }
        // A paragraph, or what may stand for one.
        if (c == u'\n' || c == u'\r' || c == u'&' || c == QChar::ParagraphSeparator ||
            c == kBeginningOfFrame || c == kEndOfFrame)
            return 1;
        // A cell counts as often as it has columns; its tag has been counted.
        if ((c == u's' || c == u'S') && position >= 3)
            return effortOfSpan(position);
        return 0;
    }

    qsizetype effortOfTag(qsizetype position)
    {
        // The parser skips white space before the name.
        const auto name = std::find_if_not(m_html.begin() + position + 1, m_html.end(),
                                           [](QChar c) { return c.isSpace(); });
        const QStringView rest = m_html.sliced(name - m_html.begin());
        const auto begins = [rest](QLatin1StringView text) {
            return rest.startsWith(text, Qt::CaseInsensitive);
        };
        // Where a style sheet ends is beyond doubt only after a tag that ends beyond doubt, and a
        // comment does not end it.
        if (begins("/"_L1) && m_isPlainStyle)
            m_isInStyles = false;
        constexpr auto kStyle = "style"_L1;
        if (begins(kStyle)) {
            m_isInStyles = true;
            m_hasStyles = true;
            m_rules += kRulesOfStyleSheet;
            m_isPlainStyle = endsPlainly(rest.sliced(kStyle.size()));
        }
        if (begins("td"_L1) || begins("th"_L1) || begins("tr"_L1) || begins("ta"_L1) ||
            begins("tb"_L1) || begins("tf"_L1) || begins("cap"_L1))
            return kEffortOfCell + m_rules;
        return begins("/"_L1) ? 1 : 1 + m_rules;
    }

    qsizetype effortOfSpan(qsizetype position)
    {
        const qsizetype name = position - 3;
        const QStringView word = m_html.sliced(name, std::min<qsizetype>(7, m_html.size() - name));
        if (word.compare("colspan"_L1, Qt::CaseInsensitive) != 0)
            return 0;
        // Many may lie in front of the one number.
        if (m_spanNumber <= name)
            m_spanNumber = nextSpan(m_html, name);
        const auto end = std::find_if_not(m_html.begin() + m_spanNumber, m_html.end(), isDigit);
        const auto digits = m_html.sliced(m_spanNumber, end - m_html.begin() - m_spanNumber);
        return 1 + digits.toInt() * kEffortOfCell;
    }

    QStringView m_html;
    qsizetype m_position = 0;
    qsizetype m_sum = 0;
    qsizetype m_spanNumber = 0;
    qsizetype m_rules = 0;
    bool m_isInStyles = false;
    bool m_isPlainStyle = false;
    bool m_hasStyles = false;
};

} // namespace

bool NewsHtml::isQuick(const QStringList &news)
{
    const QString source = joined(news);
    if (source.size() > kQuickLength)
        return false;
    const QString html = withSpansBounded(withLettersSpelledOut(source));
    Efforts efforts(html);
    // What a style sheet costs is a matter of each rule and each tag that it may be about.
    return efforts.reach(kQuickEffort) == html.size() && !efforts.hasStyles();
}

std::unique_ptr<QTextDocument> NewsHtml::read(const QStringList &news, const QFont &font,
                                              const std::atomic_bool &isAbandoned)
{
    const QString html = withStandIns(withSpansBounded(withLettersSpelledOut(joined(news))));
    auto document = emptyDocument(font);
    Efforts efforts(html);
    std::chrono::nanoseconds longest = kLongStep;
    for (qsizetype effort = kFirstEffort; effort <= kEffortLimit && !isAbandoned; effort *= 2) {
        const auto start = threadTime();
        const qsizetype end = efforts.reach(effort);
        document->setHtml(html.first(end));
        const auto verdict = NewsBounds::apply(document.get());
        const auto step = threadTime() - start;
        if (verdict != NewsBounds::Verdict::Complete || end == html.size() || step > longest)
            break;
        longest = std::clamp(kLargestGrowth * step, kNoticeableStep, kLongStep);
    }
    removeStandIns(document.get());
    return document;
}
