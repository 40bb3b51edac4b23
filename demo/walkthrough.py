#!/usr/bin/env python3
"""Plays a person's part on a virtual display that has the size of the launcher's window: opens the
launcher, watches it from outside, clicks "JOUER" and closes it. Pictures of the stages are saved.

What counts as evidence is what can be seen from outside: the server's access log, the window's
pixels, files and processes. The exit code tells whether the whole chain was seen.
"""

import argparse
import contextlib
import ctypes
import hashlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import textwrap
import time
import urllib.parse
import zipfile

LAUNCHER_TITLE = "^Veyra Launcher$"
GAME_TITLE = "^Jeu d'exemple$"
PROMPT_TITLE = "^Mise .* jour disponible$"
ERROR_TITLE = "^Erreur"
UPDATER_TITLE = "^Mise .* jour de Veyra Launcher$"

PLAY_BUTTON = (585, 600)
# Left and right of the play button's text.
PLAY_BUTTON_SAMPLES = ((455, 600), (715, 600))
PLAY_BUTTON_GREENS = ((0x7C, 0xB3, 0x42), (0x8B, 0xC3, 0x4A))
PLAY_BUTTON_GREY = (0x55, 0x55, 0x55)
ERROR_RED = (0xF4, 0x43, 0x36)
COLOR_TOLERANCE = 6

POLL_INTERVAL = 0.05  # seconds, like all that follow
WINDOW_TIMEOUT = 60
REQUEST_TIMEOUT = 30
DOWNLOAD_TIMEOUT = 180
READY_TIMEOUT = 120
GAME_TIMEOUT = 30
END_TIMEOUT = 30
UPDATE_TIMEOUT = 90
TOOL_TIMEOUT = 30
PAINT_DELAY = 0.3  # for a new window to be painted before its picture is taken
GAME_LIFETIME = 120  # a game that nobody closes ends by itself

VERSION_CHECK = "/api/launcher_version.json"
STATUS = "/api/status.php"
NEWS = "/api/news.php"
ARCHIVE = "/client/DofusClient.zip"
MANIFEST = "/updates/version.json"

GAME_MARKER = "jeu-demarre.txt"
UPDATER_LOG = "Veyra/Veyra Launcher/mise-a-jour.log"
UPDATER_FOLDER = ".veyra-maj"

started = time.monotonic()


class Failure(Exception):
    """The chain did not go on as it should; the text says where."""


def say(text):
    print(f"[{time.monotonic() - started:5.1f} s] {text}", flush=True)


def tool(*command, **options):
    return subprocess.run(command, capture_output=True, timeout=TOOL_TIMEOUT, **options)


@contextlib.contextmanager
def ended_at_last(process):
    """A child that does not outlive the walk-through."""
    try:
        yield process
    finally:
        if process.poll() is None:
            process.terminate()
            try:
                process.wait(END_TIMEOUT)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()


class ThisMachine:
    """How programs are started and what they call their files; on Windows it is otherwise."""

    def __init__(self):
        self.settings = pathlib.Path(os.environ["XDG_DATA_HOME"])
        self.local_data = self.settings
        self.temporary = pathlib.Path(os.environ["TMPDIR"])
        self.environment = {"QT_QPA_PLATFORM": "xcb"}

    def command(self, program):
        return [program]

    def path_of(self, name):
        """The file that a program of the launcher's system names."""
        return pathlib.Path(name)

    def is_running(self, process_id, _program):
        try:
            stat = pathlib.Path("/proc", process_id, "stat").read_text()
        except (FileNotFoundError, ProcessLookupError):
            return False
        return stat.rpartition(")")[2].split()[0] != "Z"


