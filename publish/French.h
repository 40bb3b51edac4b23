#pragma once

#include <QString>

namespace French {

/// "1 fichier", "2 fichiers": nothing and one are singular.
inline QString counted(qint64 number, const QString &one, const QString &more)
{
    return QString::number(number) + u' ' + (number < 2 ? one : more);
}

} // namespace French
