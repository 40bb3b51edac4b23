#pragma once

#include <QString>

/// The launcher's two style sheets. The templates hold numbered placeholders for the colours.
namespace StyleSheets {

QString mainWindowTemplate();
QString settingsDialogTemplate();

/// The sheet of the main window; selects its widgets by object name.
QString mainWindow();

/// The sheet of the settings dialog; selects by class.
QString settingsDialog();

} // namespace StyleSheets
