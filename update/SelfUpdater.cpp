#include "update/SelfUpdater.h"

#include "config/BuildSettings.h"
#include "net/Transfer.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStandardPaths>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kVersionUrl = u"%1api/launcher_version.json"_s;
constexpr auto kArchiveName = "/VeyraLauncher_update.zip"_L1;
constexpr auto kUpdaterName = "/LauncherUpdater.exe"_L1;

const auto kDownloadStarted = u"Téléchargement de la mise à jour..."_s;
const auto kDownloadOfUnknownSize = u"Téléchargement en cours..."_s;
// The printf-style marks reach the user as they stand: they are no placeholders of QString::arg.
const auto kDownloadOfKnownSize = u"Téléchargement: %.1f / %.1f MB"_s;
const auto kDownloadDone = u"Téléchargement terminé"_s;
const auto kInvalidUrl = u"URL de téléchargement invalide"_s;
const auto kCannotCreateFile = u"Impossible de créer le fichier temporaire"_s;
const auto kDownloadFailed = u"Erreur de téléchargement: %1"_s;
const auto kUpdaterMissing = u"Programme de mise à jour introuvable: "_s;

/// 0 for anything but a whole 32-bit number: a sign or none, then digits. QString::toInt() would
/// forgive blanks around it and whatever follows a NUL.
int versionPart(const QStringList &parts, qsizetype index)
{
    const QString part = parts.value(index);
    const bool hasSign = part.startsWith(u'+') || part.startsWith(u'-');
    const bool isNumber = std::all_of(part.cbegin() + (hasSign ? 1 : 0), part.cend(),
                                      [](QChar c) { return c >= u'0' && c <= u'9'; });
    return isNumber ? part.toInt() : 0;
}

} // namespace

SelfUpdater::SelfUpdater(QObject *parent)
    : QObject(parent)
    , m_networkManager(new QNetworkAccessManager(this))
{
}

SelfUpdater::~SelfUpdater() = default;

void SelfUpdater::checkForUpdate()
{
    const QNetworkRequest request(QUrl(kVersionUrl.arg(BuildSettings::serverBaseUrl())));
    QNetworkReply *reply = m_networkManager->get(request);
    connect(reply, &QNetworkReply::finished, reply,
            [this, reply] { onVersionCheckFinished(reply); });
}

void SelfUpdater::onVersionCheckFinished(QNetworkReply *reply)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        emit updateCheckFinished(false, QString(), QString(), false);
        return;
    }

    const QJsonDocument document = QJsonDocument::fromJson(reply->readAll());
    if (!document.isObject()) {
        emit updateCheckFinished(false, QString(), QString(), false);
        return;
    }

    const QJsonObject record = document.object();
    m_latestVersion = record.value("version"_L1).toString();
    m_downloadUrl = record.value("download_url"_L1).toString();
    m_changelog = record.value("changelog"_L1).toString();
    m_required = record.value("required"_L1).toBool(false);
    m_updateAvailable = isNewerVersion(m_latestVersion, BuildSettings::launcherVersion());
    emit updateCheckFinished(m_updateAvailable, m_latestVersion, m_changelog, m_required);
}

bool SelfUpdater::isNewerVersion(const QString &candidate, const QString &current)
{
    const QStringList candidateParts = candidate.split(u'.');
    const QStringList currentParts = current.split(u'.');

    const qsizetype count = std::max(candidateParts.size(), currentParts.size());
    for (qsizetype i = 0; i < count; ++i) {
        const int candidatePart = versionPart(candidateParts, i);
        const int currentPart = versionPart(currentParts, i);
        if (candidatePart != currentPart)
            return candidatePart > currentPart;
    }
    return false;
}

void SelfUpdater::downloadUpdate()
{
    if (m_downloadUrl.isEmpty()) {
        emit downloadFinished(false, kInvalidUrl);
        return;
    }
    emit downloadProgress(0, kDownloadStarted);

    m_archivePath = QStandardPaths::writableLocation(QStandardPaths::TempLocation) + kArchiveName;
    m_downloadFile = std::make_unique<QFile>(m_archivePath);
    if (!m_downloadFile->open(QIODevice::WriteOnly)) {
        m_downloadFile.reset();
        emit downloadFinished(false, kCannotCreateFile);
        return;
    }

    const QNetworkRequest request{QUrl(m_downloadUrl)};
    QNetworkReply *reply = m_networkManager->get(request);
    Transfer::boundMemory(reply);
    connect(reply, &QNetworkReply::downloadProgress, this, &SelfUpdater::onDownloadProgress);
    connect(reply, &QNetworkReply::readyRead, reply, [this, reply] {
        // Read in any case: a reply whose buffer is full and stays so would never end.
        const QByteArray chunk = reply->readAll();
        if (m_downloadFile)
            m_downloadFile->write(chunk);
    });
    connect(reply, &QNetworkReply::finished, reply, [this, reply] { onDownloadFinished(reply); });
}

void SelfUpdater::onDownloadProgress(qint64 received, qint64 total)
{
    if (total < 1) {
        emit downloadProgress(-1, kDownloadOfUnknownSize);
        return;
    }

    const QString message =
        kDownloadOfKnownSize.arg(Transfer::megabytes(received)).arg(Transfer::megabytes(total));
    emit downloadProgress(Transfer::percent(received, total), message);
}

void SelfUpdater::onDownloadFinished(QNetworkReply *reply)
{
    reply->deleteLater();
    if (m_downloadFile) {
        m_downloadFile->close();
        m_downloadFile.reset();
    }

    if (reply->error() != QNetworkReply::NoError) {
        QFile::remove(m_archivePath);
        emit downloadFinished(false, kDownloadFailed.arg(reply->errorString()));
        return;
    }
    emit downloadFinished(true, kDownloadDone);

    const QString updaterPath = updaterExecutablePath();
    if (!QFile::exists(updaterPath)) {
        emit downloadFinished(false, kUpdaterMissing + updaterPath);
        return;
    }
    emit readyToInstall(updaterPath, m_archivePath);
}

QString SelfUpdater::updaterExecutablePath() const
{
    return QCoreApplication::applicationDirPath() + kUpdaterName;
}
