#pragma once

#include <QString>

/// The game server's state as the launcher reads it.
struct ServerStatus
{
    bool online = false;
    int players = 0;

    /// Offline where the file cannot be read.
    static ServerStatus load(const QString &path);
    void save(const QString &path) const;
};

/// Whether somebody accepts connections there.
bool acceptsConnections(const QString &host, quint16 port);
