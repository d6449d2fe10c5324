#!/usr/bin/env python3
"""Installs the package of build/package/ in a fresh Wine prefix, looks at what landed, takes it away
again, and sees that the registration file says the same as the installer.

Usage: packaging/windows/check_package.py

Prints one line for each check, beginning with "ok" or "not ok".
"""
import os
import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGE = ROOT / "build/package"
PREFIX = ROOT / "build/wine/package"
WINDOWS = PREFIX / "drive_c/windows"
DLL = "kelmora-id-minidriver.dll"
DATABASES = [r"HKLM\SOFTWARE\Microsoft\Cryptography\Calais\SmartCards",
             r"HKLM\SOFTWARE\Wow6432Node\Microsoft\Cryptography\Calais\SmartCards"]
failed = False


def check(name, passed):
    global failed
    failed = failed or not passed
    print(f"{'ok' if passed else 'not ok'} - package: {name}")


def wine(*command):
    return subprocess.run([ROOT / "tools/run_in_wine.sh", "x64", *map(str, command)], cwd=PACKAGE,
                          env={**os.environ, "WINEPREFIX": str(PREFIX)}, stdin=subprocess.DEVNULL,
                          capture_output=True)


def database():
    """Both views of the database, as the text of a registration file; empty where there is none."""
    text = ""
    for key in DATABASES:
        exported = PACKAGE / "export.reg"
        exported.unlink(missing_ok=True)
        wine("reg", "export", key, exported.name)
        if exported.exists():
            text += exported.read_text(encoding="utf-16").replace("\\\n  ", "")
            exported.unlink()
    return text


def installed_files():
    return {folder: (WINDOWS / folder / DLL).read_bytes() for folder in ("system32", "syswow64")
            if (WINDOWS / folder / DLL).exists()}


def main():
    shutil.rmtree(PREFIX, ignore_errors=True)
    packages = list(PACKAGE.glob("*.msi"))
    check("there is one MSI", len(packages) == 1)
    built = {"system32": (PACKAGE / "x64" / DLL).read_bytes(),
             "syswow64": (PACKAGE / "x86" / DLL).read_bytes()}

    check("installs", wine("msiexec", "/i", packages[0].name, "/qn").returncode == 0)
    check("both DLLs land where Windows looks for them", installed_files() == built)
    by_installer = database()
    check("six cards stand in both views of the database, each for both lengths of its ATR",
          by_installer.count('"ATR"=hex:') == 24 and by_installer.count('"ATRMask"=hex:ff,') == 24)
    check("no log folder is made: logging stays off",
          not any(PREFIX.glob("drive_c/Program Files*/Kelmora*")))

    check("is taken away", wine("msiexec", "/x", packages[0].name, "/qn").returncode == 0)
    check("leaves no file", not installed_files())
    check("leaves nothing in the database", "Kelmora" not in database())

    registration = "kelmora-id-minidriver.reg"
    check("the registration file can be imported", wine("reg", "import", registration).returncode == 0)
    check("the registration file says the same as the installer", database() == by_installer != "")
    shutil.rmtree(PREFIX, ignore_errors=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
