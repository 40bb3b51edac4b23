#pragma once

#include <QList>
#include <QString>
#include <QTcpServer>
#include <QTimer>

#include <optional>

/// A web server on this machine's loopback address that shows a site as nginx would with the block
/// of Site::nginxBlock(), or worse: so that an operator sees what players would see. Nothing of it
/// is meant for a network.
class RehearsalServer : public QTcpServer
{
    Q_OBJECT

public:
    enum class Fault {
        None,
        CutOff,   ///< each body ends in its middle
        Slow,     ///< each answer is waited for
        NotFound, ///< nothing is there
    };

    struct Site
    {
        QString root; ///< a folder, or a link to one; looked at for each request
        QString statusPath;
    };

    RehearsalServer(Site site, Fault fault, std::optional<qint64> bytesPerSecond);

    /// Throws a Problem where somebody has the port already; 0 is any that is free.
    void start(quint16 port);

private:
    class Connection;

    void onNewConnection();
    void forget(Connection *connection);
    void onTick();

    Site m_site;
    Fault m_fault;
    std::optional<qint64> m_bytesPerSecond; ///< of all connections together
    QTimer m_tick;
    QList<Connection *> m_connections;
};
