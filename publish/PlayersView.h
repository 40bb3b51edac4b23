#pragma once

#include <QString>

/// What players see when one address of a site fails, each as the end of a sentence.
struct PlayersView
{
    QString unanswered; ///< an error, or no connection
    QString silent;     ///< a connection over which nothing comes: launchers know no limit
    QString nonsense;   ///< an answer that is not what belongs there

    /// Of a place of Site; any other one is taken for that of a launcher's archive.
    static PlayersView of(const QString &place);
};