class Wine(ThisMachine):
    """A launcher for Windows in the Wine prefix that WINEPREFIX names."""

    def __init__(self):
        self._prefix = pathlib.Path(os.environ["WINEPREFIX"])
        user = next(folder for folder in (self._prefix / "drive_c" / "users").iterdir()
                    if folder.name != "Public")
        self.settings = user / "AppData" / "Roaming"
        self.local_data = user / "AppData" / "Local"
        self.temporary = user / "Temp"
        self.environment = {}

    def command(self, program):
        return ["wine", program]

    def path_of(self, name):
        drive, path = name.replace("\\", "/").split(":", 1)
        return self._prefix / "dosdevices" / f"{drive.lower()}:" / path.lstrip("/")

    def is_running(self, _process_id, program):
        name = program.rpartition("/")[2].encode()
        for process in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
            with contextlib.suppress(OSError):
                if name in process.read_bytes():
                    return True
        return False


class Picture:
    """What the display shows at one moment."""

    def __init__(self):
        grabbed = tool("import", "-silent", "-window", "root", "-depth", "8", "ppm:-", check=True)
        self._ppm = grabbed.stdout
        header = re.match(rb"P6\s+(\d+)\s+(\d+)\s+255\s", self._ppm)
        self._width = int(header[1])
        self._pixels = self._ppm[header.end():]

    def color(self, x, y):
        start = 3 * (y * self._width + x)
        return tuple(self._pixels[start:start + 3])

    def shows(self, color):
        """True when a pixel has exactly this color, as only flat text and areas have."""
        wanted, place = bytes(color), -1
        while (place := self._pixels.find(wanted, place + 1)) >= 0:
            if place % 3 == 0:
                return True
        return False

    def save(self, path):
        tool("convert", "ppm:-", str(path), input=self._ppm, check=True)


class Launcher:
    def __init__(self, process, machine, arguments):
        self.process = process
        self.machine = machine
        self.program = arguments.launcher
        self._access_log = arguments.access_log
        self._screenshots = arguments.screenshots
        # The server may have served another walk before.
        self._lines_before = len(self._access_log.read_text().splitlines())

    # --- What can be seen ---

    def log_lines(self, event, path):
        """The access log's lines about one address: `event` is asked, answered or broken-off."""
        lines = self._access_log.read_text().splitlines()[self._lines_before:]
        return [line for line in map(str.split, lines) if line[1] == event and line[3] == path]

    def has_asked(self, path, times=1):
        return len(self.log_lines("asked", path)) >= times

    def was_answered(self, path, times=1):
        answers = self.log_lines("answered", path)
        return sum(line[4] == "200" for line in answers) >= times

    def play_button_is(self, *colors):
        picture = Picture()
        return all(in_range(picture.color(*sample), colors) for sample in PLAY_BUTTON_SAMPLES)

    def play_button_is_green(self):
        return self.play_button_is(*PLAY_BUTTON_GREENS)

    def play_button_is_grey(self):
        return self.play_button_is(PLAY_BUTTON_GREY)

    def take_picture(self, stage):
        path = self._screenshots / f"{stage}.png"
        picture = Picture()
        picture.save(path)
        say(f"picture: {path}")
        return picture

    # --- Waiting ---

    def wait_for(self, what, is_so, timeout):
        """Returns what `is_so` returns as soon as that is true."""
        deadline = time.monotonic() + timeout
        while not (result := is_so()):
            if self.process and self.process.poll() is not None:
                raise Failure(f"the launcher ended (exit code {self.process.returncode}) while it "
                              f"was awaited that {what}")
            if find_window(ERROR_TITLE):
                raise Failure(f"the launcher shows an error while it was awaited that {what}")
            if time.monotonic() > deadline:
                raise Failure(f"{timeout} s passed, and it was not seen that {what}")
            time.sleep(POLL_INTERVAL)
        say(what)
        return result

    def wait_for_window(self, what, title, timeout=WINDOW_TIMEOUT):
        window = self.wait_for(what, lambda: find_window(title), timeout)
        time.sleep(PAINT_DELAY)
        return window

    def wait_for_end(self):
        try:
            code = self.process.wait(END_TIMEOUT)
        except subprocess.TimeoutExpired:
            raise Failure(f"the launcher has not ended after {END_TIMEOUT} s") from None
        if code != 0:
            raise Failure(f"the launcher ended with exit code {code}")
        say("the launcher has ended with exit code 0")
        self.process = None  # what runs from now on was started by another program


