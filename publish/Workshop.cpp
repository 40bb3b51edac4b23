#include "publish/Workshop.h"

#include "config/ProcessLock.h"
#include "publish/Disk.h"
#include "publish/Generation.h"
#include "publish/JsonFile.h"
#include "publish/LauncherArchive.h"
#include "publish/Outcome.h"
#include "publish/ServedLaunchers.h"
#include "publish/Site.h"
#include "publish/Status.h"
#include "updater/Version.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUrl>
#include <QUuid>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kSettings = "publication.json"_L1;
constexpr auto kGenerations = "publications"_L1;
constexpr auto kPreviousSuffix = ".avant"_L1;
constexpr auto kDoomed = ".a-supprimer-"_L1;
constexpr auto kDraft = "brouillon"_L1;
constexpr auto kSite = "site"_L1;
constexpr auto kStatus = "etat/status.json"_L1;
constexpr auto kFingerprints = "empreintes.json"_L1;
constexpr auto kLock = ".verrou"_L1;
constexpr int kDigits = 4;
constexpr int kKeptForReturn = 2; ///< generations that were served before this one

void checkOwner(const QString &folder)
{
    if (!Disk::wouldTakeOver(folder))
        return;
    const QString owner = QFileInfo(folder).owner();
    throw Problem{Outcome::Refused,
                  u"%1 appartient à « %2 », qui ne pourrait plus y écrire : « sudo -u %2 "
                  u"veyra-publier … ». Rien n'a été changé."_s.arg(folder, owner)};
}

void checkIsNone(const QString &folder)
{
    if (!Workshop::exists(folder))
        return;
    const Workshop other(folder);
    throw Problem{Outcome::Refused, u"%1 est déjà un atelier, pour %2 ; rien n'a été changé."_s.arg(
                                        QDir(folder).absolutePath(), other.baseUrl())};
}

/// In its "root" there is no way to write such a name.
void checkNginxCanName(const QString &folder)
{
    if (Disk::kMakesLinks && folder.contains(u'$')) {
        throw Problem{Outcome::Refused, u"%1 : nginx prendrait ce qui suit « $ » pour une "
                                        u"variable ; rien n'a été changé."_s.arg(folder)};
    }
}

QStringList texts(const QJsonValue &value)
{
    QStringList result;
    const QJsonArray items = value.toArray();
    for (const QJsonValue item : items)
        result.append(item.toString());
    return result;
}

} // namespace

Workshop::Workshop(const QString &folder, const QString &baseUrl, const QStringList &versions,
                   const QStringList &keys, const QString &target)
    : m_folder(QDir(folder).absolutePath())
    , m_baseUrl(baseUrl)
    , m_versions(versions)
    , m_keys(keys)
    , m_target(target)
{
}

Workshop::Workshop(const QString &folder)
    : m_folder(QDir(folder).absolutePath())
{
    if (!exists(m_folder)) {
        throw Problem{Outcome::Refused,
                      u"%1 n'est pas un atelier : s'y placer ou donner --atelier DOSSIER ; "
                      u"« veyra-publier init ADRESSE » en fait un nouveau."_s.arg(m_folder)};
    }
    checkOwner(m_folder);
    const QJsonObject settings = JsonFile::read(path(kSettings)).object();
    m_baseUrl = checkedBaseUrl(settings.value("url"_L1).toString());
    m_versions = texts(settings.value("versions"_L1));
    m_keys = texts(settings.value("cles"_L1));
    m_target = settings.value("cible"_L1).toString(LauncherArchive::targets().first());
    m_destination = settings.value("destination"_L1).toString();
    m_destinations = texts(settings.value("destinations"_L1));
    m_id = settings.value("atelier"_L1).toString();
}

