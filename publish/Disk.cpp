#include "publish/Disk.h"

#include "publish/FaultPoints.h"
#include "publish/Interruption.h"
#include "publish/Outcome.h"
#include "publish/Sha256Sum.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStorageInfo>
#include <QTemporaryFile>

#include <algorithm>
#include <filesystem>
#include <system_error>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#else
#include <QDeadlineTimer>

#include <chrono>
#include <thread>
#endif

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 kMegabyte = qint64{1024} * 1024;
#ifndef Q_OS_UNIX
constexpr std::chrono::seconds kRenameWithin{2};
constexpr std::chrono::milliseconds kRenameEvery{50};
#endif

std::filesystem::path native(const QString &path)
{
    return path.toStdU16String();
}

Problem failed(const QString &what, const QString &path, const QString &reason)
{
    return {Outcome::Disk, u"%1 : %2 (%3)."_s.arg(what, path, reason)};
}

void check(const std::error_code &error, const QString &what, const QString &path)
{
    if (error)
        throw failed(what, path, QString::fromStdString(error.message()));
}

#ifdef Q_OS_UNIX

/// Not by way of UTF-16, which the standard library refuses for names in another encoding.
QString decoded(const std::filesystem::path &path)
{
    return QFile::decodeName(QByteArray::fromStdString(path.string()));
}

/// What is only taken for a folder by the standard library.
bool isLinkToFolder(const QString &)
{
    return false;
}

std::error_code renamed(const QString &from, const QString &to)
{
    std::error_code error;
    std::filesystem::rename(native(from), native(to), error);
    return error;
}

/// Returns what keeps the bytes from being there.
QString allocate(QFile &file, qint64 bytes)
{
    // Those alone count that no limit of the system's keeps from being there.
    const int error = bytes > 0 ? ::posix_fallocate(file.handle(), 0, bytes) : 0;
    return error == 0 ? QString() : qt_error_string(error);
}

#else

QString decoded(const std::filesystem::path &path)
{
    return QString::fromStdU16String(path.generic_u16string());
}

bool isLinkToFolder(const QString &path)
{
    const QFileInfo info(path);
    return info.isSymLink() || info.isJunction();
}

/// A virus scanner may hold what was just written for a moment.
std::error_code renamed(const QString &from, const QString &to)
{
    QDeadlineTimer patience(kRenameWithin);
    for (;;) {
        std::error_code error;
        std::filesystem::rename(native(from), native(to), error);
        if (!error || patience.hasExpired())
            return error;
        std::this_thread::sleep_for(kRenameEvery);
    }
}

QString allocate(QFile &file, qint64 bytes)
{
    return file.resize(bytes) ? QString() : file.errorString();
}

#endif

QList<Disk::Entry> entriesOf(const QString &folder)
{
    const auto what = u"Lecture impossible"_s;
    QList<Disk::Entry> entries;
    std::error_code error;
    std::filesystem::directory_iterator at(native(folder), error);
    check(error, what, folder);
    while (at != std::filesystem::directory_iterator()) {
        const QString path = decoded(at->path());
        const std::filesystem::file_status status = at->symlink_status(error);
        check(error, what, path);
        entries.append({path, std::filesystem::is_directory(status) && !isLinkToFolder(path),
                        std::filesystem::is_regular_file(status)});
        at.increment(error);
        check(error, what, folder);
    }
    return entries;
}

void writeAll(QFileDevice &file, const char *bytes, qint64 size)
{
    // A disk that gets full takes a part without complaint; the rest meets the reason.
    for (qint64 done = 0; done < size;) {
        const qint64 written = file.write(bytes + done, size - done);
        if (written <= 0)
            throw failed(u"Écriture impossible"_s, file.fileName(), file.errorString());
        done += written;
    }
}

} // namespace

void Disk::walk(const QString &folder, const std::function<bool(const Entry &)> &visit)
{
    const QList<Entry> entries = entriesOf(folder);
    for (const Entry &entry : entries) {
        if (visit(entry) && entry.isFolder)
            walk(entry.path, visit);
    }
}

QByteArray Disk::read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw failed(u"Lecture impossible"_s, path, file.errorString());
    return file.readAll();
}

void Disk::tryTouch(const QString &path)
{
    PublishFaultPoints::next();
    std::error_code error;
    std::filesystem::last_write_time(native(path), std::filesystem::file_time_type::clock::now(),
                                     error);
}

void Disk::makeFolder(const QString &path)
{
    PublishFaultPoints::next();
    std::error_code error;
    std::filesystem::create_directories(native(path), error);
    check(error, u"Dossier impossible à créer"_s, path);
}

void Disk::write(const QString &path, const QByteArray &content)
{
    PublishFaultPoints::next();
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw failed(u"Écriture impossible"_s, path, file.errorString());
    writeAll(file, content.constData(), content.size());
    // The web server is another user; a file that comes from QSaveFile is for its owner alone.
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);
    PublishFaultPoints::next();
    if (!file.commit())
        throw failed(u"Écriture impossible"_s, path, file.errorString());
}

void Disk::write(const QString &path, const QJsonDocument &document)
{
    write(path, document.toJson());
}

