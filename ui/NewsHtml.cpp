#include "ui/NewsHtml.h"

#include "ui/NewsBounds.h"
#include "ui/ThreadTime.h"

#include <QImage>
#include <QRegularExpression>
#include <QSet>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextTable>

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
/// What is parsed first. As much is added as long as all has been found within bounds; more of it
/// at a time could be paragraphs of one list, whose time grows with the square.
constexpr qsizetype kStepEffort = 8'000;
constexpr qsizetype kEffortLimit = 128'000;
/// Of tables in one step. Half of it rows, half of it columns make 250,000 cells, and take a
/// second.
constexpr qsizetype kTableEffort = 16'000;
/// What one step may add to a table that is there already and goes on.
constexpr qsizetype kMoreCells = 500'000;
constexpr int kStepLimit = 32;
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
constexpr qsizetype kEffortOfSpan = 48;
constexpr qsizetype kSpansOfGrid = 8; // cells with one take as long as the making of all cells
// "2em" opens the font, which may be another each time.
constexpr qsizetype kEffortOfFontSize = 4;
constexpr qsizetype kEffortOfFontSizeInHaste = 32; // on the GUI thread
constexpr int kColumnSpanLimit = 99;
constexpr int kRowSpanLimit = 500; // which makes no rows, and long tables have them

// For each tag, and for all tags around it, the parser goes through all style sheets, and for rules
// about what lies in something else through all tags around those. Together that is a product of
// names in style sheets, tags and depth, of which ten millions take up to a second.
constexpr double kStyleEffortLimit = 1.5e7;
constexpr qsizetype kStyleLimit = 4096;      // characters of all style sheets together
constexpr qsizetype kWordsOfStyleSheet = 16; // of an empty one
/// Beside a style sheet with lengths that depend on the font.
constexpr qsizetype kFontsLimit = 200;
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
    const auto isBetween = [](QChar c) {
        return c == u'=' || c == u'"' || c == u'\'' || c.isSpace();
    };
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

constexpr qsizetype kInDoubt = -1;
constexpr qsizetype kBroken = -2;

/// What follows a tag's name.
struct Attributes
{
    /// Up to the tag's ">"; kBroken if another tag seems to begin before that, kInDoubt if the
    /// parser may find another end.
    qsizetype length = kInDoubt;
    bool mayCloseTag = false; // with "/", which the parser heeds wherever it reads no attribute
};

bool isBetweenNames(QChar c)
{
    return c.isSpace() || u"=<>/&\"'"_s.contains(c);
}

/// Where the value at `start` ends, or kInDoubt.
qsizetype endOfValue(QStringView text, qsizetype start)
{
    if (start < text.size() && (text[start] == u'"' || text[start] == u'\'')) {
        const qsizetype end = text.indexOf(text[start], start + 1);
        const bool isPlain = end >= 0 && !text.sliced(start, end - start).contains(u'<');
        return isPlain ? end + 1 : kInDoubt;
    }
    for (qsizetype i = start; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'&' || c == u'"' || c == u'\'')
            return kInDoubt;
        const bool isSlashInIt = c == u'/' && !text.sliced(i + 1).startsWith(u'>');
        if (isBetweenNames(c) && !isSlashInIt)
            return i;
    }
    return kInDoubt;
}

