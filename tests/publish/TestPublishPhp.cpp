#include "tests/publish/Nginx.h"
#include "tests/publish/Publisher.h"
#include "tests/support/Files.h"
#include "tests/support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kLongEnough = 30'000; // milliseconds

const auto kStatus = QByteArrayLiteral(R"(<?php
header('Content-Type: application/json');
header('Cache-Control: no-cache');
echo json_encode(['online' => true, 'players' => 30 + 1]);
)");
const auto kNews = QByteArrayLiteral(R"(<?php
header('Content-Type: application/json');
header('Cache-Control: no-cache');
echo json_encode([['title' => 'Île ' . date('Y', 0), 'content' => 'Texte']]);
)");

QString phpFpm()
{
    for (const QString &folder : {u"/usr/sbin"_s, u"/usr/bin"_s}) {
        const QStringList names = QDir(folder).entryList({u"php-fpm*"_s}, QDir::Files);
        if (!names.isEmpty())
            return folder + u'/' + names.last();
    }
    return {};
}

/// PHP that waits for a web server on loopback and shows its warnings, as it does out of the box.
class PhpFpm
{
public:
    explicit PhpFpm(quint16 port)
    {
        QByteArray configuration =
            u"[global]\ndaemonize = no\nerror_log = %1/errors\n[www]\nlisten = 127.0.0.1:%2\n"
            u"pm = static\npm.max_children = 1\nphp_admin_flag[display_errors] = on\n"_s
                .arg(m_folder.path())
                .arg(port)
                .toUtf8();
        QStringList arguments{u"-n"_s, u"-F"_s, u"-y"_s, m_folder.filePath(u"php.conf"_s)};
        if (::getuid() == 0) {
            configuration += "user = root\ngroup = root\n";
            arguments.append(u"-R"_s);
        }
        Files::write(m_folder.filePath(u"php.conf"_s), configuration);
        m_process.start(phpFpm(), arguments);
    }
    ~PhpFpm()
    {
        m_process.terminate();
        m_process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(PhpFpm)

private:
    QTemporaryDir m_folder;
    QProcess m_process;
};

} // namespace

/// Sites that nobody made with this tool: the two names in .php are programs there.
class TestPublishPhp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void aSiteInPhpIsWithoutFault();
    void mistakesInPhp_data();
    void mistakesInPhp();
    void phpThatNobodyRuns();
    void phpThatIsDown();

private:
    /// nginx, which hands both names over to PHP.
    void serve(const QString &block)
    {
        m_nginx.reset();
        m_nginx = std::make_unique<Nginx>(block);
        QVERIFY2(m_nginx->isRunning(), m_nginx->errors().constData());
    }
    QString withPhp() const
    {
        QString block = m_block;
        return block.insert(
            block.indexOf(u"    location"_s),
            u"    location ~ ^/api/(status|news)\\.php$ {\n"
            u"        include /etc/nginx/fastcgi_params;\n"
            u"        fastcgi_param SCRIPT_FILENAME $document_root$fastcgi_script_name;\n"
            u"        fastcgi_pass 127.0.0.1:%1;\n    }\n"_s.arg(m_phpPort));
    }
    Publisher::Result verify() const
    {
        return m_publisher.run(
            {u"verifier"_s, u"http://127.0.0.1:%1/"_s.arg(m_nginx->port()), u"--json"_s});
    }
    /// "M26 api/status.php", and so on.
    static QStringList findings(const Publisher::Result &result)
    {
        const QJsonArray all =
            QJsonDocument::fromJson(result.output.toUtf8())[u"constats"_s].toArray();
        QStringList findings;
        for (const QJsonValue finding : all)
            findings.append(finding[u"code"_s].toString() + u' ' +
                            finding[u"adresse"_s].toString());
        return findings;
    }

    Publisher m_publisher;
    quint16 m_phpPort = Nginx::freePort();
    QString m_block;
    std::unique_ptr<PhpFpm> m_php;
    std::unique_ptr<Nginx> m_nginx;
};

