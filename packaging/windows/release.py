#!/usr/bin/env python3
"""Makes what administrators get, of the DLLs that are built: the MSIs, the registration file, the driver
package's INF with its files, a bill of materials, sums. Signs DLLs and MSIs where it is told how.

Usage: packaging/windows/release.py --output FOLDER --architectures x64,x86[,arm64] [--release]
           [--address URL] [--certificate PEM --key PEM|URI [--pkcs11-module FILE] ...]

--release adds what only a release has: cardhost, the files for debuggers, the bill of materials, the licences
of what is linked in, the winget manifest, the sums; it needs all three architectures. Everything but
signatures is made of the content alone: equal DLLs give equal files, whenever and wherever this runs.
"""
import argparse
import calendar
import datetime
import hashlib
import os
import pathlib
import re
import shutil
import sys
import tempfile

import cardhost_archive
import cards as cards_module
import inf
import make_msi
import make_sbom
import make_winget
import signing
from cardhost_archive import THIRD_PARTY
from cards import DLL
from registration import registration_file

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build"
# Where the build leaves each DLL, and its name in the folders of the distribution.
BUILT = {
    "x64": {DLL: f"windows-x64/{DLL}"},
    "x86": {DLL: f"windows-x86/{DLL}"},
    "arm64": {DLL: f"windows-arm64/forwarder/{DLL}",
              "kelmora-id-minidriver-arm64.dll": f"windows-arm64/{DLL}"},
}
# The names that the INF has for them: one folder, every name once.
DRIVER_NAMES = {
    "x64/" + DLL: "kelmora-id-minidriver-x64.dll",
    "x86/" + DLL: "kelmora-id-minidriver-x86.dll",
    "arm64/" + DLL: "kelmora-id-minidriver-forwarder.dll",
    "arm64/kelmora-id-minidriver-arm64.dll": "kelmora-id-minidriver-arm64.dll",
}


def product_version():
    """The version of CMakeLists.txt, the one place where it stands, and its date from the changes."""
    version = re.search(r"^project\(\S+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.M)[1]
    date = re.search(rf"^## {re.escape(version)} \((\d{{4}}-\d\d-\d\d)\)$", (ROOT / "CHANGELOG.md").read_text(), re.M)
    if not date:
        sys.exit(f"CHANGELOG.md has no heading '## {version} (YYYY-MM-DD)'")
    return version, date[1]


def write_sums(folder):
    files = sorted(path for path in folder.rglob("*") if path.is_file())
    lines = [f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {path.relative_to(folder)}\n" for path in files]
    (folder / "SHA256SUMS").write_text("".join(lines))


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--output", type=pathlib.Path, required=True)
    parser.add_argument("--architectures", default="x64,x86", type=lambda text: text.split(","))
    parser.add_argument("--profiles", type=pathlib.Path, default=BUILD / "native/print_card_profiles",
                        help="the program that prints the table of cards")
    parser.add_argument("--release", action="store_true")
    parser.add_argument("--address", default="https://downloads.invalid/kelmora-id-minidriver",
                        help="where the MSIs will be to be had, for the winget manifest")
    parser.add_argument("--runtime", default=os.environ.get("KELMORA_ARM64_RUNTIME"),
                        help="folder of tools/build_arm64_runtime.sh, for the bill of materials")
    signing.add_options(parser)
    options = parser.parse_args()
    if options.release and set(options.architectures) != set(BUILT):
        parser.error("a release has all three architectures")
    if options.release and not options.runtime:
        parser.error("a release needs --runtime")
    return options


def make(options, version, date, folder):
    """Writes everything into the folder, which is not there yet."""
    epoch = calendar.timegm(datetime.date.fromisoformat(date).timetuple())
    signed = bool(options.certificate)
    cards = cards_module.profiles(options.profiles)
    dlls = []
    for architecture in options.architectures:
        (folder / architecture).mkdir(parents=True)
        for name, built in BUILT[architecture].items():
            target = folder / architecture / name
            shutil.copyfile(BUILD / built, target)
            dlls.append((f"{architecture}/{name}", target, BUILD / built))
            if signed:
                signing.sign(target, options)

    (folder / "kelmora-id-minidriver.reg").write_bytes(registration_file(cards).encode("ascii"))
    (folder / "driver").mkdir()
    (folder / "driver/kelmora-id-minidriver.inf").write_bytes(inf.write(cards, version, date).encode("ascii"))
    for name, target, _ in dlls:
        shutil.copyfile(target, folder / "driver" / DRIVER_NAMES[name])

    packages = []
    for architecture in options.architectures:
        msi = folder / f"kelmora-id-minidriver-{version}-{architecture}.msi"
        if all((folder / name).exists() for name in make_msi.files_of(architecture)):
            make_msi.make(version, architecture, folder, msi, cards, epoch)
            if signed:
                signing.sign(msi, options)
            packages.append((architecture, msi))

    shutil.copyfile(ROOT / "LICENSE", folder / "LICENSE")
    shutil.copyfile(ROOT / "CHANGELOG.md", folder / "CHANGELOG.md")
    if options.release:
        (folder / "debug").mkdir()
        for name, target, built in dlls:
            debug = built.parent / "debug" / DLL
            if debug.exists():  # the forwarder has no code to tell about
                shutil.copyfile(debug, folder / "debug" / (name.replace("/", "-") + ".debug"))
        (folder / THIRD_PARTY).write_text(make_sbom.licences(options.runtime), encoding="utf-8")
        listed = []
        for name, target, built in dlls:
            link_map = (built.parent / "debug" / DLL).with_suffix(".map")
            listed.append((name, target.read_bytes(), make_sbom.linked_in(link_map) if link_map.exists() else ()))
        for architecture in options.architectures:
            listed += cardhost_archive.make(version, architecture, BUILD / f"windows-{architecture}", folder, epoch,
                                            lambda path: signing.sign(path, options) if signed else None)
        make_sbom.make(version, date, listed, options.runtime, folder / f"kelmora-id-minidriver-{version}.spdx.json")
        make_winget.make(version, date, packages, options.address, folder / "winget")
        write_sums(folder)


def main():
    options = arguments()
    version, date = product_version()
    signing.check(options)
    # Made beside its place, and put there when it is whole: what fails half way leaves what was there before.
    options.output.parent.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix=f".{options.output.name}-", dir=options.output.parent) as making:
        folder = pathlib.Path(making) / options.output.name
        make(options, version, date, folder)
        shutil.rmtree(options.output, ignore_errors=True)
        folder.rename(options.output)
    print(f"{options.output}:")
    for path in sorted(path for path in options.output.rglob("*") if path.is_file()):
        print(f"{path.stat().st_size:10}  {path.relative_to(options.output)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
