#pragma once

#include <string_view>

/// Versions as the launcher counts them: numbers with dots between them.
namespace Version {

/// One to four numbers of at most nine digits, without needless zeros.
bool isValid(std::string_view version);

/// Both must be valid. A number that is missing counts as 0: "1.0" and "1.0.0" are the same.
bool isNewer(std::string_view candidate, std::string_view current);

} // namespace Version