Workshop Workshop::create(const QString &folder, const QString &baseUrl, const QStringList &keys,
                          const QString &target)
{
    Workshop workshop(folder, checkedBaseUrl(baseUrl), {QCoreApplication::applicationVersion()},
                      keys, target);
    checkIsNone(folder);
    checkOwner(workshop.m_folder);
    checkNginxCanName(workshop.m_folder);
    Disk::makeFolder(workshop.path(kGenerations));
    const std::unique_ptr<QLockFile> lock = workshop.lock();
    checkIsNone(folder); // Somebody else may have been quicker.
    if (workshop.hasSite())
        workshop.mend();
    else
        workshop.makeFirstGeneration();
    // Last: with it the folder counts as a workshop.
    workshop.saveSettings();
    return workshop;
}

/// Whether players have something from here already.
bool Workshop::hasSite() const
{
    if (numbers().contains(Disk::targetName(path(kSite))))
        return true;
    if (QFileInfo(path(kSite)).isDir()) {
        throw Problem{Outcome::Refused,
                      u"%1 est le site d'un autre outil, ou celui qu'un atelier a envoyé : choisir "
                      u"un autre dossier pour l'atelier ; rien n'a été changé."_s.arg(path(kSite))};
    }
    return false;
}

/// Finds out what the lost settings said; the operator tells the rest.
void Workshop::mend()
{
    const QJsonDocument record =
        JsonFile::read(generationPath(served()) + u'/' + Site::kLauncherVersion);
    const QString version = record["version"_L1].toString();
    const QString url = record["download_url"_L1].toString();
    if (!version.isEmpty() && url != m_baseUrl + Site::launcherArchive(version, m_target)) {
        throw Problem{
            Outcome::Refused,
            u"%1 manque, et le launcher en ligne est %2 : donner l'adresse et la cible de "
            u"ce site-là ; rien n'a été changé."_s.arg(path(kSettings), url)};
    }
    m_versions += ServedLaunchers::sums(*this).keys();
    if (!version.isEmpty())
        m_versions.append(version);
    m_versions.removeDuplicates();
    if (!numbers().contains(Disk::targetName(path(kDraft))))
        setDraft(served());
    m_wasMended = true;
}

void Workshop::makeFirstGeneration()
{
    Disk::makeFolder(QFileInfo(statusPath()).path());
    ServerStatus().save(statusPath());
    Generation first(*this);
    Site::writeEmpty(first);
    first.commit();
    putOnline();
}

void Workshop::saveSettings() const
{
    Disk::write(path(kSettings),
                QJsonDocument(QJsonObject{{"url"_L1, m_baseUrl},
                                          {"versions"_L1, QJsonArray::fromStringList(m_versions)},
                                          {"cles"_L1, QJsonArray::fromStringList(m_keys)},
                                          {"cible"_L1, m_target}}));
}

bool Workshop::exists(const QString &folder)
{
    return QFile::exists(QDir(folder).filePath(kSettings));
}

QString Workshop::statusPathIn(const QString &folder)
{
    const QDir sentTo(folder);
    if (!exists(folder) && sentTo.exists(kGenerations) && QFile::exists(sentTo.filePath(kStatus))) {
        checkOwner(sentTo.absolutePath());
        return sentTo.absoluteFilePath(kStatus);
    }
    return Workshop(folder).statusPath();
}

QString Workshop::checkedBaseUrl(QString url)
{
    static const QRegularExpression kForm(
        u"^https?://(?:[A-Za-z0-9](?:[A-Za-z0-9.-]*[A-Za-z0-9])?|\\[[0-9A-Fa-f:.]+\\])"
        u"(?::[0-9]{1,5})?/$"_s);
    if (!url.endsWith(u'/'))
        url += u'/';
    // QUrl is empty for ports that there are not.
    if (!kForm.match(url).hasMatch() || !QUrl(url).isValid()) {
        throw Problem{
            Outcome::Refused,
            u"« %1 » n'est pas une adresse de site : il faut http:// ou https:// en minuscules, un "
            u"hôte et, au besoin, un port, sans dossier derrière."_s.arg(url)};
    }
    return url;
}

