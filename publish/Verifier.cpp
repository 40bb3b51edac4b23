#include "publish/Verifier.h"

#include "config/GameFolder.h"
#include "publish/ClientFolder.h"
#include "publish/Disk.h"
#include "publish/FileNames.h"
#include "publish/French.h"
#include "publish/LauncherArchive.h"
#include "publish/LauncherEyes.h"
#include "publish/LauncherSettings.h"
#include "publish/Outcome.h"
#include "publish/PlayersView.h"
#include "publish/Site.h"
#include "update/SelfUpdater.h"
#include "updater/Failure.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QUuid>

#include <algorithm>
#include <limits>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 kMegabyte = qint64{1024} * 1024;
/// Of what the launcher holds in memory. A manifest of half a million files is smaller.
constexpr qint64 kLargestManifest = 64 * kMegabyte;
constexpr qint64 kLargestData = 8 * kMegabyte;
/// Ten times what any launcher has, and more.
constexpr qint64 kLargestLauncher = 1024 * kMegabyte;
/// What has to be free in any case: nobody can tell a full disk from a bad archive otherwise.
constexpr qint64 kLeastRoom = kMegabyte;

QString nameIn(const CentralDirectory::Entry &entry)
{
    return QString::fromUtf8(entry.name);
}

bool isAscii(const QByteArray &name)
{
    return std::all_of(name.begin(), name.end(), [](char c) { return (c & 0x80) == 0; });
}

/// Names that Windows cannot have, or cannot have both. Those of folders end with a "/".
QStringList unusableNames(const QStringList &files, const QStringList &folders = {})
{
    QStringList unusable;
    // Backslashes have a code of their own.
    const auto check = [&unusable](const QString &name, const QString &path) {
        if (!path.contains(u'\\') && !FileNames::problem(path).isEmpty())
            unusable.append(name);
    };
    for (const QString &name : files)
        check(name, name);
    for (const QString &name : folders)
        check(name, name.chopped(1));
    const QList<FileNames::Clash> clashes = FileNames::clashes(files + folders);
    for (const FileNames::Clash &clash : clashes)
        unusable.append(clash.second);
    return unusable;
}

QStringList withBackslash(const QStringList &names)
{
    return names.filter(u"\\"_s);
}

bool isPage(const QByteArray &body)
{
    return body.trimmed().startsWith('<');
}

std::optional<CentralDirectory> directoryOf(const QString &path)
{
    QFile file(path);
    const auto fetch = [&file](qint64 offset, qint64 size) {
        return file.seek(offset) ? file.read(size) : QByteArray();
    };
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return CentralDirectory::read(file.size(), fetch);
}

/// Whether the verification would open something else than a file of the game: what it finds there
/// may have no end.
bool leadsElsewhere(const QString &name)
{
    return !FileNames::problem(QString(name).replace(u'\\', u'/')).isEmpty();
}

/// The first that the launcher asks for by name, where the system knows no case.
QString asWindowsFindsIt(const QString &name)
{
    const QString prefix = GameFolder::kClientSubfolder.mid(1) + u'/';
    for (const QString &folder : {QString(), prefix}) {
        for (const QString &wanted : {u"Dofus.exe"_s, u"DofusInvoker.swf"_s}) {
            if (name.compare(folder + wanted, Qt::CaseInsensitive) == 0)
                return folder + wanted;
        }
    }
    return name;
}

QString randomName()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

} // namespace

Verifier::Verifier(const QString &baseUrl, const Audience &audience, const Patience &patience)
    : m_baseUrl(baseUrl)
    , m_audience(audience)
    , m_patience(patience)
    , m_reader(patience)
{
}

void Verifier::run(bool whole)
{
    const QString problem = whole ? LauncherEyes::unpackerProblem() : QString();
    if (!problem.isEmpty())
        throw Problem{Outcome::Disk, problem};
    checkReachable();
    checkState();
    checkNews();
    checkLauncher();
    checkClient();
    checkMissing();
    lookAsLaunchers();
    if (!whole)
        return;
    if (!m_launcher.version.isEmpty())
        readLauncher();
    installClient();
}

QUrl Verifier::url(const QString &place) const
{
    return QUrl(m_baseUrl + place);
}

