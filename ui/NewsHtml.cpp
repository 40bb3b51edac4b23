#include "ui/NewsHtml.h"

#include <QRegularExpression>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Each item takes a paragraph, however short it is.
constexpr qsizetype kCharactersOfParagraph = 40;

/// Regular expressions bring half a megabyte of their library into memory, so they are kept for the
/// rare tag that has such a number at all.
bool hasFourDigits(QStringView tag)
{
    const auto isDigit = [](QChar c) { return c >= u'0' && c <= u'9'; };
    constexpr int kDigits = 4;
    int digits = 0;
    return std::any_of(tag.begin(), tag.end(), [&](QChar c) {
        digits = isDigit(c) ? digits + 1 : 0;
        return digits == kDigits;
    });
}

/// Lengths and counts beyond any screen inside a tag. Colours, names and link targets are neither.
bool hasLargeNumber(QStringView tag)
{
    if (!hasFourDigits(tag))
        return false;

    static const QRegularExpression harmless(
        uR"(\b(href|name|id|title|class|alt)\s*=\s*("[^"]*"|'[^']*'|[^\s>]*)|#[0-9a-f]+)"_s,
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression largeNumber(uR"([0-9]{5}|[0-9]{4}(\.[0-9]*)?\s*(em|ex|pt))"_s,
                                                QRegularExpression::CaseInsensitiveOption);
    // Half a surrogate pair makes an expression match nothing; by way of UTF-8 there is none.
    return QString::fromUtf8(tag.toUtf8()).remove(harmless).contains(largeNumber);
}

/// A tag, with its ">" where it has one.
QStringView tagAt(QStringView text, qsizetype start)
{
    const qsizetype end = text.indexOf(u'>', start);
    return end < 0 ? text.sliced(start) : text.sliced(start, end + 1 - start);
}

/// Pictures show nothing here (see NewsView), but would take their room.
QString withoutPictures(QStringView item)
{
    constexpr auto kPicture = "<img"_L1;
    QString kept;
    qsizetype start = 0;
    for (;;) {
        const qsizetype picture = item.indexOf(kPicture, start, Qt::CaseInsensitive);
        if (picture < 0)
            break;
        kept += item.sliced(start, picture - start);
        start = picture + tagAt(item, picture).size();
    }
    kept += item.sliced(start);
    return kept;
}

} // namespace

QString NewsHtml::Budget::admit(const QString &item)
{
    QString shown = withoutPictures(QStringView(item).left(m_characters));
    m_characters -= shown.size() + kCharactersOfParagraph;

    qsizetype tags = 0;
    qsizetype tables = 0;
    bool reasonable = true;
    for (qsizetype start = shown.indexOf(u'<'); start >= 0;) {
        const QStringView tag = tagAt(shown, start);
        ++tags;
        tables += tag.startsWith("<table"_L1, Qt::CaseInsensitive) ? 1 : 0;
        reasonable = reasonable && tags <= m_tags && tables <= m_tables && !hasLargeNumber(tag);
        start = shown.indexOf(u'<', start + tag.size());
    }
    if (!reasonable)
        return shown.toHtmlEscaped();

    m_tags -= tags;
    m_tables -= tables;
    return shown;
}
