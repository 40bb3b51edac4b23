#include "publish/ServedLaunchers.h"

#include "publish/Disk.h"
#include "publish/JsonFile.h"
#include "publish/Outcome.h"
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
    if (version.isEmpty() || !served.value(version).isEmpty())
        return;
    const QString archive = Site::publishedArchive(workshop);
    const QString sum =
        Updater::calculateFileHash(workshop.generationPath(workshop.draft()) + u'/' + archive);
    if (sum.isEmpty()) {
        throw Problem{Outcome::Refused,
                      u"Le launcher %1 est annoncé, mais son archive %2 manque "
                      u"dans ce qui est préparé ; rien n'a été changé."_s.arg(version, archive)};
    }
    served.insert(version, sum);
    QJsonObject launchers;
    for (auto launcher = served.begin(); launcher != served.end(); ++launcher)
        launchers.insert(launcher.key(), launcher.value());
    Disk::write(filePath(workshop), QJsonDocument(launchers));
}
