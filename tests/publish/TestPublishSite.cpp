#include "tests/publish/Nginx.h"
#include "tests/publish/Publisher.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"

#include <QDate>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLockFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <signal.h>
#include <sys/stat.h>

#include <memory>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

QJsonDocument json(const QByteArray &content)
{
    return QJsonDocument::fromJson(content);
}

} // namespace

class TestPublishSite : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void aNewSiteHasAllButAClient();
    void whatIsServedIsForEverybody_data();
    void whatIsServedIsForEverybody();
    void aFolderThatKeepsOthersOutIsToldOf();
    void addressesOfASite_data();
    void addressesOfASite();
    void aWorkshopIsMadeOnce();
    void twoBeginningsMakeOneWorkshop();
    void lostSettingsAreWrittenAnew();
    void lostSettingsOfAnotherSiteAreNot();
    void aSiteOfAnotherToolsIsLeftAlone();
    void foldersThatNginxCannotName();
    void theBlockIsShownAgain();
    void rootTakesNobodysWorkshopOver();
    void aDraftThatIsGoneIsRefused();
    void newsComeFirst();
    void placeholdersInNewsReachPlayers();
    void newsAreRemovedByNumber();
    void newsThatNobodyCanReadAreNotLost_data();
    void newsThatNobodyCanReadAreNotLost();
    void theStateIsServedAtOnce();
    void aServerIsLookedFor();
    void whatIsToldDuringAProbeStays();
    void aStateThatIsGoneIsMadeAnew();
    void whatIsInTheWayIsTheDisksFault();
    void puttingOnlineSwitchesTheSite();
    void takingBackGoesOnFromThere();
    void takingBackTellsOfWhatWasPrepared();
    void oldGenerationsAreRemoved();
    void whatCannotBeRemovedKeepsNobodyFromPublishing();
    void numbersGrowBeyondFourDigits();
    void oneRunAtATime();
    void theStateWaitsForNobody();
    void wrongCommands_data();
    void wrongCommands();
    void helpNamesEveryCommand();
    void whatLooksLikeAnOptionMayBeNews();
    void nginxServesItAsTheLauncherWants();

private:
    QByteArray served(const QString &name) const
    {
        return Files::read(m_publisher->path(u"site/"_s + name));
    }
    Publisher::Result addNews(const QString &title) const
    {
        return m_publisher->run({u"nouvelles"_s, u"ajouter"_s, title, u"Texte"_s});
    }
    QString link(const QString &name) const
    {
        return QFileInfo(QFile::symLinkTarget(m_publisher->path(name))).fileName();
    }

    std::unique_ptr<Publisher> m_publisher;
};

void TestPublishSite::init()
{
    m_publisher = std::make_unique<Publisher>();
    QCOMPARE(m_publisher->run({u"init"_s, u"http://veyra.test"_s}).code, 0);
}

void TestPublishSite::aNewSiteHasAllButAClient()
{
    QCOMPARE(Files::tree(m_publisher->path(u"site/"_s)),
             (QStringList{u"api/"_s, u"api/launcher_version.json"_s, u"api/news.php"_s,
                          u"api/status.php"_s, u"index.html"_s}));
    QCOMPARE(json(served(u"api/launcher_version.json"_s)).object().value(u"version"_s), u""_s);
    QCOMPARE(json(served(u"api/status.php"_s)).object().value(u"online"_s), false);
    const QJsonObject settings =
        json(Files::read(m_publisher->path(u"publication.json"_s))).object();
    QCOMPARE(settings.value(u"url"_s), u"http://veyra.test/"_s);
    QCOMPARE(settings.value(u"versions"_s), QJsonArray{u"" VEYRA_VERSION ""_s});
}

void TestPublishSite::whatIsServedIsForEverybody_data()
{
    QTest::addColumn<mode_t>("mask");
    QTest::newRow("nothing for others") << mode_t(077);
    QTest::newRow("something for the group") << mode_t(027);
    QTest::newRow("as it mostly is") << mode_t(022);
    QTest::newRow("everything for everybody") << mode_t(0);
}

/// The web server is another user.
void TestPublishSite::whatIsServedIsForEverybody()
{
    QFETCH(const mode_t, mask);
    const Publisher publisher;
    Clients::write(publisher.beside(u"client"_s), Clients::sample());
    const mode_t before = ::umask(mask);
    const int codes = publisher.run({u"init"_s, u"http://veyra.test"_s}).code +
                      publisher.run({u"client"_s, publisher.beside(u"client"_s)}).code +
                      publisher.run({u"mettre-en-ligne"_s}).code +
                      publisher.run({u"etat"_s, u"en-ligne"_s, u"3"_s}).code;
    ::umask(before);
    QCOMPARE(codes, 0);
    for (const QString &folder : {u"publications"_s, u"etat"_s}) {
        QVERIFY(QFile::permissions(publisher.path(folder)) & QFile::ExeOther);
        const QStringList names = Files::tree(publisher.path(folder));
        QVERIFY(!names.isEmpty());
        for (const QString &name : names) {
            const QFile::Permissions given =
                QFile::permissions(publisher.path(folder + u'/' + name));
            const auto wanted = name.endsWith(u'/') ? QFile::ReadOther | QFile::ExeOther
                                                    : QFile::Permissions(QFile::ReadOther);
            QVERIFY2((given & wanted) == wanted, qPrintable(name));
            QVERIFY2(!(given & QFile::WriteOther), qPrintable(name));
        }
    }
}

