#include "app/Identity.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"
#include "tests/window/LauncherFixture.h"

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QTextEdit>
#include <QThreadPool>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <functional>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kPatience = 20s;
constexpr auto kSettling = 300ms; // for fades, the busy indicator and the window's first paint

const QByteArray kNews = R"([
    {"date": "20/11", "title": "Ouverture de la saison d'hiver",
     "content": "Les portes de la citadelle s'ouvrent ce soir à 20 h : quêtes, récompenses et feu de joie."},
    "<b>Maintenance</b> jeudi matin, de 6 h à 7 h.",
    {"title": "Événement du week-end", "content": "Expérience doublée dans toutes les forêts."}
])";

const QByteArray kNewsWithLinks = R"([
    {"date": "20/11", "title": "Ouverture de la saison d'hiver",
     "content": "Les règles se lisent <a href='https://forum.test/1'>sur le forum</a>."},
    {"title": "Événement du week-end",
     "content": "Inscrivez-vous <a href='https://forum.test/2'>auprès des éclaireurs</a> avant jeudi."}
])";

/// In pieces: Qt reports the progress of a transfer every 100 ms at most.
HttpAnswer slowArchive()
{
    return HttpAnswer::ok(QByteArray(5'000'000, 'x')).dripped(300'000, 30ms);
}

QByteArray longNews()
{
    QByteArrayList items;
    for (int i = 1; i <= 15; ++i) {
        items.append(
            "{\"date\": \"" + QByteArray::number(i) +
            "/11\", \"title\": \"Chronique de la vallée\", \"content\": \"" +
            QByteArray("Les éclaireurs racontent la neige, le lac et la citadelle. ").repeated(4) +
            "\"}");
    }
    return '[' + items.join(',') + ']';
}

QByteArray longChangelog()
{
    QByteArray notes;
    for (int i = 1; i <= 40; ++i)
        notes += "- Correction de la quête n° " + QByteArray::number(i) + "\\n";
    return R"({"version": "1.1.0", "changelog": ")" + notes + "\"}";
}

/// A real archive with a client whose verification takes long enough to be seen.
QByteArray realArchive()
{
    const QTemporaryDir content;
    Files::write(content.filePath(u"DofusInvoker.swf"_s), {});
    Files::write(content.filePath(u"données.bin"_s), {});
    if (!QFile::resize(content.filePath(u"données.bin"_s), 600'000'000))
        qFatal("cannot write the sample client");
    return Files::zipped(content.path());
}

/// The real window against a scripted server, brought into one state after the other.
class Photographer
{
public:
    explicit Photographer(const QString &folder);

    void takeAll();
    bool failed() const { return m_failed; }

private:
    using Steps = std::function<void(LauncherFixture &)>;

    /// `prepare` changes what server and game folder hold before the window opens.
    void take(const QString &name, const Steps &prepare, const Steps &steps);
    /// The steps up to a progress text that begins so.
    Steps until(const QString &progress);
    void waitFor(const QString &what, const std::function<bool()> &condition);
    /// So that keys reach the window: there may be no window manager.
    void activate(const LauncherFixture &launcher);
    void save(const LauncherFixture &launcher, const QString &name);
    void withModalDialog(const QString &name, const LauncherFixture &launcher,
                         const std::function<void()> &opening);

    QString m_folder;
    bool m_failed = false;
};

Photographer::Photographer(const QString &folder)
    : m_folder(folder)
{
    QDir().mkpath(folder);
}

void Photographer::waitFor(const QString &what, const std::function<bool()> &condition)
{
    QElapsedTimer elapsed;
    elapsed.start();
    while (!condition()) {
        if (elapsed.hasExpired(std::chrono::milliseconds(kPatience).count())) {
            std::fprintf(stderr, "gave up waiting for: %s\n", qPrintable(what));
            m_failed = true;
            return;
        }
        QTest::qWait(10);
    }
}

Photographer::Steps Photographer::until(const QString &progress)
{
    return [this, progress](LauncherFixture &launcher) {
        const auto *label = launcher.label(u"progressLabel"_s);
        waitFor(progress, [label, progress] { return label->text().startsWith(progress); });
    };
}

void Photographer::activate(const LauncherFixture &launcher)
{
    launcher.window()->activateWindow();
    waitFor(u"the window"_s, [&launcher] { return launcher.window()->isActiveWindow(); });
}

void Photographer::save(const LauncherFixture &launcher, const QString &name)
{
    QTest::qWait(std::chrono::milliseconds(kSettling).count());
    const QRect frame = launcher.window()->geometry();
    const QPixmap picture = launcher.window()->screen()->grabWindow(0, frame.x(), frame.y(),
                                                                    frame.width(), frame.height());
    const QString path = m_folder + u'/' + name + u".png"_s;
    if (picture.save(path))
        std::printf("%s\n", qPrintable(path));
    else
        m_failed = true;
}

void Photographer::take(const QString &name, const Steps &prepare, const Steps &steps)
{
    LauncherFixture launcher;
    HttpServer &server = launcher.server;
    server.clear();
    server.answer("/api/status.php", HttpAnswer::ok(R"({"online": true, "players": 128})"));
    server.answer("/api/news.php", HttpAnswer::ok(kNews));
    server.answer("/api/launcher_version.json", HttpAnswer::ok(R"({"version": "1.0.0"})"));
    prepare(launcher);

    launcher.build();
    launcher.window()->move(0, 0);
    launcher.window()->show();
    if (!QTest::qWaitForWindowExposed(launcher.window()))
        m_failed = true;
    waitFor(u"the news"_s, [&server] { return server.requestCount("/api/news.php") == 1; });
    steps(launcher);
    save(launcher, name);
    // The verification posts to the window's Updater.
    QThreadPool::globalInstance()->waitForDone();
}

