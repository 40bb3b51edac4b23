#include "tests/support/HttpServer.h"

#include "tests/support/Certificates.h"
#include "tests/support/TlsTerminator.h"

#include <QFile>
#include <QNetworkProxy>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTimer>

#include <algorithm>
#include <optional>

#ifdef Q_OS_WIN
#include <winsock2.h>
#else
#include <sys/socket.h>
#endif

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr qint64 kMaximumPiece = qint64{256} * 1024;
constexpr char kTlsHandshake = 22; // the first byte of what a client says

QByteArray reasonPhrase(int code)
{
    return code < 300 ? "OK"_ba : code < 400 ? "Moved"_ba : "Error"_ba;
}

/// Lets the next close() reset the connection instead of ending it in good order.
void resetOnClose(qintptr descriptor)
{
    const linger option{1, 0};
#ifdef Q_OS_WIN
    setsockopt(SOCKET(descriptor), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char *>(&option),
               sizeof option);
#else
    setsockopt(int(descriptor), SOL_SOCKET, SO_LINGER, &option, sizeof option);
#endif
}

} // namespace

HttpAnswer HttpAnswer::ok(const QByteArray &body)
{
    return status(200, body);
}

HttpAnswer HttpAnswer::status(int code, const QByteArray &body)
{
    HttpAnswer answer;
    answer.code = code;
    answer.body = body;
    return answer;
}

HttpAnswer HttpAnswer::redirect(const QByteArray &location, int code)
{
    HttpAnswer answer = status(code);
    answer.header("Location", location);
    return answer;
}

HttpAnswer HttpAnswer::never()
{
    HttpAnswer answer;
    answer.silent = true;
    return answer;
}

HttpAnswer &HttpAnswer::header(const QByteArray &name, const QByteArray &value)
{
    headers.emplace_back(name, value);
    return *this;
}

HttpAnswer &HttpAnswer::chunked()
{
    framing = Framing::Chunked;
    return *this;
}

HttpAnswer &HttpAnswer::withoutLength()
{
    framing = Framing::UntilClose;
    return *this;
}

HttpAnswer &HttpAnswer::truncatedAfter(qint64 bytes)
{
    truncateAt = bytes;
    return *this;
}

HttpAnswer &HttpAnswer::resetAfter(qint64 bytes)
{
    resetAt = bytes;
    return *this;
}

HttpAnswer &HttpAnswer::withRanges()
{
    ranges = true;
    return *this;
}

HttpAnswer &HttpAnswer::delayed(std::chrono::milliseconds wait)
{
    delay = wait;
    return *this;
}

HttpAnswer &HttpAnswer::dripped(qint64 size, std::chrono::milliseconds wait)
{
    pieceSize = size;
    pause = wait;
    return *this;
}

HttpAnswer &HttpAnswer::heldAfter(qint64 bytes)
{
    holdAt = bytes;
    return *this;
}

/// Of "bytes=100-199"; other forms ask for the whole.
static void cutToRange(HttpAnswer &answer, const QByteArray &range)
{
    const QList<QByteArray> ends = range.mid(range.indexOf('=') + 1).split('-');
    if (!range.startsWith("bytes=") || ends.size() != 2)
        return;
    const qint64 first = ends.first().toLongLong();
    const qint64 last = std::min(ends.last().toLongLong(), answer.body.size() - 1);
    answer.header("Content-Range", "bytes " + QByteArray::number(first) + '-' +
                                       QByteArray::number(last) + '/' +
                                       QByteArray::number(answer.body.size()));
    answer.code = 206;
    answer.body = answer.body.mid(first, last - first + 1);
}

/// Once it has an identity, its sockets can turn to TLS.
class HttpServer::Listener : public QTcpServer
{
public:
    void setIdentity(const Certificates::Identity &identity)
    {
        m_identity = identity;
        if (TlsTerminator::isNeeded())
            return;
        QFile keyFile(identity.keyFile);
        if (!keyFile.open(QIODevice::ReadOnly))
            qFatal("There is no %s", qPrintable(identity.keyFile));
        m_tls = QSslConfiguration::defaultConfiguration();
        m_tls->setLocalCertificateChain(QSslCertificate::fromPath(identity.certificateFile));
        m_tls->setPrivateKey(QSslKey(&keyFile, QSsl::Rsa));
        m_tls->setPeerVerifyMode(QSslSocket::VerifyNone);
    }