void TestPublishSite::aFolderThatKeepsOthersOutIsToldOf()
{
    const Publisher publisher;
    const QString home = publisher.beside(u"maison"_s);
    constexpr auto kForOwner = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
    QVERIFY(QDir().mkpath(home));
    QVERIFY(QFile::setPermissions(home, kForOwner));
    const auto init = [&](const QString &name) {
        return publisher.run(
            {u"--atelier"_s, home + u'/' + name, u"init"_s, u"http://veyra.test"_s});
    };
    const Publisher::Result closed = init(u"atelier"_s);
    QCOMPARE(closed.code, 0);
    QVERIFY2(closed.errors.contains(
                 u"Attention : le serveur web ne peut pas entrer dans %1"_s.arg(home)),
             qPrintable(closed.errors));
    QVERIFY(closed.errors.contains(u"chmod o+x '%1'"_s.arg(home)));
    QVERIFY(QFile::setPermissions(home, kForOwner | QFile::ExeOther));
    const Publisher::Result open = init(u"autre"_s);
    QCOMPARE(open.code, 0);
    QVERIFY2(!open.errors.contains(home + u' '), qPrintable(open.errors));
}

void TestPublishSite::addressesOfASite_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("code");
    QTest::newRow("https") << u"https://play.example.org/"_s << 0;
    QTest::newRow("a port") << u"http://play.example.org:8080"_s << 0;
    QTest::newRow("an address of IPv6") << u"http://[::1]:8080/"_s << 0;
    QTest::newRow("no scheme") << u"play.example.org"_s << 2;
    QTest::newRow("another scheme") << u"ftp://play.example.org/"_s << 2;
    QTest::newRow("a folder") << u"http://play.example.org/veyra/"_s << 2;
    QTest::newRow("no host") << u"http:///"_s << 2;
    QTest::newRow("a port beyond all ports") << u"http://play.example.org:99999/"_s << 2;
}

void TestPublishSite::addressesOfASite()
{
    QFETCH(const QString, address);
    QFETCH(const int, code);
    const Publisher publisher;
    QCOMPARE(publisher.run({u"init"_s, address}).code, code);
    QCOMPARE(QFile::exists(publisher.path(u"publication.json"_s)), code == 0);
}

void TestPublishSite::aWorkshopIsMadeOnce()
{
    const Publisher::Result again = m_publisher->run({u"init"_s, u"http://other.test"_s});
    QCOMPARE(again.code, 2);
    QVERIFY2(again.errors.contains(u"est déjà un atelier, pour http"_s), qPrintable(again.errors));
    const Publisher none;
    const Publisher::Result result = none.run({u"mettre-en-ligne"_s});
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"n'est pas un atelier"_s), qPrintable(result.errors));
    QCOMPARE(
        none.run({u"--atelier"_s, m_publisher->path(QString()), u"nouvelles"_s, u"lister"_s}).code,
        0);
}

void TestPublishSite::twoBeginningsMakeOneWorkshop()
{
    const Publisher publisher;
    QProcess first;
    publisher.startUntil(first, 1, {u"init"_s, u"http://first.test"_s});
    QTRY_VERIFY(Publisher::isStopped(first));
    QCOMPARE(publisher.run({u"init"_s, u"http://second.test"_s}).code, 0);
    QCOMPARE(publisher.run({u"nouvelles"_s, u"ajouter"_s, u"Un"_s, u"Deux"_s}).code, 0);
    QCOMPARE(::kill(static_cast<pid_t>(first.processId()), SIGCONT), 0);
    QVERIFY(first.waitForFinished());
    QCOMPARE(first.exitCode(), 2);
    const QString errors = QString::fromUtf8(first.readAllStandardError());
    QVERIFY2(errors.contains(u"est déjà un atelier, pour http://second.test/"_s),
             qPrintable(errors));
    QVERIFY(Files::read(publisher.path(u"publication.json"_s)).contains("http://second.test/"));
    QVERIFY(publisher.run({u"nouvelles"_s, u"lister"_s}).output.contains(u"Un"_s));
}

