#pragma once

#include <QChar>

class QTextDocument;

/// How much a document may ask of Qt's layout and painting, which hold the window while they work.
/// Looks at a document without a layout, and makes none. Any thread.
namespace NewsBounds {

/// Control characters, which have no place in a text: they stand for usual characters until the
/// document is shown, and are taken for such.
inline constexpr QChar kBackslashStandIn(0x01);
inline constexpr QChar kParenthesisStandIn(0x02);

constexpr bool isStandIn(char32_t c)
{
    return c == kBackslashStandIn.unicode() || c == kParenthesisStandIn.unicode();
}

enum class Verdict {
    Complete,
    Cut,          // its end was left out, and not only that of a text within it
    Unreasonable, // it had tables that cannot be measured, and more of them would be worse
};

/// Brings lengths beyond any screen down to large ones, takes pictures and tool tips away, makes
/// plain text of a paragraph or table that asks for too much, by itself or with others, shows the
/// letters of too many scripts as question marks, and leaves out what comes after the document's
/// fair share. Anything usual stays as it is.
Verdict apply(QTextDocument *document);

} // namespace NewsBounds