/// One site that does not answer at all is one mistake, not ten.
void Verifier::checkReachable()
{
    const SiteAnswer answer = m_reader.head(url(QString()));
    if (answer.status == 0 && !answer.isLost) {
        throw Problem{Outcome::Unreachable,
                      u"%1 ne répond pas : %2."_s.arg(m_baseUrl, answer.problem)};
    }
}

/// What can be wrong with any answer, whatever lies there.
void Verifier::checkAnswer(const QString &place, const SiteAnswer &answer)
{
    const PlayersView view = PlayersView::of(place);
    const QString failure = answer.isSilent ? view.silent : view.unanswered;
    if (answer.isLost) {
        const QString cost = French::counted(answer.redirects + 1, u"requête"_s, u"requêtes"_s);
        m_findings.add(u"M21"_s, place, answer.problem, u"%1, après %2"_s.arg(failure, cost));
        return;
    }
    if (answer.redirects > 0)
        m_findings.add(u"M22"_s, place,
                       French::counted(answer.redirects, u"redirection"_s, u"redirections"_s));
    if (answer.isOverlong)
        m_findings.add(u"M32"_s, place, answer.problem);
    else if (answer.status != 200 && answer.status != 206)
        m_findings.add(u"M20"_s, place,
                       answer.status == 0 ? answer.problem : u"réponse %1"_s.arg(answer.status),
                       failure);
    else if (!answer.problem.isEmpty())
        m_findings.add(u"M29"_s, place, answer.problem, failure);
}

/// Nothing where there is no JSON; the finding is made then.
std::optional<QJsonDocument> Verifier::readJson(const QString &place)
{
    const PlayersView view = PlayersView::of(place);
    const SiteAnswer answer =
        m_reader.get(url(place), place == Site::kManifest ? kLargestManifest : kLargestData);
    checkAnswer(place, answer);
    if (!answer.isGood())
        return {};
    if (!answer.cacheControl.contains("no-cache") && !answer.cacheControl.contains("no-store") &&
        !answer.cacheControl.contains("max-age=0"))
        m_findings.add(u"M30"_s, place, u"un cache peut garder la réponse"_s);
    if (answer.body.contains("<?php")) {
        m_findings.add(u"M23"_s, place, u"le corps est du code PHP"_s, view.nonsense);
        return {};
    }
    if (isPage(answer.body)) {
        m_findings.add(u"M24"_s, place, u"le corps est une page HTML"_s, view.nonsense);
        return {};
    }
    QJsonParseError error;
    QJsonDocument document = QJsonDocument::fromJson(answer.body, &error);
    if (document.isNull()) {
        m_findings.add(u"M26"_s, place,
                       u"ce n'est pas du JSON, à partir de l'octet %1"_s.arg(error.offset),
                       view.nonsense);
        return {};
    }
    return document;
}

void Verifier::checkState()
{
    const std::optional<QJsonDocument> document = readJson(Site::kStatus);
    if (!document)
        return;
    const QJsonObject status = document->object();
    const QJsonValue players = status.value("players"_L1);
    if (!status.value("online"_L1).isBool()) {
        m_findings.add(u"M26"_s, Site::kStatus, u"« online » doit valoir true ou false"_s,
                       PlayersView::of(Site::kStatus).nonsense);
    } else if (!players.isUndefined() && players.toInt(0) != players.toInt(-1)) {
        // The launcher's reading of a number that is none is 0, as of one that is not told.
        m_findings.add(u"M26"_s, Site::kStatus, u"« players » doit être un nombre entier"_s,
                       u"« 0 joueur connecté »"_s);
    }
}

void Verifier::checkNews()
{
    const std::optional<QJsonDocument> document = readJson(Site::kNews);
    if (!document)
        return;
    if (!document->isArray()) {
        m_findings.add(u"M26"_s, Site::kNews, u"il faut un tableau"_s,
                       PlayersView::of(Site::kNews).nonsense);
        return;
    }
    const QJsonArray items = document->array();
    const bool isReadable = std::all_of(items.begin(), items.end(), [](const QJsonValue &item) {
        const QJsonValue title = item["title"_L1];
        return item.isString() || (item.isObject() && (title.isString() || title.isUndefined()));
    });
    if (!isReadable) {
        m_findings.add(u"M26"_s, Site::kNews,
                       u"il faut des textes, ou des objets dont « title » est un texte"_s,
                       u"des actualités manquent, ou n'ont pas de titre"_s);
    }
}

