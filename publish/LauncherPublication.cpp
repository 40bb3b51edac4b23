#include "publish/LauncherPublication.h"

#include "publish/Disk.h"
#include "publish/Generation.h"
#include "publish/Interruption.h"
#include "publish/Outcome.h"
#include "publish/Progress.h"
#include "publish/ServedLaunchers.h"
#include "publish/Site.h"
#include "publish/Workshop.h"
#include "updater/Failure.h"
#include "updater/UpdateArchive.h"
#include "updater/Version.h"

#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kTarget = "windows-x64";
constexpr auto kProgram = "VeyraLauncher.exe";
const auto kUnchecked = u"launcher/a-verifier.zip"_s;
constexpr qsizetype kLongestNotes = 20'000; ///< the launcher shows no more

using ServedSums = QMap<QString, QString>;

Problem refused(const QString &reason)
{
    return {Outcome::Refused, u"Launcher refusé : %1 ; rien n'a été changé."_s.arg(reason)};
}

/// Looks for bytes in what comes piece by piece.
class Search
{
public:
    explicit Search(const QByteArray &wanted)
        : m_wanted(wanted)
    {
    }

    void add(const char *bytes, size_t count)
    {
        m_window.append(bytes, static_cast<qsizetype>(count));
        m_isFound = m_isFound || m_window.contains(m_wanted);
        // The end may be the beginning of what is looked for.
        m_window = m_window.right(m_wanted.size() - 1);
    }
    bool isFound() const { return m_isFound; }

private:
    QByteArray m_wanted;
    QByteArray m_window;
    bool m_isFound = false;
};

/// As a text that the program was built with stands in it: UTF-16, the low byte first.
QByteArray compiledIn(const QString &text)
{
    QByteArray bytes;
    for (const QChar c : text) {
        bytes.append(static_cast<char>(c.cell()));
        bytes.append(static_cast<char>(c.row()));
    }
    return bytes;
}

/// Those that were online have a rule of their own, but for the one that the draft offers already.
UpdateTerms termsOf(const Workshop &workshop, const ServedSums &served)
{
    UpdateTerms terms;
    for (const QString &key : workshop.keys())
        terms.keys.push_back(UpdateKey::parse(key.toStdString()));
    terms.target = kTarget;
    QStringList versions = workshop.versions();
    versions.removeIf([&served](const QString &version) { return served.contains(version); });
    versions.append(Site::publishedVersion(workshop));
    for (const QString &version : std::as_const(versions)) {
        if (Version::isValid(version.toStdString()))
            terms.versions.push_back(version.toStdString());
    }
    return terms;
}

/// What was online may be offered again, as it was: whoever has it already is not asked to take
/// something else for the same.
void checkAgainst(const ServedSums &served, const QString &version, const QString &sum)
{
    for (auto other = served.begin(); other != served.end(); ++other) {
        if (other.key() == version && other.value() != sum) {
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

/// Reads all of it: what is damaged shows here, not at players'.
void checkFiles(const UpdateArchive &archive, const QString &baseUrl)
{
    Progress progress(u"Launcher"_s, static_cast<qint64>(archive.list().totalBytes()));
    Search address(compiledIn(baseUrl));
    for (const UpdateList::File &file : archive.list().files) {
        archive.extract(file, [&](const char *bytes, size_t count) {
            Interruption::check();
            progress.advance(static_cast<qint64>(count));
            if (file.name == kProgram)
                address.add(bytes, count);
        });
    }
    if (!archive.list().find(kProgram))
        throw refused(u"l'archive ne contient pas %1"_s.arg(QLatin1StringView(kProgram)));
    if (!address.isFound()) {
        throw refused(
            u"%1 n'est pas construit pour %2"_s.arg(QLatin1StringView(kProgram), baseUrl));
    }
}

} // namespace

QString LauncherPublication::make(const Workshop &workshop) const
{
    if (workshop.keys().isEmpty())
        throw refused(u"publication.json ne donne aucune clé publique (« cles »)"_s);
    if (notes.size() > kLongestNotes)
        throw refused(u"les notes dépassent %1 caractères"_s.arg(kLongestNotes));

    Generation generation(workshop, {Site::kLauncherVersion});
    const QString unchecked = generation.fileFor(kUnchecked);
    // What is checked is the copy, whatever happens to the original.
    const QByteArray sum = Disk::copy(archive, unchecked, [](qint64) {});
    const ServedSums served = ServedLaunchers::sums(workshop);
    QString version;
    try {
        const UpdateArchive opened(unchecked.toStdString(), termsOf(workshop, served));
        version = QString::fromStdString(opened.list().version);
        checkAgainst(served, version, QString::fromLatin1(sum));
        checkFiles(opened, workshop.baseUrl());
    } catch (const Failure &failure) {
        throw refused(QString::fromStdString(failure.text));
    }

    const QString name = Site::launcherArchive(version);
    Disk::rename(unchecked, generation.fileFor(name));
    generation.write(Site::kLauncherVersion,
                     QJsonDocument(QJsonObject{{"version"_L1, version},
                                               {"download_url"_L1, workshop.baseUrl() + name},
                                               {"changelog"_L1, notes},
                                               {"required"_L1, isRequired}}));
    return generation.commit();
}
