#include "publish/Sending.h"

#include "publish/CommandLine.h"
#include "publish/Console.h"
#include "publish/Destination.h"
#include "publish/DestinationLock.h"
#include "publish/Disk.h"
#include "publish/French.h"
#include "publish/Interruption.h"
#include "publish/Progress.h"
#include "publish/Site.h"
#include "publish/SiteListing.h"
#include "publish/Workshop.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QLockFile>
#include <QRegularExpression>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <numeric>
#include <optional>
#include <system_error>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kGenerations = u"publications"_s;
const auto kInTheMaking = u"publications/.en-cours"_s;
const auto kOnTheWayOut = u"publications/.retiree"_s;
const auto kListing = u".liste"_s;
const auto kSite = u"site"_s;
const auto kTrial = u".essai"_s;
const auto kStateFolder = u"etat"_s;
const auto kState = u"etat/status.json"_s;
constexpr int kDigits = 4;
constexpr qsizetype kKeptForReturn = 2; ///< beside the one that is served
constexpr qint64 kWorthTelling = qint64{100} * 1024 * 1024;

using Entries = Destination::Entries;

QString generationPath(const QString &name)
{
    return kGenerations + u'/' + name;
}

bool isGeneration(const QString &path)
{
    static const QRegularExpression kForm(u'^' + kGenerations + u"/[0-9]{4,}-[0-9a-f]{16}$"_s);
    return kForm.match(path).hasMatch();
}

/// One run of the command.
class Run
{
public:
    Run(Workshop &workshop, const SiteListing &listing, Destination &destination)
        : m_workshop(workshop)
        , m_listing(listing)
        , m_source(workshop.generationPath(workshop.served()) + u'/')
        , m_destination(destination)
    {
    }

    /// From here on nobody else sends there. Throws a Problem where nobody may, or where a
    /// destination that was sent to before has become an empty folder.
    void begin(const QString &address)
    {
        const QMap<QString, QByteArray> &sums = m_listing.sums();
        for (auto file = sums.keyBegin(); file != sums.keyEnd(); ++file)
            m_destination.checkSendable(m_source + *file);
        const Entries top = m_destination.entries(QString());
        if (m_workshop.hasSentTo(address) && !top.contains(kGenerations))
            throw Destination::gone(address);
        if (top.contains(u"publication.json"_s))
            throw Problem{Outcome::Refused,
                          u"La destination est un atelier ; rien n'a été changé."_s};
        if (top.contains(kSite) && top.value(kSite).kind != Destination::Entry::Link) {
            throw Problem{Outcome::Refused,
                          u"« %1 » existe dans la destination et n'est pas un lien : ce n'est pas "
                          u"« envoyer » qui l'a fait ; rien n'a été changé."_s.arg(kSite)};
        }
        const QString target = m_destination.target(kSite);
        if (!target.isEmpty() && !isGeneration(target)) {
            throw Problem{Outcome::Refused,
                          u"Dans la destination, « %1 » mène à « %2 » : ce n'est pas « envoyer » "
                          u"qui l'a fait ; rien n'a été changé."_s.arg(kSite, target)};
        }
        m_served = target.section(u'/', -1);
        m_isServedKnown = true;
        m_lock.emplace(m_destination, m_workshop);
        m_served = m_destination.target(kSite).section(u'/', -1); // another one was sending
        m_present = m_destination.entries(kGenerations);
        if (!top.contains(kGenerations))
            m_destination.makeFolder(kGenerations);
        m_hasState = top.contains(kStateFolder);
    }

    /// Whether the site was another one before.
    bool send()
    {
        m_name = presentName();
        const bool isPresent = !m_name.isEmpty();
        if (!isPresent)
            m_name = nextName();
        sendState();
        if (!isPresent)
            sendGeneration();
        // Missing where the run before was ended just here.
        if (!m_present.contains(m_name + kListing))
            m_destination.write(generationPath(m_name + kListing), m_listing.text());
        return m_name != m_served;
    }