void Verifier::checkLauncher()
{
    const std::optional<QJsonDocument> document = readJson(Site::kLauncherVersion);
    if (!document)
        return;
    if (!document->isObject()) {
        m_findings.add(u"M26"_s, Site::kLauncherVersion, u"il faut un objet"_s,
                       PlayersView::of(Site::kLauncherVersion).nonsense);
        return;
    }
    static const QRegularExpression kVersion(u"^[0-9]{1,9}(\\.[0-9]{1,9})*$"_s);
    const QJsonObject record = document->object();
    const QJsonValue version = record.value("version"_L1);
    if (!version.isString() ||
        (!version.toString().isEmpty() && !kVersion.match(version.toString()).hasMatch())) {
        m_findings.add(u"M40"_s, Site::kLauncherVersion,
                       u"« version » est %1"_s.arg(version.toVariant().toString()));
        return;
    }
    if (record.contains("required"_L1) && !record.value("required"_L1).isBool()) {
        m_findings.add(u"M43"_s, Site::kLauncherVersion,
                       u"« required » doit valoir true ou false, sans guillemets"_s);
    }
    if (record.contains("changelog"_L1) && !record.value("changelog"_L1).isString())
        m_findings.add(u"M44"_s, Site::kLauncherVersion, u"« changelog » doit être un texte"_s);
    // It will be in service too.
    const QStringList inService = m_audience.versions;
    if (!version.toString().isEmpty() && !inService.contains(version.toString()))
        m_audience.versions.append(version.toString());
    const bool isOffered =
        std::any_of(inService.begin(), inService.end(), [&version](const QString &current) {
            return SelfUpdater::isNewerVersion(version.toString(), current);
        });
    const QString address = record.value("download_url"_L1).toString();
    // Players with a launcher that nobody counts any more may be offered it all the same.
    if (version.toString().isEmpty() || (!isOffered && address.isEmpty()))
        return;

    const QUrl announced(address);
    const bool isWeb = announced.scheme() == "http"_L1 || announced.scheme() == "https"_L1;
    if (!announced.isValid() || announced.host().isEmpty() || !isWeb) {
        m_findings.add(u"M41"_s, Site::kLauncherVersion,
                       u"« download_url » est « %1 »"_s.arg(address));
        return;
    }
    const bool isAtHome = address.startsWith(m_audience.home);
    m_launcher.version = version.toString();
    m_launcher.archive = isAtHome ? url(address.sliced(m_audience.home.size())) : announced;
    m_launcher.isOurs = isAtHome || m_baseUrl == m_audience.home;
    const SeenArchive seen =
        readArchive(m_launcher.archive.toString(), m_launcher.archive, u"M42"_s);
    m_launcher.length = seen.length;
    if (seen.directory)
        checkLauncherFiles(*seen.directory);
}

void Verifier::checkLauncherFiles(const CentralDirectory &directory)
{
    const QString place = m_launcher.archive.toString();
    for (const QByteArray &wanted : {"liste.txt"_ba, "liste.txt.minisig"_ba}) {
        const auto &entries = directory.entries;
        if (std::none_of(entries.begin(), entries.end(),
                         [&wanted](const auto &entry) { return entry.name == wanted; }))
            m_findings.add(u"M42"_s, place,
                           u"l'archive ne contient pas %1"_s.arg(QString::fromLatin1(wanted)));
    }
}

Verifier::SeenArchive Verifier::readArchive(const QString &place, const QUrl &url,
                                            const QString &damaged)
{
    const SiteAnswer head = m_reader.head(url);
    checkAnswer(place, head);
    if (head.status == 206)
        m_findings.add(u"M31"_s, place, u"réponse 206 à une requête entière"_s);
    if (!head.isGood())
        return {};
    if (!head.encoding.isEmpty())
        m_findings.add(u"M27"_s, place,
                       u"Content-Encoding: %1"_s.arg(QString::fromLatin1(head.encoding)));
    else if (head.length < 0)
        m_findings.add(u"M28"_s, place, u"taille inconnue"_s);
    if (head.length == 0) {
        m_findings.add(damaged, place, u"l'archive est vide"_s);
        return {};
    }
    // What comes packed has another length than the archive.
    return {head.encoding.isEmpty() ? head.length : -1, readDirectory(place, url, head, damaged)};
}

