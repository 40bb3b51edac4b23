#pragma once

#include <QMap>
#include <QString>

class Workshop;

/// The launchers that were ever online ("lanceurs.json"). Players may have them, and the network
/// may keep their archives, whatever is served now.
namespace ServedLaunchers {

/// SHA-256 of their archives in lower-case hexadecimal, by version; empty where it is not known.
QMap<QString, QString> sums(const Workshop &workshop);

/// To be called before the draft goes online.
void rememberDraft(const Workshop &workshop);

} // namespace ServedLaunchers