/// Players notice nothing of it.
void TestPublishSite::lostSettingsAreWrittenAnew()
{
    QCOMPARE(addNews(u"En ligne"_s).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QCOMPARE(addNews(u"Préparée"_s).code, 0);
    QCOMPARE(m_publisher->run({u"etat"_s, u"en-ligne"_s, u"7"_s}).code, 0);
    Files::write(m_publisher->path(u"lanceurs.json"_s), R"({"98.0.1": "a", "98.0.2": "b"})");
    const QMap<QString, QByteArray> site = m_publisher->site();
    const QString settings = m_publisher->path(u"publication.json"_s);
    QVERIFY(QFile::remove(settings));

    const Publisher::Result result = m_publisher->run({u"init"_s, u"http://veyra.test"_s});
    QVERIFY2(result.code == 4, qPrintable(result.errors));
    QVERIFY2(result.errors.contains(u"publication.json manquait"_s), qPrintable(result.errors));
    QVERIFY(Nginx::blockIn(result.output).startsWith(u"server {"_s));
    QVERIFY(m_publisher->site() == site);
    QVERIFY(m_publisher->run({u"nouvelles"_s, u"lister"_s}).output.contains(u"Préparée"_s));
    const QJsonObject written = json(Files::read(settings)).object();
    QCOMPARE(written.value(u"url"_s), u"http://veyra.test/"_s);
    QCOMPARE(written.value(u"versions"_s),
             (QJsonArray{u"" VEYRA_VERSION ""_s, u"98.0.1"_s, u"98.0.2"_s}));
    QCOMPARE(m_publisher->run({u"init"_s, u"http://veyra.test"_s}).code, 0);
}

void TestPublishSite::lostSettingsOfAnotherSiteAreNot()
{
    Files::write(m_publisher->path(u"site/api/launcher_version.json"_s),
                 R"({"version": "98.0.1", "download_url":
                     "http://veyra.test/launcher/VeyraLauncher-98.0.1-windows-x64.zip"})");
    const QString settings = m_publisher->path(u"publication.json"_s);
    QVERIFY(QFile::remove(settings));
    for (const QStringList &arguments :
         {QStringList{u"init"_s, u"http://other.test"_s},
          QStringList{u"init"_s, u"http://veyra.test"_s, u"--cible"_s, u"linux-x64"_s}}) {
        const Publisher::Result result = m_publisher->run(arguments);
        QCOMPARE(result.code, 2);
        QVERIFY2(result.errors.contains(u"http://veyra.test/launcher/"_s),
                 qPrintable(result.errors));
        QVERIFY(!QFile::exists(settings));
    }
    QCOMPARE(m_publisher->run({u"init"_s, u"http://veyra.test"_s}).code, 4);
    QVERIFY(
        json(Files::read(settings)).object().value(u"versions"_s).toArray().contains(u"98.0.1"_s));
}

/// A folder that a site was sent to, say.
void TestPublishSite::aSiteOfAnotherToolsIsLeftAlone()
{
    const Publisher place;
    Files::write(place.path(u"publications/0002-abc/index.html"_s), "page");
    QVERIFY(QFile::link(u"publications/0002-abc"_s, place.path(u"site"_s)));
    const Publisher::Result result = place.run({u"init"_s, u"http://veyra.test"_s});
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(place.path(u"site"_s)), qPrintable(result.errors));
    QCOMPARE(Files::read(place.path(u"site/index.html"_s)), "page");
    QVERIFY(!QFile::exists(place.path(u"publication.json"_s)));
}

void TestPublishSite::foldersThatNginxCannotName()
{
    const Publisher publisher;
    const QString folder = publisher.beside(u"a$b"_s);
    const Publisher::Result result =
        publisher.run({u"--atelier"_s, folder, u"init"_s, u"http://veyra.test"_s});
    QCOMPARE(result.code, 2);
    QVERIFY2(result.errors.contains(u"« $ »"_s), qPrintable(result.errors));
    QVERIFY(!QFile::exists(folder));
}

void TestPublishSite::theBlockIsShownAgain()
{
    const auto keys = [this] {
        return json(Files::read(m_publisher->path(u"publication.json"_s)))
            .object()
            .value(u"cles"_s)
            .toArray();
    };
    const QString key = u"RW"_s + QString(54, u'A');
    Files::write(m_publisher->beside(u"cle.pub"_s), "untrusted comment: none\n" + key.toUtf8());
    QCOMPARE(m_publisher->run({u"nouvelles"_s, u"ajouter"_s, u"Un"_s, u"Deux"_s}).code, 0);
    for (int i = 0; i < 2; ++i) {
        const Publisher::Result again = m_publisher->run(
            {u"init"_s, u"http://veyra.test"_s, u"--cle"_s, m_publisher->beside(u"cle.pub"_s)});
        QCOMPARE(again.code, 0);
        QVERIFY(Nginx::blockIn(again.output).startsWith(u"server {"_s));
        QCOMPARE(keys(), QJsonArray{key});
    }
    QVERIFY(m_publisher->run({u"nouvelles"_s, u"lister"_s}).output.contains(u"Un"_s));
    QCOMPARE(
        m_publisher->run({u"init"_s, u"http://veyra.test"_s, u"--cible"_s, u"linux-x64"_s}).code,
        2);
    QCOMPARE(keys(), QJsonArray{key});
}

