#pragma once

#include "publish/Outcome.h"

#include <QProcess>
#include <QStringList>

#include <chrono>
#include <functional>

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

    /// What the command prints. Throws a Problem: Outcome::Disk where the server refuses,
    /// Outcome::Unreachable where the connection is lost, or nothing is answered for a minute. With
    /// a "-" in front only the latter counts. There may be several, one per line.
    QStringList run(const QString &commands);
    /// The same for one that moves a file, which may take as long as it wants while bytes move, as
    /// far as the system tells; at the end the server has minutes to bring them to its disk.
    /// `moved` is told how many each while had; at the end that may not be all.
    void transfer(const QString &command, const std::function<void(qint64)> &moved);

    /// As it is written in a command. Throws a Problem for what cannot be.
    static QString quoted(const QString &name);

private:
    void start(const QString &program, const QStringList &arguments);
    QStringList exchange(const QString &commands, std::chrono::milliseconds usualPatience,
                         const std::function<void(qint64)> &moved);
    bool takeLines(QStringList &lines);
    void comeToRest();
    void giveUp();
    Problem ended();
    QString lastWords();

    QProcess m_process;
};
