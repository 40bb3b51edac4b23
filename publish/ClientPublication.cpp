#include "publish/ClientPublication.h"

#include "publish/ClientArchive.h"
#include "publish/ClientFolder.h"
#include "publish/Disk.h"
#include "publish/Generation.h"
#include "publish/Interruption.h"
#include "publish/Manifest.h"
#include "publish/Outcome.h"
#include "publish/PreparedClient.h"
#include "publish/Progress.h"
#include "publish/Site.h"
#include "publish/Workshop.h"

#include <QDateTime>
#include <QHash>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Each holds a piece of a file and what is packed of it.
constexpr unsigned kMostThreads = 16;
/// Of what is taken from the earlier archive at once, so that several threads have something to do.
constexpr qint64 kMostInRun = qint64{16} * 1024 * 1024;
constexpr qsizetype kMostFilesInRun = 256;

/// Calls `work` with each number below `count`, in their order, on all processors. The first
/// exception ends it; `giveUp` is called then.
template <typename Work, typename GiveUp>
void onAllProcessors(qsizetype count, const Work &work, const GiveUp &giveUp)
{
    std::atomic<qsizetype> next = 0;
    std::exception_ptr failure;
    std::mutex mutex;
    const auto run = [&] {
        try {
            for (qsizetype i = next++; i < count; i = next++)
                work(i);
        } catch (...) {
            {
                const std::lock_guard lock(mutex);
                if (!failure)
                    failure = std::current_exception();
            }
            next = count;
            giveUp();
        }
    };

    std::vector<std::thread> threads;
    threads.reserve(kMostThreads);
    const qsizetype processors = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
    try {
        for (qsizetype i = 1; i < std::min(processors, count); ++i)
            threads.emplace_back(run);
    } catch (const std::exception &) {
        // Those that the system allows, and this one, do the work.
    }
    run();
    for (std::thread &thread : threads)
        thread.join();
    if (failure)
        std::rethrow_exception(failure);
}

/// The client's files, and what is known of them without reading one: their sums from earlier runs,
/// and what the draft has.
class KnownFiles
{
public:
    KnownFiles(const Workshop &workshop, const ClientFolder &client)
        : m_draft(workshop.generationPath(workshop.draft()) + u'/')
        , m_prepared(workshop.generationPath(workshop.draft()))
        , m_earlier(Manifest::load(m_draft + Site::kManifest))
        , m_fingerprints(workshop.fingerprintsPath())
    {
        QHash<QString, const ClientFile *> byName;
        for (const ClientFile &file : client.files) {
            m_names.append(file.name);
            byName.insert(file.name, &file);
        }
        m_names = ClientArchive::inOrder(m_names);
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        for (const QString &name : std::as_const(m_names)) {
            const ClientFile &file = *byName.value(name);
            const QByteArray sum = m_fingerprints.find(file.path, file.stamp);
            const bool isUntouched = m_earlier.sums.contains(name) &&
                                     m_prepared.isUntouched(Site::kFiles + name, file.stamp.size);
            m_files.push_back({&file, sum, isUntouched});
            if (!sum.isEmpty())
                m_fingerprints.remember(file.path, file.stamp, sum, now);
        }
    }

    qsizetype size() const { return m_names.size(); }
    const QStringList &names() const { return m_names; }
    const ClientFile &at(qsizetype i) const { return *m_files[size_t(i)].file; }
    const Manifest &earlier() const { return m_earlier; }
    QString draft() const { return m_draft; }

    bool isInDraft(qsizetype i) const
    {
        const QByteArray &sum = m_files[size_t(i)].sum;
        return m_files[size_t(i)].isUntouched && !sum.isEmpty() &&
               m_earlier.sums.value(at(i).name) == sum;
    }

    bool isArchiveUntouched() const { return m_prepared.isUntouched(Site::kClientArchive); }

    /// Any thread.
    void learn(qsizetype i, const QByteArray &sum, qint64 readAt)
    {
        m_files[size_t(i)].sum = sum;
        const std::lock_guard lock(m_mutex);
        m_fingerprints.remember(at(i).path, at(i).stamp, sum, readAt);
    }

    Manifest manifest() const
    {
        Manifest manifest;
        for (const Known &known : m_files)
            manifest.sums.insert(known.file->name, known.sum);
        return manifest;
    }

    void saveFingerprints() const { m_fingerprints.save(); }

private:
    struct Known
    {
        const ClientFile *file;
        QByteArray sum;   ///< empty while it is not known; written by one thread
        bool isUntouched; ///< the draft's, and of this size
    };

    const QString m_draft;
    const PreparedClient m_prepared;
    const Manifest m_earlier;
    Fingerprints m_fingerprints;
    QStringList m_names; ///< as they follow each other in the archive
    std::vector<Known> m_files;
    std::mutex m_mutex; ///< of what is remembered
};

