#include "ui/NewsHtml.h"

#include "ui/NewsBounds.h"
#include "ui/ThreadTime.h"

#include <QImage>
#include <QRegularExpression>
#include <QSet>
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

// Qt's parser goes through tags and ancestors, rows and columns in nested loops, and makes every
// cell of a table beforehand. How much a piece of HTML can ask of it at most is counted in efforts:
// 1 for a tag or a paragraph.
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
constexpr int kColumnSpanLimit = 99;
constexpr int kRowSpanLimit = 500; // which makes no rows, and long tables have them

// For each tag the parser goes through all style sheets, and for rules about what lies in something
// else through all tags around it; and it does so once more for each tag that stays open. Together
// that is a product of characters, tags and depth, of which a billion takes several seconds.
constexpr double kStyleEffortLimit = 2e8;
constexpr qsizetype kStyleLimit = 4096;      // characters of all style sheets together
constexpr qsizetype kShareOfStyleSheet = 32; // of an empty one
constexpr qsizetype kUsualTag = 512;         // characters, attributes and all
/// A tag in place of a style sheet's. What it holds is not shown either, and as long.
constexpr auto kHidden = "title"_L1;

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

/// Of a number at the text's end.
int spanLimitAfter(QStringView text)
{
    const auto isBetween = [](QChar c) { return c == u'=' || c == u'"' || c == u'\''; };
    while (!text.isEmpty() && isBetween(text.back()))
        text.chop(1);
    return text.endsWith("rowspan"_L1, Qt::CaseInsensitive) ? kRowSpanLimit : kColumnSpanLimit;
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
        const int limit = spanLimitAfter(text.first(number));
        if (number < end && (!ok || span > limit)) {
            bounded += text.sliced(done, number - done);
            bounded += QString::number(limit);
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

/// The length of a tag's attributes if no parser could find another end of them than the first
/// ">"; else -1.
qsizetype lengthOfAttributes(QStringView attributes)
{
    QChar quote;
    QChar last;
    for (qsizetype i = 0; i < attributes.size(); ++i) {
        const QChar c = attributes[i];
        if (c == u'<' || (c == u'&' && quote.isNull()))
            return -1;
        if (c == u'>')
            return quote.isNull() ? i : -1;
        if (c == quote) {
            quote = QChar();
        } else if (c == u'"' || c == u'\'') {
            if (!quote.isNull() || last != u'=')
                return -1;
            quote = c;
        }
        last = c;
    }
    return -1;
}

/// The parser skips white space in front of a tag's name, which may be in quotes.
bool isBeforeName(QChar c)
{
    return c.isSpace() || c == u'"' || c == u'\'';
}

/// Where the name after an opening angle bracket begins.
qsizetype nameOfTag(QStringView html, qsizetype bracket)
{
    return std::find_if_not(html.begin() + bracket + 1, html.end(), isBeforeName) - html.begin();
}

/// An upper bound of what lies around the innermost tag, and of the longest tag.
struct Depth
{
    qsizetype tags = 0; // all of them
    qsizetype most = 0;
    qsizetype longestTag = 0;
};

/// Of tags that the parser nests as they stand: usual ones, each closed before what is around it.
/// With anything else all tags may be in each other.
class DepthOfTags
{
public:
    explicit DepthOfTags(QStringView html)
        : m_html(html)
    {
    }

    Depth depth()
    {
        Depth depth;
        depth.tags = m_html.count(u'<');
        for (qsizetype at = m_html.indexOf(u'<'); at >= 0; at = m_html.indexOf(u'<', at + 1)) {
            const qsizetype length = readTag(m_html.sliced(at + 1));
            if (length < 0)
                return {depth.tags, depth.tags, m_html.size()};
            depth.most = std::max(depth.most, m_open.size());
            depth.longestTag = std::max(depth.longestTag, length);
        }
        return depth;
    }

private:
    /// -1 if the tag is not plain enough.
    qsizetype readTag(QStringView tag)
    {
        const bool isEnd = tag.startsWith(u'/');
        const QStringView rest = tag.sliced(isEnd ? 1 : 0);
        const auto isInName = [](QChar c) { return c.isLetterOrNumber(); };
        const qsizetype nameLength =
            std::find_if_not(rest.begin(), rest.end(), isInName) - rest.begin();
        const QString name = rest.first(nameLength).toString().toLower();
        const qsizetype length = lengthOfAttributes(rest.sliced(nameLength));
        const bool isPlain = length >= 0 && (isEnd ? close(name, length) : open(name));
        return isPlain ? nameLength + length : -1;
    }

    bool open(const QString &name)
    {
        if (!kUsualNames.contains(name) || !isInPlace(name))
            return false;
        if (!kEmptyNames.contains(name))
            m_open.append(name);
        return true;
    }

    bool close(const QString &name, qsizetype length)
    {
        if (kEmptyNames.contains(name) || m_open.isEmpty() || m_open.last() != name || length > 0)
            return false;
        m_open.removeLast();
        return true;
    }

    /// The parser puts tags around cells and rows elsewhere.
    bool isInPlace(const QString &name) const
    {
        const QString around = m_open.isEmpty() ? QString() : m_open.last();
        if (name == "tr"_L1)
            return around == "table"_L1;
        if (name == "td"_L1 || name == "th"_L1)
            return around == "tr"_L1;
        return around != "table"_L1 && around != "tr"_L1;
    }

    static inline const QSet<QString> kEmptyNames{u"br"_s, u"hr"_s, u"img"_s};
    static inline const QSet<QString> kUsualNames{
        u"a"_s,   u"b"_s,   u"big"_s,   u"blockquote"_s, u"br"_s,   u"center"_s, u"code"_s,
        u"div"_s, u"em"_s,  u"font"_s,  u"h1"_s,         u"h2"_s,   u"h3"_s,     u"h4"_s,
        u"h5"_s,  u"h6"_s,  u"hr"_s,    u"i"_s,          u"img"_s,  u"li"_s,     u"ol"_s,
        u"p"_s,   u"pre"_s, u"s"_s,     u"small"_s,      u"span"_s, u"strong"_s, u"style"_s,
        u"sub"_s, u"sup"_s, u"table"_s, u"td"_s,         u"th"_s,   u"tr"_s,     u"tt"_s,
        u"u"_s,   u"ul"_s};

    QStringView m_html;
    QStringList m_open;
};

/// The style sheets of a text. Where it is in doubt there are more of them, and they ask for more.
class StyleSheetsOf
{
public:
    explicit StyleSheetsOf(QStringView html)
        : m_html(html)
    {
        for (qsizetype at = html.indexOf(u'<'); at >= 0; at = html.indexOf(u'<', at + 1)) {
            const qsizetype name = nameOfTag(html, at);
            const bool isEnd = name < html.size() && html[name] == u'/';
            const qsizetype place = isEnd ? nameOfTag(html, name) : name;
            if (!html.sliced(place).startsWith(kStyle, Qt::CaseInsensitive))
                continue;
            m_places.append(place);
            if (!isEnd)
                add(html.sliced(place + kStyle.size()), name == at + 1);
        }
    }

    /// Of the names in their tags.
    const QList<qsizetype> &places() const { return m_places; }

    bool areQuicklyApplied() const
    {
        if (!m_arePlain || m_length > kStyleLimit)
            return false;
        const Depth depth = DepthOfTags(m_html).depth();
        const auto around = static_cast<double>(depth.most);
        const qsizetype lookups = 1 + depth.longestTag / kUsualTag;
        return static_cast<double>(m_length * depth.tags * lookups) * around *
                   (m_haveRelations ? around : 1) <=
               kStyleEffortLimit;
    }

private:
    void add(QStringView rest, bool isPlainName)
    {
        // What a rule is about: names, without a word of what they lie in. In doubt it does not
        // match.
        static const QRegularExpression kNamesAlone(
            u"^(?>\\s*+[\\w.#:-]++(?>\\s*+,\\s*+[\\w.#:-]++)*+\\s*+\\{[^{}]*+\\})*+\\s*+$"_s);
        // What lies beside others, and more that is rare.
        static const QRegularExpression kRare(u"[+~@\\[\\\\]"_s);

        const qsizetype attributes = lengthOfAttributes(rest);
        const QStringView rules = rest.sliced(attributes + 1);
        const qsizetype end = rules.indexOf(u'<');
        if (!isPlainName || attributes < 0 || end < 0 || end > kStyleLimit ||
            !rules.sliced(end).startsWith("</style>"_L1, Qt::CaseInsensitive)) {
            m_arePlain = false;
            return;
        }
        const QString sheet = rules.first(end).toString();
        m_length += sheet.size() + kShareOfStyleSheet;
        m_arePlain = m_arePlain && !kRare.match(sheet).hasMatch();
        m_haveRelations = m_haveRelations || !kNamesAlone.match(sheet).hasMatch();
    }

    static constexpr auto kStyle = "style"_L1;

    QStringView m_html;
    QList<qsizetype> m_places;
    qsizetype m_length = 0;
    bool m_arePlain = true;
    bool m_haveRelations = false;
};

/// Without style sheets if applying them might take long.
QString withFewStyles(QString html)
{
    const StyleSheetsOf sheets(html);
    if (sheets.places().isEmpty() || sheets.areQuicklyApplied())
        return html;
    QString without = html;
    for (const qsizetype place : sheets.places())
        without.replace(place, kHidden.size(), kHidden);
    return without;
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

private:
    qsizetype effortAt(qsizetype position)
    {
        const QChar c = m_html[position];
        if (c == u'<')
            return effortOfTag(position);
        // A paragraph, or what may stand for one.
        if (c == u'\n' || c == u'\r' || c == u'&' || c == QChar::ParagraphSeparator ||
            c == kBeginningOfFrame || c == kEndOfFrame)
            return 1;
        // A cell counts as often as it has columns; its tag has been counted.
        if ((c == u's' || c == u'S') && position >= 3)
            return effortOfSpan(position);
        return 0;
    }

    qsizetype effortOfTag(qsizetype position) const
    {
        const QStringView name = m_html.sliced(nameOfTag(m_html, position));
        const auto begins = [name](QLatin1StringView text) {
            return name.startsWith(text, Qt::CaseInsensitive);
        };
        const bool isOfTable = begins("td"_L1) || begins("th"_L1) || begins("tr"_L1) ||
                               begins("ta"_L1) || begins("tb"_L1) || begins("tf"_L1) ||
                               begins("cap"_L1);
        return isOfTable ? kEffortOfCell : 1;
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
};

} // namespace

bool NewsHtml::isQuick(const QStringList &news)
{
    const QString source = joined(news);
    if (source.size() > kQuickLength)
        return false;
    const QString html = withSpansBounded(withLettersSpelledOut(source));
    // What a style sheet costs is a matter of all tags together.
    return Efforts(html).reach(kQuickEffort) == html.size() &&
           StyleSheetsOf(html).places().isEmpty();
}

std::unique_ptr<QTextDocument> NewsHtml::read(const QStringList &news, const QFont &font,
                                              const std::atomic_bool &isAbandoned)
{
    const QString source = withSpansBounded(withLettersSpelledOut(joined(news)));
    const QString html = withStandIns(withFewStyles(source));
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