    void putOnline() { m_destination.pointTo(kSite, generationPath(m_name)); }
    QString name() const { return m_name; }
    /// What players have until the switch, in words.
    QString stillServed() const
    {
        if (!m_isServedKnown)
            return u"Là-bas, rien n'a changé"_s;
        return m_served.isEmpty() ? u"Aucun site n'est encore servi là-bas"_s
                                  : u"L'ancien site reste servi"_s;
    }
    qint64 sentFiles() const { return m_sentFiles; }

    /// Generations that nobody returns to, and what runs that were ended have left of such.
    void removeOld()
    {
        if (m_present.contains(kOnTheWayOut.section(u'/', -1)))
            m_destination.removeTree(kOnTheWayOut);
        const QStringList all = names();
        for (auto entry = m_present.keyBegin(); entry != m_present.keyEnd(); ++entry) {
            const QString name = entry->chopped(std::min(entry->size(), kListing.size()));
            if (entry->endsWith(kListing) && isGeneration(generationPath(name)) &&
                !all.contains(name))
                m_destination.removeFile(generationPath(*entry));
        }
        // The one that was served until now is what players would be given back.
        QStringList others = all;
        others.removeAll(m_name);
        const bool hasBefore = others.removeAll(m_served) > 0;
        const qsizetype kept = hasBefore ? kKeptForReturn - 1 : kKeptForReturn;
        for (qsizetype i = 0; i < others.size() - kept; ++i) {
            // Half removed it must not be taken for a whole one.
            m_destination.rename(generationPath(others.at(i)), kOnTheWayOut);
            m_destination.removeTree(kOnTheWayOut);
            m_destination.removeFile(generationPath(others.at(i) + kListing));
        }
    }

private:
    /// Of the generations there, the oldest first.
    QStringList names() const
    {
        QStringList names;
        for (auto entry = m_present.begin(); entry != m_present.end(); ++entry) {
            if (entry->kind == Destination::Entry::Folder &&
                isGeneration(generationPath(entry.key())))
                names.append(entry.key());
        }
        std::sort(names.begin(), names.end(), [](const QString &a, const QString &b) {
            return number(a) < number(b) || (number(a) == number(b) && a < b);
        });
        return names;
    }

    static int number(const QString &name) { return name.section(u'-', 0, 0).toInt(); }

    /// The same site may be there already. One that lacks something is sent once more.
    QString presentName()
    {
        QString present;
        const QStringList all = names();
        for (const QString &name : all) {
            if (name.endsWith(u'-' + m_listing.id()) && hasAllFiles(name))
                present = name;
        }
        return present;
    }

    bool hasAllFiles(const QString &name)
    {
        m_sizes = sizesThere(generationPath(name));
        const QMap<QString, QByteArray> &sums = m_listing.sums();
        const bool hasAll = std::all_of(sums.keyBegin(), sums.keyEnd(),
                                        [this](const QString &file) { return isComplete(file); });
        m_sizes.clear();
        return hasAll;
    }

    QString nextName() const
    {
        const QStringList all = names();
        const int last = all.isEmpty() ? 0 : number(all.last());
        return u"%1-%2"_s.arg(last + 1, kDigits, 10, QChar(u'0')).arg(m_listing.id());
    }

    void sendState()
    {
        const QFileInfo state(m_workshop.statusPath());
        if (!state.exists())
            return;
        const std::optional<QDateTime> there = m_destination.modified(kState);
        // sftp counts in seconds.
        if (there && there->toSecsSinceEpoch() >= state.lastModified().toSecsSinceEpoch())
            return;
        if (!m_hasState)
            m_destination.makeFolder(kStateFolder);
        m_destination.replace(state.filePath(), kState);
    }

