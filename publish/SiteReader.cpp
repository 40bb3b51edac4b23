#include "publish/SiteReader.h"

#include "publish/Outcome.h"
#include "publish/Waiting.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <chrono>
#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kAnswerWithin = 15s; ///< and each further piece
constexpr auto kLongestAnswer = 300s;
constexpr std::chrono::seconds kLongestDownload = 1h;
/// The launcher follows 50 of them. More than a few are a mistake.
constexpr int kMostRedirects = 5;

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

} // namespace

SiteReader::SiteReader()
    : m_manager(std::make_unique<QNetworkAccessManager>())
{
}

SiteReader::~SiteReader() = default;

SiteAnswer SiteReader::get(const QUrl &url) const
{
    return ask(QNetworkRequest(url), Body::Kept);
}

SiteAnswer SiteReader::save(const QUrl &url, const QString &path) const
{
    QFile file(path);
    SiteAnswer answer;
    const bool isOpen = file.open(QIODevice::WriteOnly);
    if (isOpen)
        answer = ask(QNetworkRequest(url), Body::Saved, &file);
    if (!isOpen || !file.flush() || file.error() != QFile::NoError) {
        throw Problem{Outcome::Disk,
                      u"Écriture impossible : %1 (%2)."_s.arg(path, file.errorString())};
    }
    return answer;
}

SiteAnswer SiteReader::head(const QUrl &url) const
{
    return ask(QNetworkRequest(url), Body::NotAwaited);
}

SiteAnswer SiteReader::part(const QUrl &url, qint64 offset, qint64 size) const
{
    QNetworkRequest request(url);
    request.setRawHeader("Range", "bytes=" + QByteArray::number(offset) + '-' +
                                      QByteArray::number(offset + size - 1));
    request.setRawHeader("Accept-Encoding", "identity");
    const SiteAnswer head = ask(request, Body::NotAwaited);
    // A server without ranges would send the whole file.
    return head.status == 206 ? ask(request, Body::Kept) : head;
}

SiteAnswer SiteReader::ask(QNetworkRequest request, Body body, QFile *file) const
{
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         int{QNetworkRequest::NoLessSafeRedirectPolicy});
    request.setMaximumRedirectsAllowed(kMostRedirects);
    request.setTransferTimeout(static_cast<int>(std::chrono::milliseconds(kAnswerWithin).count()));
    const std::unique_ptr<QNetworkReply> reply(m_manager->get(request));

    SiteAnswer answer;
    Waiting waiting;
    QObject::connect(reply.get(), &QNetworkReply::redirected, reply.get(),
                     [&answer] { ++answer.redirects; });
    QObject::connect(reply.get(), &QNetworkReply::finished, reply.get(),
                     [&waiting] { waiting.done(); });
    if (body == Body::NotAwaited) {
        // A redirect has a head of its own; the answer's comes with its body.
        QObject::connect(reply.get(), &QNetworkReply::readyRead, reply.get(),
                         [&waiting] { waiting.done(); });
    }
    if (body == Body::Saved) {
        QObject::connect(reply.get(), &QNetworkReply::readyRead, reply.get(),
                         [&reply, file] { file->write(reply->readAll()); });
    }
    const bool isInTime = waiting.run(body == Body::Saved ? kLongestDownload : kLongestAnswer);

    answer.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QNetworkReply::NetworkError error = reply->error();
    answer.isLost = error == QNetworkReply::TooManyRedirectsError ||
                    error == QNetworkReply::InsecureRedirectError ||
                    error == QNetworkReply::ProtocolUnknownError;
    if (!isInTime)
        answer.problem = u"pas de fin de réponse"_s;
    else if (error != QNetworkReply::NoError)
        answer.problem = reply->errorString();
    answer.length = wholeLength(reply.get());
    answer.encoding = reply->rawHeader("Content-Encoding");
    answer.cacheControl = reply->rawHeader("Cache-Control");
    if (body == Body::Kept)
        answer.body = reply->readAll();
    reply->disconnect();
    return answer;
}
