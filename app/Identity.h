#pragma once

#include <QPalette>

/// Who the application is and how it looks where the style sheets say nothing.
namespace Identity {

/// Sets name, version, organisation and icon. The configuration file's place depends on them.
void apply();

/// The application-wide dark palette. Needs an application object.
QPalette darkPalette();

} // namespace Identity
