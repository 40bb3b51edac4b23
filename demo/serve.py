#!/usr/bin/env python3
"""Serves the sample site on loopback, by Python's own web server.

The first line on the standard output is the port, written once connections are accepted. Everything
else goes to the access log: one line when a request comes in, one when its answer is out.
"""

import argparse
import errno
import http.server
import pathlib
import sys
import threading
import time

CHUNK_BYTES = 64 * 1024
EXIT_PORT_TAKEN = 3


class AccessLog:
    """A line per event; the threads of several requests write into one file."""

    def __init__(self, path):
        self._file = open(path, "w", encoding="utf-8", buffering=1)
        self._lock = threading.Lock()

    def write(self, event, method, path, *details):
        now = time.time()
        stamp = time.strftime("%H:%M:%S", time.localtime(now)) + f".{int(now * 1000) % 1000:03d}"
        with self._lock:
            print(stamp, event, method, path, *details, file=self._file)


class Handler(http.server.SimpleHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    extensions_map = {
        "": "application/octet-stream",
        ".html": "text/html; charset=utf-8",
        ".json": "application/json",
        ".php": "application/json",
        ".txt": "text/plain; charset=utf-8",
        ".zip": "application/zip",
    }

    log = None
    delay = 0.0
    rate = 0.0

    def do_GET(self):
        self._answer(super().do_GET)

    def do_HEAD(self):
        self._answer(super().do_HEAD)

    def _answer(self, answer):
        self._status = 0
        self._bytes_sent = 0
        self.log.write("asked", self.command, self.path)
        time.sleep(self.delay)
        try:
            answer()
        except (BrokenPipeError, ConnectionResetError):
            # The launcher was closed in the middle of a download.
            self.close_connection = True
            self.log.write("broken-off", self.command, self.path, self._bytes_sent)
            return
        self.log.write("answered", self.command, self.path, self._status, self._bytes_sent)

    def copyfile(self, source, outputfile):
        started = time.monotonic()
        while chunk := source.read(CHUNK_BYTES):
            outputfile.write(chunk)
            self._bytes_sent += len(chunk)
            if self.rate:
                ahead = self._bytes_sent / self.rate - (time.monotonic() - started)
                time.sleep(max(0.0, ahead))

    def list_directory(self, path):
        self.send_error(http.HTTPStatus.NOT_FOUND)

    def log_request(self, code="-", size="-"):
        self._status = int(code)

    def log_message(self, format, *arguments):
        # A malformed request, for instance; what was answered is logged above.
        self.log.write("note", self.command or "-", getattr(self, "path", "-"), format % arguments)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--log", type=pathlib.Path, required=True, help="the access log")
    parser.add_argument("--port", type=int, default=0, help="0 (default): any free port")
    parser.add_argument("--rate", type=float, default=0.0, metavar="MB/S",
                        help="limit of each transfer; 0 (default): none")
    parser.add_argument("--delay", type=float, default=0.0, metavar="SECONDS",
                        help="time before each answer, as if the server were far away")
    arguments = parser.parse_args()
    if not 0 <= arguments.port <= 65535:
        parser.error(f"there is no port {arguments.port}")
    if not (arguments.rate >= 0 and arguments.delay >= 0):
        parser.error("neither --rate nor --delay is below 0")
    return arguments


def main():
    arguments = parse_arguments()
    Handler.log = AccessLog(arguments.log)
    Handler.rate = arguments.rate * 1024 * 1024
    Handler.delay = arguments.delay

    def handler(*parameters):
        return Handler(*parameters, directory=str(arguments.folder))

    try:
        server = http.server.ThreadingHTTPServer(("127.0.0.1", arguments.port), handler)
    except OSError as error:
        if error.errno != errno.EADDRINUSE:
            raise
        return EXIT_PORT_TAKEN

    print(server.server_port, flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass
    return 0


if __name__ == "__main__":
    sys.exit(main())
