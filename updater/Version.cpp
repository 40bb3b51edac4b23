#include "updater/Version.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

namespace {

constexpr size_t kMostParts = 4;
constexpr size_t kMostDigits = 9; // fits an int

using Parts = std::array<int, kMostParts>;

std::optional<Parts> parse(std::string_view version)
{
    Parts parts{};
    size_t start = 0;
    for (int &part : parts) {
        const size_t end = std::min(version.find('.', start), version.size());
        const std::string_view digits = version.substr(start, end - start);
        const bool isNumber =
            !digits.empty() && digits.size() <= kMostDigits &&
            std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
        if (!isNumber || (digits.size() > 1 && digits.front() == '0'))
            return std::nullopt;
        std::from_chars(digits.data(), digits.data() + digits.size(), part);
        if (end == version.size())
            return parts;
        start = end + 1;
    }
    return std::nullopt;
}

} // namespace

bool Version::isValid(std::string_view version)
{
    return parse(version).has_value();
}

bool Version::isNewer(std::string_view candidate, std::string_view current)
{
    const std::optional<Parts> left = parse(candidate);
    const std::optional<Parts> right = parse(current);
    return left && right && *left > *right;
}
