#include "update/Updater.h"

#include "config/BuildSettings.h"
#include "config/Config.h"
#include "net/Transfer.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QtConcurrentRun>
#include <QThreadPool>

#include <atomic>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kManifestUrl = u"%1version.json"_s;
const auto kFileUrl = u"%1files/%2"_s;
constexpr auto kTemporarySuffix = ".tmp"_L1;

const auto kReadyToPlay = u"Prêt à jouer !"_s;
const auto kChecking = u"Vérification des mises à jour..."_s;
const auto kOffline = u"Mode hors ligne"_s;
const auto kOfflineDetails = u"Mode hors ligne - Impossible de vérifier les mises à jour"_s;
const auto kBadManifest = u"Erreur: Format de version invalide"_s;
const auto kVerifying = u"Vérification de %1 fichiers..."_s;
const auto kFileVerified = u"Vérification des fichiers: %1/%2"_s;
const auto kFilesDiffer = u"%1 fichier(s) à mettre à jour (désactivé)"_s;
const auto kUpToDate = u"Tous les fichiers sont à jour"_s;
const auto kDownloading = u"Téléchargement: %1"_s;
// The printf-style marks reach the user as they stand: they are no placeholders of QString::arg.
const auto kDownloadingWithSize = u"Téléchargement: %1 (%.2f / %.2f MB)"_s;
const auto kCannotWrite = u"Erreur: Impossible d'écrire %1"_s;
const auto kDownloadFailed = u"Erreur de téléchargement: %1"_s;
const auto kDownloadsDone = u"Mise à jour terminée !"_s;

std::atomic_bool verificationsAbandoned = false;

/// A file that comes to its end early when the verifications are abandoned: hashing a file of
/// several GB takes longer than anybody waits for a closed window.
class AbandonableFile : public QFile
{
public:
    using QFile::QFile;

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        return verificationsAbandoned ? -1 : QFile::readData(data, maxSize);
    }
};

QString updatesBaseUrl()
{
    return BuildSettings::serverBaseUrl() + "updates/"_L1;
}

QString targetPath(const QString &name)
{
    return Config::instance().dofusPath() + u'/' + name;
}

} // namespace

Updater::Updater(QObject *parent)
    : QObject(parent)
    , m_networkManager(new QNetworkAccessManager(this))
{
}

Updater::~Updater() = default;

void Updater::checkForUpdates()
{
    emit progressChanged(0, kChecking);

    const QNetworkRequest request(QUrl(kManifestUrl.arg(updatesBaseUrl())));
    QNetworkReply *reply = m_networkManager->get(request);
    connect(reply, &QNetworkReply::finished, reply,
            [this, reply] { onVersionCheckFinished(reply); });
}

void Updater::onVersionCheckFinished(QNetworkReply *reply)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        emit progressChanged(100, kOfflineDetails);
        emit finished(true, kOffline);
        return;
    }

    const QJsonDocument document = QJsonDocument::fromJson(reply->readAll());
    if (!document.isObject()) {
        emit finished(false, kBadManifest);
        return;
    }

    QJsonObject manifest = document.object();
    const QJsonArray files = manifest["files"_L1].toArray();
    checkFilesInBackground(files, Config::instance().dofusPath());
}

void Updater::checkFilesInBackground(const QJsonArray &files, const QString &gamePath)
{
    emit progressChanged(0, kVerifying.arg(files.size()));

    delete m_hashWatcher;
    m_hashWatcher = new QFutureWatcher<QJsonArray>(this);
    connect(m_hashWatcher, &QFutureWatcher<QJsonArray>::finished, this,
            &Updater::onHashCheckFinished);

    const auto verify = [this, files, gamePath] {
        QJsonArray differing;
        const int total = static_cast<int>(files.size());
        for (int i = 0; i < total && !verificationsAbandoned; ++i) {
            const QJsonObject entry = files.at(i).toObject();
            const QString name = entry.value("name"_L1).toString();
            const QString hash = entry.value("hash"_L1).toString();
            if (calculateFileHash(gamePath + u'/' + name) != hash)
                differing.append(entry);

            const int current = i + 1;
            QMetaObject::invokeMethod(
                this,
                [this, current, total] {
                    emit progressChanged(static_cast<int>(qint64{current} * 100 / total),
                                         kFileVerified.arg(current).arg(total));
                },
                Qt::QueuedConnection);
        }
        return differing;
    };
    m_hashWatcher->setFuture(QtConcurrent::run(QThreadPool::globalInstance(), verify));
}

