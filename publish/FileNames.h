#pragma once

#include <QString>

/// The names that files of the client may have on players' machines: relative to the game folder,
/// with "/" between folders.
namespace FileNames {

/// Why Windows, or the launcher, cannot have a file of this name, as the end of a sentence; empty
/// where they can.
QString problem(const QString &name);

/// Two names are the same file on Windows or on a Mac when these are equal.
QString folded(const QString &name);

} // namespace FileNames
