#include "tests/publish/Publisher.h"
#include "tests/publish/SentSite.h"
#include "tests/publish/SshServer.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <memory>
#include <unistd.h>
#include <utility>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int kLongEnough = 30'000; // milliseconds

} // namespace

/// "envoyer" over sftp, to a real sshd.
class TestPublishSftp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void theSiteArrivesAndWhatDidNotChangeIsLinked();
    void killedAtAnyStep();
    void aFileGoesOnWhereItBrokeOff();
    void aPartIsReadBackFirst_data();
    void aPartIsReadBackFirst();
    void whatChangedSinceItWasPreparedIsNotSent();
    void aServerThatKnowsNoLinksGetsCopies();
    void aServerThatCannotSwitchIsToldBefore_data();
    void aServerThatCannotSwitchIsToldBefore();
    void aLostConnectionIsNoServerThatCannotSwitch();
    void theSwitchIsNotInterrupted();
    void foldersAreOpenToTheWebServer();
    void aServerThatTakesNothingKeepsTheOldSite();
    void nothingIsTouchedWhereNoLockCanBeMade();
    void aServerThatShowsNothingElse();
    void aNameThatCannotBeWrittenIsRefused();
    void theConnectionIsLostAtTheSwitch_data();
    void theConnectionIsLostAtTheSwitch();
    void whoeverIsNotLetIn_data();
    void whoeverIsNotLetIn();
    void withoutTheProgram();
    void aServerThatSaysNothingIsGivenUp();
    void aServerThatStopsWithinAFileIsGivenUp();

private:
    void serve(const QString &denied = {}, const QString &options = {})
    {
        m_server.reset(); // each changes the search path and puts it back
        m_server = std::make_unique<SshServer>(denied, options);
        QTRY_VERIFY2_WITH_TIMEOUT(m_server->answers(), m_server->errors().constData(), kLongEnough);
    }
    QString address() const { return m_server->address(m_folder); }
    Publisher::Result send() const { return m_publisher->run({u"envoyer"_s, address()}); }
    void prepareNews() const
    {
        QCOMPARE(m_publisher->run({u"nouvelles"_s, u"ajouter"_s, u"Titre"_s, u"Texte"_s}).code, 0);
        QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    }
    void prepareClient() const
    {
        QCOMPARE(m_publisher->run({u"client"_s, m_publisher->beside(u"client"_s)}).code, 0);
        QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    }

    /// Which of its steps puts the new site in the place of the old one. The destination is as
    /// before afterwards.
    int switchingStep();

    int m_switchingStep = 0; ///< once it is known: it is the same for each site
    std::unique_ptr<SshServer> m_server;
    std::unique_ptr<Publisher> m_publisher;
    QString m_folder;
};

void TestPublishSftp::initTestCase()
{
    const QString reason = SshServer::whyNot();
    if (!reason.isEmpty())
        QSKIP(qPrintable(reason));
}

void TestPublishSftp::init()
{
    m_server.reset();
    m_publisher = std::make_unique<Publisher>();
    m_folder = m_publisher->beside(u"là bas"_s);
    QMap<QString, QByteArray> client = Clients::sample();
    client.insert(u"data/[1] #~ 'x' $y;&.txt"_s, "a name with all that shells know");
    Clients::write(m_publisher->beside(u"client"_s), client);
    QCOMPARE(m_publisher->run({u"init"_s, u"http://veyra.test"_s}).code, 0);
}

