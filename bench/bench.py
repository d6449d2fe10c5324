#!/usr/bin/env python3
"""Measures the driver, prints one table, and writes it as a page with plots: build/bench/index.html.

Usage: bench/bench.py [--bin build/native] [--out build/bench] [--only PART[,PART...]]
       bench/bench.py check [--bin build/native]     against the figures kept in bench/figures.json
       bench/bench.py keep [--bin build/native]      keeps today's

Parts: journeys, wire, load, size, memory, growth, times. What a part needs and is not there is told in its
row. Figures are instruction counts, or ratios within one run: times by themselves are noise.
"""
import argparse
import json
import operator
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))

import image  # pylint: disable=wrong-import-position
import instructions  # pylint: disable=wrong-import-position
import kept  # pylint: disable=wrong-import-position
import page  # pylint: disable=wrong-import-position
import wire  # pylint: disable=wrong-import-position

ROOT = pathlib.Path(__file__).resolve().parents[1]
CARD_TYPES = instructions.CARD_TYPES
CERTIFICATE_SIZES = (500, 1000, 2000, 4000, 8000, 16000, 32000, 60000)
COUNTS = (1, 2, 4, 8, 16)
AGREEMENTS = (1, 16, 64, 128, 255)


class Rows:
    """The table: a row is a part, a name, a value, and what it is held against."""

    def __init__(self):
        self.rows = []
        self.plots = []

    def add(self, part, name, value, limit="", well=None):
        self.rows.append((part, name, value, limit, well))

    def plot(self, part, html):
        self.plots.append((part, html))


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False, **options)
    if done.returncode:
        raise instructions.Unmeasurable((done.stderr or done.stdout).strip().splitlines()[-1]
                                        if (done.stderr or done.stdout).strip() else f"exit code {done.returncode}")
    return done.stdout


def grown(options, *arguments):
    """What bench_growth says in its last line; the driver may have said something ahead of it."""
    return json.loads(run(options.bin / "bench/bench_growth", *arguments).splitlines()[-1])


