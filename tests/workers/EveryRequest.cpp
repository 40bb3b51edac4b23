#include "tests/workers/EveryRequest.h"

#include "config/BuildSettings.h"
#include "config/Config.h"
#include "install/ClientDownloader.h"
#include "net/NewsFetcher.h"
#include "net/ServerChecker.h"
#include "tests/support/Files.h"
#include "tests/support/Introspection.h"
#include "tests/support/LauncherFiles.h"
#include "tests/support/SignalSequence.h"
#include "tests/support/Stragglers.h"
#include "update/SelfUpdater.h"
#include "update/Updater.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkProxy>
#include <QTest>
#include <QThreadPool>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kVersionPath = "/api/launcher_version.json";
constexpr auto kLauncherPath = "/new/launcher.zip";

const auto kReadyToPlay = u"finished(true, \"Prêt à jouer !\")"_s;
const auto kDownloaded = u"downloadFinished(true, \"Téléchargement terminé\")"_s;
const auto kDownloadFailed = u"downloadFinished(false, \"Erreur de téléchargement: %1\")"_s;

const QStringList kRedirectPolicy{
    u"attribute %1 = int 1"_s.arg(int(QNetworkRequest::RedirectPolicyAttribute))};

QByteArray versionRecord()
{
    return R"({"version": "1.0.1", "required": true, "download_url": ")" +
           QString(BuildSettings::serverBaseUrl()).chopped(1).toLatin1() + kLauncherPath + R"("})";
}

template <typename Type> WorkerRequest::Worker makeWorker(HttpServer &)
{
    return std::make_unique<Type>(nullptr);
}

/// Knows the address of the launcher's archive.
WorkerRequest::Worker makeInformedSelfUpdater(HttpServer &server)
{
    auto updater = std::make_unique<SelfUpdater>(nullptr);
    server.answer(kVersionPath, HttpAnswer::ok(versionRecord()));
    SignalSequence reports(updater.get());
    updater->checkForUpdate();
    const auto hasEnded = [&updater] { return updater->findChildren<QNetworkReply *>().isEmpty(); };
    if (!reports.waitFor(u"updateCheckFinished"_s) || !QTest::qWaitFor(hasEnded))
        qFatal("The preparing version check does not end");
    return updater;
}

/// Knows of one file that differs.
WorkerRequest::Worker makeUpdaterWithQueue(HttpServer &)
{
    auto updater = std::make_unique<Updater>(nullptr);
    SignalSequence reports(updater.get());
    updater->checkFilesInBackground(
        {QJsonObject{{u"name"_s, u"carte.d2p"_s}, {u"hash"_s, u"differs"_s}}},
        Config::instance().dofusPath());
    if (!reports.waitFor(u"finished"_s))
        qFatal("The preparing verification does not end");
    return updater;
}

template <typename Type, void (Type::*method)()> void send(QObject &worker)
{
    (static_cast<Type &>(worker).*method)();
}

} // namespace

QStringList WorkerRequest::failureWith(const QString &errorText) const
{
    return QStringList(failure).replaceInStrings(u"%1"_s, errorText);
}

QStringList WorkerRequest::progressAt(int percent) const
{
    if (percent >= 0)
        return {progress.arg(percent)};
    return progressOfUnknownSize.isEmpty() ? QStringList() : QStringList{progressOfUnknownSize};
}

QStringList WorkerRequest::withoutProgress(const QStringList &reports) const
{
    QStringList rest = reports;
    if (isDownload()) {
        rest.removeIf([this](const QString &report) {
            return report == progressOfUnknownSize || report.endsWith(progress.section("%1"_L1, 1));
        });
    }
    return rest;
}

EveryRequest::EveryRequest()
{
    server.becomeProxy();
    Config::instance().setDofusPath(gameFolder());
    QFile::remove(LauncherFiles::archive());
    Files::write(LauncherFiles::updater(), "updater");
    m_programs.addStandIn(u"powershell"_s, {.created = {gameFolder() + u"/DofusInvoker.swf"_s}});
}

EveryRequest::~EveryRequest()
{
    QThreadPool::globalInstance()->waitForDone();
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
}

