#include "publish/SiteListing.h"

#include "publish/Disk.h"
#include "publish/FileSum.h"
#include "publish/Interruption.h"
#include "publish/Manifest.h"
#include "publish/Outcome.h"
#include "publish/Progress.h"
#include "publish/Site.h"
#include "publish/Workshop.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>

#include <filesystem>
#include <system_error>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kSuffix = ".liste"_L1;
constexpr qsizetype kIdLength = 16;

QString listingPath(const Workshop &workshop, const QString &generation)
{
    return workshop.generationPath(generation) + kSuffix;
}

SiteListing load(const QString &path)
{
    QFile file(path);
    return SiteListing::parse(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
}

bool areSameFile(const QString &a, const QString &b)
{
    std::error_code error;
    return std::filesystem::equivalent(a.toStdU16String(), b.toStdU16String(), error);
}

/// What is known already of files: those of the client by the manifest, and those that an earlier
/// generation shares with this one by what was listed there.
class KnownSums
{
public:
    KnownSums(const Workshop &workshop, const QString &generation)
        : m_folder(workshop.generationPath(generation) + u'/')
        , m_manifest(Manifest::load(m_folder + Site::kManifest))
    {
        const QDir generations(workshop.generationPath(QString()));
        const QStringList listings =
            generations.entryList({u'*' + kSuffix}, QDir::Files, QDir::Name | QDir::Reversed);
        for (const QString &name : listings) {
            const QString earlier = name.chopped(kSuffix.size());
            if (!generations.exists(earlier)) {
                QFile::remove(generations.filePath(name)); // its generation is gone
            } else if (m_earlier.sums().isEmpty()) {
                m_earlierFolder = workshop.generationPath(earlier) + u'/';
                m_earlier = load(generations.filePath(name));
            }
        }
    }

    QByteArray find(const QString &name) const
    {
        if (name.startsWith(Site::kFiles))
            return m_manifest.sums.value(name.sliced(Site::kFiles.size()));
        const QByteArray sum = m_earlier.sums().value(name);
        return areSameFile(m_folder + name, m_earlierFolder + name) ? sum : QByteArray();
    }

private:
    QString m_folder;
    Manifest m_manifest;
    QString m_earlierFolder;
    SiteListing m_earlier;
};

} // namespace

SiteListing SiteListing::of(const Workshop &workshop, const QString &generation)
{
    const QString path = listingPath(workshop, generation);
    SiteListing listing = load(path);
    if (listing.m_sums.isEmpty()) {
        listing = made(workshop, generation);
        Disk::write(path, listing.text());
    }
    return listing;
}

SiteListing SiteListing::made(const Workshop &workshop, const QString &generation)
{
    const KnownSums known(workshop, generation);
    SiteListing listing;
    qint64 unread = 0;
    const QDir folder(workshop.generationPath(generation));
    QDirIterator entries(folder.path(), QDir::Files | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        Interruption::check();
        const QString file = entries.next();
        if (entries.fileInfo().isSymLink())
            continue;
        const QString name = folder.relativeFilePath(file);
        const QByteArray sum = known.find(name);
        listing.m_sums.insert(name, sum);
        unread += sum.isEmpty() ? entries.fileInfo().size() : 0;
    }
    Progress progress(u"Lecture"_s, unread);
    for (auto file = listing.m_sums.begin(); file != listing.m_sums.end(); ++file) {
        if (file->isEmpty()) {
            *file = fileSum(folder.filePath(file.key()),
                            [&progress](qint64 bytes) { progress.advance(bytes); });
        }
    }
    if (!listing.m_sums.contains(Site::kNews)) {
        throw Problem{Outcome::Refused, u"Dans %1, il manque %2 : ce n'est pas un site entier ; "
                                        u"rien n'a été changé."_s.arg(folder.path(), Site::kNews)};
    }
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
