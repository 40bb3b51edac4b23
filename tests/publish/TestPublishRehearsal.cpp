#include "publish/LauncherEyes.h"
#include "publish/LauncherSettings.h"
#include "tests/publish/Nginx.h"
#include "tests/publish/Publisher.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <memory>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kLongEnough = 30'000; // milliseconds

QByteArray get(const QByteArray &target, const QByteArray &headers = {})
{
    return "GET " + target + " HTTP/1.1\r\nHost: veyra.test\r\nConnection: close\r\n" + headers +
           "\r\n";
}

/// What comes back until the server ends the connection.
QByteArray exchange(quint16 port, const QByteArray &request)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    if (!socket.waitForConnected(kLongEnough))
        return {};
    socket.write(request);
    while (socket.state() != QAbstractSocket::UnconnectedState &&
           socket.waitForDisconnected(kLongEnough)) {
    }
    return socket.readAll();
}

int statusOf(const QByteArray &answer)
{
    return answer.mid(answer.indexOf(' ') + 1, 3).toInt();
}

QByteArray bodyOf(const QByteArray &answer)
{
    return answer.mid(answer.indexOf("\r\n\r\n") + 4);
}

/// Those lines of the head that say how the body is to be taken.
QList<QByteArray> headersOf(const QByteArray &answer)
{
    QList<QByteArray> headers;
    const QList<QByteArray> lines = answer.left(answer.indexOf("\r\n\r\n")).split('\n');
    for (const QByteArray &line : lines) {
        for (const char *name : {"Content-Type:", "Content-Length:", "Content-Range:",
                                 "Content-Encoding:", "Cache-Control:", "Accept-Ranges:"}) {
            if (line.startsWith(name))
                headers.append(line.trimmed());
        }
    }
    std::sort(headers.begin(), headers.end());
    return headers;
}

} // namespace

/// A running `essayer`.
class Rehearsing
{
public:
    explicit Rehearsing(const Publisher &publisher, const QStringList &options = {})
    {
        m_process.start(Publisher::program(),
                        QStringList{u"--atelier"_s, publisher.path(QString()), u"essayer"_s} +
                            options);
        while (!m_process.canReadLine() && m_process.waitForReadyRead(kLongEnough)) {
        }
        m_line = QString::fromUtf8(m_process.readLine());
    }
    ~Rehearsing() { interrupt(); }
    Q_DISABLE_COPY_MOVE(Rehearsing)

    QString address() const { return m_line.section(u' ', 0, 0); }
    quint16 port() const { return address().section(u':', 2).chopped(1).toUShort(); }
    /// Ctrl+C. Returns the exit code.
    int interrupt()
    {
        if (m_process.state() == QProcess::Running) {
            ::kill(static_cast<pid_t>(m_process.processId()), SIGINT);
            m_process.waitForFinished(kLongEnough);
        }
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }

private:
    QProcess m_process;
    QString m_line;
};

/// "essayer" as launchers, browsers and people of ill will meet it.
class TestPublishRehearsal : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void aSiteOfThisToolIsWithoutFault();
    void theDraftCanBeRehearsed();
    void whatIsPreparedMeanwhileIsShown();
    void aLinkThatLeadsNowhereIsRefused();
    void faultsShowWhatPlayersSee_data();
    void faultsShowWhatPlayersSee();
    void slownessIsWaitedFor();
    void theRateHolds();
    void aFileThatBecomesShorterBreaksTheAnswerOff();
    void answersAreThoseOfNginx();
    void hostileRequests_data();
    void hostileRequests();
    void requestsThatComeTogetherAreAnsweredInTurn();
    void whatLeadsOutOfTheSiteIsNotShown();
    void manyConnectionsWaitForEachOther();
    void ctrlCEndsIt();
    void wrongCommands_data();
    void wrongCommands();

private:
    Publisher::Result verify(const Rehearsing &rehearsing, const QStringList &options = {}) const
    {
        return m_publisher.run(QStringList{u"verifier"_s, rehearsing.address()} + options);
    }

    Publisher m_publisher;
    std::unique_ptr<Rehearsing> m_rehearsing; ///< one that survives all ill will
    QString m_nginxBlock;
};

