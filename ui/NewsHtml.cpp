#include "ui/NewsHtml.h"

#include <QRegularExpression>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Each item takes a paragraph, however short it is.
constexpr qsizetype kCharactersOfParagraph = 40;

/// Lengths and counts beyond any screen inside a tag. Colours, names and link targets are neither.
bool hasLargeNumber(QString tag)
{
    static const QRegularExpression harmless(
        uR"(\b(href|name|id|title|class|alt)\s*=\s*("[^"]*"|'[^']*'|[^\s>]*)|#[0-9a-f]+)"_s,
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression largeNumber(
        uR"([0-9]{5}|[0-9]{4}(\.[0-9]*)?\s*(em|ex|pt))"_s,
        QRegularExpression::CaseInsensitiveOption);
    return tag.remove(harmless).contains(largeNumber);
}

} // namespace

QString NewsHtml::Budget::admit(const QString &item)
{
    // Pictures show nothing here (see NewsView), but would take their room.
    static const QRegularExpression picture(u"<img[^>]*>?"_s,
                                            QRegularExpression::CaseInsensitiveOption);
    const QString shown = item.left(m_characters).remove(picture);
    m_characters -= shown.size() + kCharactersOfParagraph;

    static const QRegularExpression tagPattern(u"<[^>]*>?"_s);
    qsizetype tags = 0;
    qsizetype tables = 0;
    bool reasonable = true;
    for (auto match = tagPattern.globalMatch(shown); match.hasNext();) {
        const QString tag = match.next().captured();
        ++tags;
        tables += tag.startsWith("<table"_L1, Qt::CaseInsensitive) ? 1 : 0;
        reasonable = reasonable && tags <= m_tags && tables <= m_tables && !hasLargeNumber(tag);
    }
    if (!reasonable)
        return shown.toHtmlEscaped();

    m_tags -= tags;
    m_tables -= tables;
    return shown;
}
