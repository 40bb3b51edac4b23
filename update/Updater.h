#pragma once

#include <QJsonArray>
#include <QObject>
#include <QString>

#include <memory>

class QFile;
class QNetworkAccessManager;
class QNetworkReply;
template <typename T> class QFutureWatcher;

/// Compares the installed game with the server's manifest. The verification ends the run: the
/// download queue that could fetch the differing files is primed but switched off.
///
/// Owned by the main window; lives on the GUI thread. Only the verification task runs on the global
/// thread pool, and it posts its progress here: the pool must be idle before an Updater goes.
class Updater : public QObject
{
    Q_OBJECT

public:
    explicit Updater(QObject *parent);
    ~Updater() override;

    /// Fetches the manifest and verifies the game folder. Every run ends in one finished(); each
    /// call starts a run of its own.
    void checkForUpdates();

    /// Verifies `files` (manifest entries) below `gamePath` on a pool thread and returns at once.
    /// A verification that is still running goes on, but its result is dropped.
    void checkFilesInBackground(const QJsonArray &files, const QString &gamePath);

    /// Fetches the next of the files that differed, or ends the queue. Nothing in the start-up
    /// chain calls it.
    void downloadNextFile();

    /// Lower-case hexadecimal SHA-256 of a file; null when it cannot be opened. Any thread.
    static QString calculateFileHash(const QString &path);

    /// Lets running verifications end at once, without regard to their result. For the end of the
    /// process: it cannot be taken back. Any thread.
    static void abandonVerifications();

signals:
    /// `percent` runs from 0 to 100.
    void progressChanged(int percent, const QString &message);

    /// The end of a run. An unreachable server counts as a success: one can play offline.
    void finished(bool success, const QString &message);

private slots:
    void onVersionCheckFinished(QNetworkReply *reply);
    void onFileDownloadProgress(qint64 received, qint64 total);
    void onFileDownloadFinished(QNetworkReply *reply);
    void onHashCheckFinished();

private:
    QNetworkAccessManager *m_networkManager = nullptr;
    QJsonArray m_filesToUpdate;
    int m_currentIndex = 0;
    int m_totalFiles = 0;
    QString m_currentFile;
    std::unique_ptr<QFile> m_downloadFile;
    QFutureWatcher<QJsonArray> *m_hashWatcher = nullptr;
};
