#include "publish/ClientArchive.h"

#include "publish/ClientFolder.h"
#include "publish/Interruption.h"
#include "publish/ZipRecords.h"

#include <zlib.h>

#include <algorithm>
#include <functional>
#include <new>
#include <optional>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

// Of deflate: the higher levels take several times as long for a few per cent of a game's data.
constexpr int kFastest = 1;
constexpr qsizetype kSample = 4096;
constexpr int kWorthwhile = 95; // per cent of what it was
/// Entries that are ready before those in front of them.
constexpr qint64 kMostReady = qint64{8} * 1024 * 1024;
constexpr qint64 kMostAtOnce = qint64{16} * 1024 * 1024;

/// Thrown at those who wait for somebody who has failed: what that one has thrown counts.
struct GivenUp
{
};

/// Deflate without a head, as in a zip. One for each thread: it takes a quarter of a megabyte,
/// whose beginning costs more than a small file.
class Packer
{
public:
    Packer()
    {
        constexpr int kWithoutHead = -MAX_WBITS;
        constexpr int kMemory = 8;
        if (deflateInit2(&m_stream, kFastest, Z_DEFLATED, kWithoutHead, kMemory,
                         Z_DEFAULT_STRATEGY) != Z_OK)
            throw std::bad_alloc();
    }
    ~Packer() { deflateEnd(&m_stream); }
    Q_DISABLE_COPY_MOVE(Packer)

    static Packer &own()
    {
        thread_local Packer packer;
        return packer;
    }

    void begin() { deflateReset(&m_stream); }

    /// Hands on what is packed so far; all of it after the last piece.
    void add(QByteArrayView piece, bool isLast,
             const std::function<void(const QByteArray &)> &packed)
    {
        // The library only reads there.
        m_stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(piece.data()));
        m_stream.avail_in = uInt(piece.size());
        int result = Z_OK;
        do {
            QByteArray out(kBuffer, Qt::Uninitialized);
            m_stream.next_out = reinterpret_cast<Bytef *>(out.data());
            m_stream.avail_out = uInt(out.size());
            result = deflate(&m_stream, isLast ? Z_FINISH : Z_NO_FLUSH);
            out.truncate(out.size() - qsizetype(m_stream.avail_out));
            if (!out.isEmpty())
                packed(out);
        } while (m_stream.avail_out == 0 && result != Z_STREAM_END);
    }

    QByteArray pack(QByteArrayView content)
    {
        QByteArray all;
        begin();
        add(content, true, [&all](const QByteArray &bytes) { all.append(bytes); });
        return all;
    }

private:
    static constexpr qsizetype kBuffer = qsizetype{64} * 1024;

    z_stream m_stream = {};
};

/// What is packed already, pictures and music, only costs time. The middle tells: many formats have
/// tables at their beginning.
bool isWorthPacking(QByteArrayView start)
{
    const qsizetype size = std::min(start.size(), kSample);
    const QByteArrayView sample = start.sliced((start.size() - size) / 2, size);
    return Packer::own().pack(sample).size() * 100 < sample.size() * kWorthwhile;
}

quint16 methodFor(QByteArrayView start)
{
    return isWorthPacking(start) ? CentralDirectory::kDeflated : CentralDirectory::kStored;
}

quint32 checksum(quint32 before, QByteArrayView bytes)
{
    return quint32(
        crc32_z(before, reinterpret_cast<const Bytef *>(bytes.data()), size_t(bytes.size())));
}

/// That it may be run where it is a program. Windows does not ask.
quint32 attributesOf(const QString &name)
{
    constexpr quint32 kFile = 0100644;
    constexpr quint32 kProgram = 0100755;
    return (name.endsWith(".exe"_L1, Qt::CaseInsensitive) ? kProgram : kFile) << 16;
}

} // namespace

QStringList ClientArchive::inOrder(const QStringList &names)
{
    const QStringList markers = ClientFolder::markers(names);
    QStringList ordered = names;
    std::stable_sort(ordered.begin(), ordered.end(),
                     [&markers](const QString &left, const QString &right) {
                         return markers.indexOf(left) < markers.indexOf(right);
                     });
    return ordered;
}

ClientArchive::ClientArchive(const QString &path, const QStringList &names, const QString &earlier)
    : m_file(path, QIODevice::WriteOnly)
    , m_earlier(earlier, QIODevice::ReadOnly)
{
    for (const QString &name : names) {
        Entry entry;
        entry.name = name.toUtf8();
        entry.externalAttributes = attributesOf(name);
        m_entries.push_back(entry);
    }
    if (!m_earlier.isOpen())
        return;
    const auto fetch = [this](qint64 offset, qint64 size) { return m_earlier.read(offset, size); };
    const std::optional<CentralDirectory> directory =
        CentralDirectory::read(m_earlier.size(), fetch);
    if (!directory)
        return;
    for (const Entry &entry : directory->entries)
        m_earlierEntries.insert(entry.name, entry);
}

ClientArchive::~ClientArchive() = default;

const CentralDirectory::Entry *ClientArchive::earlierEntry(qsizetype index) const
{
    const auto found = m_earlierEntries.constFind(m_entries[size_t(index)].name);
    return found == m_earlierEntries.constEnd() ? nullptr : &*found;
}

/// With what stands before its content.
qint64 ClientArchive::sizeOf(const Entry &entry)
{
    return ZipRecords::header(entry).size() + entry.packedSize;
}

