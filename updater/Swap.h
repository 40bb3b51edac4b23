#pragma once

#include "updater/Journal.h"
#include "updater/Platform.h"

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

class UpdateArchive;
struct UpdateList;

/// Replaces the files in the launcher's folder, all of them or none. Whatever ends it, what starts
/// under the launcher's name afterwards is the old launcher with all its files, the new one with
/// all of its, or in between a copy of this program, which calls mend() and starts the launcher
/// then.
///
/// Everything it needs lies in the folder ".veyra-maj" in the launcher's:
///
///     nouveau/       the new files, until they are at their places
///     ancien/        the old ones that were moved aside, and a copy of the launcher's program
///     garde          this program, for the launcher's place
///     garde-2        once more: where the volume loses a launcher that it was to replace, nothing
///                    is undone before this program stands in its place again
///     journal.txt    from the moment on where everything is staged: the replacement is undone
///     termine.txt    the same journal, renamed when all files but the launcher are replaced: the
///                    replacement is finished
class Swap
{
public:
    using Progress = std::function<void(int percent)>;

    /// `retryFor` is how long a step waits for another program (a virus scanner, say) to let go.
    Swap(std::string folder, std::chrono::milliseconds retryFor);

    /// Whether an earlier replacement was interrupted.
    static bool isPending(const std::string &folder);

    enum class Mended { Nothing, Undone, Finished, Obsolete };
    /// Undoes or finishes what an earlier run left, and clears its remains. Throws a Failure when
    /// it cannot; then nothing else may be done in the folder. Obsolete: somebody has put another
    /// launcher there since, with all the files of its list; it stays.
    Mended mend();
    /// The launcher's file name as the interrupted replacement knew it; after a mend().
    const std::string &mendedLauncher() const { return m_journal.launcher; }

    /// Stages the new files. `installed` is the list of the old version, null if there is none.
    /// Throws a Failure and leaves nothing behind.
    void prepare(const UpdateArchive &archive, const UpdateList *installed,
                 const std::string &launcher, const std::string &ownExecutable,
                 const Progress &progress);
    /// After prepare(). Throws a Failure with RolledBack or RollBackFailed.
    void perform();
    /// Removes what prepare() staged.
    void discard();

private:
    std::string at(const std::string &name) const;
    std::string newAt(const std::string &name) const;
    std::string oldAt(const std::string &name) const;

    void plan(const UpdateArchive &archive, const UpdateList *installed,
              const std::string &launcher);
    void planFile(const std::string &name);
    void planFoldersOf(const std::string &name);
    void stage(const UpdateArchive &archive, const std::string &ownExecutable,
               const Progress &progress);
    std::string sumOf(const std::string &path) const;
    void checkSpace(const UpdateArchive &archive, const std::string &ownExecutable) const;
    void makeWorkFoldersFor(const std::string &root, const std::string &name);
    /// Returns the SHA-256 sum of what was copied.
    std::string copy(const std::string &from, const std::string &to) const;
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE *)>;
    File openIfThere(const std::string &path) const;
    void write(const std::string &path, const std::string &content) const;
    void create(Platform::OutputFile &file, const std::string &path) const;
    void writeJournal();

    void replaceAll();
    bool hasNewLauncher() const;
    bool isWhole() const;
    Mended mendByJournal(bool mustFinish);
    void finish();
    void undo();
    void putGuardBack() const;
    void undoEntry(const Journal::Entry &entry);
    void makeFoldersOf(const std::string &name) const;
    void forget() const;

    Platform::Entry entryAt(const std::string &path) const;
    bool exists(const std::string &path) const;
    void makeFolder(const std::string &path) const;
    void move(const std::string &from, const std::string &to) const;
    void moveOver(const std::string &from, const std::string &to) const;
    void remove(const std::string &path) const;
    void flush(const std::string &folder) const;
    void flushTouchedFolders() const;
    Platform::Error attempt(const std::function<Platform::Error()> &call) const;

    std::string m_folder;
    std::chrono::milliseconds m_retryFor;
    Journal m_journal;
    std::set<std::string> m_workFolders;
};
