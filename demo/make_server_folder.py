#!/usr/bin/env python3
"""Makes the sample server folder: all that the launcher asks a server for.

    index.html                     what the website button opens
    api/status.php                 is the server online, and with how many players
    api/news.php                   the news, in both forms an item may have
    api/launcher_version.json      the published launcher; with --update one that is newer
    launcher/...zip                with --update its archive
    client/DofusClient.zip         the game client
    updates/version.json           the manifest: the SHA-256 sum of every file of the client
    updates/files/...              the client's files one by one

The client's data are the same bytes on every machine. The folder appears as a whole: it is made
beside its place and then moved there. A second call with the same game program finds it up to date.
"""

import argparse
import hashlib
import html
import io
import json
import os
import pathlib
import shutil
import sys
import zipfile

MEGABYTE = 1024 * 1024
ARCHIVE_DATE = (2025, 1, 1, 12, 0, 0)
PUBLISHED_LAUNCHER = "launcher/VeyraLauncher_update.zip"

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
}
TEXT_FILES = {
    "Lisez-moi d'abord.txt": "Client d'exemple du launcher Veyra.\n"
                             "« Dofus.exe » montre seulement qu'il a été lancé.\n",
    "contenu/langues/français.json": '{"bienvenue": "Bienvenue à Veyra !"}\n',
    "contenu/langues/vide.json": "",
}
GAME_PROGRAM = "Dofus.exe"
# The launcher takes this file for the mark of an installed client. It comes last in the archive, so
# that an unpacking that was broken off does not count as installed.
MARKER_FILE = "DofusInvoker.swf"

STATUS = {"online": True, "players": 128}

NEWS = [
    {
        "title": "Ouverture du serveur Veyra",
        "date": "12/05",
        "content": "Les portes sont ouvertes : créez votre personnage et rejoignez-nous à la "
                   "taverne pour le premier tournoi.",
    },
    "<b>Maintenance jeudi</b> de 6 h à 7 h : le serveur sera brièvement indisponible.",
    {
        "title": "Équilibrage des métiers",
        "date": "09/05",
        "content": "Bûcherons et pêcheurs récoltent désormais un peu plus vite en début de partie.",
    },
    {
        "title": "Le saviez-vous ?",
        "content": "Le bouton « Discord » ouvre le salon de la communauté.",
    },
]

CHANGELOG = ("• Téléchargement du client plus rapide\n"
             "• Nouvelle page d'actualités\n"
             "• Corrections diverses")

INDEX_PAGE = """<!DOCTYPE html>
<html lang="fr">
<head>
<meta charset="utf-8">
<title>Veyra</title>
<style>
body {{ margin: 0; min-height: 100vh; color: #fff; font-family: sans-serif;
       background: linear-gradient(160deg, #121212, #33502a); }}
main {{ max-width: 40rem; margin: 0 auto; padding: 4rem 1.5rem; line-height: 1.6; }}
h1 {{ color: #8bc34a; }}
.news-title {{ color: #10b981; font-weight: bold; }}
</style>
</head>
<body>
<main>
<h1>Veyra</h1>
<p>Site d'exemple : la page qu'ouvre le bouton « Site Web » du launcher.</p>
{news}
</main>
</body>
</html>
"""


def data_bytes(name, size):
    """Bytes that look random and depend on the name alone."""
    return hashlib.shake_256(name.encode()).digest(size)


def client_files(game_program):
    """The client's files in the order of the archive: (name, content, permissions)."""
    for name, text in TEXT_FILES.items():
        yield name, text.encode(), 0o644
    for name, megabytes in DATA_FILES.items():
        yield name, data_bytes(name, megabytes * MEGABYTE), 0o644
    yield GAME_PROGRAM, game_program.read_bytes(), 0o755
    yield MARKER_FILE, data_bytes(MARKER_FILE, MEGABYTE), 0o644


def add_to_archive(archive, name, content, permissions):
    """Names with accents get the archive format's UTF-8 flag by themselves."""
    entry = zipfile.ZipInfo(name, ARCHIVE_DATE)
    entry.create_system = 3  # Unix: the only one whose entries carry permissions
    entry.external_attr = (0o100000 | permissions) << 16
    entry.compress_type = zipfile.ZIP_DEFLATED
    archive.writestr(entry, content, compresslevel=1)