/// `opening` runs a dialog's own event loop; the picture is taken from within it.
void Photographer::withModalDialog(const QString &name, const LauncherFixture &launcher,
                                   const std::function<void()> &opening)
{
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &poll, [&] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isVisible())
            return;
        poll.stop();
        save(launcher, name);
        dialog->reject();
    });
    poll.start(10ms);
    opening();
    waitFor(name, [&poll] { return !poll.isActive(); });
}

void Photographer::takeAll()
{
    const Steps nothing = [](LauncherFixture &) {};
    const Steps installed = [](LauncherFixture &launcher) { launcher.installClient(); };
    const Steps ready = until(u"Prêt à jouer"_s);

    take(
        u"01-checking"_s,
        [](LauncherFixture &launcher) {
            launcher.server.answer("/api/launcher_version.json", HttpAnswer::never());
        },
        until(u"Vérification des mises à jour du launcher"_s));

    take(
        u"03-ready-after-declining"_s,
        [](LauncherFixture &launcher) {
            launcher.installClient();
            launcher.server.answer("/api/launcher_version.json",
                                   HttpAnswer::ok(R"({"version": "1.1.0", "changelog":
                        "- Téléchargement plus rapide\n- Nouvelle image de fond\n- Corrections"})"));
        },
        [this, ready](LauncherFixture &launcher) {
            withModalDialog(u"02-update-prompt"_s, launcher, [&] { ready(launcher); });
        });

    take(
        u"04-downloading-known-size"_s,
        [](LauncherFixture &launcher) {
            launcher.server.answer("/client/DofusClient.zip", slowArchive().heldAfter(2'100'000));
        },
        until(u"Téléchargement du client"_s));

    take(
        u"05-downloading-unknown-size"_s,
        [](LauncherFixture &launcher) {
            launcher.server.answer("/client/DofusClient.zip",
                                   slowArchive().chunked().heldAfter(2'100'000));
        },
        until(u"Téléchargement du client"_s));

    take(
        u"07-verifying"_s,
        [](LauncherFixture &launcher) {
            launcher.server.answer("/client/DofusClient.zip", HttpAnswer::ok(realArchive()));
            launcher.server.answer(
                "/updates/version.json",
                HttpAnswer::ok(R"({"files": [{"name": "DofusInvoker.swf", "hash": "x"},
                                                 {"name": "données.bin", "hash": "x"}]})"));
        },
        [this](LauncherFixture &launcher) {
            until(u"Extraction du client"_s)(launcher);
            save(launcher, u"06-unpacking"_s);
            until(u"Vérification des fichiers: 1/2"_s)(launcher);
        });

    take(u"08-ready"_s, installed, ready);

    take(u"10-error"_s, nothing, [this](LauncherFixture &launcher) {
        withModalDialog(u"09-error-box"_s, launcher, [&] { until(u"Erreur"_s)(launcher); });
    });

    take(
        u"11-offline"_s,
        [](LauncherFixture &launcher) {
            launcher.installClient();
            launcher.server.answer("/api/status.php", HttpAnswer::status(500));
            launcher.server.answer("/api/news.php", HttpAnswer::status(500));
        },
        ready);

    take(
        u"12-long-news"_s,
        [](LauncherFixture &launcher) {
            launcher.installClient();
            launcher.server.answer("/api/news.php", HttpAnswer::ok(longNews()));
        },
        ready);

    take(
        u"13-no-news"_s,
        [](LauncherFixture &launcher) {
            launcher.installClient();
            launcher.server.answer("/api/news.php", HttpAnswer::ok("[]"));
        },
        ready);

    take(u"15-keyboard-focus"_s, installed, [this, ready](LauncherFixture &launcher) {
        ready(launcher);
        withModalDialog(u"14-settings"_s, launcher,
                        [&launcher] { launcher.child<QPushButton>(u"settingsButton"_s)->click(); });
        activate(launcher);
        launcher.button(u"Paramètres"_s)->setFocus();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    });

    take(
        u"17-long-changelog-declined"_s,
        [](LauncherFixture &launcher) {
            launcher.installClient();
            launcher.server.answer("/api/launcher_version.json", HttpAnswer::ok(longChangelog()));
        },
        [this, ready](LauncherFixture &launcher) {
            withModalDialog(u"16-long-changelog"_s, launcher, [&] { ready(launcher); });
        });

    take(u"20-settings-after-error"_s, installed, [this, ready](LauncherFixture &launcher) {
        ready(launcher);
        activate(launcher);
        launcher.playButton()->setFocus();
        withModalDialog(u"18-error-box-with-keyboard"_s, launcher,
                        [&launcher] { QTest::keyClick(launcher.playButton(), Qt::Key_Return); });
        activate(launcher);
        QTimer::singleShot(200ms, launcher.window(), [] {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        });
        withModalDialog(u"19-settings-with-keyboard"_s, launcher,
                        [&launcher] { launcher.child<QPushButton>(u"settingsButton"_s)->click(); });
    });

    take(
        u"21-news-links"_s,
        [](LauncherFixture &launcher) {
            launcher.installClient();
            launcher.server.answer("/api/news.php", HttpAnswer::ok(kNewsWithLinks));
        },
        [ready](LauncherFixture &launcher) {
            ready(launcher);
            for (int i = 0; i < 2; ++i)
                QTest::keyClick(launcher.news(), Qt::Key_Tab);
        });
}

} // namespace

/// Usage: take_screenshots FOLDER, on a display of at least the window's size.
int main(int argc, char **argv)
{
    const TestEnvironment environment;
    QApplication application(argc, argv);
    Identity::apply();

    Photographer photographer(QApplication::arguments().value(1, u"screenshots"_s));
    photographer.takeAll();
    return photographer.failed() ? 1 : 0;
}
