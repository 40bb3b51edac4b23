#include "updater/Journal.h"

#include "updater/Failure.h"
#include "updater/FileName.h"

#include <array>

namespace {

constexpr std::string_view kHeader = "veyra-journal 1\n";
constexpr std::string_view kLauncher = "lanceur ";
constexpr std::string_view kEnd = "fin\n";

// In the order of Journal::Step.
constexpr std::array<std::string_view, 4> kSteps{"dossier ", "remplace ", "ajoute ", "retire "};

Failure damaged()
{
    return Failure(ExitCode::RollBackFailed, "le journal de la mise à jour est abîmé");
}

bool isAllowed(std::string_view name)
{
    return name == FileName::kList || name == FileName::kSignature ||
           FileName::problem(name).empty();
}

/// What follows `start` in the next line.
std::string takeName(std::string_view &text, std::string_view start)
{
    const size_t end = text.find('\n');
    if (end == std::string_view::npos)
        throw damaged();
    std::string name(text.substr(start.size(), end - start.size()));
    if (!isAllowed(name))
        throw damaged();
    text.remove_prefix(end + 1);
    return name;
}

} // namespace

Journal Journal::parse(std::string_view text)
{
    if (!text.starts_with(kHeader))
        throw damaged();
    text.remove_prefix(kHeader.size());
    if (!text.starts_with(kLauncher))
        throw damaged();

    Journal journal;
    journal.launcher = takeName(text, kLauncher);
    while (text != kEnd) {
        size_t step = 0;
        while (step < kSteps.size() && !text.starts_with(kSteps[step]))
            ++step;
        if (step == kSteps.size())
            throw damaged();
        journal.entries.push_back({Step(step), takeName(text, kSteps[step])});
    }
    return journal;
}

std::string Journal::text() const
{
    std::string result = std::string(kHeader) + std::string(kLauncher) + launcher + "\n";
    for (const Entry &entry : entries)
        result += std::string(kSteps[size_t(entry.step)]) + entry.name + "\n";
    return result + std::string(kEnd);
}