QList<WorkerRequest> EveryRequest::all(const QString &gameFolder)
{
    const QString clientArchive = gameFolder + u"/DofusClient.zip"_s;
    const QString gameFile = gameFolder + u"/carte.d2p"_s;
    const auto welcome =
        u"newsReceived([\"<span style='color: #8bc34a;'>Bienvenue sur Veyra !</span><br/>Le "
        u"serveur "
        "est en cours de préparation. Restez connectés pour les dernières actualités.\"])"_s;
    const auto noUpdate = u"updateCheckFinished(false, \"\", \"\", false)"_s;
    const auto preparing = u"downloadProgress(0, \"Téléchargement de la mise à jour...\")"_s;
    const auto connecting = u"progressChanged(0, \"Connexion au serveur...\")"_s;
    const auto checking = u"progressChanged(0, \"Vérification des mises à jour...\")"_s;
    const auto fetching = u"progressChanged(0, \"Téléchargement: carte.d2p\")"_s;
    return {
        {
            .name = u"the status"_s,
            .path = "/api/status.php",
            .traits = kRedirectPolicy,
            .body = R"({"online": true, "players": 15})",
            .success = {u"statusReceived(true, 15)"_s},
            .failure = {u"statusReceived(false, 0)"_s},
            .nonsense = {u"statusReceived(false, 0)"_s},
            .prepare = makeWorker<ServerChecker>,
            .send = send<ServerChecker, &ServerChecker::checkStatus>,
        },
        {
            .name = u"the news"_s,
            .path = "/api/news.php",
            .traits = kRedirectPolicy,
            .body = R"(["Maintenance"])",
            .success = {u"newsReceived([\"Maintenance\"])"_s},
            .failure = {welcome},
            .nonsense = {u"newsReceived([\"Aucune actualité pour le moment.\"])"_s},
            .prepare = makeWorker<NewsFetcher>,
            .send = send<NewsFetcher, &NewsFetcher::fetchNews>,
        },
        {
            .name = u"the launcher's version"_s,
            .path = kVersionPath,
            .body = versionRecord(),
            .success = {u"updateCheckFinished(true, \"1.0.1\", \"\", true)"_s},
            .failure = {noUpdate},
            .nonsense = {noUpdate},
            .prepare = makeWorker<SelfUpdater>,
            .send = send<SelfUpdater, &SelfUpdater::checkForUpdate>,
        },
        {
            .name = u"the launcher's archive"_s,
            .path = kLauncherPath,
            .body = Files::noise(300001),
            .onDisk = {LauncherFiles::archive()},
            .atOnce = {preparing},
            .success = {preparing, kDownloaded,
                        u"readyToInstall(\"%1\", \"%2\")"_s.arg(LauncherFiles::updater(),
                                                                LauncherFiles::archive())},
            .failure = {preparing, kDownloadFailed},
            .prepare = makeInformedSelfUpdater,
            .send = send<SelfUpdater, &SelfUpdater::downloadUpdate>,
            .part = LauncherFiles::archive(),
            .file = LauncherFiles::archive(),
            .progress = u"downloadProgress(%1, \"Téléchargement: %.1f / %.1f MB\")"_s,
            .progressOfUnknownSize = u"downloadProgress(-1, \"Téléchargement en cours...\")"_s,
            .progressSlot = "onDownloadProgress",
        },
        {
            .name = u"the client's archive"_s,
            .path = "/client/DofusClient.zip",
            .traits = kRedirectPolicy,
            .body = Files::noise(300001),
            .onDisk = {u"DofusInvoker.swf"_s},
            .atOnce = {connecting},
            .success = {connecting, kDownloaded, u"extractionStarted()"_s,
                        u"progressChanged(-1, \"Extraction du client en cours...\")"_s,
                        u"progressChanged(100, \"Installation terminée !\")"_s,
                        u"extractionFinished(true, \"Client installé avec succès !\")"_s},
            .failure = {connecting, kDownloadFailed},
            .prepare = makeWorker<ClientDownloader>,
            .send = send<ClientDownloader, &ClientDownloader::startDownload>,
            .part = clientArchive,
            .file = clientArchive,
            .progress = u"progressChanged(%1, \"Téléchargement du client: %.1f / %.1f MB\")"_s,
            .progressOfUnknownSize =
                u"progressChanged(-1, \"Téléchargement du client: %.1f MB\")"_s,
            .progressSlot = "onDownloadProgress",
        },
        {
            .name = u"the manifest"_s,
            .path = "/updates/version.json",
            .body = R"({"files": []})",
            .atOnce = {checking},
            .success = {checking, u"progressChanged(0, \"Vérification de 0 fichiers...\")"_s,
                        u"progressChanged(100, \"Tous les fichiers sont à jour\")"_s, kReadyToPlay},
            .failure =
                {checking,
                 u"progressChanged(100, \"Mode hors ligne - Impossible de vérifier les mises "
                 "à jour\")"_s,
                 u"finished(true, \"Mode hors ligne\")"_s},
            .nonsense = {checking, u"finished(false, \"Erreur: Format de version invalide\")"_s},
            .prepare = makeWorker<Updater>,
            .send = send<Updater, &Updater::checkForUpdates>,
        },
        {
            .name = u"a game file"_s,
            .path = "/updates/files/carte.d2p",
            .body = Files::noise(300001),
            .onDisk = {u"carte.d2p"_s},
            .atOnce = {fetching},
            .success = {fetching, u"progressChanged(100, \"Mise à jour terminée !\")"_s,
                        kReadyToPlay},
            .failure = {fetching, u"finished(false, \"Erreur de téléchargement: carte.d2p\")"_s},
            .prepare = makeUpdaterWithQueue,
            .send = send<Updater, &Updater::downloadNextFile>,
            .part = gameFile + u".tmp"_s,
            .file = gameFile,
            .progress = u"progressChanged(%1, \"Téléchargement: carte.d2p (%.2f / %.2f MB)\")"_s,
            .progressSlot = "onFileDownloadProgress",
        },
    };
}

