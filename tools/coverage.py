#!/usr/bin/env python3
"""What of src/ the tests run: lines, branches, and conditions by MC/DC.

Usage: tools/coverage.py [--report | --corpus]

Compiles src/ by clang 22 with coverage in build/coverage, puts it under the unit and boundary tests of
build/sanitized and runs them, but for those that take minutes. What is not run, which side of a
branch is not taken, and which condition never decides by itself must stand in tests/coverage/unreached.txt,
with the reason why no test can reach it. Exit code 1 for any that does not, and for an entry that was
reached or fits no line any more.

  --report   the table of files as well
  --corpus   what the kept inputs of the fuzzers run instead (tests/fuzz/corpus): a table, and no check
"""
import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys

import driver_variant
import reasoned_list
from driver_variant import ROOT, run

FOLDER = ROOT / "build" / "coverage"
LIST = ROOT / "tests" / "coverage" / "unreached.txt"
OPTIONS = ["-w", "-O0", "-fprofile-instr-generate", "-fcoverage-mapping", "-fcoverage-mcdc"]
CORPUS = ROOT / "tests" / "fuzz" / "corpus"
TESTS = {"unit_driver": ["--gtest_brief=1"],
         "boundary_tests": ["--gtest_brief=1", f"--gtest_filter={driver_variant.BRISK}"]}
RUNTIME = "lib/clang/22/lib"
CODE = 0  # a region that is neither an expansion nor skipped nor a gap

Gap = collections.namedtuple("Gap", "file line text what")


def runtime():
    """The profile library of the compiler that instruments: the linker's own would be another version's."""
    found = sorted(pathlib.Path("/usr/lib/llvm-22", RUNTIME).glob("*/libclang_rt.profile-x86_64.a")) + \
        sorted(pathlib.Path("/usr/lib/llvm-22", RUNTIME).glob("*/libclang_rt.profile.a"))
    if not found:
        raise SystemExit("libclang-rt-22-dev is missing: tools/install_packages.sh test installs it")
    return found[0]


def profile(tests):
    """Runs programs with arguments; gives the programs and the merged profile."""
    driver_variant.build_programs(tests)
    variant = driver_variant.Variant(FOLDER, "clang++-22", OPTIONS)
    variant.compile()
    emitted = FOLDER / "emitted.o"
    run([*variant.command(ROOT / "src" / "apdu" / "verify.cpp"), "-c", ROOT / "tests" / "coverage" / "emitted.cpp",
         "-o", emitted])

    def one(job):
        name, arguments = job
        made, raw = driver_variant.place_for(name, FOLDER), FOLDER / f"{name}.profraw"
        said = driver_variant.link(name, [*variant.objects(), emitted], made, "-Wl,-u,__llvm_profile_runtime",
                                   runtime())
        if said:
            raise SystemExit(said)
        raw.unlink(missing_ok=True)
        done = subprocess.run([made, *arguments], cwd=made.parent, stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors="replace",
                              env={**os.environ, "LLVM_PROFILE_FILE": str(raw)})
        if done.returncode:
            raise SystemExit(f"{name}: exit code {done.returncode}\n{done.stdout[-4000:]}")
        return made, raw

    with concurrent.futures.ThreadPoolExecutor(driver_variant.JOBS) as pool:
        programs, profiles = zip(*pool.map(one, tests.items()))
    merged = FOLDER / "all.profdata"
    run(["llvm-profdata-22", "merge", "-o", merged, *profiles])
    return programs, merged


def cov(subcommand, programs, merged, *options):
    objects = [word for program in programs[1:] for word in ("-object", program)]
    return run(["llvm-cov-22", subcommand, programs[0], *objects, f"-instr-profile={merged}", *options,
                ROOT / "src"])


