#include "app/MainWindow.h"

#include "config/BuildSettings.h"
#include "config/Colors.h"
#include "config/Config.h"
#include "config/GameFolder.h"
#include "config/Product.h"
#include "install/ClientDownloader.h"
#include "net/NewsFetcher.h"
#include "net/ServerChecker.h"
#include "ui/Announcer.h"
#include "ui/NewsView.h"
#include "ui/ScrollingMessageBox.h"
#include "ui/TaskbarProgress.h"
#include "update/SelfUpdater.h"
#include "update/Updater.h"

#include <QApplication>
#include <QCoreApplication>
#include <QCursor>
#include <QDesktopServices>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QToolTip>
#include <QUrl>

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Lets the window appear and settle before the start-up chain begins.
constexpr auto kStartupDelay = 500ms;
// Leaves the success of the installation readable before the verification's messages replace it.
constexpr auto kVerificationDelay = 1000ms;

constexpr QSize kWindowSize(1000, 700);

// Characters. A server that answers nonsense may send texts of many megabytes, or have them
// repeated in an error's text; laying those out would freeze the window for minutes.
constexpr qsizetype kTextLimit = 20'000;

const auto kDownloading = u"Téléchargement..."_s;
const auto kUpdating = u"Mise à jour..."_s;

const auto kCheckingLauncher = u"Vérification des mises à jour du launcher..."_s;
const auto kReadyToPlay = u"Prêt à jouer !"_s;
const auto kExtracting = u"Extraction du client en cours..."_s;
const auto kInstallingUpdate = u"Installation de la mise à jour..."_s;
const auto kGameStarted = u"Jeu lancé !"_s;

const auto kErrorTitle = u"Erreur"_s;
const auto kDownloadErrorTitle = u"Erreur de téléchargement"_s;
const auto kExtractionErrorTitle = u"Erreur d'extraction"_s;
const auto kUpdateErrorTitle = u"Erreur de mise à jour"_s;

const auto kUpdateTitle = u"Mise à jour disponible"_s;
const auto kUpdateText = u"Une nouvelle version du launcher est disponible !\n\n"
                         u"Version actuelle: %1\nNouvelle version: %2\n\nNouveautés:\n%3"_s;
const auto kUpdateRequired = u"\n\nCette mise à jour est obligatoire."_s;
const auto kUpdateQuestion = u"\n\nVoulez-vous mettre à jour maintenant ?"_s;
const auto kUpdaterFailed = u"Impossible de lancer le programme de mise à jour.\n"
                            u"Veuillez télécharger la nouvelle version manuellement."_s;

constexpr auto kGameExecutable = "/Dofus.exe"_L1;
const auto kGameMissing =
    u"Dofus.exe introuvable:\n%1\n\nConfigurez le chemin dans les paramètres."_s;

const auto kOnline = u"Serveur en ligne"_s;
const auto kOffline = u"Serveur hors ligne"_s;
// Qt merges the label's own sheet with the window's rule for it, so the colour alone would do; it
// carries the whole set all the same.
const auto kStatusStyle = u"color: %1; font-size: 16px; font-weight: bold; padding: 10px 20px; "
                          u"background: rgba(0, 0, 0, 0.5); border-radius: 10px;"_s;
const auto kPlayerCount = u"%1 joueur%2 connecté%3"_s;
const auto kColorStyle = u"color: %1;"_s;

} // namespace

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
{
    setWindowTitle(Product::kName);
    setFixedSize(kWindowSize);
    backdrop.startLoading(size(), devicePixelRatioF()); // takes as long as what follows
    setupUi();
    applyStyles();

    updater = new Updater(this);
    serverChecker = new ServerChecker(this);
    newsFetcher = new NewsFetcher(this);
    clientDownloader = new ClientDownloader(this);
    selfUpdater = new SelfUpdater(this);
    connectWorkers();
    backgroundPixmap = backdrop.takePicture();

    serverChecker->checkStatus();
    newsFetcher->fetchNews();
    QTimer::singleShot(kStartupDelay, this, &MainWindow::checkLauncherUpdate);
}

