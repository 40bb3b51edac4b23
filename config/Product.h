#pragma once

#include <QLatin1StringView>

/// What the launcher calls itself, on the screen and in the path of its settings.
namespace Product {

inline constexpr QLatin1StringView kName{"Veyra Launcher"};
inline constexpr QLatin1StringView kOrganization{"Veyra"};

} // namespace Product