    void sendGeneration()
    {
        tryTheSwitch();
        removeWhatDoesNotFit();
        m_destination.write(kInTheMaking + kListing, m_listing.text());
        m_destination.makeFolder(kInTheMaking);
        const QStringList folders = m_listing.folders();
        for (const QString &folder : folders)
            m_destination.makeFolder(kInTheMaking + u'/' + folder);

        linkFromServed();
        sendFiles();
        m_destination.makeFolder(kInTheMaking + u"/api"_s);
        m_destination.pointTo(kInTheMaking + u'/' + Site::kStatus,
                              u"../../../"_s + kState); // as Site::linkStatus()
        m_destination.flush(kInTheMaking);
        m_lock->check(); // what lies there would be anybody's else
        m_destination.rename(kInTheMaking, generationPath(m_name));
        m_destination.rename(kInTheMaking + kListing, generationPath(m_name + kListing));
        m_present.insert(m_name, {Destination::Entry::Folder, 0});
        m_present.insert(m_name + kListing, {Destination::Entry::File, 0});
    }

    /// What cannot work at the end is told before hours of sending. Where a site is served already
    /// it is switched to itself.
    void tryTheSwitch()
    {
        try {
            if (!m_served.isEmpty()) {
                m_destination.pointTo(kSite, generationPath(m_served));
                return;
            }
            m_destination.pointTo(kTrial, kGenerations);
            m_destination.pointTo(kTrial, kGenerations);
            m_destination.removeFile(kTrial);
        } catch (const Problem &problem) {
            if (problem.outcome != Outcome::Disk)
                throw;
            throw Problem{Outcome::Refused,
                          u"La destination ne permet pas de basculer d'un site à l'autre : il y "
                          u"faut des liens symboliques, qu'un renommage remplace d'un coup. Rien "
                          u"n'a été changé. (%1)"_s.arg(problem.text)};
        }
    }

    SiteListing listingThere(const QString &generation)
    {
        return SiteListing::parse(m_destination.read(generation + kListing).value_or(QByteArray()));
    }

    /// Of a sending that was broken off, of this site or of another one.
    void removeWhatDoesNotFit()
    {
        if (!m_present.contains(u".en-cours"_s))
            return;
        const SiteListing earlier = listingThere(kInTheMaking);
        if (earlier.sums().isEmpty()) {
            m_destination.removeTree(kInTheMaking);
            return;
        }
        const QStringList folders = m_listing.folders();
        const QStringList earlierFolders = earlier.folders();
        for (const QString &folder : earlierFolders) {
            if (!folders.contains(folder))
                m_destination.removeTree(pathThere(folder));
        }
        m_sizes = sizesThere(kInTheMaking);
        Progress progress(u"Vérification de ce qui est arrivé"_s,
                          std::accumulate(m_sizes.begin(), m_sizes.end(), qint64{0}));
        const auto tell = [&progress](qint64 bytes) { progress.advance(bytes); };
        const QStringList there = m_sizes.keys();
        for (const QString &name : there) {
            const QByteArray sum = m_listing.sums().value(name);
            const bool fits = !sum.isEmpty() && earlier.sums().value(name) == sum;
            if (!fits || !isComplete(name) || !m_destination.isWhole(pathThere(name), sum, tell)) {
                m_destination.removeFile(pathThere(name));
                m_sizes.remove(name);
            }
        }
    }

    /// What did not change costs no sending.
    void linkFromServed()
    {
        if (m_served.isEmpty())
            return;
        const SiteListing served = listingThere(generationPath(m_served));
        const QMap<QString, QByteArray> &sums = m_listing.sums();
        bool isAnyLinked = false;
        Progress progress(u"Liens"_s, sums.size());
        for (auto file = sums.begin(); file != sums.end(); ++file) {
            progress.advance(1);
            if (served.sums().value(file.key()) != file.value() || isComplete(file.key()))
                continue;
            m_destination.link(generationPath(m_served) + u'/' + file.key(), pathThere(file.key()));
            isAnyLinked = true;
        }
        if (!isAnyLinked)
            return;
        m_sizes = sizesThere(kInTheMaking);
        for (auto file = sums.begin(); file != sums.end(); ++file) {
            // A link to what is damaged there: to write to it would be to write to the served site.
            if (served.sums().value(file.key()) == file.value() && m_sizes.contains(file.key()) &&
                !isComplete(file.key())) {
                m_destination.removeFile(pathThere(file.key()));
                m_sizes.remove(file.key());
            }
        }
    }

