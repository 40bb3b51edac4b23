#!/bin/sh
# The sample of the updater program, which on a player's machine replaces the launcher by the
# downloaded one. It changes nothing: it records beside itself what it was called with, and says so.
# It is installed as "LauncherUpdater.exe" beside the launcher.
set -eu

record="$(dirname "$0")/mise-a-jour-demandee.txt"

{
    echo "Nombre d'arguments : $#"
    for argument in "$@"; do
        echo "Argument : $argument"
    done
} >"$record.partial"
mv "$record.partial" "$record"

echo "LauncherUpdater.exe : mise à jour demandée avec"
for argument in "$@"; do
    echo "    $argument"
done
echo "(programme d'exemple : rien n'est remplacé)"
