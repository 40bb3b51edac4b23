#include "updater/Swap.h"

#include "updater/Failure.h"
#include "updater/FileName.h"
#include "updater/Retry.h"
#include "updater/Sha256.h"
#include "updater/UpdateArchive.h"

#include <algorithm>

namespace {

using Platform::Entry;
using Platform::Error;

const std::string kWork = "/" + std::string(FileName::kWorkFolder);
const std::string kNew = kWork + "/nouveau";
const std::string kOld = kWork + "/ancien";
const std::string kGuard = kWork + "/garde";
const std::string kSpareGuard = kWork + "/garde-2";
const std::string kAside = kWork + "/de-cote";
const std::string kPartialJournal = kWork + "/journal.partiel";
const std::string kJournal = kWork + "/journal.txt";
const std::string kDone = kWork + "/termine.txt";

// What a folder, its names and the journal take on the disk, with room for other programs.
constexpr std::uint64_t kSpareBytes = 16ull * 1024 * 1024;
constexpr size_t kCopyChunk = 1024ull * 1024;

[[noreturn]] void fail(const std::string &what, const std::string &path, const Error &error)
{
    throw Failure(ExitCode::NotPrepared, what + " " + path + " : " + explained(error, path));
}

/// As far as it goes: what stays is in nobody's way.
void removeTree(const std::string &path)
{
    Entry entry{};
    if (Platform::findEntry(path, entry) || entry == Entry::Nothing)
        return;
    if (entry != Entry::Folder) {
        Platform::removeFile(path);
        return;
    }
    std::vector<std::string> names;
    Platform::listFolder(path, names);
    const std::string inside = path + "/";
    for (const std::string &name : names)
        removeTree(inside + name);
    Platform::removeFolder(path);
}

} // namespace

Swap::Swap(std::string folder, std::chrono::milliseconds retryFor)
    : m_folder(std::move(folder))
    , m_retryFor(retryFor)
{
}

std::string Swap::at(const std::string &name) const
{
    return m_folder + "/" + name;
}

std::string Swap::newAt(const std::string &name) const
{
    return m_folder + kNew + "/" + name;
}

std::string Swap::oldAt(const std::string &name) const
{
    return m_folder + kOld + "/" + name;
}

// --- Staging

void Swap::prepare(const UpdateArchive &archive, const UpdateList *installed,
                   const std::string &launcher, const std::string &ownExecutable,
                   const Progress &progress)
{
    try {
        plan(archive, installed, launcher);
        stage(archive, ownExecutable, progress);
        writeJournal();
    } catch (const Failure &) {
        discard();
        throw;
    }
}

void Swap::plan(const UpdateArchive &archive, const UpdateList *installed,
                const std::string &launcher)
{
    for (const std::string &name : {launcher, std::string(FileName::kUpdater)}) {
        if (!archive.list().find(name)) {
            throw Failure::refused("le programme " + name +
                                   " ne fait pas partie de la mise à jour");
        }
    }
    const UpdateList::File *const program = archive.list().find(launcher);
    m_journal = {};
    m_journal.launcher = program->name;
    m_journal.newSum = program->sha256;

    std::set<std::string> kept;
    for (const UpdateList::File &file : archive.list().files) {
        kept.insert(FileName::folded(file.name));
        if (&file != program)
            planFile(file.name);
    }
    planFile(std::string(FileName::kList));
    planFile(std::string(FileName::kSignature));

    if (!installed)
        return;
    for (const UpdateList::File &file : installed->files) {
        if (!kept.contains(FileName::folded(file.name)) && entryAt(at(file.name)) == Entry::File)
            m_journal.entries.push_back({Journal::Step::Remove, file.name});
    }
}

void Swap::planFile(const std::string &name)
{
    switch (entryAt(at(name))) {
    case Entry::Nothing:
        planFoldersOf(name);
        m_journal.entries.push_back({Journal::Step::Add, name});
        break;
    case Entry::Folder:
        throw Failure(ExitCode::NotPrepared, "un dossier porte le nom du fichier " + at(name));
    case Entry::File:
    case Entry::Other:
        m_journal.entries.push_back({Journal::Step::Replace, name});
        break;
    }
}

/// The outermost first.
void Swap::planFoldersOf(const std::string &name)
{
    const std::string folder(FileName::folderOf(name));
    if (folder.empty())
        return;
    const bool isPlanned = std::any_of(
        m_journal.entries.begin(), m_journal.entries.end(), [&folder](const Journal::Entry &entry) {
            return entry.step == Journal::Step::MakeFolder && entry.name == folder;
        });
    if (isPlanned)
        return;
    const Entry entry = entryAt(at(folder));
    if (entry == Entry::Folder)
        return;
    if (entry != Entry::Nothing)
        throw Failure(ExitCode::NotPrepared, "un fichier porte le nom du dossier " + at(folder));
    planFoldersOf(folder);
    m_journal.entries.push_back({Journal::Step::MakeFolder, folder});
}