void TestPublishSftp::theSiteArrivesAndWhatDidNotChangeIsLinked()
{
    serve();
    prepareClient();
    const Publisher::Result first = send();
    QVERIFY2(first.code == 0, qPrintable(first.errors));
    QVERIFY2(first.output.startsWith(u"11 fichiers, 11 envoyés."_s), qPrintable(first.output));
    QCOMPARE(SentSite::served(m_folder), m_publisher->site());

    const QStringList before = Files::tree(m_folder);
    const Publisher::Result again = send();
    QCOMPARE(again.code, 0);
    QVERIFY2(again.output.contains(u"est déjà en ligne là-bas"_s), qPrintable(again.output));
    QCOMPARE(Files::tree(m_folder), before);

    prepareNews();
    const Publisher::Result second = send();
    QVERIFY2(second.output.startsWith(u"11 fichiers, 1 envoyé."_s), qPrintable(second.output));
    QCOMPARE(SentSite::served(m_folder), m_publisher->site());
    const QString archive = m_folder + u"/site/client/DofusClient.zip"_s;
    QCOMPARE(std::filesystem::hard_link_count(archive.toStdU16String()), 2U);

    // The state is sent where it is newer here.
    const QString state = m_folder + u"/etat/status.json"_s;
    QCOMPARE(m_publisher->run({u"--atelier"_s, m_folder, u"etat"_s, u"en-ligne"_s, u"5"_s}).code,
             0);
    QCOMPARE(send().code, 0);
    QVERIFY(Files::read(state).contains("5"));
    QCOMPARE(m_publisher->run({u"etat"_s, u"en-ligne"_s, u"6"_s}).code, 0);
    QFile file(m_publisher->path(u"etat/status.json"_s));
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(QFileInfo(state).lastModified().addSecs(5),
                             QFileDevice::FileModificationTime));
    QCOMPARE(send().code, 0);
    QVERIFY(Files::read(state).contains("6"));

    // Somebody else is sending.
    const QString lock = m_folder + u"/.verrou-2026-11-22-06h43-machine-0123456789abcdef"_s;
    QVERIFY(QDir().mkpath(lock));
    const Publisher::Result refused = send();
    QCOMPARE(refused.code, 2);
    QVERIFY2(refused.errors.contains(u"« .verrou-2026-11-22-06h43-machine-"_s),
             qPrintable(refused.errors));
    QVERIFY(QDir().rmdir(lock));

    // Back, and old ones go.
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 0);
    QCOMPARE(send().code, 0);
    QCOMPARE(SentSite::served(m_folder), m_publisher->site());
    for (int i = 0; i < 2; ++i) {
        prepareNews();
        QCOMPARE(send().code, 0);
    }
    const QDir generations(m_folder + u"/publications"_s);
    QCOMPARE(generations.entryList(QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot).size(), 3);
    QCOMPARE(generations.entryList(QDir::Files | QDir::Hidden).size(), 3);
    QCOMPARE(SentSite::served(m_folder), m_publisher->site());
}

void TestPublishSftp::killedAtAnyStep()
{
    serve();
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(send().code, 0);
        prepareNews();
    }
    // An old one is removed as well now.
    QVERIFY(SentSite::killAtEveryStep(*m_publisher, address(), m_folder, 8, 2) > 25);
}

/// Interrupted and then killed within one file, at a speed that leaves time for it.
void TestPublishSftp::aFileGoesOnWhereItBrokeOff()
{
    constexpr int kSize = 10'000'000; // so that a pause of the test's own lasts less
    serve();
    Files::write(m_publisher->beside(u"client/data/gros"_s), Files::noise(kSize));
    prepareClient();
    m_server->setClientOptions("-l 16000"); // two megabytes per second
    const QString archive = m_folder + u"/.morceau"_s;
    QProcess process;
    process.setWorkingDirectory(m_publisher->path(QString()));
    process.start(Publisher::program(), {u"envoyer"_s, address()});
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(archive).size() > 2'500'000, kLongEnough);
    ::kill(static_cast<pid_t>(process.processId()), SIGINT);
    QVERIFY(process.waitForFinished(kLongEnough));
    QCOMPARE(process.exitCode(), 130);
    const QString words = QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(words.contains(u"Aucun site n'est encore servi là-bas ; le même « envoyer »"_s),
             qPrintable(words));
    QVERIFY2(words.contains(u"Envoi : 10 %"_s), qPrintable(words)); // within one file
    // Another workshop may send now.
    QVERIFY(QDir(m_folder).entryList({u".verrou-*"_s}, QDir::Dirs | QDir::Hidden).isEmpty());

    // Its beginning is not sent again.
    const qint64 before = QFileInfo(archive).size();
    qint64 smallest = before;
    const auto size = [&smallest, &archive] {
        const qint64 now = QFileInfo(archive).size();
        smallest = std::min(smallest, now);
        return now;
    };
    process.start(Publisher::program(), {u"envoyer"_s, address()});
    QTRY_VERIFY_WITH_TIMEOUT(size() > before + 300'000, kLongEnough);
    QCOMPARE(smallest, before);
    process.kill();
    QVERIFY(process.waitForFinished());
    QVERIFY(SentSite::served(m_folder).isEmpty());

    // sftp ends with the tool, so that the next one is alone there.
    QTRY_VERIFY_WITH_TIMEOUT(!m_server->hasConnections(), kLongEnough);
    QVERIFY(size() < kSize);
    m_server->setClientOptions({});
    const Publisher::Result result = send();
    QVERIFY2(result.code == 0, qPrintable(result.errors));
    QVERIFY(SentSite::served(m_folder) == m_publisher->site());
}