Attributes attributesIn(QStringView text)
{
    const auto skip = [text](qsizetype from, auto isSkipped) {
        return std::find_if_not(text.begin() + from, text.end(), isSkipped) - text.begin();
    };
    const auto isBlank = [](QChar c) { return c.isSpace(); };
    const auto isInName = [](QChar c) { return !isBetweenNames(c); };
    qsizetype at = skip(0, isBlank);
    for (qsizetype end; (end = skip(at, isInName)) > at; at = skip(at, isBlank)) {
        at = skip(end, isBlank);
        if (at == text.size() || text[at] != u'=')
            continue;
        at = endOfValue(text, skip(at + 1, isBlank));
        if (at == kInDoubt)
            return {};
    }
    // The parser reads no further attribute, and looks for the tag's end alone.
    for (bool mayCloseTag = false; at < text.size(); ++at) {
        const QChar c = text[at];
        if (c == u'>')
            return {at, mayCloseTag};
        if (c == u'<')
            return {kBroken, mayCloseTag};
        if (c == u'&' || c == u'"' || c == u'\'')
            return {};
        mayCloseTag = mayCloseTag || c == u'/';
    }
    return {};
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

/// How often the parser looks at a tag for the sake of a rule, at most: at each and at all that lie
/// around it, once for each of their attributes and classes.
struct TagVisits
{
    double forNames = 0;
    double forRelations = 0; // rules about what lies in something else
};

/// Follows the tags of a text. The parser nests usual ones as they stand if each is closed before
/// what is around it; others may stay open until the end, and bring some with them.
class TagsOf
{
public:
    explicit TagsOf(QStringView html)
        : m_html(html)
    {
    }

    /// Reads the tag at an opening angle bracket, if that is one. To be called for each of them in
    /// order.
    void read(qsizetype bracket)
    {
        if (m_isInDoubt || bracket < m_end)
            return;
        const QStringView tag = m_html.sliced(bracket + 1);
        const qsizetype length = tag.startsWith(u'!') ? lengthOfComment(tag) : lengthOfTag(tag);
        m_isInDoubt = length == kInDoubt;
        m_end = bracket + 1 + std::max<qsizetype>(length, 0);
    }

    /// How many tables are open, one in the other; kInDoubt if that is not certain.
    qsizetype openTables() const { return m_isInDoubt || m_odd > 0 ? kInDoubt : m_openTables; }

    /// Of all tags. What has been read before does not count.
    TagVisits visits()
    {
        for (qsizetype at = m_html.indexOf(u'<'); at >= 0; at = m_html.indexOf(u'<', at + 1)) {
            read(at);
            if (m_isInDoubt) { // all of them may be in each other
                const auto tags = static_cast<double>(m_html.count(u'<'));
                const double words = tags * static_cast<double>(wordsIn(m_html));
                return {words * tags, words * tags * tags};
            }
        }
        return m_visits;
    }

private:
    struct OpenTag
    {
        QString name;
        qsizetype words = 0;
    };

    /// Up to its closing bracket or the next opening one; kInDoubt if that may lie elsewhere.
    qsizetype lengthOfTag(QStringView tag)
    {
        const bool isEnd = tag.startsWith(u'/');
        const QStringView rest = tag.sliced(isEnd ? 1 : 0);
        const auto isInName = [](QChar c) { return c.isLetterOrNumber(); };
        const qsizetype nameLength =
            std::find_if_not(rest.begin(), rest.end(), isInName) - rest.begin();
        const QString name = rest.first(nameLength).toString().toLower();
        const QStringView text = rest.sliced(nameLength);
        Attributes attributes = attributesIn(text);
        if (name.isEmpty() || attributes.length == kInDoubt)
            return kInDoubt;
        // To the parser "b:x" and "b/x" are names.
        const bool isName = text[0].isSpace() || text[0] == u'>' || text.startsWith("/>"_L1);
        const bool isBroken = attributes.length == kBroken;
        if (isBroken)
            attributes.length = text.indexOf(u'<');
        const qsizetype words = wordsIn(text.first(attributes.length));
        if (isBroken || !isName) {
            addOdd(words);
        } else if (isEnd) {
            close(name);
        } else {
            if (attributes.mayCloseTag && !kEmptyNames.contains(name))
                addOdd(words); // it may be closed at once
            open(name, words);
        }
        return (isEnd ? 1 : 0) + nameLength + attributes.length;
    }

    /// A comment, or "<!DOCTYPE html>". The parser looks for nothing but its end.
    static qsizetype lengthOfComment(QStringView comment)
    {
        if (comment.startsWith("!--"_L1)) {
            const qsizetype end = comment.indexOf("-->"_L1, 3);
            return end < 0 ? comment.size() : end + 2;
        }
        const qsizetype end = comment.indexOf(u'>');
        return end < 0 || comment.first(end).contains(u'<') ? kInDoubt : end;
    }

    /// The tag itself, its attributes and its classes, at most.
    static qsizetype wordsIn(QStringView attributes)
    {
        qsizetype words = 1;
        QChar quote;
        bool isClass = false;
        for (qsizetype i = 0; i < attributes.size(); ++i) {
            const QChar c = attributes[i];
            if (c == quote) {
                quote = QChar();
            } else if (!quote.isNull()) {
                if (isClass && (c.isSpace() || c == u'&'))
                    ++words;
            } else if (c == u'=') {
                ++words;
                isClass = endsWithClass(attributes.first(i));
            } else if (c.isSpace()) {
                ++words;
            } else if (c == u'"' || c == u'\'') {
                quote = c;
            }
        }
        return words;
    }

    static bool endsWithClass(QStringView attributes)
    {
        while (!attributes.isEmpty() && attributes.back().isSpace())
            attributes.chop(1);
        return attributes.endsWith("class"_L1, Qt::CaseInsensitive);
    }

    void addOdd(qsizetype words)
    {
        ++m_odd;
        m_oddWords += words - 1 + kTagsOfOdd;
        count(0);
    }

    void open(const QString &name, qsizetype words)
    {
        if (!kUsualNames.contains(name) || !isInPlace(name))
            addOdd(words);
        count(words);
        if (kEmptyNames.contains(name))
            return;
        m_open.append({name, words});
        m_wordsAround += words;
        m_openOfTables += isOfTable(name) ? 1 : 0;
        m_openTables += name == "table"_L1 ? 1 : 0;
    }

    /// The visits for a tag with so many words.
    void count(qsizetype words)
    {
        const auto all = static_cast<double>(words + m_wordsAround + m_oddWords);
        m_visits.forNames += all;
        m_visits.forRelations += all * static_cast<double>(1 + m_open.size() + m_odd * kTagsOfOdd);
    }

    /// If it is not the last one, the parser ends more than that, or nothing. A cell that it then
    /// finds without a row gets a table of its own.
    void close(const QString &name)
    {
        if (m_open.isEmpty() || m_open.last().name != name) {
            if (isOfTable(name) || m_openOfTables > 0)
                addOdd(1);
            return;
        }
        m_wordsAround -= m_open.last().words;
        m_open.removeLast();
        m_openOfTables -= isOfTable(name) ? 1 : 0;
        m_openTables -= name == "table"_L1 ? 1 : 0;
    }

    static bool isOfTable(const QString &name)
    {
        return name == "table"_L1 || name == "tr"_L1 || name == "td"_L1 || name == "th"_L1 ||
               kSections.contains(name);
    }

    /// The parser puts tags around cells and rows elsewhere.
    bool isInPlace(const QString &name) const
    {
        const QString around = m_open.isEmpty() ? QString() : m_open.last().name;
        if (kSections.contains(name) || name == "caption"_L1)
            return around == "table"_L1;
        if (name == "tr"_L1)
            return around == "table"_L1 || kSections.contains(around);
        if (name == "td"_L1 || name == "th"_L1)
            return around == "tr"_L1;
        if (name == "dt"_L1 || name == "dd"_L1)
            return around == "dl"_L1;
        return around != "table"_L1 && around != "tr"_L1 && !kSections.contains(around);
    }

    /// It stays open, it hides the end of another, or has a table and a row put around it.
    static constexpr qsizetype kTagsOfOdd = 3;

    static inline const QSet<QString> kEmptyNames{u"br"_s, u"hr"_s, u"img"_s};
    static inline const QSet<QString> kSections{u"tbody"_s, u"thead"_s, u"tfoot"_s};
    /// Those that the parser does not know nest as well.
    static inline const QSet<QString> kUsualNames{
        u"a"_s,      u"abbr"_s,   u"address"_s, u"article"_s, u"aside"_s,      u"b"_s,
        u"big"_s,    u"br"_s,     u"caption"_s, u"center"_s,  u"blockquote"_s, u"cite"_s,
        u"code"_s,   u"dd"_s,     u"del"_s,     u"div"_s,     u"dl"_s,         u"dt"_s,
        u"em"_s,     u"figure"_s, u"font"_s,    u"footer"_s,  u"figcaption"_s, u"h1"_s,
        u"h2"_s,     u"h3"_s,     u"h4"_s,      u"h5"_s,      u"h6"_s,         u"header"_s,
        u"hr"_s,     u"i"_s,      u"img"_s,     u"ins"_s,     u"kbd"_s,        u"li"_s,
        u"main"_s,   u"mark"_s,   u"nav"_s,     u"ol"_s,      u"p"_s,          u"pre"_s,
        u"q"_s,      u"s"_s,      u"section"_s, u"small"_s,   u"span"_s,       u"strike"_s,
        u"strong"_s, u"style"_s,  u"sub"_s,     u"sup"_s,     u"table"_s,      u"tbody"_s,
        u"td"_s,     u"tfoot"_s,  u"th"_s,      u"thead"_s,   u"time"_s,       u"tr"_s,
        u"tt"_s,     u"u"_s,      u"ul"_s,      u"var"_s};

    QStringView m_html;
    qsizetype m_end = 0; // of what has been read
    bool m_isInDoubt = false;
    QList<OpenTag> m_open;
    qsizetype m_wordsAround = 0;  // of the open ones
    qsizetype m_openOfTables = 0; // tables, rows, cells
    qsizetype m_openTables = 0;
    qsizetype m_odd = 0;
    qsizetype m_oddWords = 0;
    TagVisits m_visits;
};

/// How many fonts the text names in its tags' styles, at most: neither "<font" nor "font-style" nor
/// the French word, which something else follows than the name of a property.
qsizetype fontsIn(const QString &html)
{
    static const QRegularExpression kFont(
        u"(?<!<)(?<!</)font(?!-style|-variant|-weight\\s*+:\\s*+[a-z]|\\s*+[\\p{L}.,;!?)<])"_s,
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::UseUnicodePropertiesOption);
    qsizetype count = 0;
    for (auto fonts = kFont.globalMatch(html); fonts.hasNext(); fonts.next())
        ++count;
    return count;
}

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
        if (m_haveFontSizes && fontsIn(m_html.toString()) > kFontsLimit)
            return false;
        const TagVisits visits = TagsOf(m_html).visits();
        return static_cast<double>(m_words) *
                   (m_haveRelations ? visits.forRelations : visits.forNames) <=
               kStyleEffortLimit;
    }

