#include "app/MainWindow.h"

#include "config/BuildSettings.h"
#include "config/Colors.h"
#include "config/Product.h"
#include "ui/AccessibleParts.h"
#include "ui/Announcer.h"
#include "ui/ElidedLabel.h"
#include "ui/FocusRing.h"
#include "ui/NewsLinks.h"
#include "ui/NewsView.h"
#include "ui/PillLabel.h"
#include "ui/RoundedProgressBar.h"
#include "ui/StyleSheets.h"
#include "ui/TaskbarProgress.h"

#include <QGraphicsDropShadowEffect>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr QMargins kWindowMargins(40, 30, 40, 30);
constexpr int kRowSpacing = 20;
constexpr int kLinkSpacing = 10;
const auto kLogoName = u"logoLabel"_s;
const auto kLogoFile = u":/images/logo.png"_s;
constexpr QSize kLogoBounds(300, 150);
constexpr int kNewsMinimumHeight = 200;
constexpr int kProgressBarHeight = 25;
constexpr QSize kSettingsButtonSize(150, 50);
constexpr QSize kPlayButtonSize(300, 70);
constexpr qreal kPlayButtonGlow = 20;

// The rows add up to more than the window when the logo's label is as high as its picture. The
// drawing in the picture keeps to the middle 55 % of its height, so the label may cut the rest.
constexpr int kLogoHeight = 84;

void showLogo(QLabel *label, const QPixmap &logo, qreal ratio)
{
    QPixmap scaled =
        logo.scaled(kLogoBounds * ratio, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    scaled.setDevicePixelRatio(ratio);
    label->setPixmap(scaled);
    label->setMinimumHeight(kLogoHeight);
    // Where a label has to cut its picture, Qt cuts at the wrong place on scaled screens. With
    // negative margins it draws the whole of it, and the widget's own edge cuts.
    label->setAttribute(Qt::WA_ContentsMarginsRespectsSafeArea, false); // allows them
    const int overhang =
        std::max(0, (qRound(scaled.deviceIndependentSize().height()) - kLogoHeight) / 2);
    label->setContentsMargins(0, -overhang, 0, -overhang);
}

} // namespace

void MainWindow::setupUi()
{
    centralWidget = new QWidget(this);
    centralWidget->setObjectName(u"centralWidget"_s);
    setCentralWidget(centralWidget);

    auto *layout = new QVBoxLayout(centralWidget);
    layout->setContentsMargins(kWindowMargins);
    layout->setSpacing(kRowSpacing);

    layout->addLayout(createHeader());
    layout->addLayout(createStatusRow());
    layout->addWidget(createNewsHeading());
    createNewsPanel();
    layout->addWidget(newsWidget);
    createProgressArea();
    layout->addWidget(progressLabel);
    layout->addWidget(progressBar);
    QHBoxLayout *buttonRow = createButtonRow();
    layout->addStretch();
    layout->addLayout(buttonRow);
    layout->addWidget(createVersionLabel());
    setupKeyboardAccess();
    adaptToScreen();

    connect(playButton, &QPushButton::clicked, this, &MainWindow::onPlayClicked);
    connect(settingsButton, &QPushButton::clicked, this, &MainWindow::onSettingsClicked);
    connect(websiteButton, &QPushButton::clicked, this, &MainWindow::onWebsiteClicked);
    connect(discordButton, &QPushButton::clicked, this, &MainWindow::onDiscordClicked);
}

QHBoxLayout *MainWindow::createHeader()
{
    auto *logoLabel = new QLabel; // adaptToScreen() gives it its picture
    logoLabel->setObjectName(kLogoName);
    logoLabel->setAccessibleName(Product::kName);

    titleLabel = new QLabel(Product::kName);
    titleLabel->setObjectName(u"titleLabel"_s);

    auto *links = new QHBoxLayout;
    links->setSpacing(kLinkSpacing);
    websiteButton = new QPushButton(u"Site Web"_s);
    discordButton = new QPushButton(u"Discord"_s);
    for (QPushButton *button : {websiteButton, discordButton}) {
        // One style rule serves both, so they share the name.
        button->setObjectName(u"socialButton"_s);
        button->setCursor(Qt::PointingHandCursor);
        links->addWidget(button);
    }

    auto *header = new QHBoxLayout;
    header->addWidget(logoLabel);
    header->addWidget(titleLabel);
    header->addStretch();
    header->addLayout(links);
    return header;
}

QHBoxLayout *MainWindow::createStatusRow()
{
    statusLabel = new QLabel(u"Vérification du serveur..."_s);
    statusLabel->setObjectName(u"statusLabel"_s);
    playersLabel = new PillLabel;
    playersLabel->setObjectName(u"playersLabel"_s);

    auto *row = new QHBoxLayout;
    row->addWidget(statusLabel);
    row->addStretch();
    row->addWidget(playersLabel);
    return row;
}

QLabel *MainWindow::createNewsHeading()
{
    auto *heading = new QLabel(u"Actualités"_s);
    heading->setObjectName(u"sectionTitle"_s);
    heading->setIndent(0); // the sheet's margin makes Qt indent the text, out of line with the rest
    return heading;
}

