#!/usr/bin/env python3
"""Checks the built Windows DLL itself: what it exports and imports, its hardening, what stands in it.

Usage: tests/lint/check_dll.py x64|x86|arm64|forwarder DLL

Prints one line for each check, beginning with "ok" or "not ok".
"""
import os
import pathlib
import re
import subprocess
import sys

try:
    import pefile
except ImportError:  # the package is the system Python's
    if sys.executable == "/usr/bin/python3":
        raise
    os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXPORT = "CardAcquireContext"
ALLOWED = pathlib.Path(__file__).with_name("allowed_imports.txt")
MACHINES = {"x64": 0x8664, "x86": 0x14C, "arm64": 0xAA64, "forwarder": 0xAA64}
HIGH_ENTROPY, DYNAMIC_BASE, FORCE_INTEGRITY, NX, NO_SEH, GUARD_CF = 0x20, 0x40, 0x80, 0x100, 0x400, 0x4000
EXECUTE, WRITE, SHARED = 0x20000000, 0x80000000, 0x10000000
SYSTEM32_ONLY = 0x800  # LOAD_LIBRARY_SEARCH_SYSTEM32
DEBUG_CODEVIEW, DEBUG_REPRO = 2, 16
# What a failed check of the stack does, linked in only where something can fail: the fast end of a
# process, "mov ecx, 2; int 0x29" or ARM64's "mov w0, #2; brk #0xf003".
STACK_CHECKS = (bytes.fromhex("b902000000cd29"), bytes.fromhex("4000805260003ed4"))
# Folders of a building machine: of its users, its temporary files, this source tree.
FOLDERS = re.compile(rb"[\x20-\x7e]*(?:/home/|/root/|/tmp/|/usr/|/build/|\.cpp\b)[\x20-\x7e]*")


def allowed_imports(architecture):
    """Pairs (DLL in lower case, function) of the list, for one architecture."""
    allowed, here = set(), False
    for line in ALLOWED.read_text(encoding="ascii").splitlines():
        line = line.split("#")[0].strip()
        if line.startswith("["):
            here = architecture in line.strip("[]").split()
        elif line and here:
            dll, *functions = line.split()
            allowed.update((dll.lower(), function) for function in functions)
    return allowed


def imports(file):
    """Pairs (DLL in lower case, function), load-time and delayed; a number where there is no name."""
    return {(entry.dll.decode().lower(), function.name.decode() if function.name else f"#{function.ordinal}")
            for table in ("DIRECTORY_ENTRY_IMPORT", "DIRECTORY_ENTRY_DELAY_IMPORT")
            for entry in getattr(file, table, []) for function in entry.imports}


def exports(file):
    """Pairs (name, forwarded to or None)."""
    table = getattr(file, "DIRECTORY_ENTRY_EXPORT", None)
    return [((symbol.name or b"").decode(), symbol.forwarder and symbol.forwarder.decode())
            for symbol in (table.symbols if table else [])]


def x64_view(path):
    """The forwarder as an emulated x64 process sees it: with the changes made that the linker left for
    the loader, each a value at an address."""
    text = subprocess.run(["llvm-readobj-22", "--coff-load-config", str(path)], check=True, capture_output=True,
                          text=True).stdout
    changes = re.findall(r"Entry \[\s+RVA: 0x(\w+)\s+Type: VALUE\s+Size: 0x(\w+)\s+Value: 0x(\w+)", text)
    file = pefile.PE(str(path))
    data = bytearray(path.read_bytes())
    for address, size, value in ([int(number, 16) for number in change] for change in changes):
        place = file.get_offset_from_rva(address)
        data[place:place + size] = value.to_bytes(size, "little")
    return pefile.PE(data=bytes(data))


