#include "tests/updater/ZipBuilder.h"

#include <QtEndian>

#include <utility>

namespace {

constexpr quint16 kVersionNeeded = 20;
constexpr quint16 kMadeOnUnix = 0x0314;
constexpr quint16 kStored = 0;
constexpr quint16 kDeflated = 8;
constexpr quint16 kTime = 0;
constexpr quint16 kDate = 0x5a21; // 2025-01-01

template <typename Number> QByteArray number(Number value)
{
    QByteArray result(sizeof value, Qt::Uninitialized);
    qToLittleEndian(value, result.data());
    return result;
}

quint32 crc32(const QByteArray &content)
{
    quint32 crc = 0xffffffff;
    for (const char c : content) {
        crc ^= quint8(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xedb88320 : 0);
    }
    return ~crc;
}

QByteArray packedContent(const ZipEntry &entry)
{
    if (entry.packed)
        return *entry.packed;
    return entry.deflated ? ZipBuilder::deflated(entry.content) : entry.content;
}

/// What the header before the content and the one in the directory have in common.
QByteArray commonFields(const ZipEntry &entry, const QByteArray &packed, quint32 size)
{
    return number(kVersionNeeded) + number(entry.flags) +
           number(entry.method.value_or(entry.deflated ? kDeflated : kStored)) + number(kTime) +
           number(kDate) + number(entry.crc.value_or(crc32(entry.content))) +
           number(quint32(packed.size())) + number(size);
}

} // namespace

QByteArray ZipBuilder::deflated(const QByteArray &content)
{
    // Qt puts the length (4 bytes) and zlib's header (2) before it, and zlib a sum (4) after it.
    const QByteArray wrapped = qCompress(content, 9);
    return wrapped.mid(6, wrapped.size() - 10);
}

void ZipBuilder::add(ZipEntry entry)
{
    entries.append(std::move(entry));
}

QByteArray ZipBuilder::bytes() const
{
    QByteArray result;
    QByteArray directory;
    QList<qsizetype> offsets;
    for (const ZipEntry &entry : entries) {
        const QByteArray packed = packedContent(entry);
        const auto size = quint32(entry.content.size());
        if (entry.contentOf) {
            offsets.append(offsets.at(*entry.contentOf));
        } else {
            const QByteArray name = entry.localName.value_or(entry.name);
            offsets.append(result.size());
            result +=
                "PK\3\4" +
                commonFields(entry, packed, entry.localSize.value_or(entry.size.value_or(size))) +
                number(quint16(name.size())) + number(quint16(0)) + name + packed;
        }
        directory += "PK\1\2" + number(kMadeOnUnix) +
                     commonFields(entry, packed, entry.size.value_or(size)) +
                     number(quint16(entry.name.size())) + number(quint16(0)) + number(quint16(0)) +
                     number(quint16(0)) + number(quint16(0)) + number(entry.externalAttributes) +
                     number(quint32(offsets.last())) + entry.name;
    }
    const auto count = claimedEntries.value_or(quint16(entries.size()));
    const auto offset = claimedDirectoryOffset.value_or(quint32(result.size()));
    return result + directory + "PK\5\6" + number(quint16(0)) + number(quint16(0)) + number(count) +
           number(count) + number(quint32(directory.size())) + number(offset) +
           number(quint16(comment.size())) + comment;
}
