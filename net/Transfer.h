#pragma once

#include <QtGlobal>

class QNetworkReply;

/// What the downloads of all workers share.
namespace Transfer {

/// Bounds how many bytes a reply holds before the launcher has read them. Without it a fast network
/// outruns a slow disk, and the file piles up in memory. Call it on the reply that get() has just
/// returned, and read all that there is at each readyRead(): a reply that is full waits.
///
/// Three bodies Qt holds whole all the same: that of a redirect; what follows where unpacking
/// "Content-Encoding: gzip" has failed; and, as far as the reader is slower than the network, what
/// comes over HTTP/2, whose window Qt opens again without a look at the buffer.
void boundMemory(QNetworkReply *reply);

/// Progress texts count in MB of 1,048,576 bytes.
constexpr double megabytes(qint64 bytes)
{
    return static_cast<double>(bytes) * 9.5367431640625e-7;
}

/// 0 to 100, cut, not rounded. Of a total that is known.
constexpr int percent(qint64 received, qint64 total)
{
    return static_cast<int>(received * 100 / total);
}

} // namespace Transfer