private:
    void add(QStringView rest, bool isPlainName)
    {
        // What a rule is about: names, without a word of what they lie in. In doubt it does not
        // match.
        static const QRegularExpression kNamesAlone(
            u"^(?>\\s*+[\\w.#:-]++(?>\\s*+,\\s*+[\\w.#:-]++)*+\\s*+\\{[^{}]*+\\})*+\\s*+$"_s);
        // What lies beside others, and more that is rare or hides it.
        static const QRegularExpression kRare(u"[+~@&\\[\\\\]"_s);
        static const QRegularExpression kFontSize(u"\\de[mx]"_s,
                                                  QRegularExpression::CaseInsensitiveOption);

        const qsizetype attributes = attributesIn(rest).length;
        const QStringView rules = rest.sliced(std::max<qsizetype>(attributes, 0));
        const qsizetype end = rules.indexOf(u'<');
        if (!isPlainName || attributes < 0 || end < 0 || end > kStyleLimit ||
            !rules.sliced(end).startsWith("</style>"_L1, Qt::CaseInsensitive)) {
            m_arePlain = false;
            return;
        }
        const QString sheet = rules.first(end).sliced(1).toString();
        m_length += sheet.size();
        m_words += wordsIn(sheet) + kWordsOfStyleSheet;
        m_arePlain = m_arePlain && !kRare.match(sheet).hasMatch();
        m_haveRelations = m_haveRelations || !kNamesAlone.match(sheet).hasMatch();
        m_haveFontSizes = m_haveFontSizes || kFontSize.match(sheet).hasMatch();
    }

    /// Names of tags, classes, properties and values.
    static qsizetype wordsIn(const QString &sheet)
    {
        const auto isBetween = [](QChar c) { return c.isSpace() || ",{};:.#>*"_L1.contains(c); };
        qsizetype words = 0;
        bool isInWord = false;
        for (const QChar c : sheet) {
            const bool wasInWord = std::exchange(isInWord, !isBetween(c));
            if ((isInWord && !wasInWord) || c == u'*')
                ++words;
        }
        return words;
    }

    static constexpr auto kStyle = "style"_L1;

    QStringView m_html;
    QList<qsizetype> m_places;
    qsizetype m_length = 0;
    qsizetype m_words = 0;
    bool m_arePlain = true;
    bool m_haveRelations = false;
    bool m_haveFontSizes = false;
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
    explicit Efforts(QStringView html, qsizetype effortOfFontSize)
        : m_html(html)
        , m_tags(html)
        , m_effortOfFontSize(effortOfFontSize)
    {
    }

    /// The end of the longest piece from the start that asks for no more than `limit`, and whose
    /// new tables ask for no more than `tableLimit`: the text's end, or an opening angle bracket or
    /// the like.
    qsizetype reach(qsizetype limit, qsizetype tableLimit)
    {
        const qsizetype limitOfTables = m_ofTables + tableLimit;
        for (; m_position < m_html.size(); ++m_position) {
            const qsizetype ofTables = effortOfTableAt(m_position);
            const qsizetype effort = ofTables > 0 ? ofTables : effortAt(m_position);
            if (m_sum + effort > limit || m_ofTables + ofTables > limitOfTables)
                break;
            m_sum += effort;
            m_ofTables += ofTables;
            if (m_html[m_position] == u'<')
                follow(m_position);
            else if (ofTables > 0)
                ++m_inOpen.spans;
        }
        return m_position;
    }

    /// That have been reached in tables that may go on, one in the other. Those of one table show
    /// only when it has a cell.
    qsizetype rows() const { return m_inOpen.rows; }

    /// Cells over several columns or rows. The parser goes through the whole table for each.
    qsizetype spans() const { return m_inOpen.spans; }

