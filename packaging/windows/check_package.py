#!/usr/bin/env python3
"""Installs the package of one architecture in a fresh Wine and looks at what landed; repairs it, upgrades
it, lets it refuse to go back and to serve other processors, and takes it away again.

The ARM64 package goes into an x64 Wine that is told to be an ARM64 Windows, in a copy that is marked for
x64: Debian's ARM64 Wine has no side for 32-bit programs, so that it cannot show where the files land.

Usage: packaging/windows/check_package.py [FOLDER [x64|x86|arm64]]      (build/package and x64)

Prints one line for each check, beginning with "ok" or "not ok". Exit code 77: this machine cannot run Wine
of that architecture; the reason is told on standard error.
"""
import os
import pathlib
import shutil
import subprocess
import sys

import cards as cards_module
import make_msi
from cards import DLL
from checks import Checks
from registration import VIEWS, expected, msi_table, read_registration_file

ROOT = pathlib.Path(__file__).resolve().parents[2]
ENVIRONMENT = r"HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
ERROR_FAILURE, ERROR_PLATFORM = 1603 & 0xFF, 1633 & 0xFF  # as Wine's exit code tells them
EPOCH = 946684800


class Machine:
    """A Wine of its own, and what a package changes in it."""

    def __init__(self, architecture, work):
        self.architecture = architecture
        self.wine = "x64" if architecture == "arm64" else architecture
        self.work = work
        self.prefix = ROOT / f"build/wine/package-{architecture}"
        self.windows = self.prefix / "drive_c/windows"
        shutil.rmtree(self.prefix, ignore_errors=True)
        self.prefix.with_name(self.prefix.name + ".lock").unlink(missing_ok=True)

    def run(self, *command):
        return subprocess.run([ROOT / "tools/run_in_wine.sh", self.wine, *map(str, command)], cwd=self.work,
                              env={**os.environ, "WINEPREFIX": str(self.prefix)}, stdin=subprocess.DEVNULL,
                              capture_output=True)

    def set_processor(self, name):
        self.run("reg", "add", ENVIRONMENT, "/v", "PROCESSOR_ARCHITECTURE", "/d", name, "/f")

    def msiexec(self, how, msi, *properties):
        return self.run("msiexec", how, msi.name, *properties, "/qn").returncode

    def export(self, key):
        exported = self.work / "export.reg"
        exported.unlink(missing_ok=True)
        self.run("reg", "export", key, exported.name)
        text = exported.read_text(encoding="utf-16") if exported.exists() else ""
        exported.unlink(missing_ok=True)
        return text

    def database(self):
        """Our cards in the views of the database that there are."""
        views = read_registration_file("".join(
            self.export(rf"HKLM\{software}\Microsoft\Cryptography\Calais\SmartCards") for software in VIEWS))
        views = {software: {name: row for name, row in rows.items() if name.startswith("Kelmora")}
                 for software, rows in views.items()}
        return {software: rows for software, rows in views.items() if rows}

    def files(self):
        return {f"{folder}/{path.name}": path.read_bytes() for folder in ("system32", "syswow64")
                for path in (self.windows / folder).glob("kelmora*")}

    def folders(self):
        return list(self.prefix.glob("drive_c/Program Files*/Kelmora*"))

    def products(self):
        return self.export(r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall").count(
            f'"DisplayName"="{make_msi.PRODUCT}"')


def landed(architecture, folder):
    """The files that the package of that folder's DLLs brings, as Machine.files tells them."""
    native, wow64 = make_msi.SETS[architecture]
    return {f"{place}/{name}": (folder / source).read_bytes()
            for place, files in (("system32", native), ("syswow64", wow64)) for name, source in files}


def package(architecture, version, source, work, cards, change=b""):
    """A package of another version, its DLLs followed by the change."""
    folder = work / f"{architecture}-{version}"
    for name in make_msi.files_of(architecture):
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        (folder / name).write_bytes((source / name).read_bytes() + change)
    msi = work / f"{architecture}-{version}.msi"
    make_msi.make(version, architecture, folder, msi, cards, EPOCH)
    return folder, msi


def mark_for_wine(architecture, msi):
    """An ARM64 package marked as one for x64, in place: the only difference is the template."""
    if architecture == "arm64":
        code = code_of(msi)
        subprocess.run(["msibuild", msi, "-s", make_msi.PRODUCT, make_msi.MAKER, "x64;1033", code], check=True)


def code_of(msi):
    text = subprocess.run(["msiinfo", "suminfo", msi], check=True, capture_output=True, text=True).stdout
    return next(line.split(": ")[1] for line in text.splitlines() if line.startswith("Revision"))


def check_refusals(checks, machine, package_folder, work, cards):
    architecture = machine.architecture
    for other in make_msi.ARCHITECTURES:
        if other == architecture or not all((package_folder / name).exists() for name in make_msi.files_of(other)):
            continue
        _, msi = package(other, "1.2.3", package_folder, work, cards)
        code = machine.msiexec("/i", msi)
        checks.check(f"the {other} package is refused", code in (ERROR_FAILURE, ERROR_PLATFORM) and not machine.files(),
                     f"exit code {code}")
        sentences = [row["Description"] for row in msi_table(msi, "LaunchCondition")
                     if "NATIVEPROCESSOR" in row["Condition"]]
        checks.check(f"the {other} package has a sentence for that", len(sentences) == 1 and "is for" in sentences[0])


