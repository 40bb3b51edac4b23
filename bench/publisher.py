"""Measures veyra-publier beside the system's own tools and prints a table. Started by scripts/bench."""

import argparse
import os
import random
import shutil
import statistics
import subprocess
import sys
import time
import zipfile
from pathlib import Path

MEGABYTE = 1024 * 1024
FILES = 20_000
FIRST_RUN_SPEED = 0.9  # of the slowest yardstick's
SECOND_RUN = 2.0  # seconds beyond the copy of the archive
MEMORY = 100.0  # MB


def make_client(folder, size):
    """Files of all sizes: four of five do not pack, as a game's do not, the fifth is text."""
    if (folder / "Dofus.exe").exists():
        return
    shutil.rmtree(folder, ignore_errors=True)
    chance = random.Random(1)
    noise = chance.randbytes(16 * MEGABYTE)
    words = [chance.randbytes(chance.randrange(2, 6)).hex() for _ in range(5000)]
    text = " ".join(chance.choices(words, k=2_000_000)).encode()[:16 * MEGABYTE]
    average = size // FILES
    for i in range(FILES):
        source, suffix = (text, "json") if i % 5 == 4 else (noise, "d2p")
        path = folder / f"data/{i // 200:03}/{i:05}.{suffix}"
        path.parent.mkdir(parents=True, exist_ok=True)
        left = average * (1 + 2 * (i % 2)) // 2
        with path.open("wb") as file:
            file.write(f"{i}\n".encode())
            while left > 0:
                begin = i * 7919 % (8 * MEGABYTE)
                left -= file.write(source[begin:begin + min(left, 4 * MEGABYTE)])
    (folder / "DofusInvoker.swf").write_bytes(b"marker")
    (folder / "Dofus.exe").write_bytes(b"program")


def measured(command, **more):
    """Seconds, seconds of the processors, megabytes at most. Nobody else's writes are waited for."""
    os.sync()
    started = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **more)
    _, status, usage = os.wait4(process.pid, 0)
    seconds = time.monotonic() - started
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit(f"{command} failed")
    return seconds, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def seconds_of(script, *arguments, **more):
    """In all, and of the processors."""
    return measured(["sh", "-c", script, "sh", *map(str, arguments)], **more)[:2]


def warm(*paths):
    """All read what has been read just before: machines differ in how long they keep it."""
    subprocess.run(["sh", "-c", 'find "$@" -type f -exec cat {} + >/dev/null', "sh", *map(str, paths)],
                   check=True)


def hash_all(client):
    warm(client)
    return seconds_of(f"find . -type f -print0 | xargs -0 -n 64 -P {os.cpu_count()} sha256sum", cwd=client)


def copy_and_zip(client, target):
    """What the tool writes: all files, an archive that packs what packs. Until it is on the disk."""
    warm(client)
    return seconds_of('cp -r . "$1/files" && zip -q -r -1 -n .d2p "$1/archive.zip" . && sync -f "$1"',
                      target, cwd=client)


def copy_archive(archive, target):
    warm(archive)
    return seconds_of('cp "$1" "$2" && sync -f "$2"', archive, target)


class Round:
    """All measurements once, in a folder of their own: to remove files makes the next ones slow."""

    def __init__(self, tool, client, folder):
        workshop = folder / "atelier"
        workshop.mkdir(parents=True)
        publish = [str(tool), "--atelier", str(workshop), "client", str(client)]
        archive = workshop / "brouillon/client/DofusClient.zip"
        measured([str(tool), "--atelier", str(workshop), "init", "http://127.0.0.1/"])
        time.sleep(2)  # sums count for files that were left alone for that long

        self.hashing, self.hashing_processors = hash_all(client)
        self.copying, self.copying_processors = copy_and_zip(client, folder)
        warm(client)
        self.first, self.first_processors, first_memory = measured(publish)
        with zipfile.ZipFile(archive) as made:
            if len(made.namelist()) != FILES + 2:
                sys.exit(f"{archive} is not whole")
        with (client / "data/000/00000.d2p").open("ab") as file:
            file.write(b"changed")
        time.sleep(2)
        self.archive_copying, self.archive_processors = copy_archive(archive, folder / "copy.zip")
        warm(archive)
        self.second, self.second_processors, second_memory = measured(publish)
        self.same = measured(publish)[0]
        self.memory = max(first_memory, second_memory)


def row(figure, value, bound="-", ok=None):
    print(f"| {figure:<46} | {value:>9} | {bound:>9} | {'-' if ok is None else 'yes' if ok else 'NO':<3} |")
    return ok is not False


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", type=Path, required=True)
    parser.add_argument("--folder", type=Path, required=True)
    parser.add_argument("--quick", action="store_true")
    options = parser.parse_args()
    size = 600 * MEGABYTE if options.quick else 6000 * MEGABYTE
    rounds = 3 if options.quick else 1

    base = options.folder.resolve() / ("quick" if options.quick else "full")
    client, rest = base / "client", base / "rounds"
    base.mkdir(parents=True, exist_ok=True)
    shutil.rmtree(rest, ignore_errors=True)
    needed = size * (1 + 6 * rounds)
    if shutil.disk_usage(base).free < needed:
        sys.exit(f"Not enough room below {base}: {needed // MEGABYTE} MB are needed")
    make_client(client, size)
    measurements = [Round(options.tool, client, rest / str(i)) for i in range(rounds)]
    shutil.rmtree(rest)

    def median(name):
        return statistics.median(getattr(measurement, name) for measurement in measurements)

    yardstick = max(median("hashing"), median("copying"))
    speed = yardstick / median("first")
    beyond = statistics.median(m.second - m.archive_copying for m in measurements)
    memory = max(measurement.memory for measurement in measurements)
    print(f"{size // MEGABYTE} MB in {FILES} files, {os.cpu_count()} processors, "
          f"load {os.getloadavg()[0]:.1f}, medians of {rounds}")
    print("| figure                                         | value     | bound     | ok  |")
    print("| ---------------------------------------------- | --------- | --------- | --- |")
    ok = [row("sha256sum, as many threads", f"{median('hashing'):.2f} s"),
          row("  of the processors", f"{median('hashing_processors'):.2f} s"),
          row("cp -r and zip -1", f"{median('copying'):.2f} s"),
          row("  of the processors", f"{median('copying_processors'):.2f} s"),
          row("client, the first time", f"{median('first'):.2f} s"),
          row("  of the processors", f"{median('first_processors'):.2f} s"),
          row("  its speed, of the slower yardstick's", f"{speed:.2f}", f"{FIRST_RUN_SPEED}",
              speed >= FIRST_RUN_SPEED),
          row("cp of the archive", f"{median('archive_copying'):.2f} s"),
          row("  of the processors", f"{median('archive_processors'):.2f} s"),
          row("client, one file changed", f"{median('second'):.2f} s"),
          row("  of the processors", f"{median('second_processors'):.2f} s"),
          row("  beyond the copy of the archive", f"{beyond:.2f} s", f"{SECOND_RUN} s", beyond <= SECOND_RUN),
          row("client, nothing changed", f"{median('same'):.2f} s"),
          row("memory at most", f"{memory:.1f} MB", f"{MEMORY} MB", memory <= MEMORY)]
    sys.exit(0 if all(ok) else 1)


if __name__ == "__main__":
    main()
