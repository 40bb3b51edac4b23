#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

/// nginx with what `init` prints, and a configuration of its own around it that packs all it can.
class Nginx
{
public:
    /// `block` as it was printed; where the machine has no IPv6, without that.
    explicit Nginx(QString block);
    ~Nginx();
    Q_DISABLE_COPY_MOVE(Nginx)

    /// Empty where there is none.
    static QString program();
    /// It takes no "any that is free" itself.
    static quint16 freePort();
    /// What `init` says of nginx.
    static QString blockIn(const QString &output);

    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    bool answers(quint16 port) const;
    QByteArray errors() const;

private:
    QTemporaryDir m_folder;
    QProcess m_process;
};
