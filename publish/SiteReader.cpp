#include "publish/SiteReader.h"

#include "net/Transfer.h"
#include "publish/Outcome.h"
#include "publish/Progress.h"
#include "publish/Waiting.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Of a body that is not waited for: enough to tell an archive from a page.
constexpr qsizetype kBeginning = 4;

qint64 wholeLength(const QNetworkReply *reply)
{
    // "bytes 0-99/1234"
    const QByteArray range = reply->rawHeader("Content-Range");
    bool isNumber = false;
    const QByteArray text =
        range.isEmpty() ? reply->rawHeader("Content-Length") : range.mid(range.indexOf('/') + 1);
    const qint64 length = text.toLongLong(&isNumber);
    return isNumber ? length : -1;
}

void markOverlong(SiteAnswer &answer, qint64 limit)
{
    answer.isOverlong = true;
    answer.problem = u"plus de %1 octets, et toujours pas de fin"_s.arg(limit);
}

} // namespace

SiteReader::SiteReader(const Patience &patience)
    : m_patience(patience)
    , m_manager(std::make_unique<QNetworkAccessManager>())
{
}

SiteReader::~SiteReader() = default;

SiteAnswer SiteReader::get(const QUrl &url, qint64 limit) const
{
    return askForBody(QNetworkRequest(url), limit);
}

SiteAnswer SiteReader::save(const QUrl &url, const QString &path, qint64 size, qint64 limit) const
{
    QFile file(path);
    SiteAnswer answer;
    const bool isOpen = file.open(QIODevice::WriteOnly);
    if (isOpen) {
        Progress progress(u"Téléchargement du launcher"_s, size);
        answer = ask(QNetworkRequest(url), m_patience.download, [&](const QByteArray &piece) {
            const bool isWritten = file.write(piece) == piece.size();
            progress.advance(piece.size());
            return isWritten && file.size() <= limit;
        });
    }
    if (!isOpen || !file.flush() || file.error() != QFile::NoError) {
        throw Problem{Outcome::Disk,
                      u"Écriture impossible : %1 (%2)."_s.arg(path, file.errorString())};
    }
    if (file.size() > limit)
        markOverlong(answer, limit);
    return answer;
}

SiteAnswer SiteReader::head(const QUrl &url) const
{
    return askForHead(QNetworkRequest(url));
}

SiteAnswer SiteReader::part(const QUrl &url, qint64 offset, qint64 size) const
{
    QNetworkRequest request(url);
    request.setRawHeader("Range", "bytes=" + QByteArray::number(offset) + '-' +
                                      QByteArray::number(offset + size - 1));
    request.setRawHeader("Accept-Encoding", "identity");
    const SiteAnswer head = askForHead(request);
    // A server without ranges would send the whole file.
    return head.status == 206 ? askForBody(request, size) : head;
}

SiteAnswer SiteReader::askForHead(const QNetworkRequest &request) const
{
    QByteArray beginning;
    SiteAnswer answer = ask(request, m_patience.wholeAnswer, [&beginning](const QByteArray &piece) {
        beginning += piece;
        return beginning.size() < kBeginning;
    });
    answer.body = beginning;
    return answer;
}

SiteAnswer SiteReader::askForBody(const QNetworkRequest &request, qint64 limit) const
{
    QByteArray body;
    SiteAnswer answer =
        ask(request, m_patience.wholeAnswer, [&body, limit](const QByteArray &piece) {
            body += piece;
            return body.size() <= limit;
        });
    answer.body = body;
    if (body.size() > limit)
        markOverlong(answer, limit);
    return answer;
}

SiteAnswer SiteReader::ask(QNetworkRequest request, Patience::Time limit, const Taker &take) const
{
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         int{QNetworkRequest::NoLessSafeRedirectPolicy});
    request.setTransferTimeout(static_cast<int>(m_patience.answer.count()));
    const std::unique_ptr<QNetworkReply> reply(m_manager->get(request));
    Transfer::boundMemory(reply.get());

    SiteAnswer answer;
    Waiting waiting;
    bool wantsMore = true;
    qint64 received = 0;
    const auto takePiece = [&] {
        if (wantsMore && reply->isOpen()) { // one that was given up is not
            const QByteArray piece = reply->readAll();
            received += piece.size();
            wantsMore = take(piece);
        }
        if (!wantsMore)
            waiting.done();
    };
    QObject::connect(reply.get(), &QNetworkReply::redirected, reply.get(),
                     [&answer] { ++answer.redirects; });
    // A redirect has a body of its own, of which nothing is seen here.
    QObject::connect(reply.get(), &QNetworkReply::readyRead, reply.get(), takePiece);
    QObject::connect(reply.get(), &QNetworkReply::finished, reply.get(), [&] {
        takePiece();
        waiting.done();
    });
    const bool isInTime = waiting.run(limit);

    answer.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    // How the rest ends is of no interest to whoever has enough.
    const QNetworkReply::NetworkError error = wantsMore ? reply->error() : QNetworkReply::NoError;
    answer.isLost = error == QNetworkReply::TooManyRedirectsError ||
                    error == QNetworkReply::InsecureRedirectError ||
                    error == QNetworkReply::ProtocolUnknownError;
    // Nobody but the limit for each piece cancels anything.
    answer.isSilent = !isInTime || error == QNetworkReply::OperationCanceledError;
    if (error == QNetworkReply::TooManyRedirectsError)
        answer.problem = u"les redirections n'ont pas de fin"_s;
    else if (answer.isLost)
        answer.problem = u"redirection vers une adresse où le launcher ne va pas"_s;
    else if (!isInTime)
        answer.problem = u"pas de fin de réponse"_s;
    else if (answer.isSilent)
        answer.problem = u"rien n'arrive, et le launcher attendrait sans fin"_s;
    else if (error != QNetworkReply::NoError)
        answer.problem = reply->errorString();
    answer.length = wholeLength(reply.get());
    answer.encoding = reply->rawHeader("Content-Encoding");
    // Qt does not always mind where a connection ends.
    const qint64 announced = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
    if (answer.problem.isEmpty() && wantsMore && answer.encoding.isEmpty() && received < announced)
        answer.problem = u"%1 octets sur %2, puis plus rien"_s.arg(received).arg(announced);
    answer.cacheControl = reply->rawHeader("Cache-Control");
    reply->disconnect();
    return answer;
}