private:
    struct RowsAndSpans
    {
        qsizetype rows = 0;
        qsizetype spans = 0;
    };

    void follow(qsizetype bracket)
    {
        if (isRow(bracket))
            ++m_inOpen.rows;
        m_tags.read(bracket);
        const qsizetype tables = m_tags.openTables();
        if (tables == kInDoubt)
            return; // for good: any of them may go on
        if (tables > m_around.size())
            m_around.append(m_inOpen);
        else if (tables < m_around.size())
            m_inOpen = m_around.takeLast();
    }

    qsizetype effortAt(qsizetype position) const
    {
        const QChar c = m_html[position];
        // A tag, a paragraph, what may stand for one, or a character with a stand-in.
        if (c == u'<' || c == u'\n' || c == u'\r' || c == u'&' || c == u'\\' ||
            c == kBackslashStandIn || c == QChar::ParagraphSeparator || c == kBeginningOfFrame ||
            c == kEndOfFrame)
            return 1;
        return isFontSize(position) ? m_effortOfFontSize : 0;
    }

    /// A number's unit that depends on the font.
    bool isFontSize(qsizetype position) const
    {
        const QChar c = m_html[position];
        if ((c != u'e' && c != u'E') || position == 0 || position + 1 == m_html.size())
            return false;
        const QChar next = m_html[position + 1].toLower();
        return isDigit(m_html[position - 1]) && (next == u'm' || next == u'x');
    }

    qsizetype effortOfTableAt(qsizetype position)
    {
        const QChar c = m_html[position];
        if (c == u'<')
            return isTagOfTable(position) ? kEffortOfCell : 0;
        // A cell counts as often as it has columns; its tag has been counted.
        if ((c == u's' || c == u'S') && position >= 3)
            return effortOfSpan(position);
        return 0;
    }

    bool isRow(qsizetype position) const
    {
        return m_html[position] == u'<' &&
               m_html.sliced(nameOfTag(m_html, position)).startsWith("tr"_L1, Qt::CaseInsensitive);
    }

    bool isTagOfTable(qsizetype position) const
    {
        const QStringView name = m_html.sliced(nameOfTag(m_html, position));
        const auto begins = [name](QLatin1StringView text) {
            return name.startsWith(text, Qt::CaseInsensitive);
        };
        return begins("td"_L1) || begins("th"_L1) || begins("tr"_L1) || begins("ta"_L1) ||
               begins("tb"_L1) || begins("tf"_L1) || begins("cap"_L1);
    }

    qsizetype effortOfSpan(qsizetype position)
    {
        const qsizetype name = position - 3;
        const QStringView word = m_html.sliced(name, std::min<qsizetype>(7, m_html.size() - name));
        if (word.compare("rowspan"_L1, Qt::CaseInsensitive) == 0)
            return kEffortOfSpan;
        if (word.compare("colspan"_L1, Qt::CaseInsensitive) != 0)
            return 0;
        // Many may lie in front of the one number.
        if (m_spanNumber <= name)
            m_spanNumber = nextSpan(m_html, name);
        const auto end = std::find_if_not(m_html.begin() + m_spanNumber, m_html.end(), isDigit);
        const auto digits = m_html.sliced(m_spanNumber, end - m_html.begin() - m_spanNumber);
        return kEffortOfSpan + digits.toInt() * kEffortOfCell;
    }

    QStringView m_html;
    qsizetype m_position = 0;
    qsizetype m_sum = 0;
    qsizetype m_ofTables = 0;
    qsizetype m_spanNumber = 0;
    TagsOf m_tags;
    RowsAndSpans m_inOpen;
    QList<RowsAndSpans> m_around; // of the tables that are open, before each
    qsizetype m_effortOfFontSize;
};