void MainWindow::connectWorkers()
{
    connect(updater, &Updater::progressChanged, this, &MainWindow::onUpdateProgress);
    connect(updater, &Updater::finished, this, &MainWindow::onUpdateFinished);
    connect(serverChecker, &ServerChecker::statusReceived, this,
            &MainWindow::onServerStatusReceived);
    connect(newsFetcher, &NewsFetcher::newsReceived, this, &MainWindow::onNewsReceived);
    connect(clientDownloader, &ClientDownloader::progressChanged, this,
            &MainWindow::onClientDownloadProgress);
    connect(clientDownloader, &ClientDownloader::downloadFinished, this,
            &MainWindow::onClientDownloadFinished);
    connect(clientDownloader, &ClientDownloader::extractionStarted, this,
            &MainWindow::onClientExtractionStarted);
    connect(clientDownloader, &ClientDownloader::extractionFinished, this,
            &MainWindow::onClientExtractionFinished);
    connect(selfUpdater, &SelfUpdater::updateCheckFinished, this,
            &MainWindow::onLauncherUpdateCheckFinished);
    connect(selfUpdater, &SelfUpdater::downloadProgress, this,
            &MainWindow::onLauncherDownloadProgress);
    connect(selfUpdater, &SelfUpdater::downloadFinished, this,
            &MainWindow::onLauncherDownloadFinished);
    connect(selfUpdater, &SelfUpdater::readyToInstall, this, &MainWindow::onLauncherReadyToInstall);
}

// --- Is there a newer launcher? ---

void MainWindow::checkLauncherUpdate()
{
    progressLabel->setText(kCheckingLauncher);
    selfUpdater->checkForUpdate();
}

void MainWindow::onLauncherUpdateCheckFinished(bool updateAvailable, const QString &newVersion,
                                               const QString &changelog, bool required)
{
    if (!updateAvailable) {
        checkClientInstallation();
        return;
    }

    // The change notes come last: a "%1" in them stays as it is.
    const QString text = kUpdateText.arg(BuildSettings::launcherVersion())
                             .arg(newVersion.left(kTextLimit))
                             .arg(changelog.left(kTextLimit));
    if (required) {
        showBox(QMessageBox::Information, kUpdateTitle, text + kUpdateRequired, QMessageBox::Ok);
        startLauncherDownload();
        return;
    }

    const auto answer = showBox(QMessageBox::Question, kUpdateTitle, text + kUpdateQuestion,
                                QMessageBox::Yes | QMessageBox::No);
    if (answer == QMessageBox::Yes)
        startLauncherDownload();
    else
        checkClientInstallation();
}

void MainWindow::startLauncherDownload()
{
    isUpdatingLauncher = true;
    setPlayButton(false, kUpdating);
    selfUpdater->downloadUpdate();
}

void MainWindow::onLauncherDownloadProgress(int percent, const QString &message)
{
    showProgress(percent, message);
}

void MainWindow::onLauncherDownloadFinished(bool success, const QString &message)
{
    if (success)
        return;

    isUpdatingLauncher = false;
    showFailure(kUpdateErrorTitle, message);
    checkClientInstallation();
}

void MainWindow::onLauncherReadyToInstall(const QString &updaterPath,
                                          const QString &newLauncherPath)
{
    announceStep(kInstallingUpdate);

    const QString folder = QCoreApplication::applicationDirPath();
    const QString fileName = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    if (QProcess::startDetached(updaterPath, {newLauncherPath, folder, fileName}, QString())) {
        QCoreApplication::quit();
        return;
    }

    showError(kErrorTitle, kUpdaterFailed);
    isUpdatingLauncher = false;
    checkClientInstallation();
}

// --- Is the client installed? ---

void MainWindow::checkClientInstallation()
{
    if (!clientDownloader->isClientInstalled()) {
        startClientDownload();
        return;
    }

    // An installed client is not verified: that follows a fresh installation only.
    progressBar->setValue(100);
    taskbarProgress->end(); // the bar stays busy after a download of unknown size
    announceStep(kReadyToPlay);
    setPlayButton(true, kPlay);
}

void MainWindow::startClientDownload()
{
    isDownloadingClient = true;
    setPlayButton(false, kDownloading);
    setBarMaximum(100);
    progressBar->setValue(0);
    clientDownloader->startDownload();
}

void MainWindow::onClientDownloadProgress(int percent, const QString &message)
{
    showProgress(percent, message);
}

void MainWindow::onClientDownloadFinished(bool success, const QString &message)
{
    if (success)
        return;

    isDownloadingClient = false;
    setPlayButton(true, kPlay);
    showFailure(kDownloadErrorTitle, message);
}

void MainWindow::onClientExtractionStarted()
{
    setBarMaximum(0);
    announceStep(kExtracting);
}

void MainWindow::onClientExtractionFinished(bool success, const QString &message)
{
    isDownloadingClient = false;
    if (!success) {
        setPlayButton(true, kPlay);
        showFailure(kExtractionErrorTitle, message);
        return;
    }

    setBarMaximum(100);
    announceStep(message);
    setProgressColor(Colors::kAccent);
    progressBar->setValue(100);
    QTimer::singleShot(kVerificationDelay, this, &MainWindow::startGameUpdate);
}

// --- Are the game's files intact? ---

void MainWindow::startGameUpdate()
{
    isUpdating = true;
    setPlayButton(false, kUpdating);
    updater->checkForUpdates();
}

void MainWindow::onUpdateProgress(int percent, const QString &message)
{
    progressBar->setValue(percent);
    setProgressText(message);
}

