#pragma once

#include "publish/Outcome.h"

#include <QStringList>

struct CommandLine;

/// "envoyer": the site that is online here goes to another folder or another machine. What lies
/// there is like a workshop's folder, and complete at any moment:
/// - publications/NNNN-ID/: whole sites; beside each NNNN-ID.liste, its files' sums
/// - publications/.en-cours: the one that is being sent, with the list of what it is to be
/// - .verrou-...: while somebody sends, see DestinationLock
/// - .morceau: over sftp, the file that is on its way
/// - site: link to the one that the web server serves, switched last
/// - etat/status.json: sent where none is, or an older one: the state belongs to whoever tells it
namespace Sending {

Outcome run(const CommandLine &line);

} // namespace Sending