QStringList EveryRequest::names()
{
    QStringList names;
    for (const WorkerRequest &request : all({}))
        names.append(request.name);
    return names;
}

QStringList EveryRequest::downloadNames()
{
    QStringList names;
    for (const WorkerRequest &request : all({})) {
        if (request.isDownload())
            names.append(request.name);
    }
    return names;
}

QTestData &EveryRequest::newRow(const QString &request, const char *words)
{
    const QString name = *words ? request + u": "_s + QString::fromUtf8(words) : request;
    return QTest::newRow(qPrintable(name)) << request;
}

void EveryRequest::addRows(const QStringList &requests)
{
    QTest::addColumn<QString>("request");
    for (const QString &request : requests)
        newRow(request);
}

WorkerRequest EveryRequest::named(const QString &name) const
{
    const QList<WorkerRequest> requests = all(gameFolder());
    const auto found =
        std::find_if(requests.cbegin(), requests.cend(),
                     [&name](const WorkerRequest &request) { return request.name == name; });
    if (found == requests.cend())
        qFatal("There is no request for %s", qPrintable(name));
    return *found;
}

WorkerRequest EveryRequest::fetched() const
{
    QFETCH(const QString, request);
    return named(request);
}

EveryRequest::Outcome EveryRequest::run(const WorkerRequest &request,
                                        const std::function<void()> &script)
{
    const WorkerRequest::Worker worker = request.prepare(server);
    server.clear();
    script();

    Outcome outcome;
    SignalSequence reports(worker.get());
    reports.atEach([&] {
        const qsizetype reported = request.withoutProgress(reports.texts()).size();
        if (request.isDownload() && reported > request.atOnce.size() && outcome.content.isNull())
            outcome.content = Files::read(request.file);
        outcome.onDisk = filesOnDisk();
    });
    request.send(*worker);
    QNetworkReply *reply = Introspection::pendingReply(*worker);
    if (!reply)
        qFatal("There is no request under way for %s", qPrintable(request.name));
    QObject::connect(reply, &QNetworkReply::finished, reply,
                     [reply, &outcome] { outcome.errorText = reply->errorString(); });

    const QString successBegins = request.success.last().section(u'(', 0, 0) + u'(';
    const QString failureBegins = request.failure.last().section("%1"_L1, 0, 0);
    const auto isLastWord = [&](const QString &text) {
        return text.startsWith(successBegins) || text.startsWith(failureBegins);
    };
    const bool ended = reports.waitUntil(
        [&] { return std::any_of(reports.texts().cbegin(), reports.texts().cend(), isLastWord); });
    if (!ended)
        qWarning("The request for %s has no end", qPrintable(request.name));
    // Whatever else it might say.
    waitForStragglers();
    outcome.allReports = reports.texts();
    outcome.reports = request.withoutProgress(reports.texts());
    return outcome;
}

void EveryRequest::compareSuccess(const Outcome &outcome, const WorkerRequest &request) const
{
    QCOMPARE(outcome.reports, request.success);
    QVERIFY(!request.isDownload() || outcome.content == request.body);
    QCOMPARE(outcome.onDisk, request.onDisk);
    QCOMPARE(filesOnDisk(), request.onDisk);
}

void EveryRequest::compareFailure(const Outcome &outcome, const WorkerRequest &request) const
{
    QVERIFY(!outcome.errorText.isEmpty());
    QCOMPARE(outcome.reports, request.failureWith(outcome.errorText));
    QCOMPARE(outcome.onDisk, QStringList());
    QCOMPARE(filesOnDisk(), QStringList());
}

QStringList EveryRequest::filesOnDisk() const
{
    QStringList files = Files::tree(gameFolder());
    if (QFile::exists(LauncherFiles::archive()))
        files.append(LauncherFiles::archive());
    return files;
}

QStringList EveryRequest::targets() const
{
    QStringList texts;
    for (const HttpRequest &request : server.requests())
        texts.append((request.encrypted ? u"encrypted "_s : u"plain "_s) +
                     QString::fromLatin1(request.target));
    return SignalSequence::withoutRepeats(texts);
}
