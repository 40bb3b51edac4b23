#pragma once

#include <QString>
#include <QTextStream>

#include <cstdio>

/// What the program says to the operator.
namespace Console {

/// Whoever reads the output line by line waits for it.
inline void say(const QString &text)
{
    QTextStream(stdout) << text << Qt::endl;
}

inline void complain(const QString &text)
{
    QTextStream(stderr) << text << Qt::endl;
}

/// For what others have named: a terminal must not take any of it for a command or a new line.
inline QString printable(const QString &text)
{
    QString result;
    for (const QChar c : text) {
        const bool isCommand =
            c.category() == QChar::Other_Control || c.category() == QChar::Other_Format ||
            c.category() == QChar::Separator_Line || c.category() == QChar::Separator_Paragraph;
        if (isCommand)
            result += QStringLiteral("\\u%1").arg(int{c.unicode()}, 4, 16, QLatin1Char('0'));
        else
            result += c;
    }
    return result;
}

} // namespace Console
