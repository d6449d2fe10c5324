#!/usr/bin/env python3
"""Checks the built Windows DLL itself: what it exports and imports, its hardening, what stands in it.

Usage: tests/lint/check_dll.py x64|x86 DLL

Prints one line for each check, beginning with "ok" or "not ok".
"""
import pathlib
import re
import subprocess
import sys

EXPORTS = ["CardAcquireContext"]
# DLLs of every Windows since 7; lower case.
SYSTEM_DLLS = {"advapi32.dll", "bcrypt.dll", "crypt32.dll", "kernel32.dll", "msvcrt.dll", "ole32.dll",
               "user32.dll", "winhttp.dll", "winscard.dll"}
FORMATS = {"x64": "pei-x86-64", "x86": "pei-i386"}
CHARACTERISTICS = {"x64": ["HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"],
                   "x86": ["DYNAMIC_BASE", "NX_COMPAT"]}
# Folders of a building machine: of its users, its temporary files, this source tree.
FOLDERS = re.compile(rb"[\x20-\x7e]*(?:/home/|/root/|/tmp/|/usr/|/build/|\.cpp\b)[\x20-\x7e]*")


def exported_names(dump):
    table = dump.split("[Ordinal/Name Pointer] Table", 1)
    return re.findall(r"^\s*\[\s*\d+\](?:\s+\+base\[\s*\d+\])?\s+(?:[0-9a-f]+\s+)?(\S+)$",
                      table[1].split("\n\n", 1)[0], re.M) if len(table) == 2 else []


def checks(architecture, path):
    """Pairs of a check's name and what is wrong, empty where nothing is."""
    dump = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", "-h", str(path)], check=True,
                          capture_output=True, text=True).stdout
    data = path.read_bytes()

    file_format = re.search(r"file format (\S+)", dump)[1]
    yield "is built for its architecture", "" if file_format == FORMATS[architecture] else file_format

    names = exported_names(dump)
    yield "exports CardAcquireContext alone, undecorated", "" if names == EXPORTS else str(names)

    imports = {name.lower() for name in re.findall(r"DLL Name: (\S+)", dump)}
    foreign = imports - SYSTEM_DLLS
    yield ("imports from system DLLs only: " + ", ".join(sorted(imports)),
           ", ".join(sorted(foreign)) if foreign else "" if imports else "no imports at all")

    for flag in CHARACTERISTICS[architecture]:
        yield f"is marked {flag}", "" if re.search(rf"^\s+{flag}$", dump, re.M) else "it is not"
    yield "can be moved: has relocations", "" if ".reloc" in dump else "no .reloc section"

    writable_code = [name for name, flags in re.findall(r"^\s*\d+ (\S+).*\n\s+(.*)$", dump, re.M)
                     if "CODE" in flags and "READONLY" not in flags]
    yield "has no code that can be written", ", ".join(writable_code)

    debug = re.findall(r"^\s*\d+ (\.debug\S*|/\d+)\s", dump, re.M)
    yield "holds no debug information", ", ".join(debug)

    stamp = re.search(r"^Time/Date\s+(.*)$", dump, re.M)[1]
    header = int.from_bytes(data[0x3C:0x40], "little")
    yield ("carries no time stamp",
           "" if not any(data[header + 8:header + 12]) else stamp)

    folders = sorted(set(FOLDERS.findall(data)))
    yield "names no folder or source file of the building machine", b"; ".join(folders).decode()

    version = "FileVersion".encode("utf-16-le") in data
    yield "tells its version to Windows", "" if version else "no version resource"


def main():
    architecture, path = sys.argv[1], pathlib.Path(sys.argv[2])
    failed = False
    for name, wrong in checks(architecture, path):
        failed = failed or bool(wrong)
        print(f"not ok - {architecture} DLL {name}: {wrong}" if wrong
              else f"ok - {architecture} DLL {name}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
