#include "publish/ZipRecords.h"

#include <QtEndian>

#include <algorithm>

namespace {

constexpr quint16 kTime = 0;               // midnight
constexpr quint16 kDate = (0 << 9) | 0x21; // 1 January 1980, the first that zip knows
constexpr quint16 kVersion = 20;           // of the format: Deflate
constexpr quint16 kLargeVersion = 45;      // fields of 64 bits
constexpr quint16 kUnix = 3 << 8;
constexpr quint32 kSeeLargeField = 0xffffffff;
constexpr quint16 kSeeLargeCount = 0xffff;
/// What does not pack grows by some bytes in 10,000: whether its size fits into 32 bits has to be
/// known before.
constexpr qint64 kLarge = 0xff000000;

using Entry = CentralDirectory::Entry;

class Record
{
public:
    explicit Record(const char *signature)
        : m_bytes(signature, 4)
    {
    }

    template <typename Integer> Record &add(Integer value)
    {
        value = qToLittleEndian(value);
        m_bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
        return *this;
    }
    Record &add(const QByteArray &bytes)
    {
        m_bytes.append(bytes);
        return *this;
    }
    const QByteArray &bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

bool isLarge(const Entry &entry)
{
    return entry.size >= kLarge;
}

quint32 small(qint64 value, bool seeLargeField)
{
    return seeLargeField ? kSeeLargeField : quint32(value);
}

/// The fields of 64 bits.
QByteArray extra(const QList<qint64> &values)
{
    constexpr quint16 kId = 1;
    QByteArray bytes;
    if (values.isEmpty())
        return bytes;
    const quint16 head[] = {qToLittleEndian(kId),
                            qToLittleEndian(quint16(values.size() * qsizetype(sizeof(qint64))))};
    bytes.append(reinterpret_cast<const char *>(head), sizeof head);
    for (const qint64 value : values) {
        const qint64 field = qToLittleEndian(value);
        bytes.append(reinterpret_cast<const char *>(&field), sizeof field);
    }
    return bytes;
}

/// From the version to the sizes: in both records of an entry.
void addCommon(Record &record, const Entry &entry, quint16 version)
{
    record.add(version)
        .add(CentralDirectory::kUtf8)
        .add(entry.method)
        .add(kTime)
        .add(kDate)
        .add(entry.crc)
        .add(small(entry.packedSize, isLarge(entry)))
        .add(small(entry.size, isLarge(entry)))
        .add(quint16(entry.name.size()));
}

QByteArray centralRecord(const Entry &entry)
{
    const bool isFar = entry.headerOffset >= kSeeLargeField;
    const quint16 version = isLarge(entry) || isFar ? kLargeVersion : kVersion;
    QList<qint64> large;
    if (isLarge(entry))
        large = {entry.size, entry.packedSize};
    if (isFar)
        large.append(entry.headerOffset);
    const QByteArray fields = extra(large);

    Record record("PK\x01\x02");
    record.add(quint16(kUnix | version));
    addCommon(record, entry, version);
    record.add(quint16(fields.size()))
        .add(quint16(0)) // comment
        .add(quint16(0)) // disk
        .add(quint16(0)) // attributes of its content
        .add(entry.externalAttributes)
        .add(small(entry.headerOffset, isFar))
        .add(entry.name)
        .add(fields);
    return record.bytes();
}

/// Beyond 65,534 files or 4 GB.
QByteArray largeEnd(qint64 count, qint64 offset, qint64 size)
{
    constexpr qint64 kRest = 44; // bytes of this record from here on
    Record end("PK\x06\x06");
    end.add(kRest)
        .add(quint16(kUnix | kLargeVersion))
        .add(kLargeVersion)
        .add(quint32(0)) // disk
        .add(quint32(0)) // disk of the directory
        .add(count)
        .add(count)
        .add(size)
        .add(offset);
    Record locator("PK\x06\x07");
    locator.add(quint32(0)).add(offset + size).add(quint32(1)); // disk, place, disks
    return end.bytes() + locator.bytes();
}

} // namespace

QByteArray ZipRecords::header(const Entry &entry)
{
    const QByteArray fields = isLarge(entry) ? extra({entry.size, entry.packedSize}) : QByteArray();
    Record record("PK\x03\x04");
    addCommon(record, entry, isLarge(entry) ? kLargeVersion : kVersion);
    record.add(quint16(fields.size())).add(entry.name).add(fields);
    return record.bytes();
}

QByteArray ZipRecords::directory(const std::vector<Entry> &entries, qint64 offset)
{
    QByteArray bytes;
    for (const Entry &entry : entries)
        bytes.append(centralRecord(entry));
    const qint64 size = bytes.size();
    const bool areMany = entries.size() >= kSeeLargeCount;
    const bool isFar = offset >= kSeeLargeField;
    if (areMany || isFar)
        bytes.append(largeEnd(qint64(entries.size()), offset, size));

    const quint16 count = areMany ? kSeeLargeCount : quint16(entries.size());
    Record end("PK\x05\x06");
    end.add(quint16(0))  // disk
        .add(quint16(0)) // disk of the directory
        .add(count)
        .add(count)
        .add(quint32(size))
        .add(small(offset, isFar))
        .add(quint16(0)); // comment
    return bytes.append(end.bytes());
}