/// Files of root's are nothing that a workshop's owner could change.
void TestPublishSite::rootTakesNobodysWorkshopOver()
{
    if (::geteuid() != 0)
        QSKIP("Nobody else can be told from root here");
    const QString status = m_publisher->path(u"etat/status.json"_s);
    const QByteArray before = Files::read(status);
    constexpr uid_t kSomebody = 65534;
    QCOMPARE(::chown(QFile::encodeName(m_publisher->path(QString())).constData(), kSomebody, 0), 0);
    for (const QStringList &arguments :
         {QStringList{u"etat"_s, u"en-ligne"_s, u"5"_s}, QStringList{u"mettre-en-ligne"_s},
          QStringList{u"init"_s, u"http://veyra.test"_s}}) {
        const Publisher::Result result = m_publisher->run(arguments);
        QCOMPARE(result.code, 2);
        QVERIFY2(result.errors.contains(u"appartient à « nobody »"_s), qPrintable(result.errors));
    }
    QCOMPARE(Files::read(status), before);

    const Publisher place;
    QVERIFY(QDir().mkpath(place.path(QString())));
    QCOMPARE(::chown(QFile::encodeName(place.path(QString())).constData(), kSomebody, 0), 0);
    QCOMPARE(place.run({u"init"_s, u"http://veyra.test"_s}).code, 2);
    QVERIFY(Files::tree(place.path(QString())).isEmpty());
}

void TestPublishSite::aDraftThatIsGoneIsRefused()
{
    QVERIFY(QFile::remove(m_publisher->path(u"brouillon"_s)));
    for (const QStringList &arguments :
         {QStringList{u"mettre-en-ligne"_s}, QStringList{u"nouvelles"_s, u"lister"_s}}) {
        const Publisher::Result result = m_publisher->run(arguments);
        QCOMPARE(result.code, 2);
        QVERIFY2(result.errors.contains(u"ne mène à aucune publication"_s),
                 qPrintable(result.errors));
    }
    QVERIFY(!served(u"api/news.php"_s).isEmpty());
}

void TestPublishSite::newsComeFirst()
{
    QCOMPARE(addNews(u"Ancienne"_s).code, 0);
    QCOMPARE(m_publisher
                 ->run({u"nouvelles"_s, u"ajouter"_s, u"Datée"_s, u"Dès <b>ce soir</b>"_s,
                        u"--date"_s, u"12/05"_s})
                 .code,
             0);
    QCOMPARE(m_publisher
                 ->run({u"nouvelles"_s, u"ajouter"_s, u"--sans-date"_s, u"--"_s, u"--Sans--"_s,
                        u"Texte"_s})
                 .code,
             0);
    const QString today = QDate::currentDate().toString(u"dd/MM"_s);
    QCOMPARE(json(Files::read(m_publisher->path(u"brouillon/api/news.php"_s))).array(),
             (QJsonArray{QJsonObject{{u"title"_s, u"--Sans--"_s}, {u"content"_s, u"Texte"_s}},
                         QJsonObject{{u"title"_s, u"Datée"_s},
                                     {u"date"_s, u"12/05"_s},
                                     {u"content"_s, u"Dès <b>ce soir</b>"_s}},
                         QJsonObject{{u"title"_s, u"Ancienne"_s},
                                     {u"date"_s, today},
                                     {u"content"_s, u"Texte"_s}}}));
    QCOMPARE(m_publisher->run({u"nouvelles"_s, u"lister"_s}).output,
             u"1. --Sans-- — Texte\n2. [12/05] Datée — Dès <b>ce soir</b>\n3. [%1] Ancienne — "
             u"Texte\n"_s.arg(today));
    QCOMPARE(json(served(u"api/news.php"_s)).array(), QJsonArray());
}

void TestPublishSite::placeholdersInNewsReachPlayers()
{
    QCOMPARE(addNews(u"-50 %, -%2 joueurs"_s).code, 0);
    QVERIFY(Files::read(m_publisher->path(u"brouillon/api/news.php"_s))
                .contains("-50 %, -&#37;2 joueurs"));
    QVERIFY(m_publisher->run({u"nouvelles"_s, u"lister"_s}).output.contains(u"-%2 joueurs"_s));
}

