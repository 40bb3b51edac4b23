#pragma once

#include <QObject>
#include <QProcess>
#include <QString>

#include <memory>

class QFile;
class QLockFile;
class QNetworkAccessManager;
class QNetworkReply;

/// Installs the game client: downloads its archive into the game folder, has it unpacked there by
/// another program and looks for the file that marks an installed client. Owned by the main window;
/// GUI thread.
class ClientDownloader : public QObject
{
    Q_OBJECT

public:
    explicit ClientDownloader(QObject *parent);
    ~ClientDownloader() override;

    /// Downloads the archive, then goes on with startExtraction(). Does nothing while a download
    /// runs; fails while another launcher installs into the same folder.
    void startDownload();

    /// Unpacks the archive into the game folder. The archive is deleted afterwards in any case.
    void startExtraction();

    /// True when the client lies in the game folder or in its sub-folder of GameFolder.
    bool isClientInstalled();

    QString zipPath();
    QString installPath();

    /// Drops whatever is under way. A running download reports its failure before this returns. One
    /// that is complete, so that only its last reports are due, and a running extraction report
    /// nothing more.
    void cancel();

signals:
    /// `percent` runs from 0 to 100, or is -1 while the amount is unknown.
    void progressChanged(int percent, const QString &message);

    /// The end of the transfer; a success leads straight to extractionStarted().
    void downloadFinished(bool success, const QString &message);

    void extractionStarted();

    /// The end of the whole installation.
    void extractionFinished(bool success, const QString &message);

private slots:
    void onDownloadProgress(qint64 received, qint64 total);
    void onDownloadFinished();
    void onExtractionFinished(int exitCode, QProcess::ExitStatus exitStatus);

private:
    /// Forgets the reply, and the archive with its file; frees the game folder.
    void dropTransfer();
    bool lockGameFolder();

    QNetworkAccessManager *m_networkManager = nullptr;
    QNetworkReply *m_reply = nullptr;        // set while a transfer runs
    std::unique_ptr<QFile> m_zipFile;        // set while a transfer runs
    QProcess *m_process = nullptr;           // set while an extraction runs
    qint64 m_totalBytes = 0;                 // of the last report; nothing reads it yet
    std::unique_ptr<QLockFile> m_folderLock; // from a download's start to the extraction's end
};
