#include "ui/NewsBounds.h"

#include <QList>
#include <QSet>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextList>
#include <QTextTable>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

// Microseconds that the layout takes, once, measured on a server's processor of 2020 with 400 fonts
// and rounded up. The event loop may be held for 250 ms, so two and a half remain for what was not
// thought of and for slower machines.
constexpr double kCostLimit = 100'000; // the panel goes to the end, or gets another size
/// What the panel shows first is laid out three times: to be measured, in the panel's width, and
/// beside the scroll bar that it calls for. So this is for all tables and heavy paragraphs together
/// that may be low enough to be among it.
constexpr double kTimesOfFirst = 3;
constexpr double kCostLimitOfFirst = 36'000;
constexpr double kCostLimitOfFirstWithLight = 48'000; // paragraphs, of which less is in doubt
constexpr double kHeavyCost = 1000;                   // a usual item takes 30
/// Pixels after which Qt interrupts the layout, unless the panel is higher.
constexpr double kFirstHeight = 2000;
/// For all tables and heavy paragraphs of the document. The rest is left for what becomes plain.
constexpr double kCostLimitOfHeavy = 80'000;
/// Plain text in a thing's place. Its paragraphs are broken, so that no cost grows with a square.
constexpr double kCostLimitOfText = 36'000;
constexpr int kParagraphLimit = 1000; // characters

constexpr double kCostOfBlock = 3.5;
constexpr double kCostOfFragment = 1.7;
constexpr double kCostOfLine = 2.5;
constexpr double kCostOfCell = 5;         // beside its block's
constexpr double kCostOfCharacter = 0.15; // Latin, Greek, Cyrillic, Hebrew, Arabic alike
constexpr double kCostOfWord = 0.15;
constexpr double kCostOfMark = 0.5;
constexpr double kCostOfFarLetter = 2; // of a script that most fonts do not have
constexpr double kCostOfSymbol = 12;   // looked for in one font after the other
constexpr double kCostOfSyllable = 20; // the like, and put together with its neighbours
constexpr double kCostOfPiece = 3;     // shaped by itself: of another script, direction or font
// These grow with the square: pieces of one word, letters of one word, marks on one letter.
constexpr double kCostOfPiecePair = 3e-3;
constexpr double kCostOfWordPair = 1.5e-3;
constexpr double kCostOfMarkPair = 6e-3;
/// A table lays its cells out for their least, their greatest and their true width, and lines are
/// many in narrow columns.
constexpr double kCostOfTable = 4;
/// The widths that were found are kept, so a table in a table takes twice the time and not thrice.
constexpr double kCostOfNesting = 2;
constexpr int kNestingLimit = 6;
/// More have their price in memory, and with a few more tags there would be many more.
constexpr int kCellLimit = 20'000;
/// Qt removes cells one by one, and looks for each among all that are left.
constexpr qint64 kRemovableCells = 40'000;

/// A height that most lines keep to, in pixels. Higher ones cost more, so that the document's
/// height stays far within the 33 million pixels that the layout can count.
constexpr double kUsualLine = 30;
constexpr double kLeastFont = 10;     // of text that says nothing about its size
constexpr double kCostOfPixel = 0.01; // of margins above and below; 10 million of them at most
/// Pixels that margins leave for usual lines. With more of them every letter may have its own line.
constexpr double kUsualMargins = 300;
constexpr double kHeavinessOfColumn = 5;
constexpr double kPixelsOfIndent = 40;

/// Each opens font files; unknown families are looked for among all.
constexpr qsizetype kFontLimit = 24;
/// Once for each script that is written in it, though for the first ones of a font it is less. The
/// next font is looked for among all installed ones, and all of them are opened for a character
/// that none has.
constexpr double kCostOfFont = 1200;
constexpr double kCostOfRareFont = 8000; // and twice that if its file has to come from the disk
constexpr double kCostOfAllFonts = 16'000;
/// For what most fonts have, beside Latin letters, which no font is refused.
constexpr double kCostLimitOfUsual = 24'000;
/// For the rest: an emoji in six other fonts, and two rare scripts in the document's own even then.
constexpr double kCostLimitOfOtherFonts = 48'000;
constexpr double kCostLimitOfOwnFont = 40'000; // some five rare scripts, of which emoji are one
constexpr double kCostLimitOfFonts = 64'000;
/// Of the fonts. What goes beyond is taken from the limits of the layout, in the same hold.
constexpr double kUsualCostOfFonts = 30'000;
/// Runs of a text that keep their font, with others in the document's own between them.
constexpr int kRunLimit = 16;
constexpr qsizetype kFamilyLimit = 4;
constexpr qsizetype kFloatLimit = 20;
constexpr qsizetype kLabelLimit = 20; // characters before or after a list's number
/// Characters. A browser takes no more of them for sure; each piece of a link has all of them.
constexpr qsizetype kAddressLimit = 2000;
constexpr qsizetype kHostLimit = 253; // no name is longer, and foreign letters are spelled out

struct Bound
{
    QTextFormat::Property property;
    double least;
    double most;
};

