#!/usr/bin/env python3
"""Prints the binary package sources of a deb822 file as one-line entries for source packages."""

import re
import sys


def stanzas(text):
    for block in re.split(r"\n\s*\n", text):
        fields, name = {}, None
        for line in block.splitlines():
            if line.startswith("#"):
                continue
            if line[:1].isspace() and name:
                fields[name] += "\n" + line.strip()
            elif ":" in line:
                name, _, value = line.partition(":")
                name = name.strip().lower()
                fields[name] = value.strip()
        if fields:
            yield fields


def entries(fields):
    if fields.get("enabled", "yes").lower() == "no" or "deb" not in fields.get("types", "").split():
        return
    # A key that stands in the file itself cannot be given in a one-line entry.
    key = fields.get("signed-by", "")
    options = f"[signed-by={key}] " if key.startswith("/") and "\n" not in key else ""
    for uri in fields.get("uris", "").split():
        for suite in fields.get("suites", "").split():
            yield f"deb-src {options}{uri} {suite} {fields.get('components', '')}".rstrip()


for stanza in stanzas(open(sys.argv[1], encoding="utf-8").read()):
    print("\n".join(entries(stanza)))
