#pragma once

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QString>
#include <QStringList>

class Workshop;

/// All files of a site with their sums, as `sha256sum` writes them. The state is no part of it: it
/// changes by itself.
class SiteListing
{
public:
    /// Of a generation of the workshop. Only what was written since the last time is read
    /// ("empreintes-envoi.json"). Throws a Problem (Outcome::Refused) where it is no whole site, or
    /// where somebody has changed files of the client.
    static SiteListing of(const Workshop &workshop, const QString &generation);
    /// Empty where the text is none.
    static SiteListing parse(const QByteArray &text);

    /// SHA-256 in lower-case hexadecimal, by name.
    const QMap<QString, QByteArray> &sums() const { return m_sums; }
    /// Of all the folders that these files lie in, each after the one that it lies in.
    QStringList folders() const;
    QByteArray text() const;
    /// Two sites have the same when all their files are the same.
    QString id() const;

private:
    QMap<QString, QByteArray> m_sums;
};
