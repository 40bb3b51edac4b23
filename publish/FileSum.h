#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

/// SHA-256 of a file in lower-case hexadecimal. `read` is told how many bytes each piece had.
/// Throws a Problem (Outcome::Disk) where it cannot be read.
QByteArray fileSum(
    const QString &path, const std::function<void(qint64)> &read = [](qint64) {});