// Pixels, or percent of a width.
constexpr Bound kBounds[] = {
    {QTextFormat::BlockTopMargin, 0, 500},
    {QTextFormat::BlockBottomMargin, 0, 500},
    {QTextFormat::BlockLeftMargin, -500, 1000},
    {QTextFormat::BlockRightMargin, -500, 1000},
    {QTextFormat::TextIndent, -1000, 1000},
    {QTextFormat::BlockIndent, 0, 20},
    {QTextFormat::BlockTrailingHorizontalRulerWidth, 0, 2000},
    {QTextFormat::ListIndent, -20, 20},
    {QTextFormat::FontPointSize, 3, 72},
    {QTextFormat::FontPixelSize, 4, 96},
    {QTextFormat::FontSizeAdjustment, -2, 4},
    {QTextFormat::FontLetterSpacing, -2, 20},
    {QTextFormat::FontWordSpacing, -5, 50},
    {QTextFormat::FrameBorder, 0, 100},
    {QTextFormat::FrameMargin, -100, 500},
    {QTextFormat::FramePadding, 0, 100},
    {QTextFormat::FrameWidth, 0, 2000},
    {QTextFormat::FrameHeight, 0, 2000},
    {QTextFormat::FrameTopMargin, 0, 500},
    {QTextFormat::FrameBottomMargin, 0, 500},
    {QTextFormat::FrameLeftMargin, -500, 1000},
    {QTextFormat::FrameRightMargin, -500, 1000},
    {QTextFormat::TableCellSpacing, 0, 100},
    {QTextFormat::TableCellPadding, 0, 100},
    {QTextFormat::TableCellTopPadding, 0, 100},
    {QTextFormat::TableCellBottomPadding, 0, 100},
    {QTextFormat::TableCellLeftPadding, 0, 100},
    {QTextFormat::TableCellRightPadding, 0, 100},
    {QTextFormat::TableCellTopBorder, 0, 100},
    {QTextFormat::TableCellBottomBorder, 0, 100},
    {QTextFormat::TableCellLeftBorder, 0, 100},
    {QTextFormat::TableCellRightBorder, 0, 100},
};

constexpr Bound kPercent{{}, 0, 100};
constexpr Bound kLetterPercent{{}, 50, 300};
constexpr Bound kProportionalLine{{}, 50, 500};
constexpr Bound kLine{{}, 8, 200};

double bounded(double value, const Bound &bound)
{
    return value >= bound.least ? std::min(value, bound.most) : bound.least; // also if no number
}

QTextLength bounded(const QTextLength &length, const Bound &bound)
{
    const bool isPercentage = length.type() == QTextLength::PercentageLength;
    return QTextLength(length.type(), bounded(length.rawValue(), isPercentage ? kPercent : bound));
}

QVariant bounded(const QVariant &value, const Bound &bound)
{
    if (value.metaType() == QMetaType::fromType<QTextLength>())
        return bounded(value.value<QTextLength>(), bound);
    if (value.metaType() == QMetaType::fromType<int>())
        return static_cast<int>(bounded(value.toDouble(), bound));
    return bounded(value.toDouble(), bound);
}

/// Lines of no height would lie upon each other, all of them to be painted at once.
bool hasUsualLines(const QTextFormat &format)
{
    const int type = format.intProperty(QTextFormat::LineHeightType);
    const double height = format.doubleProperty(QTextFormat::LineHeight);
    switch (type) {
    case QTextBlockFormat::SingleHeight:
        return true;
    case QTextBlockFormat::ProportionalHeight:
        return height == bounded(height, kProportionalLine);
    case QTextBlockFormat::FixedHeight:
        return height == bounded(height, kLine);
    default: // a least height, or something on top of it
        return height >= 0 && height <= kLine.most;
    }
}

/// A label is drawn in the fonts of all its paragraphs, so it has letters that all fonts have.
bool isUsualLabel(const QString &label)
{
    return label.size() <= kLabelLimit && std::all_of(label.begin(), label.end(), [](QChar c) {
               return c.unicode() < 0x100 && c.isPrint();
           });
}

/// Looks at a few hundred characters at most: each piece of a link has the whole address.
bool isUsualAddress(QStringView address)
{
    if (address.size() > kAddressLimit)
        return false;
    const qsizetype slashes = address.indexOf("//"_L1);
    if (slashes < 0)
        return true;
    const QStringView place = address.sliced(slashes + 2);
    const QStringView host = place.first(std::min(place.size(), kHostLimit + 1));
    const auto isEnd = [](QChar c) { return c == u'/' || c == u'?' || c == u'#'; };
    return host.size() <= kHostLimit || std::any_of(host.begin(), host.end(), isEnd);
}

/// A bound of this format: of "0.1em" Qt makes 110 percent.
Bound boundOf(const QTextFormat &format, const Bound &bound)
{
    const bool isPercentage =
        bound.property == QTextFormat::FontLetterSpacing &&
        format.intProperty(QTextFormat::FontLetterSpacingType) == QFont::PercentageSpacing;
    return isPercentage ? kLetterPercent : bound;
}

