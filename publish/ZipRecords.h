#pragma once

#include "publish/CentralDirectory.h"

#include <vector>

/// What stands around the contents of a zip archive that this tool makes: names flagged as UTF-8,
/// midnight of 1 January 1980 as the time of each file.
namespace ZipRecords {

/// What stands before an entry's content. The entry's name and size alone tell how long it is.
QByteArray header(const CentralDirectory::Entry &entry);
/// What ends an archive, from `offset` on.
QByteArray directory(const std::vector<CentralDirectory::Entry> &entries, qint64 offset);

} // namespace ZipRecords
