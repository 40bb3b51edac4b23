#pragma once

#include "publish/Outcome.h"

#include <QStringList>

struct CommandLine;

/// "essayer": the site on this machine alone, before players see it.
namespace Rehearsal {

QStringList valueOptions();
QStringList flags();

/// Serves until Ctrl+C, which ends it by a Problem.
Outcome run(const CommandLine &line);

} // namespace Rehearsal
