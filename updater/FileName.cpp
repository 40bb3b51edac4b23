#include "updater/FileName.h"

#include <algorithm>
#include <array>

namespace {

// Together with a folder of 200 characters still far from what programs without long paths bear.
constexpr size_t kLongestName = 200;

// ':' is a drive or a stream of NTFS, '~' may be the short name of another file.
constexpr std::string_view kForbiddenCharacters = "<>:\"|?*\\~";

constexpr std::array<std::string_view, 7> kDevices{"con",    "prn",     "aux",   "nul",
                                                   "conin$", "conout$", "clock$"};
constexpr std::array<std::string_view, 2> kNumberedDevices{"com", "lpt"};

// The game and this program's own files: an update has no business there.
constexpr std::array<std::string_view, 2> kForeignFolders{"client", FileName::kWorkFolder};
constexpr std::array<std::string_view, 2> kOwnFiles{FileName::kList, FileName::kSignature};

template <typename Names> bool contains(const Names &names, std::string_view name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// "nul", but also "nul.txt" and "nul .txt", which Windows takes for the same device.
bool isDevice(std::string_view foldedPart)
{
    std::string_view stem = foldedPart.substr(0, foldedPart.find('.'));
    while (!stem.empty() && stem.back() == ' ')
        stem.remove_suffix(1);
    if (contains(kDevices, stem))
        return true;
    return stem.size() == 4 && contains(kNumberedDevices, stem.substr(0, 3)) && stem[3] >= '0' &&
           stem[3] <= '9';
}

std::string_view problemOfPart(std::string_view part)
{
    if (part.empty())
        return "élément vide dans le chemin";
    if (part == "." || part == "..")
        return "chemin relatif";
    if (part.back() == '.' || part.back() == ' ')
        return "point ou espace final";
    if (part.front() == ' ')
        return "espace initial";
    if (isDevice(FileName::folded(part)))
        return "nom réservé par Windows";
    return {};
}

} // namespace

std::string_view FileName::problem(std::string_view name)
{
    if (name.empty())
        return "nom vide";
    if (name.size() > kLongestName)
        return "nom trop long";
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f)
            return "caractère de contrôle";
        // Which letters are the same by case, and which are spelt in two ways, is told differently
        // by every file system.
        if (byte > 0x7f)
            return "caractère hors ASCII";
        if (kForbiddenCharacters.find(c) != std::string_view::npos)
            return "caractère interdit";
    }
    if (name.front() == '/')
        return "chemin absolu";

    for (size_t start = 0; start <= name.size();) {
        const size_t end = std::min(name.find('/', start), name.size());
        if (const std::string_view found = problemOfPart(name.substr(start, end - start));
            !found.empty())
            return found;
        start = end + 1;
    }

    const std::string lower = folded(name);
    if (contains(kOwnFiles, lower) ||
        contains(kForeignFolders, std::string_view(lower).substr(0, lower.find('/'))))
        return "nom réservé au launcher";
    return {};
}

std::string FileName::folded(std::string_view name)
{
    std::string result(name);
    for (char &c : result) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return result;
}

std::string_view FileName::folderOf(std::string_view name)
{
    const size_t slash = name.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : name.substr(0, slash);
}

std::string FileName::quoted(std::string_view name)
{
    constexpr size_t kShown = 120;
    std::string shown(name.substr(0, kShown));
    for (char &c : shown) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7f)
            c = '?';
    }
    return "« " + shown + (name.size() > kShown ? "… »" : " »");
}
