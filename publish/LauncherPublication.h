#pragma once

#include <QString>

class Workshop;

/// A new launcher: the signed archive that "scripts/windows package" makes.
struct LauncherPublication
{
    QString archive;
    QString notes; ///< what players read before they accept it
    bool isRequired = false;

    /// Makes a generation that offers it; returns its number. Throws a Problem for every archive
    /// that players' updater programs would refuse, and for one that asks another server.
    QString make(const Workshop &workshop) const;
};