/// The format within the bounds.
template <typename Format> Format bounded(Format format)
{
    for (const Bound &bound : kBounds) {
        const QVariant value = format.property(bound.property);
        if (!value.isValid())
            continue;
        const QVariant allowed = bounded(value, boundOf(format, bound));
        if (allowed != value)
            format.setProperty(bound.property, allowed);
    }
    if (!hasUsualLines(format)) {
        format.clearProperty(QTextFormat::LineHeight);
        format.clearProperty(QTextFormat::LineHeightType);
    }
    // A tool tip is HTML of its own, and would be laid out and fetch its pictures by itself.
    format.clearProperty(QTextFormat::TextToolTip);
    for (const auto label : {QTextFormat::ListNumberPrefix, QTextFormat::ListNumberSuffix}) {
        if (!isUsualLabel(format.stringProperty(label)))
            format.clearProperty(label);
    }
    // Nothing leads to a place in the news.
    format.clearProperty(QTextFormat::AnchorName);
    if (!isUsualAddress(format.stringProperty(QTextFormat::AnchorHref))) {
        format.clearProperty(QTextFormat::AnchorHref);
        format.clearProperty(QTextFormat::IsAnchor);
    }
    const QStringList families = format.property(QTextFormat::FontFamilies).toStringList();
    if (families.size() > kFamilyLimit)
        format.setProperty(QTextFormat::FontFamilies, families.first(kFamilyLimit));
    return format;
}

struct CharacterRange
{
    char32_t first;
    double cost;
};

/// What a character costs up to the next range.
constexpr CharacterRange kCharacterRanges[] = {
    {0x0000, kCostOfSymbol},    // control characters
    {0x0001, kCostOfCharacter}, // these stand for usual ones, see NewsBounds.h
    {0x0003, kCostOfSymbol},    // control characters
    {0x0020, kCostOfCharacter}, // ASCII
    {0x007f, kCostOfSymbol},    // control characters
    {0x00a0, kCostOfCharacter}, // Latin to Arabic
    {0x0700, kCostOfSymbol},    // Syriac to the Arabic of rare languages
    {0x0900, kCostOfFarLetter}, // Devanagari to Georgian
    {0x1100, kCostOfSyllable},  // Hangul in pieces
    {0x1200, kCostOfFarLetter}, // Ethiopic, Cherokee
    {0x1400, kCostOfSymbol},    // Canadian syllables to Philippine scripts
    {0x1780, kCostOfFarLetter}, // Khmer
    {0x1800, kCostOfSymbol},    // Mongolian to Vedic
    {0x1d00, kCostOfFarLetter}, // Vietnamese, polytonic Greek; dashes, quotes, bullet, euro
    {0x20d0, kCostOfSymbol},    // arrows, emoji, Chinese, and all that comes after
};

double costOfRange(char32_t c)
{
    const auto next =
        std::find_if(std::next(std::begin(kCharacterRanges)), std::end(kCharacterRanges),
                     [c](const CharacterRange &range) { return range.first > c; });
    return std::prev(next)->cost;
}

/// Arrows, stars and the like that most fonts have, or one of those that are looked in first.
bool isUsualSign(char32_t c)
{
    constexpr QStringView kSigns =
        u"€™№ℓ℮Ω←↑→↓↔↕⇐⇒⇔∂∆∏∑−√∞∩∫≈≠≡≤≥■□▪▫▲►▶▼◄◀◊○●★☆☀☎☺☻♀♂♠♣♥♦♪♫✓✔✗✘✦❤➜";
    return c >= 0x20ac && c < 0x10000 && kSigns.contains(QChar(static_cast<char16_t>(c)));
}

/// What it may cost to find a font for a character.
double costOfFontFor(char32_t c)
{
    const bool isPunctuation = c >= 0x2000 && c < 0x2070;
    if (isPunctuation || isUsualSign(c) || c == U'\t' || c == U'\n' || NewsBounds::isStandIn(c))
        return kCostOfFont;
    switch (QChar::category(c)) {
    case QChar::Other_Control:
    case QChar::Other_NotAssigned:
    case QChar::Other_PrivateUse:
        return kCostOfAllFonts;
    default:
        return costOfRange(c) > kCostOfCharacter ? kCostOfRareFont : kCostOfFont;
    }
}

/// Adds up what the fonts cost that a document makes Qt open.
class FontCost
{
public:
    static constexpr qsizetype kDefaultFont = -1;

    /// False, and nothing added, if it would be too much with a character of this script.
    bool add(qsizetype font, QChar::Script script, char32_t c)
    {
        // To Qt's fonts what belongs to no script is Latin.
        const Use use{font, std::max(script, QChar::Script_Latin), costOfFontFor(c)};
        if (use == m_last || m_uses.contains(use)) {
            m_last = use;
            return true;
        }
        if (!fits(use))
            return false;
        m_uses.append(use);
        sumOf(use) += use.cost;
        return true;
    }

    double sum() const { return m_latin + m_usual + m_ofOwnFont + m_ofOtherFonts; }

private:
    struct Use
    {
        qsizetype font;
        QChar::Script script;
        double cost;

        bool operator==(const Use &) const = default;
    };

    bool fits(const Use &use) const
    {
        const bool isOfOwnFont = use.font == kDefaultFont;
        if (use.cost == kCostOfFont)
            return isOfOwnFont || isLatin(use) || m_usual + use.cost <= kCostLimitOfUsual;
        const double sum = isOfOwnFont ? m_ofOwnFont : m_ofOtherFonts;
        return sum + use.cost <= (isOfOwnFont ? kCostLimitOfOwnFont : kCostLimitOfOtherFonts) &&
               m_ofOwnFont + m_ofOtherFonts + use.cost <= kCostLimitOfFonts;
    }