void Swap::stage(const UpdateArchive &archive, const std::string &ownExecutable,
                 const Progress &progress)
{
    forget();
    m_workFolders.clear();
    // The first thing that is written in the folder: it tells whether anything can be.
    Error error = attempt([&] { return Platform::makeFolder(m_folder + kWork); });
    // A program that runs there could not be removed yet.
    if (error.kind == Error::Kind::Exists && entryAt(m_folder + kWork) == Entry::Folder)
        error = {};
    if (error)
        fail("impossible d'écrire dans le dossier", m_folder, error);
    checkSpace(archive, ownExecutable);
    makeWorkFoldersFor(kNew, {});
    makeWorkFoldersFor(kOld, {});

    const std::uint64_t total = std::max<std::uint64_t>(archive.list().totalBytes(), 1);
    std::uint64_t written = 0;
    for (const UpdateList::File &file : archive.list().files) {
        makeWorkFoldersFor(kNew, file.name);
        const std::string path = newAt(file.name);
        Platform::OutputFile output;
        create(output, path);
        archive.extract(file, [&](const char *bytes, size_t count) {
            if (const Error failed = output.write(bytes, count))
                fail("impossible d'écrire", path, failed);
            written += count;
            progress(int(written * 100 / total));
        });
        if (const Error failed = output.close())
            fail("impossible d'écrire", path, failed);
    }
    write(newAt(std::string(FileName::kList)), archive.listText());
    write(newAt(std::string(FileName::kSignature)), archive.signatureText());

    for (const Journal::Entry &entry : m_journal.entries) {
        if (entry.step == Journal::Step::Replace || entry.step == Journal::Step::Remove)
            makeWorkFoldersFor(kOld, entry.name);
    }
    m_journal.oldSum = copy(at(m_journal.launcher), oldAt(m_journal.launcher));
    m_journal.guardSum = copy(ownExecutable, m_folder + kGuard);
    copy(ownExecutable, m_folder + kSpareGuard);
    for (const std::string &folder : m_workFolders)
        flush(folder);
}

void Swap::checkSpace(const UpdateArchive &archive, const std::string &ownExecutable) const
{
    std::uint64_t needed = archive.list().totalBytes() + kSpareBytes;
    for (const std::string &path : {at(m_journal.launcher), ownExecutable, ownExecutable})
        needed += Platform::fileSize(path).value_or(0);
    const std::optional<std::uint64_t> available = Platform::freeBytes(m_folder);
    if (available && *available < needed) {
        constexpr std::uint64_t kMegabyte = 1024ull * 1024;
        throw Failure(ExitCode::NotPrepared, "il faut " + std::to_string(needed / kMegabyte + 1) +
                                                 " Mo libres sur le disque, il en reste " +
                                                 std::to_string(*available / kMegabyte));
    }
}

/// `root` (in the launcher's folder) and the folders that `name` needs below it.
void Swap::makeWorkFoldersFor(const std::string &root, const std::string &name)
{
    std::vector<std::string> missing;
    for (std::string_view folder = FileName::folderOf(name); !folder.empty();
         folder = FileName::folderOf(folder))
        missing.push_back(m_folder + root + "/" + std::string(folder));
    missing.push_back(m_folder + root);
    for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
        if (m_workFolders.contains(*folder))
            continue;
        makeFolder(*folder);
        m_workFolders.insert(*folder);
    }
}

/// Null where there is none.
Swap::File Swap::openIfThere(const std::string &path) const
{
    std::FILE *file = nullptr;
    const Error error = attempt([&] { return Platform::openForReading(path, file); });
    if (error && error.kind != Error::Kind::Missing)
        fail("impossible de lire", path, error);
    return {error ? nullptr : file, &std::fclose};
}

std::string Swap::copy(const std::string &from, const std::string &to) const
{
    const File source = openIfThere(from);
    if (!source)
        throw Failure(ExitCode::NotPrepared, "fichier introuvable : " + from);
    Platform::OutputFile target;
    create(target, to);
    Sha256 sum;
    Error error;
    std::vector<char> chunk(kCopyChunk);
    for (size_t count = 0;
         !error && (count = std::fread(chunk.data(), 1, chunk.size(), source.get())) > 0;) {
        sum.add(chunk.data(), count);
        error = target.write(chunk.data(), count);
    }
    if (std::ferror(source.get()) != 0)
        throw Failure(ExitCode::NotPrepared, "impossible de lire " + from);
    if (!error)
        error = target.takeRightsOf(from);
    if (!error)
        error = target.close();
    if (error)
        fail("impossible d'écrire", to, error);
    return sum.finish();
}

