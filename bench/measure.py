"""Measures the launcher beside its yardsticks and prints the table. Started by scripts/bench."""

import argparse
import json
import math
import os
import platform
import shutil
import statistics
import subprocess
import sys
import time
from pathlib import Path

import materials
from surroundings import Activity, Surroundings, first_line

IDLE_SAMPLE = 0.25  # seconds; wake-ups within one count as one moment
POLL_INTERVAL = 30
POLL_DURATION = 0.3  # seconds from the launcher's waking up to the repaint of its answer, at most
SLOW_DISK_RATE = 16 * materials.MEGABYTE  # bytes per second


class Table:
    def __init__(self):
        self.rows = []

    def add(self, figure, unit, launcher, bound=None, yardstick=None, digits=1):
        """Medians of what was measured; the bound is one of the ratio, or of the launcher alone.
        Without a bound a figure is there for information."""
        value = statistics.median(launcher)
        base = statistics.median(yardstick) if yardstick else None
        ratio = None if base is None else relation(value, base)
        ok = bound is None or (value if ratio is None else ratio) <= bound
        self.rows.append((
            figure,
            f"{value:.{digits}f} {unit}",
            "-" if base is None else f"{base:.{digits}f} {unit}",
            "-" if ratio is None else f"{ratio:.3f}",
            "-" if bound is None else f"{bound:g} {unit}" if ratio is None else f"{bound:g}",
            f"{min(launcher):.{digits}f}..{max(launcher):.{digits}f}",
            "-" if bound is None else "yes" if ok else "NO"))

    def print(self):
        head = ("figure", "launcher", "yardstick", "ratio", "bound", "launcher's runs", "ok")
        widths = [max(len(row[i]) for row in [head] + self.rows) for i in range(len(head))]
        for row in [head, tuple("-" * width for width in widths)] + self.rows:
            print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |")

    def all_ok(self):
        return all(row[-1] != "NO" for row in self.rows)


