#pragma once

#include "ui/Backdrop.h"

#include <QLatin1StringView>
#include <QMainWindow>
#include <QMessageBox>
#include <QPixmap>

class Announcer;
class ClientDownloader;
class NewsFetcher;
class NewsView;
class QHBoxLayout;
class QLabel;
class QProgressBar;
class QPushButton;
class SelfUpdater;
class ServerChecker;
class TaskbarProgress;
class Updater;

/// The launcher's one window. Runs the start-up chain (newer launcher? client installed? files
/// intact?) and shows what the workers report. Owns the workers; their signals all end here.
///
/// The slots and the chain are in app/, the layout, painting and settings dialog in ui/.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// Sends the first status and news requests and arms the start-up chain.
    explicit MainWindow(QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;

private slots:
    void onPlayClicked();
    void onSettingsClicked();
    void onWebsiteClicked();
    void onDiscordClicked();
    void onUpdateProgress(int percent, const QString &message);
    void onUpdateFinished(bool success, const QString &message);
    void onServerStatusReceived(bool online, int players);
    void onNewsReceived(const QStringList &news);
    void onClientDownloadProgress(int percent, const QString &message);
    void onClientDownloadFinished(bool success, const QString &message);
    void onClientExtractionStarted();
    void onClientExtractionFinished(bool success, const QString &message);
    void onLauncherUpdateCheckFinished(bool updateAvailable, const QString &newVersion,
                                       const QString &changelog, bool required);
    void onLauncherDownloadProgress(int percent, const QString &message);
    void onLauncherDownloadFinished(bool success, const QString &message);
    void onLauncherReadyToInstall(const QString &updaterPath, const QString &newLauncherPath);

private:
    static constexpr QLatin1StringView kPlay{"JOUER"}; // the play button's text while one may play

    void setupUi();
    void applyStyles();
    QHBoxLayout *createHeader();
    QHBoxLayout *createStatusRow();
    QLabel *createNewsHeading();
    void createNewsPanel();
    void createProgressArea();
    QHBoxLayout *createButtonRow();
    QLabel *createVersionLabel();
    void setupKeyboardAccess();
    void adaptToScreen();

    void connectWorkers();
    void checkLauncherUpdate();
    void startLauncherDownload();
    void checkClientInstallation();
    void startClientDownload();
    void startGameUpdate();

    void setPlayButton(bool enabled, const QString &text);
    void setProgressText(const QString &text);
    void announceStep(const QString &text);
    void setProgressColor(QLatin1StringView color);
    void showProgress(int percent, const QString &message);
    void setBarMaximum(int maximum);
    void showPercentage();
    void callPlayer();
    QMessageBox::StandardButton showBox(QMessageBox::Icon icon, const QString &title,
                                        const QString &text, QMessageBox::StandardButtons buttons);
    void showError(const QString &title, const QString &text);
    void showFailure(const QString &title, const QString &message);

    QWidget *centralWidget = nullptr;
    QLabel *titleLabel = nullptr;
    QLabel *statusLabel = nullptr;
    QLabel *playersLabel = nullptr;
    QProgressBar *progressBar = nullptr;
    QLabel *progressLabel = nullptr;
    QPushButton *playButton = nullptr;
    QPushButton *settingsButton = nullptr;
    QPushButton *websiteButton = nullptr;
    QPushButton *discordButton = nullptr;
    NewsView *newsWidget = nullptr;
    Announcer *announcer = nullptr;

    Updater *updater = nullptr;
    ServerChecker *serverChecker = nullptr;
    NewsFetcher *newsFetcher = nullptr;
    ClientDownloader *clientDownloader = nullptr;
    SelfUpdater *selfUpdater = nullptr;

    // What keeps the play button from starting the game.
    bool isUpdating = false;
    bool isDownloadingClient = false;
    bool isUpdatingLauncher = false;

    QPixmap backgroundPixmap; // null where there is no picture
    Backdrop backdrop;
    TaskbarProgress *taskbarProgress = nullptr;
    qreal screenRatio = 0; // device pixels in a pixel, of the screen that the window is made for
};