    double &sumOf(const Use &use)
    {
        if (use.cost == kCostOfFont)
            return isLatin(use) ? m_latin : m_usual;
        return use.font == kDefaultFont ? m_ofOwnFont : m_ofOtherFonts;
    }

    static bool isLatin(const Use &use) { return use.script == QChar::Script_Latin; }

    QList<Use> m_uses;
    Use m_last{kDefaultFont, QChar::Script_Unknown, 0};
    double m_latin = 0;
    double m_usual = 0;
    double m_ofOwnFont = 0;
    double m_ofOtherFonts = 0;
};

/// Punctuation and the like belong to the script in front of them, and at the beginning to the
/// first.
QChar::Script firstScriptOf(const QString &text)
{
    const auto characters = text.toUcs4();
    const auto first = std::find_if(characters.begin(), characters.end(), [](char32_t c) {
        return QChar::script(c) > QChar::Script_Common;
    });
    return first == characters.end() ? QChar::Script_Common : QChar::script(*first);
}

/// Brings all formats of a document within the bounds.
class Bounding
{
public:
    explicit Bounding(QTextDocument *document)
        : m_document(document)
        , m_cursor(document)
    {
    }

    void apply()
    {
        m_cursor.beginEditBlock();
        boundFrame(m_document->rootFrame());
        for (QTextBlock block = m_document->begin(); block.isValid(); block = block.next())
            boundBlock(block);
        std::for_each(m_pictures.rbegin(), m_pictures.rend(), [this](const Piece &picture) {
            select(picture);
            m_cursor.removeSelectedText();
        });
        m_cursor.endEditBlock();
    }

    /// Beyond the usual, for the limits of the layout.
    double excessOfFonts() const { return std::max(0.0, m_fontCost.sum() - kUsualCostOfFonts); }

private:
    struct Piece
    {
        int start;
        int end;
        QTextCharFormat format;
        QString text; // as long as before; empty where it stays
    };

    void select(const Piece &piece)
    {
        m_cursor.setPosition(piece.start);
        m_cursor.setPosition(piece.end, QTextCursor::KeepAnchor);
    }

    void boundFrame(QTextFrame *frame)
    {
        if (auto *table = qobject_cast<QTextTable *>(frame)) {
            boundTable(table);
        } else {
            const QTextFrameFormat format = frame->frameFormat();
            const QTextFrameFormat allowed = withFewFloats(bounded(format));
            if (allowed != format)
                frame->setFrameFormat(allowed);
        }
        const auto children = frame->childFrames();
        for (QTextFrame *child : children)
            boundFrame(child);
    }

    void boundTable(QTextTable *table)
    {
        const QTextTableFormat format = table->format();
        QTextTableFormat allowed = withFewFloats(bounded(format));
        auto widths = allowed.columnWidthConstraints();
        std::transform(widths.begin(), widths.end(), widths.begin(), [](const QTextLength &width) {
            return bounded(width, {{}, 0, 2000});
        });
        allowed.setColumnWidthConstraints(widths);
        if (allowed != format)
            table->setFormat(allowed);

        for (int row = 0; row < table->rows(); ++row) {
            for (int column = 0; column < table->columns(); ++column) {
                QTextTableCell cell = table->cellAt(row, column);
                const QTextCharFormat cellFormat = cell.format();
                const QTextCharFormat allowedFormat = bounded(cellFormat);
                if (allowedFormat != cellFormat)
                    cell.setFormat(allowedFormat);
            }
        }
    }

    template <typename Format> Format withFewFloats(Format format)
    {
        if (format.position() != QTextFrameFormat::InFlow && ++m_floats > kFloatLimit)
            format.setPosition(QTextFrameFormat::InFlow);
        return format;
    }

    void boundBlock(const QTextBlock &block)
    {
        m_cursor.setPosition(block.position());
        const QTextBlockFormat format = block.blockFormat();
        const QTextBlockFormat allowed = bounded(format);
        if (allowed != format)
            m_cursor.setBlockFormat(allowed);
        const QTextCharFormat charFormat = block.charFormat();
        const QTextCharFormat allowedFormat = withFewFonts(bounded(charFormat));
        if (allowedFormat != charFormat)
            m_cursor.setBlockCharFormat(allowedFormat);
        boundList(block.textList());

        QList<Piece> beyond; // changing one would spoil the iterator
        m_script = firstScriptOf(block.text());
        for (auto it = block.begin(); !it.atEnd(); ++it)
            boundFragment(it.fragment(), &beyond);
        for (const Piece &piece : std::as_const(beyond)) {
            select(piece);
            if (piece.text.isEmpty())
                m_cursor.setCharFormat(piece.format);
            else
                m_cursor.insertText(piece.text, piece.format);
        }
    }

    void boundFragment(const QTextFragment &fragment, QList<Piece> *beyond)
    {
        const QTextCharFormat format = fragment.charFormat();
        const int start = fragment.position();
        const int end = start + fragment.length();
        if (format.isImageFormat()) {
            m_pictures.append({start, end, {}, {}});
            return;
        }
        const QTextCharFormat allowed = withFewFonts(bounded(format));
        const qsizetype font = m_fonts.indexOf(fontOf(allowed));
        const QString text = fragment.text();
        const QList<Run> runs = runsOf(text, font);
        int position = start;
        for (const Run &run : runs) {
            const int runEnd = position + static_cast<int>(run.text.size());
            const bool isSame =
                QStringView(text).mid(position - start, run.text.size()) == run.text;
            const QTextCharFormat runFormat = run.font == font ? allowed : withoutFont(allowed);
            if (!isSame)
                beyond->append({position, runEnd, runFormat, run.text});
            else if (runFormat != format)
                beyond->append({position, runEnd, runFormat, {}});
            position = runEnd;
        }
    }

