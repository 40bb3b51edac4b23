#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QString>
#include <QStringList>

class Workshop;

/// A generation in the making. It becomes the workshop's draft with commit(), or is removed again.
class Generation
{
public:
    /// An empty one.
    explicit Generation(const Workshop &workshop);
    /// What the draft has, but for the files whose names begin with one of `without`.
    Generation(const Workshop &workshop, const QStringList &without);
    ~Generation();
    Q_DISABLE_COPY_MOVE(Generation)

    const Workshop &workshop() const { return m_workshop; }
    /// Where the file will lie; its folder is made.
    QString fileFor(const QString &name) const;
    void write(const QString &name, const QByteArray &content) const;
    void write(const QString &name, const QJsonDocument &document) const;
    void pointTo(const QString &name, const QString &target) const;

    /// Returns its number.
    QString commit();

private:
    void linkFrom(const QString &base, const QStringList &without) const;

    const Workshop &m_workshop;
    QString m_folder;
    bool m_isCommitted = false;
};
