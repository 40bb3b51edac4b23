#pragma once

#include <QMetaObject>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStringList>

/// What can be seen of a worker from outside.
namespace Introspection {

/// The methods that a class itself declares to its meta-object, in their order, as texts:
/// "public signal finished(bool success, QString message)". Properties, enumerators and whatever
/// else it declares follow, so that nothing goes unnoticed. The meta-object knows qint64 as
/// qlonglong.
QStringList declarations(const QMetaObject &meta);

/// The one reply that is under way below the worker's network manager; null when there is none or
/// more than one.
QNetworkReply *pendingReply(const QObject &worker);

/// Everything that was set on a request besides its URL, as texts: "attribute 21 = 1".
QStringList traits(const QNetworkRequest &request);

} // namespace Introspection