class Bench:
    def __init__(self, around, files, quick):
        self.around = around
        self.files = files
        self.quick = quick
        self.table = Table()

    def pairs(self, launcher, yardstick, full, quick):
        """Alternates the two, and which of them goes first; returns what each gave."""
        results = ([], [])
        turns = [(results[0], launcher)] + ([(results[1], yardstick)] if yardstick else [])
        for _ in range(quick if self.quick else full):
            for result, measure in turns:
                result.append(measure())
            turns.reverse()
        return results

    def launch(self, scenario, goal, **more):
        return self.around.run("bench_launcher", scenario, self.files.game(scenario), goal, **more)

    # --- the figures, one function per experiment ---

    def start(self):
        def bare():
            return self.around.run("bench_bare_window", "installed", self.files.game("installed"),
                                   "ready")

        launcher, yardstick = self.pairs(lambda: self.launch("installed", "ready"), bare,
                                         full=15, quick=7)
        self.table.add("start to first painted frame", "ms", column(launcher, "first_frame_ms"),
                       1.25, column(yardstick, "first_frame_ms"))
        self.table.add("peak memory once ready", "MB", megabytes(launcher, "ready_peak_kb"), 1.25,
                       megabytes(yardstick, "ready_peak_kb"))

    def download(self):
        scenario = "download"
        url = self.around.url(scenario) + "client/DofusClient.zip"

        def curl():
            self.clear(scenario)
            target = self.files.game(scenario) / "curl.zip"
            report = subprocess.run(["curl", "-s", "-S", "-f", "-o", target, "-w", "%{time_total}", url],
                                    check=True, capture_output=True, text=True)
            return float(report.stdout)

        def launcher():
            self.clear(scenario)
            return self.launch(scenario, "downloaded")

        runs, yardstick = self.pairs(launcher, curl, full=7, quick=5)
        size = self.files.sizes.download // materials.MEGABYTE
        self.table.add(f"download of {size} MB", "s", column(runs, "download_s"), 1.1, yardstick,
                       digits=3)
        self.table.add("  its memory above the ready state", "MB",
                       megabytes(runs, "download_growth_kb"), 16)
        self.table.add("  its longest gap of the event loop", "ms",
                       column(runs, "download_longest_gap_ms"), 16)
        self.clear(scenario)

    def download_memory(self):
        size = self.files.sizes.big_file // materials.MEGABYTE
        self.memory_of("huge-download", f"memory of a {size} MB download", full=5, quick=1)
        slow = {"LD_PRELOAD": self.around.program("libbench_slow_disk.so"),
                "VEYRA_BENCH_DISK_RATE": str(SLOW_DISK_RATE)}
        self.memory_of("slow-disk", "memory of a download to a slow disk", full=5, quick=2, **slow)
        self.memory_of("redirected", "  behind a redirect", full=5, quick=2, **slow)

    def memory_of(self, scenario, figure, full, quick, **more):
        def launcher():
            self.clear(scenario)
            return self.launch(scenario, "downloaded", **more)

        runs, _ = self.pairs(launcher, None, full, quick)
        self.table.add(figure, "MB", megabytes(runs, "download_growth_kb"), 16)
        self.clear(scenario)

    def verify(self):
        size = self.files.sizes.big_file // materials.MEGABYTE
        self.verification_of("one-file", f"verification of one file of {size} MB", 1, 1.05,
                             full=7, quick=3)
        self.verification_of("many-files", "verification of 20,000 files of 4 KB",
                             materials.SMALL_FILES, 1.3, full=9, quick=5)

    def verification_of(self, scenario, figure, reports, bound, full, quick):
        files = self.files.file_list(scenario)

        def hash_loop():
            report = subprocess.run([self.around.program("bench_hash_loop"), files], check=True,
                                    capture_output=True, text=True)
            return float(report.stdout)

        hash_loop()  # brings the files into the page cache
        runs, yardstick = self.pairs(lambda: self.verified(scenario, reports), hash_loop,
                                     full, quick)
        self.table.add(figure, "s", column(runs, "verify_s"), bound, yardstick, digits=3)
        self.add_verification_limits(runs)

    def verified(self, scenario, reports):
        (self.files.game(scenario) / materials.MARKER).unlink(missing_ok=True)
        result = self.launch(scenario, "verified")
        if result["verify_reports"] != reports:
            raise SystemExit(f"{result['verify_reports']} reports instead of {reports}")
        return result

    def add_verification_limits(self, runs):
        self.table.add("  its longest gap of the event loop", "ms",
                       column(runs, "verify_longest_gap_ms"), 16)
        self.table.add("  its memory growth", "MB", megabytes(runs, "verify_growth_kb"), 16)
        self.table.add("  longest gap while its manifest arrives", "ms",
                       column(runs, "manifest_longest_gap_ms"))

    def reports(self):
        """Nothing to read: the reports come as fast as the verification can send them."""
        runs, _ = self.pairs(lambda: self.verified("missing-files", materials.SMALL_FILES), None,
                             full=9, quick=5)
        self.table.add("20,000 reports in a row", "s", column(runs, "verify_s"), digits=3)
        self.add_verification_limits(runs)

    def repaint(self):
        environment = self.around.environment("installed", self.files.game("installed"), "")

        def both():
            report = subprocess.run([self.around.program("bench_repaint")], env=environment,
                                    check=True, capture_output=True, text=True)
            return json.loads(report.stdout)

        runs, _ = self.pairs(both, None, full=7, quick=3)
        for part, figure in (("button", "repaint of the background under a hovered button"),
                             ("whole", "repaint of the whole background")):
            self.table.add(figure, "ms", [run[part][0] for run in runs], 0.1,
                           [run[part][1] for run in runs], digits=3)

    def unpack(self):
        scenario = "unpack"

        def launcher():
            self.clear(scenario)
            return self.launch(scenario, "unpacked")

        def unzip():
            self.clear(scenario)
            game = self.files.game(scenario)
            archive = shutil.copy(self.files.archive(scenario), game)
            started = time.monotonic()
            subprocess.run(["unzip", "-q", "-o", archive, "-d", game], check=True)
            return time.monotonic() - started

        runs, yardstick = self.pairs(launcher, unzip, full=7, quick=5)
        size = self.files.sizes.client_size // materials.MEGABYTE
        self.table.add(f"unpacking {self.files.sizes.client_files} files, {size} MB", "s",
                       column(runs, "unpack_s"), 1.05, yardstick, digits=3)
        self.table.add("  its longest gap: the archive is removed", "ms",
                       column(runs, "unpack_longest_gap_ms"))
        self.clear(scenario)

    def idle(self):
        """All processes idle side by side: they do not disturb each other, by definition."""
        seconds = POLL_INTERVAL + 2 if self.quick else 2 * POLL_INTERVAL
        game = self.files.game("installed")
        processes = []
        try:
            for number in range(materials.IDLE_LAUNCHERS):
                environment = self.around.environment(f"idle-{number}", game, "idle")
                processes += [self.around.start("bench_launcher", environment),
                              self.around.start("bench_bare_window", environment)]
            for process in processes:
                first_line(process)
            time.sleep(2)
            watched = [IdleWatch(process) for process in processes]
            end = time.monotonic() + seconds
            while time.monotonic() < end:
                time.sleep(IDLE_SAMPLE)
                for watch in watched:
                    watch.look()
        finally:
            for process in processes:
                process.kill()
                process.communicate()
        self.report_idle(watched[::2], watched[1::2], seconds)

    def report_idle(self, launchers, bare, seconds):
        polls = [self.around.requests(f"idle-{number}", "api/status.php")
                 for number in range(len(launchers))]
        launchers = [watch.split(times) for watch, times in zip(launchers, polls)]
        bare = [watch.split([]) for watch in bare]
        quiet = [[idle.quiet_ms for idle in group] for group in (launchers, bare)]
        total = [[idle.quiet_ms + idle.poll_ms for idle in group] for group in (launchers, bare)]
        figure = f"processor time of {seconds} idle seconds"
        self.table.add(f"{figure}, polls apart", "ms", quiet[0], 1.5, quiet[1], digits=3)
        self.table.add("  with the polls", "ms", total[0], None, total[1], digits=3)
        self.table.add("  moments with wake-ups, polls apart", "",
                       [idle.quiet_moments for idle in launchers],
                       statistics.median([idle.quiet_moments for idle in bare]), digits=0)
        self.table.add("  moments with polls", "", [idle.poll_moments for idle in launchers],
                       -(-seconds // POLL_INTERVAL), digits=0)

    def clear(self, scenario):
        """Empties the game folder, and lets the disk come to rest."""
        materials.empty(self.files.game(scenario))
        os.sync()


class IdleWatch:
    """Looks at a process now and then and remembers the moments in which it was awake."""

    def __init__(self, process):
        self.activity = Activity(process)
        self.processor_ms = self.activity.processor_ms()
        self.wakeups = self.activity.wakeups()
        self.moments = []  # (when, its processor time)

    def look(self):
        processor_ms = self.activity.processor_ms()
        wakeups = self.activity.wakeups()
        if wakeups != self.wakeups or processor_ms != self.processor_ms:
            self.moments.append((time.time(), processor_ms - self.processor_ms))
        self.processor_ms = processor_ms
        self.wakeups = wakeups

    def split(self, polls):
        def is_poll(when):
            return any(0 <= when - poll + POLL_DURATION <= IDLE_SAMPLE + 2 * POLL_DURATION
                       for poll in polls)

        idle = Idle()
        for when, processor_ms in self.moments:
            if is_poll(when):
                idle.poll_moments += 1
                idle.poll_ms += processor_ms
            else:
                idle.quiet_moments += 1
                idle.quiet_ms += processor_ms
        return idle


class Idle:
    def __init__(self):
        self.poll_moments = self.quiet_moments = 0
        self.poll_ms = self.quiet_ms = 0.0


def relation(value, base):
    """Twice nothing is nothing: a yardstick that used nothing allows nothing."""
    if base == 0:
        return 0.0 if value == 0 else math.inf
    return value / base


def column(runs, figure):
    return [run[figure] for run in runs]


def megabytes(runs, figure):
    return [run[figure] / 1024 for run in runs]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true", help="less data, fewer rounds")
    parser.add_argument("--build", type=Path, required=True, help="where the programs were built")
    parser.add_argument("figures", nargs="+", help="methods of Bench")
    options = parser.parse_args()

    build = options.build.resolve()
    began = time.monotonic()
    files = materials.Materials(build / "data", options.quick)
    print("Making the files to measure with...", file=sys.stderr)
    files.make()
    with Surroundings(build, build / "data", files.server) as around:
        bench = Bench(around, files, options.quick)
        for figure in options.figures:
            print(f"Measuring: {figure.replace('_', ' ')}...", file=sys.stderr)
            getattr(bench, figure)()
    load = os.getloadavg()[0]
    print(f"{os.cpu_count()} processors, load {load:.1f}, {platform.system()} {platform.release()}, "
          f"{time.monotonic() - began:.0f} s")
    bench.table.print()
    if not bench.table.all_ok():
        print("A bound is missed.", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