def make_client(folder, game_program):
    manifest = []
    archive_path = folder / "client" / "DofusClient.zip"
    archive_path.parent.mkdir(parents=True)
    with zipfile.ZipFile(archive_path, "w") as archive:
        for name, content, permissions in client_files(game_program):
            add_to_archive(archive, name, content, permissions)
            single = folder / "updates" / "files" / name
            single.parent.mkdir(parents=True, exist_ok=True)
            single.write_bytes(content)
            manifest.append({"name": name, "hash": hashlib.sha256(content).hexdigest()})
    write_json(folder / "updates" / "version.json", {"files": manifest})


def make_launcher_archive(folder, launcher):
    content = io.BytesIO()
    with zipfile.ZipFile(content, "w") as archive:
        for path in sorted(launcher.rglob("*")):
            if path.is_file():
                add_to_archive(archive, path.relative_to(launcher).as_posix(), path.read_bytes(),
                               0o755)
    write_if_different(folder / PUBLISHED_LAUNCHER, content.getvalue())


def version_of(launcher):
    """Of a folder with a list of its files."""
    return (launcher / "liste.txt").read_text().splitlines()[1]


def make_records(folder, arguments):
    """The small files; they depend on the options, so they are looked at in every call."""
    write_json(folder / "api" / "status.php", STATUS)
    write_json(folder / "api" / "news.php", NEWS)
    write_if_different(folder / "index.html", index_page().encode())

    record = {"version": arguments.launcher_version, "download_url": "", "changelog": "",
              "required": False}
    if arguments.update:
        make_launcher_archive(folder, arguments.update)
        record.update(version=version_of(arguments.update), changelog=CHANGELOG,
                      download_url=arguments.base_url + PUBLISHED_LAUNCHER)
    write_json(folder / "api" / "launcher_version.json", record)


def index_page():
    items = []
    for item in NEWS:
        if isinstance(item, str):
            items.append(f"<p>{item}</p>")
            continue
        date = f"{item['date']} · " if "date" in item else ""
        items.append(f"<p><span class=\"news-title\">{date}{html.escape(item['title'])}</span><br>"
                     f"{html.escape(item['content'])}</p>")
    return INDEX_PAGE.format(news="\n".join(items))


def write_json(path, value):
    write_if_different(path, (json.dumps(value, ensure_ascii=False, indent=2) + "\n").encode())


def write_if_different(path, content):
    """A reader sees the old content or the new one, never a part."""
    if path.is_file() and path.read_bytes() == content:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    partial = path.with_name(path.name + ".partial")
    partial.write_bytes(content)
    os.replace(partial, path)


def key_of(game_program):
    """Changes with whatever the client is made from: this program and the game."""
    key = hashlib.sha256(pathlib.Path(__file__).read_bytes())
    key.update(game_program.read_bytes())
    return key.hexdigest()


def replace_folder(new, place):
    if place.exists():
        shutil.rmtree(place)
    new.rename(place)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--game", type=pathlib.Path, required=True,
                        help="the program that goes into the client as Dofus.exe")
    parser.add_argument("--base-url", required=True, help="where the folder is served, with a /")
    parser.add_argument("--launcher-version", required=True, help="version of the built launcher")
    parser.add_argument("--update", type=pathlib.Path, metavar="FOLDER",
                        help="offer a newer launcher: the one in FOLDER, with its signed list")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    folder = arguments.folder
    stamp = folder.with_name(folder.name + ".made-from")
    key = key_of(arguments.game)

    up_to_date = folder.is_dir() and stamp.is_file() and stamp.read_text() == key
    if not up_to_date:
        partial = folder.with_name(folder.name + ".partial")
        shutil.rmtree(partial, ignore_errors=True)
        stamp.unlink(missing_ok=True)
        partial.mkdir(parents=True)
        make_client(partial, arguments.game)
        make_records(partial, arguments)
        replace_folder(partial, folder)
        stamp.write_text(key)
    else:
        make_records(folder, arguments)

    size = (folder / "client" / "DofusClient.zip").stat().st_size / MEGABYTE
    print(f"{folder}: {'up to date' if up_to_date else 'made'}, client archive {size:.1f} MB")
    return 0


if __name__ == "__main__":
    sys.exit(main())