/// Empty where there is no file.
std::string Swap::sumOf(const std::string &path) const
{
    if (entryAt(path) != Entry::File)
        return {};
    const File file = openIfThere(path);
    if (!file)
        return {};
    Sha256 sum;
    std::vector<char> chunk(kCopyChunk);
    for (size_t count = 0; (count = std::fread(chunk.data(), 1, chunk.size(), file.get())) > 0;)
        sum.add(chunk.data(), count);
    if (std::ferror(file.get()) != 0)
        throw Failure(ExitCode::NotPrepared, "impossible de lire " + path);
    return sum.finish();
}

void Swap::create(Platform::OutputFile &file, const std::string &path) const
{
    if (const Error error = attempt([&] { return file.create(path); }))
        fail("impossible de créer", path, error);
}

void Swap::write(const std::string &path, const std::string &content) const
{
    Platform::OutputFile file;
    create(file, path);
    Error error = file.write(content.data(), content.size());
    if (!error)
        error = file.close();
    if (error)
        fail("impossible d'écrire", path, error);
}

/// Under its name it is complete or not there at all.
void Swap::writeJournal()
{
    write(m_folder + kPartialJournal, m_journal.text());
    flush(m_folder + kWork);
    move(m_folder + kPartialJournal, m_folder + kJournal);
    flush(m_folder + kWork);
    flush(m_folder);
}

void Swap::discard()
{
    try {
        forget();
    } catch (const Failure &) {
        // Nothing was replaced yet. The next run finds nothing to undo, and clears it.
    }
}

// --- Replacing

void Swap::perform()
{
    std::string reason;
    try {
        replaceAll();
        move(m_folder + kJournal, m_folder + kDone);
        flush(m_folder + kWork);
        finish();
        return;
    } catch (const Failure &failure) {
        reason = failure.text;
    }

    try {
        // Its last step may be what failed.
        if (exists(m_folder + kDone))
            move(m_folder + kDone, m_folder + kJournal);
        undo();
    } catch (const Failure &failure) {
        throw Failure(ExitCode::RollBackFailed, reason + " ; " + failure.text);
    }
    throw Failure(ExitCode::RolledBack, reason);
}

void Swap::replaceAll()
{
    // From here until finish() it is this program that starts in the launcher's place.
    moveOver(m_folder + kGuard, at(m_journal.launcher));
    flush(m_folder);

    for (const auto &[step, name] : m_journal.entries) {
        if (step == Journal::Step::MakeFolder) {
            makeFolder(at(name));
            continue;
        }
        if (step != Journal::Step::Add)
            move(at(name), oldAt(name));
        if (step != Journal::Step::Remove)
            move(newAt(name), at(name));
    }
    flushTouchedFolders();
}

/// Where somebody damaged or removed it since it was staged, only the old one can be started.
bool Swap::hasNewLauncher() const
{
    const std::string &name = m_journal.launcher;
    return sumOf(newAt(name)) == m_journal.newSum || sumOf(at(name)) == m_journal.newSum;
}

/// Whether the folder holds a launcher with all its files, by its own list.
bool Swap::isWhole() const
{
    const std::string path = at(std::string(FileName::kList));
    std::string text;
    const Error error =
        attempt([&] { return Platform::readFile(path, UpdateList::kLongestText, text); });
    if (error.kind == Error::Kind::Missing || text.size() > UpdateList::kLongestText)
        return false;
    if (error)
        fail("impossible de lire", path, error);
    try {
        const UpdateList list = UpdateList::parse(text);
        return list.find(m_journal.launcher) &&
               std::all_of(list.files.begin(), list.files.end(),
                           [this](const UpdateList::File &file) {
                               return sumOf(at(file.name)) == file.sha256;
                           });
    } catch (const Failure &failure) {
        // The list itself is damaged; a file that cannot be read tells nothing.
        if (failure.code == ExitCode::Refused)
            return false;
        throw;
    }
}

