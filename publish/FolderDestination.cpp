#include "publish/FolderDestination.h"

#include "publish/Disk.h"
#include "publish/FileSum.h"
#include "publish/Outcome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

FolderDestination::FolderDestination(const QString &folder, bool isKnown)
    : m_folder(folder)
{
    const QFileInfo info(m_folder);
    if (isKnown && !info.isDir())
        throw gone(m_folder);
    // A disk that is not mounted must not be made up for.
    if (!QFileInfo(info.path()).isDir()) {
        throw Problem{Outcome::Refused,
                      u"Le dossier « %1 » n'existe pas ; rien n'a été changé."_s.arg(info.path())};
    }
    Disk::makeFolder(m_folder);
}

Destination::Entries FolderDestination::entries(const QString &folder)
{
    Entries entries;
    const QFileInfoList infos =
        QDir(path(folder))
            .entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    for (const QFileInfo &info : infos) {
        const Entry::Kind kind = info.isSymLink() ? Entry::Link
                                 : info.isDir()   ? Entry::Folder
                                                  : Entry::File;
        entries.insert(info.fileName(), {kind, info.size()});
    }
    return entries;
}

std::optional<QByteArray> FolderDestination::read(const QString &name)
{
    if (!QFile::exists(path(name)))
        return {};
    return Disk::read(path(name));
}

std::optional<QDateTime> FolderDestination::modified(const QString &name)
{
    const QFileInfo info(path(name));
    if (!info.exists())
        return {};
    return info.lastModified();
}

QString FolderDestination::target(const QString &link)
{
    return nameBelow(QFileInfo(m_folder).canonicalFilePath(),
                     QFileInfo(path(link)).canonicalFilePath());
}

bool FolderDestination::isWhole(const QString &name, const QByteArray &sum,
                                const std::function<void(qint64)> &read)
{
    return fileSum(path(name), read) == sum;
}

void FolderDestination::makeFolder(const QString &name)
{
    Disk::makeFolder(path(name));
}

void FolderDestination::link(const QString &existing, const QString &name)
{
    Disk::tryLink(path(existing), path(name));
}

void FolderDestination::send(const QString &source, const QString &name, const QByteArray &sum,
                             const std::function<void(qint64)> &sent)
{
    const auto copied = [&sent](QByteArrayView piece) { sent(piece.size()); };
    if (Disk::copy(source, path(name), copied) != sum)
        throw changedSincePrepared(source);
}

void FolderDestination::write(const QString &name, const QByteArray &content)
{
    Disk::write(path(name), content);
}

void FolderDestination::replace(const QString &source, const QString &name)
{
    Disk::write(path(name), Disk::read(source));
    QFile file(path(name));
    if (file.open(QIODevice::ReadWrite))
        file.setFileTime(QFileInfo(source).lastModified(), QFileDevice::FileModificationTime);
}

void FolderDestination::pointTo(const QString &name, const QString &target)
{
    Disk::pointTo(path(name), target);
}

void FolderDestination::rename(const QString &from, const QString &to)
{
    Disk::rename(path(from), path(to));
}

void FolderDestination::removeFile(const QString &name)
{
    checkRemovable(name);
    Disk::removeTree(path(name));
}

void FolderDestination::removeEmptyFolder(const QString &name)
{
    checkRemovable(name);
    Disk::removeEmptyFolder(path(name));
}

void FolderDestination::removeTree(const QString &name)
{
    checkRemovable(name);
    Disk::removeTree(path(name));
}

void FolderDestination::flush(const QString &folder)
{
    Disk::flush(path(folder));
}
