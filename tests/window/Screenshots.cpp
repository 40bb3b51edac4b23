#include "app/Identity.h"
#include "app/MainWindow.h"
#include "config/Config.h"
#include "tests/support/HttpServer.h"
#include "tests/support/TestEnvironment.h"
#include "update/Updater.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QTest>
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

/// In pieces: Qt reports the progress of a transfer every 100 ms at most.
HttpAnswer slowArchive()
{
    return HttpAnswer::ok(QByteArray(5'000'000, 'x')).dripped(300'000, 30ms);
}

/// The real window against a scripted server, brought into one state after the other.
class Photographer
{
public:
    explicit Photographer(const QString &folder);

    void takeAll();
    bool failed() const { return m_failed; }

private:
    using Steps = std::function<void(MainWindow &)>;

    void take(const QString &name, const Steps &steps);
    void waitFor(const QString &what, const std::function<bool()> &condition);
    void waitForProgress(MainWindow &window, const QString &start);
    void save(const MainWindow &window, const QString &name);
    void serveDefaults();
    void installClient();
    void removeClient();
    void withModalDialog(const QString &name, MainWindow &window,
                         const std::function<void()> &opening);

    HttpServer m_server;
    QString m_folder;
    QTemporaryDir m_game;
    QByteArray m_archive;
    bool m_failed = false;
};

Photographer::Photographer(const QString &folder)
    : m_folder(folder)
{
    m_server.becomeProxy();
    QDir().mkpath(folder);
    Config::instance().setDofusPath(m_game.path() + u"/Client"_s);

    // A real archive with a client whose verification takes long enough to be seen.
    const QString content = m_game.path() + u"/content"_s;
    QDir().mkpath(content);
    QFile marker(content + u"/DofusInvoker.swf"_s);
    QFile large(content + u"/données.bin"_s);
    if (!marker.open(QIODevice::WriteOnly) || !large.open(QIODevice::WriteOnly) ||
        !large.resize(600'000'000)) {
        qFatal("cannot write the sample client");
    }
    marker.close();
    large.close();
    QProcess zip;
    zip.setWorkingDirectory(content);
    zip.start(u"bsdtar"_s,
              {u"-a"_s, u"-cf"_s, u"../client.zip"_s, u"DofusInvoker.swf"_s, u"données.bin"_s});
    QFile archive(m_game.path() + u"/client.zip"_s);
    if (!zip.waitForFinished(60'000) || !archive.open(QIODevice::ReadOnly))
        qFatal("bsdtar failed");
    m_archive = archive.readAll();
}

void Photographer::serveDefaults()
{
    m_server.clear();
    m_server.answer("/api/status.php", HttpAnswer::ok(R"({"online": true, "players": 128})"));
    m_server.answer("/api/news.php", HttpAnswer::ok(kNews));
    m_server.answer("/api/launcher_version.json", HttpAnswer::ok(R"({"version": "1.0.0"})"));
}

void Photographer::installClient()
{
    QDir().mkpath(Config::instance().dofusPath());
    QFile marker(Config::instance().dofusPath() + u"/DofusInvoker.swf"_s);
    if (!marker.open(QIODevice::WriteOnly))
        qFatal("cannot install the sample client");
}

void Photographer::removeClient()
{
    QDir(Config::instance().dofusPath()).removeRecursively();
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

void Photographer::waitForProgress(MainWindow &window, const QString &start)
{
    const auto *label = window.findChild<QLabel *>(u"progressLabel"_s);
    waitFor(start, [label, start] { return label->text().startsWith(start); });
}

void Photographer::save(const MainWindow &window, const QString &name)
{
    QTest::qWait(std::chrono::milliseconds(kSettling).count());
    const QRect frame = window.geometry();
    const QPixmap picture =
        window.screen()->grabWindow(0, frame.x(), frame.y(), frame.width(), frame.height());
    const QString path = m_folder + u'/' + name + u".png"_s;
    if (picture.save(path))
        std::printf("%s\n", qPrintable(path));
    else
        m_failed = true;
}

void Photographer::take(const QString &name, const Steps &steps)
{
    MainWindow window;
    window.move(0, 0);
    window.show();
    if (!QTest::qWaitForWindowExposed(&window))
        m_failed = true;
    waitFor(u"the news"_s, [this] { return m_server.requestCount("/api/news.php") == 1; });
    steps(window);
    save(window, name);
    // The verification posts to the window's Updater.
    QThreadPool::globalInstance()->waitForDone();
}

/// `opening` runs a dialog's own event loop; the picture is taken from within it.
void Photographer::withModalDialog(const QString &name, MainWindow &window,
                                   const std::function<void()> &opening)
{
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &poll, [&] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isVisible())
            return;
        poll.stop();
        save(window, name);
        dialog->reject();
    });
    poll.start(10ms);
    opening();
    waitFor(name, [&poll] { return !poll.isActive(); });
}

void Photographer::takeAll()
{
    removeClient();
    serveDefaults();
    m_server.answer("/api/launcher_version.json", HttpAnswer::never());
    take(u"01-checking"_s, [this](MainWindow &window) {
        waitForProgress(window, u"Vérification des mises à jour du launcher"_s);
    });

    serveDefaults();
    installClient();
    m_server.answer("/api/launcher_version.json",
                    HttpAnswer::ok(R"({"version": "1.1.0", "changelog":
                        "- Téléchargement plus rapide\n- Nouvelle image de fond\n- Corrections"})"));
    take(u"03-ready-after-declining"_s, [this](MainWindow &window) {
        withModalDialog(u"02-update-prompt"_s, window,
                        [&] { waitForProgress(window, u"Prêt à jouer"_s); });
    });

    serveDefaults();
    removeClient();
    m_server.answer("/client/DofusClient.zip", slowArchive().heldAfter(2'100'000));
    take(u"04-downloading-known-size"_s,
         [this](MainWindow &window) { waitForProgress(window, u"Téléchargement du client"_s); });

    serveDefaults();
    m_server.answer("/client/DofusClient.zip", slowArchive().chunked().heldAfter(2'100'000));
    take(u"05-downloading-unknown-size"_s,
         [this](MainWindow &window) { waitForProgress(window, u"Téléchargement du client"_s); });

    serveDefaults();
    m_server.answer("/client/DofusClient.zip", HttpAnswer::ok(m_archive));
    m_server.answer("/updates/version.json",
                    HttpAnswer::ok(R"({"files": [{"name": "DofusInvoker.swf", "hash": "x"},
                                                 {"name": "données.bin", "hash": "x"}]})"));
    take(u"07-verifying"_s, [this](MainWindow &window) {
        waitForProgress(window, u"Extraction du client"_s);
        save(window, u"06-unpacking"_s);
        waitForProgress(window, u"Vérification des fichiers: 1/2"_s);
    });

    serveDefaults();
    installClient();
    take(u"08-ready"_s, [this](MainWindow &window) { waitForProgress(window, u"Prêt à jouer"_s); });

    serveDefaults();
    removeClient();
    take(u"10-error"_s, [this](MainWindow &window) {
        withModalDialog(u"09-error-box"_s, window, [&] { waitForProgress(window, u"Erreur"_s); });
    });

    serveDefaults();
    installClient();
    m_server.answer("/api/status.php", HttpAnswer::status(500));
    m_server.answer("/api/news.php", HttpAnswer::status(500));
    take(u"11-offline"_s,
         [this](MainWindow &window) { waitForProgress(window, u"Prêt à jouer"_s); });

    serveDefaults();
    QByteArrayList items;
    for (int i = 1; i <= 15; ++i) {
        items.append(
            "{\"date\": \"" + QByteArray::number(i) +
            "/11\", \"title\": \"Chronique de la vallée\", \"content\": \"" +
            QByteArray("Les éclaireurs racontent la neige, le lac et la citadelle. ").repeated(4) +
            "\"}");
    }
    m_server.answer("/api/news.php", HttpAnswer::ok('[' + items.join(',') + ']'));
    take(u"12-long-news"_s,
         [this](MainWindow &window) { waitForProgress(window, u"Prêt à jouer"_s); });

    serveDefaults();
    m_server.answer("/api/news.php", HttpAnswer::ok("[]"));
    take(u"13-no-news"_s,
         [this](MainWindow &window) { waitForProgress(window, u"Prêt à jouer"_s); });

    serveDefaults();
    take(u"15-keyboard-focus"_s, [this](MainWindow &window) {
        waitForProgress(window, u"Prêt à jouer"_s);
        withModalDialog(u"14-settings"_s, window, [&window] {
            window.findChild<QPushButton *>(u"settingsButton"_s)->click();
        });
        window.activateWindow();
        window.findChild<QPushButton *>(u"playButton"_s)->setFocus(Qt::TabFocusReason);
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