std::optional<CentralDirectory> Verifier::readDirectory(const QString &place, const QUrl &url,
                                                        const SiteAnswer &head,
                                                        const QString &damaged)
{
    const SiteAnswer first = m_reader.part(url, 0, 4);
    if (first.status != 206 || first.length < 0) {
        // Without ranges nothing but the beginning is known.
        if (isPage(head.body))
            m_findings.add(damaged, place, u"une page HTML au lieu d'une archive"_s);
        else if (!head.body.startsWith("PK"))
            m_findings.add(damaged, place, u"ce n'est pas une archive zip"_s);
        else
            m_findings.add(u"M31"_s, place,
                           u"réponse %1 à une requête partielle"_s.arg(first.status));
        return {};
    }
    if (first.isOverlong) {
        m_findings.add(u"M31"_s, place, u"plus que demandé en réponse à une requête partielle"_s);
        return {};
    }
    const auto fetch = [this, &url](qint64 offset, qint64 size) {
        return size > 0 ? m_reader.part(url, offset, size).body : QByteArray();
    };
    std::optional<CentralDirectory> directory = CentralDirectory::read(first.length, fetch);
    if (!directory) {
        m_findings.add(damaged, place,
                       isPage(first.body)
                           ? u"une page HTML au lieu d'une archive"_s
                           : u"l'archive n'a pas de fin : elle est coupée ou abîmée"_s);
    }
    return directory;
}

void Verifier::checkClient()
{
    checkManifest();
    const SeenArchive seen = readArchive(Site::kClientArchive, url(Site::kClientArchive), u"M12"_s);
    m_client.length = seen.length;
    m_client.size = std::max(qint64{0}, seen.length);
    if (seen.directory)
        checkClientArchive(*seen.directory);
}

void Verifier::checkManifest()
{
    const std::optional<QJsonDocument> manifest = readJson(Site::kManifest);
    if (!manifest)
        return;
    const QJsonValue files = manifest->object().value("files"_L1);
    if (!manifest->isObject()) {
        m_findings.add(u"M03"_s, Site::kManifest, u"il faut un objet"_s,
                       PlayersView::of(Site::kManifest).nonsense);
        return;
    }
    if (!files.isArray()) {
        m_findings.add(u"M03"_s, Site::kManifest, u"pas de tableau « files »"_s);
        return;
    }
    if (files.toArray().isEmpty())
        m_findings.add(u"M03"_s, Site::kManifest, u"« files » est vide"_s);
    m_client.hasManifest = true;
    checkSums(files.toArray());
}

void Verifier::checkSums(const QJsonArray &files)
{
    static const QRegularExpression kRight(u"^[0-9a-f]{64}$"_s);
    static const QRegularExpression kUpperCase(u"^[0-9a-fA-F]{64}$"_s);
    QStringList unnamed;
    QStringList upperCase;
    QStringList wrong;
    QStringList contradicted;
    QHash<QString, QString> sums;
    for (const QJsonValue file : files) {
        const QString name = file["name"_L1].toString();
        const QString sum = file["hash"_L1].toString();
        if (name.isEmpty())
            unnamed.append(sum);
        else if (kUpperCase.match(sum).hasMatch() && !kRight.match(sum).hasMatch())
            upperCase.append(name);
        else if (!kRight.match(sum).hasMatch())
            wrong.append(name);
        if (name.isEmpty())
            continue;
        if (!sums.contains(name))
            m_client.listed.append(name);
        else if (sums.value(name) != sum)
            contradicted.append(name);
        sums.insert(name, sum);
    }
    const QStringList &names = m_client.listed;
    m_findings.addExamples(u"M03"_s, Site::kManifest, u"entrée sans « name »"_s, unnamed,
                           u"ces entrées ne vérifient aucun fichier"_s);
    m_findings.addExamples(u"M01"_s, Site::kManifest, u"somme en majuscules"_s, upperCase);
    m_findings.addExamples(u"M02"_s, Site::kManifest, u"somme qui n'est pas SHA-256"_s, wrong);
    m_findings.addExamples(u"M04"_s, Site::kManifest, u"nom avec « \\ »"_s, withBackslash(names),
                           u"la vérification ne trouve pas ces fichiers hors de Windows"_s);
    m_findings.addExamples(u"M10"_s, Site::kManifest, u"plusieurs sommes pour un nom"_s,
                           contradicted);
    m_findings.addExamples(u"M15"_s, Site::kManifest, u"nom refusé par Windows"_s,
                           unusableNames(names),
                           u"la vérification peut compter ces fichiers comme différents"_s);
}

