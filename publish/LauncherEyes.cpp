#include "publish/LauncherEyes.h"

#include "config/Colors.h"
#include "config/Config.h"
#include "install/ArchiveUnpacker.h"
#include "install/ClientDownloader.h"
#include "net/NewsFetcher.h"
#include "net/ServerChecker.h"
#include "publish/Console.h"
#include "publish/Progress.h"
#include "publish/Waiting.h"
#include "update/SelfUpdater.h"
#include "update/Updater.h"

#include <QDeadlineTimer>
#include <QStandardPaths>
#include <QThreadPool>

#include <algorithm>
#include <chrono>
#include <optional>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// The workers know no limit of their own. Unpacking and verifying take as long as the disk does.
constexpr auto kClientInstalled = 24h;

/// The launcher's own words for a client in which nothing differs, and for news that are none.
const auto kUpToDate = u"Tous les fichiers sont à jour"_s;
const auto kNoNews = u"Aucune actualité pour le moment."_s;
const auto kWelcome =
    u"<span style='color: "_s + Colors::kAccent + u";'>Bienvenue sur Veyra !</span>"_s;

QString said(const QString &words)
{
    return u"le launcher dit : "_s + words;
}

/// Of one whole, told in per cent by a worker that may tell the same again.
class PercentProgress
{
public:
    explicit PercentProgress(const QString &label)
        : m_progress(label, 100)
    {
    }

    void show(int percent)
    {
        m_progress.advance(std::max(0, percent - m_shown));
        m_shown = std::max(m_shown, percent);
    }

private:
    Progress m_progress;
    int m_shown = 0;
};

/// Downloads and unpacks.
LauncherEyes::Installation unpack(const LauncherEyes::LookAtArchive &lookAtArchive,
                                  const Patience &patience)
{
    ClientDownloader downloader(nullptr);
    std::optional<PercentProgress> progress(u"Client"_s);
    Waiting download;
    Waiting extraction;
    LauncherEyes::Installation result;
    bool mayUnpack = false;
    QObject::connect(&downloader, &ClientDownloader::progressChanged, &downloader,
                     [&](int percent, const QString &) {
                         download.goesOn();
                         if (progress && percent >= 0)
                             progress->show(percent);
                     });
    QObject::connect(&downloader, &ClientDownloader::downloadFinished, &downloader,
                     [&](bool success, const QString &message) {
                         result.isDownloaded = success;
                         if (success)
                             mayUnpack = lookAtArchive(downloader.zipPath());
                         else
                             result.failure = said(message);
                         download.done();
                     });
    QObject::connect(&downloader, &ClientDownloader::extractionFinished, &downloader,
                     [&](bool success, const QString &message) {
                         result.failure = success ? QString() : said(message);
                         extraction.done();
                     });
    downloader.startDownload();
    if (!download.run(patience.standstill)) {
        result.failure = u"plus rien n'arrive, et le launcher attendrait sans fin"_s;
        return result;
    }
    progress.reset();
    // What has begun in the meantime ends with the downloader.
    if (!result.isDownloaded || !mayUnpack)
        return result;
    Console::complain(u"Décompression…"_s);
    if (!extraction.run(kClientInstalled))
        result.failure = u"la décompression n'a pas de fin"_s;
    return result;
}

/// A verification posts its progress to its Updater, which may go only once this one has gone.
class PoolInUse
{
public:
    PoolInUse() = default;
    ~PoolInUse()
    {
        if (!m_isDone)
            Updater::abandonVerifications();
        QThreadPool::globalInstance()->waitForDone();
    }
    Q_DISABLE_COPY_MOVE(PoolInUse)

    void done() { m_isDone = true; }

private:
    bool m_isDone = false;
};

/// Empty where the client is as the manifest tells.
QString verify(const Patience &patience)
{
    Updater updater(nullptr);
    PoolInUse pool;
    PercentProgress progress(u"Vérification"_s);
    Waiting manifest;
    Waiting verification;
    QString last;
    QString failure;
    int reports = 0;
    QObject::connect(&updater, &Updater::progressChanged, &updater,
                     [&](int percent, const QString &message) {
                         last = message;
                         progress.show(percent);
                         // The first one comes with the question, the next one with its answer.
                         if (++reports > 1)
                             manifest.done();
                     });
    QObject::connect(&updater, &Updater::finished, &updater,
                     [&](bool success, const QString &message) {
                         if (!success || last != kUpToDate)
                             failure = said(success ? last : message);
                         manifest.done();
                         verification.done();
                     });
    updater.checkForUpdates();
    if (!manifest.run(patience.standstill)) {
        pool.done(); // nothing is being verified
        return u"le manifeste n'arrive pas, et le launcher attendrait sans fin"_s;
    }
    if (!verification.run(kClientInstalled))
        return u"la vérification n'a pas de fin"_s;
    pool.done();
    return failure;
}

} // namespace

LauncherEyes::Sight LauncherEyes::look(const Patience &patience)
{
    Sight sight;
    Waiting state;
    Waiting news;
    Waiting version;
    ServerChecker checker(nullptr);
    NewsFetcher fetcher(nullptr);
    SelfUpdater updater(nullptr);
    QObject::connect(&checker, &ServerChecker::statusReceived, &checker,
                     [&](bool online, int players) {
                         sight.hasState = true;
                         sight.online = online;
                         sight.players = players;
                         state.done();
                     });
    QObject::connect(&fetcher, &NewsFetcher::newsReceived, &fetcher, [&](const QStringList &items) {
        sight.isWelcomed = items.size() == 1 && items.first().startsWith(kWelcome);
        const bool hasNone = sight.isWelcomed || items == QStringList{kNoNews};
        sight.news = hasNone ? QStringList() : items;
        news.done();
    });
    QObject::connect(&updater, &SelfUpdater::updateCheckFinished, &updater,
                     [&](bool available, const QString &newVersion) {
                         sight.newVersion = available ? newVersion : QString();
                         version.done();
                     });
    checker.checkStatus();
    fetcher.fetchNews();
    updater.checkForUpdate();
    const QDeadlineTimer deadline(patience.sight);
    for (Waiting *const waiting : {&state, &news, &version})
        waiting->run(std::chrono::milliseconds(deadline.remainingTime()));
    return sight;
}

QString LauncherEyes::unpackerProblem()
{
    const QString program = unpackCommand(QString(), QString()).program;
    if (!QStandardPaths::findExecutable(program).isEmpty())
        return {};
    return u"--complet décompresse le client avec %1, qui manque ici : « apt install %1 »."_s.arg(
        program);
}

LauncherEyes::Installation LauncherEyes::install(const QString &folder,
                                                 const LookAtArchive &lookAtArchive,
                                                 const Patience &patience)
{
    Config::instance().setDofusPath(folder);
    bool mayUnpack = false;
    const auto look = [&](const QString &archive) { return mayUnpack = lookAtArchive(archive); };
    Installation installation = unpack(look, patience);
    if (mayUnpack && installation.failure.isEmpty())
        installation.failure = verify(patience);
    return installation;
}
