#include "publish/ServedLaunchers.h"

#include "publish/Disk.h"
#include "publish/JsonFile.h"
#include "publish/Site.h"
#include "publish/Workshop.h"
#include "update/Updater.h"

#include <QFile>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

namespace {

QString filePath(const Workshop &workshop)
{
    return workshop.path(u"lanceurs.json"_s);
}

} // namespace

QMap<QString, QString> ServedLaunchers::sums(const Workshop &workshop)
{
    QMap<QString, QString> sums;
    if (!QFile::exists(filePath(workshop)))
        return sums;
    const QJsonObject served = JsonFile::read(filePath(workshop)).object();
    for (auto launcher = served.begin(); launcher != served.end(); ++launcher)
        sums.insert(launcher.key(), launcher.value().toString());
    return sums;
}

void ServedLaunchers::rememberDraft(const Workshop &workshop)
{
    const QString version = Site::publishedVersion(workshop);
    QMap<QString, QString> served = sums(workshop);
    if (version.isEmpty() || served.contains(version))
        return;
    served.insert(version,
                  Updater::calculateFileHash(workshop.generationPath(workshop.draft()) + u'/' +
                                             Site::launcherArchive(version, workshop.target())));
    QJsonObject launchers;
    for (auto launcher = served.begin(); launcher != served.end(); ++launcher)
        launchers.insert(launcher.key(), launcher.value());
    Disk::write(filePath(workshop), QJsonDocument(launchers));
}
