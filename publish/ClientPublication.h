#pragma once

#include "publish/ClientFolder.h"

class Workshop;

/// What publishing a client has led to.
struct ClientPublication
{
    QString number; ///< of the new generation; empty where nothing is different
    qint64 files = 0;
    qint64 changedFiles = 0; ///< new ones, those with another content, and damaged ones
    qint64 removedFiles = 0;
    bool isArchiveDamaged = false; ///< of the draft: by somebody else, since it was made

    bool isDifferent() const { return changedFiles > 0 || removedFiles > 0 || isArchiveDamaged; }

    /// Makes a generation with this client from the workshop's draft.
    static ClientPublication make(const Workshop &workshop, const ClientFolder &client);
};