    void boundList(QTextList *list)
    {
        if (!list || m_lists.contains(list))
            return;
        m_lists.insert(list);
        const QTextListFormat format = list->format();
        const QTextListFormat allowed = bounded(format);
        if (allowed != format)
            list->setFormat(allowed);
    }

    /// Colours and lines need no font of their own.
    static QTextCharFormat fontOf(const QTextCharFormat &format)
    {
        QTextCharFormat font;
        for (const auto property : kFontProperties) {
            if (format.hasProperty(property))
                font.setProperty(property, format.property(property));
        }
        return font;
    }

    static QTextCharFormat withoutFont(QTextCharFormat format)
    {
        for (const auto property : kFontProperties)
            format.clearProperty(property);
        return format;
    }

    QTextCharFormat withFewFonts(const QTextCharFormat &format)
    {
        const QTextCharFormat font = fontOf(format);
        if (m_fonts.contains(font) || font.propertyCount() == 0)
            return format;
        if (m_fonts.size() == kFontLimit)
            return withoutFont(format);
        m_fonts.append(font);
        return format;
    }

    struct Run
    {
        qsizetype font;
        QString text;
    };

    /// The text in its font, with what would be too much for that in the document's own, and
    /// question marks for what would be too much for both.
    QList<Run> runsOf(const QString &text, qsizetype font)
    {
        QList<Run> runs;
        const auto characters = text.toUcs4();
        for (const char32_t c : characters) {
            const QChar::Script script = scriptOf(c, m_script);
            const bool isOfFont = runs.size() < kRunLimit && m_fontCost.add(font, script, c);
            const qsizetype usedFont = isOfFont ? font : FontCost::kDefaultFont;
            if (runs.isEmpty() || runs.last().font != usedFont)
                runs.append(Run{usedFont, QString()});
            if (isOfFont || m_fontCost.add(usedFont, script, c)) {
                runs.last().text += QChar::fromUcs4(c);
                m_script = script;
            } else {
                runs.last().text += QString(QChar::requiresSurrogates(c) ? 2 : 1, u'?');
            }
        }
        return runs;
    }

    static QChar::Script scriptOf(char32_t c, QChar::Script before)
    {
        const QChar::Script script = QChar::script(c);
        return script > QChar::Script_Common ? script : before;
    }

    static constexpr QTextFormat::Property kFontProperties[] = {
        QTextFormat::FontFamilies,
        QTextFormat::FontPixelSize,
        QTextFormat::FontPointSize,
        QTextFormat::FontSizeAdjustment,
        QTextFormat::FontWeight,
        QTextFormat::FontItalic,
        QTextFormat::FontCapitalization,
        QTextFormat::FontStretch,
        QTextFormat::FontStyleHint,
        QTextFormat::FontFixedPitch,
        QTextFormat::TextVerticalAlignment,
    };

    QTextDocument *m_document;
    QTextCursor m_cursor;
    QList<Piece> m_pictures;
    QSet<QTextList *> m_lists;
    QList<QTextCharFormat> m_fonts;
    FontCost m_fontCost;
    QChar::Script m_script = QChar::Script_Common; // of what was before
    qsizetype m_floats = 0;
};

/// In a line with these it is not only letters from right to left that turn the direction.
bool isBidirectional(QChar::Direction direction)
{
    switch (direction) {
    case QChar::DirR:
    case QChar::DirAL:
    case QChar::DirAN:
    case QChar::DirRLE:
    case QChar::DirRLO:
    case QChar::DirRLI:
    case QChar::DirFSI:
        return true;
    default:
        return false;
    }
}

bool isBidirectional(const QString &text)
{
    const auto characters = text.toUcs4();
    return std::any_of(characters.begin(), characters.end(),
                       [](char32_t c) { return isBidirectional(QChar::direction(c)); });
}

/// Adds up what one character after the other costs.
class TextCost
{
public:
    enum Trait {
        Usual = 0,
        Unbreakable = 1,   // no line ends before its paragraph does
        Bidirectional = 2, // with characters or in a paragraph from right to left
    };

    explicit TextCost(int traits)
        : m_traits(traits)
    {
    }

    double sum() const { return m_sum; }

    void beginFragment(QFont::Capitalization capitalization)
    {
        m_hasSmallCapitals = capitalization == QFont::SmallCaps;
        m_sum += kCostOfFragment;
        addPiece();
    }

    void add(char32_t c, double heaviness)
    {
        m_sum += costOf(c) * heaviness;
        if (beginsWord(c)) {
            m_sum += kCostOfWord * heaviness;
            m_word = 0;
            m_pieces = 0;
        }
        ++m_word;
        m_marks = isMark(c) ? m_marks + 1 : 0;
        if (beginsPiece(c)) {
            m_sum += kCostOfPiece;
            addPiece();
        }
        // The square of a length grows by twice the length with each character.
        m_sum += 2 * m_word * kCostOfWordPair * heaviness + 2 * m_marks * kCostOfMarkPair;
        m_last = c;
    }

private:
    void addPiece()
    {
        ++m_pieces;
        m_sum += 2 * m_pieces * kCostOfPiecePair;
    }