    void sendFiles()
    {
        qint64 total = 0;
        const QMap<QString, QByteArray> &sums = m_listing.sums();
        for (auto file = sums.begin(); file != sums.end(); ++file)
            total += isComplete(file.key()) ? 0 : sizeHere(file.key());

        Progress progress(u"Envoi"_s, total);
        for (auto file = sums.begin(); file != sums.end(); ++file) {
            if (isComplete(file.key()))
                continue;
            const qint64 size = sizeHere(file.key());
            if (size >= kWorthTelling) {
                Console::say(u"%1 (%2)…"_s.arg(file.key(),
                                               QLocale(QLocale::French).formattedDataSize(size)));
            }
            try {
                m_destination.send(m_source + file.key(), pathThere(file.key()), file.value(),
                                   [&progress](qint64 bytes) { progress.advance(bytes); });
            } catch (const Problem &problem) {
                // Damaged without a trace. From now on whoever prepares the next site sees it.
                if (problem.outcome == Outcome::BrokenOff)
                    Disk::tryTouch(m_source + file.key());
                throw;
            }
            ++m_sentFiles;
        }
        if (m_sentFiles > 0)
            m_sizes = sizesThere(kInTheMaking);
        for (auto file = sums.keyBegin(); file != sums.keyEnd(); ++file) {
            if (!isComplete(*file)) {
                throw Problem{Outcome::Disk,
                              u"« %1 » n'est pas arrivé entier : %2 sur %3."_s.arg(
                                  *file,
                                  French::counted(m_sizes.value(*file), u"octet"_s, u"octets"_s),
                                  QString::number(sizeHere(*file)))};
            }
        }
    }

    QHash<QString, qint64> sizesThere(const QString &generation)
    {
        QHash<QString, qint64> sizes;
        const QStringList folders = QStringList{QString()} + m_listing.folders();
        for (const QString &folder : folders) {
            const QString start = folder.isEmpty() ? QString() : folder + u'/';
            const Entries entries =
                m_destination.entries(folder.isEmpty() ? generation : generation + u'/' + folder);
            for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
                if (entry->kind == Destination::Entry::File)
                    sizes.insert(start + entry.key(), entry->size);
            }
        }
        return sizes;
    }

    static QString pathThere(const QString &name) { return kInTheMaking + u'/' + name; }
    qint64 sizeHere(const QString &name) const { return QFileInfo(m_source + name).size(); }
    bool isComplete(const QString &name) const
    {
        return m_sizes.contains(name) && m_sizes.value(name) == sizeHere(name);
    }

    Workshop &m_workshop;
    const SiteListing &m_listing;
    QString m_source;
    Destination &m_destination;
    std::optional<DestinationLock> m_lock;
    bool m_hasState = false;
    Entries m_present;
    QString m_served; ///< there; empty where nothing is
    bool m_isServedKnown = false;
    QString m_name; ///< of this site, there
    QHash<QString, qint64> m_sizes;
    qint64 m_sentFiles = 0;
};

/// Without links, as far as the path exists.
QString real(const QString &path)
{
    std::error_code error;
    const std::filesystem::path resolved =
        std::filesystem::weakly_canonical(path.toStdU16String(), error);
    return error ? path : QString::fromStdU16String(resolved.generic_u16string());
}

QString destinationOf(const CommandLine &line, const Workshop &workshop)
{
    if (line.operands.isEmpty() && workshop.destination().isEmpty()) {
        throw Problem{Outcome::Refused,
                      u"Aucune destination n'est connue : « veyra-publier envoyer "
                      u"DESTINATION » la retient."_s};
    }
    QString address = Destination::checkedAddress(line.operands.isEmpty() ? workshop.destination()
                                                                          : line.operands.first());
    if (Destination::isFolder(address) &&
        (real(address) + u'/').startsWith(real(workshop.path(QString())))) {
        throw Problem{Outcome::Refused,
                      u"La destination est dans l'atelier ; rien n'a été changé."_s};
    }
    return address;
}

/// Of runs that were killed: it may be a whole archive.
void removeScratch(const Workshop &workshop)
{
    QDir folder(workshop.path(QString()));
    const QStringList names = folder.entryList({u".envoi-*"_s}, QDir::Dirs | QDir::Hidden);
    for (const QString &name : names)
        QDir(folder.filePath(name)).removeRecursively();
}