void Swap::finish()
{
    const std::string &launcher = m_journal.launcher;
    const auto throwLost = [&launcher] {
        throw Failure(ExitCode::NotPrepared,
                      "le nouveau programme " + launcher + " a disparu ou a changé");
    };
    if (!hasNewLauncher())
        throwLost();
    for (const auto &[step, name] : m_journal.entries) {
        if (step != Journal::Step::Remove)
            continue;
        // Folders that the removed files leave empty, innermost first. One that somebody holds may
        // stay: it does no harm.
        for (std::string_view folder = FileName::folderOf(name); !folder.empty();
             folder = FileName::folderOf(folder)) {
            const Error error = Platform::removeFolder(at(std::string(folder)));
            if (error && error.kind != Error::Kind::Missing)
                break;
        }
    }
    // Last of all: from here on the new launcher starts by itself.
    if (sumOf(at(launcher)) != m_journal.newSum)
        moveOver(newAt(launcher), at(launcher));
    // A virus scanner may have taken it meanwhile, and the old one still lies in the work folder.
    if (sumOf(at(launcher)) != m_journal.newSum)
        throwLost();
    try {
        flush(m_folder);
        forget();
    } catch (const Failure &) {
        // The new launcher starts by itself by now, and all the rest is at its place. The next run
        // finishes it once more.
    }
}

void Swap::undo()
{
    putGuardBack();
    for (auto entry = m_journal.entries.rbegin(); entry != m_journal.entries.rend(); ++entry)
        undoEntry(*entry);
    flushTouchedFolders();

    // The copy of this program stays in the launcher's place until all the rest is as it was. The
    // old launcher may have stayed as well: it is not replaced by itself, for it may run.
    const std::string &name = m_journal.launcher;
    if (sumOf(at(name)) != m_journal.oldSum) {
        if (sumOf(oldAt(name)) != m_journal.oldSum) {
            throw Failure(ExitCode::RollBackFailed,
                          "l'ancien programme " + name + " a disparu ou a changé");
        }
        moveOver(oldAt(name), at(name));
    }
    flush(m_folder);
    forget();
}

/// What is half undone starts neither of the launchers, and something must be there that mends it.
void Swap::putGuardBack() const
{
    const std::string place = at(m_journal.launcher);
    const std::string sum = sumOf(place);
    if (sum == m_journal.guardSum || sum == m_journal.oldSum)
        return;
    for (const std::string &name : {kGuard, kSpareGuard}) {
        if (sumOf(m_folder + name) != m_journal.guardSum)
            continue;
        moveOver(m_folder + name, place);
        flush(m_folder);
        return;
    }
}

void Swap::undoEntry(const Journal::Entry &entry)
{
    const std::string &name = entry.name;
    switch (entry.step) {
    case Journal::Step::MakeFolder: {
        const Error error = attempt([&] { return Platform::removeFolder(at(name)); });
        const bool isGone = !error || error.kind == Error::Kind::Missing;
        // Somebody else's file in it may keep it.
        if (!isGone && error.kind != Error::Kind::NotEmpty)
            fail("impossible de supprimer le dossier", at(name), error);
        break;
    }
    case Journal::Step::Add:
        // Where it still waits, a file of its name is somebody else's.
        if (!exists(newAt(name)) && exists(at(name)))
            move(at(name), newAt(name));
        break;
    case Journal::Step::Replace:
        if (!exists(oldAt(name)))
            break;
        if (exists(at(name))) {
            // Both are there only where somebody else made one since: it gives way.
            if (exists(newAt(name)))
                remove(newAt(name));
            move(at(name), newAt(name));
        }
        move(oldAt(name), at(name));
        break;
    case Journal::Step::Remove:
        if (!exists(oldAt(name)))
            break;
        makeFoldersOf(name);
        // A file that somebody else made since gives way here, too.
        remove(at(name));
        move(oldAt(name), at(name));
        break;
    }
}

/// Those that finish() removed before it failed.
void Swap::makeFoldersOf(const std::string &name) const
{
    const std::string folder(FileName::folderOf(name));
    if (folder.empty() || exists(at(folder)))
        return;
    makeFoldersOf(folder);
    makeFolder(at(folder));
}

// --- Mending

bool Swap::isPending(const std::string &folder)
{
    Entry journal{};
    Entry done{};
    const bool unknown = bool(Platform::findEntry(folder + kJournal, journal)) ||
                         bool(Platform::findEntry(folder + kDone, done));
    return unknown || journal != Entry::Nothing || done != Entry::Nothing;
}

Swap::Mended Swap::mend()
{
    const bool mustFinish = exists(m_folder + kDone);
    if (!mustFinish && !exists(m_folder + kJournal)) {
        forget();
        return Mended::Nothing;
    }
    try {
        const std::string path = m_folder + (mustFinish ? kDone : kJournal);
        std::string text;
        if (const Error error =
                attempt([&] { return Platform::readFile(path, Journal::kLongestText, text); }))
            fail("impossible de lire", path, error);
        m_journal = Journal::parse(text);
        return mendByJournal(mustFinish);
    } catch (const Failure &failure) {
        throw Failure(ExitCode::RollBackFailed, failure.text);
    }
}

