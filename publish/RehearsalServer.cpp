#include "publish/RehearsalServer.h"

#include "publish/Outcome.h"
#include "publish/WebFile.h"
#include "publish/WebRequest.h"

#include <QDateTime>
#include <QFile>
#include <QLocale>
#include <QTcpSocket>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <limits>
#include <utility>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int kMostConnections = 64;
constexpr qint64 kChunk = qint64{64} * 1024;
constexpr qint64 kMostUnsent = 4 * kChunk; ///< in memory, of each connection
constexpr auto kTick = 50ms;
constexpr auto kSlowness = 1s;
/// For what still comes of a head that is too long: closed on it, the connection would lose the
/// answer.
constexpr auto kLastWords = 1s;
/// For a whole request, and between two pieces that a client takes.
constexpr auto kPatience = 30s;
constexpr qint64 kAsFastAsPossible = std::numeric_limits<qint64>::max();

QByteArray reasonFor(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 206:
        return "Partial Content";
    case 400:
        return "Bad Request";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 416:
        return "Range Not Satisfiable";
    case 431:
        return "Request Header Fields Too Large";
    default:
        return "HTTP Version Not Supported";
    }
}

QByteArray errorPage(int status)
{
    const QByteArray title = QByteArray::number(status) + ' ' + reasonFor(status);
    return "<html>\r\n<head><title>" + title + "</title></head>\r\n<body>\r\n<center><h1>" + title +
           "</h1></center>\r\n</body>\r\n</html>\r\n";
}

QByteArray now()
{
    return QLocale::c()
        .toString(QDateTime::currentDateTimeUtc(), u"ddd, dd MMM yyyy HH:mm:ss 'GMT'"_s)
        .toLatin1();
}

} // namespace

/// One client. It deletes itself when that is gone.
class RehearsalServer::Connection : public QObject
{
public:
    Connection(QTcpSocket *socket, const RehearsalServer &server)
        : QObject(socket)
        , m_socket(*socket)
        , m_server(server)
    {
        m_socket.setReadBufferSize(WebRequest::kLongestHead);
        connect(&m_socket, &QTcpSocket::readyRead, this, &Connection::onReadyRead);
        connect(&m_socket, &QTcpSocket::bytesWritten, this, &Connection::onBytesWritten);
        m_patience.setSingleShot(true);
        connect(&m_patience, &QTimer::timeout, &m_socket, &QTcpSocket::abort);
        m_patience.start(kPatience);
        m_slowness.setSingleShot(true);
        m_slowness.setTimerType(Qt::PreciseTimer);
        connect(&m_slowness, &QTimer::timeout, this, &Connection::answer);
    }

    bool isSending() const { return m_file.isOpen(); }

    /// Sends as much of the body.
    void send(qint64 allowance)
    {
        while (isSending() && allowance > 0 && m_socket.bytesToWrite() < kMostUnsent) {
            const QByteArray piece = m_file.read(std::min({kChunk, allowance, m_left}));
            if (piece.isEmpty()) { // somebody has made the file shorter
                m_socket.abort();
                return;
            }
            allowance -= piece.size();
            m_left -= piece.size();
            m_socket.write(piece);
            if (m_left == 0)
                finishAnswer();
        }
    }

private:
    void onReadyRead()
    {
        if (m_isTooLong)
            m_socket.readAll();
        if (m_isAnswering)
            return; // what comes meanwhile waits
        m_head += m_socket.read(WebRequest::kLongestHead - m_head.size());
        const qsizetype end = m_head.indexOf("\r\n\r\n");
        if (end < 0 && m_head.size() < WebRequest::kLongestHead)
            return;
        m_isAnswering = true;
        try {
            if (end < 0)
                throw WebRefusal{431};
            m_request = WebRequest::parse(m_head.left(end + 4));
            m_head.remove(0, end + 4);
        } catch (const WebRefusal &refusal) {
            m_request = {};
            m_request.keepsConnection = false;
            m_isTooLong = end < 0;
            sendError(refusal.status);
            return;
        }
        if (m_server.m_fault == Fault::Slow)
            m_slowness.start(kSlowness);
        else
            answer();
    }

    void onBytesWritten()
    {
        if (m_isTooLong)
            return;
        m_patience.start(kPatience);
        if (!m_server.m_bytesPerSecond)
            send(kAsFastAsPossible);
    }

    void answer()
    {
        const WebFile file =
            m_server.m_fault == Fault::NotFound
                ? WebFile()
                : WebFile::find(m_server.m_site.root, m_server.m_site.statusPath, m_request);
        m_file.setFileName(file.path);
        if (file.status != 200 || !m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
            sendError(file.status == 200 ? 403 : file.status);
            return;
        }
        try {
            sendFile(file);
        } catch (const WebRefusal &refusal) {
            const qint64 length = m_file.size();
            m_file.close();
            sendError(refusal.status, {"Content-Range: bytes */" + QByteArray::number(length),
                                       "Cache-Control: " + file.cacheControl});
        }
    }

