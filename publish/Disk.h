#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QJsonDocument>
#include <QString>
#include <QStringList>

#include <functional>

/// All changes that the tool makes on the disk, and looks at it that may not overlook anything.
/// Each throws a Problem (Outcome::Disk) when the system refuses it.
namespace Disk {

struct Entry
{
    QString path;
    bool isFolder = false; ///< links are neither
    bool isFile = false;
};
/// Shows `visit` everything below a folder, in no order. It tells whether a folder is to be
/// entered.
void walk(const QString &folder, const std::function<bool(const Entry &)> &visit);

/// Whether what is written there would belong to the system's administrator, and its owner could no
/// longer change it.
bool wouldTakeOver(const QString &folder);
/// From here on others may read what is written, the web server say, and enter new folders,
/// whatever the operator's shell wants of new files.
void letOthersRead();
/// The folders on the way to this one, and itself, that others cannot enter.
QStringList closedFolders(const QString &folder);

QByteArray read(const QString &path);
/// Has the file count as one that was just written to, where that can be.
void tryTouch(const QString &path);
/// With its parents; one that exists already is fine.
void makeFolder(const QString &path);
/// Readers see the old content or the new one, never a part.
void write(const QString &path, const QByteArray &content);
void write(const QString &path, const QJsonDocument &document);
/// A second name for the same bytes; a copy where the volume knows no such thing.
void link(const QString &existing, const QString &path);
/// The same without the copy: false where nothing was linked.
bool tryLink(const QString &existing, const QString &path);
/// Has `path` lead to `target`, in one step also where it leads elsewhere already.
void pointTo(const QString &path, const QString &target);
/// The last part of what was told to pointTo(); empty where nothing was.
QString targetName(const QString &path);
/// Whether pointTo() makes symbolic links, which web servers follow. On Windows that takes rights
/// which hardly anybody has: there it makes files that hold nothing but the target.
#ifdef Q_OS_WIN
inline constexpr bool kMakesLinks = false;
#else
inline constexpr bool kMakesLinks = true;
#endif
void rename(const QString &from, const QString &to);
/// One that has something in it stays.
void removeEmptyFolder(const QString &path);
/// Links in it are removed, not followed.
void removeTree(const QString &path);
/// The most that copy() shows at once, so the whole of a smaller file.
inline constexpr qint64 kPiece = qint64{512} * 1024;
/// Copies a file and returns the SHA-256 of what was copied, in lower-case hexadecimal. `copied` is
/// shown each piece.
QByteArray copy(const QString &from, const QString &to,
                const std::function<void(QByteArrayView)> &copied);
/// Throws a Problem where `bytes` more cannot be written in the folder. Nothing stays of the trial.
void checkRoom(const QString &folder, qint64 bytes);
/// Returns once everything below `folder` outlasts a power cut. It is asked once for a whole
/// generation, before that gets its number: until then nothing leads there, so that its files need
/// not be flushed one by one.
void flush(const QString &folder);

} // namespace Disk