void TestPublishSftp::aPartIsReadBackFirst_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("damagedAt");
    QTest::newRow("a beginning") << 50'000 << -1;
    QTest::newRow("all of it") << 0 << -1;
    QTest::newRow("damaged at its end") << 50'000 << 49'999;
    QTest::newRow("longer than the file") << 900'000 << -1;
}

void TestPublishSftp::aPartIsReadBackFirst()
{
    QFETCH(const int, size);
    QFETCH(const int, damagedAt);
    serve();
    QCOMPARE(send().code, 0);
    prepareClient();
    // Its archive is what is sent first.
    QByteArray part = m_publisher->site().value(u"client/DofusClient.zip"_s);
    if (size != 0)
        part.resize(size, 'x');
    if (damagedAt >= 0)
        part[damagedAt] = static_cast<char>(~part.at(damagedAt));
    Files::write(m_folder + u"/.morceau"_s, part);
    const Publisher::Result result = send();
    QVERIFY2(result.code == 0, qPrintable(result.errors));
    QVERIFY(SentSite::served(m_folder) == m_publisher->site());
    QVERIFY(!QFile::exists(m_folder + u"/.morceau"_s));
}

void TestPublishSftp::whatChangedSinceItWasPreparedIsNotSent()
{
    serve();
    QCOMPARE(send().code, 0);
    const SentSite::Files before = SentSite::served(m_folder);
    prepareClient();
    const QString path = m_publisher->path(u"site/client/DofusClient.zip"_s);
    // Old enough for its sum to be remembered.
    const QDateTime time = QDateTime::currentDateTime().addSecs(-10);
    QFile archive(path);
    QVERIFY(archive.open(QIODevice::ReadWrite));
    QVERIFY(archive.setFileTime(time, QFileDevice::FileModificationTime));
    archive.close();
    QCOMPARE(m_publisher->run({u"envoyer"_s, m_publisher->beside(u"ailleurs"_s)}).code, 0);
    QVERIFY(archive.open(QIODevice::ReadWrite));
    QVERIFY(archive.seek(1000) && archive.putChar('\0') && archive.flush());
    QVERIFY(archive.setFileTime(time, QFileDevice::FileModificationTime));
    archive.close();
    const Publisher::Result result = send();
    QCOMPARE(result.code, 7);
    QVERIFY2(result.errors.contains(u"n'est plus tel qu'il a été préparé"_s) &&
                 result.errors.contains(u"L'ancien site reste servi."_s) &&
                 !result.errors.contains(u"reprend"_s),
             qPrintable(result.errors));
    QCOMPARE(SentSite::served(m_folder), before);
}

void TestPublishSftp::aServerThatKnowsNoLinksGetsCopies()
{
    serve(u"hardlink"_s);
    prepareClient();
    QCOMPARE(send().code, 0);
    prepareNews();
    const Publisher::Result result = send();
    QVERIFY2(result.output.startsWith(u"11 fichiers, 11 envoyés."_s), qPrintable(result.output));
    QCOMPARE(SentSite::served(m_folder), m_publisher->site());
}

void TestPublishSftp::aServerThatCannotSwitchIsToldBefore_data()
{
    QTest::addColumn<QString>("denied");
    QTest::newRow("no symbolic links") << u"symlink"_s;
    QTest::newRow("no renaming over something") << u"posix-rename"_s;
}

