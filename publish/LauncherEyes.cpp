#include "publish/LauncherEyes.h"

#include "config/Config.h"
#include "install/ArchiveUnpacker.h"
#include "install/ClientDownloader.h"
#include "net/NewsFetcher.h"
#include "net/ServerChecker.h"
#include "publish/Progress.h"
#include "publish/Waiting.h"
#include "update/SelfUpdater.h"
#include "update/Updater.h"

#include <QStandardPaths>
#include <QThreadPool>

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

/// The workers know no limit of their own.
constexpr auto kSmallAnswer = 30s;
constexpr auto kClientInstalled = 24h;

const auto kNoAnswer = u"pas de réponse"_s;
/// The launcher's own words for a client in which nothing differs.
const auto kUpToDate = u"Tous les fichiers sont à jour"_s;

/// Downloads and unpacks.
QString unpack()
{
    ClientDownloader downloader(nullptr);
    Progress progress(u"Client"_s, 100);
    Waiting waiting;
    QString failure = kNoAnswer;
    int shown = 0;
    QObject::connect(&downloader, &ClientDownloader::progressChanged, &downloader,
                     [&](int percent, const QString &) {
                         progress.advance(percent - shown);
                         shown = std::max(shown, percent);
                     });
    QObject::connect(&downloader, &ClientDownloader::downloadFinished, &downloader,
                     [&](bool success, const QString &message) {
                         if (success)
                             return;
                         failure = message;
                         waiting.done();
                     });
    QObject::connect(&downloader, &ClientDownloader::extractionFinished, &downloader,
                     [&](bool success, const QString &message) {
                         failure = success ? QString() : message;
                         waiting.done();
                     });
    downloader.startDownload();
    waiting.run(kClientInstalled);
    return failure;
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

QString verify()
{
    Updater updater(nullptr);
    PoolInUse pool;
    Waiting waiting;
    QString last;
    QString failure = kNoAnswer;
    QObject::connect(&updater, &Updater::progressChanged, &updater,
                     [&last](int, const QString &message) { last = message; });
    QObject::connect(
        &updater, &Updater::finished, &updater, [&](bool success, const QString &message) {
            failure = success && last == kUpToDate ? QString() : success ? last : message;
            waiting.done();
        });
    updater.checkForUpdates();
    if (waiting.run(kClientInstalled))
        pool.done();
    return failure;
}

} // namespace

LauncherEyes::Sight LauncherEyes::look()
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
                         sight.online = online;
                         sight.players = players;
                         state.done();
                     });
    QObject::connect(&fetcher, &NewsFetcher::newsReceived, &fetcher, [&](const QStringList &items) {
        sight.news = items;
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
    state.run(kSmallAnswer);
    news.run(kSmallAnswer);
    version.run(kSmallAnswer);
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

QString LauncherEyes::install(const QString &folder)
{
    Config::instance().setDofusPath(folder);
    const QString failure = unpack();
    return failure.isEmpty() ? verify() : failure;
}