void TestPublishRehearsal::initTestCase()
{
    Clients::write(m_publisher.beside(u"client"_s), Clients::sample());
    const Publisher::Result init = m_publisher.run({u"init"_s, u"http://127.0.0.1:8080/"_s});
    QCOMPARE(init.code, 0);
    m_nginxBlock = Nginx::blockIn(init.output);
    QCOMPARE(m_publisher.run({u"client"_s, m_publisher.beside(u"client"_s)}).code, 0);
    QCOMPARE(m_publisher.run({u"mettre-en-ligne"_s}).code, 0);
    QCOMPARE(m_publisher.run({u"etat"_s, u"en-ligne"_s, u"12"_s}).code, 0);
    Files::write(m_publisher.path(u"site/launcher/a.zip"_s), "archive");
    Files::write(m_publisher.path(u"site/notes/index.html"_s), "<p>Notes");
    Files::write(m_publisher.path(u"site/notes/lisez-moi.txt"_s), "text");
    Files::write(m_publisher.path(u"site/vide.json"_s), "");
    m_rehearsing = std::make_unique<Rehearsing>(m_publisher);
}

void TestPublishRehearsal::aSiteOfThisToolIsWithoutFault()
{
    const Rehearsing rehearsing(m_publisher);
    const Publisher::Result result = verify(rehearsing, {u"--complet"_s});
    QVERIFY2(result.code == 0, qPrintable(result.output + result.errors));
    QVERIFY2(result.output.contains(u"serveur en ligne, 12 joueurs"_s), qPrintable(result.output));
}

void TestPublishRehearsal::theDraftCanBeRehearsed()
{
    const Publisher publisher;
    QCOMPARE(publisher.run({u"init"_s, u"http://veyra.test/"_s}).code, 0);
    QCOMPARE(publisher.run({u"nouvelles"_s, u"ajouter"_s, u"Titre"_s, u"Texte"_s}).code, 0);
    const Rehearsing served(publisher);
    QCOMPARE(QJsonDocument::fromJson(bodyOf(exchange(served.port(), get("/api/news.php")))).array(),
             QJsonArray());
    const Rehearsing draft(publisher, {u"--brouillon"_s});
    QVERIFY(bodyOf(exchange(draft.port(), get("/api/news.php"))).contains("Titre"));

    // What goes online while it runs is shown.
    QCOMPARE(publisher.run({u"mettre-en-ligne"_s}).code, 0);
    QVERIFY(bodyOf(exchange(served.port(), get("/api/news.php"))).contains("Titre"));
}

void TestPublishRehearsal::whatIsPreparedMeanwhileIsShown()
{
    const Publisher publisher;
    QCOMPARE(publisher.run({u"init"_s, u"http://veyra.test/"_s}).code, 0);
    const Rehearsing draft(publisher, {u"--brouillon"_s});
    // So many that the first one is removed.
    for (int i = 0; i < 4; ++i) {
        const QString title = u"Titre %1"_s.arg(i);
        QCOMPARE(publisher.run({u"nouvelles"_s, u"ajouter"_s, title, u"Texte"_s}).code, 0);
        const QByteArray news = bodyOf(exchange(draft.port(), get("/api/news.php")));
        QVERIFY2(news.contains(title.toUtf8()), news.constData());
        QCOMPARE(publisher.run({u"mettre-en-ligne"_s}).code, 0);
    }
}

void TestPublishRehearsal::aLinkThatLeadsNowhereIsRefused()
{
    const Publisher publisher;
    QCOMPARE(publisher.run({u"init"_s, u"http://veyra.test/"_s}).code, 0);
    QVERIFY(QFile::remove(publisher.path(u"site"_s)));
    QVERIFY(QFile::link(u"publications/0099"_s, publisher.path(u"site"_s)));
    Rehearsing rehearsing(publisher);
    QVERIFY2(rehearsing.address().isEmpty(), qPrintable(rehearsing.address()));
    QCOMPARE(rehearsing.interrupt(), 2);
}

