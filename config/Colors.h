#pragma once

#include <QLatin1StringView>

/// The launcher's colours by what they are used for.
namespace Colors {

inline constexpr QLatin1StringView kDarkest{"#121212"};
inline constexpr QLatin1StringView kPanel{"#1e1e1e"};
inline constexpr QLatin1StringView kText{"#ffffff"};
inline constexpr QLatin1StringView kMuted{"#9e9e9e"};
inline constexpr QLatin1StringView kAccent{"#8bc34a"}; ///< also the green of success
inline constexpr QLatin1StringView kDarkerGreen{"#7cb342"};
inline constexpr QLatin1StringView kGradientEnd{"#689f38"};
inline constexpr QLatin1StringView kError{"#f44336"};
inline constexpr QLatin1StringView kNewsTitle{"#10b981"};

} // namespace Colors