bool ClientArchive::isInEarlier(qsizetype index, qint64 size) const
{
    const Entry *const earlier = earlierEntry(index);
    return earlier && earlier->size == size;
}

bool ClientArchive::followsInEarlier(qsizetype index) const
{
    const Entry *const before = earlierEntry(index - 1);
    const Entry *const earlier = earlierEntry(index);
    return before && earlier && before->headerOffset + sizeOf(*before) == earlier->headerOffset;
}

bool ClientArchive::takeFromEarlier(qsizetype first, qsizetype count)
{
    const qint64 from = earlierEntry(first)->headerOffset;
    qint64 size = 0;
    for (qsizetype i = first; i < first + count; ++i) {
        const Entry &earlier = *earlierEntry(i);
        const QByteArray header = ZipRecords::header(earlier);
        if (m_earlier.read(earlier.headerOffset, header.size()) != header)
            return false;
        size += header.size() + earlier.packedSize;
    }

    const qint64 place = waitForTurn(first);
    goOnWith(first + count, place + size);
    for (qsizetype i = first; i < first + count; ++i) {
        Entry taken = *earlierEntry(i);
        taken.externalAttributes = entry(i).externalAttributes;
        taken.headerOffset += place - from;
        entry(i) = taken;
    }
    for (qint64 done = 0; done < size; done += kMostAtOnce) {
        Interruption::check();
        m_file.copy(m_earlier, from + done, std::min(kMostAtOnce, size - done), place + done);
    }
    return true;
}

void ClientArchive::add(qsizetype index, QByteArrayView content)
{
    Entry &added = entry(index);
    added.method = methodFor(content);
    added.crc = checksum(0, content);
    added.size = content.size();
    const bool isPacked = added.method == CentralDirectory::kDeflated;
    const QByteArray packed = isPacked ? Packer::own().pack(content) : QByteArray();
    const QByteArrayView bytes = isPacked ? QByteArrayView(packed) : content;
    added.packedSize = bytes.size();
    QByteArray whole = ZipRecords::header(added);
    whole.append(bytes);
    {
        std::unique_lock lock(m_mutex);
        m_turn.wait(lock,
                    [&] { return m_isGivenUp || index == m_next || m_readyBytes < kMostReady; });
        throwIfGivenUp();
        m_readyBytes += whole.size();
        m_ready.emplace(index, whole);
    }
    placeWhatIsReady();
}

/// Returns where the entry begins, once those before it have their places.
qint64 ClientArchive::waitForTurn(qsizetype index)
{
    std::unique_lock lock(m_mutex);
    m_turn.wait(lock, [&] { return m_isGivenUp || index == m_next; });
    throwIfGivenUp();
    return m_end;
}

/// All before `index` have their places, up to `end`.
void ClientArchive::goOnWith(qsizetype index, qint64 end)
{
    {
        const std::lock_guard lock(m_mutex);
        m_next = index;
        m_end = end;
    }
    placeWhatIsReady();
}

void ClientArchive::placeWhatIsReady()
{
    QList<std::pair<qint64, QByteArray>> placed;
    {
        const std::lock_guard lock(m_mutex);
        for (auto first = m_ready.begin(); first != m_ready.end() && first->first == m_next;
             first = m_ready.erase(first)) {
            entry(m_next++).headerOffset = m_end;
            placed.append({m_end, first->second});
            m_end += first->second.size();
            m_readyBytes -= first->second.size();
        }
    }
    m_turn.notify_all();
    for (const auto &[place, bytes] : std::as_const(placed))
        m_file.write(place, bytes);
}

void ClientArchive::giveUp()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isGivenUp = true;
    }
    m_turn.notify_all();
}

void ClientArchive::throwIfGivenUp() const
{
    if (m_isGivenUp)
        throw GivenUp();
}

void ClientArchive::finish()
{
    m_file.write(m_end, ZipRecords::directory(m_entries, m_end));
}

ClientArchive::LargeEntry::LargeEntry(ClientArchive &archive, qsizetype index, qint64 size,
                                      QByteArrayView start)
    : m_archive(archive)
    , m_index(index)
{
    entry().method = methodFor(start);
    entry().crc = 0;
    entry().size = size;
    entry().packedSize = size;
    entry().headerOffset = archive.waitForTurn(index);
    m_at = entry().headerOffset + ZipRecords::header(entry()).size();
    if (isPacked())
        Packer::own().begin();
    else
        archive.goOnWith(index + 1, m_at + size);
}

void ClientArchive::LargeEntry::add(QByteArrayView piece)
{
    entry().crc = checksum(entry().crc, piece);
    if (isPacked())
        Packer::own().add(piece, false, [this](const QByteArray &bytes) { write(bytes); });
    else
        write(piece);
}

void ClientArchive::LargeEntry::write(QByteArrayView bytes)
{
    m_archive.m_file.write(m_at, bytes);
    m_at += bytes.size();
}

void ClientArchive::LargeEntry::finish()
{
    if (isPacked()) {
        const qint64 header = ZipRecords::header(entry()).size();
        Packer::own().add({}, true, [this](const QByteArray &bytes) { write(bytes); });
        entry().packedSize = m_at - entry().headerOffset - header;
        m_archive.goOnWith(m_index + 1, m_at);
    }
    m_archive.m_file.write(entry().headerOffset, ZipRecords::header(entry()));
}
