#include "publish/CentralDirectory.h"

#include <QtEndian>

#include <algorithm>

namespace {

constexpr qint64 kEndSize = 22;
constexpr qint64 kLongestComment = 0xffff;
constexpr qint64 kLocatorSize = 20;
constexpr qint64 kLargeEndSize = 56;
constexpr qint64 kRecordSize = 46;
constexpr quint32 kSeeLargeField = 0xffffffff;
constexpr qint64 kLargestDirectory = qint64{256} * 1024 * 1024;

template <typename Integer> Integer number(const QByteArray &bytes, qint64 offset)
{
    return qFromLittleEndian<Integer>(bytes.constData() + offset);
}

/// Where the directory lies, and how many records it has.
struct Place
{
    qint64 offset = 0;
    qint64 size = 0;
    qint64 records = 0;
};

using Fetch = std::function<QByteArray(qint64 offset, qint64 size)>;

/// Of an archive with more than 65,535 files or 4 GB.
bool readLargePlace(const QByteArray &tail, qsizetype end, const Fetch &fetch, Place &place)
{
    const qsizetype locator = end - kLocatorSize;
    if (locator < 0 || !tail.sliced(locator).startsWith("PK\x06\x07"))
        return false;
    const QByteArray record = fetch(number<qint64>(tail, locator + 8), kLargeEndSize);
    if (record.size() < kLargeEndSize || !record.startsWith("PK\x06\x06"))
        return false;
    place = {number<qint64>(record, 48), number<qint64>(record, 40), number<qint64>(record, 32)};
    return true;
}

std::optional<Place> findPlace(qint64 fileSize, const Fetch &fetch)
{
    const qint64 tailSize = std::min(fileSize, kEndSize + kLongestComment + kLocatorSize);
    const QByteArray tail = fetch(fileSize - tailSize, tailSize);
    const qsizetype end = tail.lastIndexOf("PK\x05\x06");
    if (tail.size() != tailSize || end < 0 || tail.size() - end < kEndSize)
        return {};

    Place place{number<quint32>(tail, end + 16), number<quint32>(tail, end + 12),
                number<quint16>(tail, end + 10)};
    const bool isLarge = place.offset == kSeeLargeField || place.records == 0xffff;
    if (isLarge && !readLargePlace(tail, end, fetch, place))
        return {};
    const bool isInside = place.offset >= 0 && place.size >= 0 && place.size <= fileSize &&
                          place.offset <= fileSize - place.size;
    return isInside && place.size <= kLargestDirectory ? std::optional(place) : std::nullopt;
}

/// The fields of 64 bits that stand in place of those that are all ones.
void readLargeFields(const QByteArray &extra, CentralDirectory::Entry &entry)
{
    for (qsizetype at = 0; at + 4 <= extra.size();) {
        const quint16 id = number<quint16>(extra, at);
        const qsizetype size = number<quint16>(extra, at + 2);
        at += 4;
        if (id == 1) {
            const qsizetype end = std::min(at + size, extra.size());
            for (qint64 *field : {&entry.size, &entry.packedSize, &entry.headerOffset}) {
                if (*field == kSeeLargeField && at + 8 <= end) {
                    *field = number<qint64>(extra, at);
                    at += 8;
                }
            }
            return;
        }
        at += size;
    }
}

} // namespace

std::optional<CentralDirectory> CentralDirectory::read(qint64 fileSize, const Fetch &fetch)
{
    const std::optional<Place> place = findPlace(fileSize, fetch);
    if (!place)
        return {};
    const QByteArray bytes = fetch(place->offset, place->size);

    CentralDirectory directory;
    qsizetype at = 0;
    for (qint64 i = 0; i < place->records; ++i) {
        if (bytes.size() - at < kRecordSize ||
            !QByteArrayView(bytes).sliced(at).startsWith("PK\x01\x02"))
            return {};
        const qsizetype nameSize = number<quint16>(bytes, at + 28);
        const qsizetype extraSize = number<quint16>(bytes, at + 30);
        const qsizetype commentSize = number<quint16>(bytes, at + 32);
        if (bytes.size() - at - kRecordSize < nameSize + extraSize + commentSize)
            return {};
        Entry entry;
        entry.name = bytes.mid(at + kRecordSize, nameSize);
        entry.flags = number<quint16>(bytes, at + 8);
        entry.method = number<quint16>(bytes, at + 10);
        entry.crc = number<quint32>(bytes, at + 16);
        entry.externalAttributes = number<quint32>(bytes, at + 38);
        entry.packedSize = number<quint32>(bytes, at + 20);
        entry.size = number<quint32>(bytes, at + 24);
        entry.headerOffset = number<quint32>(bytes, at + 42);
        entry.recordOffset = place->offset + at;
        readLargeFields(bytes.mid(at + kRecordSize + nameSize, extraSize), entry);
        if (entry.size < 0 || entry.packedSize < 0)
            return {};
        directory.entries.append(entry);
        at += kRecordSize + nameSize + extraSize + commentSize;
    }
    return directory;
}
