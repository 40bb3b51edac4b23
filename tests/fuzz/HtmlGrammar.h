#pragma once

#include <QRandomGenerator>
#include <QString>
#include <QStringList>

/// Makes HTML up from what Qt's parser knows: its tags, attributes and style properties, broken
/// ones too, with values from usual to absurd. The same seed gives the same text.
class HtmlGrammar
{
public:
    explicit HtmlGrammar(quint32 seed)
        : m_random(seed)
    {
    }

    /// A feed of one or several items.
    QStringList feed();

private:
    QString part();
    QString link();
    QString grid();
    QString tag();
    QString attributes();
    QString style();
    QString declaration();
    QString value();
    QString text();
    QString spelledOddly(QString text);
    QString oneOf(const QStringList &words);
    int below(int limit) { return m_random.bounded(limit); }
    bool oneIn(int times) { return below(times) == 0; }

    QRandomGenerator m_random;
};
