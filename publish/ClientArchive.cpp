#include "publish/ClientArchive.h"

#include "publish/CentralDirectory.h"
#include "publish/ClientFolder.h"
#include "publish/FaultPoints.h"
#include "publish/Interruption.h"
#include "publish/Outcome.h"
#include "publish/Progress.h"

#include <QFile>
#include <QtEndian>

#include <zip.h>

#include <algorithm>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr zip_uint16_t kTime = 0;               // midnight
constexpr zip_uint16_t kDate = (0 << 9) | 0x21; // 1 January 1980, the first that zip knows
// Of deflate: the higher levels take several times as long for a few per cent of a game's data.
constexpr zip_uint32_t kFastest = 1;
constexpr qint64 kSample = qint64{64} * 1024;
constexpr int kWorthwhile = 95; // per cent of what it was

struct Closer
{
    void operator()(zip_t *archive) const { zip_discard(archive); }
};
using Archive = std::unique_ptr<zip_t, Closer>;

Problem failed(const QString &path, const char *reason)
{
    return {Outcome::Disk,
            u"Archive impossible à écrire : %1 (%2)."_s.arg(path, QString::fromLocal8Bit(reason))};
}

Archive openArchive(const QString &path, int flags)
{
    int error = 0;
    return Archive(zip_open(path.toUtf8().constData(), flags, &error));
}

/// What is packed already, pictures and music, only costs time.
bool isWorthPacking(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray sample = file.read(kSample);
    return qCompress(sample, kFastest).size() * 100 < sample.size() * kWorthwhile;
}

zip_uint32_t levelOf(int method)
{
    return method == ZIP_CM_DEFLATE ? kFastest : 0;
}

bool addUnchanged(zip_t *archive, zip_t *earlier, const ClientArchive::Entry &entry,
                  const QByteArray &name)
{
    if (!earlier || !entry.isUnchanged)
        return false;
    const zip_int64_t index = zip_name_locate(earlier, name.constData(), ZIP_FL_ENC_UTF_8);
    zip_stat_t status{};
    if (index < 0 || zip_stat_index(earlier, zip_uint64_t(index), 0, &status) != 0 ||
        qint64(status.size) != entry.size)
        return false;
    zip_source_t *const source =
        zip_source_zip(archive, earlier, zip_uint64_t(index), ZIP_FL_COMPRESSED, 0, -1);
    if (!source)
        return false;
    const zip_int64_t added = zip_file_add(archive, name.constData(), source, ZIP_FL_ENC_UTF_8);
    if (added < 0) {
        zip_source_free(source);
        return false;
    }
    // Without it the library would pack what is stored.
    zip_set_file_compression(archive, zip_uint64_t(added), status.comp_method,
                             levelOf(status.comp_method));
    return true;
}

void addFromDisk(zip_t *archive, const ClientArchive::Entry &entry, const QByteArray &name)
{
    zip_source_t *const source = zip_source_file(archive, entry.path.toUtf8().constData(), 0, -1);
    const zip_int64_t index =
        source ? zip_file_add(archive, name.constData(), source, ZIP_FL_ENC_UTF_8) : -1;
    if (index < 0) {
        zip_source_free(source);
        throw failed(entry.path, zip_strerror(archive));
    }
    const int method = isWorthPacking(entry.path) ? ZIP_CM_DEFLATE : ZIP_CM_STORE;
    zip_set_file_compression(archive, zip_uint64_t(index), method, levelOf(method));
}

/// The last entry: its date, and that it may be run where it is a program. Windows asks for
/// neither.
void setAttributes(zip_t *archive, const QString &name)
{
    constexpr zip_uint32_t kFile = 0100644;
    constexpr zip_uint32_t kProgram = 0100755;
    const bool isProgram = name.endsWith(".exe"_L1, Qt::CaseInsensitive);
    const auto index = zip_uint64_t(zip_get_num_entries(archive, 0) - 1);
    zip_file_set_dostime(archive, index, kTime, kDate, 0);
    zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX,
                                     (isProgram ? kProgram : kFile) << 16);
}

