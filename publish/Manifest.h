#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

/// The sums of all files of the client, by name.
struct Manifest
{
    QMap<QString, QByteArray> sums; ///< SHA-256 in lower-case hexadecimal

    /// Empty where there is none.
    static Manifest load(const QString &path);
    QByteArray text() const;
};
