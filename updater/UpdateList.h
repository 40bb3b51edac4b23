#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// What an update consists of: the content of "liste.txt", which the publisher signs. An installed
/// launcher keeps the list that it came with.
///
///     veyra-lanceur 1
///     1.0.1
///     windows-x64
///     <SHA-256 in lower-case hexadecimal> <bytes> <name>
///
/// in lines that end with a line feed, one for each file, sorted by the bytes of the names.
struct UpdateList
{
    struct File
    {
        std::string sha256;
        std::uint64_t bytes = 0;
        std::string name;
    };

    static constexpr size_t kMostFiles = 2000;
    static constexpr std::uint64_t kMostBytes = 1024ull * 1024 * 1024; ///< of all files together
    static constexpr size_t kLongestText = 1024ull * 1024;

    std::string version;
    std::string target; ///< the system that it is for
    std::vector<File> files;

    /// Throws a Failure for every text that text() would not have written.
    static UpdateList parse(std::string_view text);
    std::string text() const;

    std::uint64_t totalBytes() const;
    /// Null when there is none of this name, whatever the case of its letters.
    const File *find(std::string_view name) const;
};