    /// Most spaces are not for breaking lines, nor are those with a mark on them.
    bool beginsWord(char32_t c) const
    {
        if (c == QChar::LineSeparator || c == U'\n')
            return true;
        const bool followsSpace = (m_last == U' ' || m_last == U'\t') && !isMark(c);
        return !(m_traits & Unbreakable) &&
               (followsSpace || (isIdeograph(c) && isIdeograph(m_last)));
    }

    static bool isMark(char32_t c)
    {
        return QChar::isMark(c) || QChar::category(c) == QChar::Other_Format;
    }

    static bool isIdeograph(char32_t c) { return c >= 0x4e00 && c < 0xa000; }

    bool beginsPiece(char32_t c)
    {
        const bool hasOtherDirection = changesDirection(c);
        const bool hasOtherCase = changesCase(c);
        const bool hasOtherScript = changesScript(c);
        // What changes the direction is a piece by itself, and so is a tab that was left one.
        return hasOtherDirection || hasOtherCase || hasOtherScript || c == U'\t' ||
               QChar::category(c) == QChar::Other_Format;
    }

    bool changesDirection(char32_t c)
    {
        const QChar::Direction before = std::exchange(m_direction, QChar::direction(c));
        return (m_traits & Bidirectional) && m_direction != before;
    }

    /// Small capitals are of a smaller font.
    bool changesCase(char32_t c)
    {
        const bool isLower = QChar::category(c) == QChar::Letter_Lowercase;
        return std::exchange(m_isLower, isLower) != isLower && m_hasSmallCapitals;
    }

    bool changesScript(char32_t c)
    {
        const QChar::Script script = QChar::script(c);
        if (script <= QChar::Script_Common || script == m_script)
            return false;
        m_script = script;
        return true;
    }

    static double costOf(char32_t c)
    {
        if (c == QChar::LineSeparator || c == U'\n')
            return kCostOfLine + kCostOfBlock;
        if (c == U'\t')
            return kCostOfCharacter;
        if (QChar::category(c) == QChar::Other_NotAssigned)
            return kCostOfSymbol;
        const double cost = costOfRange(c);
        return QChar::isMark(c) && cost < kCostOfSymbol ? kCostOfMark : cost;
    }

    int m_traits;
    double m_sum = 0;
    double m_word = 0;
    double m_marks = 0;
    double m_pieces = 0;
    char32_t m_last = 0;
    QChar::Script m_script = QChar::Script_Latin;
    QChar::Direction m_direction = QChar::DirL;
    bool m_isLower = false;
    bool m_hasSmallCapitals = false;
};

/// Pixels beside a block's lines.
double marginsOf(const QTextBlock &block)
{
    const QTextBlockFormat format = block.blockFormat();
    const QTextList *list = block.textList();
    const int indent = format.indent() + (list ? list->format().indent() : 0);
    return format.leftMargin() + format.rightMargin() + kPixelsOfIndent * indent;
}

/// Of a font's size; 0 for the document's own.
double pixelsOf(const QTextCharFormat &format)
{
    constexpr double kPixelsOfPoint = 96.0 / 72;
    return std::max(format.doubleProperty(QTextFormat::FontPixelSize),
                    format.doubleProperty(QTextFormat::FontPointSize) * kPixelsOfPoint);
}

/// How much more than usual the lines of this format cost.
double heavinessOf(const QTextBlockFormat &block, const QTextCharFormat &format)
{
    const double font = pixelsOf(format);
    const bool isProportional = block.lineHeightType() == QTextBlockFormat::ProportionalHeight;
    const double line = isProportional ? std::max(font, kUsualLine / 2) * block.lineHeight() / 100
                                       : font + block.lineHeight();
    return std::max({1.0, font / kUsualLine, line / kUsualLine});
}

/// Pixels that a line of this format takes at least.
double leastLineOf(const QTextBlockFormat &block, const QTextCharFormat &format)
{
    constexpr double kSmallest = 0.4; // of superscript small capitals
    double font = pixelsOf(format);
    if (font == 0)
        font = kLeastFont;
    if (format.hasProperty(QTextFormat::FontSizeAdjustment) ||
        format.fontCapitalization() == QFont::SmallCaps ||
        format.verticalAlignment() != QTextCharFormat::AlignNormal)
        font *= kSmallest;
    switch (block.lineHeightType()) {
    case QTextBlockFormat::ProportionalHeight:
        return font * std::min(1.0, block.lineHeight() / 100);
    case QTextBlockFormat::FixedHeight:
        return std::min(font, block.lineHeight());
    default:
        return font;
    }
}

/// As if all were in one line.
double leastHeightOf(const QTextBlock &block)
{
    const QTextBlockFormat format = block.blockFormat();
    double least = leastLineOf(format, block.charFormat());
    for (auto it = block.begin(); !it.atEnd(); ++it)
        least = std::min(least, leastLineOf(format, it.fragment().charFormat()));
    return least;
}

