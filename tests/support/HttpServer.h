#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QUrl>

#include <chrono>
#include <memory>
#include <utility>

namespace Certificates {
struct Identity;
}
class QTcpServer;

/// One answer of the scripted server, built by chaining: HttpAnswer::ok("{}").chunked().
struct HttpAnswer
{
    enum class Framing {
        ContentLength, ///< the usual header
        Chunked,       ///< Transfer-Encoding: chunked, size unknown to the client
        UntilClose,    ///< neither: the body ends with the connection
    };

    static HttpAnswer ok(const QByteArray &body);
    static HttpAnswer status(int code, const QByteArray &body = {});
    static HttpAnswer redirect(const QByteArray &location, int code = 302);
    /// Accepts the request and never says a word.
    static HttpAnswer never();

    HttpAnswer &header(const QByteArray &name, const QByteArray &value);
    HttpAnswer &chunked();
    HttpAnswer &withoutLength();
    /// Closes the connection in good order after this many bytes of the body.
    HttpAnswer &truncatedAfter(qint64 bytes);
    /// Resets the connection (RST) after this many bytes of the body.
    HttpAnswer &resetAfter(qint64 bytes);
    /// Answers requests for a part of the body with that part.
    HttpAnswer &withRanges();
    /// Waits before the first byte.
    HttpAnswer &delayed(std::chrono::milliseconds wait);
    /// Sends the body in pieces, with a pause after each.
    HttpAnswer &dripped(qint64 pieceSize, std::chrono::milliseconds pause);
    /// Sends head and `bytes` of the body, then waits for HttpServer::release() before the rest.
    HttpAnswer &heldAfter(qint64 bytes);

    int code = 200;
    QByteArray reason; ///< the status line's text; the usual one when empty
    QList<std::pair<QByteArray, QByteArray>> headers;
    QByteArray body;
    Framing framing = Framing::ContentLength;
    bool silent = false;
    bool ranges = false;
    qint64 truncateAt = -1;
    qint64 resetAt = -1;
    qint64 holdAt = -1;
    std::chrono::milliseconds delay{0};
    qint64 pieceSize = -1;
    std::chrono::milliseconds pause{0};
};

struct HttpRequest
{
    QByteArray method;
    QByteArray target; ///< as it came: a path, or a whole URL when the client uses a proxy
    QByteArray path;   ///< path and query of the target
    QHash<QByteArray, QByteArray> headers; ///< names in lower case
    bool encrypted = false;
};

/// A real HTTP/1.1 server on a free loopback port whose answers a test scripts per path. It lives
/// on the event loop of its thread.
///
/// With an identity it speaks TLS too, to any client that begins with it: one that connects to
/// url() as https://, and one that asks the proxy for a way to some server (CONNECT), in whose
/// place it then answers.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    explicit HttpServer(QObject *parent = nullptr);
    ~HttpServer() override;

    quint16 port() const;
    QUrl url(const QString &path) const;

    /// Answers every request for `path` ("/api/status.php") with this.
    void answer(const QByteArray &path, const HttpAnswer &answer);
    /// Answers one request for each with these in turn, then goes on with the last of them.
    void answerInTurn(const QByteArray &path, const QList<HttpAnswer> &answers);
    /// Answers requests for all other paths with this instead of 404.
    void answerEverythingWith(const HttpAnswer &answer) { m_defaultAnswer = answer; }
    /// Sends what heldAfter() holds back on the connections that are waiting for `path`; where none
    /// is yet, the next one does not have to wait.
    void release(const QByteArray &path);
    /// Speaks TLS on the connections to come, and proves with this who it is.
    void setIdentity(const Certificates::Identity &identity);
    /// Forgets answers and requests; connections are dropped.
    void clear();

    const QList<HttpRequest> &requests() const { return m_requests; }
    /// The servers ("veyra.test:443") to which clients asked for a way. Whatever they then say
    /// encrypted stands in requests().
    const QList<QByteArray> &tunnels() const { return m_tunnels; }
    qsizetype requestCount(const QByteArray &path) const;
    /// The last request for `path`.
    HttpRequest lastRequest(const QByteArray &path) const;

    /// Makes every request of this process come here, whatever server its URL names (other than a
    /// loopback address): the way to reach the launcher's fixed server address on a free port.
    void becomeProxy();
    /// Stops listening, so that connections are refused.
    void stopListening();

private:
    class Listener;
    class Connection;

    HttpAnswer nextAnswer(const QByteArray &path);
    void onNewConnection();
    void onNewDecryptedConnection();

    std::unique_ptr<Listener> m_listener;
    std::unique_ptr<QTcpServer> m_decrypted; ///< for clients of a TlsTerminator
    QHash<QByteArray, QList<HttpAnswer>> m_answers;
    QSet<QByteArray> m_releasedEarly;
    HttpAnswer m_defaultAnswer = HttpAnswer::status(404, "not found");
    QList<HttpRequest> m_requests;
    QList<QByteArray> m_tunnels;
    QList<QPointer<Connection>> m_connections;
};
