#pragma once

#include <QObject>
#include <QString>

#include <memory>

class QFile;
class QNetworkAccessManager;
class QNetworkReply;

/// Finds out whether a newer launcher is published and downloads its archive; the window then
/// hands it to the updater program. Owned by the main window; GUI thread.
class SelfUpdater : public QObject
{
    Q_OBJECT

public:
    explicit SelfUpdater(QObject *parent);
    ~SelfUpdater() override;

    /// Asks the server for its launcher version; updateCheckFinished() answers exactly once.
    void checkForUpdate();

    /// Downloads the archive that the last check named into the temporary folder, over an earlier
    /// one. One download at a time: the caller sees to it.
    void downloadUpdate();

    /// Compares dotted numbers from the left. A missing part counts as 0, and so does one that is
    /// not a whole 32-bit number.
    static bool isNewerVersion(const QString &candidate, const QString &current);

signals:
    /// Every failure reads as "no update", with empty texts. `required` is the server's word even
    /// when no update is available.
    void updateCheckFinished(bool updateAvailable, const QString &newVersion,
                             const QString &changelog, bool required);

    /// `percent` runs from 0 to 100, or is -1 while the size is unknown.
    void downloadProgress(int percent, const QString &message);

    /// The end of the download. A success is followed either by readyToInstall() or, when the
    /// updater program is missing, by a second, failed report.
    void downloadFinished(bool success, const QString &message);

    /// The archive is complete and the updater program is there.
    void readyToInstall(const QString &updaterPath, const QString &newLauncherPath);

private slots:
    void onVersionCheckFinished(QNetworkReply *reply);
    void onDownloadProgress(qint64 received, qint64 total);
    void onDownloadFinished(QNetworkReply *reply);

private:
    QString updaterExecutablePath() const;

    QNetworkAccessManager *m_networkManager = nullptr;
    std::unique_ptr<QFile> m_downloadFile; // set while a download runs
    QString m_latestVersion;
    QString m_downloadUrl;
    QString m_changelog;
    bool m_required = false;
    bool m_updateAvailable = false;
    QString m_archivePath;
};
