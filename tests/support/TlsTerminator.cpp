#include "tests/support/TlsTerminator.h"

#include "tests/support/Certificates.h"
#include "tests/support/Platform.h"

#include <QNetworkProxy>
#include <QProcess>
#include <QTcpSocket>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kStartTimeout = 30000; // ms

} // namespace

bool TlsTerminator::isNeeded()
{
    return Platform::isWine();
}

TlsTerminator::TlsTerminator(const Certificates::Identity &identity)
{
    if (!m_listener.listen(QHostAddress::LocalHost))
        qFatal("No loopback port: %s", qPrintable(m_listener.errorString()));
    // Wine starts programs of the system below it, but neither talks to them over pipes nor knows
    // when they end: all of that goes over the first connection.
    const QStringList arguments{QStringLiteral(VEYRA_TLS_TERMINATOR), identity.certificateFile,
                                identity.keyFile, QString::number(m_listener.serverPort())};
    if (!QProcess::startDetached(QStringLiteral(VEYRA_PYTHON), arguments) ||
        !m_listener.waitForNewConnection(kStartTimeout))
        qFatal("%s does not run %s", VEYRA_PYTHON, VEYRA_TLS_TERMINATOR);
    m_control = m_listener.nextPendingConnection();
    while (!m_control->canReadLine() && m_control->waitForReadyRead(kStartTimeout)) {
    }
    m_port = m_control->readLine().trimmed().toUShort();
    if (m_port == 0)
        qFatal("%s does not tell its port", VEYRA_TLS_TERMINATOR);
    connect(&m_listener, &QTcpServer::newConnection, this, &TlsTerminator::onNewConnection);
}

void TlsTerminator::takeOver(QTcpSocket *client)
{
    auto *encrypted = new QTcpSocket(client);
    encrypted->setProxy(QNetworkProxy::NoProxy);
    encrypted->connectToHost(u"127.0.0.1"_s, m_port);
    encrypted->write(client->readAll());
    connect(client, &QTcpSocket::readyRead, encrypted,
            [client, encrypted] { encrypted->write(client->readAll()); });
    connect(encrypted, &QTcpSocket::readyRead, client,
            [client, encrypted] { client->write(encrypted->readAll()); });
    connect(encrypted, &QTcpSocket::disconnected, client, &QTcpSocket::disconnectFromHost);
}

void TlsTerminator::onNewConnection()
{
    while (QTcpSocket *socket = m_listener.nextPendingConnection())
        emit clientConnected(socket);
}