/// A row has no height of its own as long as all of its cells go on in the next.
double leastHeightOfRow(const QTextTable &table, int row)
{
    for (int column = 0; column < table.columns(); ++column) {
        const QTextTableCell cell = table.cellAt(row, column);
        if (cell.rowSpan() == 1)
            return leastHeightOf(cell.firstCursorPosition().block());
    }
    return 0;
}

double leastHeightOf(const QTextTable &table)
{
    // The empty paragraphs around a table in a cell have no height.
    const bool isInFlow = table.frameFormat().position() == QTextFrameFormat::InFlow;
    if (!isInFlow || !table.childFrames().isEmpty())
        return 0;
    double height = 0;
    for (int row = 0; row < table.rows() && height < kFirstHeight; ++row)
        height += leastHeightOfRow(table, row);
    return height;
}

/// A lower bound, in pixels.
double leastHeightOf(const QTextFrame::iterator &it)
{
    if (const auto *table = qobject_cast<QTextTable *>(it.currentFrame()))
        return leastHeightOf(*table);
    const QTextBlock block = it.currentBlock();
    return block.length() > 1 ? leastHeightOf(block) : 0; // beside a table it has none
}

int traitsOf(const QTextBlock &block)
{
    const QTextBlockFormat format = block.blockFormat();
    const bool isBidirectional =
        format.layoutDirection() == Qt::RightToLeft || ::isBidirectional(block.text());
    return (format.nonBreakableLines() ? TextCost::Unbreakable : TextCost::Usual) |
           (isBidirectional ? TextCost::Bidirectional : TextCost::Usual);
}

double costOf(const QTextBlock &block)
{
    const QTextBlockFormat format = block.blockFormat();
    const double column = marginsOf(block) > kUsualMargins ? kHeavinessOfColumn : 1;
    TextCost text(traitsOf(block));
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        const QTextCharFormat charFormat = fragment.charFormat();
        const double heaviness = column * heavinessOf(format, charFormat);
        text.beginFragment(charFormat.fontCapitalization());
        const auto characters = fragment.text().toUcs4();
        for (const char32_t c : characters)
            text.add(c, heaviness);
    }
    const double margins = format.topMargin() + format.bottomMargin();
    return kCostOfBlock + margins * kCostOfPixel + text.sum();
}

double costOfCells(const QTextTable &table)
{
    return kCostOfCell * table.rows() * table.columns();
}

/// A cell is laid out once for each row that it spans.
int timesOf(const QTextTable *table, int position)
{
    return table ? std::max(1, table->cellAt(position).rowSpan()) : 1;
}

/// Calls itself; so does the layout.
double costOf(QTextFrame *frame)
{
    const auto *table = qobject_cast<QTextTable *>(frame);
    double cost = table ? costOfCells(*table) : kCostOfCell;
    for (auto it = frame->begin(); !it.atEnd() && cost < kCostLimit; ++it) {
        QTextFrame *child = it.currentFrame();
        const int position = child ? child->firstPosition() : it.currentBlock().position();
        const double each =
            child ? kCostOfNesting * costOf(child) : kCostOfTable * costOf(it.currentBlock());
        cost += timesOf(table, position) * each;
    }
    return cost;
}

/// What is not even worth a walk through its cells.
bool isBeyondReason(QTextFrame *frame, int depth = 1)
{
    const auto *table = qobject_cast<QTextTable *>(frame);
    if (depth > kNestingLimit || (table && table->rows() * table->columns() > kCellLimit))
        return true;
    const auto children = frame->childFrames();
    return std::any_of(children.begin(), children.end(),
                       [depth](QTextFrame *child) { return isBeyondReason(child, depth + 1); });
}

/// A paragraph of the document, or a table with all that is in it.
struct Thing
{
    explicit Thing(const QTextFrame::iterator &it)
        : frame(it.currentFrame())
        , start(frame ? frame->firstPosition() - 1 : it.currentBlock().position())
        , end(frame ? frame->lastPosition() + 1 : start + it.currentBlock().length() - 1)
    {
    }

    QTextFrame *frame;
    int start;
    int end;
};

/// From `first` on, up to the position `end`. Empty cells would leave many empty lines.
QString textOf(const QTextBlock &first, int end)
{
    QStringList paragraphs;
    for (QTextBlock block = first; block.isValid() && block.position() < end;
         block = block.next()) {
        if (block.length() > 1)
            paragraphs.append(block.text());
    }
    return paragraphs.join(u'\n');
}

QString textOf(const QTextDocument *document, const Thing &thing)
{
    return thing.frame ? textOf(document->findBlock(thing.start + 1), thing.end)
                       : document->findBlock(thing.start).text();
}

qint64 cellsOf(QTextFrame *frame)
{
    const auto *table = qobject_cast<QTextTable *>(frame);
    qint64 cells = table ? qint64(table->rows()) * table->columns() : 0;
    const auto children = frame->childFrames();
    for (QTextFrame *child : children)
        cells += cellsOf(child);
    return cells;
}

