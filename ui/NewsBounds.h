#pragma once

#include <QString>

class QTextDocument;

/// How much a document may ask of Qt's layout and painting, which hold the window while they work.
/// Looks at a document without a layout, and makes none. Any thread.
namespace NewsBounds {

enum class Verdict {
    Complete,
    Cut,          // its end was left out
    Unreasonable, // a single thing in it asks for too much: to be shown as plain text
};

/// Brings lengths beyond any screen down to large ones, takes pictures and tool tips away, and
/// leaves out what comes after the document's fair share. Anything usual stays as it is.
Verdict apply(QTextDocument *document);

/// As much of a plain text as may be shown.
QString fittingText(const QString &text);

} // namespace NewsBounds