/// The operator wants to know first what players have now.
Problem brokenOff(const Problem &problem, const QString &state)
{
    if (problem.outcome == Outcome::Refused)
        return problem;
    if (problem.outcome == Outcome::BrokenOff) // of which repeating makes nothing better
        return {problem.outcome, u"%1 %2."_s.arg(problem.text, state)};
    const QString comfort = state + u" ; le même « envoyer » reprend là."_s;
    if (problem.outcome == Outcome::Interrupted)
        return {problem.outcome, u"Interrompu. "_s + comfort};
    return {Outcome::BrokenOff, problem.text + u' ' + comfort};
}

/// Whoever lost the connection just now does not know on which side of the switch.
bool isOnlineAfterAll(const QString &address, const Workshop &workshop, const QString &name)
{
    try {
        const std::unique_ptr<Destination> again =
            Destination::open(address, workshop.path(QString()), true);
        return again->target(kSite) == generationPath(name);
    } catch (const Problem &) {
        throw Problem{Outcome::BrokenOff,
                      u"La connexion s'est perdue au moment de la bascule : l'ancien site ou le "
                      u"nouveau est servi, entier. Le même « envoyer » le dira."_s};
    }
}

/// Nothing interrupts it: that would leave open which site is served.
void putOnline(Run &run, const QString &address, const Workshop &workshop)
{
    const Interruption::PutOff putOff;
    try {
        run.putOnline();
    } catch (const Problem &problem) {
        if (!isOnlineAfterAll(address, workshop, run.name()))
            throw brokenOff(problem, run.stillServed());
    }
}

void removeOld(Run &run)
{
    try {
        Interruption::check(); // what was put off
        run.removeOld();
    } catch (const Problem &problem) {
        if (problem.outcome == Outcome::Interrupted) {
            throw Problem{problem.outcome,
                          u"Interrompu. La publication %1 est en ligne là-bas ; "
                          u"la prochaine fois, d'anciennes y seront retirées."_s.arg(run.name())};
        }
        throw Problem{Outcome::Disk, u"Une ancienne publication n'a pas pu être retirée là-bas ; "
                                     u"la prochaine fois : "_s +
                                         problem.text};
    }
}

} // namespace

Outcome Sending::run(const CommandLine &line)
{
    Workshop workshop(line.workshop);
    if (!Disk::kMakesLinks) {
        throw Problem{
            Outcome::Refused,
            u"« envoyer » a besoin de liens, qu'il n'y a pas sous Windows : copiez le "
            u"contenu de %1 sur le serveur web, ou faites travailler l'outil sous Linux ; "
            u"rien n'a été changé."_s.arg(QDir::toNativeSeparators(workshop.sitePath()))};
    }
    const std::unique_ptr<QLockFile> lock = workshop.lock();
    const QString address = destinationOf(line, workshop);
    removeScratch(workshop);
    const SiteListing listing = SiteListing::of(workshop, workshop.served());
    const std::unique_ptr<Destination> destination =
        Destination::open(address, workshop.path(QString()), workshop.hasSentTo(address));
    Run run(workshop, listing, *destination);

    bool isOther = false;
    try {
        run.begin(address);
        workshop.setDestination(address);
        isOther = run.send();
    } catch (const Problem &problem) {
        throw brokenOff(problem, run.stillServed());
    }
    if (isOther) {
        putOnline(run, address, workshop);
        using French::counted;
        Console::say(u"%1, %2. Publication %3 en ligne là-bas."_s.arg(
            counted(listing.sums().size(), u"fichier"_s, u"fichiers"_s),
            counted(run.sentFiles(), u"envoyé"_s, u"envoyés"_s), run.name()));
    } else {
        Console::say(u"La publication %1 est déjà en ligne là-bas."_s.arg(run.name()));
    }
    removeOld(run);
    if (Destination::isFolder(address))
        Site::warnOfClosedFolders(QDir(address).filePath(kSite));
    return Outcome::Good;
}