/// As much of a plain text as may be shown, in paragraphs that are not heavy. What stood for
/// pictures stands for nothing any more.
QString fittingText(QString text)
{
    text.remove(QChar::ObjectReplacementCharacter);
    TextCost cost(isBidirectional(text) ? TextCost::Bidirectional : TextCost::Usual);
    QString fitting;
    double before = 0; // of the paragraph
    int length = 0;
    const auto characters = text.toUcs4();
    for (const char32_t c : characters) {
        const bool isLong = length >= kParagraphLimit || cost.sum() - before > kHeavyCost / 2;
        if (isLong) {
            fitting += u'\n';
            cost.add(U'\n', 1);
        }
        cost.add(c, 1);
        if (cost.sum() > kCostLimitOfText)
            break;
        fitting += QChar::fromUcs4(c);
        ++length;
        if (c == U'\n' || isLong) {
            before = cost.sum();
            length = 0;
        }
    }
    return fitting;
}

/// Puts a thing's text in its place, in paragraphs of their own.
void makePlain(QTextCursor *cursor, const Thing &thing)
{
    const QString text = fittingText(textOf(cursor->document(), thing));
    cursor->setPosition(thing.start);
    if (thing.frame) {
        cursor->insertBlock({}, {});
        cursor->insertText(text, {});
        // The frame takes the paragraph in front of it away, which must not be the text's last.
        cursor->insertBlock();
        cursor->setPosition(cursor->position() + thing.end - thing.start, QTextCursor::KeepAnchor);
        cursor->removeSelectedText();
    } else {
        cursor->setPosition(thing.end, QTextCursor::KeepAnchor);
        cursor->removeSelectedText();
        cursor->setBlockFormat({});
        cursor->setBlockCharFormat({});
        cursor->insertText(text, {});
    }
}

/// From the last to the first, since each moves what follows.
void makePlain(QTextDocument *document, const QList<Thing> &things)
{
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    std::for_each(things.rbegin(), things.rend(),
                  [&cursor](const Thing &thing) { makePlain(&cursor, thing); });
    cursor.endEditBlock();
}

template <typename Predicate> QList<Thing> thingsThat(QTextDocument *document, Predicate predicate)
{
    QList<Thing> things;
    QTextFrame *root = document->rootFrame();
    for (auto it = root->begin(); !it.atEnd(); ++it) {
        if (predicate(it))
            things.append(Thing(it));
    }
    return things;
}

double costOf(const QTextFrame::iterator &it)
{
    QTextFrame *frame = it.currentFrame();
    return frame ? costOf(frame) : costOf(it.currentBlock());
}

/// Takes one thing after the other, and adds up what is heavy among them.
class HeavyThings
{
public:
    explicit HeavyThings(double excessOfFonts)
        : m_excess(excessOfFonts / kTimesOfFirst)
    {
    }

    /// False for what asks for too much, by itself or with what was before it.
    bool fits(const QTextFrame::iterator &it)
    {
        const double cost = costOf(it);
        const bool isFirst = m_height < kFirstHeight;
        // Tables may be as low as a line, and as many as lines.
        const bool isHeavy = it.currentFrame() || cost > kHeavyCost;
        if (isHeavy &&
            m_heavy + cost > (isFirst ? kCostLimitOfFirst - m_excess : kCostLimitOfHeavy))
            return false;
        if (isFirst && m_all + cost > kCostLimitOfFirstWithLight - m_excess)
            return false;
        m_all += cost;
        if (isHeavy)
            m_heavy += cost;
        if (isFirst)
            m_height += leastHeightOf(it);
        return true;
    }

private:
    double m_excess;
    double m_all = 0;
    double m_heavy = 0;
    double m_height = 0;
};

void cut(QTextDocument *document, int position)
{
    QTextCursor cursor(document);
    cursor.setPosition(position);
    cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
}

/// True if something had to be.
bool cutToLimit(QTextDocument *document, double limit)
{
    double sum = 0;
    bool followsBlock = false;
    QTextFrame *root = document->rootFrame();
    for (auto it = root->begin(); !it.atEnd(); ++it) {
        sum += costOf(it);
        const bool isFrame = it.currentFrame();
        if (sum > limit) {
            const int start =
                isFrame ? it.currentFrame()->firstPosition() : it.currentBlock().position();
            cut(document, isFrame || followsBlock ? start - 1 : start);
            return true;
        }
        followsBlock = !isFrame;
    }
    return false;
}

} // namespace

NewsBounds::Verdict NewsBounds::apply(QTextDocument *document)
{
    const QList<Thing> unreasonable = thingsThat(document, [](const QTextFrame::iterator &it) {
        return it.currentFrame() && isBeyondReason(it.currentFrame());
    });
    const qint64 cells =
        std::accumulate(unreasonable.begin(), unreasonable.end(), qint64(0),
                        [](qint64 sum, const Thing &thing) { return sum + cellsOf(thing.frame); });
    if (cells > kRemovableCells)
        document->setPlainText(fittingText(textOf(document->begin(), document->characterCount())));
    else
        makePlain(document, unreasonable);
    Bounding bounding(document);
    bounding.apply();
    HeavyThings heavy(bounding.excessOfFonts());
    makePlain(document, thingsThat(document, [&heavy](const QTextFrame::iterator &it) {
                  return !heavy.fits(it);
              }));
    const bool isCut = cutToLimit(document, kCostLimit - bounding.excessOfFonts());
    if (!unreasonable.isEmpty())
        return Verdict::Unreasonable;
    return isCut ? Verdict::Cut : Verdict::Complete;
}
