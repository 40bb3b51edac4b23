#include "publish/LauncherPublication.h"

#include "publish/Disk.h"
#include "publish/Generation.h"
#include "publish/LauncherArchive.h"
#include "publish/Outcome.h"
#include "publish/ServedLaunchers.h"
#include "publish/Site.h"
#include "publish/Workshop.h"
#include "updater/Failure.h"
#include "updater/Version.h"

#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kUnchecked = u"launcher/a-verifier.zip"_s;
constexpr qsizetype kLongestNotes = 20'000; ///< the launcher shows no more

using ServedSums = QMap<QString, QString>;

Problem refused(const QString &reason)
{
    return {Outcome::Refused, u"Launcher refusé : %1 ; rien n'a été changé."_s.arg(reason)};
}

/// Those that were online have a rule of their own. What the draft alone offers nobody has.
QStringList versionsToBeat(const Workshop &workshop, const ServedSums &served)
{
    QStringList versions = workshop.versions();
    versions.removeIf([&served](const QString &version) { return served.contains(version); });
    return versions;
}

/// What was online may be offered again, as it was: whoever has it already is not asked to take
/// something else for the same.
void checkAgainst(const ServedSums &served, const QString &version, const QString &sum)
{
    for (auto other = served.begin(); other != served.end(); ++other) {
        if (other.key() == version && !other.value().isEmpty() && other.value() != sum) {
            throw refused(u"la version %1 a déjà été en ligne avec un autre contenu, que des "
                          u"joueurs ont peut-être : il lui faut un autre numéro"_s.arg(version));
        }
        if (other.key() != version &&
            !Version::isNewer(version.toStdString(), other.key().toStdString())) {
            throw refused(
                u"la version %1 n'est pas plus récente que la version %2, qui a été en ligne"_s.arg(
                    version, other.key()));
        }
    }
}

/// What is damaged shows here, not at players'.
QString checkedVersion(const QString &path, const Workshop &workshop, const ServedSums &served)
{
    const QString program = LauncherArchive::program(workshop.target());
    try {
        const UpdateTerms terms = LauncherArchive::terms(workshop.target(), workshop.keys(),
                                                         versionsToBeat(workshop, served));
        const LauncherArchive archive = LauncherArchive::read(path, terms, workshop.baseUrl());
        if (!archive.hasProgram)
            throw refused(u"l'archive ne contient pas %1"_s.arg(program));
        if (!archive.asksThere)
            throw refused(u"%1 n'est pas construit pour %2"_s.arg(program, workshop.baseUrl()));
        return archive.version;
    } catch (const Failure &failure) {
        throw refused(QString::fromStdString(failure.text));
    }
}

} // namespace

QString LauncherPublication::make(const Workshop &workshop) const
{
    if (workshop.keys().isEmpty())
        throw refused(u"publication.json ne donne aucune clé publique (« cles »)"_s);
    if (notes.size() > kLongestNotes)
        throw refused(u"les notes dépassent %1 caractères"_s.arg(kLongestNotes));

    if (notes.isEmpty())
        throw refused(u"les notes sont vides"_s);

    const ServedSums served = ServedLaunchers::sums(workshop);
    QStringList without{Site::kLauncherVersion};
    const QString drafted = Site::publishedVersion(workshop);
    if (!drafted.isEmpty() && !served.contains(drafted))
        without.append(Site::publishedArchive(workshop));
    Generation generation(workshop, without);
    const QString unchecked = generation.fileFor(kUnchecked);
    // What is checked is the copy, whatever happens to the original.
    const QByteArray sum = Disk::copy(archive, unchecked, [](QByteArrayView) {});
    const QString version = checkedVersion(unchecked, workshop, served);
    checkAgainst(served, version, QString::fromLatin1(sum));

    const QString name = Site::launcherArchive(version, workshop.target());
    Disk::rename(unchecked, generation.fileFor(name));
    generation.write(Site::kLauncherVersion,
                     QJsonDocument(QJsonObject{{"version"_L1, version},
                                               {"download_url"_L1, workshop.baseUrl() + name},
                                               {"changelog"_L1, notes},
                                               {"required"_L1, isRequired}}));
    return generation.commit();
}
