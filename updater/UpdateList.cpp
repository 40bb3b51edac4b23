#include "updater/UpdateList.h"

#include "updater/Failure.h"
#include "updater/FileName.h"
#include "updater/Sha256.h"
#include "updater/Version.h"

#include <algorithm>
#include <charconv>
#include <set>

namespace {

constexpr std::string_view kHeader = "veyra-lanceur 1";
constexpr size_t kLongestTarget = 32;

Failure refusedLine(size_t number, std::string_view reason)
{
    return Failure::refused("liste.txt, ligne " + std::to_string(number) + " : " +
                            std::string(reason));
}

/// Hands out one line after the other. The last one must end with a line feed as well.
class Lines
{
public:
    explicit Lines(std::string_view text)
        : m_rest(text)
    {
    }

    bool atEnd() const { return m_rest.empty(); }
    size_t number() const { return m_number; }

    std::string_view next()
    {
        ++m_number;
        const size_t end = m_rest.find('\n');
        if (end == std::string_view::npos)
            throw refusedLine(m_number, "ligne absente ou incomplète");
        const std::string_view line = m_rest.substr(0, end);
        m_rest.remove_prefix(end + 1);
        return line;
    }

private:
    std::string_view m_rest;
    size_t m_number = 0;
};

bool isTarget(std::string_view text)
{
    return !text.empty() && text.size() <= kLongestTarget &&
           std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c == '-';
           });
}

/// Cuts off what stands before the next blank.
std::string_view takeWord(std::string_view &line)
{
    const size_t end = std::min(line.find(' '), line.size());
    const std::string_view word = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    return word;
}

UpdateList::File parseFile(std::string_view line, size_t number)
{
    UpdateList::File file;
    file.sha256 = takeWord(line);
    if (!Sha256::isSum(file.sha256))
        throw refusedLine(number, "somme SHA-256 invalide");

    const std::string_view size = takeWord(line);
    const char *const end = size.data() + size.size();
    const auto [parsed, error] = std::from_chars(size.data(), end, file.bytes);
    const bool hasNeedlessZero = size.size() > 1 && size.front() == '0';
    if (size.empty() || error != std::errc() || parsed != end || hasNeedlessZero)
        throw refusedLine(number, "taille invalide");
    if (file.bytes > UpdateList::kMostBytes)
        throw refusedLine(number, "plus de 1 Go au total");

    file.name = line;
    if (const std::string_view problem = FileName::problem(file.name); !problem.empty()) {
        throw refusedLine(number, "nom de fichier refusé, " + FileName::quoted(file.name) + " : " +
                                      std::string(problem));
    }
    return file;
}

/// No name twice by case, and none that is a file here and a folder there.
void checkForClashes(const std::vector<UpdateList::File> &files)
{
    std::set<std::string> names;
    for (const UpdateList::File &file : files) {
        if (!names.insert(FileName::folded(file.name)).second) {
            throw Failure::refused("liste.txt : nom en double, à la casse près : " +
                                   FileName::quoted(file.name));
        }
    }
    for (const UpdateList::File &file : files) {
        const std::string folded = FileName::folded(file.name);
        for (auto folder = FileName::folderOf(folded); !folder.empty();
             folder = FileName::folderOf(folder)) {
            if (names.contains(std::string(folder))) {
                throw Failure::refused("liste.txt : à la fois fichier et dossier : " +
                                       FileName::quoted(folder));
            }
        }
    }
}

} // namespace

UpdateList UpdateList::parse(std::string_view text)
{
    if (text.size() > kLongestText)
        throw Failure::refused("liste.txt est trop longue");

    Lines lines(text);
    UpdateList list;
    if (lines.next() != kHeader)
        throw refusedLine(lines.number(), "« veyra-lanceur 1 » attendu");
    list.version = lines.next();
    if (!Version::isValid(list.version))
        throw refusedLine(lines.number(), "numéro de version invalide");
    list.target = lines.next();
    if (!isTarget(list.target))
        throw refusedLine(lines.number(), "système invalide");

    std::uint64_t total = 0;
    while (!lines.atEnd()) {
        const std::string_view line = lines.next();
        File file = parseFile(line, lines.number());
        if (!list.files.empty() && file.name <= list.files.back().name)
            throw refusedLine(lines.number(), "noms en double ou non triés");
        total += file.bytes;
        if (total > kMostBytes)
            throw refusedLine(lines.number(), "plus de 1 Go au total");
        if (list.files.size() == kMostFiles)
            throw refusedLine(lines.number(), "plus de 2000 fichiers");
        list.files.push_back(std::move(file));
    }
    if (list.files.empty())
        throw Failure::refused("liste.txt ne nomme aucun fichier");
    checkForClashes(list.files);
    return list;
}

std::string UpdateList::text() const
{
    std::vector<const File *> sorted;
    sorted.reserve(files.size());
    for (const File &file : files)
        sorted.push_back(&file);
    std::sort(sorted.begin(), sorted.end(),
              [](const File *left, const File *right) { return left->name < right->name; });

    std::string result = std::string(kHeader) + "\n" + version + "\n" + target + "\n";
    for (const File *file : sorted)
        result += file->sha256 + " " + std::to_string(file->bytes) + " " + file->name + "\n";
    return result;
}

std::uint64_t UpdateList::totalBytes() const
{
    std::uint64_t total = 0;
    for (const File &file : files)
        total += file.bytes;
    return total;
}

const UpdateList::File *UpdateList::find(std::string_view name) const
{
    const std::string folded = FileName::folded(name);
    const auto found = std::find_if(files.begin(), files.end(), [&folded](const File &file) {
        return FileName::folded(file.name) == folded;
    });
    return found == files.end() ? nullptr : &*found;
}