def project_version():
    return re.search(r"^project\(\S+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.M)[1]


def told_version(file):
    for block in getattr(file, "FileInfo", [[]])[0]:
        for table in getattr(block, "StringTable", []):
            return table.entries.get(b"FileVersion", b"").decode()
    return None


def checks(architecture, path):
    """Pairs of a check's name and what is wrong, empty where nothing is."""
    data = path.read_bytes()
    file = pefile.PE(data=data)
    header = file.OPTIONAL_HEADER

    machine = file.FILE_HEADER.Machine
    yield "is built for its architecture", "" if machine == MACHINES[architecture] else hex(machine)

    if architecture == "forwarder":
        views = {"ARM64": (file, 0xAA64, "arm64"), "x64": (x64_view(path), 0x8664, "x64")}
        for name, (view, wanted, target) in views.items():
            yield f"is of its machine for {name} processes", "" if view.FILE_HEADER.Machine == wanted else "another"
            found = exports(view)
            yield (f"hands the export on to the DLL for {name} processes",
                   "" if found == [(EXPORT, f"kelmora-id-minidriver-{target}.{EXPORT}")] else str(found))
        yield "holds no code", "" if header.SizeOfCode == 0 and header.AddressOfEntryPoint == 0 else "it does"
        yield "imports nothing", str(sorted(imports(file))) if imports(file) else ""
    else:
        found = exports(file)
        yield f"exports {EXPORT} alone, undecorated", "" if found == [(EXPORT, None)] else str(found)
        found, allowed = imports(file), allowed_imports(architecture)
        yield ("imports what is allowed and nothing else",
               "; ".join(f"{what}: {' '.join(pair)}" for what, pairs in
                         (("not allowed", found - allowed), ("allowed and not imported", allowed - found))
                         for pair in sorted(pairs)))
        yield ("is protected against overrun buffers on the stack",
               "" if any(mark in data for mark in STACK_CHECKS) else "nothing calls the check")

    flags = file.DIRECTORY_ENTRY_LOAD_CONFIG.struct if hasattr(file, "DIRECTORY_ENTRY_LOAD_CONFIG") else None
    # Behind GlobalFlagsClear .. of the published record; pefile of Debian 12 gives it by this name.
    dependent = getattr(flags, "DependentLoadFlags", getattr(flags, "Reserved1", None)) if flags else None
    yield ("has its imports looked for in System32 only",
           "" if dependent == SYSTEM32_ONLY else f"DependentLoadFlags {dependent}")

    found, wanted = header.DllCharacteristics, DYNAMIC_BASE | NX
    wanted |= NO_SEH if architecture == "x86" else HIGH_ENTROPY
    yield ("is marked as it can be: relocatable anywhere, data not executable, no handlers on x86's stack",
           "" if found == wanted else f"{found:#x} instead of {wanted:#x}")
    yield "asks for no signature of the platform's own", "it does" if found & FORCE_INTEGRITY else ""
    yield ("does not claim a guarded control flow that it has not",
           "" if not found & GUARD_CF or getattr(flags, "GuardCFFunctionCount", 0) else "no table")
    relocations = any(section.Name.startswith(b".reloc") for section in file.sections)
    yield "can be moved: has relocations", "" if relocations and not machine_stripped(file) else "no .reloc section"
    yield ("stands in memory in pages of 4096 bytes, as protected processes ask",
           "" if header.SectionAlignment == 4096 else str(header.SectionAlignment))
    for name, bad in (("has no section that is both written and executed", EXECUTE | WRITE),
                      ("shares no section between processes", SHARED)):
        wrong = [section.Name.rstrip(b"\0").decode() for section in file.sections
                 if section.Characteristics & bad == bad]
        yield name, ", ".join(wrong)

    wrong = [section.Name.rstrip(b"\0").decode() for section in file.sections if section.Name.startswith((b".debug", b"/"))]
    yield "holds no debug information", ", ".join(wrong)

    kinds = {entry.struct.Type: entry for entry in getattr(file, "DIRECTORY_ENTRY_DEBUG", [])}
    yield ("has an identity of its content, not of the moment",
           "" if DEBUG_REPRO in kinds and DEBUG_CODEVIEW in kinds and file.FILE_HEADER.TimeDateStamp else
           f"time stamp {file.FILE_HEADER.TimeDateStamp}, debug entries {sorted(kinds)}")
    yield ("has the checksum that critical processes compare",
           "" if header.CheckSum and file.verify_checksum() else f"{header.CheckSum:#x}")

    folders = sorted(set(FOLDERS.findall(data)))
    yield "names no folder or source file of the building machine", b"; ".join(folders).decode()

    told = told_version(file)
    yield "tells the project's version to Windows", "" if told == project_version() else str(told)


def machine_stripped(file):
    return bool(file.FILE_HEADER.Characteristics & 1)  # IMAGE_FILE_RELOCS_STRIPPED


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
