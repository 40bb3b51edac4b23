#include "tests/workers/EveryRequest.h"

#include "config/BuildSettings.h"
#include "config/Config.h"
#include "install/ClientDownloader.h"
#include "net/NewsFetcher.h"
#include "net/ServerChecker.h"
#include "tests/support/Files.h"
#include "tests/support/Introspection.h"
#include "tests/support/SignalSequence.h"
#include "update/SelfUpdater.h"
#include "update/Updater.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkProxy>
#include <QStandardPaths>
#include <QTest>
#include <QThreadPool>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kPatience = 60000; // ms
constexpr auto kVersionPath = "/api/launcher_version.json";
constexpr auto kLauncherPath = "/new/launcher.zip";

const auto kWelcome = u"newsReceived([\"<span style='color: #8bc34a;'>Bienvenue sur Veyra !</span>"
                      u"<br/>Le serveur est en cours de préparation. Restez connectés pour les "
                      u"dernières actualités.\"])"_s;
const auto kReadyToPlay = u"finished(true, \"Prêt à jouer !\")"_s;
const auto kDownloaded = u"downloadFinished(true, \"Téléchargement terminé\")"_s;
const auto kDownloadFailed = u"downloadFinished(false, \"Erreur de téléchargement: %1\")"_s;

QString launcherArchive()
{
    return QStandardPaths::writableLocation(QStandardPaths::TempLocation) +
           u"/VeyraLauncher_update.zip"_s;
}

QString updaterProgram()
{
    return QCoreApplication::applicationDirPath() + u"/LauncherUpdater.exe"_s;
}

QByteArray versionRecord()
{
    return R"({"version": "1.0.1", "download_url": ")" +
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

QStringList withoutProgress(const QStringList &texts)
{
    QStringList rest;
    for (const QString &text : texts) {
        if (!text.startsWith("progressChanged("_L1) && !text.startsWith("downloadProgress("_L1))
            rest.append(text);
    }
    return rest;
}

} // namespace

QStringList WorkerRequest::failureWith(const QString &errorText) const
{
    return {QString(failure).replace("%1"_L1, errorText)};
}

EveryRequest::EveryRequest()
{
    server.becomeProxy();
    Config::instance().setDofusPath(gameFolder());
    QFile::remove(launcherArchive());
    Files::write(updaterProgram(), "updater");
    m_programs.addStandIn(u"powershell"_s, {.created = {gameFolder() + u"/DofusInvoker.swf"_s}});
}

EveryRequest::~EveryRequest()
{
    QThreadPool::globalInstance()->waitForDone();
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
}

QList<WorkerRequest> EveryRequest::all(const QString &gameFolder)
{
    return {
        {
            .name = u"the status"_s,
            .path = "/api/status.php",
            .body = R"({"online": true, "players": 15})",
            .file = {},
            .success = {u"statusReceived(true, 15)"_s},
            .failure = u"statusReceived(false, 0)"_s,
            .prepare = makeWorker<ServerChecker>,
            .send = send<ServerChecker, &ServerChecker::checkStatus>,
        },
        {
            .name = u"the news"_s,
            .path = "/api/news.php",
            .body = R"(["Maintenance"])",
            .file = {},
            .success = {u"newsReceived([\"Maintenance\"])"_s},
            .failure = kWelcome,
            .prepare = makeWorker<NewsFetcher>,
            .send = send<NewsFetcher, &NewsFetcher::fetchNews>,
        },
        {
            .name = u"the launcher's version"_s,
            .path = kVersionPath,
            .body = versionRecord(),
            .file = {},
            .success = {u"updateCheckFinished(true, \"1.0.1\", \"\", false)"_s},
            .failure = u"updateCheckFinished(false, \"\", \"\", false)"_s,
            .prepare = makeWorker<SelfUpdater>,
            .send = send<SelfUpdater, &SelfUpdater::checkForUpdate>,
        },
        {
            .name = u"the launcher's archive"_s,
            .path = kLauncherPath,
            .body = Files::noise(300001),
            .file = launcherArchive(),
            .success = {kDownloaded, u"readyToInstall(\"%1\", \"%2\")"_s.arg(updaterProgram())
                                         .arg(launcherArchive())},
            .failure = kDownloadFailed,
            .prepare = makeInformedSelfUpdater,
            .send = send<SelfUpdater, &SelfUpdater::downloadUpdate>,
        },
        {
            .name = u"the client's archive"_s,
            .path = "/client/DofusClient.zip",
            .body = Files::noise(300001),
            .file = {}, // gone once it is unpacked
            .success = {kDownloaded, u"extractionStarted()"_s,
                        u"extractionFinished(true, \"Client installé avec succès !\")"_s},
            .failure = kDownloadFailed,
            .prepare = makeWorker<ClientDownloader>,
            .send = send<ClientDownloader, &ClientDownloader::startDownload>,
        },
        {
            .name = u"the manifest"_s,
            .path = "/updates/version.json",
            .body = R"({"files": []})",
            .file = {},
            .success = {kReadyToPlay},
            .failure = u"finished(true, \"Mode hors ligne\")"_s,
            .prepare = makeWorker<Updater>,
            .send = send<Updater, &Updater::checkForUpdates>,
        },
        {
            .name = u"a game file"_s,
            .path = "/updates/files/carte.d2p",
            .body = Files::noise(300001),
            .file = gameFolder + u"/carte.d2p"_s,
            .success = {kReadyToPlay},
            .failure = u"finished(false, \"Erreur de téléchargement: carte.d2p\")"_s,
            .prepare = makeUpdaterWithQueue,
            .send = send<Updater, &Updater::downloadNextFile>,
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

EveryRequest::Outcome EveryRequest::run(const WorkerRequest &request,
                                        const std::function<void()> &script)
{
    const WorkerRequest::Worker worker = request.prepare(server);
    server.clear();
    script();

    Outcome outcome;
    const SignalSequence reports(worker.get());
    request.send(*worker);
    QNetworkReply *reply = Introspection::pendingReply(*worker);
    if (!reply)
        qFatal("There is no request under way for %s", qPrintable(request.name));
    QObject::connect(reply, &QNetworkReply::finished, reply,
                     [reply, &outcome] { outcome.errorText = reply->errorString(); });

    const QString successBegins = request.success.last().section(u'(', 0, 0) + u'(';
    const QString failureBegins = request.failure.section("%1"_L1, 0, 0);
    const auto isLastWord = [&](const QString &text) {
        return text.startsWith(successBegins) || text.startsWith(failureBegins);
    };
    const bool ended = QTest::qWaitFor(
        [&] { return std::any_of(reports.texts().cbegin(), reports.texts().cend(), isLastWord); },
        kPatience);
    if (!ended)
        qWarning("The request for %s has no end", qPrintable(request.name));
    // Whatever else it might say.
    QTest::qWait(20);
    outcome.reports = withoutProgress(reports.texts());
    return outcome;
}

QStringList EveryRequest::filesOnDisk() const
{
    QStringList files = Files::tree(gameFolder());
    if (QFile::exists(launcherArchive()))
        files.append(launcherArchive());
    return files;
}

QStringList EveryRequest::targets() const
{
    QStringList texts;
    for (const HttpRequest &request : server.requests())
        texts.append((request.encrypted ? u"encrypted "_s : u"plain "_s) +
                     QString::fromLatin1(request.target));
    return texts;
}
