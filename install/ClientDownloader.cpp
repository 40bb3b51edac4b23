#include "install/ClientDownloader.h"

#include "config/BuildSettings.h"
#include "config/Config.h"
#include "config/GameFolder.h"
#include "config/ProcessLock.h"
#include "install/ArchiveUnpacker.h"
#include "net/Transfer.h"

#include <QDir>
#include <QFile>
#include <QLockFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kArchivePath = "client/DofusClient.zip"_L1;
constexpr auto kArchiveName = "/DofusClient.zip"_L1;
constexpr auto kLockName = "/.DofusClient.zip.lock"_L1;
constexpr auto kMarker = "/DofusInvoker.swf"_L1;

const auto kConnecting = u"Connexion au serveur..."_s;
// The printf-style marks reach the user as they stand: they are no placeholders of QString::arg.
const auto kDownloadOfKnownSize = u"Téléchargement du client: %.1f / %.1f MB"_s;
const auto kDownloadOfUnknownSize = u"Téléchargement du client: %.1f MB"_s;
const auto kDownloadDone = u"Téléchargement terminé"_s;
const auto kCannotCreateFile = u"Erreur: Impossible de créer le fichier %1"_s;
const auto kDownloadFailed = u"Erreur de téléchargement: %1"_s;
const auto kExtracting = u"Extraction du client en cours..."_s;
const auto kExtractionFailed = u"Erreur d'extraction: %1"_s;
const auto kClientMissing = u"Erreur: Le client n'a pas été trouvé après extraction"_s;
const auto kInstallationDone = u"Installation terminée !"_s;
const auto kClientInstalled = u"Client installé avec succès !"_s;

} // namespace

ClientDownloader::ClientDownloader(QObject *parent)
    : QObject(parent)
    , m_networkManager(new QNetworkAccessManager(this))
{
}

ClientDownloader::~ClientDownloader() = default;

void ClientDownloader::startDownload()
{
    if (m_reply)
        return;

    QDir().mkpath(Config::instance().dofusPath());
    if (!lockGameFolder()) {
        emit downloadFinished(false, kCannotCreateFile.arg(zipPath()));
        return;
    }
    m_zipFile = std::make_unique<QFile>(zipPath());
    if (!m_zipFile->open(QIODevice::WriteOnly)) {
        m_zipFile.reset();
        m_folderLock.reset();
        emit downloadFinished(false, kCannotCreateFile.arg(zipPath()));
        return;
    }
    emit progressChanged(0, kConnecting);
    if (!m_zipFile || m_reply)
        return; // cancelled from within a slot, or started anew

    QNetworkRequest request(QUrl(BuildSettings::serverBaseUrl() + kArchivePath));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         int{QNetworkRequest::NoLessSafeRedirectPolicy});
    m_reply = m_networkManager->get(request);
    Transfer::boundMemory(m_reply);
    connect(m_reply, &QNetworkReply::downloadProgress, this, &ClientDownloader::onDownloadProgress);
    connect(m_reply, &QNetworkReply::finished, this, &ClientDownloader::onDownloadFinished);
    connect(m_reply, &QNetworkReply::readyRead, m_reply, [this] {
        if (m_zipFile && m_reply)
            m_zipFile->write(m_reply->readAll());
    });
}

void ClientDownloader::onDownloadProgress(qint64 received, qint64 total)
{
    if (total <= 0) {
        emit progressChanged(-1, kDownloadOfUnknownSize.arg(Transfer::megabytes(received)));
        return;
    }

    m_totalBytes = total;
    const QString message =
        kDownloadOfKnownSize.arg(Transfer::megabytes(received)).arg(Transfer::megabytes(total));
    emit progressChanged(Transfer::percent(received, total), message);
}

void ClientDownloader::onDownloadFinished()
{
    if (!m_reply)
        return;

    m_zipFile->close();
    if (m_reply->error() != QNetworkReply::NoError) {
        const QString errorText = m_reply->errorString();
        dropTransfer();
        emit downloadFinished(false, kDownloadFailed.arg(errorText));
        return;
    }

    m_reply->deleteLater();
    m_reply = nullptr;
    m_zipFile.reset();
    emit downloadFinished(true, kDownloadDone);
    startExtraction();
}

void ClientDownloader::startExtraction()
{
    emit extractionStarted();
    emit progressChanged(-1, kExtracting);

    const UnpackCommand command = unpackCommand(zipPath(), Config::instance().dofusPath());
    m_process = new QProcess(this);
    connect(m_process, &QProcess::finished, this, &ClientDownloader::onExtractionFinished);
    m_process->setProcessEnvironment(command.environment);
    m_process->start(command.program, command.arguments, QIODevice::ReadWrite);
    // An unpacker that asks what to do, as unzip does on a full disk, must not wait for an answer.
    m_process->closeWriteChannel();
}

void ClientDownloader::onExtractionFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    QFile::remove(zipPath());
    m_folderLock.reset();
    QString program;
    QString errorText;
    if (m_process) { // it may have been another one's end that was reported before
        program = m_process->program();
        errorText = QString::fromUtf8(m_process->readAllStandardError());
        m_process->disconnect(this);
        m_process->deleteLater();
        m_process = nullptr;
    }

    if (!hasUnpacked(program, exitCode, exitStatus)) {
        emit extractionFinished(false, kExtractionFailed.arg(errorText));
        return;
    }
    if (!isClientInstalled()) {
        emit extractionFinished(false, kClientMissing);
        return;
    }
    emit progressChanged(100, kInstallationDone);
    emit extractionFinished(true, kClientInstalled);
}

bool ClientDownloader::isClientInstalled()
{
    const QString gamePath = Config::instance().dofusPath();
    return QFile::exists(gamePath + kMarker) ||
           QFile::exists(gamePath + GameFolder::kClientSubfolder + kMarker);
}

QString ClientDownloader::zipPath()
{
    return Config::instance().dofusPath() + kArchiveName;
}

QString ClientDownloader::installPath()
{
    return Config::instance().dofusPath();
}

void ClientDownloader::cancel()
{
    QNetworkReply *const reply = m_reply;
    // Delivers a last progress and finished() before it returns, so that onDownloadFinished() drops
    // the transfer, and a slot may start another one. A reply that was at its end already stays as
    // it is, and so does one whose last progress led here from within its abort().
    if (reply)
        reply->abort();
    const bool isBeingAborted = reply && reply->error() == QNetworkReply::OperationCanceledError;
    if (m_reply == reply && !isBeingAborted)
        dropTransfer();
    if (m_process) {
        // Its end comes later, when the pointer is already cleared, and is of no interest then.
        m_process->disconnect(this);
        m_process->kill();
        m_process->deleteLater();
        m_process = nullptr;
    }
}

void ClientDownloader::dropTransfer()
{
    if (m_reply) {
        m_reply->disconnect(this);
        m_reply->deleteLater();
        m_reply = nullptr;
    }
    if (m_zipFile) {
        m_zipFile->remove();
        m_zipFile.reset();
    }
    m_folderLock.reset();
}

/// False when another launcher is installing into the same folder. Where no lock can be made for
/// another reason, opening the archive decides.
bool ClientDownloader::lockGameFolder()
{
    m_folderLock.reset(); // an extraction that is still running may hold it
    auto lock = std::make_unique<QLockFile>(Config::instance().dofusPath() + kLockName);
    if (ProcessLock::take(*lock)) {
        m_folderLock = std::move(lock);
        return true;
    }
    return lock->error() != QLockFile::LockFailedError;
}
