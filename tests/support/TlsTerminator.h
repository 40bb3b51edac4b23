#pragma once

#include <QObject>
#include <QPointer>
#include <QTcpServer>

namespace Certificates {
struct Identity;
}
class QTcpSocket;

/// TLS for a server whose Qt cannot serve it. That is so under Wine, which has the client's side
/// only: there a program of the system below it speaks TLS to the clients and connects back with
/// what they say.
class TlsTerminator : public QObject
{
    Q_OBJECT

public:
    static bool isNeeded();

    explicit TlsTerminator(const Certificates::Identity &identity);

    /// Leads a client that is about to begin with TLS there. From now on it is not to be read from.
    void takeOver(QTcpSocket *client);

signals:
    /// A client has shaken hands; the socket speaks for it, unencrypted.
    void clientConnected(QTcpSocket *socket);

private:
    void onNewConnection();

    QTcpServer m_listener;
    QPointer<QTcpSocket> m_control; ///< the program lives as long as this connection
    quint16 m_port = 0;
};