void TestPublishPhp::initTestCase()
{
    if (Nginx::program().isEmpty() || phpFpm().isEmpty())
        QSKIP("no nginx or no php-fpm here");
    Clients::write(m_publisher.beside(u"client"_s), Clients::sample());
    const Publisher::Result made = m_publisher.run({u"init"_s, u"http://127.0.0.1:8080/"_s});
    QCOMPARE(made.code, 0);
    m_block = Nginx::blockIn(made.output);
    QCOMPARE(m_publisher.run({u"client"_s, m_publisher.beside(u"client"_s)}).code, 0);
    QCOMPARE(m_publisher.run({u"mettre-en-ligne"_s}).code, 0);
    QVERIFY(QFile::remove(m_publisher.path(u"site/api/status.php"_s))); // the link to the state
    m_php = std::make_unique<PhpFpm>(m_phpPort);
    serve(withPhp());
}

void TestPublishPhp::init()
{
    Files::write(m_publisher.path(u"site/api/status.php"_s), kStatus);
    Files::write(m_publisher.path(u"site/api/news.php"_s), kNews);
}

void TestPublishPhp::aSiteInPhpIsWithoutFault()
{
    // PHP may need a moment more than nginx.
    Publisher::Result result;
    QTRY_VERIFY2_WITH_TIMEOUT((result = verify()).code == 0,
                              qPrintable(result.output + result.errors), kLongEnough);
    QVERIFY2(result.output.contains(u"serveur en ligne, 31 joueurs, 1 actualité"_s),
             qPrintable(result.output));
}

void TestPublishPhp::mistakesInPhp_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("program");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *title, const QString &name, const QByteArray &program,
                        const QStringList &expected) {
        QTest::newRow(title) << name << program << expected;
    };
    QByteArray program = kStatus;
    row("a warning in front of the data", u"api/status.php"_s,
        program.replace("echo", "echo $unknown;\necho"), {u"M24 api/status.php"_s});
    program = kStatus;
    row("a program that breaks off", u"api/status.php"_s, program.replace("echo", "nothing();"),
        {u"M24 api/status.php"_s});
    program = kStatus;
    row("a program without its beginning", u"api/status.php"_s, program.replace("<?php", ""),
        {u"M30 api/status.php"_s, u"M26 api/status.php"_s});
    program = kStatus;
    row("no word of caches", u"api/status.php"_s,
        program.replace("header('Cache-Control: no-cache');\n", ""), {u"M30 api/status.php"_s});
    row("players as a text", u"api/status.php"_s,
        "<?php header('Cache-Control: no-cache'); echo json_encode(['online' => 1, 'players' => "
        "'3']);",
        {u"M26 api/status.php"_s});
    row("news that are no list", u"api/news.php"_s,
        "<?php header('Cache-Control: no-cache'); echo json_encode([5 => 'Titre']);",
        {u"M26 api/news.php"_s});
    row("a redirect to itself", u"api/news.php"_s, "<?php header('Location: /api/news.php');",
        {u"M21 api/news.php"_s});
}

void TestPublishPhp::mistakesInPhp()
{
    QFETCH(const QString, name);
    QFETCH(const QByteArray, program);
    QFETCH(const QStringList, expected);
    Files::write(m_publisher.path(u"site/"_s + name), program);
    const Publisher::Result result = verify();
    QVERIFY2(findings(result) == expected, qPrintable(result.output + result.errors));
}

/// The block as it was printed says that both are JSON.
void TestPublishPhp::phpThatNobodyRuns()
{
    serve(m_block);
    const Publisher::Result result = verify();
    QCOMPARE(result.code, 3);
    QCOMPARE(findings(result), (QStringList{u"M23 api/status.php"_s, u"M23 api/news.php"_s}));
    serve(withPhp());
}

void TestPublishPhp::phpThatIsDown()
{
    m_php.reset();
    const Publisher::Result result = verify();
    QCOMPARE(result.code, 3);
    QVERIFY2(findings(result).contains(u"M20 api/status.php"_s), qPrintable(result.output));
}

VEYRA_CORE_TEST_MAIN(TestPublishPhp)
#include "TestPublishPhp.moc"