def in_range(color, corners):
    """Between the given colors, channel by channel, with some tolerance."""
    return all(min(channel) - COLOR_TOLERANCE <= value <= max(channel) + COLOR_TOLERANCE
               for value, channel in zip(color, zip(*corners)))


def find_window(title):
    found = tool("xdotool", "search", "--onlyvisible", "--name", title).stdout.split()
    return int(found[0]) if found else None


class ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong),
                ("message_type", ctypes.c_ulong), ("format", ctypes.c_int),
                ("data", ctypes.c_long * 5), ("rest_of_union", ctypes.c_long * 24)]


def close_window(window):
    """Closes a window as a window manager does for a click on its title bar's button. There is no
    window manager here, and xdotool can only destroy a window."""
    x11 = ctypes.CDLL("libX11.so.6")
    x11.XOpenDisplay.restype = ctypes.c_void_p
    x11.XInternAtom.restype = ctypes.c_ulong
    display = ctypes.c_void_p(x11.XOpenDisplay(None))
    if not display:
        raise Failure("the virtual display is gone")

    client_message_type, format_in_bits = 33, 32
    message = ClientMessage(type=client_message_type, window=window, format=format_in_bits,
                            message_type=x11.XInternAtom(display, b"WM_PROTOCOLS", False))
    message.data[0] = x11.XInternAtom(display, b"WM_DELETE_WINDOW", False)
    x11.XSendEvent(display, ctypes.c_ulong(window), False, ctypes.c_long(0), ctypes.byref(message))
    x11.XCloseDisplay(display)


# --- The client on the disk ---


def game_folder(launcher):
    """Where the launcher installs: the folder chosen in its settings, or the one beside it."""
    settings = launcher.machine.settings / "Veyra" / "Veyra Launcher" / "config.json"
    if settings.is_file():
        chosen = json.loads(settings.read_text()).get("dofus_path")
        if chosen:
            return launcher.machine.path_of(chosen)
    return launcher.program.parent / "Client"


def is_installed(client):
    return any((client / name).is_file()
               for name in ("DofusInvoker.swf", "Client 2.51/DofusInvoker.swf"))


def sha256_of(path):
    return hashlib.sha256(path.read_bytes()).hexdigest() if path.is_file() else ""


def check_files(client, site):
    files = json.loads((site / MANIFEST.lstrip("/")).read_text())["files"]
    different = [file["name"] for file in files if sha256_of(client / file["name"]) != file["hash"]]
    if not files or different:
        raise Failure(f"of {len(files)} files, these differ from the manifest: {different}")
    say(f"all {len(files)} files of the client are those of the manifest")


# --- The stages ---


def see_version_check(launcher):
    launcher.wait_for_window("the launcher's window is open", LAUNCHER_TITLE)
    launcher.wait_for("the launcher asks whether a newer launcher is published",
                      lambda: launcher.has_asked(VERSION_CHECK), REQUEST_TIMEOUT)
    launcher.take_picture("1-checking")


def see_third_of_download(launcher, what, target, published):
    size = published.stat().st_size
    launcher.wait_for(f"a third of {what} is downloaded",
                      lambda: target.is_file() and target.stat().st_size > size / 3,
                      DOWNLOAD_TIMEOUT)


def see_installation(launcher, client, site):
    see_third_of_download(launcher, "the client", client / "DofusClient.zip",
                          site / ARCHIVE.lstrip("/"))
    if not launcher.play_button_is_grey():
        raise Failure("the play button is not greyed out during the download")
    launcher.take_picture("2-downloading")
    launcher.wait_for("the download is complete", lambda: launcher.was_answered(ARCHIVE),
                      DOWNLOAD_TIMEOUT)
    launcher.wait_for("the client is unpacked, and the launcher asks for the manifest",
                      lambda: launcher.has_asked(MANIFEST), READY_TIMEOUT)
    launcher.take_picture("3-verifying")
    launcher.wait_for("the manifest is delivered", lambda: launcher.was_answered(MANIFEST),
                      REQUEST_TIMEOUT)


