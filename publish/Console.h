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

} // namespace Console
