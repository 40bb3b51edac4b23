"""The files that the bench works on: always the same bytes, made once and kept."""

import hashlib
import json
import os
import random
import shutil
import zipfile
from pathlib import Path

MEGABYTE = 1024 * 1024
MARKER = "DofusInvoker.swf"  # tells the launcher that a client is installed
SMALL_FILES = 20_000
SMALL_FILE_SIZE = 4096
IDLE_LAUNCHERS = 5
FIXED_DATE = (2024, 1, 1, 0, 0, 0)


class Sizes:
    """How much work one round is."""

    def __init__(self, quick):
        self.download = 256 * MEGABYTE if quick else 1024 * MEGABYTE
        # More than 2 GiB: a byte count that does not fit into 32 bits would show.
        self.big_file = 384 * MEGABYTE if quick else 2200 * MEGABYTE
        self.slow_download = 32 * MEGABYTE if quick else 96 * MEGABYTE
        self.client_files = 600 if quick else 3000
        self.client_size = 100 * MEGABYTE if quick else 500 * MEGABYTE

    def disk_space(self):
        """Bytes needed at the worst moment, with a margin for what is written beside."""
        return (2 * self.big_file + 2 * self.download + 2 * self.slow_download
                + 3 * self.client_size + SMALL_FILES * SMALL_FILE_SIZE + 1024 * MEGABYTE)


class Materials:
    """folder/server/<scenario>/ is what the web server offers, folder/game/<scenario>/ the game
    folder that belongs to it."""

    def __init__(self, folder, quick):
        self.folder = folder / ("quick" if quick else "full")
        self.sizes = Sizes(quick)
        self.server = self.folder / "server"

    def game(self, scenario):
        return self.folder / "game" / scenario

    def archive(self, scenario):
        return self.server / scenario / "client" / "DofusClient.zip"

    def file_list(self, scenario):
        return self.folder / f"{scenario}.list"

    def make(self):
        done = self.folder / "complete"
        if done.exists():
            return
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        free = shutil.disk_usage(self.folder).free
        if free < self.sizes.disk_space():
            raise SystemExit(f"The bench needs {self.sizes.disk_space() // MEGABYTE} MB on the disk "
                             f"of {self.folder}; {free // MEGABYTE} MB are free.")

        self._make_scenario("installed")
        (self.game("installed") / MARKER).write_bytes(b"client")
        for number in range(IDLE_LAUNCHERS):  # addresses of their own tell their requests apart
            (self.server / f"idle-{number}").symlink_to("installed")
        self._make_scenario("download")
        write_noise(self.archive("download"), self.sizes.download)
        self._make_scenario("slow-disk")
        write_noise(self.archive("slow-disk"), self.sizes.slow_download)
        self._make_scenario("unpack")
        self._make_client(self.archive("unpack"))
        self._make_one_file()
        self._make_many_files()
        self._make_missing_files()
        self._make_scenario("huge-download")
        self.archive("huge-download").symlink_to(self.game("one-file") / "big.d2p")
        done.touch()

    def _make_scenario(self, name, files=()):
        self.game(name).mkdir(parents=True)
        for folder in ("api", "client", "updates"):
            (self.server / name / folder).mkdir(parents=True)
        answers = {
            "api/status.php": {"online": True, "players": 42},
            "api/news.php": [{"title": "Ouverture", "date": "01/06", "content": "Bienvenue !"}],
            "api/launcher_version.json": {"version": "1.0.0", "download_url": "", "changelog": "",
                                          "required": False},
            "updates/version.json": {"files": list(files)},
        }
        for path, answer in answers.items():
            (self.server / name / path).write_text(json.dumps(answer), encoding="utf-8")

    def _make_one_file(self):
        big = self.game("one-file") / "big.d2p"
        big.parent.mkdir(parents=True)
        digest = write_noise(big, self.sizes.big_file)
        self._make_verification("one-file", [(big.name, digest)])

    def _make_many_files(self):
        folder = self.game("many-files")
        noise = random.Random(1)
        entries = []
        for number in range(SMALL_FILES):
            name = f"content/{number // 100:03}/{number % 100:02}.swl"
            data = noise.randbytes(SMALL_FILE_SIZE)
            (folder / name).parent.mkdir(parents=True, exist_ok=True)
            (folder / name).write_bytes(data)
            entries.append((name, hashlib.sha256(data).hexdigest()))
        self._make_verification("many-files", entries)

    def _make_missing_files(self):
        """Nothing to read: the reports come as fast as the verification can send them."""
        self.game("missing-files").mkdir(parents=True)
        self._make_verification("missing-files", [(f"content/missing/{number:05}.swl", "0" * 64)
                                                  for number in range(SMALL_FILES)])

    def _make_verification(self, name, entries):
        """A manifest of files that are already there, and an archive with nothing but the marker:
        the verification follows a fresh installation only."""
        game = self.game(name)
        self.file_list(name).write_text("".join(f"{game / path}\n" for path, _ in entries),
                                        encoding="utf-8")
        game.rename(game.with_suffix(".made"))
        self._make_scenario(name, ({"name": path, "hash": digest} for path, digest in entries))
        game.rmdir()
        game.with_suffix(".made").rename(game)
        with zipfile.ZipFile(self.archive(name), "w") as archive:
            archive.writestr(zipfile.ZipInfo(MARKER, FIXED_DATE), b"client")

    def _make_client(self, path):
        """Half of each file is packed tightly already, as pictures and sound are."""
        noise = random.Random(2)
        size = self.sizes.client_size // self.sizes.client_files
        with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED, compresslevel=6) as archive:
            for number in range(self.sizes.client_files):
                name = MARKER if number == 0 else f"content/{number // 100:02}/{number % 100:02}.d2o"
                text = noise.randbytes(size // 16).hex().encode()
                data = text + noise.randbytes(size - len(text))
                info = zipfile.ZipInfo(name, FIXED_DATE)
                info.compress_type = zipfile.ZIP_DEFLATED
                info.external_attr = 0o644 << 16
                archive.writestr(info, data)


def write_noise(path, size):
    """Writes bytes that do not compress; returns their SHA-256."""
    noise = random.Random(path.name)
    digest = hashlib.sha256()
    with open(path, "wb") as file:
        while size > 0:
            block = noise.randbytes(min(size, 8 * MEGABYTE))
            file.write(block)
            digest.update(block)
            size -= len(block)
    os.sync()
    return digest.hexdigest()


def empty(folder):
    shutil.rmtree(folder, ignore_errors=True)
    Path(folder).mkdir(parents=True)