void Verifier::checkClientArchive(const CentralDirectory &directory)
{
    m_client.isRead = true;
    checkEntries(directory);
    QStringList names;
    for (const CentralDirectory::Entry &entry : directory.entries) {
        if (!entry.isFolder())
            names.append(nameIn(entry));
    }
    checkPlaces(names);
    if (m_client.hasManifest)
        compare(m_client.listed, names);
}

void Verifier::checkEntries(const CentralDirectory &directory)
{
    const QString place = Site::kClientArchive;
    QStringList names;
    QStringList folders;
    QStringList unflagged;
    QStringList unreadable;
    QStringList links;
    QStringList large;
    m_client.size = 0;
    for (const CentralDirectory::Entry &entry : directory.entries) {
        // What an archive tells of itself may be beyond all numbers.
        for (const qint64 size : {entry.packedSize, entry.size})
            m_client.size += std::min(size, std::numeric_limits<qint64>::max() - m_client.size);
        const QString name = nameIn(entry);
        if (!entry.saysUtf8() && !isAscii(entry.name))
            unflagged.append(name);
        if (entry.isEncrypted() || (entry.method != CentralDirectory::kStored &&
                                    entry.method != CentralDirectory::kDeflated))
            unreadable.append(name);
        if (entry.isLink())
            links.append(name);
        if (entry.size > ClientFolder::kLargestForPowerShell)
            large.append(name);
        (entry.isFolder() ? folders : names).append(name);
    }
    m_client.hasLinks = !links.isEmpty();
    m_findings.addExamples(u"M07"_s, place, u"nom sans le drapeau UTF-8"_s, unflagged);
    m_findings.addExamples(u"M14"_s, place, u"fichier illisible pour Windows"_s, unreadable);
    m_findings.addExamples(u"M18"_s, place, u"lien symbolique"_s, links);
    m_findings.addExamples(u"M19"_s, place, u"plus de 2 Go"_s, large);
    m_findings.addExamples(u"M04"_s, place, u"nom avec « \\ »"_s, withBackslash(names));
    m_findings.addExamples(u"M15"_s, place, u"nom refusé par Windows"_s,
                           unusableNames(names, folders));
}

/// Whether what the launcher asks for by name lies where it looks.
void Verifier::checkPlaces(const QStringList &names)
{
    const QString place = Site::kClientArchive;
    QStringList found = names;
    if (m_audience.target == LauncherArchive::targets().first())
        std::transform(found.begin(), found.end(), found.begin(), asWindowsFindsIt);
    const QStringList markers = ClientFolder::markers(found);
    if (markers.isEmpty())
        m_findings.add(u"M09"_s, place,
                       u"DofusInvoker.swf n'est pas là où le launcher le cherche"_s);
    else if (found.last(markers.size()) != markers)
        m_findings.add(u"M08"_s, place,
                       u"l'archive ne se termine pas par « %1 »"_s.arg(markers.join(u" », « "_s)));
    if (std::none_of(found.begin(), found.end(), ClientFolder::isProgram))
        m_findings.add(u"M13"_s, place, u"pas de Dofus.exe là où le launcher le cherche"_s);
}

void Verifier::compare(const QStringList &listed, const QStringList &archived)
{
    const QString prefix = GameFolder::kClientSubfolder.mid(1) + u'/';
    QSet<QString> unlisted(archived.begin(), archived.end());
    QHash<QString, QString> folded;
    for (const QString &name : archived)
        folded.insert(FileNames::folded(name), name);

    QStringList otherCase;
    QStringList otherForm;
    QStringList otherFolder;
    QStringList missing;
    for (const QString &name : listed) {
        if (unlisted.remove(name) || name.isEmpty() || name.contains(u'\\'))
            continue;
        const QString moved = name.startsWith(prefix) ? name.sliced(prefix.size()) : prefix + name;
        const QString similar = folded.value(FileNames::folded(name));
        const bool isSameInNormalForm = similar.normalized(QString::NormalizationForm_C) ==
                                        name.normalized(QString::NormalizationForm_C);
        if (unlisted.remove(similar))
            (isSameInNormalForm ? otherForm : otherCase).append(name);
        else if (unlisted.remove(moved))
            otherFolder.append(name);
        else
            missing.append(name);
    }
    m_findings.addExamples(u"M05"_s, Site::kManifest,
                           u"dans l'archive, le nom diffère par la casse"_s, otherCase);
    m_findings.addExamples(u"M17"_s, Site::kManifest,
                           u"dans l'archive, les accents sont composés autrement"_s, otherForm);
    m_findings.addExamples(u"M06"_s, Site::kManifest, u"dans l'archive, le dossier est un autre"_s,
                           otherFolder);
    m_findings.addExamples(u"M10"_s, Site::kManifest, u"absent de l'archive"_s, missing);
    if (withBackslash(listed).isEmpty()) {
        QStringList rest(unlisted.begin(), unlisted.end());
        rest.sort();
        m_findings.addExamples(u"M11"_s, Site::kManifest, u"dans l'archive seulement"_s, rest);
    }
}

