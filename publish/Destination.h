#pragma once

#include "publish/Outcome.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

/// A folder that a site is sent to, here or on another machine. Names are relative to it, with "/"
/// between folders. Everything throws a Problem when it fails.
class Destination
{
public:
    struct Entry
    {
        enum Kind { File, Folder, Link } kind;
        qint64 size;
    };
    using Entries = QHash<QString, Entry>;

    Destination() = default;
    virtual ~Destination() = default;
    Q_DISABLE_COPY_MOVE(Destination)

    /// "sftp://user@host/folder", or a folder of this machine, in full; throws a Problem
    /// (Outcome::Refused) for anything else.
    static QString checkedAddress(const QString &address);
    static bool isFolder(const QString &checkedAddress);
    /// The folder can be reached then. It is made where it is not there, unless it `isKnown` to
    /// have been: it may be a disk that is not mounted. What has to be looked at here is fetched
    /// into `scratch`, a folder of this machine.
    static std::unique_ptr<Destination> open(const QString &checkedAddress, const QString &scratch,
                                             bool isKnown);

    /// Throws a Problem (Outcome::Refused) where a file of this machine can have no way there.
    virtual void checkSendable(const QString &source) const { Q_UNUSED(source) }

    /// What lies in a folder; nothing where there is none.
    virtual Entries entries(const QString &folder) = 0;
    /// Nothing where there is no such file.
    virtual std::optional<QByteArray> read(const QString &name) = 0;
    virtual std::optional<QDateTime> modified(const QString &name) = 0;
    /// What a symbolic link to a folder leads to: its name here, or its path where it lies
    /// elsewhere; empty where it leads nowhere.
    virtual QString target(const QString &link) = 0;
    /// Whether a file that was sent has this sum, as far as that can be told. `read` is told how
    /// many bytes were read for it.
    virtual bool isWhole(const QString &name, const QByteArray &sum,
                         const std::function<void(qint64)> &read) = 0;

    /// One that exists already is fine.
    virtual void makeFolder(const QString &name) = 0;
    /// A second name for the same bytes. Where that cannot be, nothing.
    virtual void link(const QString &existing, const QString &name) = 0;
    /// The file is whole once this returns; `sent` is told how many bytes each piece had.
    virtual void send(const QString &source, const QString &name, const QByteArray &sum,
                      const std::function<void(qint64)> &sent) = 0;
    /// Readers see the old content or the new one, never a part.
    virtual void write(const QString &name, const QByteArray &content) = 0;
    /// The same, for a file of this machine; its time is kept.
    virtual void replace(const QString &source, const QString &name) = 0;
    /// As Disk::pointTo().
    virtual void pointTo(const QString &name, const QString &target) = 0;
    virtual void rename(const QString &from, const QString &to) = 0;
    virtual void removeFile(const QString &name) = 0;
    /// One that has something in it stays.
    virtual void removeEmptyFolder(const QString &name) = 0;
    /// One that does not exist is fine.
    virtual void removeTree(const QString &name) = 0;
    /// What was sent outlasts a power cut then.
    virtual void flush(const QString &folder) = 0;

    /// What is said of a destination that was there before.
    static Problem gone(const QString &place);

protected:
    static Problem changedSincePrepared(const QString &source);
    /// What is not below `folder` stays as it is.
    static QString nameBelow(const QString &folder, const QString &path);
    /// An empty name would mean the whole destination, or the other machine's root.
    static void checkRemovable(const QString &name);
};
