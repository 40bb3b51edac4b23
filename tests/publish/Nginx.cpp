#include "tests/publish/Nginx.h"

#include "tests/support/Files.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTcpServer>

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kStartsWithin = 30s;
constexpr std::chrono::milliseconds kLookEvery = 20ms;

} // namespace

Nginx::Nginx(const QString &block)
{
    // Somebody else may take the port before nginx does.
    constexpr int kAttempts = 5;
    for (int i = 0; i < kAttempts; ++i) {
        m_port = freePort();
        start(block);
        if (isRunning() || !errors().contains("Address already in use"))
            return;
    }
}

void Nginx::start(QString block)
{
    if (QTcpServer ipv6; !ipv6.listen(QHostAddress::LocalHostIPv6))
        block.remove(QRegularExpression(u"    listen \\[::\\]:[0-9]+;\n"_s));
    block.replace(QRegularExpression(u"(listen (?:\\[::\\]:)?)[0-9]+;"_s), u"\\1%1;"_s.arg(m_port));
    const QString configuration =
        u"daemon off;\nmaster_process off;\npid \"%1/pid\";\nerror_log \"%1/errors\";\n"
        u"events { }\nhttp {\n    include /etc/nginx/mime.types;\n    access_log off;\n"
        u"    gzip on;\n    gzip_types *;\n    client_body_temp_path \"%1/body\";\n"
        u"    proxy_temp_path \"%1/proxy\";\n    fastcgi_temp_path \"%1/fastcgi\";\n"
        u"    uwsgi_temp_path \"%1/uwsgi\";\n    scgi_temp_path \"%1/scgi\";\n%2}\n"_s.arg(
            m_folder.path(), block);
    const QString processNumber = m_folder.filePath(u"pid"_s);
    for (const QString &old : {processNumber, m_folder.filePath(u"errors"_s)})
        QFile::remove(old);
    Files::write(m_folder.filePath(u"nginx.conf"_s), configuration.toUtf8());
    m_process.start(program(), {u"-e"_s, m_folder.filePath(u"errors"_s), u"-c"_s,
                                m_folder.filePath(u"nginx.conf"_s)});
    // It is written once the port is nginx's own. An answer alone could be somebody else's.
    const QDeadlineTimer patience(kStartsWithin);
    while (isRunning() && Files::read(processNumber).isEmpty() && !patience.hasExpired())
        m_process.waitForFinished(static_cast<int>(kLookEvery.count()));
}

Nginx::~Nginx()
{
    m_process.terminate();
    m_process.waitForFinished();
}

QString Nginx::program()
{
    return QStandardPaths::findExecutable(u"nginx"_s, {u"/usr/sbin"_s, u"/usr/bin"_s});
}

quint16 Nginx::freePort()
{
    QTcpServer free;
    return free.listen(QHostAddress::LocalHost) ? free.serverPort() : quint16{0};
}

QString Nginx::blockIn(const QString &output)
{
    return output.sliced(output.indexOf(u"server {"_s));
}

QByteArray Nginx::errors() const
{
    return Files::read(m_folder.filePath(u"errors"_s));
}