void TestPublishSite::newsAreRemovedByNumber()
{
    QCOMPARE(m_publisher->run({u"nouvelles"_s, u"lister"_s}).output, u"Aucune actualité.\n"_s);
    QCOMPARE(addNews(u"Un"_s).code, 0);
    QCOMPARE(addNews(u"Deux"_s).code, 0);
    for (const QString &wrong : {u"0"_s, u"3"_s})
        QCOMPARE(m_publisher->run({u"nouvelles"_s, u"retirer"_s, wrong}).code, 2);
    QCOMPARE(m_publisher->run({u"nouvelles"_s, u"retirer"_s, u"x"_s}).code, 1);
    QCOMPARE(m_publisher->run({u"nouvelles"_s, u"retirer"_s, u"1"_s}).code, 0);
    const QString left = m_publisher->run({u"nouvelles"_s, u"lister"_s}).output;
    QVERIFY2(left.contains(u"Un"_s) && !left.contains(u"Deux"_s), qPrintable(left));
}

void TestPublishSite::newsThatNobodyCanReadAreNotLost_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("cut off") << QByteArray(R"([{"title": "a"})");
    QTest::newRow("no list") << QByteArray(R"({"title": "a"})");
}

void TestPublishSite::newsThatNobodyCanReadAreNotLost()
{
    QFETCH(const QByteArray, content);
    const QString file = m_publisher->path(u"brouillon/api/news.php"_s);
    Files::write(file, content);
    for (const QStringList &arguments : {QStringList{u"nouvelles"_s, u"ajouter"_s, u"b"_s, u"c"_s},
                                         QStringList{u"nouvelles"_s, u"lister"_s}}) {
        const Publisher::Result result = m_publisher->run(arguments);
        QCOMPARE(result.code, 2);
        QVERIFY2(result.errors.contains(u"api/news.php"_s), qPrintable(result.errors));
    }
    QCOMPARE(Files::read(file), content);
}

void TestPublishSite::theStateIsServedAtOnce()
{
    QCOMPARE(m_publisher->run({u"etat"_s, u"en-ligne"_s, u"128"_s}).code, 0);
    QCOMPARE(json(served(u"api/status.php"_s)).object(),
             (QJsonObject{{u"online"_s, true}, {u"players"_s, 128}}));
    QCOMPARE(m_publisher->run({u"etat"_s, u"hors-ligne"_s}).code, 0);
    QCOMPARE(json(served(u"api/status.php"_s)).object(),
             (QJsonObject{{u"online"_s, false}, {u"players"_s, 0}}));
    QVERIFY((QFile::permissions(m_publisher->path(u"etat/status.json"_s)) & QFile::ReadOther) != 0);
}

void TestPublishSite::aServerIsLookedFor()
{
    QTcpServer game;
    QVERIFY(game.listen(QHostAddress::LocalHost));
    const quint16 port = game.serverPort();
    const QString place = u"127.0.0.1:%1"_s.arg(port);
    QCOMPARE(m_publisher->run({u"etat"_s, u"sonder"_s, place}).code, 0);
    QCOMPARE(json(served(u"api/status.php"_s)).object().value(u"online"_s), true);
    QCOMPARE(m_publisher->run({u"etat"_s, u"en-ligne"_s, u"5"_s}).code, 0);
    QCOMPARE(m_publisher->run({u"etat"_s, u"sonder"_s, place}).code, 0);
    QCOMPARE(json(served(u"api/status.php"_s)).object().value(u"players"_s), 5);

    if (QTcpServer ipv6; ipv6.listen(QHostAddress::LocalHostIPv6)) {
        const Publisher::Result result =
            m_publisher->run({u"etat"_s, u"sonder"_s, u"[::1]:%1"_s.arg(ipv6.serverPort())});
        QCOMPARE(result.output, u"En ligne, 5 joueurs.\n"_s);
    }

    game.close();
    QCOMPARE(m_publisher->run({u"etat"_s, u"sonder"_s, place}).output, u"Hors ligne.\n"_s);
    QCOMPARE(json(served(u"api/status.php"_s)).object().value(u"online"_s), false);
    QVERIFY(game.listen(QHostAddress::LocalHost, port));
    QCOMPARE(m_publisher->run({u"etat"_s, u"sonder"_s, place}).output, u"En ligne, 5 joueurs.\n"_s);
    for (const QString &wrong : {u"127.0.0.1"_s, u":80"_s, u"host:0"_s, u"host:70000"_s})
        QCOMPARE(m_publisher->run({u"etat"_s, u"sonder"_s, wrong}).code, 1);
}

