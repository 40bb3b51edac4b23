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

using namespace Qt::Literals::StringLiterals;

namespace {

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

bool lookedForIsPage(const QByteArray &body)
{
    return body.trimmed().startsWith('<');
}

} // namespace

Verifier::Verifier(const QString &baseUrl, const QStringList &versions, const QStringList &keys,
                   const QString &target)
    : m_baseUrl(baseUrl)
    , m_versions(versions)
    , m_keys(keys)
    , m_target(target)
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
    if (answer.isLost)
        m_findings.add(u"M21"_s, place, u"redirection que le launcher ne suit pas jusqu'au bout"_s);
    else if (answer.redirects > 0)
        m_findings.add(u"M22"_s, place,
                       French::counted(answer.redirects, u"redirection"_s, u"redirections"_s));
    if (answer.isLost)
        return;
    if (answer.status != 200 && answer.status != 206)
        m_findings.add(u"M20"_s, place,
                       answer.status == 0 ? answer.problem : u"réponse %1"_s.arg(answer.status));
    else if (!answer.problem.isEmpty())
        m_findings.add(u"M29"_s, place, answer.problem);
}

/// Nothing where there is no JSON; the finding is made then.
std::optional<QJsonDocument> Verifier::readJson(const QString &place)
{
    const SiteAnswer answer = m_reader.get(url(place));
    checkAnswer(place, answer);
    if (!answer.isGood())
        return {};
    if (!answer.cacheControl.contains("no-cache") && !answer.cacheControl.contains("no-store") &&
        !answer.cacheControl.contains("max-age=0"))
        m_findings.add(u"M30"_s, place, u"un cache peut garder la réponse"_s);
    if (answer.body.contains("<?php")) {
        m_findings.add(u"M23"_s, place, u"le corps est du code PHP"_s);
        return {};
    }
    if (lookedForIsPage(answer.body)) {
        m_findings.add(u"M24"_s, place, u"le corps est une page HTML"_s);
        return {};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(answer.body, &error);
    if (document.isNull()) {
        m_findings.add(u"M26"_s, place,
                       u"ce n'est pas du JSON, à partir de l'octet %1"_s.arg(error.offset));
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
    // The launcher's reading of a number that is none is 0.
    const bool hasPlayers =
        status.value("players"_L1).toInt(0) == status.value("players"_L1).toInt(-1);
    if (!status.value("online"_L1).isBool() || !hasPlayers) {
        m_findings.add(u"M26"_s, Site::kStatus,
                       u"« online » doit valoir true ou false, « players » un nombre entier"_s);
    }
}

void Verifier::checkNews()
{
    const std::optional<QJsonDocument> document = readJson(Site::kNews);
    if (!document)
        return;
    const QJsonArray items = document->array();
    const bool isReadable =
        document->isArray() && std::all_of(items.begin(), items.end(), [](const QJsonValue &item) {
            return item.isString() || (item.isObject() && item["title"_L1].isString());
        });
    if (!isReadable) {
        m_findings.add(u"M26"_s, Site::kNews,
                       u"il faut un tableau de textes, ou d'objets avec « title »"_s);
    }
}

void Verifier::checkLauncher()
{
    const std::optional<QJsonDocument> document = readJson(Site::kLauncherVersion);
    if (!document)
        return;
    if (!document->isObject()) {
        m_findings.add(u"M26"_s, Site::kLauncherVersion, u"il faut un objet"_s);
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
    const QStringList inService = m_versions;
    if (!version.toString().isEmpty() && !m_versions.contains(version.toString()))
        m_versions.append(version.toString());
    const bool isOffered =
        std::any_of(inService.begin(), inService.end(), [&version](const QString &current) {
            return SelfUpdater::isNewerVersion(version.toString(), current);
        });
    const QString address = record.value("download_url"_L1).toString();
    // Players with a launcher that nobody counts any more may be offered it all the same.
    if (version.toString().isEmpty() || (!isOffered && address.isEmpty()))
        return;

    const QUrl archive(address);
    if (!archive.isValid() || archive.host().isEmpty()) {
        m_findings.add(u"M41"_s, Site::kLauncherVersion,
                       u"« download_url » est « %1 »"_s.arg(archive.toString()));
        return;
    }
    m_launcher = {version.toString(), archive};
    const QString place = archive.toString();
    const std::optional<CentralDirectory> directory = readDirectory(place, archive, u"M42"_s);
    if (directory)
        checkLauncherFiles(*directory);
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

std::optional<CentralDirectory> Verifier::readDirectory(const QString &place, const QUrl &url,
                                                        const QString &damaged)
{
    const SiteAnswer head = m_reader.head(url);
    checkAnswer(place, head);
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

    const SiteAnswer first = m_reader.part(url, 0, 4);
    if (first.status != 206 || first.length < 0) {
        m_findings.add(u"M31"_s, place, u"réponse %1 à une requête partielle"_s.arg(first.status));
        return {};
    }
    const auto fetch = [this, &url](qint64 offset, qint64 size) {
        return size > 0 ? m_reader.part(url, offset, size).body : QByteArray();
    };
    std::optional<CentralDirectory> directory = CentralDirectory::read(first.length, fetch);
    if (!directory) {
        m_findings.add(damaged, place,
                       lookedForIsPage(first.body)
                           ? u"une page HTML au lieu d'une archive"_s
                           : u"l'archive n'a pas de fin : elle est coupée ou abîmée"_s);
    }
    return directory;
}

void Verifier::checkClient()
{
    const std::optional<QJsonDocument> manifest = readJson(Site::kManifest);
    const std::optional<CentralDirectory> directory =
        readDirectory(Site::kClientArchive, url(Site::kClientArchive), u"M12"_s);
    if (directory)
        checkArchive(*directory);
    if (!manifest)
        return;
    const QJsonValue files = manifest->object().value("files"_L1);
    if (!manifest->isObject() || !files.isArray()) {
        m_findings.add(u"M03"_s, Site::kManifest, u"pas de tableau « files »"_s);
        return;
    }
    if (files.toArray().isEmpty())
        m_findings.add(u"M03"_s, Site::kManifest, u"« files » est vide"_s);
    checkSums(files.toArray());
    if (!directory)
        return;

    QStringList listed;
    const QJsonArray entries = files.toArray();
    for (const QJsonValue file : entries)
        listed.append(file["name"_L1].toString());
    QStringList archived;
    for (const CentralDirectory::Entry &entry : directory->entries) {
        if (!entry.isFolder())
            archived.append(nameIn(entry));
    }
    compare(listed, archived);
}

void Verifier::checkSums(const QJsonArray &files)
{
    static const QRegularExpression kRight(u"^[0-9a-f]{64}$"_s);
    static const QRegularExpression kUpperCase(u"^[0-9a-fA-F]{64}$"_s);
    QStringList unnamed;
    QStringList upperCase;
    QStringList wrong;
    QStringList names;
    for (const QJsonValue file : files) {
        const QString name = file["name"_L1].toString();
        const QString sum = file["hash"_L1].toString();
        if (name.isEmpty())
            unnamed.append(sum);
        else if (kUpperCase.match(sum).hasMatch() && !kRight.match(sum).hasMatch())
            upperCase.append(name);
        else if (!kRight.match(sum).hasMatch())
            wrong.append(name);
        if (!name.isEmpty())
            names.append(name);
    }
    m_findings.addExamples(u"M03"_s, Site::kManifest, u"entrée sans « name »"_s, unnamed);
    m_findings.addExamples(u"M01"_s, Site::kManifest, u"somme en majuscules"_s, upperCase);
    m_findings.addExamples(u"M02"_s, Site::kManifest, u"somme qui n'est pas SHA-256"_s, wrong);
    m_findings.addExamples(u"M04"_s, Site::kManifest, u"nom avec « \\ »"_s, withBackslash(names));
    m_findings.addExamples(u"M15"_s, Site::kManifest, u"nom refusé par Windows"_s,
                           unusableNames(names));
}

void Verifier::checkArchive(const CentralDirectory &directory)
{
    const QString place = Site::kClientArchive;
    QStringList names;
    QStringList folders;
    QStringList unflagged;
    QStringList unreadable;
    for (const CentralDirectory::Entry &entry : directory.entries) {
        m_clientSize += entry.packedSize + entry.size;
        if (!entry.saysUtf8() && !isAscii(entry.name))
            unflagged.append(nameIn(entry));
        if (entry.isEncrypted() || (entry.method != CentralDirectory::kStored &&
                                    entry.method != CentralDirectory::kDeflated))
            unreadable.append(nameIn(entry));
        (entry.isFolder() ? folders : names).append(nameIn(entry));
    }
    m_findings.addExamples(u"M07"_s, place, u"nom sans le drapeau UTF-8"_s, unflagged);
    m_findings.addExamples(u"M14"_s, place, u"fichier illisible pour Windows"_s, unreadable);
    m_findings.addExamples(u"M04"_s, place, u"nom avec « \\ »"_s, withBackslash(names));
    m_findings.addExamples(u"M15"_s, place, u"nom refusé par Windows"_s,
                           unusableNames(names, folders));

    const QStringList markers = ClientFolder::markers(names);
    if (markers.isEmpty())
        m_findings.add(u"M09"_s, place,
                       u"DofusInvoker.swf n'est pas là où le launcher le cherche"_s);
    else if (names.last(markers.size()) != markers)
        m_findings.add(u"M08"_s, place,
                       u"l'archive ne se termine pas par « %1 »"_s.arg(markers.join(u" », « "_s)));
    if (std::none_of(names.begin(), names.end(), ClientFolder::isProgram))
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
    const QString place = u"api/%1.json"_s.arg(QUuid::createUuid().toString(QUuid::WithoutBraces));
    const SiteAnswer answer = m_reader.head(url(place));
    if (answer.isGood())
        m_findings.add(u"M25"_s, place, u"réponse 200 pour un fichier qui n'existe pas"_s);
}

void Verifier::lookAsLaunchers()
{
    for (const QString &version : std::as_const(m_versions)) {
        LauncherSettings::become(version, m_baseUrl);
        const LauncherEyes::Sight sight = LauncherEyes::look();
        m_sights.append(u"Launcher %1 : serveur %2, %3, %4, %5"_s.arg(
            version, sight.online ? u"en ligne"_s : u"hors ligne"_s,
            French::counted(sight.players, u"joueur"_s, u"joueurs"_s),
            French::counted(sight.news.size(), u"actualité"_s, u"actualités"_s),
            sight.newVersion.isEmpty() ? u"pas de mise à jour"_s
                                       : u"mise à jour vers %1 proposée"_s.arg(sight.newVersion)));
    }
}

/// As players' updater programs do it, where their keys are known; else as far as one can without.
void Verifier::readLauncher()
{
    const QString place = m_launcher.archive.toString();
    if (m_findings.hasErrorAt(place))
        return; // what is wrong with it is known
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"launcher.zip"_s);
    const SiteAnswer answer = m_reader.save(m_launcher.archive, path);
    if (!answer.isGood()) {
        m_findings.add(u"M42"_s, place, u"le téléchargement échoue (%1)"_s.arg(answer.problem));
        return;
    }
    if (m_keys.isEmpty()) {
        QFile file(path);
        const auto fetch = [&file](qint64 offset, qint64 size) {
            return file.seek(offset) ? file.read(size) : QByteArray();
        };
        std::optional<CentralDirectory> directory;
        if (file.open(QIODevice::ReadOnly))
            directory = CentralDirectory::read(file.size(), fetch);
        if (directory)
            checkLauncherFiles(*directory);
        else
            m_findings.add(u"M42"_s, place, u"l'archive n'a pas de fin"_s);
        return;
    }
    try {
        // Newer than which ones has been looked at.
        const LauncherArchive archive =
            LauncherArchive::read(path, LauncherArchive::terms(m_target, m_keys, {}), m_baseUrl);
        if (archive.version != m_launcher.version)
            m_findings.add(u"M42"_s, place, u"elle contient la version %1"_s.arg(archive.version));
        if (!archive.hasProgram)
            m_findings.add(u"M42"_s, place, u"elle ne contient pas le launcher"_s);
        else if (!archive.asksThere)
            m_findings.add(u"M45"_s, place, u"il n'est pas construit pour %1"_s.arg(m_baseUrl));
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
        Disk::checkRoom(folder, std::max(qint64{0}, m_clientSize - written));
    } catch (const Problem &problem) {
        throw Problem{problem.outcome,
                      problem.text + u" La variable TMPDIR peut nommer un autre dossier."_s};
    }
}

void Verifier::installClient()
{
    LauncherSettings::become(m_versions.value(0), m_baseUrl);
    const QTemporaryDir folder;
    if (!folder.isValid())
        throw Problem{Outcome::Disk, folder.errorString()};
    checkRoom(folder.path());
    const QString failure = LauncherEyes::install(folder.path());
    if (failure.isEmpty())
        return;
    checkRoom(folder.path());
    m_findings.add(u"M16"_s, Site::kClientArchive, u"le launcher dit : %1"_s.arg(failure));
}
