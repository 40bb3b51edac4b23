#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What a replacement of files consists of, written to the disk before its first step. Where each
/// file lies tells how far it came: undoing and finishing need to know no more, and may themselves
/// be interrupted.
struct Journal
{
    enum class Step {
        MakeFolder, ///< one that the old version did not have
        Replace,    ///< a file that both versions have
        Add,        ///< a file of the new version alone
        Remove      ///< a file of the old version alone
    };
    struct Entry
    {
        Step step{};
        std::string name;
    };

    static constexpr size_t kLongestText = 2ull * 1024 * 1024;

    /// The launcher's program: replaced by steps of its own, so it is in no entry.
    std::string launcher;
    /// The SHA-256 sums of its old file and of its new one, of which one is started at the end, and
    /// of what stands in its place meanwhile. With any other sum it is somebody else's.
    std::string oldSum;
    std::string newSum;
    std::string guardSum;
    std::vector<Entry> entries;

    /// Throws a Failure for what text() did not write: nobody moves files by a damaged journal.
    static Journal parse(std::string_view text);
    std::string text() const;
};
