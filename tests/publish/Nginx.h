#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

/// nginx with what `init` prints, and a configuration of its own around it that packs all it can.
class Nginx
{
public:
    /// `block` as it was printed, but with a port that is free; where the machine has no IPv6,
    /// without that. It answers afterwards, or is not running.
    explicit Nginx(const QString &block);
    ~Nginx();
    Q_DISABLE_COPY_MOVE(Nginx)

    /// Empty where there is none.
    static QString program();
    /// For programs that take no "any that is free" themselves.
    static quint16 freePort();
    /// What `init` says of nginx.
    static QString blockIn(const QString &output);

    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    quint16 port() const { return m_port; }
    QByteArray errors() const;

private:
    void start(QString block);

    QTemporaryDir m_folder;
    QProcess m_process;
    quint16 m_port = 0;
};
