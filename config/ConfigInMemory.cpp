#include "config/Config.h"

// For programs without a user's settings: reads no file, makes no folder, keeps nothing.

Config::Config() = default;

void Config::save() {}
