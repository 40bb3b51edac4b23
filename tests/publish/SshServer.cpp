#include "tests/publish/SshServer.h"

#include "tests/support/Files.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>

#include <csignal>
#include <pwd.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Debian's service makes it when it starts; without it sshd refuses to run as root.
const auto kPrivilegeFolder = u"/run/sshd"_s;

QString sshd()
{
    return QStandardPaths::findExecutable(u"sshd"_s, {u"/usr/sbin"_s, u"/usr/bin"_s});
}

QString sftp()
{
    return QStandardPaths::findExecutable(u"sftp"_s, {u"/usr/bin"_s});
}

QList<qint64> childrenOf(qint64 process)
{
    QList<qint64> children;
    const QList<QByteArray> numbers =
        Files::read(u"/proc/%1/task/%1/children"_s.arg(process)).split(' ');
    for (const QByteArray &number : numbers) {
        if (const qint64 child = number.toLongLong(); child > 0)
            children.append(child);
    }
    return children;
}

/// With all that it has started.
void killTree(qint64 process)
{
    const QList<qint64> children = childrenOf(process);
    ::kill(static_cast<pid_t>(process), SIGKILL);
    for (const qint64 child : children)
        killTree(child);
}

QByteArray userName()
{
    const passwd *const user = ::getpwuid(::getuid());
    return user ? user->pw_name : "";
}

} // namespace

SshServer::SshServer(const QString &denied, const QString &moreOptions)
    : m_oldPath(qgetenv("PATH"))
{
    {
        QTcpServer free; // sshd takes no "any that is free"
        if (free.listen(QHostAddress::LocalHost))
            m_port = free.serverPort();
    }
    makeKey(u"host"_s);
    makeKey(u"user"_s);
    Files::write(path(u"authorized"_s), Files::read(path(u"user.pub"_s)));
    Files::write(path(u"known"_s), "[127.0.0.1]:" + QByteArray::number(m_port) + ' ' +
                                       Files::read(path(u"host.pub"_s)));
    const QString options = moreOptions + (denied.isEmpty() ? QString() : u" -P "_s + denied);
    Files::write(
        path(u"sshd_config"_s),
        u"ListenAddress 127.0.0.1:%1\nHostKey \"%2/host\"\nAuthorizedKeysFile \"%2/authorized\"\n"
        u"PidFile none\nStrictModes no\nUsePAM no\nPasswordAuthentication no\n"
        u"KbdInteractiveAuthentication no\nSubsystem sftp internal-sftp%3\n"_s.arg(m_port)
            .arg(m_folder.path(), options)
            .toUtf8());
    Files::write(path(u"ssh_config"_s),
                 u"IdentityFile \"%1/user\"\nIdentitiesOnly yes\nUserKnownHostsFile \"%1/known\"\n"
                 u"GlobalKnownHostsFile none\nStrictHostKeyChecking yes\nUpdateHostKeys no\n"_s
                     .arg(m_folder.path())
                     .toUtf8());
    setClientOptions({});
    qputenv("PATH", path(u"bin"_s).toUtf8() + ':' + m_oldPath);
    m_process.start(sshd(), {u"-D"_s, u"-e"_s, u"-f"_s, path(u"sshd_config"_s)});
}

SshServer::~SshServer()
{
    qputenv("PATH", m_oldPath);
    m_process.terminate();
    m_process.waitForFinished();
}

QString SshServer::whyNot()
{
    if (sshd().isEmpty() || sftp().isEmpty())
        return u"no sshd or no sftp here"_s;
    if (::getuid() == 0 && !QDir().mkpath(kPrivilegeFolder))
        return u"sshd cannot run as root here"_s;
    return {};
}

bool SshServer::answers() const
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, m_port);
    return socket.waitForConnected();
}

QString SshServer::address(const QString &folder) const
{
    return u"sftp://%1@127.0.0.1:%2%3"_s.arg(QString::fromLocal8Bit(userName()))
        .arg(m_port)
        .arg(folder);
}

void SshServer::setClientOptions(const QByteArray &options)
{
    const QString program = path(u"bin/sftp"_s);
    Files::write(program, "#!/bin/sh\nexec " + sftp().toUtf8() + " -F '" +
                              path(u"ssh_config"_s).toUtf8() + "' " + options + " \"$@\"\n");
    QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

bool SshServer::hasConnections() const
{
    return !childrenOf(m_process.processId()).isEmpty();
}

void SshServer::cutConnections() const
{
    const QList<qint64> connections = childrenOf(m_process.processId());
    for (const qint64 connection : connections)
        killTree(connection);
}

void SshServer::freeze() const
{
    const QList<qint64> connections = childrenOf(m_process.processId());
    for (qint64 process : connections) {
        for (QList<qint64> inner = childrenOf(process); !inner.isEmpty();
             inner = childrenOf(process))
            process = inner.first();
        ::kill(static_cast<pid_t>(process), SIGSTOP);
    }
}

void SshServer::stop()
{
    killTree(m_process.processId());
    m_process.waitForFinished();
}

void SshServer::setClientFilter(const QByteArray &perLine)
{
    const QString program = path(u"bin/sftp"_s);
    Files::write(program, "#!/bin/sh\nwhile IFS= read -r line; do " + perLine +
                              "; printf '%s\\n' \"$line\"; done | " + sftp().toUtf8() + " -F '" +
                              path(u"ssh_config"_s).toUtf8() + "' \"$@\"\n");
}

void SshServer::forgetHostKey()
{
    QFile::remove(path(u"known"_s));
}

void SshServer::forgetUserKey()
{
    Files::write(path(u"authorized"_s), "");
}

void SshServer::makeKey(const QString &name) const
{
    QProcess::execute(u"ssh-keygen"_s,
                      {u"-q"_s, u"-t"_s, u"ed25519"_s, u"-N"_s, QString(), u"-f"_s, path(name)});
}
