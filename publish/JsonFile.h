#pragma once

#include <QJsonDocument>
#include <QString>

/// What people may have changed by hand.
namespace JsonFile {

/// Throws a Problem (Outcome::Refused) for what is no JSON: nothing is to be lost by taking it for
/// an empty file.
QJsonDocument read(const QString &path);

} // namespace JsonFile
