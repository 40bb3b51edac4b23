#include "updater/UpdateArchive.h"

#include "updater/Failure.h"
#include "updater/FileName.h"
#include "updater/Retry.h"
#include "updater/Sha256.h"
#include "updater/Version.h"

#include <zip.h>

#include <set>

namespace {

constexpr zip_int64_t kMostEntries = 2000;
// What is packed is hardly ever larger than what is not; names and the directory come on top.
constexpr std::uint64_t kLargestArchive = UpdateList::kMostBytes + 16ull * 1024 * 1024;
constexpr size_t kChunk = 128ull * 1024;

/// The name as its bytes stand in the archive, whatever the entry says of their meaning.
std::string entryName(zip_t *archive, zip_uint64_t index)
{
    const char *const name = zip_get_name(archive, index, ZIP_FL_ENC_RAW);
    return name ? name : "";
}

zip_stat_t entryStatus(zip_t *archive, zip_uint64_t index)
{
    constexpr zip_uint64_t kNeeded =
        ZIP_STAT_SIZE | ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD;
    zip_stat_t status{};
    if (zip_stat_index(archive, index, 0, &status) != 0 || (status.valid & kNeeded) != kNeeded)
        throw Failure::refused("archive incohérente : entrée illisible");
    return status;
}

bool isUpdatersOwn(std::string_view name)
{
    return name == FileName::kList || name == FileName::kSignature;
}

} // namespace

void UpdateArchive::Closer::operator()(zip *archive) const
{
    zip_discard(archive);
}

UpdateArchive::UpdateArchive(const std::string &path, const UpdateTerms &terms,
                             std::chrono::milliseconds retryFor)
{
    if (terms.keys.empty())
        throw Failure::refused("ce programme est construit sans clé de mise à jour");
    open(path, retryFor);
    readEntries();
    m_listText = readSmallEntry(FileName::kList, UpdateList::kLongestText);
    m_signatureText = readSmallEntry(FileName::kSignature, Signature::kLongestText);
    Signature::verify(m_listText, m_signatureText, terms.keys);
    m_list = UpdateList::parse(m_listText);
    checkTerms(terms);
    checkCoverage();
}

UpdateArchive::~UpdateArchive() = default;

void UpdateArchive::open(const std::string &path, std::chrono::milliseconds retryFor)
{
    std::FILE *file = nullptr;
    if (const Platform::Error error =
            retried(retryFor, [&] { return Platform::openForReading(path, file); })) {
        throw Failure::refused("archive introuvable ou illisible : " + path + " : " +
                               explained(error, path));
    }

    zip_error_t error;
    zip_error_init(&error);
    // From here on the source closes the file, and the archive the source.
    zip_source_t *const source = zip_source_filep_create(file, 0, -1, &error);
    if (!source) {
        std::fclose(file);
        zip_error_fini(&error);
        throw Failure::refused("archive illisible : " + path);
    }
    zip_stat_t status{};
    if (zip_source_stat(source, &status) != 0 || (status.valid & ZIP_STAT_SIZE) == 0 ||
        status.size > kLargestArchive) {
        zip_source_free(source);
        throw Failure::refused("plus de 1 Go au total");
    }
    m_zip.reset(zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &error));
    if (!m_zip) {
        const std::string reason = zip_error_strerror(&error);
        zip_error_fini(&error);
        zip_source_free(source);
        throw Failure::refused("archive incohérente (" + reason + ")");
    }
}

