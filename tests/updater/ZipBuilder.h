#pragma once

#include <QByteArray>
#include <QList>

#include <optional>

/// One entry of an archive, and what may be wrong with it. What is not set is as it should be.
struct ZipEntry
{
    QByteArray name = {};
    QByteArray content = {};
    bool deflated = false;

    quint16 flags = 0;
    quint32 externalAttributes = 0;
    std::optional<quint16> method = {};       ///< claimed
    std::optional<quint32> crc = {};          ///< claimed
    std::optional<quint32> size = {};         ///< claimed
    std::optional<QByteArray> packed = {};    ///< the bytes that stand in the archive
    std::optional<QByteArray> localName = {}; ///< the name before the content
    std::optional<quint32> localSize = {};    ///< the size before the content
    std::optional<int> contentOf = {};        ///< shares the content of an earlier entry
};

/// Writes archives byte by byte, wrong ones as well: a library would write right ones alone.
struct ZipBuilder
{
    QList<ZipEntry> entries = {};
    QByteArray comment = {};
    std::optional<quint16> claimedEntries = {};
    std::optional<quint32> claimedDirectoryOffset = {};

    void add(ZipEntry entry);
    QByteArray bytes() const;

    /// What deflate makes of it.
    static QByteArray deflated(const QByteArray &content);
};
