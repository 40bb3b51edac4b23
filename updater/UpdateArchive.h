#pragma once

#include "updater/Signature.h"
#include "updater/UpdateList.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct zip;

/// What an update is measured against.
struct UpdateTerms
{
    std::vector<UpdateKey> keys; ///< none: every archive is refused
    std::string target;
    /// The update must be newer than each of them.
    std::vector<std::string> versions;
};

/// A downloaded update, opened once: what was checked is what is unpacked. Nobody trusts it before
/// its list is found signed, and no file of it before its sum is found in the list.
class UpdateArchive
{
public:
    using Sink = std::function<void(const char *bytes, size_t count)>;

    /// Throws a Failure unless everything is as it should be that can be told without unpacking.
    /// `retryFor` is how long another program may hold the archive.
    UpdateArchive(const std::string &path, const UpdateTerms &terms,
                  std::chrono::milliseconds retryFor = {});
    ~UpdateArchive();
    UpdateArchive(const UpdateArchive &) = delete;
    UpdateArchive &operator=(const UpdateArchive &) = delete;

    const UpdateList &list() const { return m_list; }
    /// The signed text itself, which is installed with the files.
    const std::string &listText() const { return m_listText; }
    const std::string &signatureText() const { return m_signatureText; }

    /// Hands the content of a file of the list over piece by piece; throws a Failure at the end if
    /// it was not what the list promises, and before more than that is handed over.
    void extract(const UpdateList::File &file, const Sink &sink) const;

private:
    struct Closer
    {
        void operator()(zip *archive) const;
    };

    void open(const std::string &path, std::chrono::milliseconds retryFor);
    void readEntries();
    std::string readSmallEntry(std::string_view name, size_t limit) const;
    void checkTerms(const UpdateTerms &terms) const;
    void checkCoverage() const;

    std::unique_ptr<zip, Closer> m_zip;
    std::map<std::string, std::uint64_t, std::less<>> m_entries; ///< the number of each name
    std::string m_listText;
    std::string m_signatureText;
    UpdateList m_list;
};
