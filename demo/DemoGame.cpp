// The sample game. It shows that it was started, from where and with what, in its window and in a
// small file in its working directory, by which a script can tell as well.

#include "config/Colors.h"

#include <QApplication>
#include <QDir>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QSaveFile>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>

#include <chrono>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr QSize kWindowSize(620, 340);
constexpr QMargins kMargins(40, 34, 40, 30);

const auto kMarkerName = u"jeu-demarre.txt"_s;
const auto kMarkerText = u"Programme : %1\n"
                         u"Dossier de travail : %2\n"
                         u"Arguments : %3\n"
                         u"Processus : %4\n"_s;

// An automated run sets it, so that no game stays behind: after so many seconds the game ends.
constexpr auto kLifetimeVariable = "VEYRA_DEMO_GAME_SECONDS";

const auto kStyle = uR"(
    #game {
        background: qlineargradient(x1:0, y1:0, x2:1, y2:1, stop:0 %1, stop:1 #33502a);
    }
    #title { color: %2; font-size: 30px; font-weight: bold; }
    #text { color: %3; font-size: 15px; }
    #details { color: #c8c8c8; font-size: 12px; }
    QPushButton {
        color: %3;
        background: %4;
        border: none;
        border-radius: 10px;
        font-size: 15px;
        font-weight: bold;
        padding: 12px 28px;
    }
    QPushButton:hover { background: %5; }
)"_s.arg(Colors::kPanel, Colors::kAccent, Colors::kText, Colors::kGradientEnd,
         Colors::kDarkerGreen);

QString argumentsAsText()
{
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    return arguments.isEmpty() ? u"aucun"_s : arguments.join(u' ');
}

/// Appears whole or not at all, so whoever waits for the file never reads half of it.
bool writeMarker()
{
    QSaveFile marker(QDir::current().filePath(kMarkerName));
    if (!marker.open(QIODevice::WriteOnly))
        return false;
    marker.write(
        kMarkerText
            .arg(QCoreApplication::applicationFilePath(), QDir::currentPath(), argumentsAsText())
            .arg(QCoreApplication::applicationPid())
            .toUtf8());
    return marker.commit();
}

QLabel *createLabel(const QString &name, const QString &text)
{
    auto *label = new QLabel(text);
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

QString detailsText(bool markerWritten)
{
    const QString marker =
        markerWritten ? u"Témoin écrit : %1"_s.arg(kMarkerName)
                      : u"Impossible d'écrire le témoin %1 dans ce dossier"_s.arg(kMarkerName);
    return u"Dossier de travail : %1\nArguments : %2\n%3"_s.arg(QDir::currentPath(),
                                                                argumentsAsText(), marker);
}

void setupWindow(QWidget *window, bool markerWritten)
{
    window->setObjectName(u"game"_s);
    window->setAttribute(Qt::WA_StyledBackground);
    window->setWindowTitle(u"Jeu d'exemple"_s);
    window->setFixedSize(kWindowSize);
    window->setStyleSheet(kStyle);

    auto *quitButton = new QPushButton(u"Quitter le jeu"_s);
    quitButton->setCursor(Qt::PointingHandCursor);
    QObject::connect(quitButton, &QPushButton::clicked, window, &QWidget::close);

    auto *layout = new QVBoxLayout(window);
    layout->setContentsMargins(kMargins);
    layout->addWidget(createLabel(u"title"_s, u"Le jeu a démarré !"_s));
    layout->addWidget(createLabel(
        u"text"_s, u"Vous êtes dans le client d'exemple de Veyra, installé et lancé par le "
                   u"launcher. Sur un vrai serveur, c'est ici que l'aventure commence."_s));
    layout->addStretch();
    layout->addWidget(createLabel(u"details"_s, detailsText(markerWritten)));
    layout->addStretch();
    layout->addWidget(quitButton, 0, Qt::AlignRight);
}

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(u"Jeu d'exemple"_s);
    QApplication::setStyle(u"Fusion"_s);

    QWidget window;
    setupWindow(&window, writeMarker());
    window.move(QGuiApplication::primaryScreen()->availableGeometry().center() -
                window.rect().center());
    window.show();

    const std::chrono::seconds lifetime(qEnvironmentVariableIntValue(kLifetimeVariable));
    if (lifetime.count() > 0)
        QTimer::singleShot(lifetime, &window, &QWidget::close);
    return QApplication::exec();
}
