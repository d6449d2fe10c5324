#!/usr/bin/env python3
"""Checks a finished release: that it is whole, and that what its files say of each other is so.

Usage: packaging/windows/check_release.py [--signed CA.pem [--stamped CA.pem]] [FOLDER]        (dist)

With --signed every program, DLL and MSI, those within archives and MSIs too, has to bear a signature that holds
now by the certificates in that file; with --stamped also a time stamp, by those in that one.

Prints one line for each check, beginning with "ok" or "not ok".
"""
import argparse
import hashlib
import json
import pathlib
import re
import subprocess
import struct
import sys
import tempfile
import zipfile

import cardhost_archive
import make_msi
import signing
from checks import Checks
from registration import msi_table
from release import BUILT, DRIVER_NAMES, product_version

ROOT = pathlib.Path(__file__).resolve().parents[2]


# What is at least linked into the programs of the archives.
ARCHIVED = {
    "cardhost.exe": {"fmt", "Botan", "CLI11", "JSON for Modern C++", "mingw-w64 runtime"},
    "virtual-card/winscard.dll": {"mingw-w64 runtime"},
}
MACHINES = {"x64": 0x8664, "x86": 0x14C, "arm64": 0xAA64}  # IMAGE_FILE_MACHINE_*


def sha256(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def expected_files(version):
    files = {f"{folder}/{name}" for folder, names in BUILT.items() for name in names}
    files |= {"driver/" + name for name in DRIVER_NAMES.values()} | {"driver/kelmora-id-minidriver.inf"}
    files |= {f"kelmora-id-minidriver-{version}-{architecture}.msi" for architecture in BUILT}
    files |= {"debug/" + name.replace("/", "-") + ".debug" for name in DRIVER_NAMES
              if not DRIVER_NAMES[name].endswith("-forwarder.dll")}
    files |= {"winget/Kelmora.IDMinidriver" + end for end in (".yaml", ".installer.yaml", ".locale.en-US.yaml")}
    files |= {cardhost_archive.archive_name(version, architecture) for architecture in BUILT}
    return files | {"kelmora-id-minidriver.reg", f"kelmora-id-minidriver-{version}.spdx.json", "CHANGELOG.md",
                    "SHA256SUMS", *cardhost_archive.TEXTS}


def content_of(folder, name):
    """The bytes of a file of the release, or of one in an archive: its name stands behind the archive's."""
    if ".zip/" not in name:
        return (folder / name).read_bytes()
    archive, member = name.split(".zip/")
    with zipfile.ZipFile(folder / f"{archive}.zip") as packed:
        return packed.read(member)


def code_of(path):
    """The bytes of a file's code."""
    with tempfile.TemporaryDirectory() as folder:
        target = pathlib.Path(folder) / "text"
        subprocess.run(["llvm-objcopy-22", f"--dump-section=.text={target}", path, "/dev/null"], check=True)
        return target.read_bytes()


def check_packages(checks, folder, version):
    for architecture, (_, template, _, _) in make_msi.ARCHITECTURES.items():
        msi = folder / f"kelmora-id-minidriver-{version}-{architecture}.msi"
        summary = subprocess.run(["msiinfo", "suminfo", msi], check=True, capture_output=True, text=True).stdout
        checks.check(f"the {architecture} package is marked for its architecture", f"Template: {template}" in summary)
        properties = {row["Property"]: row["Value"] for row in msi_table(msi, "Property")}
        checks.equal(f"the {architecture} package is of this version", properties["ProductVersion"], version)
        names = {row["FileName"].split("|")[-1]: row for row in msi_table(msi, "File")}
        wanted = {name for view in make_msi.SETS[architecture] for name, _ in view}
        checks.equal(f"the {architecture} package brings its set of DLLs", set(names), wanted)
        checks.equal(f"the {architecture} package tells the version of each file",
                     {(row["Version"], row["Language"]) for row in names.values()}, {(version + ".0", "1033")})
        sequence = {row["Action"]: int(row["Sequence"]) for row in msi_table(msi, "InstallExecuteSequence")}
        between = {action for action, number in sequence.items()
                   if sequence["InstallInitialize"] < number < sequence["RemoveExistingProducts"]}
        checks.check(f"the {architecture} package removes an older version within its own transaction, first of all",
                     sequence["InstallInitialize"] < sequence["RemoveExistingProducts"] < sequence["InstallFinalize"]
                     and not between)
        migrates = {int(row["Attributes"]) & 1 for row in msi_table(msi, "Upgrade") if row["VersionMin"] == ""}
        checks.check(f"the {architecture} package carries over what was chosen of an older version",
                     migrates == {1} and "MigrateFeatureStates" in sequence)
        manifest = (folder / "winget/Kelmora.IDMinidriver.installer.yaml").read_text()
        entry = re.search(rf"- Architecture: {architecture}\n((?:  .*\n)+)", manifest)
        checks.check(f"the winget manifest tells the sum and the product code of the {architecture} package",
                     entry and sha256(msi).upper() in entry[1] and properties["ProductCode"] in entry[1])


def machine_of(program):
    """What the header of a program or DLL says of the processor."""
    return struct.unpack_from("<H", program, struct.unpack_from("<I", program, 0x3C)[0] + 4)[0]


def check_archives(checks, folder, version):
    for architecture, machine in MACHINES.items():
        name = cardhost_archive.archive_name(version, architecture)
        with zipfile.ZipFile(folder / name) as packed:
            checks.equal(f"{name} holds cardhost and no driver", sorted(packed.namelist()),
                         sorted([*ARCHIVED, *cardhost_archive.TEXTS]))
            checks.check(f"{name} is whole", packed.testzip() is None)
            checks.equal(f"{name} is for its architecture",
                         {machine_of(packed.read(member)) for member in ARCHIVED}, {machine})


def check_bill(checks, folder, version):
    bill = json.loads((folder / f"kelmora-id-minidriver-{version}.spdx.json").read_text())
    wanted = {"spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo"}
    checks.check("the bill of materials is of SPDX 2.3",
                 wanted <= set(bill) and (bill["spdxVersion"], bill["dataLicense"]) == ("SPDX-2.3", "CC0-1.0"))
    elements = {entry["SPDXID"]: entry for entry in bill["packages"] + bill["files"]}
    known = set(elements) | {"SPDXRef-DOCUMENT"}
    checks.check("its relations are between what it lists", all(
        {relation["spdxElementId"], relation["relatedSpdxElement"]} <= known for relation in bill["relationships"]))
    checks.check("its identifiers are well formed and unique",
                 len(elements) == len(bill["packages"]) + len(bill["files"]) and
                 all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", name) for name in elements))
    checks.check("each package has a version and a licence", all(
        re.match(r"\d", entry["versionInfo"]) and entry["licenseDeclared"] for entry in bill["packages"]))
    archives = {cardhost_archive.archive_name(version, architecture) for architecture in BUILT}
    wanted = {name: {"fmt", "mingw-w64 runtime"} for name in DRIVER_NAMES} | {
        "arm64/kelmora-id-minidriver.dll": set()} | {name: set() for name in archives} | {
        f"{name}/{program}": parts for name in archives for program, parts in ARCHIVED.items()}
    checks.equal("the bill lists each program and DLL, and the archives",
                 sorted(entry["fileName"][2:] for entry in bill["files"]), sorted(wanted))
    licences = (folder / cardhost_archive.THIRD_PARTY).read_text(encoding="utf-8")
    for entry in bill["files"]:
        name = entry["fileName"][2:]
        sums = {pair["algorithm"]: pair["checksumValue"] for pair in entry["checksums"]}
        # The files as they are in the release, signed where they are signed.
        checks.equal(f"the bill tells the sum of {name}", sums["SHA256"],
                     hashlib.sha256(content_of(folder, name)).hexdigest())
        parts = {elements[relation["relatedSpdxElement"]]["name"] for relation in bill["relationships"]
                 if relation["spdxElementId"] == entry["SPDXID"] and relation["relationshipType"] == "STATIC_LINK"}
        checks.check(f"the bill tells what is linked into {name}: {', '.join(sorted(parts)) or 'nothing'}",
                     wanted[name] <= parts if wanted[name] else not parts)
        checks.check(f"the licences of what is linked into {name} are there",
                     all(re.search(rf"^=+\n.*{re.escape(part)}.*\n=+\n", licences, re.M) for part in parts))


def signed_kinds(folder):
    """What of a folder is to be signed."""
    return sorted(path for path in folder.rglob("*") if path.suffix in (".dll", ".exe", ".msi") and path.is_file())


def check_signatures(checks, folder, authority, stamp_authority):
    with tempfile.TemporaryDirectory() as work:
        unpacked = pathlib.Path(work)
        for archive in folder.glob("*.zip"):
            with zipfile.ZipFile(archive) as packed:
                packed.extractall(unpacked / archive.name)
        for msi in folder.glob("*.msi"):
            subprocess.run(["msiextract", "-C", unpacked / msi.name, msi], check=True, capture_output=True)
        for base in (folder, unpacked):
            for path in signed_kinds(base):
                name = path.relative_to(base)
                valid, text = signing.verify(path, authority, stamp_authority)
                checks.check(f"{name} has a signature that holds", valid, text[-600:])
                if stamp_authority:
                    checks.check(f"{name} has a time stamp that holds", signing.is_stamped(text), text[-600:])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", nargs="?", type=pathlib.Path, default=ROOT / "dist")
    parser.add_argument("--signed", metavar="CA.pem", type=pathlib.Path)
    parser.add_argument("--stamped", metavar="CA.pem", type=pathlib.Path)
    options = parser.parse_args()
    if options.stamped and not options.signed:
        parser.error("--stamped goes with --signed")
    folder = options.folder.resolve()
    version, _ = product_version()
    checks = Checks("release")
    files = {str(path.relative_to(folder)): path for path in folder.rglob("*") if path.is_file()}
    checks.equal("nothing is missing and nothing is too much", sorted(set(files) ^ expected_files(version)), [])
    sums = dict(line.split("  ")[::-1] for line in (folder / "SHA256SUMS").read_text().splitlines())
    checks.check("the sums are those of all files",
                 sums == {name: sha256(path) for name, path in files.items() if name != "SHA256SUMS"})
    for name, driver_name in DRIVER_NAMES.items():
        checks.check(f"{driver_name} is {name}", sha256(folder / name) == sha256(folder / "driver" / driver_name))
        debug = folder / "debug" / (name.replace("/", "-") + ".debug")
        if debug.exists():
            checks.check(f"{debug.name} has the code of {name}", code_of(debug) == code_of(folder / name))
            checks.check(f"{debug.name} has names and lines", b".debug_line" in debug.read_bytes())
    check_packages(checks, folder, version)
    check_archives(checks, folder, version)
    check_bill(checks, folder, version)
    if options.signed:
        check_signatures(checks, folder, options.signed, options.stamped)
    return checks.exit_code()


if __name__ == "__main__":
    sys.exit(main())