void TestPublishRehearsal::faultsShowWhatPlayersSee_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QStringList>("codes");
    QTest::addColumn<QString>("installing");
    // A connection's early end Qt takes now for an error, now for the end of the archive.
    QTest::newRow("answers that break off")
        << u"coupure"_s << QStringList{u"M29"_s, u"M33"_s}
        << u"le launcher dit : Erreur de téléchargement: |l'archive s'arrête à l'octet "_s;
    QTest::newRow("nothing is there") << u"404"_s << QStringList{u"M20"_s, u"M33"_s}
                                      << u"le launcher dit : Erreur de téléchargement: "_s;
}

void TestPublishRehearsal::faultsShowWhatPlayersSee()
{
    QFETCH(const QString, fault);
    QFETCH(const QStringList, codes);
    QFETCH(const QString, installing);
    const Rehearsing rehearsing(m_publisher, {u"--panne"_s, fault});
    const Publisher::Result result = verify(rehearsing, {u"--complet"_s});
    QCOMPARE(result.code, 3);
    for (const QString &code : codes)
        QVERIFY2(result.output.contains(u'\n' + code + u"  "_s), qPrintable(result.output));
    QVERIFY2(result.output.contains(u"serveur hors ligne, 0 joueur"_s), qPrintable(result.output));
    QVERIFY2(result.output.contains(QRegularExpression(installing)), qPrintable(result.output));
}

void TestPublishRehearsal::slownessIsWaitedFor()
{
    const Rehearsing rehearsing(m_publisher, {u"--panne"_s, u"lent"_s});
    LauncherSettings::become(u"1.0.0"_s, rehearsing.address());
    QElapsedTimer timer;
    timer.start();
    const LauncherEyes::Sight sight = LauncherEyes::look();
    QVERIFY(timer.elapsed() >= 900);
    QVERIFY(sight.online);
    QCOMPARE(sight.players, 12);
}