/// Whatever does not exist must not answer with a page.
void Verifier::checkMissing()
{
    QList<QUrl> addresses;
    for (const QString &form : {u"api/%1.json"_s, u"updates/%1.json"_s, u"client/%1.zip"_s})
        addresses.append(url(form.arg(randomName())));
    if (!m_launcher.archive.isEmpty())
        addresses.append(m_launcher.archive.resolved(QUrl(randomName() + u".zip"_s)));
    for (const QUrl &address : std::as_const(addresses)) {
        const QString text = address.toString();
        if (m_reader.head(address).isGood()) {
            m_findings.add(u"M25"_s,
                           text.startsWith(m_baseUrl) ? text.sliced(m_baseUrl.size()) : text,
                           u"réponse 200 pour un fichier qui n'existe pas"_s);
        }
    }
}

void Verifier::lookAsLaunchers()
{
    for (const QLatin1StringView place : {Site::kStatus, Site::kNews, Site::kLauncherVersion}) {
        // The launcher's workers would fill the memory of this machine, too.
        if (m_findings.has(u"M32"_s, place)) {
            m_sights.append(u"Launchers : pas essayés, tant que M32 n'est pas corrigé"_s);
            return;
        }
    }
    for (const QString &version : std::as_const(m_audience.versions)) {
        LauncherSettings::become(version, m_baseUrl);
        const LauncherEyes::Sight sight = LauncherEyes::look(m_patience);
        const QString state = sight.online ? u"en ligne"_s : u"hors ligne"_s;
        const QString players = French::counted(sight.players, u"joueur"_s, u"joueurs"_s);
        QString news = u"actualités sans réponse"_s;
        if (sight.isWelcomed)
            news = u"texte d'accueil au lieu des actualités"_s;
        else if (sight.news)
            news = French::counted(sight.news->size(), u"actualité"_s, u"actualités"_s);
        QString update = u"mise à jour sans réponse"_s;
        if (sight.newVersion) {
            update = sight.newVersion->isEmpty()
                         ? u"pas de mise à jour"_s
                         : u"mise à jour vers %1 proposée"_s.arg(*sight.newVersion);
        }
        m_sights.append(u"Launcher %1 : serveur %2, %3, %4"_s.arg(
            version, sight.hasState ? state + u", "_s + players : u"sans réponse"_s, news, update));
    }
}

/// As players' updater programs do it, where their keys are known; else as far as one can without.
void Verifier::readLauncher()
{
    const QString place = m_launcher.archive.toString();
    if (m_findings.hasErrorAt(place))
        return; // what is wrong with it is known
    if (m_launcher.length > kLargestLauncher) {
        m_findings.add(u"M42"_s, place, u"%1 octets"_s.arg(m_launcher.length));
        return;
    }
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"launcher.zip"_s);
    Disk::checkRoom(folder.path(), std::max(kLeastRoom, m_launcher.length));
    const SiteAnswer answer =
        m_reader.save(m_launcher.archive, path, m_launcher.length, kLargestLauncher);
    if (!answer.isGood()) {
        const PlayersView view = PlayersView::of(place);
        m_findings.add(u"M42"_s, place, u"le téléchargement échoue (%1)"_s.arg(answer.problem),
                       answer.isSilent || answer.isOverlong ? view.silent : view.unanswered);
        return;
    }
    if (m_launcher.isOurs && !m_audience.keys.isEmpty())
        readSignedLauncher(path);
    else if (const std::optional<CentralDirectory> directory = directoryOf(path))
        checkLauncherFiles(*directory);
    else
        m_findings.add(u"M42"_s, place, u"l'archive n'a pas de fin"_s);
}