/// What stands in the launcher's place tells whether somebody has installed one by hand meanwhile,
/// of which the journal knows nothing. That one stays, if all its files are there: a single file
/// may as well be what a copy left that broke off.
Swap::Mended Swap::mendByJournal(bool mustFinish)
{
    const std::string sum = sumOf(at(m_journal.launcher));
    const bool isNew = sum == m_journal.newSum;
    const bool isOld = !isNew && sum == m_journal.oldSum;
    const bool isForeign = !isNew && !isOld && !sum.empty() && sum != m_journal.guardSum;
    if (isForeign && isWhole()) {
        forget();
        return Mended::Obsolete;
    }
    if (isNew && !mustFinish && isWhole())
        mustFinish = true;
    // Nothing of the replacement brings the old one there while the journal is to be finished.
    if (mustFinish && !isOld && hasNewLauncher()) {
        try {
            finish();
            return Mended::Finished;
        } catch (const Failure &) {
            // What is there still can be finished by the next start, what was lost by none.
            if (hasNewLauncher())
                throw;
        }
    }
    if (exists(m_folder + kDone))
        move(m_folder + kDone, m_folder + kJournal);
    undo();
    return Mended::Undone;
}

/// The journal goes first, and keeps what is staged where it cannot go: without it, undoing would
/// take the wrong files for the new ones.
void Swap::forget() const
{
    for (const std::string &journal : {kDone, kJournal})
        remove(m_folder + journal);
    removeTree(m_folder + kWork);
}

// --- Steps

Entry Swap::entryAt(const std::string &path) const
{
    Entry entry{};
    if (const Error error = attempt([&] { return Platform::findEntry(path, entry); }))
        fail("impossible d'examiner", path, error);
    return entry;
}

bool Swap::exists(const std::string &path) const
{
    return entryAt(path) != Entry::Nothing;
}

void Swap::makeFolder(const std::string &path) const
{
    if (const Error error = attempt([&] { return Platform::makeFolder(path); }))
        fail("impossible de créer le dossier", path, error);
}

void Swap::move(const std::string &from, const std::string &to) const
{
    if (const Error error = attempt([&] { return Platform::rename(from, to); }))
        fail("impossible de déplacer", from, error);
}

void Swap::moveOver(const std::string &from, const std::string &to) const
{
    // Where no copy of this program could be started elsewhere it stands in the launcher's place
    // itself. It leaves that moment which some volumes know as well.
    bool isAside = false;
    const auto stepAside = [&] {
        remove(m_folder + kAside);
        if (exists(to)) {
            move(to, m_folder + kAside);
            isAside = true;
        }
    };
    if (Platform::mustStepAside(to))
        stepAside();
    Error error = attempt([&] { return Platform::replace(from, to); });
    if (error.kind == Error::Kind::Exists || error.kind == Error::Kind::Unsupported) {
        // Such a volume leaves a moment with no file of this name. "LauncherUpdater.exe" is in its
        // place then, and mends it.
        stepAside();
        error = attempt([&] { return Platform::rename(from, to); });
    }
    if (error) {
        // What stood there, or rather this program than nothing. Neither replaces anything.
        if (isAside)
            Platform::rename(m_folder + kAside, to);
        Platform::rename(m_folder + kSpareGuard, to);
        fail("impossible de remplacer", to, error);
    }
}

void Swap::remove(const std::string &path) const
{
    const Error error = attempt([&] { return Platform::removeFile(path); });
    if (error && error.kind != Error::Kind::Missing)
        fail("impossible de supprimer", path, error);
}

void Swap::flush(const std::string &folder) const
{
    if (const Error error = attempt([&] { return Platform::flushFolder(folder); }))
        fail("impossible d'écrire dans le dossier", folder, error);
}

void Swap::flushTouchedFolders() const
{
    std::set<std::string> touched{{}};
    for (const Journal::Entry &entry : m_journal.entries)
        touched.emplace(FileName::folderOf(entry.name));
    for (const std::string &folder : touched) {
        for (const std::string &path : {at(folder), newAt(folder), oldAt(folder)}) {
            // New folders are gone when all is undone.
            if (entryAt(path) == Entry::Folder)
                flush(path);
        }
    }
}

Error Swap::attempt(const std::function<Error()> &call) const
{
    return retried(m_retryFor, call);
}