/// While the tool waits for a server that has no time for it.
void TestPublishSite::whatIsToldDuringAProbeStays()
{
    const auto connections = [](quint16 port, const QByteArray &state) {
        // "sl local_address rem_address st", the last of them 01 for open and 02 for asked.
        const QByteArray wanted =
            QByteArray(":") + QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
        qsizetype count = 0;
        const QList<QByteArray> lines = Files::read(u"/proc/net/tcp"_s).split('\n');
        for (const QByteArray &line : lines) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            count += fields.value(2).endsWith(wanted) && fields.value(3) == state ? 1 : 0;
        }
        return count;
    };
    QTcpServer game;
    game.setListenBacklogSize(1);
    QVERIFY(game.listen(QHostAddress::LocalHost));
    const quint16 port = game.serverPort();
    game.pauseAccepting();
    std::vector<std::unique_ptr<QTcpSocket>> players;
    while (connections(port, "02") == 0) {
        players.push_back(std::make_unique<QTcpSocket>());
        players.back()->connectToHost(QHostAddress::LocalHost, port);
        QTest::qWait(20);
    }
    const qsizetype waiting = connections(port, "02");

    QProcess probe;
    probe.setWorkingDirectory(m_publisher->path(QString()));
    probe.start(Publisher::program(), {u"etat"_s, u"sonder"_s, u"127.0.0.1:%1"_s.arg(port)});
    QTRY_VERIFY(connections(port, "02") > waiting);
    QCOMPARE(m_publisher->run({u"etat"_s, u"en-ligne"_s, u"9"_s}).code, 0);
    game.resumeAccepting();
    QTRY_COMPARE_WITH_TIMEOUT(probe.state(), QProcess::NotRunning, 30000);
    QCOMPARE(probe.readAllStandardOutput(), "En ligne, 9 joueurs.\n");
    QCOMPARE(json(served(u"api/status.php"_s)).object(),
             (QJsonObject{{u"online"_s, true}, {u"players"_s, 9}}));
}

void TestPublishSite::aStateThatIsGoneIsMadeAnew()
{
    QTcpServer game;
    QVERIFY(game.listen(QHostAddress::LocalHost));
    QVERIFY(QFile::remove(m_publisher->path(u"etat/status.json"_s)));
    const QString place = u"127.0.0.1:%1"_s.arg(game.serverPort());
    QCOMPARE(m_publisher->run({u"etat"_s, u"sonder"_s, place}).code, 0);
    QCOMPARE(json(served(u"api/status.php"_s)).object(),
             (QJsonObject{{u"online"_s, true}, {u"players"_s, 0}}));
}

void TestPublishSite::whatIsInTheWayIsTheDisksFault()
{
    const QString state = m_publisher->path(u"etat/status.json"_s);
    QVERIFY(QFile::remove(state));
    QVERIFY(QDir().mkpath(state + u"/plein"_s));
    const Publisher::Result result = m_publisher->run({u"etat"_s, u"hors-ligne"_s});
    QCOMPARE(result.code, 6);
    QVERIFY2(result.errors.contains(u"Écriture impossible : "_s + state),
             qPrintable(result.errors));
}

void TestPublishSite::puttingOnlineSwitchesTheSite()
{
    QCOMPARE(addNews(u"Titre"_s).code, 0);
    QCOMPARE(link(u"site"_s), u"0001"_s);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).output, u"Publication 0002 en ligne.\n"_s);
    QCOMPARE(link(u"site"_s), u"0002"_s);
    QVERIFY(served(u"api/news.php"_s).contains("Titre"));
    const Publisher::Result again = m_publisher->run({u"mettre-en-ligne"_s});
    QCOMPARE(again.code, 0);
    QVERIFY2(again.output.contains(u"déjà en ligne"_s), qPrintable(again.output));
}

void TestPublishSite::takingBackGoesOnFromThere()
{
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 2);
    QCOMPARE(addNews(u"Bonne"_s).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QCOMPARE(addNews(u"Mauvaise"_s).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 0);
    QVERIFY(!served(u"api/news.php"_s).contains("Mauvaise"));

    QCOMPARE(addNews(u"Suivante"_s).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    const QByteArray news = served(u"api/news.php"_s);
    QVERIFY(news.contains("Suivante") && news.contains("Bonne") && !news.contains("Mauvaise"));
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 0);
    QCOMPARE(link(u"site"_s), u"0002"_s);
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 0);
    QCOMPARE(link(u"site"_s), u"0001"_s);
}

void TestPublishSite::takingBackTellsOfWhatWasPrepared()
{
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(addNews(QString::number(i)).code, 0);
        QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    }
    QCOMPARE(addNews(u"Préparée"_s).code, 0);
    const Publisher::Result result = m_publisher->run({u"annuler"_s});
    QCOMPARE(result.code, 0);
    QCOMPARE(link(u"site"_s), u"0002"_s);
    QVERIFY2(result.output.contains(
                 u"La publication 0004, préparée et pas encore en ligne, est abandonnée"_s),
             qPrintable(result.output));
    const Publisher::Result again = m_publisher->run({u"annuler"_s});
    QCOMPARE(again.output, u"La publication 0001 est de nouveau en ligne.\n"_s);
}

