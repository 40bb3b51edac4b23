#pragma once

#include <QList>
#include <QString>

class Progress;

/// The zip archive that players install the client from: names flagged as UTF-8, fixed times, Store
/// or Deflate, and what marks an installed client last, so that an unpacking that is cut
/// off does not count. The same files always make the same bytes.
namespace ClientArchive {

struct Entry
{
    QString name;
    QString path; ///< of its content
    qint64 size = 0;
    bool isUnchanged = false; ///< the earlier archive has the same content under this name
};

/// What is unchanged is copied as it stands in `earlier`, which may be missing.
void write(const QString &path, const QList<Entry> &entries, const QString &earlier,
           Progress &progress);

} // namespace ClientArchive
