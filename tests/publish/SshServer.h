#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

/// An sshd of the test's own on loopback, with keys of its own. While it lives, `sftp` in the
/// search path is the machine's own with a configuration that knows this server and nothing of the
/// person's.
class SshServer
{
public:
    /// `denied` are requests of sftp that the server does not know, separated by commas; `options`
    /// are more for its part of sftp.
    explicit SshServer(const QString &denied = {}, const QString &options = {});
    ~SshServer();
    Q_DISABLE_COPY_MOVE(SshServer)

    /// Why there can be none on this machine; empty where it can.
    static QString whyNot();

    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    bool answers() const;
    QByteArray errors() { return m_process.readAllStandardError(); }
    /// "sftp://..." for a folder of this machine.
    QString address(const QString &folder) const;

    /// From here on sftp has these options too.
    void setClientOptions(const QByteArray &options);
    bool hasConnections() const;
    /// Ends all connections at once. New ones are taken.
    void cutConnections() const;
    /// Whoever writes files for a client stops, with the connections standing.
    void freeze() const;
    /// As cutConnections(), and nobody listens any longer.
    void stop();
    /// From here on each command reaches sftp by way of this, in the language of the shell.
    void setClientFilter(const QByteArray &perLine);
    /// From here on nobody knows the server's key.
    void forgetHostKey();
    /// From here on the server lets nobody in.
    void forgetUserKey();

private:
    QString path(const QString &name) const { return m_folder.filePath(name); }
    void makeKey(const QString &name) const;

    QTemporaryDir m_folder;
    QByteArray m_oldPath;
    quint16 m_port = 0;
    QProcess m_process;
};
