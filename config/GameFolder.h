#pragma once

#include <QLatin1StringView>

/// What lies where in the game folder.
namespace GameFolder {

/// The client lies in the game folder itself or in this folder of it, as its archive has it.
inline constexpr QLatin1StringView kClientSubfolder{"/Client 2.51"};

} // namespace GameFolder
