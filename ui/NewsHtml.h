#pragma once

#include <QString>

/// The news come from the network as HTML, and Qt's layout takes seconds or overflows its stack on
/// some few hundred bytes of it: nested tables, enormous margins, thousands of tags.
namespace NewsHtml {

/// How much the news of one feed may ask of the layout. Tags left open in one item go on in the
/// next, so the items share it.
class Budget
{
public:
    /// The item as it stands, or with its tags visible as text when they ask for too much.
    QString admit(const QString &item);

    /// True once nothing more can be shown.
    bool isSpent() const { return m_characters <= 0; }

private:
    qsizetype m_characters = 50'000; // some twenty printed pages
    qsizetype m_tags = 1'000;
    qsizetype m_tables = 6;
};

} // namespace NewsHtml
