#include "publish/ClientPublication.h"

#include "publish/ClientArchive.h"
#include "publish/Disk.h"
#include "publish/Generation.h"
#include "publish/Interruption.h"
#include "publish/Manifest.h"
#include "publish/Outcome.h"
#include "publish/Progress.h"
#include "publish/Site.h"
#include "publish/Workshop.h"

#include <QDateTime>
#include <QFile>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Calls `work` with each number below `count`, on all processors. The first exception ends it.
template <typename Work> void onAllProcessors(qsizetype count, const Work &work)
{
    std::atomic<qsizetype> next = 0;
    std::exception_ptr failure;
    std::mutex mutex;
    const auto run = [&] {
        try {
            for (qsizetype i = next++; i < count; i = next++)
                work(i);
        } catch (...) {
            const std::lock_guard lock(mutex);
            if (!failure)
                failure = std::current_exception();
            next = count;
        }
    };

    std::vector<std::thread> threads;
    const qsizetype processors = std::max(1U, std::thread::hardware_concurrency());
    for (qsizetype i = 1; i < std::min(processors, count); ++i)
        threads.emplace_back(run);
    run();
    for (std::thread &thread : threads)
        thread.join();
    if (failure)
        std::rethrow_exception(failure);
}

/// The client's files on their way into a generation. What the draft has already is linked; the
/// rest is copied, and what its sum tells is true of the copy, whatever happens to the operator's
/// file.
class FileTransfer
{
public:
    FileTransfer(const Workshop &workshop, const ClientFolder &client, const Generation &generation)
        : m_client(client)
        , m_generation(generation)
        , m_draft(workshop.generationPath(workshop.draft()) + u'/')
        , m_earlier(Manifest::load(m_draft + Site::kManifest))
        , m_fingerprints(workshop.fingerprintsPath())
    {
    }

    void run()
    {
        m_sums.resize(size_t(m_client.files.size()));
        for (const ClientFile &file : m_client.files)
            m_targets.append(m_generation.fileFor(Site::kFiles + file.name));

        Progress progress(u"Fichiers"_s, m_client.totalSize());
        onAllProcessors(m_client.files.size(), [&](qsizetype i) {
            Interruption::check();
            transfer(i, progress);
        });
    }

    Manifest manifest() const
    {
        Manifest manifest;
        for (qsizetype i = 0; i < m_client.files.size(); ++i)
            manifest.sums.insert(m_client.files.at(i).name, sum(i));
        return manifest;
    }

    const Manifest &earlier() const { return m_earlier; }
    QString draft() const { return m_draft; }

    QList<ClientArchive::Entry> archiveEntries() const
    {
        QList<ClientArchive::Entry> entries;
        for (qsizetype i = 0; i < m_client.files.size(); ++i) {
            const ClientFile &file = m_client.files.at(i);
            entries.append({file.name, m_targets.at(i), file.stamp.size, isInDraft(i)});
        }
        return entries;
    }

    void saveFingerprints() const { m_fingerprints.save(); }

private:
    QByteArray &sum(qsizetype i) { return m_sums[size_t(i)]; }
    const QByteArray &sum(qsizetype i) const { return m_sums[size_t(i)]; }

    bool isInDraft(qsizetype i) const
    {
        return !sum(i).isEmpty() && m_earlier.sums.value(m_client.files.at(i).name) == sum(i);
    }

    void linkFromDraft(qsizetype i) const
    {
        Disk::link(m_draft + Site::kFiles + m_client.files.at(i).name, m_targets.at(i));
    }

    void transfer(qsizetype i, Progress &progress)
    {
        const ClientFile &file = m_client.files.at(i);
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        sum(i) = m_fingerprints.find(file.path, file.stamp);
        if (isInDraft(i)) {
            linkFromDraft(i);
            progress.advance(file.stamp.size);
        } else {
            sum(i) = Disk::copy(file.path, m_targets.at(i),
                                [&progress](qint64 bytes) { progress.advance(bytes); });
            if (FileStamp::of(file.path) != file.stamp) {
                throw Problem{
                    Outcome::Refused,
                    u"« %1 » a changé pendant la lecture ; rien n'a été changé."_s.arg(file.name)};
            }
            if (isInDraft(i)) {
                Disk::removeTree(m_targets.at(i));
                linkFromDraft(i);
            }
        }
        const std::lock_guard lock(m_mutex);
        m_fingerprints.remember(file.path, file.stamp, sum(i), now);
    }

    const ClientFolder &m_client;
    const Generation &m_generation;
    const QString m_draft;
    const Manifest m_earlier;
    Fingerprints m_fingerprints;
    QStringList m_targets;
    std::vector<QByteArray> m_sums; ///< each written by one thread
    std::mutex m_mutex;             ///< of what is remembered
};

} // namespace

ClientPublication ClientPublication::make(const Workshop &workshop, const ClientFolder &client)
{
    Generation generation(workshop, {Site::kClientFolder, Site::kUpdatesFolder});
    FileTransfer transfer(workshop, client, generation);
    transfer.run();

    const Manifest manifest = transfer.manifest();
    const Manifest &earlier = transfer.earlier();
    ClientPublication publication;
    publication.files = manifest.sums.size();
    for (auto file = manifest.sums.begin(); file != manifest.sums.end(); ++file)
        publication.changedFiles += earlier.sums.value(file.key()) != file.value() ? 1 : 0;
    for (auto file = earlier.sums.begin(); file != earlier.sums.end(); ++file)
        publication.removedFiles += manifest.sums.contains(file.key()) ? 0 : 1;

    const QString earlierArchive = transfer.draft() + Site::kClientArchive;
    if (publication.changedFiles > 0 || publication.removedFiles > 0) {
        Progress progress(u"Archive"_s, client.totalSize());
        ClientArchive::write(generation.fileFor(Site::kClientArchive), transfer.archiveEntries(),
                             earlierArchive, progress);
        generation.write(Site::kManifest, manifest.text());
        publication.number = generation.commit();
    }
    transfer.saveFingerprints();
    return publication;
}
