#!/usr/bin/env python3
"""Checks the tracked files for what must not land: notes of unfinished work, addresses of package
mirrors, paths of one machine, and citations of documents that do not stand in this repository.

Usage: tests/lint/check_words.py [ROOT]
"""
import pathlib
import re
import subprocess
import sys

UNFINISHED = re.compile(r"\b(TO" r"DO|FIX" r"ME|XX" r"X|HA" r"CK)\b")
CITATION = re.compile(r"\b[Pp]arts? [1-9]\.\d|\bthe\s+spec(ification)?\b", re.IGNORECASE)
PUBLIC_STANDARD = re.compile(r"ISO|RFC|PC/SC|PKCS|FIPS|minidriver spec", re.IGNORECASE)
MACHINE_PATH = re.compile(r"/home/\w+/|(?<![\w.\"'$}-])/root/\w")


def mirror_hosts():
    """The hosts of this machine's own package settings."""
    hosts = set()
    sources = pathlib.Path("/etc/apt/sources.list.d")
    for path in [pathlib.Path("/etc/apt/sources.list"), *sources.glob("*.list"),
                 *sources.glob("*.sources")]:
        if path.is_file():
            hosts.update(re.findall(r"https?://([\w.-]+)", path.read_text(errors="replace")))
    return hosts


def problems(root):
    hosts = mirror_hosts()
    folder = f"{root}/"
    tracked = subprocess.run(["git", "-C", str(root), "ls-files", "-z"], check=True,
                             capture_output=True).stdout.decode().split("\0")
    for name in filter(None, tracked):
        path = root / name
        if not path.is_file():
            continue
        data = path.read_bytes()
        if b"\0" in data[:8000]:
            continue
        for number, line in enumerate(data.decode("utf-8", "replace").splitlines(), 1):
            where = f"{name}:{number}"
            if UNFINISHED.search(line):
                yield f"{where}: a note of unfinished work"
            if CITATION.search(line) and not PUBLIC_STANDARD.search(line):
                yield f"{where}: cites a document that does not stand here"
            if any(host in line for host in hosts):
                yield f"{where}: the address of a package mirror"
            if folder in line or MACHINE_PATH.search(line):
                yield f"{where}: a path of one machine"


def main():
    here = pathlib.Path(__file__).resolve().parents[2]
    root = pathlib.Path(sys.argv[1]).resolve() if len(sys.argv) > 1 else here
    found = list(problems(root))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