def check_foreign_processor(checks, machine, msi):
    """An x64 package would be taken by an ARM64 Windows, whose processes cannot load what it brings."""
    processor = make_msi.ARCHITECTURES[machine.architecture][2]
    for other in ("ARM64", "AMD64", "x86"):
        if other == processor:
            continue
        machine.set_processor(other)
        code = machine.msiexec("/i", msi)
        checks.check(f"is refused where Windows' own processor is {other}", code == ERROR_FAILURE and not machine.files(),
                     f"exit code {code}")
    machine.set_processor(processor)


def check_life(checks, machine, folder, msi, work, cards):
    """From installation to removal."""
    architecture = machine.architecture
    rows = expected(cards)
    views = {software: rows for software in (VIEWS[:1] if architecture == "x86" else VIEWS)}
    ours = landed(architecture, folder)

    checks.equal("installs", machine.msiexec("/i", msi), 0)
    checks.check("the DLLs land where Windows looks for them", machine.files() == ours, sorted(machine.files()))
    checks.check("the database has the rows of the cards, in each view, and no others of ours",
                 machine.database() == views)
    checks.equal("no log folder is made: logging stays off", machine.folders(), [])

    (machine.windows / "system32" / DLL).unlink(missing_ok=True)
    key = rf"HKLM\SOFTWARE\Microsoft\Cryptography\Calais\SmartCards\{next(iter(rows))}"
    machine.run("reg", "delete", key, "/f")
    checks.check("a file and a row are gone", machine.files() != ours and machine.database() != views)
    checks.equal("is repaired", machine.msiexec("/i", msi, "REINSTALL=ALL", "REINSTALLMODE=amus"), 0)
    checks.check("the file and the row are back", machine.files() == ours and machine.database() == views)

    _, older = package(architecture, "0.0.1", folder, work, cards, b"older")
    mark_for_wine(architecture, older)
    checks.equal("an older version refuses to take its place", machine.msiexec("/i", older), ERROR_FAILURE)
    checks.check("nothing has changed by that", machine.files() == ours and machine.database() == views)

    newer_folder, newer = package(architecture, "99.0.0", folder, work, cards, b"newer")
    mark_for_wine(architecture, newer)
    checks.equal("a newer version takes its place", machine.msiexec("/i", newer), 0)
    checks.check("the newer DLLs are there", machine.files() == landed(architecture, newer_folder))
    checks.check("the database is as before", machine.database() == views)
    checks.equal("one version is installed, not two", machine.products(), 1)

    checks.equal("is taken away", machine.msiexec("/x", newer), 0)
    checks.equal("leaves no file", sorted(machine.files()), [])
    checks.check("leaves nothing in the registry", "Kelmora" not in machine.export(r"HKLM\Software"))

    checks.equal("installs with everything that can be chosen", machine.msiexec("/i", msi, "ADDLOCAL=ALL"), 0)
    logs = [found / "Log" for found in machine.folders()]
    checks.check("the log folder is there", len(logs) == 1 and logs[0].is_dir())
    if logs:
        (logs[0] / "Kelmora-ID-minidriver.log").write_text("a line\n")
    # Without ADDLOCAL Windows carries the choice over; Wine does not know MigrateFeatureStates.
    checks.equal("a newer version takes its place, with everything that can be chosen",
                 machine.msiexec("/i", newer, "ADDLOCAL=ALL"), 0)
    checks.check("the log folder is there again, and empty", logs and logs[0].is_dir() and not any(logs[0].iterdir()))
    if logs and logs[0].is_dir():
        (logs[0] / "Kelmora-ID-minidriver.log").write_text("a line\n")
    checks.equal("is taken away with it", machine.msiexec("/x", newer), 0)
    checks.equal("the log folder and the log are gone", machine.folders(), [])
    checks.check("leaves no file and no row", not machine.files() and not machine.database())


def main():
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/package").resolve()
    architecture = sys.argv[2] if len(sys.argv) > 2 else "x64"
    work = ROOT / f"build/package-check-{architecture}"
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    cards = cards_module.profiles(ROOT / "build/native/print_card_profiles")
    machine = Machine(architecture, work)
    ready = machine.run("hostname")
    if ready.returncode:
        sys.stderr.buffer.write(ready.stderr)
        return ready.returncode

    machine.set_processor(make_msi.ARCHITECTURES[architecture][2])

    checks = Checks(f"{architecture} package")
    found = list(folder.glob(f"*-{architecture}.msi"))
    checks.equal("there is one MSI", len(found), 1)
    msi = work / "package.msi"
    shutil.copyfile(found[0], msi)
    if architecture == "arm64":
        checks.check("is refused as it is by a Windows that is none for ARM64",
                     machine.msiexec("/i", msi) == ERROR_PLATFORM and not machine.files())
    mark_for_wine(architecture, msi)

    _, again = package(architecture, "1.2.3", folder, work, cards)
    first = again.read_bytes()
    _, again = package(architecture, "1.2.3", folder, work, cards)
    checks.check("equal DLLs give an equal package", again.read_bytes() == first)
    code = code_of(again)
    _, again = package(architecture, "1.2.3", folder, work, cards, b"other")
    checks.check("other DLLs give another package code", code_of(again) != code)

    check_life(checks, machine, folder, msi, work, cards)
    check_refusals(checks, machine, folder, work, cards)
    check_foreign_processor(checks, machine, msi)

    shutil.copyfile(folder / "kelmora-id-minidriver.reg", work / "kelmora-id-minidriver.reg")
    checks.equal("the registration file can be imported",
                 machine.run("reg", "import", "kelmora-id-minidriver.reg").returncode, 0)
    checks.check("the registration file says the same as the installer",
                 machine.database().get("SOFTWARE") == expected(cards))
    shutil.rmtree(machine.prefix, ignore_errors=True)
    shutil.rmtree(work, ignore_errors=True)
    return checks.exit_code()


if __name__ == "__main__":
    sys.exit(main())
