#include "tests/window/LauncherFixture.h"

#include "config/Config.h"
#include "tests/support/Files.h"

#include <QLabel>
#include <QNetworkProxy>
#include <QProgressBar>
#include <QPushButton>
#include <QTextEdit>

using namespace Qt::Literals::StringLiterals;

LauncherFixture::LauncherFixture()
{
    for (const char *path : {"/api/status.php", "/api/news.php", "/api/launcher_version.json",
                             "/client/DofusClient.zip", "/updates/version.json"})
        server.answer(path, HttpAnswer::never());
    server.becomeProxy();
    Config::instance().setDofusPath(m_folder.path());
}

LauncherFixture::~LauncherFixture()
{
    close();
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
}

void LauncherFixture::build()
{
    m_window = std::make_unique<MainWindow>();
}

void LauncherFixture::open()
{
    build();
    m_window->show();
}

void LauncherFixture::close()
{
    m_window.reset();
}

void LauncherFixture::installClient()
{
    Files::write(gameFolder() + u"/DofusInvoker.swf"_s, "client");
}

QLabel *LauncherFixture::label(const QString &objectName) const
{
    return child<QLabel>(objectName);
}

QProgressBar *LauncherFixture::progressBar() const
{
    return child<QProgressBar>(u"progressBar"_s);
}

QPushButton *LauncherFixture::playButton() const
{
    return child<QPushButton>(u"playButton"_s);
}

QPushButton *LauncherFixture::button(const QString &text) const
{
    const auto buttons = m_window->findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        if (button->text() == text)
            return button;
    }
    qFatal("There is no button \"%s\"", qPrintable(text));
}

QTextEdit *LauncherFixture::news() const
{
    return child<QTextEdit>(u"newsWidget"_s);
}

QString LauncherFixture::face() const
{
    const QLabel *step = label(u"progressLabel"_s);
    const QProgressBar *bar = progressBar();
    const QString progress =
        bar->maximum() == 0 ? u"busy"_s : u"%1/%2"_s.arg(bar->value()).arg(bar->maximum());
    return QStringList{step->text(), step->styleSheet(), progress,
                       playButton()->text() + (playButton()->isEnabled() ? u" on"_s : u" off"_s)}
        .join(u" | "_s);
}