class Sums:
    """Counts by place, those of all instantiations of a template together."""

    def __init__(self, data):
        self.regions = collections.Counter()
        self.branches = collections.defaultdict(lambda: [0, 0])
        self.conditions = {}
        for function in data["functions"]:
            files = function["filenames"]
            for *place, count, file, _, kind in function["regions"]:
                if kind == CODE:
                    self.regions[files[file], *place] += count
            for *place, taken, refused, file, _, _ in function["branches"]:
                sides = self.branches[files[file], *place]
                sides[0] += taken
                sides[1] += refused
            for record in function["mcdc_records"]:
                # Line and column of both ends, four numbers, which of the conditions decided by itself.
                *place, _, _, file, _, _, decided, _ = record
                key = (files[file], *place)
                before = self.conditions.get(key, [False] * len(decided))
                self.conditions[key] = [one or other for one, other in zip(before, decided)]


class Sources:
    def __init__(self):
        self.lines = {}

    def of(self, path):
        if path not in self.lines:
            self.lines[path] = pathlib.Path(path).read_text(encoding="utf-8").splitlines()
        return self.lines[path]

    def text(self, path, first, column, last, end):
        lines = self.of(path)[first - 1:last]
        lines[-1] = lines[-1][:end - 1]
        lines[0] = lines[0][column - 1:]
        words = " ".join(" ".join(lines).split())
        return words if len(words) <= 60 else words[:57] + "..."


def gaps(sums, sources):
    def gap(place, what):
        path, first, *_ = place
        return Gap(os.path.relpath(path, ROOT), first, sources.of(path)[first - 1].strip(),
                   f"{what} {sources.text(*place)}")

    def is_ours(place):
        return place[0].startswith(str(ROOT / "src") + os.sep)

    for place, count in sums.regions.items():
        if is_ours(place) and not count:
            yield gap(place, "runs")
    for place, (taken, refused) in sums.branches.items():
        if is_ours(place):
            if not taken:
                yield gap(place, "true")
            if not refused:
                yield gap(place, "false")
    for place, decided in sums.conditions.items():
        if is_ours(place):
            for number, one in enumerate(decided, 1):
                if not one:
                    yield gap(place, f"condition {number} of")


def figures(totals):
    def one(name):
        part = totals[name]
        return f"{part['covered']} of {part['count']} {name} ({part['percent']:.2f} %)"

    return f"{one('lines')}, {one('branches')}, {one('mcdc').replace('mcdc', 'conditions by MC/DC')}"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--report", action="store_true")
    parser.add_argument("--corpus", action="store_true")
    options = parser.parse_args()
    entries = reasoned_list.read(LIST)
    if options.corpus:
        tests = {folder.name: [folder] for folder in sorted(CORPUS.iterdir())}
    else:
        tests = TESTS
    programs, merged = profile(tests)
    if options.report or options.corpus:
        print(cov("report", programs, merged, "--show-mcdc-summary", "--show-region-summary=false"))
    if options.corpus:
        totals = json.loads(cov("export", programs, merged, "-summary-only"))["data"][0]["totals"]
        print(f"The corpus runs {figures(totals)}")
        return 0
    exported = json.loads(cov("export", programs, merged))["data"][0]
    sums, sources = Sums(exported), Sources()
    found = sorted(set(gaps(sums, sources)))
    wrong = [f"{gap.file}:{gap.line}: not reached: {gap.what}\n    {gap.text}" for gap in found
             if not any(reasoned_list.fits(entry, gap.file, gap.text, gap.what) for entry in entries)]
    listed = list(reasoned_list.stale(entries))
    wrong += listed or [f"{entry.place}: is reached now: {entry.file}: {entry.text} | {entry.what}"
                        for entry in entries
                        if not any(reasoned_list.fits(entry, gap.file, gap.text, gap.what) for gap in found)]
    for line in wrong:
        print(line)
    print(figures(exported["totals"]))
    print(f"{'not ok' if wrong else 'ok'} - what is not reached is listed with its reason: {len(found)} gaps, "
          f"{len(entries)} entries, {len(wrong)} wrong")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