/// The client's files on their way into a generation and into its archive, for which each is read
/// once. What the draft has already is linked, and taken from its archive; the rest is copied, and
/// what its sum tells is true of the copy, whatever happens to the operator's file.
class FileTransfer
{
public:
    FileTransfer(KnownFiles &files, const Generation &generation)
        : m_files(files)
        , m_archive(generation.fileFor(Site::kClientArchive), files.names(),
                    files.isArchiveUntouched() ? files.draft() + Site::kClientArchive : QString())
    {
        for (const QString &name : files.names())
            m_targets.append(generation.fileFor(Site::kFiles + name));
    }

    void run(qint64 totalSize)
    {
        const std::vector<Run> runs = inRuns();
        Progress progress(u"Fichiers"_s, totalSize);
        onAllProcessors(
            qsizetype(runs.size()), [&](qsizetype i) { transfer(runs[size_t(i)], progress); },
            [this] { m_archive.giveUp(); });
        m_archive.finish();
    }

private:
    /// Files that follow each other: several only where the draft's archive has them so.
    struct Run
    {
        qsizetype first;
        qsizetype count;
        qint64 size;
        bool isInDraft;
    };

    std::vector<Run> inRuns() const
    {
        std::vector<Run> runs;
        for (qsizetype i = 0; i < m_files.size(); ++i) {
            const qint64 size = m_files.at(i).stamp.size;
            const bool isInDraft = m_files.isInDraft(i) && m_archive.isInEarlier(i, size);
            const bool goesOn = isInDraft && !runs.empty() && runs.back().isInDraft &&
                                runs.back().count < kMostFilesInRun &&
                                runs.back().size + size <= kMostInRun &&
                                m_archive.followsInEarlier(i);
            if (!goesOn) {
                runs.push_back({i, 1, size, isInDraft});
                continue;
            }
            ++runs.back().count;
            runs.back().size += size;
        }
        return runs;
    }

    void transfer(const Run &run, Progress &progress)
    {
        if (!run.isInDraft || !m_archive.takeFromEarlier(run.first, run.count)) {
            for (qsizetype i = run.first; i < run.first + run.count; ++i)
                read(i, progress);
            return;
        }
        for (qsizetype i = run.first; i < run.first + run.count; ++i) {
            Interruption::check();
            linkFromDraft(i);
        }
        progress.advance(run.size);
    }

    void linkFromDraft(qsizetype i) const
    {
        Disk::link(m_files.draft() + Site::kFiles + m_files.at(i).name, m_targets.at(i));
    }

    void read(qsizetype i, Progress &progress)
    {
        const ClientFile &file = m_files.at(i);
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        const bool isSmall = file.stamp.size <= Disk::kPiece;
        std::optional<ClientArchive::LargeEntry> large;
        qint64 size = 0;
        const QByteArray sum = Disk::copy(file.path, m_targets.at(i), [&](QByteArrayView piece) {
            size += piece.size();
            if (size > file.stamp.size || (isSmall && size < file.stamp.size))
                throw changed(file);
            if (isSmall) {
                m_archive.add(i, piece);
            } else {
                if (!large)
                    large.emplace(m_archive, i, file.stamp.size, piece);
                large->add(piece);
            }
            progress.advance(piece.size());
        });
        if (size != file.stamp.size || FileStamp::of(file.path) != file.stamp)
            throw changed(file);
        if (large)
            large->finish();
        else if (size == 0)
            m_archive.add(i, {});
        m_files.learn(i, sum, now);
        if (m_files.isInDraft(i)) {
            Disk::removeTree(m_targets.at(i));
            linkFromDraft(i);
        }
    }

    static Problem changed(const ClientFile &file)
    {
        return {Outcome::Refused,
                u"« %1 » a changé pendant la lecture ; rien n'a été changé."_s.arg(file.name)};
    }

    KnownFiles &m_files;
    ClientArchive m_archive;
    QStringList m_targets;
};

/// How they differ from the draft. A file whose sum is not known counts as changed.
ClientPublication compared(const KnownFiles &files)
{
    const Manifest manifest = files.manifest();
    const Manifest &earlier = files.earlier();
    ClientPublication publication;
    publication.files = files.size();
    for (qsizetype i = 0; i < files.size(); ++i)
        publication.changedFiles += files.isInDraft(i) ? 0 : 1;
    publication.isArchiveDamaged = !files.isArchiveUntouched();
    for (auto file = earlier.sums.begin(); file != earlier.sums.end(); ++file)
        publication.removedFiles += manifest.sums.contains(file.key()) ? 0 : 1;
    return publication;
}

} // namespace

ClientPublication ClientPublication::make(const Workshop &workshop, const ClientFolder &client)
{
    KnownFiles files(workshop, client);
    ClientPublication publication = compared(files);
    if (publication.isDifferent()) {
        // As far as is known: one that has to be read may prove to be the same.
        Generation generation(workshop, {Site::kClientFolder, Site::kUpdatesFolder});
        FileTransfer(files, generation).run(client.totalSize());
        publication = compared(files);
        if (publication.isDifferent()) {
            generation.write(Site::kManifest, files.manifest().text());
            // Before it counts: a disk that has no room for them leaves everything as it was.
            files.saveFingerprints();
            publication.number = generation.commit();
            return publication;
        }
    }
    files.saveFingerprints();
    return publication;
}