struct Watcher
{
    Progress *progress;
    qint64 total;
    qint64 reported = 0;

    void report(double part)
    {
        PublishFaultPoints::next();
        const auto done = static_cast<qint64>(part * static_cast<double>(total));
        progress->advance(done - reported);
        reported = done;
    }
};

void writeToDisk(Archive archive, const QString &path, Watcher &watcher)
{
    constexpr double kEvery = 0.001;
    zip_register_progress_callback_with_state(
        archive.get(), kEvery,
        [](zip_t *, double part, void *state) { static_cast<Watcher *>(state)->report(part); },
        nullptr, &watcher);
    zip_register_cancel_callback_with_state(
        archive.get(), [](zip_t *, void *) { return Interruption::wasRequested() ? 1 : 0; },
        nullptr, nullptr);
    if (zip_close(archive.get()) == 0) {
        [[maybe_unused]] zip_t *const closed = archive.release();
        return;
    }
    Interruption::check();
    throw failed(path, zip_strerror(archive.get()));
}

void setFlag(QFile &file, qint64 offset)
{
    QByteArray flags(2, '\0');
    const bool isRead = file.seek(offset) && file.read(flags.data(), flags.size()) == flags.size();
    const quint16 changed = qFromLittleEndian<quint16>(flags.constData()) | CentralDirectory::kUtf8;
    qToLittleEndian(changed, flags.data());
    if (!isRead || !file.seek(offset) || file.write(flags) != flags.size())
        throw failed(file.fileName(), file.errorString().toLocal8Bit().constData());
}

/// The library leaves the flag out of names in ASCII. Nobody has to know that who looks whether an
/// archive is in order.
void flagNames(const QString &path)
{
    constexpr qint64 kFlagsInHead = 6;
    constexpr qint64 kFlagsInRecord = 8;
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        throw failed(path, file.errorString().toLocal8Bit().constData());
    const auto fetch = [&file](qint64 offset, qint64 size) {
        return file.seek(offset) ? file.read(size) : QByteArray();
    };
    const std::optional<CentralDirectory> directory = CentralDirectory::read(file.size(), fetch);
    if (!directory)
        throw failed(path, "archive incohérente");
    PublishFaultPoints::next();
    for (const CentralDirectory::Entry &entry : directory->entries) {
        setFlag(file, entry.headerOffset + kFlagsInHead);
        setFlag(file, entry.recordOffset + kFlagsInRecord);
    }
    if (!file.flush())
        throw failed(path, file.errorString().toLocal8Bit().constData());
}

} // namespace

void ClientArchive::write(const QString &path, const QList<Entry> &entries, const QString &earlier,
                          Progress &progress)
{
    QStringList names;
    for (const Entry &entry : entries)
        names.append(entry.name);
    const QStringList markers = ClientFolder::markers(names);
    QList<Entry> ordered = entries;
    std::stable_sort(ordered.begin(), ordered.end(), [&](const Entry &left, const Entry &right) {
        return markers.indexOf(left.name) < markers.indexOf(right.name);
    });

    // Outlives the new one, whose sources read from it.
    const Archive source = openArchive(earlier, ZIP_RDONLY);
    Archive archive = openArchive(path, ZIP_CREATE | ZIP_TRUNCATE);
    if (!archive)
        throw failed(path, "création refusée");
    Watcher watcher{&progress, 0};
    for (const Entry &entry : std::as_const(ordered)) {
        Interruption::check();
        const QByteArray name = entry.name.toUtf8();
        if (!addUnchanged(archive.get(), source.get(), entry, name))
            addFromDisk(archive.get(), entry, name);
        setAttributes(archive.get(), entry.name);
        watcher.total += entry.size;
    }
    writeToDisk(std::move(archive), path, watcher);
    flagNames(path);
}