std::unique_ptr<QLockFile> Workshop::lock() const
{
    auto lock = std::make_unique<QLockFile>(path(kLock));
    if (ProcessLock::take(*lock)) {
        removeDoomed(); // What cannot be removed is in nobody's way; removeOld() tells of it.
        return lock;
    }
    if (lock->error() == QLockFile::LockFailedError) {
        throw Problem{Outcome::Refused,
                      u"Une autre commande travaille dans cet atelier ; rien n'a été changé."_s};
    }
    throw Problem{Outcome::Disk, u"Écriture impossible dans %1."_s.arg(m_folder)};
}

/// What else the operator has written there stays.
void Workshop::setDestination(const QString &destination)
{
    if (destination == m_destination)
        return;
    QJsonObject settings = JsonFile::read(path(kSettings)).object();
    if (!m_destination.isEmpty() && !m_destinations.contains(m_destination))
        m_destinations.append(m_destination);
    settings.insert("destination"_L1, destination);
    settings.insert("destinations"_L1, QJsonArray::fromStringList(m_destinations));
    Disk::write(path(kSettings), QJsonDocument(settings));
    m_destination = destination;
}

void Workshop::addKeys(const QStringList &keys)
{
    QStringList all = m_keys + keys;
    if (all.removeDuplicates() == keys.size())
        return;
    QJsonObject settings = JsonFile::read(path(kSettings)).object();
    settings.insert("cles"_L1, QJsonArray::fromStringList(all));
    Disk::write(path(kSettings), QJsonDocument(settings));
    m_keys = all;
}

bool Workshop::hasSentTo(const QString &destination) const
{
    return destination == m_destination || m_destinations.contains(destination);
}

QString Workshop::id()
{
    if (m_id.isEmpty()) {
        m_id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        QJsonObject settings = JsonFile::read(path(kSettings)).object();
        settings.insert("atelier"_L1, m_id);
        Disk::write(path(kSettings), QJsonDocument(settings));
    }
    return m_id;
}

const QStringList &Workshop::versions() const
{
    const auto isValid = [](const QString &version) {
        return Version::isValid(version.toStdString());
    };
    if (m_versions.isEmpty() || !std::all_of(m_versions.begin(), m_versions.end(), isValid)) {
        throw Problem{Outcome::Refused,
                      u"Dans %1, « versions » doit nommer les launchers que des joueurs ont, par "
                      u"exemple [\"1.0.0\"] ; rien n'a été changé."_s.arg(path(kSettings))};
    }
    return m_versions;
}

const QString &Workshop::target() const
{
    if (!LauncherArchive::targets().contains(m_target)) {
        throw Problem{Outcome::Refused,
                      u"Dans %1, « cible » doit être %2 ; rien n'a été changé."_s.arg(
                          path(kSettings), LauncherArchive::targets().join(u" ou "_s))};
    }
    return m_target;
}

QString Workshop::generationPath(const QString &number) const
{
    return path(kGenerations) + u'/' + number;
}

QString Workshop::sitePath() const
{
    return Disk::kMakesLinks ? path(kSite) : generationPath(served());
}

QString Workshop::draftPath() const
{
    return Disk::kMakesLinks ? path(kDraft) : generationPath(draft());
}

QString Workshop::statusPath() const
{
    return path(kStatus);
}

QString Workshop::fingerprintsPath() const
{
    return path(kFingerprints);
}

QString Workshop::draft() const
{
    return linkedGeneration(path(kDraft));
}

QString Workshop::served() const
{
    return linkedGeneration(path(kSite));
}

QString Workshop::linkedGeneration(const QString &linkPath) const
{
    QString number = Disk::targetName(linkPath);
    if (!numbers().contains(number)) {
        throw Problem{Outcome::Refused, u"Le lien %1 ne mène à aucune publication ; rien n'a été "
                                        u"changé."_s.arg(linkPath)};
    }
    return number;
}

QString Workshop::nextNumber() const
{
    int last = 0; // not of the last name: "9999" comes after "10000"
    const QStringList existing = numbers();
    for (const QString &number : existing)
        last = std::max(last, number.toInt());
    return u"%1"_s.arg(last + 1, kDigits, 10, QChar(u'0'));
}