    void sendFile(const WebFile &file)
    {
        const qint64 length = m_file.size();
        const std::optional<WebRange> range = WebRange::of(m_request.range, length);
        const WebRange part = range.value_or(WebRange{0, length});
        QList<QByteArray> headers{"Content-Type: " + file.type,
                                  "Content-Length: " + QByteArray::number(part.size),
                                  "Cache-Control: " + file.cacheControl};
        if (range) {
            headers.append("Content-Range: bytes " + QByteArray::number(part.offset) + '-' +
                           QByteArray::number(part.offset + part.size - 1) + '/' +
                           QByteArray::number(length));
        } else {
            headers.append("Accept-Ranges: bytes"_ba);
        }
        sendHead(range ? 206 : 200, headers);

        m_left = m_request.wantsBody ? part.size : 0;
        if (m_server.m_fault == Fault::CutOff && m_request.wantsBody) {
            m_left = part.size / 2;
            m_request.keepsConnection = false;
        }
        if (m_left == 0) {
            finishAnswer();
            return;
        }
        m_file.seek(part.offset);
        if (!m_server.m_bytesPerSecond)
            send(kAsFastAsPossible);
    }

    void sendError(int status, const QList<QByteArray> &headers = {})
    {
        const QByteArray page = errorPage(status);
        sendHead(status, QList<QByteArray>{"Content-Type: text/html; charset=utf-8",
                                           "Content-Length: " + QByteArray::number(page.size())} +
                             headers);
        if (m_request.wantsBody)
            m_socket.write(page);
        finishAnswer();
    }

    void sendHead(int status, const QList<QByteArray> &headers)
    {
        m_socket.write(
            "HTTP/1.1 " + QByteArray::number(status) + ' ' + reasonFor(status) +
            "\r\nServer: veyra-publier\r\nDate: " + now() + "\r\n" + headers.join("\r\n") +
            "\r\nConnection: " + (m_request.keepsConnection ? "keep-alive" : "close") + "\r\n\r\n");
    }

    void finishAnswer()
    {
        m_file.close();
        if (m_isTooLong) {
            m_patience.start(kLastWords);
            return;
        }
        if (!m_request.keepsConnection) {
            m_socket.disconnectFromHost();
            return;
        }
        m_isAnswering = false;
        // The next request may be here already, and nothing tells of it again.
        QMetaObject::invokeMethod(this, &Connection::onReadyRead, Qt::QueuedConnection);
    }

    QTcpSocket &m_socket;
    const RehearsalServer &m_server;
    QByteArray m_head;
    WebRequest m_request;
    bool m_isAnswering = false;
    bool m_isTooLong = false;
    QFile m_file;
    qint64 m_left = 0;
    QTimer m_patience;
    QTimer m_slowness;
};

RehearsalServer::RehearsalServer(Site site, Fault fault, std::optional<qint64> bytesPerSecond)
    : m_site(std::move(site))
    , m_fault(fault)
    , m_bytesPerSecond(bytesPerSecond)
{
    connect(this, &QTcpServer::newConnection, this, &RehearsalServer::onNewConnection);
    connect(&m_tick, &QTimer::timeout, this, &RehearsalServer::onTick);
    if (m_bytesPerSecond)
        m_tick.start(kTick);
}

void RehearsalServer::start(quint16 port)
{
    if (!listen(QHostAddress::LocalHost, port)) {
        throw Problem{Outcome::Disk,
                      u"Le port %1 ne peut pas être ouvert : %2."_s.arg(port).arg(errorString())};
    }
}

void RehearsalServer::onNewConnection()
{
    while (QTcpSocket *socket = nextPendingConnection()) {
        auto *connection = new Connection(socket, *this);
        m_connections.append(connection);
        connect(socket, &QTcpSocket::disconnected, this,
                [this, connection] { forget(connection); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        if (m_connections.size() == kMostConnections)
            pauseAccepting();
    }
}

void RehearsalServer::forget(Connection *connection)
{
    if (m_connections.size() == kMostConnections)
        resumeAccepting();
    m_connections.removeOne(connection);
}

/// What may be sent until the next tick is shared equally.
void RehearsalServer::onTick()
{
    QList<Connection *> sending;
    std::copy_if(m_connections.begin(), m_connections.end(), std::back_inserter(sending),
                 [](const Connection *connection) { return connection->isSending(); });
    if (sending.isEmpty())
        return;
    const qint64 ticksPerSecond = 1s / kTick;
    const qint64 share = std::max<qint64>(1, *m_bytesPerSecond / ticksPerSecond / sending.size());
    // One that ends meanwhile is deleted by the event loop, not before.
    for (Connection *connection : std::as_const(sending))
        connection->send(share);
}