void TestPublishSftp::aServerThatCannotSwitchIsToldBefore()
{
    QFETCH(const QString, denied);
    serve(denied);
    prepareClient();
    const auto isRefused = [this] {
        const Publisher::Result result = send();
        return result.code == 2 && result.errors.contains(u"ne permet pas de basculer"_s) &&
               !QFile::exists(m_folder + u"/publications/.en-cours"_s);
    };
    QVERIFY(isRefused());
    serve();
    QCOMPARE(send().code, 0);
    const SentSite::Files before = SentSite::served(m_folder);
    QCOMPARE(before, m_publisher->site());
    prepareNews();
    serve(denied);
    QVERIFY(isRefused());
    QCOMPARE(SentSite::served(m_folder), before);
}

void TestPublishSftp::aLostConnectionIsNoServerThatCannotSwitch()
{
    serve();
    QCOMPARE(send().code, 0);
    const SentSite::Files before = SentSite::served(m_folder);
    prepareNews();
    // Of the two beside it in the shell's pipe one is sftp: its child is ssh.
    m_server->setClientFilter(
        "case $line in 'ln -s'*) for beside in $(cat /proc/$$/task/$$/children); do "
        "for child in $(cat /proc/$beside/task/$beside/children); do "
        "if [ \"$(cat /proc/$child/comm)\" = ssh ]; then kill $child; fi; done; done; "
        "printf '%s\\n' \"$line\"; exit;; esac");
    const Publisher::Result result = send();
    QCOMPARE(result.code, 7);
    QVERIFY2(result.errors.contains(u"L'ancien site reste servi"_s) &&
                 !result.errors.contains(u"basculer"_s),
             qPrintable(result.errors));
    QCOMPARE(SentSite::served(m_folder), before);
}

/// As after the terminal's Ctrl+C just then.
void TestPublishSftp::theSwitchIsNotInterrupted()
{
    serve();
    m_server->setClientFilter(
        "case $line in 'rename \"site.nouveau\"'*) kill -INT $PPID; sleep 0.5;; "
        "esac");
    const Publisher::Result result = send();
    QCOMPARE(result.code, 130);
    QVERIFY2(result.errors.contains(u"est en ligne là-bas"_s), qPrintable(result.errors));
    QCOMPARE(SentSite::served(m_folder), m_publisher->site());
}

void TestPublishSftp::foldersAreOpenToTheWebServer()
{
    serve({}, u" -u 077"_s);
    QVERIFY(QFile::setPermissions(QFileInfo(m_folder).path(), QFile::Permissions(0x7755)));
    prepareClient();
    QCOMPARE(send().code, 0);
    const QFile::Permissions needed = QFile::ReadOther | QFile::ExeOther;
    for (const QString &name :
         {QString(), u"/publications"_s, u"/etat"_s, u"/site/updates/files"_s})
        QCOMPARE(QFile::permissions(m_folder + name) & needed, needed);
}

void TestPublishSftp::aServerThatTakesNothingKeepsTheOldSite()
{
    serve();
    QCOMPARE(send().code, 0);
    const SentSite::Files before = SentSite::served(m_folder);
    prepareNews();
    serve(u"write"_s);
    const Publisher::Result result = send();
    QCOMPARE(result.code, 7);
    QVERIFY2(result.errors.contains(u"L'ancien site reste servi"_s), qPrintable(result.errors));
    QCOMPARE(SentSite::served(m_folder), before);
}

/// Over sftp a folder that cannot be made is no failure: there may be one already.
void TestPublishSftp::nothingIsTouchedWhereNoLockCanBeMade()
{
    serve();
    QCOMPARE(send().code, 0);
    prepareNews();
    Files::write(m_folder + u"/autre-dossier/fichier"_s, "another's");
    const QStringList before = Files::tree(m_folder);
    serve(u"mkdir"_s);
    const QString log = m_publisher->beside(u"commandes"_s);
    m_server->setClientFilter("printf '%s\\n' \"$line\" >>'" + log.toUtf8() + "'");
    const Publisher::Result result = send();
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"la place ou les droits"_s), qPrintable(result.errors));
    QCOMPARE(Files::tree(m_folder), before);
    QVERIFY(Files::read(log).contains("mkdir"));
    QVERIFY(!Files::read(log).contains("rm"));
}