void TestPublishSite::oldGenerationsAreRemoved()
{
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(addNews(QString::number(i)).code, 0);
        QCOMPARE(addNews(QString::number(i)).code, 0);
        QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    }
    QCOMPARE(
        QDir(m_publisher->path(u"publications"_s)).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
        (QStringList{u"0007"_s, u"0009"_s, u"0011"_s}));
    QCOMPARE(link(u"site"_s), u"0011"_s);
}

void TestPublishSite::whatCannotBeRemovedKeepsNobodyFromPublishing()
{
    m_publisher = std::make_unique<Publisher>();
    if (!m_publisher->runAsStranger())
        QSKIP("A stranger cannot reach the folder: one around it keeps others out");
    QCOMPARE(m_publisher->run({u"init"_s, u"http://veyra.test"_s}).code, 0);
    const QString old = m_publisher->path(u"publications/0001/api"_s);
    const QFile::Permissions rights = QFile::permissions(old);
    QVERIFY(QFile::setPermissions(old, QFile::ReadOwner | QFile::ExeOwner));
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(addNews(QString::number(i)).code, 0);
        const Publisher::Result result = m_publisher->run({u"mettre-en-ligne"_s});
        QCOMPARE(result.code, i < 2 ? 0 : 4);
        QVERIFY2(result.output.contains(u"en ligne."_s), qPrintable(result.output));
        QCOMPARE(result.errors.contains(u"Suppression impossible"_s), i == 2);
    }
    QCOMPARE(link(u"site"_s), u"0004"_s);
    // The rest of it is in nobody's way, and goes as soon as it can.
    QCOMPARE(addNews(u"Suivante"_s).code, 0);
    QCOMPARE(m_publisher->run({u"annuler"_s}).code, 0);
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 4);
    const QDir publications(m_publisher->path(u"publications"_s));
    const QStringList left =
        publications.entryList({u".a-supprimer-*"_s}, QDir::Dirs | QDir::Hidden);
    QCOMPARE(left, QStringList{u".a-supprimer-0001"_s});
    QVERIFY(QFile::setPermissions(publications.filePath(left.first() + u"/api"_s), rights));
    QCOMPARE(m_publisher->run({u"mettre-en-ligne"_s}).code, 0);
    QVERIFY(!publications.exists(left.first()));
}

void TestPublishSite::numbersGrowBeyondFourDigits()
{
    Files::write(m_publisher->path(u"publications/9999/a"_s), "a");
    for (const QString &number : {u"10000"_s, u"10001"_s}) {
        const Publisher::Result result = addNews(number);
        QVERIFY2(result.code == 0, qPrintable(result.errors));
        QCOMPARE(link(u"brouillon"_s), number);
    }
}

void TestPublishSite::oneRunAtATime()
{
    QLockFile other(m_publisher->path(u".verrou"_s));
    QVERIFY(other.tryLock());
    for (const QStringList &arguments :
         {QStringList{u"mettre-en-ligne"_s}, QStringList{u"annuler"_s},
          QStringList{u"client"_s, m_publisher->beside(u"client"_s)},
          QStringList{u"nouvelles"_s, u"ajouter"_s, u"a"_s, u"b"_s},
          QStringList{u"nouvelles"_s, u"retirer"_s, u"1"_s}}) {
        const Publisher::Result result = m_publisher->run(arguments);
        QCOMPARE(result.code, 2);
        QVERIFY2(result.errors.contains(u"Une autre commande travaille dans cet atelier"_s),
                 qPrintable(result.errors));
    }
}

void TestPublishSite::theStateWaitsForNobody()
{
    QLockFile other(m_publisher->path(u".verrou"_s));
    QVERIFY(other.tryLock());
    QCOMPARE(m_publisher->run({u"etat"_s, u"en-ligne"_s, u"3"_s}).code, 0);
    QCOMPARE(m_publisher->run({u"nouvelles"_s, u"lister"_s}).code, 0);
}

void TestPublishSite::wrongCommands_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("none") << QStringList() << u"Une commande manque"_s;
    QTest::newRow("an unknown one") << QStringList{u"voler"_s} << u"« voler »"_s;
    QTest::newRow("half a command") << QStringList{u"nouvelles"_s} << u"« nouvelles »"_s;
    QTest::newRow("too little") << QStringList{u"client"_s} << u"demande plus d'arguments"_s;
    QTest::newRow("too much") << QStringList{u"annuler"_s, u"tout"_s} << u"en trop, « tout »"_s;
    QTest::newRow("an unknown option")
        << QStringList{u"annuler"_s, u"--vite"_s} << u"ne connaît pas --vite"_s;
    QTest::newRow("another command's option")
        << QStringList{u"annuler"_s, u"--date"_s, u"x"_s} << u"ne connaît pas --date"_s;
    QTest::newRow("an option without its value")
        << QStringList{u"client"_s, u"a"_s, u"--exclure"_s} << u"--exclure demande une valeur"_s;
    QTest::newRow("two dates") << QStringList{u"nouvelles"_s, u"ajouter"_s, u"a"_s,          u"b"_s,
                                              u"--date"_s,    u"x"_s,       u"--sans-date"_s}
                               << u"s'excluent"_s;
    QTest::newRow("a number that is none")
        << QStringList{u"etat"_s, u"en-ligne"_s, u"-1"_s} << u"« -1 »"_s;
}