void Workshop::setDraft(const QString &number) const
{
    Disk::pointTo(path(kDraft), kGenerations + u'/' + number);
    // Its copy may be older.
    spreadStatus();
}

void Workshop::spreadStatus() const
{
    if (Disk::kMakesLinks)
        return;
    QByteArray status;
    do {
        status = Disk::read(statusPath());
        const QStringList shown{draft(), Disk::targetName(path(kSite))};
        for (const QString &number : shown) {
            if (!number.isEmpty())
                Disk::write(generationPath(number) + u'/' + Site::kStatus, status);
        }
    } while (Disk::read(statusPath()) != status);
}

bool Workshop::putOnline()
{
    const QString next = draft();
    // Not served(): in a new workshop nothing is yet, and a broken link is mended by this.
    const QString now = Disk::targetName(path(kSite));
    if (next == now)
        return false;
    // Before anybody can have it: a run that ends in between leaves it in service too early.
    ServedLaunchers::rememberDraft(*this);
    putInService(Site::publishedVersion(*this));
    // The rest of a way back leaves the order as it was.
    if (!earlierThan(now).contains(next))
        Disk::write(generationPath(next) + kPreviousSuffix, now.toUtf8());
    Disk::pointTo(path(kSite), kGenerations + u'/' + next);
    return true;
}

void Workshop::putInService(const QString &version)
{
    if (version.isEmpty() || versions().contains(version))
        return;
    m_versions.append(version);
    QJsonObject settings = JsonFile::read(path(kSettings)).object();
    settings.insert("versions"_L1, QJsonArray::fromStringList(m_versions));
    Disk::write(path(kSettings), QJsonDocument(settings));
}

Workshop::WayBack Workshop::takeBack() const
{
    const QString now = served();
    const QString prepared = Disk::targetName(path(kDraft));
    const QString target = previous(now);
    if (target.isEmpty() || !QFile::exists(generationPath(target))) {
        throw Problem{Outcome::Refused,
                      u"Aucune publication d'avant celle-ci n'est gardée ; rien n'a été changé."_s};
    }
    // In this order: a run that ends in between has changed nothing for players, and the next one
    // goes on, whether it is this command or putOnline().
    setDraft(target);
    Disk::pointTo(path(kSite), kGenerations + u'/' + target);
    return {target, prepared == now || prepared == target ? QString() : prepared};
}

/// Of what was served before `number`; empty where nothing was.
QString Workshop::previous(const QString &number) const
{
    QFile file(generationPath(number) + kPreviousSuffix);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

QStringList Workshop::earlierThan(const QString &number) const
{
    QStringList earlier;
    for (QString at = previous(number); !at.isEmpty() && !earlier.contains(at); at = previous(at))
        earlier.append(at);
    return earlier;
}

QStringList Workshop::numbers() const
{
    static const QRegularExpression kNumber(u"^[0-9]{4,}$"_s);
    return QDir(path(kGenerations)).entryList(QDir::Dirs, QDir::Name).filter(kNumber);
}

QStringList Workshop::removeOld() const
{
    const QStringList kept =
        QStringList{draft(), served()} + earlierThan(served()).mid(0, kKeptForReturn);
    QStringList problems;
    const QStringList existing = numbers();
    for (const QString &old : existing) {
        if (kept.contains(old))
            continue;
        try {
            Disk::removeTree(generationPath(old) + kPreviousSuffix);
            // Half a generation must not have a number: it could be served again.
            Disk::rename(generationPath(old), generationPath(kDoomed + old));
        } catch (const Problem &problem) {
            problems.append(problem.text);
        }
    }
    return problems + removeDoomed();
}

QStringList Workshop::removeDoomed() const
{
    QStringList problems;
    const QStringList names =
        QDir(path(kGenerations)).entryList({kDoomed + u'*'}, QDir::Dirs | QDir::Hidden);
    for (const QString &name : names) {
        try {
            Disk::removeTree(generationPath(name));
        } catch (const Problem &problem) {
            problems.append(problem.text);
        }
    }
    return problems;
}