/// As hosts give it: their customers' folder is all there is.
void TestPublishSftp::aServerThatShowsNothingElse()
{
    if (::geteuid() != 0)
        QSKIP("only root can lock others up in a folder");
    for (QString at = QFileInfo(m_folder).path(); at != u"/"_s; at = QFileInfo(at).path()) {
        if (QFileInfo(at).ownerId() != 0 ||
            QFile::permissions(at).testAnyFlags(QFile::WriteGroup | QFile::WriteOther))
            QSKIP("sshd locks nobody up in a folder that others can write to");
    }
    QVERIFY(QDir().mkpath(m_folder));
    serve({}, u"\nChrootDirectory \"%1\""_s.arg(m_folder));
    const QString root = m_server->address(u"/~"_s);
    QCOMPARE(m_publisher->run({u"envoyer"_s, root}).code, 0);
    prepareNews();
    const Publisher::Result result = m_publisher->run({u"envoyer"_s, root});
    QVERIFY2(result.code == 0, qPrintable(result.errors));
    QCOMPARE(SentSite::served(m_folder), m_publisher->site());
}

/// No client has it, since Windows would not take it; what else lies on a site may.
void TestPublishSftp::aNameThatCannotBeWrittenIsRefused()
{
    serve();
    QCOMPARE(send().code, 0);
    const QStringList before = Files::tree(m_folder);
    prepareNews();
    Files::write(m_publisher->path(u"site/notes/a\"b.txt"_s), "note");
    const Publisher::Result result = send();
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"a\"b.txt » ne peut pas être envoyé par sftp"_s),
             qPrintable(result.errors));
    QCOMPARE(Files::tree(m_folder), before);
}

int TestPublishSftp::switchingStep()
{
    if (m_switchingStep > 0)
        return m_switchingStep;
    const QString untouched = m_folder + u".avant"_s;
    if (QProcess::execute(u"cp"_s, {u"-a"_s, m_folder, untouched}) != 0)
        return -1;
    // Who is killed later than that has made the link, or has put it in its place.
    int before = 0;
    int after = 64;
    while (before + 1 < after) {
        const int step = (before + after) / 2;
        m_publisher->runUntil(step, {u"envoyer"_s, address()});
        const bool isLinkMade = QFileInfo(m_folder + u"/site.nouveau"_s).isSymLink() ||
                                SentSite::served(m_folder) == m_publisher->site();
        (isLinkMade ? after : before) = step;
        QDir(m_folder).removeRecursively();
        if (QProcess::execute(u"cp"_s, {u"-a"_s, untouched, m_folder}) != 0)
            return -1;
    }
    m_switchingStep = after;
    return after;
}

void TestPublishSftp::theConnectionIsLostAtTheSwitch_data()
{
    QTest::addColumn<bool>("isSwitched");
    QTest::addColumn<bool>("isServerGone");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("words");
    QTest::newRow("before it, and the server is there again")
        << false << false << 7 << u"L'ancien site reste servi"_s;
    QTest::newRow("before it, and the server is gone")
        << false << true << 7 << u"au moment de la bascule"_s;
    QTest::newRow("after it, and the server is there again")
        << true << false << 0 << u"en ligne là-bas"_s;
    QTest::newRow("after it, and the server is gone")
        << true << true << 7 << u"au moment de la bascule"_s;
}

void TestPublishSftp::theConnectionIsLostAtTheSwitch()
{
    QFETCH(const bool, isSwitched);
    QFETCH(const bool, isServerGone);
    QFETCH(const int, code);
    QFETCH(const QString, words);
    serve();
    QCOMPARE(send().code, 0);
    const SentSite::Files before = SentSite::served(m_folder);
    prepareNews();
    const SentSite::Files after = m_publisher->site();
    QVERIFY(before != after);

    QProcess process;
    m_publisher->startUntil(process, switchingStep(), {u"envoyer"_s, address()});
    QTRY_VERIFY_WITH_TIMEOUT(Publisher::isStopped(process), kLongEnough);
    QCOMPARE(SentSite::served(m_folder), before);
    QVERIFY(QFileInfo(m_folder + u"/site.nouveau"_s).isSymLink());
    if (isSwitched) { // as the server would have done, whose answer never arrives
        QVERIFY(QFile::remove(m_folder + u"/site"_s));
        QVERIFY(QFile::rename(m_folder + u"/site.nouveau"_s, m_folder + u"/site"_s));
    }
    if (isServerGone)
        m_server->stop();
    else
        m_server->cutConnections();
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGCONT), 0);
    QVERIFY(process.waitForFinished(kLongEnough));
    const QString said = QString::fromUtf8(process.readAllStandardError()) +
                         QString::fromUtf8(process.readAllStandardOutput());
    QVERIFY2(said.contains(words), qPrintable(said));
    QCOMPARE(process.exitCode(), code);
    QCOMPARE(SentSite::served(m_folder), isSwitched ? after : before);

    if (isServerGone)
        serve();
    const Publisher::Result again = send();
    QVERIFY2(again.code == 0, qPrintable(again.errors));
    QCOMPARE(SentSite::served(m_folder), after);
}

