#include "tests/support/Archives.h"

#include <QtEndian>

namespace {

template <typename Integer> QByteArray littleEndian(Integer number)
{
    number = qToLittleEndian(number);
    return {reinterpret_cast<const char *>(&number), sizeof number};
}

template <typename... Integers> QByteArray littleEndians(Integers... numbers)
{
    return (littleEndian(numbers) + ...);
}

quint32 crc32(const QByteArray &bytes)
{
    quint32 crc = ~0U;
    for (const char byte : bytes) {
        crc ^= static_cast<quint8>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xedb88320U : 0U);
    }
    return ~crc;
}

/// What stands before the packed bytes of a gzip stream: no name, no date.
QByteArray gzipHead()
{
    return {"\x1f\x8b\x08\0\0\0\0\0\0\xff", 10};
}

/// What both heads of a zip entry have in common, from the version that can unpack it to the length
/// of the name: stored as it is, a name in UTF-8, 1 January 1980, no further fields.
QByteArray zipFields(const Archives::Entry &entry)
{
    const auto size = quint32(entry.content.size());
    return littleEndians(quint16(20), quint16(0x0800), quint16(0), quint16(0), quint16(0x21),
                         crc32(entry.content), size, size, quint16(entry.name.size()), quint16(0));
}

} // namespace

QByteArray Archives::gzipped(const QByteArray &content)
{
    // qCompress() packs alike, behind a size and a head of 6 bytes and before a sum of 4.
    return gzipHead() + qCompress(content).sliced(6).chopped(4) +
           littleEndians(crc32(content), quint32(content.size()));
}

QByteArray Archives::brokenGzip(const QByteArray &content)
{
    // Blocks of bytes as they are, then one of a kind that does not exist.
    constexpr quint16 kBlockSize = 50000;
    QByteArray stream = gzipHead();
    for (qsizetype i = 0; i < content.size() / 2; i += kBlockSize) {
        const QByteArray block = content.mid(i, kBlockSize);
        const auto size = quint16(block.size());
        stream += '\0' + littleEndians(size, quint16(~size)) + block;
    }
    return stream + '\x06' + content.sliced(content.size() / 2);
}

QByteArray Archives::zip(const QList<Entry> &entries)
{
    constexpr quint16 kMadeOnUnix = 3 << 8;
    constexpr quint32 kLink = 0120777;
    constexpr quint32 kFile = 0100644;
    QByteArray files;
    QByteArray directory;
    for (const Entry &entry : entries) {
        directory += "PK\x01\x02" + littleEndian(kMadeOnUnix) + zipFields(entry) +
                     littleEndians(quint16(0), quint16(0), quint16(0),
                                   (entry.isLink ? kLink : kFile) << 16, quint32(files.size())) +
                     entry.name;
        files += "PK\x03\x04" + zipFields(entry) + entry.name + entry.content;
    }
    const auto count = quint16(entries.size());
    return files + directory + "PK\x05\x06" +
           littleEndians(quint16(0), quint16(0), count, count, quint32(directory.size()),
                         quint32(files.size()), quint16(0));
}
