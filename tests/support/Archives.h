#pragma once

#include <QByteArray>
#include <QList>

/// Packed files as no ordinary program would make them.
namespace Archives {

/// A gzip stream.
QByteArray gzipped(const QByteArray &content);
/// One whose first half is good.
QByteArray brokenGzip(const QByteArray &content);

struct Entry
{
    QByteArray name; ///< as it stands: it may lead anywhere
    QByteArray content;
    bool isLink = false; ///< a symbolic link, to `content`
};
/// A zip archive of these.
QByteArray zip(const QList<Entry> &entries);

} // namespace Archives
