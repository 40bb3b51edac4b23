#pragma once

#include <QObject>
#include <QTcpSocket>

namespace Certificates {
struct Identity;
}

/// TLS for servers whose Qt cannot serve it. That is so under Wine, which has the client's side
/// only: there a program of the system below it speaks TLS to the clients. One of them does for the
/// whole process; it ends with it.
class TlsTerminator : public QObject
{
    Q_OBJECT

public:
    static bool isNeeded();
    /// Started when it is first asked for.
    static TlsTerminator &instance();

    /// Leads a client there that is about to begin with TLS, and is not to be read from any more.
    /// What it says comes back, unencrypted, over a connection to `port` of this machine.
    void takeOver(QTcpSocket *client, const Certificates::Identity &identity, quint16 port);

private:
    explicit TlsTerminator(QObject *parent);

    QTcpSocket *m_control = nullptr; ///< the program lives as long as this connection
    quint16 m_port = 0;
};