void MainWindow::createNewsPanel()
{
    newsWidget = new NewsView;
    newsWidget->setObjectName(u"newsWidget"_s);
    newsWidget->setReadOnly(true);
    newsWidget->setMinimumHeight(kNewsMinimumHeight);
    newsWidget->setPlaceholderText(u"Chargement des actualités..."_s);
    new NewsLinks(newsWidget);
}

void MainWindow::createProgressArea()
{
    progressLabel = new ElidedLabel(u"Vérification des mises à jour..."_s);
    progressLabel->setObjectName(u"progressLabel"_s);
    progressLabel->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    progressLabel->setTextFormat(Qt::PlainText); // what a server says in an error is no HTML

    progressBar = new RoundedProgressBar;
    progressBar->setObjectName(u"progressBar"_s);
    progressBar->setMinimum(0);
    progressBar->setMaximum(100);
    progressBar->setValue(0);
    progressBar->setTextVisible(false);
    progressBar->setFixedHeight(kProgressBarHeight);
    progressBar->setFormat(u"%p\u00a0%"_s); // French puts a space before the sign
    connect(progressBar, &QProgressBar::valueChanged, this, &MainWindow::showPercentage);
    showPercentage();
    taskbarProgress = new TaskbarProgress(progressBar);
}

QHBoxLayout *MainWindow::createButtonRow()
{
    settingsButton = new QPushButton(u"Paramètres"_s);
    settingsButton->setObjectName(u"settingsButton"_s);
    settingsButton->setCursor(Qt::PointingHandCursor);
    settingsButton->setFixedSize(kSettingsButtonSize);

    playButton = new QPushButton(kPlay);
    playButton->setObjectName(u"playButton"_s);
    playButton->setCursor(Qt::PointingHandCursor);
    playButton->setFixedSize(kPlayButtonSize);
    playButton->setEnabled(false);

    auto *glow = new QGraphicsDropShadowEffect;
    glow->setColor(QColor(Colors::kAccent));
    glow->setOffset(0, 0);
    playButton->setGraphicsEffect(glow);

    auto *row = new QHBoxLayout;
    row->setSpacing(kRowSpacing);
    row->addWidget(settingsButton);
    row->addStretch();
    row->addWidget(playButton);
    row->addStretch();
    return row;
}

QLabel *MainWindow::createVersionLabel()
{
    auto *label = new QLabel(u"Version %1"_s.arg(BuildSettings::launcherVersion()));
    label->setObjectName(u"versionLabel"_s);
    label->setAlignment(Qt::AlignCenter);
    return label;
}

void MainWindow::setupKeyboardAccess()
{
    newsWidget->setTabChangesFocus(true);
    // The first focus is on something that a stray Enter does nothing to.
    newsWidget->setFocus();
    new FocusRing(this);

    // Outside of dialogs a button listens to Space alone.
    for (QPushButton *button : {websiteButton, discordButton, settingsButton, playButton}) {
        auto *enter = new QShortcut(button);
        enter->setKeys({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
        enter->setContext(Qt::WidgetShortcut);
        enter->setAutoRepeat(false); // a key held down would start the game again and again
        connect(enter, &QShortcut::activated, button, &QPushButton::click);
    }

    websiteButton->setAccessibleName(u"Ouvrir le site web"_s);
    discordButton->setAccessibleName(u"Ouvrir le salon Discord"_s);
    newsWidget->setAccessibleName(u"Actualités"_s);
    progressBar->setAccessibleName(u"Progression"_s);

    AccessibleParts::install();
    announcer = new Announcer(this);
    connect(progressBar, &QProgressBar::valueChanged, announcer, &Announcer::announceProgress);
}

/// Brings what is made of pixels to the screen's. No event tells of every change, painting does.
void MainWindow::adaptToScreen()
{
    screenRatio = devicePixelRatioF();
    if (const QPixmap logo(kLogoFile); !logo.isNull()) {
        titleLabel->hide();
        showLogo(findChild<QLabel *>(kLogoName), logo, screenRatio);
    }
    // Qt blurs over so many pixels of the device.
    static_cast<QGraphicsDropShadowEffect *>(playButton->graphicsEffect())
        ->setBlurRadius(kPlayButtonGlow * screenRatio);
}

void MainWindow::applyStyles()
{
    setStyleSheet(StyleSheets::mainWindow());

    // One line high whatever its text: an unpacker's error has several lines and would push the
    // rows into each other. The message box shows them all.
    progressLabel->ensurePolished();
    progressLabel->setFixedHeight(progressLabel->sizeHint().height());
}

void MainWindow::paintEvent(QPaintEvent *event)
{
    if (screenRatio != devicePixelRatioF())
        adaptToScreen();

    QPainter painter(this);
    // A window manager may not keep to the fixed size, and the window may go to another screen.
    const qreal ratio = Backdrop::ratioOf(painter);
    if (!backdrop.isLoadedFor(size(), ratio)) {
        backdrop.startLoading(size(), ratio);
        backgroundPixmap = backdrop.takePicture();
    }
    backdrop.paint(painter, backgroundPixmap);
    QWidget::paintEvent(event);
}