    const std::optional<Certificates::Identity> &identity() const { return m_identity; }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        QTcpSocket *socket = m_tls ? makeSslSocket() : new QTcpSocket(this);
        if (socket->setSocketDescriptor(descriptor))
            addPendingConnection(socket);
        else
            delete socket;
    }

private:
    QTcpSocket *makeSslSocket()
    {
        auto *socket = new QSslSocket(this);
        socket->setSslConfiguration(*m_tls);
        return socket;
    }

    std::optional<Certificates::Identity> m_identity;
    // Even an empty one has Qt load its TLS library, which plain tests do without.
    std::optional<QSslConfiguration> m_tls;
};

/// One client: reads a request, sends its answer piece by piece, reads the next.
class HttpServer::Connection : public QObject
{
public:
    enum class Encryption {
        Possible,     ///< if the client begins with it, and the server has an identity
        DoneElsewhere ///< by a TlsTerminator
    };

    Connection(QTcpSocket *socket, HttpServer *server, Encryption encryption)
        : QObject(server)
        , m_server(server)
        , m_socket(socket)
        , m_sslSocket(qobject_cast<QSslSocket *>(socket))
        , m_encryption(encryption)
    {
        m_socket->setParent(this);
        // Small answers would wait 40 ms each for the client's acknowledgement.
        m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(m_socket, &QTcpSocket::readyRead, this, &Connection::readRequest);
        connect(m_socket, &QTcpSocket::bytesWritten, this, &Connection::sendMore);
        if (m_sslSocket) {
            connect(m_sslSocket, &QSslSocket::encryptedBytesWritten, this, &Connection::sendMore);
        }
        connect(m_socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
    }

    /// Whether an answer for `path` was held back here.
    bool release(const QByteArray &path)
    {
        if (!m_answering || m_request.path != path || m_answer.holdAt < 0 ||
            m_socket->state() != QAbstractSocket::ConnectedState)
            return false;
        m_answer.holdAt = -1;
        sendMore();
        return true;
    }

private:
    void readRequest()
    {
        if (beginsWithTls()) {
            startTls();
            return;
        }
        m_input += m_socket->readAll();
        const qsizetype end = m_input.indexOf("\r\n\r\n");
        if (m_answering || end < 0)
            return;

        m_request = parse(m_input.left(end));
        m_input.remove(0, end + 4);
        if (canStartTls() && m_request.method == "CONNECT") {
            m_server->m_tunnels.append(m_request.target);
            m_socket->write("HTTP/1.1 200 Connection established\r\n\r\n");
            return;
        }
        m_request.encrypted = m_encryption == Encryption::DoneElsewhere ||
                              (m_sslSocket && m_sslSocket->isEncrypted());
        m_answer = m_server->nextAnswer(m_request.path);
        if (m_answer.ranges)
            cutToRange(m_answer, m_request.headers.value("range"));
        m_answering = true;
        m_sent = 0;
        m_server->m_requests.append(m_request);
        if (!m_answer.silent)
            QTimer::singleShot(m_answer.delay, this, &Connection::sendHead);
    }

    bool canStartTls() const
    {
        if (m_sslSocket)
            return m_sslSocket->mode() == QSslSocket::UnencryptedMode;
        return m_server->m_decrypted && m_encryption == Encryption::Possible;
    }

    bool beginsWithTls() const
    {
        return canStartTls() && m_input.isEmpty() && m_socket->peek(1).startsWith(kTlsHandshake);
    }

    void startTls()
    {
        if (m_sslSocket) {
            m_sslSocket->startServerEncryption();
            return;
        }
        disconnect(m_socket, &QTcpSocket::readyRead, this, nullptr);
        disconnect(m_socket, &QTcpSocket::bytesWritten, this, nullptr);
        TlsTerminator::instance().takeOver(m_socket, *m_server->m_listener->identity(),
                                           m_server->m_decrypted->serverPort());
    }

    qint64 unsentBytes() const
    {
        return m_socket->bytesToWrite() + (m_sslSocket ? m_sslSocket->encryptedBytesToWrite() : 0);
    }

    static HttpRequest parse(const QByteArray &head)
    {
        HttpRequest request;
        const QList<QByteArray> lines = head.split('\n');
        const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
        request.method = requestLine.value(0);
        request.target = requestLine.value(1);
        request.path = request.target;
        if (request.target.startsWith("http://")) {
            const qsizetype slash = request.target.indexOf('/', 7);
            request.path = slash < 0 ? "/"_ba : request.target.mid(slash);
        }
        for (const QByteArray &line : lines.sliced(1)) {
            const qsizetype colon = line.indexOf(':');
            request.headers.insert(line.left(colon).trimmed().toLower(),
                                   line.mid(colon + 1).trimmed());
        }
        return request;
    }

    void sendHead()
    {
        QByteArray head =
            "HTTP/1.1 " + QByteArray::number(m_answer.code) + ' ' +
            (m_answer.reason.isEmpty() ? reasonPhrase(m_answer.code) : m_answer.reason) + "\r\n";
        for (const auto &[name, value] : m_answer.headers)
            head += name + ": " + value + "\r\n";
        switch (m_answer.framing) {
        case HttpAnswer::Framing::ContentLength:
            head += "Content-Length: " + QByteArray::number(m_answer.body.size()) + "\r\n";
            break;
        case HttpAnswer::Framing::Chunked:
            head += "Transfer-Encoding: chunked\r\n";
            break;
        case HttpAnswer::Framing::UntilClose:
            head += "Connection: close\r\n";
            break;
        }
        m_headSent = true;
        m_socket->write(head + "\r\n");
        sendMore();
    }

    void sendMore()
    {
        if (!m_answering || !m_headSent || m_waiting || unsentBytes() > kMaximumPiece)
            return;

        if (m_answer.resetAt >= 0 && m_sent >= m_answer.resetAt) {
            if (unsentBytes() > 0)
                return; // what was promised before the reset goes out first
            resetOnClose(m_socket->socketDescriptor());
            m_socket->abort();
            return;
        }
        if (m_answer.truncateAt >= 0 && m_sent >= m_answer.truncateAt) {
            m_socket->disconnectFromHost();
            return;
        }
        if (m_sent >= m_answer.body.size() && m_answer.holdAt < 0) {
            finishAnswer();
            return;
        }

        const QByteArray piece = m_answer.body.mid(m_sent, nextPieceSize());
        if (piece.isEmpty())
            return; // held back until release()
        m_sent += piece.size();
        if (m_answer.framing == HttpAnswer::Framing::Chunked)
            m_socket->write(QByteArray::number(piece.size(), 16) + "\r\n" + piece + "\r\n");
        else
            m_socket->write(piece);

        if (m_answer.pause > 0ms) {
            m_waiting = true;
            QTimer::singleShot(m_answer.pause, this, [this] {
                m_waiting = false;
                sendMore();
            });
        }
    }

    qint64 nextPieceSize() const
    {
        qint64 size = m_answer.pieceSize > 0 ? m_answer.pieceSize : kMaximumPiece;
        for (const qint64 limit : {m_answer.holdAt, m_answer.truncateAt, m_answer.resetAt}) {
            if (limit >= 0)
                size = std::min(size, limit - m_sent);
        }
        return size;
    }

    void finishAnswer()
    {
        m_answering = false;
        m_headSent = false;
        if (m_answer.framing == HttpAnswer::Framing::Chunked)
            m_socket->write("0\r\n\r\n");
        if (m_answer.framing == HttpAnswer::Framing::UntilClose)
            m_socket->disconnectFromHost();
        else
            readRequest();
    }

    HttpServer *m_server;
    QTcpSocket *m_socket;
    QSslSocket *m_sslSocket; ///< the same socket, if it can turn to TLS
    Encryption m_encryption;
    QByteArray m_input;
    HttpRequest m_request;
    HttpAnswer m_answer;
    qint64 m_sent = 0;
    bool m_answering = false;
    bool m_headSent = false;
    bool m_waiting = false;
};

HttpServer::HttpServer(QObject *parent)
    : QObject(parent)
    , m_listener(std::make_unique<Listener>())
{
    connect(m_listener.get(), &QTcpServer::newConnection, this, &HttpServer::onNewConnection);
    if (!m_listener->listen(QHostAddress::LocalHost))
        qFatal("No loopback port: %s", qPrintable(m_listener->errorString()));
}

HttpServer::~HttpServer()
{
    // The connections hold a pointer to this and outlive the members otherwise.
    for (const QPointer<Connection> &connection : std::as_const(m_connections))
        delete connection.data();
}

quint16 HttpServer::port() const
{
    return m_listener->serverPort();
}

QUrl HttpServer::url(const QString &path) const
{
    return QUrl(u"http://127.0.0.1:%1%2"_s.arg(port()).arg(path));
}

void HttpServer::answer(const QByteArray &path, const HttpAnswer &answer)
{
    m_answers[path] = {answer};
}

void HttpServer::answerInTurn(const QByteArray &path, const QList<HttpAnswer> &answers)
{
    m_answers[path] = answers;
}

void HttpServer::release(const QByteArray &path)
{
    bool wasHeld = false;
    for (const QPointer<Connection> &connection : std::as_const(m_connections)) {
        if (Connection *waiting = connection.data())
            wasHeld |= waiting->release(path);
    }
    if (!wasHeld)
        m_releasedEarly.insert(path);
}

void HttpServer::setIdentity(const Certificates::Identity &identity)
{
    m_listener->setIdentity(identity);
    if (m_decrypted || !TlsTerminator::isNeeded())
        return;
    m_decrypted = std::make_unique<QTcpServer>();
    connect(m_decrypted.get(), &QTcpServer::newConnection, this,
            &HttpServer::onNewDecryptedConnection);
    if (!m_decrypted->listen(QHostAddress::LocalHost))
        qFatal("No loopback port: %s", qPrintable(m_decrypted->errorString()));
}

void HttpServer::clear()
{
    m_answers.clear();
    m_releasedEarly.clear();
    m_requests.clear();
    m_tunnels.clear();
    for (const QPointer<Connection> &connection : std::exchange(m_connections, {}))
        delete connection.data();
}

qsizetype HttpServer::requestCount(const QByteArray &path) const
{
    return std::count_if(m_requests.cbegin(), m_requests.cend(),
                         [&path](const HttpRequest &request) { return request.path == path; });
}

HttpRequest HttpServer::lastRequest(const QByteArray &path) const
{
    for (auto request = m_requests.crbegin(); request != m_requests.crend(); ++request) {
        if (request->path == path)
            return *request;
    }
    return {};
}

void HttpServer::becomeProxy()
{
    QNetworkProxy::setApplicationProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, u"127.0.0.1"_s, port()));
}

void HttpServer::stopListening()
{
    m_listener->close();
    m_decrypted.reset();
    for (const QPointer<Connection> &connection : std::exchange(m_connections, {}))
        delete connection.data();
}

HttpAnswer HttpServer::nextAnswer(const QByteArray &path)
{
    const auto answers = m_answers.find(path);
    if (answers == m_answers.end())
        return m_defaultAnswer;
    HttpAnswer answer = answers->size() > 1 ? answers->takeFirst() : answers->first();
    if (answer.holdAt >= 0 && m_releasedEarly.remove(path))
        answer.holdAt = -1;
    return answer;
}

void HttpServer::onNewConnection()
{
    while (QTcpSocket *socket = m_listener->nextPendingConnection())
        m_connections.append(new Connection(socket, this, Connection::Encryption::Possible));
}

void HttpServer::onNewDecryptedConnection()
{
    while (QTcpSocket *socket = m_decrypted->nextPendingConnection())
        m_connections.append(new Connection(socket, this, Connection::Encryption::DoneElsewhere));
}