void Verifier::readSignedLauncher(const QString &path)
{
    const QString place = m_launcher.archive.toString();
    try {
        // Newer than which ones has been looked at.
        const LauncherArchive archive = LauncherArchive::read(
            path, LauncherArchive::terms(m_audience.target, m_audience.keys, {}), m_audience.home);
        if (archive.version != m_launcher.version)
            m_findings.add(u"M42"_s, place, u"elle contient la version %1"_s.arg(archive.version));
        if (!archive.hasProgram)
            m_findings.add(u"M42"_s, place, u"elle ne contient pas le launcher"_s);
        else if (!archive.asksThere)
            m_findings.add(u"M45"_s, place,
                           u"il n'est pas construit pour %1"_s.arg(m_audience.home));
    } catch (const Failure &failure) {
        m_findings.add(u"M42"_s, place, QString::fromStdString(failure.text));
    }
}

/// An own disk that is full is no fault of the site.
void Verifier::checkRoom(const QString &folder) const
{
    qint64 written = 0;
    Disk::walk(folder, [&written](const Disk::Entry &entry) {
        written += entry.isFile ? QFileInfo(entry.path).size() : 0;
        return true;
    });
    try {
        Disk::checkRoom(folder, std::max(kLeastRoom, m_client.size - written));
    } catch (const Problem &problem) {
        throw Problem{problem.outcome,
                      problem.text + u" La variable TMPDIR peut nommer un autre dossier."_s};
    }
}

void Verifier::installClient()
{
    if (!isSafeToInstall())
        return;
    LauncherSettings::become(m_audience.versions.value(0), m_baseUrl);
    const QTemporaryDir folder;
    if (!folder.isValid())
        throw Problem{Outcome::Disk, folder.errorString()};
    checkRoom(folder.path());
    std::optional<Problem> obstacle;
    const auto look = [this, &folder, &obstacle](const QString &archive) {
        try {
            return mayUnpack(archive, folder.path());
        } catch (const Problem &problem) { // the event loop, which is in between, knows none
            obstacle = problem;
            return false;
        }
    };
    const LauncherEyes::Installation installation =
        LauncherEyes::install(folder.path(), look, m_patience);
    if (obstacle)
        throw Problem(*obstacle);
    if (installation.failure.isEmpty())
        return;
    checkRoom(folder.path());
    m_findings.add(installation.isDownloaded ? u"M16"_s : u"M33"_s, Site::kClientArchive,
                   installation.failure);
}

/// Of the archive that the launcher has downloaded: what ranges did not show is looked at now.
bool Verifier::mayUnpack(const QString &archive, const QString &folder)
{
    const QString place = Site::kClientArchive;
    const qint64 size = QFileInfo(archive).size();
    if (size < m_client.length) {
        checkRoom(folder);
        m_findings.add(u"M33"_s, place,
                       u"l'archive s'arrête à l'octet %1 sur %2"_s.arg(size).arg(m_client.length),
                       u"« Erreur de téléchargement », ou « Erreur d'extraction »"_s);
        return false;
    }
    if (m_client.isRead)
        return true;
    const std::optional<CentralDirectory> directory = directoryOf(archive);
    if (directory)
        checkClientArchive(*directory);
    checkRoom(folder);
    if (directory)
        return isSafeToInstall();
    if (!m_findings.has(u"M12"_s, place))
        m_findings.add(u"M12"_s, place, u"l'archive n'a pas de fin : elle est coupée ou abîmée"_s);
    return false;
}

/// What the launcher's workers do on the machines of players who want to play there is not to be
/// done on this one.
bool Verifier::isSafeToInstall()
{
    QStringList codes;
    if (std::any_of(m_client.listed.begin(), m_client.listed.end(), leadsElsewhere))
        codes.append(u"M15"_s);
    if (m_client.hasLinks)
        codes.append(u"M18"_s);
    if (m_findings.has(u"M32"_s, Site::kManifest))
        codes.append(u"M32"_s);
    if (codes.isEmpty())
        return true;
    m_sights.append(
        u"Installation : pas essayée, tant que %1 n'est pas corrigé"_s.arg(codes.join(u", "_s)));
    return false;
}
