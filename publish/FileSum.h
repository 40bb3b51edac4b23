#pragma once

#include <QByteArray>
#include <QString>

/// SHA-256 of a file in lower-case hexadecimal. Throws a Problem (Outcome::Disk) where it cannot be
/// read.
QByteArray fileSum(const QString &path);
