#include "net/Transfer.h"

#include <QNetworkReply>
#include <QNetworkRequest>

namespace {

/// The network's thread, the reply and the block on its way to the disk take some five times as
/// much. Larger blocks are no faster, and the event loop comes round less often.
constexpr qint64 kReadBufferSize = qint64{256} * 1024;

/// Whether the answer whose head has arrived sends Qt elsewhere: nobody gets to see its body.
bool isRedirect(const QNetworkReply *reply)
{
    switch (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt()) {
    case 301:
    case 302:
    case 303:
    case 305:
    case 307:
    case 308:
        return true;
    default:
        return false;
    }
}

} // namespace

void Transfer::boundMemory(QNetworkReply *reply)
{
    const auto bound = [reply] { reply->setReadBufferSize(kReadBufferSize); };
    const auto lift = [reply] { reply->setReadBufferSize(0); };
    bound();

    // A full buffer that nobody empties never ends. That would be the body of a redirect, also of
    // one that leads nowhere, and what follows where unpacking "Content-Encoding: gzip" has failed.
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, lift] {
        if (isRedirect(reply))
            lift();
    });
    QObject::connect(reply, &QNetworkReply::errorOccurred, reply, lift);

    // Qt does not hand the bound on to the next request, which it has queued by now, but not sent.
    QObject::connect(reply, &QNetworkReply::redirected, reply, bound, Qt::QueuedConnection);
}
