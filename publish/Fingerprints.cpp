#include "publish/Fingerprints.h"

#include "publish/Disk.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 kLeftAlone = 2000; // milliseconds

} // namespace

#ifdef Q_OS_UNIX

namespace {

qint64 milliseconds(const timespec &time)
{
    return qint64{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

} // namespace

/// Not by way of QFileInfo, whose times are local ones: each asks anew which zone that is.
FileStamp FileStamp::of(const QString &path)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return {};
    return {status.st_size, milliseconds(status.st_mtim), milliseconds(status.st_ctim)};
}

#else

FileStamp FileStamp::of(const QString &path)
{
    const QFileInfo info(path);
    return {info.size(), info.lastModified().toMSecsSinceEpoch(),
            info.metadataChangeTime().toMSecsSinceEpoch()};
}

#endif

/// A file that cannot be read costs time and nothing else.
Fingerprints::Fingerprints(const QString &path)
    : m_path(path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QJsonObject known = QJsonDocument::fromJson(file.readAll()).object();
    for (auto entry = known.begin(); entry != known.end(); ++entry) {
        const QJsonArray values = entry.value().toArray();
        const FileStamp stamp{values.at(0).toInteger(-1), values.at(1).toInteger(),
                              values.at(2).toInteger()};
        m_known.insert(entry.key(), {stamp, values.at(3).toString().toLatin1()});
    }
}

QByteArray Fingerprints::find(const QString &file, const FileStamp &stamp) const
{
    const auto known = m_known.find(file);
    return known != m_known.end() && known->stamp == stamp ? known->sum : QByteArray();
}

void Fingerprints::remember(const QString &file, const FileStamp &stamp, const QByteArray &sum,
                            qint64 readAt)
{
    if (stamp.modified + kLeftAlone <= readAt)
        m_current.insert(file, {stamp, sum});
}

void Fingerprints::save() const
{
    QJsonObject known;
    for (auto entry = m_current.begin(); entry != m_current.end(); ++entry) {
        const FileStamp &stamp = entry->stamp;
        known.insert(entry.key(), QJsonArray{stamp.size, stamp.modified, stamp.changed,
                                             QString::fromLatin1(entry->sum)});
    }
    Disk::write(m_path, QJsonDocument(known));
}