def quick(durations):
    """The mean of the quickest quarter: what disturbs a run only ever makes it longer."""
    return statistics.mean(sorted(durations)[:max(1, len(durations) // 4)])


# Parts ------------------------------------------------------------------------------------------

def journeys(rows, options):
    before = json.loads((pathlib.Path(__file__).parent / "before.json").read_text(encoding="utf-8"))
    bars = []
    for card in CARD_TYPES:
        calls, _ = wire.exchanges(card)
        own = [exchange for call, list_of in calls if not call.startswith("Query") for exchange in list_of]
        out, back = sum(one[1] for one in own), sum(one[2] for one in own)
        rows.add("journeys", f"card type {card}: commands, bytes out, bytes back",
                 f"{len(own)}, {out:,}, {back:,}")
        steps, _ = instructions.steps_of(options.bin, card)
        now, then = sum(steps.values()) / len(own), sum(before[str(card)].values()) / len(own)
        rows.add("journeys", f"card type {card}: instructions a command", f"{now:,.0f}",
                 f"<= {then / 2:,.0f}, half of {then:,.0f}", now <= then / 2)
        bars.append((f"type {card}", [("before", then), ("now", now)]))
        for step, count in steps.items():
            rows.add("steps", f"card type {card}: {step}", f"{count:,}", f"{before[str(card)][step]:,} before")
    rows.plot("journeys", page.bars("Instructions of the library a command, whole journey", bars))
    over = json.loads(run(sys.executable, ROOT / "bench/over_reader.py", "--bin", options.bin,
                          "--rounds", options.rounds * 5))
    if "not measured" in over:
        rows.add("journeys", "over the PC/SC daemon", over["not measured"])
        return
    ratios = []
    for card, measured in over.items():
        # Of each turn by itself: both halves of it met the same machine.
        whole = statistics.median(map(operator.truediv, measured["driver"], measured["bare"]))
        ratios.append((f"type {card}", [("with the driver", whole)]))
        rows.add("journeys", f"card type {card}: over the PC/SC daemon, to bare replay", f"{whole:.3f}",
                 "<= 1.030", whole <= 1.03)
    rows.plot("journeys", page.bars("Time over the PC/SC daemon, over a bare replay", ratios, ".3f"))


def wire_part(rows, _):
    for card in CARD_TYPES:
        calls, protocol = wire.exchanges(card)
        both = {speed: [(call, sum(wire.seconds(out, back, protocol, speed) for _, out, back in list_of))
                        for call, list_of in calls] for speed in wire.SPEEDS}
        for speed, times in both.items():
            whole = sum(time for _, time in times)
            acquisition = next(time for call, time in times if call == "CardAcquireContext")
            rows.add("wire", f"card type {card}, {protocol}: at {speed:,} bits/s",
                     f"{1000 * whole:.0f} ms, {1000 * acquisition:.0f} ms of it the acquisition")
    rows.plot("wire", page.wire_tables({card: wire.exchanges(card) for card in CARD_TYPES}))


def load(rows, options):
    allocations = grown(options, "load")["allocations"]
    rows.add("load", "heap allocations of the library's own at load (native)", str(allocations), "0",
             allocations == 0)
    for name in ("x64", "x86", "arm64"):
        dll = ROOT / kept.DLLS[name]
        if not dll.exists():
            rows.add("load", f"{name}", f"{kept.DLLS[name]} is not built")
            continue
        facts = image.facts(dll)
        rows.add("load", f"{name}: relocations, imports", f"{facts['relocations']:,}, {facts['imports']}")
        rows.add("load", f"{name}: pages, written at load",
                 f"{facts['pages']}, {facts['pages written at load']}")
        link_map = dll.parent / "debug/kelmora-id-minidriver.map"
        if link_map.exists():
            found = image.static_initialisers(link_map.read_text(errors="replace"))
            own = [one for one in found if "KelmoraID" in one or "3fmt" in one]
            rows.add("load", f"{name}: static objects built at load, of these our own",
                     f"{len(found)}, {len(own)}", "0 of our own", not own)
    programs = ROOT / "build/windows-x64/bench"
    if not (programs / "bench_load.exe").exists():
        rows.add("load", "LoadLibrary in Wine", "not built: cmake --build build/windows-x64 --target "
                                                "bench_programs")
        return
    # A prefix of its own, where no log folder is: a line of the log would be most of a load.
    prefix = {"WINEPREFIX": str(ROOT / "build/wine/bench")}
    with tempfile.TemporaryDirectory(dir=ROOT / "build") as folder:
        # Names of one length: the loader keeps them.
        for name, file in (("bench_load.exe", programs / "bench_load.exe"), ("driver.dll", ROOT / kept.DLLS["x64"]),
                           ("empty1.dll", programs / "empty.dll"), ("aslarge.dll", programs / "as-large.dll")):
            (pathlib.Path(folder) / name).write_bytes(file.read_bytes())
        for other, name in (("aslarge.dll", "one as large, with the same imports"),
                            ("empty1.dll", "an empty DLL with the same imports")):
            measured = json.loads(run(ROOT / "tools/run_in_wine.sh", "x64", "./bench_load.exe",
                                      "driver.dll", other, options.rounds * 10, cwd=folder,
                                      env={**os.environ, **prefix}))
            ratio = quick(measured["first"]) / quick(measured["second"])
            rows.add("load", f"x64: LoadLibrary in Wine over {name}", f"{ratio:.2f}", "<= 1.20", ratio <= 1.2)
        more = measured["heap"][0] - measured["heap"][1]
        rows.add("load", "x64: heap taken at load beyond what the empty DLL takes", f"{more:,} bytes", "0", more == 0)


def size(rows, _):
    for name, path in kept.DLLS.items():
        dll = ROOT / path
        if not dll.exists():
            rows.add("size", name, f"{path} is not built")
            continue
        total = dll.stat().st_size
        rows.add("size", f"{name}: the DLL", f"{total:,} bytes", f"<= {kept.LARGEST_DLL:,}",
                 total <= kept.LARGEST_DLL)
        link_map = dll.parent / "debug/kelmora-id-minidriver.map"
        if not link_map.exists():
            rows.add("size", f"{name}: what takes it", f"no map: cmake --build {dll.parent.relative_to(ROOT)} "
                                                       "--target minidriver_debug")
            continue
        kinds, largest = image.breakdown(link_map.read_text(errors="replace"), total)
        for kind, count in kinds.items():
            rows.add("size", f"{name}: {kind}", f"{count:,} bytes")
        rows.plot("size", page.stack(f"{name}: {total:,} bytes", kinds))
        rows.plot("size", page.table(f"{name}: the ten largest objects", ("object", "bytes", "what for"),
                                     [(each, f"{count:,}", purpose) for each, count, purpose in largest]))


def memory(rows, options):
    bars = []
    for card in CARD_TYPES:
        found = grown(options, "memory", card)
        held, peak = (found[name] / found["certificates"] for name in ("held", "peak"))
        rows.add("memory", f"card type {card}: held, over {found['certificates']:,} bytes of certificates",
                 f"{held:.2f}", "<= 1.50", held <= 1.5)
        rows.add("memory", f"card type {card}: peak of the acquisition, over the same", f"{peak:.2f}", "<= 3.00",
                 peak <= 3)
        bars.append((f"type {card}", [("held", held), ("peak", peak)]))
    rows.plot("memory", page.bars("Heap over the bytes of the certificates", bars, ".2f"))


def counted(options, *arguments):
    """The instructions of each entry point, and the program's own line."""
    with tempfile.TemporaryDirectory() as folder:
        return instructions.entry_points_of(options.bin / "bench/bench_growth", arguments,
                                            pathlib.Path(folder) / "profile")


def line(rows, title, unit, points, limit):
    """A row on how a cost grows: the dearest share over the cheapest, from the second point on."""
    shares = [cost / count for count, cost in points]
    ratio = max(shares[1:]) / min(shares[1:])
    rows.add("growth", f"{title}, {points[0][0]:,} to {points[-1][0]:,}: dearest {unit} over cheapest",
             f"{ratio:.2f}", f"<= {limit:.2f}", ratio <= limit)
    rows.plot("growth", page.curve(f"{title}: instructions", points))


def growth(rows, options):
    points = [(length, counted(options, "certificate", length)["CardAcquireContext"])
              for length in CERTIFICATE_SIZES]
    # A share of it does not grow: what remains does so by the byte.
    slopes = [(right[1] - left[1]) / (right[0] - left[0]) for left, right in zip(points, points[1:])]
    rows.add("growth", "certificates of 500 to 60,000 bytes: instructions a byte, steepest over flattest",
             f"{max(slopes) / min(slopes):.2f} ({statistics.median(slopes):.0f} a byte)", "<= 1.25",
             max(slopes) / min(slopes) <= 1.25)
    rows.plot("growth", page.curve("Acquisition, by bytes of a certificate: instructions", points))
    line(rows, "agreements", "agreement", [(count, counted(options, "agreements", count)["CardConstructDHAgreement"])
                                           for count in AGREEMENTS], 1.25)
    line(rows, "readers, one context in each", "acquisition",
         [(count, counted(options, "readers", count)["CardAcquireContext"]) for count in COUNTS], 1.05)
    cores = os.cpu_count() or 1
    points = []
    for count in COUNTS:
        found = grown(options, "threads", count, 32_000 // count)
        points.append((count, 1e6 * found["seconds"] / found["acquisitions"]))
    # A lock around everything would leave it at 1.
    ratio, limit = points[-1][1] / points[0][1], 1.3 / min(cores, COUNTS[-1])
    rows.add("growth", f"threads, 1 to {COUNTS[-1]} on {cores} cores: time an acquisition, {COUNTS[-1]} over 1",
             f"{ratio:.2f}", f"<= {limit:.2f}", ratio <= limit)
    rows.plot("growth", page.curve("Threads, each with its own card: time an acquisition, in microseconds", points))


def times(rows, _):
    file = ROOT / "build/test-logs/times.json"
    if not file.exists():
        rows.add("times", "building and testing", "tools/run_tests.py writes its times when it runs")
        return
    kept_times = json.loads(file.read_text(encoding="utf-8"))
    for found in kept_times[-3:]:
        rows.add("times", f"./test.sh of {found['when']}", f"{found['seconds']:.0f} s")
    rows.plot("times", page.stack(f"./test.sh of {kept_times[-1]['when']}, seconds by stage",
                                  {name: round(value) for name, value in kept_times[-1]["stages"].items()}))


PARTS = {"journeys": journeys, "wire": wire_part, "load": load, "size": size, "memory": memory,
         "growth": growth, "times": times}


# The table --------------------------------------------------------------------------------------

def print_table(rows, width=80):
    part_before = None
    for part, name, value, limit, well in rows:
        if part == "steps":
            continue  # On the page.
        if part != part_before:
            print(f"\n{part.upper()}")
            part_before = part
        mark = {True: "ok", False: "NO", None: "  "}[well]
        right = f"{value}  {limit}".rstrip()
        text = f"{mark} {name}"
        if len(text) + 2 + len(right) <= width:
            print(text + right.rjust(width - len(text)))
        else:
            while len(text) > width:
                cut = text.rfind(" ", 0, width)
                print(text[:cut])
                text = "   " + text[cut + 1:]
            print(text)
            print(right.rjust(width))


def measure(options):
    rows = Rows()
    for name in options.only.split(",") if options.only else PARTS:
        try:
            PARTS[name](rows, options)
        except (instructions.Unmeasurable, OSError) as error:
            rows.add(name, "not measured", str(error), "", False)
    options.out.mkdir(parents=True, exist_ok=True)
    (options.out / "index.html").write_text(page.whole(rows.rows, rows.plots, kept.made_with(options.bin)),
                                            encoding="utf-8")
    print_table(rows.rows)
    missed = sum(1 for row in rows.rows if row[4] is False)
    print(f"\n{missed} of {sum(1 for row in rows.rows if row[4] is not None)} limits missed. "
          f"With plots: {options.out / 'index.html'}")
    return 1 if missed else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("action", nargs="?", choices=("measure", "check", "keep"), default="measure")
    parser.add_argument("--bin", type=pathlib.Path, default=ROOT / "build/native")
    parser.add_argument("--out", type=pathlib.Path, default=ROOT / "build/bench")
    parser.add_argument("--only", help="parts, with commas between")
    parser.add_argument("--rounds", type=int, default=40, help="turns of what is compared by time")
    options = parser.parse_args()
    unknown = [name for name in (options.only or "").split(",") if name and name not in PARTS]
    if unknown:
        parser.error(f"no such part: {', '.join(unknown)}")
    options.bin = options.bin.resolve()
    try:
        if options.action == "check":
            return 0 if kept.check(ROOT, options.bin) else 1
        if options.action == "keep":
            kept.keep(ROOT, options.bin)
            return 0
        return measure(options)
    except instructions.Unmeasurable as error:
        print(f"not ok - {error}" if options.action == "check" else error)
        return 1


if __name__ == "__main__":
    try:
        import pefile  # noqa: F401  pylint: disable=unused-import
    except ImportError:  # The package is the system Python's.
        if len(sys.argv) < 2 or sys.argv[1] not in ("check", "keep"):
            if sys.executable != "/usr/bin/python3":
                os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])
            raise
    sys.exit(main())
