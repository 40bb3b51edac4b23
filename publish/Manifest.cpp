#include "publish/Manifest.h"

#include "publish/Disk.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

Manifest Manifest::load(const QString &path)
{
    Manifest manifest;
    if (!QFile::exists(path))
        return manifest;
    const QJsonArray files =
        QJsonDocument::fromJson(Disk::read(path)).object().value("files"_L1).toArray();
    for (const QJsonValue file : files)
        manifest.sums.insert(file["name"_L1].toString(), file["hash"_L1].toString().toLatin1());
    return manifest;
}

QByteArray Manifest::text() const
{
    QStringList names = sums.keys();
    std::sort(names.begin(), names.end(), [](const QString &left, const QString &right) {
        return left.toUtf8() < right.toUtf8();
    });
    QJsonArray files;
    for (const QString &name : std::as_const(names)) {
        files.append(
            QJsonObject{{"name"_L1, name}, {"hash"_L1, QString::fromLatin1(sums.value(name))}});
    }
    return QJsonDocument(QJsonObject{{"files"_L1, files}}).toJson();
}
