"""Measures veyra-publier beside sha256sum and prints a table. Started by scripts/bench."""

import argparse
import os
import random
import shutil
import subprocess
import sys
import time
from pathlib import Path

MEGABYTE = 1024 * 1024
FILES = 20_000
FIRST_RUN_SPEED = 0.9  # of sha256sum's, with as many threads
SECOND_RUN = 2.0  # seconds
MEMORY = 100.0  # MB


def make_client(folder, size):
    """Files of all sizes whose bytes do not pack, as a game's do not."""
    if (folder / "Dofus.exe").exists():
        return
    shutil.rmtree(folder, ignore_errors=True)
    noise = random.Random(1).randbytes(16 * MEGABYTE)
    average = size // FILES
    for i in range(FILES):
        path = folder / f"data/{i // 200:03}/{i:05}.d2p"
        path.parent.mkdir(parents=True, exist_ok=True)
        left = average * (1 + 2 * (i % 2)) // 2
        with path.open("wb") as file:
            file.write(f"{i}\n".encode())
            while left > 0:
                begin = i * 7919 % (8 * MEGABYTE)
                left -= file.write(noise[begin:begin + min(left, 8 * MEGABYTE)])
    (folder / "DofusInvoker.swf").write_bytes(b"marker")
    (folder / "Dofus.exe").write_bytes(b"program")


def measured(command, **more):
    """Seconds, seconds of the processors, megabytes at most."""
    started = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **more)
    _, status, usage = os.wait4(process.pid, 0)
    seconds = time.monotonic() - started
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit(f"{command} failed")
    return seconds, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def hash_all(client):
    """The yardstick reads what has been read before, and so does the tool."""
    return measured(["sh", "-c", f"find . -type f -print0 | xargs -0 -n 64 -P {os.cpu_count()} sha256sum"],
                    cwd=client)[0]


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

    base = options.folder / ("quick" if options.quick else "full")
    client, workshop = base / "client", base / "atelier"
    base.mkdir(parents=True, exist_ok=True)
    if shutil.disk_usage(base).free < 6 * size:
        sys.exit(f"Not enough room below {base}: {6 * size // MEGABYTE} MB are needed")
    make_client(client, size)
    shutil.rmtree(workshop, ignore_errors=True)
    workshop.mkdir()
    tool = [str(options.tool), "--atelier", str(workshop)]
    publish = tool + ["client", str(client)]
    measured(tool + ["init", "http://127.0.0.1/"])

    hash_all(client)
    yardstick = hash_all(client)
    time.sleep(2)  # sums count for files that were left alone for that long
    first, _, first_memory = measured(publish)
    with (client / "data/000/00000.d2p").open("ab") as file:
        file.write(b"changed")
    time.sleep(2)
    second, second_processors, second_memory = measured(publish)
    same, _, _ = measured(publish)
    shutil.rmtree(workshop)

    print(f"{size // MEGABYTE} MB in {FILES} files, {os.cpu_count()} processors, "
          f"load {os.getloadavg()[0]:.1f}")
    print("| figure                                         | value     | bound     | ok  |")
    print("| ---------------------------------------------- | --------- | --------- | --- |")
    ok = [row("sha256sum, as many threads", f"{yardstick:.2f} s"),
          row("client, the first time", f"{first:.2f} s"),
          row("  its speed, of sha256sum's", f"{yardstick / first:.3f}", f"{FIRST_RUN_SPEED}",
              yardstick / first >= FIRST_RUN_SPEED),
          row("client, one file changed", f"{second:.2f} s", f"{SECOND_RUN} s", second <= SECOND_RUN),
          row("  of that, the processors'", f"{second_processors:.2f} s"),
          row("client, nothing changed", f"{same:.2f} s"),
          row("memory at most", f"{max(first_memory, second_memory):.1f} MB", f"{MEMORY} MB",
              max(first_memory, second_memory) <= MEMORY)]
    sys.exit(0 if all(ok) else 1)


if __name__ == "__main__":
    main()