def see_ready(launcher):
    launcher.wait_for("the server's status and the news are delivered",
                      lambda: launcher.was_answered(STATUS) and launcher.was_answered(NEWS),
                      REQUEST_TIMEOUT)
    launcher.wait_for("the play button is green", launcher.play_button_is_green, READY_TIMEOUT)
    if launcher.take_picture("4-ready").shows(ERROR_RED):
        raise Failure("something in the window is in the red of errors")


def play(launcher, client):
    marker = client / GAME_MARKER
    marker.unlink(missing_ok=True)
    tool("xdotool", "mousemove", *map(str, PLAY_BUTTON), "click", "1", check=True)
    say('clicked on "JOUER"')

    launcher.wait_for("the game has started", marker.is_file, GAME_TIMEOUT)
    record = dict(line.split(" : ", 1) for line in marker.read_text().splitlines())
    if not os.path.samefile(launcher.machine.path_of(record["Dossier de travail"]), client):
        raise Failure(f"the game runs in {record['Dossier de travail']}, not in {client}")
    game = launcher.wait_for_window("the game's window is open", GAME_TITLE)
    launcher.take_picture("5-game-started")

    close_window(game)
    launcher.wait_for("the game is closed, and the launcher is still there",
                      lambda: not launcher.machine.is_running(record["Processus"],
                                                              record["Programme"]), END_TIMEOUT)


def announcement(site):
    return json.loads((site / VERSION_CHECK.lstrip("/")).read_text())


def launcher_archive(site):
    """The file behind the address that is announced."""
    address = urllib.parse.urlsplit(announcement(site)["download_url"])
    return site / address.path.lstrip("/")


def see_update_accepted(launcher, site):
    prompt = launcher.wait_for_window("a newer launcher is offered", PROMPT_TITLE)
    launcher.take_picture("2-update-offered")
    tool("xdotool", "windowfocus", "--sync", str(prompt), "key", "alt+y", check=True)
    say('answered "Yes" by the keyboard')
    see_third_of_download(launcher, "the new launcher",
                          launcher.machine.temporary / "VeyraLauncher_update.zip",
                          launcher_archive(site))
    launcher.take_picture("3-update-downloading")
    launcher.wait_for_end()


def see_update_installed(launcher):
    """From the end of the old launcher to the window of the new one."""
    machine = launcher.machine
    log = machine.local_data / UPDATER_LOG

    def new_window_is_open():
        # Where it has a window, and that stays long enough.
        if not new_window_is_open.has_picture and find_window(UPDATER_TITLE):
            launcher.take_picture("4-updater-at-work")
            new_window_is_open.has_picture = True
        return launcher.has_asked(VERSION_CHECK, times=2) and find_window(LAUNCHER_TITLE)

    new_window_is_open.has_picture = False
    try:
        launcher.wait_for("the updater program has started the new launcher, which asks whether "
                          "a newer one is published", new_window_is_open, UPDATE_TIMEOUT)
    finally:
        if log.is_file():
            print(textwrap.indent(log.read_text(), "            "), end="")
    if not log.read_text().rstrip().endswith("Code de sortie 0"):
        raise Failure("the updater program ended with another exit code than 0")


def check_update(launcher, site, old_list):
    """The files are those of the published archive, whose list names them all."""
    folder = launcher.program.parent
    published = announcement(site)["version"]
    with zipfile.ZipFile(launcher_archive(site)) as archive:
        names = archive.namelist()
        different = [name for name in names
                     if not (folder / name).is_file()
                     or (folder / name).read_bytes() != archive.read(name)]
    if different or launcher.program.name not in names:
        raise Failure(f"of {len(names)} files, these differ from the archive: {different}")
    new_list = (folder / "liste.txt").read_text()
    if new_list.splitlines()[1] != published or old_list.splitlines()[1] == published:
        raise Failure(f"the installed list is not that of version {published}")
    sums = [dict(line.split(" ", 2)[::2][::-1] for line in text.splitlines()[3:])
            for text in (old_list, new_list)]
    for program in (launcher.program.name, "LauncherUpdater.exe"):
        if sums[0][program] == sums[1][program]:
            raise Failure(f"{program} is the same in both versions")
    if (folder / UPDATER_FOLDER).exists():
        raise Failure(f"the updater program has left its folder {UPDATER_FOLDER}")
    say(f"all {len(names)} files are those of version {published}, both programs among them")


