#include "publish/SiteListing.h"

#include "publish/FileSum.h"
#include "publish/Fingerprints.h"
#include "publish/Interruption.h"
#include "publish/Manifest.h"
#include "publish/Outcome.h"
#include "publish/PreparedClient.h"
#include "publish/Progress.h"
#include "publish/Site.h"
#include "publish/Workshop.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QRegularExpression>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kKnownSums = "empreintes-envoi.json"_L1;
constexpr qsizetype kIdLength = 16;

Problem refused(const QString &text)
{
    return {Outcome::Refused, text + u" ; rien n'a été changé."_s};
}

/// Each further generation changes the entry in the file system, by its link.
FileStamp stampOf(const QString &path)
{
    FileStamp stamp = FileStamp::of(path);
    stamp.changed = 0;
    return stamp;
}

QStringList filesIn(const QString &folder)
{
    QStringList names;
    QDirIterator entries(folder, QDir::Files | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        Interruption::check();
        const QString file = entries.next();
        if (!entries.fileInfo().isSymLink())
            names.append(QDir(folder).relativeFilePath(file));
    }
    return names;
}

/// What the sums of its client must be. Players would be told that it is damaged.
void checkClient(const QMap<QString, QByteArray> &sums, const Manifest &manifest,
                 const PreparedClient &prepared)
{
    QString changed;
    if (sums.contains(Site::kClientArchive) && !prepared.isUntouched(Site::kClientArchive))
        changed = Site::kClientArchive;
    for (auto file = manifest.sums.begin(); file != manifest.sums.end(); ++file) {
        if (sums.value(Site::kFiles + file.key()) != file.value())
            changed = Site::kFiles + file.key();
    }
    if (!changed.isEmpty()) {
        throw refused(u"site/%1 n'est plus tel que « client » l'a préparé ; « client », puis "
                      u"« mettre-en-ligne », le refont"_s.arg(changed));
    }
}

} // namespace

SiteListing SiteListing::of(const Workshop &workshop, const QString &generation)
{
    const QDir folder(workshop.generationPath(generation));
    const Manifest manifest = Manifest::load(folder.filePath(Site::kManifest));
    const PreparedClient prepared(folder.path());
    Fingerprints known(workshop.path(kKnownSums));
    SiteListing listing;
    qint64 unread = 0;
    const QStringList names = filesIn(folder.path());
    for (const QString &name : names) {
        const FileStamp stamp = stampOf(folder.filePath(name));
        const QByteArray listed = name.startsWith(Site::kFiles) && prepared.isUntouched(name)
                                      ? manifest.sums.value(name.sliced(Site::kFiles.size()))
                                      : QByteArray();
        const QByteArray sum = listed.isEmpty() ? known.find(name, stamp) : listed;
        listing.m_sums.insert(name, sum);
        unread += sum.isEmpty() ? stamp.size : 0;
        if (!sum.isEmpty() && listed.isEmpty())
            known.remember(name, stamp, sum, QDateTime::currentMSecsSinceEpoch());
    }
    if (!listing.m_sums.contains(Site::kNews)) {
        throw refused(u"Dans %1, il manque %2 : ce n'est pas un site entier"_s.arg(folder.path(),
                                                                                   Site::kNews));
    }
    Progress progress(u"Lecture"_s, unread);
    for (auto file = listing.m_sums.begin(); file != listing.m_sums.end(); ++file) {
        if (!file->isEmpty())
            continue;
        const QString path = folder.filePath(file.key());
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        const FileStamp stamp = stampOf(path);
        *file = fileSum(path, [&progress](qint64 bytes) { progress.advance(bytes); });
        known.remember(file.key(), stamp, *file, now);
    }
    known.save();
    checkClient(listing.m_sums, manifest, prepared);
    return listing;
}

SiteListing SiteListing::parse(const QByteArray &text)
{
    static const QRegularExpression kLine(u"^([0-9a-f]{64})  (.+)$"_s);
    SiteListing listing;
    const QStringList lines = QString::fromUtf8(text).split(u'\n', Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        const QRegularExpressionMatch match = kLine.match(line);
        if (!match.hasMatch())
            return {};
        listing.m_sums.insert(match.captured(2), match.captured(1).toLatin1());
    }
    return listing;
}

QStringList SiteListing::folders() const
{
    // Alphabetically a folder comes before what it contains.
    QMap<QString, bool> folders;
    for (auto file = m_sums.keyBegin(); file != m_sums.keyEnd(); ++file) {
        for (qsizetype slash = file->indexOf(u'/'); slash >= 0;
             slash = file->indexOf(u'/', slash + 1))
            folders.insert(file->left(slash), true);
    }
    return folders.keys();
}

QByteArray SiteListing::text() const
{
    QByteArray text;
    for (auto file = m_sums.begin(); file != m_sums.end(); ++file)
        text += file.value() + "  " + file.key().toUtf8() + '\n';
    return text;
}

QString SiteListing::id() const
{
    const QByteArray sum = QCryptographicHash::hash(text(), QCryptographicHash::Sha256).toHex();
    return QString::fromLatin1(sum.left(kIdLength));
}