bool Disk::tryLink(const QString &existing, const QString &path)
{
    PublishFaultPoints::next();
    std::error_code error;
    std::filesystem::create_hard_link(native(existing), native(path), error);
    return !error;
}

void Disk::link(const QString &existing, const QString &path)
{
    if (tryLink(existing, path))
        return;
    std::error_code error;
    std::filesystem::copy_file(native(existing), native(path), error);
    check(error, u"Copie impossible"_s, path);
    // As a link would have it: see PreparedClient.
    std::filesystem::last_write_time(
        native(path), std::filesystem::last_write_time(native(existing), error), error);
}

void Disk::rename(const QString &from, const QString &to)
{
    PublishFaultPoints::next();
    check(renamed(from, to), u"Renommage impossible"_s, to);
}

void Disk::removeEmptyFolder(const QString &path)
{
    PublishFaultPoints::next();
    QDir().rmdir(path);
}

void Disk::removeTree(const QString &path)
{
    std::error_code error;
    const std::filesystem::file_status status =
        std::filesystem::symlink_status(native(path), error);
    if (std::filesystem::is_directory(status) && !isLinkToFolder(path)) {
        const QList<Entry> entries = entriesOf(path);
        for (const Entry &entry : entries)
            removeTree(entry.path);
    }
    PublishFaultPoints::next();
    std::filesystem::remove(native(path), error);
    check(error, u"Suppression impossible"_s, path);
}

QByteArray Disk::copy(const QString &from, const QString &to,
                      const std::function<void(QByteArrayView)> &copied)
{
    QFile source(from);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        throw failed(u"Lecture impossible"_s, from, source.errorString());
    PublishFaultPoints::next();
    QFile target(to);
    if (!target.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        throw failed(u"Écriture impossible"_s, to, target.errorString());

    Sha256Sum sum;
    QByteArray buffer(std::clamp(source.size(), qint64{1}, kPiece), Qt::Uninitialized);
    for (;;) {
        Interruption::check();
        const qint64 count = source.read(buffer.data(), buffer.size());
        if (count < 0)
            throw failed(u"Lecture impossible"_s, from, source.errorString());
        if (count == 0)
            return sum.result();
        const QByteArrayView piece = QByteArrayView(buffer).first(count);
        sum.add(piece);
        PublishFaultPoints::next();
        writeAll(target, piece.data(), piece.size());
        copied(piece);
    }
}

void Disk::checkRoom(const QString &folder, qint64 bytes)
{
    // Told first, since a trial of that size would take from others what is left.
    const qint64 free = QStorageInfo(folder).bytesAvailable();
    if (free < bytes) {
        throw Problem{Outcome::Disk, u"Il faut %1 Mo dans %2, où il n'y en a que %3 de libres."_s
                                         .arg(bytes / kMegabyte + 1)
                                         .arg(folder)
                                         .arg(free / kMegabyte)};
    }
    QTemporaryFile trial(folder + u"/place-XXXXXX"_s);
    if (!trial.open())
        throw failed(u"Écriture impossible"_s, folder, trial.errorString());
    if (const QString reason = allocate(trial, bytes); !reason.isEmpty())
        throw failed(u"Écriture impossible"_s, folder, reason);
}

#ifdef Q_OS_UNIX

QStringList Disk::closedFolders(const QString &folder)
{
    QStringList closed;
    std::error_code error;
    std::filesystem::path at = std::filesystem::canonical(native(folder), error);
    for (; at != at.parent_path(); at = at.parent_path()) {
        const std::filesystem::perms rights = std::filesystem::status(at, error).permissions();
        if (!error &&
            (rights & std::filesystem::perms::others_exec) == std::filesystem::perms::none)
            closed.prepend(decoded(at));
    }
    return closed;
}

void Disk::pointTo(const QString &path, const QString &target)
{
    const QString temporary = path + u".nouveau"_s;
    std::error_code error;
    std::filesystem::remove(native(temporary), error);
    PublishFaultPoints::next();
    std::filesystem::create_directory_symlink(native(target), native(temporary), error);
    check(error, u"Lien impossible à créer"_s, temporary);
    rename(temporary, path);
}

QString Disk::targetName(const QString &path)
{
    std::error_code error;
    const std::filesystem::path target = std::filesystem::read_symlink(native(path), error);
    return error ? QString() : QString::fromStdU16String(target.filename().u16string());
}

bool Disk::wouldTakeOver(const QString &folder)
{
    const QFileInfo info(folder);
    return ::geteuid() == 0 && info.exists() && info.ownerId() != 0;
}

void Disk::letOthersRead()
{
    // What the shell allows the group stays allowed.
    const mode_t before = ::umask(S_IWGRP | S_IWOTH);
    ::umask((before & S_IWGRP) | S_IWOTH);
}

void Disk::flush(const QString &folder)
{
    const int descriptor = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY);
    if (descriptor < 0)
        throw failed(u"Lecture impossible"_s, folder, qt_error_string());
    const bool isFlushed = ::syncfs(descriptor) == 0;
    const QString reason = qt_error_string();
    ::close(descriptor);
    if (!isFlushed)
        throw failed(u"Écriture impossible"_s, folder, reason);
}

#endif
