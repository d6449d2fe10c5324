"""Instructions of the library, counted by callgrind while cardhost replays a recording of each card.

Counted is what runs between the call of an entry point and its return, with the C and C++ libraries below
it, and without the platform's own calls: a stand-in answers these here, and Windows does in earnest.
"""
import os
import pathlib
import re
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
RECORDINGS = ROOT / "tests/data/recordings"
CARD_TYPES = (3, 4, 5, 6, 7, 8)
LOG_FOLDER = pathlib.Path("/var/log/kelmora-id-minidriver")

# The steps of a journey, and the entry points that they are made of.
STEPS = {
    "acquisition": ("CardAcquireContext",),
    "files": ("CardEnumFiles", "CardReadFile", "CardGetFileInfo"),
    "keys, properties": ("CardGetContainerInfo", "CardGetContainerProperty", "CardGetProperty"),
    "PIN": ("CardAuthenticateEx",),
    "signature": ("CardSignData",),
    "decryption": ("CardRSADecrypt",),
    "agreement": ("CardConstructDHAgreement", "CardDeriveKey", "CardDestroyDHAgreement"),
    "release": ("CardDeleteContext",),
}


class Unmeasurable(Exception):
    """The machine does not allow the measuring; the text says why."""


def platform_calls():
    """The calls whose cost is the platform's: those that the stand-in declares."""
    header = (ROOT / "posix/win32.h").read_text(encoding="utf-8")
    calls = re.findall(r"^\w+ WINAPI (\w+)\(", header, re.M)
    # The stand-ins call these two themselves, so that they would count the other way round.
    return [name for name in calls if name not in ("GetLastError", "SetLastError")]


def callgrind(program, arguments, out):
    """Runs a program with the driver under callgrind; gives the text of its profile, without what
    the platform's calls cost."""
    if LOG_FOLDER.exists():
        raise Unmeasurable(f"{LOG_FOLDER} exists, so that the driver writes its log: take it away first")
    command = ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={out}",
               "--compress-strings=no", "--compress-pos=no", "--toggle-collect=CardAcquireContext",
               "--toggle-collect=KelmoraID::Guarded*::call*",
               *(f"--toggle-collect={name}" for name in platform_calls()),
               program, *arguments]
    # The C library has a memcpy for each kind of processor: the plainest is the same everywhere.
    environment = {**os.environ, "GLIBC_TUNABLES": "glibc.cpu.hwcaps=-AVX2,-AVX,-ERMS,-FSRM"}
    try:
        done = subprocess.run([str(part) for part in command], capture_output=True, text=True,
                              env=environment, check=False)
    except FileNotFoundError as error:
        raise Unmeasurable("valgrind is missing: tools/install_packages.sh test installs it") from error
    if done.returncode:
        raise Unmeasurable(f"{program} under callgrind: exit code {done.returncode}\n{done.stderr}")
    return out.read_text(errors="replace")


def inclusive_costs(profile):
    """From a profile the instructions of each function and all that it called, by name."""
    costs, name = {}, None
    for line in profile.splitlines():
        if line.startswith("fn="):
            name = line[3:]
        elif name and re.match(r"[+*\d-]", line):
            costs[name] = costs.get(name, 0) + int(line.split()[1])
    return costs


def entry_point_of(function):
    """The entry point that a function of the library's boundary stands for."""
    guarded = re.match(r"KelmoraID::Guarded<&\(?KelmoraID::(\w+)", function)
    if guarded and "::call" in function:
        return guarded[1]
    return "CardAcquireContext" if function == "CardAcquireContext" else None


def entry_points_of(program, arguments, out):
    """The instructions of each entry point while a program runs."""
    points = {}
    for function, cost in inclusive_costs(callgrind(program, arguments, out)).items():
        point = entry_point_of(function)
        if point:
            points[point] = points.get(point, 0) + cost
    if "CardAcquireContext" not in points:
        raise Unmeasurable("the profile does not name the entry points: is the library stripped?")
    return points


def sums(points):
    """The instructions of each step, from those of the entry points."""
    return {step: sum(points.get(name, 0) for name in names) for step, names in STEPS.items()
            if any(name in points for name in names)}


def journey(bin_folder, card_type):
    """The instructions of each step of bench_journey with that card."""
    with tempfile.TemporaryDirectory() as folder:
        return sums(entry_points_of(bin_folder / "bench/bench_journey",
                                    [RECORDINGS / f"card-type-{card_type}.txt"], pathlib.Path(folder) / "profile"))


def steps_of(bin_folder, card_type):
    """The instructions of each step of cardhost's journey with that card, and of each entry point."""
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        points = entry_points_of(bin_folder / "cardhost",
                                 ["--replay", RECORDINGS / f"card-type-{card_type}.txt", "record",
                                  "--pin", "1234", "--signature-pin", "123456", "--out", folder / "out.txt"],
                                 folder / "profile")
    return sums(points), points
