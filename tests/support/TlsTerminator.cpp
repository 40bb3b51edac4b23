#include "tests/support/TlsTerminator.h"

#include "tests/support/Certificates.h"
#include "tests/support/Platform.h"

#include <QCoreApplication>
#include <QNetworkProxy>
#include <QPointer>
#include <QProcess>
#include <QTcpServer>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kStartTimeout = 30000; // ms
constexpr int kTries = 5;

} // namespace

bool TlsTerminator::isNeeded()
{
    return Platform::isWine();
}

TlsTerminator &TlsTerminator::instance()
{
    static QPointer<TlsTerminator> instance;
    if (!instance)
        instance = new TlsTerminator(QCoreApplication::instance());
    return *instance;
}

TlsTerminator::TlsTerminator(QObject *parent)
    : QObject(parent)
{
    // Wine starts programs of the system below it, but neither talks to them over pipes nor knows
    // when they end: all of that goes over a connection.
    QTcpServer listener;
    if (!listener.listen(QHostAddress::LocalHost))
        qFatal("No loopback port: %s", qPrintable(listener.errorString()));
    const QStringList arguments{QStringLiteral(VEYRA_TLS_TERMINATOR),
                                QString::number(listener.serverPort())};
    // Wine does not always start a program at the first try.
    bool started = false;
    for (int tries = 0; tries < kTries && !started; ++tries)
        started = QProcess::startDetached(QStringLiteral(VEYRA_PYTHON), arguments);
    if (!started || !listener.waitForNewConnection(kStartTimeout))
        qFatal("%s does not run %s", VEYRA_PYTHON, VEYRA_TLS_TERMINATOR);
    m_control = listener.nextPendingConnection();
    m_control->setParent(this);
    while (!m_control->canReadLine() && m_control->waitForReadyRead(kStartTimeout)) {
    }
    m_port = m_control->readLine().trimmed().toUShort();
    if (m_port == 0)
        qFatal("%s does not tell its port", VEYRA_TLS_TERMINATOR);
}

void TlsTerminator::takeOver(QTcpSocket *client, const Certificates::Identity &identity,
                             quint16 port)
{
    auto *encrypted = new QTcpSocket(client);
    encrypted->setProxy(QNetworkProxy::NoProxy);
    encrypted->connectToHost(u"127.0.0.1"_s, m_port);
    const QStringList order{identity.certificateFile, identity.keyFile, QString::number(port)};
    encrypted->write(order.join(u'\n').toUtf8() + '\n' + client->readAll());
    connect(client, &QTcpSocket::readyRead, encrypted,
            [client, encrypted] { encrypted->write(client->readAll()); });
    connect(encrypted, &QTcpSocket::readyRead, client,
            [client, encrypted] { client->write(encrypted->readAll()); });
    connect(encrypted, &QTcpSocket::disconnected, client, [client, encrypted] {
        client->write(encrypted->readAll()); // what came together with the end
        client->disconnectFromHost();
    });
}
