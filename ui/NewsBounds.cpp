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
#include <numeric>

namespace {

// Microseconds that the layout takes, once, measured on a server's processor of 2020 with 400 fonts
// and rounded up. The event loop may be held for 250 ms, so two and a half remain for what was not
// thought of and for slower machines.
constexpr double kCostLimit = 100'000; // the panel goes to the end, or gets another size
/// What the panel shows first is laid out three times: to be measured, in the panel's width, and
/// beside the scroll bar that it calls for. So this is for all paragraphs and tables together that
/// are heavy, several of which may be low enough to be shown first.
constexpr double kCostLimitOfHeavy = 36'000;
constexpr double kHeavyCost = 1000; // a usual item takes 30
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
constexpr double kCostOfPiece = 3;     // of another script or direction than what is before it
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
constexpr double kCostOfPixel = 0.01; // of margins above and below; 10 million of them at most
/// Pixels that margins leave for usual lines. With more of them every letter may have its own line.
constexpr double kUsualMargins = 300;
constexpr double kHeavinessOfColumn = 5;
constexpr double kPixelsOfIndent = 40;

/// Each opens font files; unknown families are looked for among all.
constexpr qsizetype kFontLimit = 24;
constexpr qsizetype kFamilyLimit = 4;
constexpr qsizetype kFloatLimit = 20;
constexpr qsizetype kLabelLimit = 20; // characters before or after a list's number

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

/// The format within the bounds.
template <typename Format> Format bounded(Format format)
{
    for (const Bound &bound : kBounds) {
        const QVariant value = format.property(bound.property);
        if (!value.isValid())
            continue;
        const QVariant allowed = bounded(value, bound);
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
        if (format.stringProperty(label).size() > kLabelLimit)
            format.clearProperty(label);
    }
    const QStringList families = format.property(QTextFormat::FontFamilies).toStringList();
    if (families.size() > kFamilyLimit)
        format.setProperty(QTextFormat::FontFamilies, families.first(kFamilyLimit));
    return format;
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

private:
    struct Piece
    {
        int start;
        int end;
        QTextCharFormat format;
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
        for (auto it = block.begin(); !it.atEnd(); ++it)
            boundFragment(it.fragment(), &beyond);
        for (const Piece &piece : std::as_const(beyond)) {
            select(piece);
            m_cursor.setCharFormat(piece.format);
        }
    }

    void boundFragment(const QTextFragment &fragment, QList<Piece> *beyond)
    {
        const QTextCharFormat format = fragment.charFormat();
        const int start = fragment.position();
        const int end = start + fragment.length();
        if (format.isImageFormat()) {
            m_pictures.append({start, end, {}});
            return;
        }
        const QTextCharFormat allowed = withFewFonts(bounded(format));
        if (allowed != format)
            beyond->append({start, end, allowed});
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
    QTextCharFormat withFewFonts(QTextCharFormat format)
    {
        static constexpr QTextFormat::Property kFontProperties[] = {
            QTextFormat::FontFamilies,       QTextFormat::FontPixelSize, QTextFormat::FontPointSize,
            QTextFormat::FontSizeAdjustment, QTextFormat::FontWeight,    QTextFormat::FontItalic,
            QTextFormat::FontCapitalization, QTextFormat::FontStretch,   QTextFormat::FontStyleHint,
            QTextFormat::FontFixedPitch,
        };
        QTextCharFormat font;
        for (const auto property : kFontProperties) {
            if (format.hasProperty(property))
                font.setProperty(property, format.property(property));
        }
        if (m_fonts.contains(font) || font.propertyCount() == 0)
            return format;
        if (m_fonts.size() < kFontLimit) {
            m_fonts.append(font);
            return format;
        }
        for (const auto property : kFontProperties)
            format.clearProperty(property);
        return format;
    }

    QTextDocument *m_document;
    QTextCursor m_cursor;
    QList<Piece> m_pictures;
    QSet<QTextList *> m_lists;
    QList<QTextCharFormat> m_fonts;
    qsizetype m_floats = 0;
};

/// Adds up what one character after the other costs.
class TextCost
{
public:
    explicit TextCost(bool hasBreaks = true)
        : m_hasBreaks(hasBreaks)
    {
    }

    double sum() const { return m_sum; }

    void beginFragment()
    {
        m_sum += kCostOfFragment;
        addPiece();
    }

    void add(QChar c, double heaviness)
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
    bool beginsWord(QChar c) const
    {
        if (c == QChar::LineSeparator || c == u'\n')
            return true;
        const bool followsSpace = (m_last == u' ' || m_last == u'\t') && !isMark(c);
        return m_hasBreaks && (followsSpace || (isIdeograph(c) && isIdeograph(m_last)));
    }

    static bool isMark(QChar c) { return c.isMark() || c.category() == QChar::Other_Format; }

    static bool isIdeograph(QChar c) { return c >= QChar(0x4e00) && c < QChar(0xa000); }

    /// What changes the direction is one by itself.
    bool beginsPiece(QChar c)
    {
        if (c.category() == QChar::Other_Format)
            return true;
        // Between letters from right to left anything else may run the other way.
        const bool isRightToLeft = c.direction() == QChar::DirR || c.direction() == QChar::DirAL;
        const bool turns = isRightToLeft != m_isRightToLeft;
        m_isRightToLeft = isRightToLeft;
        const QChar::Script script = c.script();
        if (script <= QChar::Script_Common || script == m_script)
            return turns;
        m_script = script;
        return true;
    }

    static double costOf(QChar c)
    {
        constexpr QChar kFarLetters(0x700);
        constexpr QChar kMarks(0x2000); // dashes, quotes, bullet, euro
        constexpr QChar kSymbols(0x20d0);
        if (c == QChar::LineSeparator || c == u'\n')
            return kCostOfLine + kCostOfBlock;
        if (c.isLowSurrogate()) // its other half has been counted
            return kCostOfCharacter;
        if (c >= kSymbols || c.category() == QChar::Other_NotAssigned)
            return kCostOfSymbol;
        if (c.isMark())
            return kCostOfMark;
        return c >= kFarLetters && c < kMarks ? kCostOfFarLetter : kCostOfCharacter;
    }

    bool m_hasBreaks;
    double m_sum = 0;
    double m_word = 0;
    double m_marks = 0;
    double m_pieces = 0;
    QChar m_last;
    QChar::Script m_script = QChar::Script_Latin;
    bool m_isRightToLeft = false;
};

/// Pixels beside a block's lines.
double marginsOf(const QTextBlock &block)
{
    const QTextBlockFormat format = block.blockFormat();
    const QTextList *list = block.textList();
    const int indent = format.indent() + (list ? list->format().indent() : 0);
    return format.leftMargin() + format.rightMargin() + kPixelsOfIndent * indent;
}

/// How much more than usual the lines of this format cost.
double heavinessOf(const QTextBlockFormat &block, const QTextCharFormat &format)
{
    constexpr double kPixelsOfPoint = 96.0 / 72;
    const double font =
        std::max(format.doubleProperty(QTextFormat::FontPixelSize),
                 format.doubleProperty(QTextFormat::FontPointSize) * kPixelsOfPoint);
    const bool isProportional = block.lineHeightType() == QTextBlockFormat::ProportionalHeight;
    const double line = isProportional ? std::max(font, kUsualLine / 2) * block.lineHeight() / 100
                                       : font + block.lineHeight();
    return std::max({1.0, font / kUsualLine, line / kUsualLine});
}

double costOf(const QTextBlock &block)
{
    const QTextBlockFormat format = block.blockFormat();
    const double column = marginsOf(block) > kUsualMargins ? kHeavinessOfColumn : 1;
    TextCost text(!format.nonBreakableLines());
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        const double heaviness = column * heavinessOf(format, fragment.charFormat());
        text.beginFragment();
        const QString characters = fragment.text();
        for (const QChar c : characters)
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

/// As much of a plain text as may be shown, in paragraphs that are not heavy.
QString fittingText(const QString &text)
{
    TextCost cost;
    QString fitting;
    double before = 0; // of the paragraph
    int length = 0;
    for (const QChar c : text) {
        const bool isLong = length >= kParagraphLimit || cost.sum() - before > kHeavyCost / 2;
        const bool breaks = isLong && !c.isLowSurrogate();
        if (breaks) {
            fitting += u'\n';
            cost.add(u'\n', 1);
        }
        cost.add(c, 1);
        if (cost.sum() > kCostLimitOfText)
            break;
        fitting += c;
        ++length;
        if (c == u'\n' || breaks) {
            before = cost.sum();
            length = 0;
        }
    }
    return fitting;
}

/// Puts a thing's text in its place, in paragraphs of their own.
void makePlain(QTextDocument *document, const Thing &thing)
{
    const QString text = fittingText(textOf(document, thing));
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    cursor.setPosition(thing.start);
    if (thing.frame) {
        cursor.insertBlock({}, {});
        cursor.insertText(text, {});
        // The frame takes the paragraph in front of it away, which must not be the text's last.
        cursor.insertBlock();
        cursor.setPosition(cursor.position() + thing.end - thing.start, QTextCursor::KeepAnchor);
        cursor.removeSelectedText();
    } else {
        cursor.setPosition(thing.end, QTextCursor::KeepAnchor);
        cursor.removeSelectedText();
        cursor.setBlockFormat({});
        cursor.setBlockCharFormat({});
        cursor.insertText(text, {});
    }
    cursor.endEditBlock();
}

/// From the last to the first, since each moves what follows.
void makePlain(QTextDocument *document, const QList<Thing> &things)
{
    std::for_each(things.rbegin(), things.rend(),
                  [document](const Thing &thing) { makePlain(document, thing); });
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

void cut(QTextDocument *document, int position)
{
    QTextCursor cursor(document);
    cursor.setPosition(position);
    cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
}

/// True if something had to be.
bool cutToLimit(QTextDocument *document)
{
    double sum = 0;
    bool followsBlock = false;
    QTextFrame *root = document->rootFrame();
    for (auto it = root->begin(); !it.atEnd(); ++it) {
        sum += costOf(it);
        const bool isFrame = it.currentFrame();
        if (sum > kCostLimit) {
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
    Bounding(document).apply();
    double heavy = 0;
    makePlain(document, thingsThat(document, [&heavy](const QTextFrame::iterator &it) {
                  const double cost = costOf(it);
                  const bool fits = cost <= kHeavyCost || heavy + cost <= kCostLimitOfHeavy;
                  heavy += fits && cost > kHeavyCost ? cost : 0;
                  return !fits;
              }));
    const bool isCut = cutToLimit(document);
    if (!unreasonable.isEmpty())
        return Verdict::Unreasonable;
    return isCut ? Verdict::Cut : Verdict::Complete;
}
