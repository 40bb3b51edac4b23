#pragma once

#include <QByteArray>
#include <QList>

#include <functional>
#include <optional>

/// The list of files at the end of a zip archive, as it stands there, mistakes included. Libraries
/// show names alone that they have already interpreted.
struct CentralDirectory
{
    struct Entry
    {
        QByteArray name;
        quint16 flags = 0;
        quint16 method = 0;
        quint32 crc = 0;
        quint32 externalAttributes = 0;
        qint64 packedSize = 0;
        qint64 size = 0;
        qint64 headerOffset = 0; ///< of the head before its content
        qint64 recordOffset = 0; ///< of this record

        bool isFolder() const { return name.endsWith('/'); }
        /// A symbolic link, as Unix has it.
        bool isLink() const { return (externalAttributes >> 16 & 0170000) == 0120000; }
        bool isEncrypted() const { return (flags & 1) != 0; }
        bool saysUtf8() const { return (flags & kUtf8) != 0; }
    };

    static constexpr quint16 kUtf8 = 0x0800;
    static constexpr quint16 kStored = 0;
    static constexpr quint16 kDeflated = 8;

    QList<Entry> entries; ///< in the order in which unpackers take them

    /// `fetch` returns `size` bytes from `offset` on, or less where it cannot. Nothing for what is
    /// no whole archive.
    static std::optional<CentralDirectory>
    read(qint64 fileSize, const std::function<QByteArray(qint64 offset, qint64 size)> &fetch);
};
