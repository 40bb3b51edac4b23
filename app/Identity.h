#pragma once

/// Who the application is and how it looks where the style sheets say nothing.
namespace Identity {

/// Sets name, version, organisation, icon, style, palette and French menus, in this order. Once, on
/// the GUI thread, before any window: the configuration file's place hangs on the names, and the
/// style brings a palette of its own.
void apply();

} // namespace Identity
