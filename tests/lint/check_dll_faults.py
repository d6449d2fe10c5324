#!/usr/bin/env python3
"""Plants faults into copies of a built DLL, one at a time, and sees check_dll.py find each, by what
is there for it and by nothing else.

Usage: tests/lint/check_dll_faults.py x64|x86|arm64|forwarder DLL

Prints one line for each fault, beginning with "ok" or "not ok".
"""
import pathlib
import struct
import sys
import tempfile

import check_dll
from check_dll import pefile

CHECKSUM = "has the checksum that critical processes compare"  # of every byte: told apart by the last fault
MARKS = "is marked as it can be: relocatable anywhere, data not executable, no handlers on x86's stack"


def header(field, change):
    """A field of one of the headers, by the structure's name and the field's, changed by a function."""
    def plant(file, data):
        structure = {"file": file.FILE_HEADER, "optional": file.OPTIONAL_HEADER}[field[0]]
        place = structure.get_field_absolute_offset(field[1])
        form = "<H" if field[1] in ("Machine", "Characteristics", "DllCharacteristics") else "<I"
        struct.pack_into(form, data, place, change(struct.unpack_from(form, data, place)[0]))
    return plant


def section(name, field, change):
    def plant(file, data):
        found = next(one for one in file.sections if one.Name.rstrip(b"\0") == name)
        place = found.get_field_absolute_offset(field)
        if isinstance(change, bytes):
            data[place:place + 8] = change.ljust(8, b"\0")
        else:
            struct.pack_into("<I", data, place, struct.unpack_from("<I", data, place)[0] | change)
    return plant


def text(old, new):
    """A text at its every place, by one of the same length."""
    def plant(_, data):
        assert len(old) == len(new) and old in data
        data[:] = data.replace(old, new)
    return plant


def load_flags(file, data):
    directory = file.DIRECTORY_ENTRY_LOAD_CONFIG.struct
    name = "DependentLoadFlags" if hasattr(directory, "DependentLoadFlags") else "Reserved1"
    struct.pack_into("<H", data, directory.get_field_absolute_offset(name), 0)


def stack_checks(_, data):
    for mark in check_dll.STACK_CHECKS:
        data[:] = data.replace(mark, b"\xcc" * len(mark))


def wide(value):
    return value.encode("utf-16-le")


VERSION = check_dll.project_version()
NO_CODE, FORWARDED = "holds no code", "hands the export on to the DLL for {} processes"
WRITTEN, SHARES = "has no section that is both written and executed", "shares no section between processes"
FOLDER = "names no folder or source file of the building machine"
# Of each file.
EVERYWHERE = {
    "imports from anywhere": (load_flags, "has its imports looked for in System32 only"),
    "a fixed address": (header(("optional", "DllCharacteristics"), lambda flags: flags & ~check_dll.DYNAMIC_BASE),
                        MARKS),
    "executable data": (header(("optional", "DllCharacteristics"), lambda flags: flags & ~check_dll.NX), MARKS),
    "the platform's own signature asked for": (
        header(("optional", "DllCharacteristics"), lambda flags: flags | check_dll.FORCE_INTEGRITY),
        MARKS, "asks for no signature of the platform's own"),
    "a guarded control flow without its table": (
        header(("optional", "DllCharacteristics"), lambda flags: flags | check_dll.GUARD_CF),
        MARKS, "does not claim a guarded control flow that it has not"),
    "no relocations": (header(("file", "Characteristics"), lambda flags: flags | 1),
                       "can be moved: has relocations"),
    "small pages": (header(("optional", "SectionAlignment"), lambda _: 512),
                    "stands in memory in pages of 4096 bytes, as protected processes ask"),
    "debug information": (section(b".rdata", "Name", b".debug_x"), "holds no debug information"),
    "no identity": (header(("file", "TimeDateStamp"), lambda _: 0),
                    "has an identity of its content, not of the moment"),
    "another version": (text(wide(VERSION), wide("9" + VERSION[1:])),
                        "tells the project's version to Windows"),
    "another byte": (text(b"This program cannot be run", b"This program CANNOT be run"), CHECKSUM),
}
# Of a DLL with code in it.
OF_A_DLL = {
    "another architecture": (header(("file", "Machine"), lambda machine: machine ^ 1),
                             "is built for its architecture"),
    "another export": (text(b"CardAcquireContext\0", b"CardAcquireContexT\0"),
                       f"exports {check_dll.EXPORT} alone, undecorated"),
    "another import": (text(b"SCardTransmit\0", b"SCardControlX\0"), "imports what is allowed and nothing else"),
    "an import of another DLL": (text(b"WINHTTP.dll\0", b"WSOCK32.dll\0"),
                                 "imports what is allowed and nothing else"),
    "no check of the stack": (stack_checks, "is protected against overrun buffers on the stack"),
    "code that can be written": (section(b".text", "Characteristics", check_dll.WRITE), WRITTEN),
    "shared data": (section(b".data", "Characteristics", check_dll.SHARED), SHARES),
    "a folder of the building machine": (text(b"Entering the function", b"/home/someone/folder1"), FOLDER),
}
# Of the one that stands for two on ARM64.
OF_THE_FORWARDER = {
    "another architecture": (header(("file", "Machine"), lambda machine: machine ^ 1),
                             "is built for its architecture", "is of its machine for ARM64 processes"),
    "another export": (text(b"CardAcquireContext\0", b"CardAcquireContexT\0"),
                       FORWARDED.format("ARM64"), FORWARDED.format("x64")),
    "another DLL for ARM64 processes": (text(b"minidriver-arm64.", b"minidriver-arm65."), FORWARDED.format("ARM64")),
    "another DLL for x64 processes": (text(b"minidriver-x64.", b"minidriver-x65."), FORWARDED.format("x64")),
    "code": (header(("optional", "SizeOfCode"), lambda _: 512), NO_CODE),
    "an entry": (header(("optional", "AddressOfEntryPoint"), lambda _: 4096), NO_CODE),
    "code that can be written": (section(b".rdata", "Characteristics", check_dll.WRITE | check_dll.EXECUTE), WRITTEN),
    "shared data": (section(b".rdata", "Characteristics", check_dll.SHARED), SHARES),
    "a folder of the building machine": (text(b"This program cannot be run", b"/home/someone/folder/of/on"),
                                         FOLDER),
}


def main():
    architecture, path = sys.argv[1], pathlib.Path(sys.argv[2])
    original, failed = path.read_bytes(), False
    faults = {**EVERYWHERE, **(OF_THE_FORWARDER if architecture == "forwarder" else OF_A_DLL)}
    with tempfile.TemporaryDirectory() as folder:
        changed = pathlib.Path(folder) / path.name
        for name, (plant, *wanted) in faults.items():
            data = bytearray(original)
            plant(pefile.PE(data=original, fast_load=False), data)
            changed.write_bytes(data)
            found = {check for check, wrong in check_dll.checks(architecture, changed) if wrong}
            seen = found == {*wanted, CHECKSUM}
            failed = failed or not seen
            print(f"ok - planted into the {architecture} DLL: {name}" if seen else
                  f"not ok - planted into the {architecture} DLL: {name}: found {sorted(found)}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