QString Updater::calculateFileHash(const QString &path)
{
    AbandonableFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();

    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&file);
    file.close();
    return QString::fromUtf8(hash.result().toHex());
}

void Updater::abandonVerifications()
{
    verificationsAbandoned = true;
}

void Updater::onHashCheckFinished()
{
    m_filesToUpdate = m_hashWatcher->result();
    m_currentIndex = 0;
    m_totalFiles = static_cast<int>(m_filesToUpdate.size());

    // downloadNextFile() is not called: updating is switched off, and the text says so.
    if (m_totalFiles != 0)
        emit progressChanged(100, kFilesDiffer.arg(m_totalFiles));
    else
        emit progressChanged(100, kUpToDate);
    emit finished(true, kReadyToPlay);
}

void Updater::downloadNextFile()
{
    if (m_currentIndex >= m_totalFiles) {
        emit progressChanged(100, kDownloadsDone);
        emit finished(true, kReadyToPlay);
        return;
    }

    m_currentFile = m_filesToUpdate.at(m_currentIndex).toObject().value("name"_L1).toString();
    const QUrl url(kFileUrl.arg(updatesBaseUrl()).arg(m_currentFile));
    emit progressChanged(m_currentIndex * 100 / m_totalFiles, kDownloading.arg(m_currentFile));

    const QString target = targetPath(m_currentFile);
    QDir().mkpath(QFileInfo(target).absolutePath());
    m_downloadFile = std::make_unique<QFile>(target + kTemporarySuffix);
    if (!m_downloadFile->open(QIODevice::WriteOnly)) {
        emit finished(false, kCannotWrite.arg(m_currentFile));
        return;
    }

    QNetworkReply *reply = m_networkManager->get(QNetworkRequest(url));
    Transfer::boundMemory(reply);
    connect(reply, &QNetworkReply::downloadProgress, this, &Updater::onFileDownloadProgress);
    connect(reply, &QNetworkReply::finished, reply,
            [this, reply] { onFileDownloadFinished(reply); });
    connect(reply, &QNetworkReply::readyRead, reply, [this, reply] {
        // Read in any case: a reply whose buffer is full and stays so would never end.
        const QByteArray chunk = reply->readAll();
        if (m_downloadFile)
            m_downloadFile->write(chunk);
    });
}

void Updater::onFileDownloadProgress(qint64 received, qint64 total)
{
    // A verification that ends during a transfer may have emptied the queue.
    if (total <= 0 || m_totalFiles == 0)
        return;

    const int percent = (Transfer::percent(received, total) + m_currentIndex * 100) / m_totalFiles;
    const QString message = kDownloadingWithSize.arg(m_currentFile)
                                .arg(Transfer::megabytes(received))
                                .arg(Transfer::megabytes(total));
    emit progressChanged(percent, message);
}

void Updater::onFileDownloadFinished(QNetworkReply *reply)
{
    reply->deleteLater();
    if (m_downloadFile)
        m_downloadFile->close();

    const QString target = targetPath(m_currentFile);
    const QString temporary = target + kTemporarySuffix;
    if (reply->error() != QNetworkReply::NoError) {
        QFile::remove(temporary);
        m_downloadFile.reset();
        // The file's name, not the network's error text: a player can tell which file it was.
        emit finished(false, kDownloadFailed.arg(m_currentFile));
        return;
    }

    QFile::remove(target);
    QFile::rename(temporary, target);
    m_downloadFile.reset();
    ++m_currentIndex;
    downloadNextFile();
}