void TestPublishRehearsal::theRateHolds()
{
    const QByteArray content = Files::noise(100'000);
    Files::write(m_publisher.path(u"site/notes/gros.bin"_s), content);
    const Rehearsing rehearsing(m_publisher, {u"--debit"_s, u"100k"_s});
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(bodyOf(exchange(rehearsing.port(), get("/notes/gros.bin"))), content);
    QVERIFY2(timer.elapsed() >= 800, qPrintable(QString::number(timer.elapsed())));
}

/// The rest of what was promised will never come: whoever waits for it must not wait for ever.
void TestPublishRehearsal::aFileThatBecomesShorterBreaksTheAnswerOff()
{
    const QString file = m_publisher.path(u"site/notes/gros.bin"_s);
    Files::write(file, Files::noise(100'000));
    const Rehearsing rehearsing(m_publisher, {u"--debit"_s, u"100k"_s});
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, rehearsing.port());
    QVERIFY(socket.waitForConnected(kLongEnough));
    socket.write(get("/notes/gros.bin"));
    QVERIFY(socket.waitForReadyRead(kLongEnough));
    QVERIFY(QFile::resize(file, 10));
    while (socket.state() != QAbstractSocket::UnconnectedState)
        QVERIFY(socket.waitForDisconnected(kLongEnough));
    QVERIFY(bodyOf(socket.readAll()).size() < 100'000);
    // Others are served on.
    QCOMPARE(bodyOf(exchange(rehearsing.port(), get("/notes/gros.bin"))).size(), 10);
}

void TestPublishRehearsal::answersAreThoseOfNginx()
{
    if (Nginx::program().isEmpty())
        QSKIP("no nginx here");
    const Nginx nginx(m_nginxBlock);
    QVERIFY2(nginx.isRunning(), nginx.errors().constData());

    QList<QByteArray> requests;
    for (const char *target : {"/",
                               "/?a=b",
                               "/index.html",
                               "/index.html/",
                               "/api/status.php",
                               "/api/news.php?x=/../..",
                               "/api/launcher_version.json",
                               "/api/",
                               "/api",
                               "/api/none.php",
                               "/api/none.php/more",
                               "/updates/version.json",
                               "/updates/",
                               "/updates/files/data/texte.json",
                               "/updates/files/data/%C3%8Ele%20aux%20C%C3%A8dres.map",
                               "/updates/files/data/%C3%8ele%20aux%20C%c3%a8dres.map",
                               "/updates/files/data/vide",
                               "/updates/files/Dofus.exe",
                               "/updates/files/DofusInvoker.swf",
                               "/client/DofusClient.zip",
                               "/launcher/a.zip",
                               "/launcher/",
                               "/launcher/b.zip",
                               "/notes",
                               "/notes/",
                               "/notes/lisez-moi.txt",
                               "/vide.json",
                               "//api//status.php",
                               "/api/./status.php",
                               "/notes/../api/status.php",
                               "/notes/%2e%2e/api%2fstatus.php",
                               "/notes/..",
                               "/%61pi/status.php",
                               "/api/%2573tatus.php",
                               "/..",
                               "/../etat/status.json",
                               "/api/../../etat/status.json",
                               "/%2e%2e/%2e%2e/etc/passwd",
                               "/api/%00status.php",
                               "/api/%zz",
                               "/api/%2"}) {
        requests.append(get(target));
        requests.append("HEAD" + get(target).sliced(3));
    }
    for (const char *range :
         {"bytes=0-3", "bytes=5-", "bytes=-4", "bytes=-9999999", "bytes=0-999", "bytes=6-6",
          "bytes=7-", "bytes=-0", "bytes=3-2", "bytes=x-2", "bytes=-", "lines=0-1", "BYTES=0-1"})
        requests.append(get("/launcher/a.zip", QByteArray("Range: ") + range + "\r\n"));
    requests.append(get("http://veyra.test/api/status.php"));
    requests.append("POST" + get("/api/status.php").sliced(3));
    requests.append("DELETE" + get("/index.html").sliced(3));
    requests.append("GET /api/status.php HTTP/1.0\r\n\r\n");
    requests.append("GET /api/status.php HTTP/1.1\r\nConnection: close\r\n\r\n");

    for (const QByteArray &request : std::as_const(requests)) {
        const QByteArray line = request.left(request.indexOf("\r\n\r\n"));
        const QByteArray expected = exchange(nginx.port(), request);
        const QByteArray answer = exchange(m_rehearsing->port(), request);
        QVERIFY2(statusOf(answer) == statusOf(expected),
                 (line + "\n\n" + answer + "\n\nnginx:\n" + expected).constData());
        QVERIFY2(answer.contains("Cache-Control:") == expected.contains("Cache-Control:"),
                 line.constData());
        if (const int status = statusOf(answer); status != 200 && status != 206)
            continue; // the pages of errors are each server's own
        QVERIFY2(
            headersOf(answer) == headersOf(expected),
            (line + "\n\n" + answer.left(400) + "\n\nnginx:\n" + expected.left(400)).constData());
        QVERIFY2(bodyOf(answer) == bodyOf(expected), line.constData());
    }
}

void TestPublishRehearsal::hostileRequests_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("status");
    const QByteArray host = "Host: veyra.test\r\n";
    const auto row = [](const char *name, int status, const QByteArray &request) {
        QTest::newRow(name) << request << status;
    };
    row("no version", 400, "GET /\r\n\r\n");
    row("blanks in the address", 400, "GET /a b HTTP/1.1\r\n" + host + "\r\n");
    row("an unknown version", 505, "GET / HTTP/2.0\r\n" + host + "\r\n");
    row("no version of HTTP", 400, "GET / FTP/1.1\r\n" + host + "\r\n");
    row("a method that is no word", 400, "G(T / HTTP/1.1\r\n" + host + "\r\n");
    row("no host", 400, "GET / HTTP/1.1\r\n\r\n");
    row("two hosts", 400, "GET / HTTP/1.1\r\n" + host + host + "\r\n");
    row("a header without a colon", 400, "GET / HTTP/1.1\r\n" + host + "word\r\n\r\n");
    row("a header without a name", 400, "GET / HTTP/1.1\r\n" + host + ": value\r\n\r\n");
    row("a blank before the colon", 400, "GET / HTTP/1.1\r\nHost : a\r\n\r\n");
    row("a header that is folded", 400, "GET / HTTP/1.1\r\n" + host + " more\r\n\r\n");
    row("lines that end by halves", 400, "GET / HTTP/1.1\nHost: a\r\n\r\n");
    row("a zero byte", 400, QByteArrayLiteral("GET / HTTP/1.1\r\nHost: a\0b\r\n\r\n"));
    row("a body", 400, "GET / HTTP/1.1\r\n" + host + "Content-Length: 3\r\n\r\nabc");
    row("a body in pieces", 400,
        "GET / HTTP/1.1\r\n" + host + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
    row("an address that is none", 400, "GET status.php HTTP/1.1\r\n" + host + "\r\n");
    row("another scheme", 400, "GET file:///etc/passwd HTTP/1.1\r\n" + host + "\r\n");
    row("a tunnel", 400, "CONNECT veyra.test:443 HTTP/1.1\r\n" + host + "\r\n");
    row("all methods at once", 400, "OPTIONS * HTTP/1.1\r\n" + host + "\r\n");
    row("a mark of a place", 400, "GET /index.html#top HTTP/1.1\r\n" + host + "\r\n");
    row("accents as they stand", 400, "GET /\xc3\xae HTTP/1.1\r\n" + host + "\r\n");
    row("upwards", 400, "GET /../../../../etc/passwd HTTP/1.1\r\n" + host + "\r\n");
    row("upwards in disguise", 400,
        "GET /notes/%2e%2e%2f%2E%2e/etat/status.json HTTP/1.1\r\n" + host + "\r\n");
    row("upwards in a disguise of its own", 404,
        "GET /%252e%252e/etat/status.json HTTP/1.1\r\n" + host + "\r\n");
    row("upwards as on Windows", 404, "GET /..%5cetat%5cstatus.json HTTP/1.1\r\n" + host + "\r\n");
    row("a name that is no text", 404, "GET /%ff%fe HTTP/1.1\r\n" + host + "\r\n");
    row("a name beyond all measure", 404,
        "GET /" + QByteArray(6000, 'a') + " HTTP/1.1\r\n" + host + "\r\n");
    row("headers without end", 431,
        "GET / HTTP/1.1\r\n" + host + "X: " + QByteArray(20'000, 'a') + "\r\n\r\n");
    row("a megabyte of nothing", 431, QByteArray(1'000'000, 'a'));
    row("a range beyond all numbers", 416,
        get("/launcher/a.zip", "Range: bytes=99999999999999999999-\r\n"));
    row("a range below nothing", 416, get("/launcher/a.zip", "Range: bytes=--1\r\n"));
    row("two ranges", 200, get("/launcher/a.zip", "Range: bytes=0-0,2-3\r\n"));
    row("a range of another version", 200,
        get("/launcher/a.zip", "If-Range: \"abc\"\r\nRange: bytes=0-0\r\n"));
}

void TestPublishRehearsal::hostileRequests()
{
    QFETCH(const QByteArray, request);
    QFETCH(const int, status);
    QByteArray withEnd = request;
    if (status == 404)
        withEnd.replace("Host:", "Connection: close\r\nHost:");
    const QByteArray answer = exchange(m_rehearsing->port(), withEnd);
    QVERIFY2(statusOf(answer) == status, answer.constData());
    QVERIFY(!answer.contains("players"));
    // It goes on for everybody else.
    QCOMPARE(statusOf(exchange(m_rehearsing->port(), get("/"))), 200);
}

void TestPublishRehearsal::requestsThatComeTogetherAreAnsweredInTurn()
{
    const Rehearsing rehearsing(m_publisher);
    const QByteArray archive = Files::read(m_publisher.path(u"site/client/DofusClient.zip"_s));
    const QByteArray answer = exchange(
        rehearsing.port(),
        "GET /client/DofusClient.zip HTTP/1.1\r\nHost: a\r\n\r\n"
        "HEAD /index.html HTTP/1.1\r\nHost: a\r\n\r\nGET /none HTTP/1.1\r\nHost: a\r\n\r\n" +
            get("/launcher/a.zip"));
    QVERIFY(bodyOf(answer).startsWith(archive));
    QCOMPARE(bodyOf(answer).count("HTTP/1.1 "), 3);
    QVERIFY(answer.indexOf("HTTP/1.1 404 Not Found") > answer.indexOf("text/html"));
    QVERIFY(answer.endsWith("\r\n\r\narchive"));
}

void TestPublishRehearsal::whatLeadsOutOfTheSiteIsNotShown()
{
    const QString secret = m_publisher.beside(u"secret"_s);
    Files::write(secret + u"/file.txt"_s, "secret");
    QVERIFY(QFile::link(secret + u"/file.txt"_s, m_publisher.path(u"site/notes/lien.txt"_s)));
    QVERIFY(QFile::link(secret, m_publisher.path(u"site/notes/dossier"_s)));
    QVERIFY(QFile::link(u"lisez-moi.txt"_s, m_publisher.path(u"site/notes/dedans.txt"_s)));
    const Rehearsing rehearsing(m_publisher);
    for (const char *target : {"/notes/lien.txt", "/notes/dossier/file.txt", "/notes/dossier/"})
        QCOMPARE(statusOf(exchange(rehearsing.port(), get(target))), 404);
    QCOMPARE(bodyOf(exchange(rehearsing.port(), get("/notes/dedans.txt"))), "text");
    QCOMPARE(statusOf(exchange(rehearsing.port(), get("/api/status.php"))), 200);
}

void TestPublishRehearsal::manyConnectionsWaitForEachOther()
{
    const Rehearsing rehearsing(m_publisher);
    std::vector<std::unique_ptr<QTcpSocket>> sockets;
    for (int i = 0; i < 100; ++i) {
        sockets.push_back(std::make_unique<QTcpSocket>());
        sockets.back()->connectToHost(QHostAddress::LocalHost, rehearsing.port());
        QVERIFY(sockets.back()->waitForConnected(kLongEnough));
        sockets.back()->write("GET / HTTP/1.1\r\n");
    }
    QTcpSocket late;
    late.connectToHost(QHostAddress::LocalHost, rehearsing.port());
    QVERIFY(late.waitForConnected(kLongEnough));
    late.write(get("/launcher/a.zip"));
    sockets.clear();
    QTRY_VERIFY_WITH_TIMEOUT(late.state() == QAbstractSocket::UnconnectedState, kLongEnough);
    QCOMPARE(bodyOf(late.readAll()), "archive");
}

void TestPublishRehearsal::ctrlCEndsIt()
{
    Rehearsing rehearsing(m_publisher);
    const quint16 port = rehearsing.port();
    QVERIFY(port != 0);
    const Publisher::Result second =
        m_publisher.run({u"essayer"_s, u"--port"_s, QString::number(port)});
    QCOMPARE(second.code, 6);
    QVERIFY2(second.errors.contains(u"Le port %1 ne peut pas être ouvert"_s.arg(port)),
             qPrintable(second.errors));
    QCOMPARE(rehearsing.interrupt(), 130);
}

void TestPublishRehearsal::wrongCommands_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("a port that is none") << QStringList{u"--port"_s, u"http"_s};
    QTest::newRow("a port beyond the last") << QStringList{u"--port"_s, u"65536"_s};
    QTest::newRow("a rate in words") << QStringList{u"--debit"_s, u"vite"_s};
    QTest::newRow("no rate") << QStringList{u"--debit"_s, u"0"_s};
    QTest::newRow("hardly a rate") << QStringList{u"--debit"_s, u"999"_s};
    QTest::newRow("another fault") << QStringList{u"--panne"_s, u"500"_s};
}

void TestPublishRehearsal::wrongCommands()
{
    QFETCH(const QStringList, options);
    const Publisher::Result result = m_publisher.run(QStringList{u"essayer"_s} + options);
    QCOMPARE(result.code, 1);
    QVERIFY2(result.errors.contains(options.last()), qPrintable(result.errors));
}

VEYRA_CORE_TEST_MAIN(TestPublishRehearsal)
#include "TestPublishRehearsal.moc"
