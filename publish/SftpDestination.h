#pragma once

#include "publish/Destination.h"
#include "publish/SftpSession.h"

#include <QTemporaryDir>

/// A folder of another machine, over sftp. No program has to be there but the server.
class SftpDestination : public Destination
{
public:
    struct Place
    {
        QString host; ///< with the user's name, as `sftp` takes it
        int port;     ///< 0: as it is configured
        QString folder;
    };
    SftpDestination(const Place &place, const QString &scratch, bool isKnown);

    void checkSendable(const QString &source) const override;
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
    QStringList change(const QString &command);
    void put(const QString &options, const QString &source, const QString &name,
             const std::function<void(qint64)> &moved);
    bool fetch(
        const QString &name, const std::function<void(qint64)> &moved = [](qint64) {});
    qint64 begunOf(const QString &source);
    QString fetched() const { return m_temporary.filePath(QStringLiteral("recu")); }

    QTemporaryDir m_temporary;
    SftpSession m_session;
    QString m_folder;          ///< as the server calls it
    bool m_mayHavePart = true; ///< of a run that was broken off
};
