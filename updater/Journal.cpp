#include "updater/Journal.h"

#include "updater/Failure.h"
#include "updater/FileName.h"
#include "updater/Sha256.h"

#include <array>

namespace {

constexpr std::string_view kHeader = "veyra-journal 1\n";
constexpr std::string_view kLauncher = "lanceur ";
constexpr std::string_view kOldSum = "ancien ";
constexpr std::string_view kNewSum = "nouveau ";
constexpr std::string_view kGuardSum = "garde ";
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
std::string takeLine(std::string_view &text, std::string_view start)
{
    const size_t end = text.find('\n');
    if (end == std::string_view::npos || !text.starts_with(start))
        throw damaged();
    std::string rest(text.substr(start.size(), end - start.size()));
    text.remove_prefix(end + 1);
    return rest;
}

std::string takeName(std::string_view &text, std::string_view start)
{
    std::string name = takeLine(text, start);
    if (!isAllowed(name))
        throw damaged();
    return name;
}

std::string takeSum(std::string_view &text, std::string_view start)
{
    std::string sum = takeLine(text, start);
    if (!Sha256::isSum(sum))
        throw damaged();
    return sum;
}

} // namespace

Journal Journal::parse(std::string_view text)
{
    if (!text.starts_with(kHeader))
        throw damaged();
    text.remove_prefix(kHeader.size());

    Journal journal;
    journal.launcher = takeName(text, kLauncher);
    journal.oldSum = takeSum(text, kOldSum);
    journal.newSum = takeSum(text, kNewSum);
    journal.guardSum = takeSum(text, kGuardSum);
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
    std::string result = std::string(kHeader);
    for (const auto &[start, value] :
         {std::pair(kLauncher, &launcher), std::pair(kOldSum, &oldSum), std::pair(kNewSum, &newSum),
          std::pair(kGuardSum, &guardSum)})
        result += std::string(start) + *value + "\n";
    for (const Entry &entry : entries)
        result += std::string(kSteps[size_t(entry.step)]) + entry.name + "\n";
    return result + std::string(kEnd);
}
