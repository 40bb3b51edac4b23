"""What the measured programs need around them: a web server, folders of their own."""

import contextlib
import json
import os
import select
import socket
import subprocess
import time
from pathlib import Path

TIMEOUT = 120  # seconds; no single run takes nearly that long

NGINX_CONFIGURATION = """
daemon off;
{user}
worker_processes 1;
pid {folder}/nginx.pid;
error_log {folder}/error.log;
events {{ worker_connections 64; }}
http {{
    log_format times "$msec $uri";
    access_log {folder}/access.log times;
    sendfile on;
    default_type application/octet-stream;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    server {{
        listen 127.0.0.1:{port};
        root {root};
        # What "slow-disk" offers, its archive by way of a redirect.
        rewrite ^/redirected/client/(.*)$ /slow-disk/client/$1 redirect;
        rewrite ^/redirected/(.*)$ /slow-disk/$1 last;
    }}
}}
"""


class Surroundings:
    """Started on entry, stopped on exit."""

    def __init__(self, build, folder, root):
        self.build = build
        self.folder = folder / "surroundings"
        self.root = root
        self.children = []

    def __enter__(self):
        self.folder.mkdir(parents=True, exist_ok=True)
        (self.folder / "access.log").unlink(missing_ok=True)
        try:
            self.port = self._start_server()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for child in reversed(self.children):
            child.terminate()
            child.wait()

    def _start_server(self):
        for _ in range(10):
            port = free_port()
            configuration = self.folder / "nginx.conf"
            configuration.write_text(NGINX_CONFIGURATION.format(
                folder=self.folder, root=self.root, port=port,
                # Started by root, nginx would serve as somebody who may not read the files.
                user="user root;" if os.geteuid() == 0 else ""))
            server = subprocess.Popen(
                [os.environ.get("NGINX", "nginx"), "-e", self.folder / "error.log",
                 "-c", configuration], stderr=subprocess.DEVNULL)
            while server.poll() is None:
                if answers(port):
                    self.children.append(server)
                    return port
                time.sleep(0.02)
        raise SystemExit(f"nginx does not start: see {self.folder}/error.log")

    def url(self, scenario):
        return f"http://127.0.0.1:{self.port}/{scenario}/"

    def requests(self, scenario, path):
        """When this was asked for, in seconds of the system's clock."""
        log = (self.folder / "access.log").read_text().splitlines()
        return [float(line.split()[0]) for line in log if line.endswith(f" /{scenario}/{path}")]

    def program(self, name):
        return str(self.build / "bench" / name)

    def environment(self, scenario, game, goal):
        """A home of the programs' own, with the game folder in the launcher's configuration."""
        home = self.folder / "home" / scenario
        configuration = home / "data" / "Veyra" / "Veyra Launcher" / "config.json"
        configuration.parent.mkdir(parents=True, exist_ok=True)
        configuration.write_text(json.dumps({"dofus_path": str(game)}), encoding="utf-8")
        return {
            "PATH": os.environ["PATH"],
            "LANG": "C.UTF-8",
            "HOME": str(home),
            "XDG_DATA_HOME": str(home / "data"),
            "XDG_CONFIG_HOME": str(home / "config"),
            "XDG_CACHE_HOME": str(self.folder / "cache"),
            "XDG_RUNTIME_DIR": str(private_folder(home / "runtime")),
            "DISPLAY": os.environ["DISPLAY"],
            "QT_QPA_PLATFORM": "xcb",
            "VEYRA_BENCH_SERVER": self.url(scenario),
            "VEYRA_BENCH_UNTIL": goal,
        }

    def start(self, name, environment):
        return subprocess.Popen([self.program("bench_start"), self.program(name)], env=environment,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def run(self, name, scenario, game, goal, **more):
        """Runs a program up to its goal and returns its figures."""
        process = self.start(name, self.environment(scenario, game, goal) | more)
        try:
            output, errors = process.communicate(timeout=TIMEOUT)
        except subprocess.TimeoutExpired:
            process.kill()
            output, errors = process.communicate()
        if process.returncode != 0:
            raise SystemExit(f"{name} failed on the way to \"{goal}\" ({scenario}):\n"
                             f"{output}{errors}")
        return json.loads(output)


def first_line(process):
    ready, _, _ = select.select([process.stdout], [], [], TIMEOUT)
    if not ready:
        raise SystemExit("a program never got ready")
    return process.stdout.readline()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def answers(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def private_folder(path):
    path.mkdir(parents=True, exist_ok=True)
    path.chmod(0o700)
    return path


class Activity:
    """Processor time and wake-ups of a process, all of its threads together."""

    def __init__(self, process):
        self.tasks = Path(f"/proc/{process.pid}/task")
        self.clock = (~process.pid << 3) | 2  # the kernel's number for a process's own clock

    def processor_ms(self):
        return time.clock_gettime_ns(self.clock) / 1e6

    def wakeups(self):
        """How often each thread has woken up; a thread that has ended is missing."""
        counts = {}
        for task in self.tasks.iterdir():
            with contextlib.suppress(OSError):  # it may end while it is looked at
                for line in (task / "status").read_text().splitlines():
                    if line.startswith("voluntary_ctxt_switches:"):
                        counts[task.name] = int(line.split()[1])
        return counts