void MainWindow::onUpdateFinished(bool success, const QString &message)
{
    isUpdating = false;
    setPlayButton(true, kPlay);
    announceStep(message);
    if (success) {
        progressBar->setValue(100);
    } else {
        setProgressColor(Colors::kError);
        taskbarProgress->fail();
    }
    callPlayer();
}

// --- Buttons ---

void MainWindow::onPlayClicked()
{
    if (isUpdating || isDownloadingClient || isUpdatingLauncher)
        return;

    const QString gamePath = Config::instance().dofusPath();
    QString folder = gamePath;
    if (!QFile::exists(folder + kGameExecutable))
        folder += GameFolder::kClientSubfolder;
    if (!QFile::exists(folder + kGameExecutable)) {
        showError(kErrorTitle, kGameMissing.arg(gamePath + kGameExecutable));
        return;
    }

    QProcess::startDetached(folder + kGameExecutable, {}, folder);
    announceStep(kGameStarted);
}

void MainWindow::onWebsiteClicked()
{
    QDesktopServices::openUrl(QUrl(BuildSettings::serverBaseUrl()));
}

void MainWindow::onDiscordClicked()
{
    QDesktopServices::openUrl(QUrl(BuildSettings::discordInviteUrl()));
}

// --- Server status and news ---

void MainWindow::onServerStatusReceived(bool online, int players)
{
    const QString &status = online ? kOnline : kOffline;
    if (statusLabel->text() != status)
        announcer->announce(status);
    statusLabel->setText(status);
    statusLabel->setStyleSheet(kStatusStyle.arg(online ? Colors::kAccent : Colors::kError));

    if (!online || players < 0) {
        playersLabel->setText(QString());
        return;
    }
    // French counts 0 and 1 in the singular.
    const QString suffix = players >= 2 ? u"s"_s : QString();
    playersLabel->setText(kPlayerCount.arg(players).arg(suffix).arg(suffix));
}

void MainWindow::onNewsReceived(const QStringList &news)
{
    newsWidget->showNews(news);
}

// --- Progress display ---

void MainWindow::setPlayButton(bool enabled, const QString &text)
{
    playButton->setEnabled(enabled);
    playButton->setText(text);
}

void MainWindow::setProgressText(const QString &text)
{
    progressLabel->setText(text.left(kTextLimit));
}

/// For what a screen reader has to speak: the steps that begin or end something.
void MainWindow::announceStep(const QString &text)
{
    setProgressText(text);
    announcer->announce(progressLabel->text());
}

/// The colour stays until the next change; the text changes independently of it.
void MainWindow::setProgressColor(QLatin1StringView color)
{
    progressLabel->setStyleSheet(kColorStyle.arg(color));
}

/// A negative percentage turns the bar into a busy indicator.
void MainWindow::showProgress(int percent, const QString &message)
{
    if (percent >= 0) {
        setBarMaximum(100);
        progressBar->setValue(percent);
    } else {
        setBarMaximum(0);
    }
    setProgressText(message);
}

/// The bar tells of a new value, but not of a new range.
void MainWindow::setBarMaximum(int maximum)
{
    progressBar->setMaximum(maximum);
    showPercentage();
    taskbarProgress->follow();
}

/// In the bar's tool tip, as the bar has no text of its own; none while nobody knows how far it is.
void MainWindow::showPercentage()
{
    progressBar->setToolTip(progressBar->text());
    // A tip that is open would keep telling the old one.
    if (progressBar->underMouse() && QToolTip::isVisible())
        QToolTip::showText(QCursor::pos(), progressBar->toolTip(), progressBar);
}

/// For players who have turned to another window, since the steps take their time.
void MainWindow::callPlayer()
{
    // The player may be there in another window of ours: alert() goes by this one's focus alone.
    if (QGuiApplication::applicationState() != Qt::ApplicationActive)
        QApplication::alert(this);
}

// --- Message boxes ---

QMessageBox::StandardButton MainWindow::showBox(QMessageBox::Icon icon, const QString &title,
                                                const QString &text,
                                                QMessageBox::StandardButtons buttons)
{
    ScrollingMessageBox box(icon, title, text, buttons, this);
    callPlayer();
    return static_cast<QMessageBox::StandardButton>(box.exec());
}

void MainWindow::showError(const QString &title, const QString &text)
{
    showBox(QMessageBox::Critical, title, text.left(kTextLimit), QMessageBox::Ok);
}

/// A step of the chain has failed: in the label, on the bar and in a box. Returns when that is
/// closed.
void MainWindow::showFailure(const QString &title, const QString &message)
{
    setBarMaximum(100);
    progressBar->setValue(0);
    announceStep(message);
    setProgressColor(Colors::kError);
    taskbarProgress->fail();
    showError(title, message);
}
