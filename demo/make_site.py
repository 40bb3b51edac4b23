#!/usr/bin/env python3
"""Makes the sample site with veyra-publier: a sample client, news, the server's state, and with
--update a newer launcher.

The site is FOLDER/site, and FOLDER the workshop that it is published from. The client's data are the
same bytes on every machine. A second call with the same programs and options finds all of it up to
date.
"""

import argparse
import hashlib
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import zipfile

MEGABYTE = 1024 * 1024

# Name and size of the client's data files, in MB. The bytes do not compress, like those of a real
# client, so the archive is about as large as their sum.
DATA_FILES = {
    "contenu/cartes/Forêt des Échos.map": 9,
    "contenu/cartes/Île aux Cèdres.map": 7,
    "contenu/cartes/Château d'Hiver.map": 6,
    "contenu/musique/thème principal.ogg": 5,
    "contenu/musique/été.ogg": 3,
    "contenu/graphismes/créatures/bœuf.pak": 4,
    "contenu/graphismes/décors.pak": 5,
    "DofusInvoker.swf": 1,
}
TEXT_FILES = {
    "Lisez-moi d'abord.txt": "Client d'exemple du launcher Veyra.\n"
                             "« Dofus.exe » montre seulement qu'il a été lancé.\n",
    "contenu/langues/français.json": '{"bienvenue": "Bienvenue à Veyra !"}\n',
    "contenu/langues/vide.json": "",
}
GAME_PROGRAM = "Dofus.exe"

PLAYERS = 128

# The oldest first, each with what `nouvelles ajouter` takes.
NEWS = [
    ["Le saviez-vous ?", "Le bouton « Discord » ouvre le salon de la communauté.", "--sans-date"],
    ["Équilibrage des métiers",
     "Bûcherons et pêcheurs récoltent désormais un peu plus vite en début de partie.",
     "--date", "09/05"],
    ["Maintenance jeudi", "De <b>6 h à 7 h</b>, le serveur sera brièvement indisponible.",
     "--sans-date"],
    ["Ouverture du serveur Veyra",
     "Les portes sont ouvertes : créez votre personnage et rejoignez-nous à la taverne pour le "
     "premier tournoi.", "--date", "12/05"],
]

NOTES = ("• Téléchargement du client plus rapide\n"
         "• Nouvelle page d'actualités\n"
         "• Corrections diverses\n")


def data_bytes(name, size):
    """Bytes that look random and depend on the name alone."""
    return hashlib.shake_256(name.encode()).digest(size)


def write(path, content):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)


def make_client(folder, game_program):
    for name, text in TEXT_FILES.items():
        write(folder / name, text.encode())
    for name, megabytes in DATA_FILES.items():
        write(folder / name, data_bytes(name, megabytes * MEGABYTE))
    write(folder / GAME_PROGRAM, game_program.read_bytes())


def make_launcher_archive(path, launcher):
    """As scripts/windows makes it for players, but not packed as small."""
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED, compresslevel=1) as archive:
        for file in sorted(launcher.rglob("*")):
            if file.is_file():
                archive.write(file, file.relative_to(launcher))


def target_of(launcher):
    """The system of a launcher in a folder, by the list of its files."""
    return (launcher / "liste.txt").read_text().splitlines()[2]


def make_site(arguments, work):
    """In a new workshop; `work` is for what it is made of."""

    def publisher(*command):
        subprocess.run([arguments.publisher, "--atelier", arguments.folder, *command],
                       capture_output=True, check=True)

    keys = []
    if arguments.update:
        keys = ["--cle", arguments.key, "--cible", target_of(arguments.update)]
    publisher("init", arguments.base_url, *keys)
    make_client(work / "client", arguments.game)
    publisher("client", work / "client")
    if arguments.update:
        make_launcher_archive(work / "launcher.zip", arguments.update)
        (work / "notes.txt").write_text(NOTES, encoding="utf-8")
        publisher("lanceur", work / "launcher.zip", "--notes", work / "notes.txt")
    for item in NEWS:
        publisher("nouvelles", "ajouter", *item)
    publisher("etat", "en-ligne", str(PLAYERS))
    publisher("mettre-en-ligne")


def key_of(arguments):
    """Changes with whatever the site is made from: programs, addresses, the newer launcher."""
    key = hashlib.sha256(arguments.base_url.encode())
    sources = [pathlib.Path(__file__), arguments.publisher, arguments.game]
    if arguments.update:
        sources += [arguments.key, arguments.update / "liste.txt"]
    for source in sources:
        key.update(hashlib.sha256(source.read_bytes()).digest())
    return key.hexdigest()


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--publisher", type=pathlib.Path, required=True, help="veyra-publier")
    parser.add_argument("--game", type=pathlib.Path, required=True,
                        help="the program that goes into the client as Dofus.exe")
    parser.add_argument("--base-url", required=True, help="where the site is served, with a /")
    parser.add_argument("--update", type=pathlib.Path, metavar="FOLDER",
                        help="offer a newer launcher: the one in FOLDER, with its signed list")
    parser.add_argument("--key", type=pathlib.Path, help="the public key of that signature")
    arguments = parser.parse_args()
    if arguments.update and not arguments.key:
        parser.error("--update wants --key")
    files = [arguments.publisher, arguments.game]
    if arguments.update:
        files += [arguments.key, arguments.update / "liste.txt"]
    for file in files:
        if not file.is_file():
            parser.error(f"there is no file {file}")
    if not re.fullmatch("https?://[^/]+/", arguments.base_url):
        parser.error(f"{arguments.base_url} is no address of a site")
    return arguments


def main():
    arguments = parse_arguments()
    folder = arguments.folder
    stamp = folder.with_name(folder.name + ".made-from")
    key = key_of(arguments)

    up_to_date = stamp.is_file() and stamp.read_text() == key
    if not up_to_date:
        stamp.unlink(missing_ok=True)
        shutil.rmtree(folder, ignore_errors=True)
        with tempfile.TemporaryDirectory(dir=folder.parent) as work:
            make_site(arguments, pathlib.Path(work))
        stamp.write_text(key)

    size = (folder / "site" / "client" / "DofusClient.zip").stat().st_size / MEGABYTE
    print(f"{folder}: {'up to date' if up_to_date else 'made'}, client archive {size:.1f} MB")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except subprocess.CalledProcessError as error:
        sys.exit(f"veyra-publier failed with exit code {error.returncode}:\n"
                 f"{error.stderr.decode(errors='replace')}")