void TestPublishSite::wrongCommands()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, reason);
    const Publisher::Result result = m_publisher->run(arguments);
    QCOMPARE(result.code, 1);
    QVERIFY2(result.errors.contains(reason), qPrintable(result.errors));
    QVERIFY(result.output.isEmpty());
}

void TestPublishSite::helpNamesEveryCommand()
{
    const Publisher::Result help = m_publisher->run({u"client"_s, u"--help"_s});
    QCOMPARE(help.code, 0);
    for (const QString &name :
         {u"init ADRESSE"_s, u"client DOSSIER"_s, u"lanceur ARCHIVE --notes FICHIER"_s,
          u"nouvelles ajouter TITRE TEXTE"_s, u"nouvelles lister"_s, u"nouvelles retirer N"_s,
          u"etat en-ligne N"_s, u"etat hors-ligne"_s, u"etat sonder HÔTE:PORT"_s,
          u"mettre-en-ligne"_s, u"annuler"_s, u"verifier [ADRESSE]"_s, u"essayer "_s}) {
        QVERIFY2(help.output.contains(u"\n  "_s + name), qPrintable(name));
    }
    QCOMPARE(m_publisher->run({u"--version"_s}).output,
             u"veyra-publier "_s + QStringLiteral(VEYRA_VERSION) + u'\n');
}

void TestPublishSite::whatLooksLikeAnOptionMayBeNews()
{
    for (const QString &title : {u"--help"_s, u"--version"_s})
        QCOMPARE(m_publisher->run({u"nouvelles"_s, u"ajouter"_s, u"--"_s, title, u"Texte"_s}).code,
                 0);
    const QString news = m_publisher->run({u"nouvelles"_s, u"lister"_s}).output;
    QVERIFY2(news.contains(u"] --help — Texte"_s) && news.contains(u"] --version — Texte"_s),
             qPrintable(news));
}

void TestPublishSite::nginxServesItAsTheLauncherWants()
{
    if (Nginx::program().isEmpty())
        QSKIP("no nginx here");
    const Publisher publisher;
    const QString block =
        Nginx::blockIn(publisher.run({u"init"_s, u"http://127.0.0.1:8080/"_s}).output);
    Clients::write(publisher.beside(u"client"_s), Clients::sample());
    QCOMPARE(publisher.run({u"client"_s, publisher.beside(u"client"_s)}).code, 0);
    QCOMPARE(publisher.run({u"mettre-en-ligne"_s}).code, 0);
    Files::write(publisher.path(u"site/launcher/a.zip"_s), "archive");

    const Nginx nginx(block);
    const QString address = u"http://127.0.0.1:%1/"_s.arg(nginx.port());
    QVERIFY2(nginx.isRunning(), nginx.errors().constData());

    struct Expected
    {
        QString path;
        QByteArray type;
        QByteArray cache;
    };
    QNetworkAccessManager manager;
    for (const Expected &expected :
         {Expected{u"api/status.php"_s, "application/json", "no-cache"},
          Expected{u"api/news.php"_s, "application/json", "no-cache"},
          Expected{u"api/launcher_version.json"_s, "application/json", "no-cache"},
          Expected{u"updates/version.json"_s, "application/json", "no-cache"},
          Expected{u"client/DofusClient.zip"_s, "application/zip", "no-cache"},
          Expected{u"launcher/a.zip"_s, "application/zip",
                   "public, max-age=31536000, immutable"}}) {
        QNetworkReply *reply = manager.get(QNetworkRequest(QUrl(address + expected.path)));
        QSignalSpy finished(reply, &QNetworkReply::finished);
        QVERIFY(finished.wait());
        QCOMPARE(reply->error(), QNetworkReply::NoError);
        QCOMPARE(reply->rawHeader("Content-Type"), expected.type);
        QCOMPARE(reply->rawHeader("Cache-Control"), expected.cache);
        QVERIFY(!reply->hasRawHeader("Content-Encoding"));
        QCOMPARE(reply->readAll(), Files::read(publisher.path(u"site/"_s + expected.path)));
        reply->deleteLater();
    }
    QNetworkReply *page = manager.get(QNetworkRequest(QUrl(address)));
    QSignalSpy finished(page, &QNetworkReply::finished);
    QVERIFY(finished.wait());
    QVERIFY(page->rawHeader("Content-Type").startsWith("text/html"));
    QVERIFY(page->readAll().contains("<h1>Veyra</h1>"));
    delete page;
}

VEYRA_CORE_TEST_MAIN(TestPublishSite)
#include "TestPublishSite.moc"
