#pragma once

#include "publish/CentralDirectory.h"
#include "publish/SharedFile.h"

#include <QByteArrayView>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <condition_variable>
#include <map>
#include <mutex>
#include <vector>

/// The zip archive that players install the client from: names flagged as UTF-8, fixed times, Store
/// or Deflate, and what marks an installed client last, so that an unpacking that is cut
/// off does not count. The same files always make the same bytes.
///
/// Several threads make its entries at once and give them in any order; in the file they lie in the
/// order of the names. Each entry is named by its place in that order. Threads begin them in that
/// order too: whoever has one that cannot be placed yet waits for those before it.
class ClientArchive
{
public:
    class LargeEntry;

    static QStringList inOrder(const QStringList &names);

    /// `names` in order. `earlier` is an archive that may have some of the entries, or be missing.
    ClientArchive(const QString &path, const QStringList &names, const QString &earlier);
    ~ClientArchive();
    Q_DISABLE_COPY_MOVE(ClientArchive)

    /// Whether the earlier archive has a file of this name and size.
    bool isInEarlier(qsizetype index, qint64 size) const;
    /// Whether this entry and the one before lie one behind the other in the earlier archive.
    bool followsInEarlier(qsizetype index) const;
    /// Takes entries that follow each other from the earlier archive, as they stand there. False
    /// where it was made in another way: then nothing is taken.
    bool takeFromEarlier(qsizetype first, qsizetype count);

    /// A file that is small enough to be held in memory.
    void add(qsizetype index, QByteArrayView content);

    /// Once all entries are there.
    void finish();
    /// Somebody has failed: nobody waits any longer for the entries before.
    void giveUp();

private:
    using Entry = CentralDirectory::Entry;

    Entry &entry(qsizetype index) { return m_entries[size_t(index)]; }
    const Entry *earlierEntry(qsizetype index) const;
    static qint64 sizeOf(const Entry &entry);

    qint64 waitForTurn(qsizetype index);
    void goOnWith(qsizetype index, qint64 end);
    void placeWhatIsReady();
    void throwIfGivenUp() const;

    SharedFile m_file;
    SharedFile m_earlier;
    std::vector<Entry> m_entries; ///< each written by one thread
    QHash<QByteArray, Entry> m_earlierEntries;

    std::mutex m_mutex; ///< of all below
    std::condition_variable m_turn;
    qsizetype m_next = 0; ///< the first entry whose place is not known
    qint64 m_end = 0;     ///< where it begins
    std::map<qsizetype, QByteArray> m_ready;
    qint64 m_readyBytes = 0;
    bool m_isGivenUp = false;
};

/// A file that comes in pieces. One that is packed keeps those behind it waiting, since nobody
/// knows where they begin; what is stored does not.
class ClientArchive::LargeEntry
{
public:
    /// `start` decides whether it is packed. Waits for the entries before.
    LargeEntry(ClientArchive &archive, qsizetype index, qint64 size, QByteArrayView start);

    void add(QByteArrayView piece);
    void finish();

private:
    void write(QByteArrayView bytes);
    Entry &entry() { return m_archive.entry(m_index); }
    bool isPacked() { return entry().method == CentralDirectory::kDeflated; }

    ClientArchive &m_archive;
    const qsizetype m_index;
    qint64 m_at = 0;
};