def see_update(launcher, site):
    """An update is offered: accept it, see it installed, and the new launcher content with itself."""
    old_list = (launcher.program.parent / "liste.txt").read_text()
    see_update_accepted(launcher, site)
    see_update_installed(launcher)
    check_update(launcher, site, old_list)
    launcher.wait_for("the new launcher is told which version is published",
                      lambda: launcher.was_answered(VERSION_CHECK, times=2), REQUEST_TIMEOUT)
    # An offer would keep it from going on to the client, and the button grey.
    launcher.wait_for("it is the newest, and the play button is green",
                      launcher.play_button_is_green, READY_TIMEOUT)
    if find_window(PROMPT_TITLE):
        raise Failure("the new launcher offers an update once more")
    launcher.take_picture("5-new-version-ready")
    close_window(find_window(LAUNCHER_TITLE))
    launcher.wait_for("the new launcher's window is closed",
                      lambda: not find_window(LAUNCHER_TITLE), END_TIMEOUT)


def see_everything(launcher, arguments):
    client = game_folder(launcher)
    freshly_installed = not is_installed(client)

    see_version_check(launcher)
    if arguments.update:
        see_update(launcher, arguments.site)
        return
    if freshly_installed:
        see_installation(launcher, client, arguments.site)
    see_ready(launcher)
    if freshly_installed:
        check_files(client, arguments.site)
    play(launcher, client)
    # xdotool finds nothing while another window, the game's, is going away.
    close_window(launcher.wait_for_window("the launcher's window can be closed", LAUNCHER_TITLE))
    launcher.wait_for_end()


# --- Start and end ---


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name in ("launcher", "launcher-log", "site", "access-log", "screenshots"):
        parser.add_argument(f"--{name}", type=pathlib.Path, required=True)
    parser.add_argument("--update", action="store_true", help="a newer launcher is on offer")
    parser.add_argument("--wine", action="store_true", help="the launcher is a program for Windows")
    return parser.parse_args()


def walk(arguments):
    shutil.rmtree(arguments.screenshots, ignore_errors=True)
    arguments.screenshots.mkdir(parents=True)
    machine = Wine() if arguments.wine else ThisMachine()
    with open(arguments.launcher_log, "wb") as launcher_log:
        environment = dict(os.environ, **machine.environment,
                           VEYRA_DEMO_GAME_SECONDS=str(GAME_LIFETIME))
        environment.pop("DBUS_SESSION_BUS_ADDRESS", None)
        process = subprocess.Popen(machine.command(arguments.launcher), env=environment,
                                   stderr=launcher_log)
        with ended_at_last(process):
            launcher = Launcher(process, machine, arguments)
            try:
                see_everything(launcher, arguments)
            except Failure:
                launcher.take_picture("failure")
                raise


def main():
    # So that the children are ended when the script that called this one is stopped.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    arguments = parse_arguments()
    try:
        walk(arguments)
    except Failure as failure:
        say(f"FAILED: {failure}")
        print(f"The pictures are in {arguments.screenshots}, the server's log is "
              f"{arguments.access_log}, the launcher's {arguments.launcher_log}.\n"
              "After an installation that was broken off, scripts/run --fresh helps.")
        return 1
    except (subprocess.SubprocessError, OSError) as error:
        say(f"FAILED: {error}")
        return 1
    say("the whole chain was seen")
    print(f"The pictures are in {arguments.screenshots}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