/// The most rows or columns of a table, at least 1. Calls itself.
qsizetype longestSideOf(const QTextFrame *frame)
{
    const auto *table = qobject_cast<const QTextTable *>(frame);
    qsizetype longest = table ? std::max(table->rows(), table->columns()) : 1;
    const auto children = frame->childFrames();
    for (const QTextFrame *child : children)
        longest = std::max(longest, longestSideOf(child));
    return longest;
}

} // namespace

bool NewsHtml::isQuick(const QStringList &news)
{
    const QString source = joined(news);
    if (source.size() > kQuickLength)
        return false;
    const QString html = withSpansBounded(withLettersSpelledOut(source));
    // What a style sheet costs is a matter of all tags together.
    return Efforts(html, kEffortOfFontSizeInHaste).reach(kQuickEffort, kQuickEffort) ==
               html.size() &&
           StyleSheetsOf(html).places().isEmpty();
}

std::unique_ptr<QTextDocument> NewsHtml::read(const QStringList &news, const QFont &font,
                                              const std::atomic_bool &isAbandoned)
{
    const QString source = withSpansBounded(withLettersSpelledOut(joined(news)));
    const QString html = withStandIns(withFewStyles(source));
    auto document = emptyDocument(font);
    Efforts efforts(html, kEffortOfFontSize);
    qsizetype end = 0;
    qsizetype effort = kStepEffort;
    qsizetype tableEffort = kTableEffort;
    std::chrono::nanoseconds longest = kLongStep;
    for (int i = 0; i < kStepLimit && !isAbandoned; ++i) {
        const auto start = threadTime();
        const qsizetype before = std::exchange(end, efforts.reach(effort, tableEffort));
        document->setHtml(html.first(end));
        // As many cells may come with one more row or column.
        qsizetype side = longestSideOf(document->rootFrame());
        const auto verdict = NewsBounds::apply(document.get());
        const auto step = threadTime() - start;
        if (verdict != NewsBounds::Verdict::Complete || end == html.size() || end == before ||
            step > longest)
            break;
        longest = std::clamp(kLargestGrowth * step, kNoticeableStep, kLongStep);
        effort = std::min(effort + kStepEffort, kEffortLimit);
        side = std::max(side, efforts.rows());
        const qsizetype moreCells = kMoreCells / (1 + efforts.spans() / kSpansOfGrid);
        tableEffort = std::min(kTableEffort, moreCells / side * kEffortOfCell);
    }
    removeStandIns(document.get());
    return document;
}
