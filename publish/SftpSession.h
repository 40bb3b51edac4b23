#pragma once

#include <QProcess>
#include <QStringList>

/// The system's `sftp`, to which commands are given one after the other. It asks nothing: whoever
/// has no key is refused, and so is a server whose key is not known.
class SftpSession
{
public:
    /// Connects. Throws a Problem: Outcome::Disk where the program is missing,
    /// Outcome::Unreachable where nobody lets us in.
    SftpSession(const QString &host, int port);
    ~SftpSession();
    Q_DISABLE_COPY_MOVE(SftpSession)

    /// What the command prints. Throws a Problem (Outcome::Disk) where the server refuses and where
    /// the connection is lost. With a "-" in front only the latter counts.
    QStringList run(const QString &command);

    /// As it is written in a command. Throws a Problem for what cannot be.
    static QString quoted(const QString &name);

private:
    void start(const QString &program, const QStringList &arguments);
    QString lastWords();

    QProcess m_process;
};
