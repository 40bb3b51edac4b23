#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// Short ways to what lies on disk.
namespace Files {

/// Makes the file and its folders.
void write(const QString &path, const QByteArray &content);
/// Null when there is no such file.
QByteArray read(const QString &path);
/// Everything below a folder in alphabetical order, relative to it, folders with a "/" at the end.
QStringList tree(const QString &folder);
/// Bytes that no run of equal ones helps to lose unnoticed.
QByteArray noise(qsizetype size, quint32 seed = 1);
/// SHA-256 in lower-case hexadecimal, taken from the bytes in memory.
QString sha256(const QByteArray &content);
/// A zip archive of what lies in a folder, made by Python's zipfile or on Windows by Qt; names in
/// UTF-8.
QByteArray zipped(const QString &folder);

} // namespace Files
