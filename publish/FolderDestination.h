#pragma once

#include "publish/Destination.h"

/// A folder of this machine, or one that it has mounted.
class FolderDestination : public Destination
{
public:
    FolderDestination(const QString &folder, bool isKnown);

    Entries entries(const QString &folder) override;
    std::optional<QByteArray> read(const QString &name) override;
    std::optional<QDateTime> modified(const QString &name) override;
    QString target(const QString &link) override;
    bool isWhole(const QString &name, const QByteArray &sum,
                 const std::function<void(qint64)> &read) override;
    void makeFolder(const QString &name) override;
    void link(const QString &existing, const QString &name) override;
    void send(const QString &source, const QString &name, const QByteArray &sum,
              const std::function<void(qint64)> &sent) override;
    void write(const QString &name, const QByteArray &content) override;
    void replace(const QString &source, const QString &name) override;
    void pointTo(const QString &name, const QString &target) override;
    void rename(const QString &from, const QString &to) override;
    void removeFile(const QString &name) override;
    void removeEmptyFolder(const QString &name) override;
    void removeTree(const QString &name) override;
    void flush(const QString &folder) override;

private:
    QString path(const QString &name) const { return m_folder + u'/' + name; }

    QString m_folder;
};