void TestPublishSftp::whoeverIsNotLetIn_data()
{
    QTest::addColumn<QString>("how");
    QTest::newRow("a server that nobody knows") << u"Host key verification failed"_s;
    QTest::newRow("a key that the server does not know") << u"Permission denied"_s;
    QTest::newRow("nobody listens") << u"Connection refused"_s;
}

void TestPublishSftp::whoeverIsNotLetIn()
{
    QFETCH(const QString, how);
    serve();
    QString place = address();
    if (how.startsWith(u"Host key"_s))
        m_server->forgetHostKey();
    else if (how.startsWith(u"Permission"_s))
        m_server->forgetUserKey();
    else
        place = u"sftp://127.0.0.1:1/somewhere"_s;
    const Publisher::Result result = m_publisher->run({u"envoyer"_s, place});
    QCOMPARE(result.code, 5);
    QVERIFY2(result.errors.contains(how), qPrintable(result.errors));
    QVERIFY(!QFile::exists(m_folder));
}

void TestPublishSftp::withoutTheProgram()
{
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", "/nowhere");
    const Publisher::Result result =
        m_publisher->run({u"envoyer"_s, u"sftp://veyra.test/srv/veyra"_s});
    qputenv("PATH", path);
    QCOMPARE(result.code, 6);
    QVERIFY2(result.errors.contains(u"openssh-client"_s), qPrintable(result.errors));
}

void TestPublishSftp::aServerThatSaysNothingIsGivenUp()
{
    QTcpServer silent;
    QVERIFY(silent.listen(QHostAddress::LocalHost));
    QProcess process;
    m_publisher->startImpatient(
        process, 1s, {u"envoyer"_s, u"sftp://127.0.0.1:%1/x"_s.arg(silent.serverPort())});
    QVERIFY(silent.waitForNewConnection(kLongEnough));
    silent.nextPendingConnection()->write("SSH-2.0-OpenSSH_9.2\r\n");
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, kLongEnough);
    QCOMPARE(process.exitCode(), 5);
    const QString words = QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(words.contains(u"ne répond pas"_s) && words.contains(u"aucune réponse en 1 s"_s),
             qPrintable(words));
}

/// A full disk there that hangs, say: ssh itself goes on answering.
void TestPublishSftp::aServerThatStopsWithinAFileIsGivenUp()
{
    serve();
    QCOMPARE(send().code, 0);
    const SentSite::Files before = SentSite::served(m_folder);
    Files::write(m_publisher->beside(u"client/data/gros"_s), Files::noise(3'000'000));
    prepareClient();
    m_server->setClientOptions("-l 8000"); // a megabyte per second
    QProcess process;
    // Longer than a file that moves has to wait for its next piece.
    m_publisher->startImpatient(process, 2s, {u"envoyer"_s});
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(m_folder + u"/.morceau"_s).size() > 200'000, kLongEnough);
    m_server->freeze();
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, kLongEnough);
    QCOMPARE(process.exitCode(), 7);
    const QString words = QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(words.contains(u"aucune réponse en 2 s. L'ancien site reste servi"_s),
             qPrintable(words));
    QCOMPARE(SentSite::served(m_folder), before);
}

VEYRA_CORE_TEST_MAIN(TestPublishSftp)
#include "TestPublishSftp.moc"