void UpdateArchive::readEntries()
{
    const zip_int64_t count = zip_get_num_entries(m_zip.get(), 0);
    if (count > kMostEntries)
        throw Failure::refused("plus de 2000 entrées dans l'archive");

    std::set<std::string> names;
    std::uint64_t total = 0;
    for (zip_uint64_t index = 0; index < zip_uint64_t(count); ++index) {
        const std::string name = entryName(m_zip.get(), index);
        const std::string_view problem = isUpdatersOwn(name) ? "" : FileName::problem(name);
        if (!problem.empty()) {
            throw Failure::refused("nom refusé dans l'archive, " + FileName::quoted(name) + " : " +
                                   std::string(problem));
        }
        if (!names.insert(FileName::folded(name)).second) {
            throw Failure::refused("nom en double dans l'archive, à la casse près : " +
                                   FileName::quoted(name));
        }

        const zip_stat_t status = entryStatus(m_zip.get(), index);
        if (status.encryption_method != ZIP_EM_NONE)
            throw Failure::refused("entrée chiffrée dans l'archive : " + FileName::quoted(name));
        if (status.comp_method != ZIP_CM_STORE && status.comp_method != ZIP_CM_DEFLATE) {
            throw Failure::refused("compression non admise dans l'archive : " +
                                   FileName::quoted(name));
        }
        // Each one first: a sum of two could be too large to count.
        if (status.size > UpdateList::kMostBytes || total + status.size > UpdateList::kMostBytes)
            throw Failure::refused("plus de 1 Go au total");
        total += status.size;
        m_entries.emplace(name, index);
    }
}

std::string UpdateArchive::readSmallEntry(std::string_view name, size_t limit) const
{
    const auto entry = m_entries.find(name);
    if (entry == m_entries.end())
        throw Failure::refused("l'archive ne contient pas " + std::string(name));
    const zip_stat_t status = entryStatus(m_zip.get(), entry->second);
    if (status.size > limit)
        throw Failure::refused(std::string(name) + " est trop grand");

    std::string content(size_t(status.size), '\0');
    zip_file_t *const file = zip_fopen_index(m_zip.get(), entry->second, 0);
    const zip_int64_t read = file ? zip_fread(file, content.data(), content.size()) : -1;
    // Only the read beyond its last byte tells whether the content is whole.
    char beyond = 0;
    const bool isWhole = read == zip_int64_t(content.size()) && zip_fread(file, &beyond, 1) == 0;
    if (file)
        zip_fclose(file);
    if (!isWhole)
        throw Failure::refused(std::string(name) + " est abîmé dans l'archive");
    return content;
}

void UpdateArchive::checkTerms(const UpdateTerms &terms) const
{
    if (m_list.target != terms.target) {
        throw Failure::refused("mise à jour pour un autre système : " + m_list.target +
                               " au lieu de " + terms.target);
    }
    for (const std::string &version : terms.versions) {
        if (!Version::isNewer(m_list.version, version)) {
            throw Failure::refused("la version " + m_list.version +
                                   " n'est pas plus récente que la version " + version);
        }
    }
}

void UpdateArchive::checkCoverage() const
{
    std::set<std::string_view> listed{FileName::kList, FileName::kSignature};
    for (const UpdateList::File &file : m_list.files) {
        const auto entry = m_entries.find(file.name);
        if (entry == m_entries.end())
            throw Failure::refused("fichier absent de l'archive : " + FileName::quoted(file.name));
        if (entryStatus(m_zip.get(), entry->second).size != file.bytes) {
            throw Failure::refused("taille différente de celle de liste.txt : " +
                                   FileName::quoted(file.name));
        }
        listed.insert(file.name);
    }
    for (const auto &[name, index] : m_entries) {
        if (!listed.contains(name))
            throw Failure::refused("fichier absent de liste.txt : " + FileName::quoted(name));
    }
}

void UpdateArchive::extract(const UpdateList::File &file, const Sink &sink) const
{
    const Failure damaged = Failure::refused("contenu différent de celui que liste.txt annonce : " +
                                             FileName::quoted(file.name));
    const auto close = [](zip_file_t *opened) { zip_fclose(opened); };
    const std::unique_ptr<zip_file_t, decltype(close)> content(
        zip_fopen_index(m_zip.get(), m_entries.find(file.name)->second, 0), close);
    if (!content)
        throw damaged;

    Sha256 sum;
    std::vector<char> chunk(kChunk);
    std::uint64_t left = file.bytes;
    for (;;) {
        const zip_int64_t read = zip_fread(content.get(), chunk.data(), chunk.size());
        if (read < 0 || std::uint64_t(read) > left)
            throw damaged;
        if (read == 0)
            break;
        sum.add(chunk.data(), size_t(read));
        sink(chunk.data(), size_t(read));
        left -= std::uint64_t(read);
    }

    if (left != 0 || file.sha256 != sum.finish())
        throw damaged;
}
