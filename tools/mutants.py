#!/usr/bin/env python3
"""Faults of one token in src/, and which of them no test sees.

Usage: tools/mutants.py [--seed N] [--count N] [--since REF] [--only unit|boundary] [--jobs N] [--resume]
           [FILE ...]
       tools/mutants.py --again
       tools/mutants.py --check-lists

A fault is one token exchanged: an operator for its neighbour, a number for the next, a name for another of
its family (SCARD_..., CardType::...), a letter of a text. Of all places in src/, in those lines that changed
since REF, or in the files named, a seeded sample of --count is taken. Each fault is compiled by itself and
linked into boundary_tests of build/sanitized, and into unit_driver if the boundary suite lets it pass; the
tests that run the place come first, and the first one that fails ends it. A fault that does not compile is no
fault; another is taken.

Survivors must stand in tests/mutants/accepted.txt, with the reason why nothing can see them. What the unit
tests alone see is listed in tests/mutants/within.txt, with the reason why it does not show at the boundary; of
all others the boundary suite has to see 95 %. What is listed is not tried on whoever cannot see it; with '--only
boundary' it is, and told where it is seen after all. Exit code 1 for any other survivor, for a smaller share, and for
a line of these lists that fits no line of src/ any more.

  --since REF       the lines that changed since REF only
  --only PROGRAM    with the tests of one program only
  --again           what the last run's tests let pass only (build/mutants/survivors.json)
  --resume          takes over what earlier runs have seen in files that are still the same
                    (build/mutants/seen.txt), and tries the rest
  --check-lists     only see that each line of the two lists still fits a line of src/; quick
"""
import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import queue
import random
import re
import resource
import signal
import subprocess
import sys
import time

import driver_variant
import reasoned_list
from driver_variant import ROOT, run

FOLDER = ROOT / "build" / "mutants"
ACCEPTED = ROOT / "tests" / "mutants" / "accepted.txt"
WITHIN = ROOT / "tests" / "mutants" / "within.txt"
OPTIONS = ["-w", "-O0", "-gline-tables-only", "-fsanitize-coverage=bb,trace-pc-guard"]
# What the platform publishes is no code of ours, and these are not part of the native library.
LEFT_OUT = re.compile(r"src/platform/|src/frame/dll_main\.cpp")
# In the order in which they are asked: what the second one alone sees is missed at the boundary.
BOUNDARY, UNIT = "boundary_tests", "unit_driver"
LEAST_SHARE = 0.95  # of what is visible at the boundary

TOKEN = re.compile(r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<line>^[ \t]*\#[^\n]*)
  | (?P<checked>\bstatic_assert\s*\(.*?\);)
  | (?P<text>"(?:[^"\\\n]|\\.)*")
  | (?P<character>'(?:[^'\\\n]|\\.)+')
  | (?P<number>\b(?:0[xX][0-9A-Fa-f']+|\d[\d']*)[uUlL]*\b)
  | (?P<member>\b[A-Z]\w*::[a-zA-Z]\w*\b)
  | (?P<constant>\b[A-Z][A-Z0-9]*_[A-Z0-9_]+\b)
  | (?P<word>\b[A-Za-z_]\w*\b)
  | (?P<operator>(?<=\ )(?:==|!=|<=|>=|&&|\|\||<<|>>|[-+*/%&|]=|[<>+\-*/%&|])(?=\s)|\+\+|--|!(?=[\w(*])|~(?=[\w(]))
""", re.X | re.S | re.M)

OPERATORS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "<<": [">>"], ">>": ["<<"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"],
    "%": ["*"], "&": ["|"], "|": ["&"], "+=": ["-="], "-=": ["+="], "|=": ["&="], "&=": ["|="], "*=": ["/="],
    "/=": ["*="], "++": ["--"], "--": ["++"], "!": [""], "~": [""],
}
WORDS = {"true": ["false"], "false": ["true"], "break": ["continue"], "continue": ["break"]}

Fault = collections.namedtuple("Fault", "file line column old new text")


def next_number(word):
    digits = re.match(r"0[xX][0-9A-Fa-f']+|[\d']+", word)[0]
    value = int(digits.replace("'", ""), 0 if digits[:2] in ("0x", "0X") else 10)
    suffix = word[len(digits):]
    form = "{:#x}" if digits[:2] in ("0x", "0X") else "{}"
    return [form.format(other) + suffix for other in (value + 1, value - 1) if other >= 0]


def other_letter(text, chance):
    """The same text with one letter or digit another one; none where there is none."""
    plain = re.sub(r"\\x[0-9A-Fa-f]+|\\.|\{[^}]*\}|%[-0-9.]*\w", lambda found: "\0" * len(found[0]), text)
    places = [at for at, letter in enumerate(plain) if letter.isalnum() and letter.isascii()]
    if not places:
        return []
    at = chance.choice(places)
    other = {"z": "y", "Z": "Y", "9": "8"}.get(text[at], chr(ord(text[at]) + 1))
    return [text[:at] + other + text[at + 1:]]


def places_in(path, families, chance):
    """Each token of a file that can be exchanged, with one exchange for each."""
    content = path.read_text(encoding="utf-8")
    lines = content.splitlines()
    for found in TOKEN.finditer(content):
        kind, word = found.lastgroup, found[0]
        match kind:
            case "operator":
                choices = OPERATORS.get(word, [])
            case "word":
                choices = WORDS.get(word, [])
            case "number":
                choices = next_number(word)
            case "text" | "character":
                choices = other_letter(word, chance)
            case "constant" | "member":
                family = families[family_of(word)]
                choices = sorted(family - {word}) if word in family else []
            case _:
                choices = []
        if choices:
            line = content.count("\n", 0, found.start())
            column = found.start() - (content.rfind("\n", 0, found.start()) + 1)
            yield Fault(str(path.relative_to(ROOT)), line + 1, column, word, chance.choice(choices),
                        lines[line].strip())


def family_of(word):
    return word.split("::")[0] + "::" if "::" in word else word.split("_")[0] + "_"


def sources():
    names = run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "src/*/*.cpp", "src/*/*.h"],
                cwd=ROOT).split()
    return [ROOT / name for name in names if not LEFT_OUT.search(name)]


def type_names():
    """Published names of types: one for another would mostly be the same."""
    names = set()
    for header in [*(ROOT / "src" / "platform").glob("*.h"), *(ROOT / "posix").glob("*.h")]:
        content = header.read_text(encoding="utf-8")
        names.update(re.findall(r"(?:using|struct|enum|union|class) (\w+)", content))
        names.update(name for line in re.findall(r"(?:typedef [^;{]*|}) ?([\w ,*]+);", content)
                     for name in re.findall(r"\w+", line))
    return names


def all_places(seed):
    families = collections.defaultdict(set)
    types = type_names()
    for path in sources():
        for found in TOKEN.finditer(path.read_text(encoding="utf-8")):
            if found.lastgroup in ("constant", "member") and found[0] not in types:
                families[family_of(found[0])].add(found[0])
    # By file and not by one row of chances: what changes in one file leaves the others' faults alone.
    return [place for path in sources()
            for place in places_in(path, families, random.Random(f"{seed} {path.relative_to(ROOT)}"))]


def changed_lines(reference):
    """(file, line) of what differs from a reference."""
    changed, name = set(), None
    for line in run(["git", "diff", "--unified=0", reference, "--", "src"], cwd=ROOT).splitlines():
        if line.startswith("+++ b/"):
            name = line[6:]
        elif (found := re.match(r"@@ -\S+ \+(\d+)(?:,(\d+))? @@", line)) and name:
            first, count = int(found[1]), int(found[2] or 1)
            changed.update((name, at) for at in range(first, first + count))
    return changed


# The lists -----------------------------------------------------------------------------------------

def exchange_of(fault):
    return f"{fault.old} -> {fault.new}"


def is_listed(entries, fault):
    return any(reasoned_list.fits(entry, fault.file, fault.text, exchange_of(fault)) for entry in entries)


# Running -------------------------------------------------------------------------------------------

ENVIRONMENT = {**os.environ, "ASAN_OPTIONS": "hard_rss_limit_mb=4096:detect_stack_use_after_return=0",
               "LSAN_OPTIONS": "report_objects=0"}


def processor_seconds():
    """Of all commands that have ended."""
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def run_tests(program, tests, limit):
    """Whether all of these tests of a program pass, within so many seconds of the processor's time: a machine
    that is busy otherwise, or a program that was stopped for a while, sees no fault. What waits for ever is
    given ten times as long."""
    flags = program.parent / "tests.txt"
    flags.write_text("--gtest_filter=" + ":".join(tests) + "\n--gtest_fail_fast\n--gtest_brief=1\n")
    process = subprocess.Popen([program, f"--gtest_flagfile={flags}"], cwd=program.parent,
                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, env=ENVIRONMENT, start_new_session=True,
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CPU, (limit, limit)))
    try:
        return process.wait(10 * limit) == 0
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return False


class Reach:
    """Which tests run which lines of src/."""

    def __init__(self, program, record):
        self.milliseconds = {}
        by_address = collections.defaultdict(set)
        for line in record.read_text().splitlines():
            test, milliseconds, *addresses = line.split()
            self.milliseconds[test] = int(milliseconds)
            for address in addresses:
                by_address[address].add(test)
        places = subprocess.run(
            ["llvm-symbolizer-14", f"--obj={program}", "--output-style=GNU", "--functions=none", "--no-inlines"],
            input="\n".join(f"0x{address}" for address in by_address) + "\n", capture_output=True, text=True,
            check=True).stdout.split("\n")
        self.by_file = collections.defaultdict(lambda: collections.defaultdict(set))
        for address, place in zip(by_address, places):
            path, line = place.split(" ")[0].rsplit(":", 1)
            if path.startswith(str(ROOT / "src")) and line.isdigit():
                self.by_file[os.path.relpath(path, ROOT)][int(line)] |= by_address[address]

    def of(self, fault):
        """The tests in the order to try them, in heaps: those near the place; those of its file; and the rest,
        where that is a header or no test runs it, since what stands in a file of functions shows to nobody who
        calls none of them."""
        lines = self.by_file[fault.file]
        at = max((line for line in lines if line <= fault.line), default=None)
        near = lines[at] if at is not None else set()
        near |= lines.get(fault.line, set())
        file = set().union(*lines.values()) if lines else set()
        rest = set(self.milliseconds) - file if not file or fault.file.endswith(".h") else set()
        quick = sorted(near, key=self.milliseconds.get)
        heaps, spent = [[], [], sorted(file - near), sorted(rest)], 0
        for test in quick:
            spent += 2 + self.milliseconds[test]
            heaps[0 if spent < 300 else 1].append(test)
        return [heap for heap in heaps if heap]


def scratch(index):
    return FOLDER / f"worker{index}"


class Bench:
    def __init__(self, programs):
        self.programs = programs
        driver_variant.build_programs(programs)
        self.variant = driver_variant.Variant(FOLDER / "baseline", "clang++-14", OPTIONS)
        self.variant.compile()
        self.recorder = FOLDER / "reach_recorder.o"
        run(["clang++-14", "-O1", "-std=c++20", "-isystem", "/usr/src/googletest/googletest/include", "-c",
             ROOT / "tests" / "mutants" / "reach_recorder.cpp", "-o", self.recorder])
        self.reach, self.limit = {}, 0
        for program in programs:
            made, record = driver_variant.place_for(program, FOLDER), FOLDER / f"{program}.reach.txt"
            said = driver_variant.link(program, self.variant.objects(), made, self.recorder)
            if said:
                raise SystemExit(said)
            spent = processor_seconds()
            subprocess.run([made, "--gtest_brief=1", f"--gtest_filter={driver_variant.BRISK}"], cwd=made.parent, check=True, stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
                           env={**ENVIRONMENT, "KELMORA_REACH": str(record)})
            self.limit = max(self.limit, 10 + 3 * int(processor_seconds() - spent))
            self.reach[program] = Reach(made, record)
        self.folders = queue.SimpleQueue()

    def plant(self, fault, folder):
        """Compiles what a fault changes; the objects to link, or None if it does not compile."""
        source = ROOT / fault.file
        lines = source.read_text(encoding="utf-8").splitlines(keepends=True)
        line = lines[fault.line - 1]
        lines[fault.line - 1] = line[:fault.column] + fault.new + line[fault.column + len(fault.old):]
        tree = folder / "src"
        planted = tree / pathlib.Path(fault.file).relative_to("src")
        planted.parent.mkdir(parents=True, exist_ok=True)
        planted.write_text("".join(lines), encoding="utf-8")
        objects = {path: self.variant.object_of(path) for path in driver_variant.compile_commands()}
        users = [source] if source in objects else self.variant.includers(source)
        try:
            for at, user in enumerate(users):
                made = folder / f"fault{at}.o"
                command = [*self.variant.command(user, f"-I{tree}"), "-c",
                           planted if user == source else user, "-o", made]
                done = subprocess.run([str(word) for word in command], capture_output=True)
                if done.returncode:
                    return None
                objects[user] = made
        finally:
            planted.unlink()
        return list(objects.values()) if users else None

    def try_fault(self, fault, wanted):
        """'uncompiled', the name of the program that saw it, or 'survived'."""
        folder = self.folders.get()
        try:
            objects = self.plant(fault, folder)
            if objects is None:
                return "uncompiled"
            for program in wanted:
                made = driver_variant.place_for(program, folder)
                if driver_variant.link(program, objects, made, "-Wl,--strip-debug", self.recorder):
                    return "uncompiled"
                if not all(run_tests(made, heap, self.limit) for heap in self.reach[program].of(fault)):
                    return program
            return "survived"
        finally:
            self.folders.put(folder)


class Seen:
    """The faults that the tests of a program have seen, and those that did not compile, over all runs: a line
    for each, with a digest of the file as it was."""

    def __init__(self, takes_over):
        self.path = FOLDER / "seen.txt"
        self.digests = {}
        self.known = set()
        if takes_over and self.path.exists():
            self.known = set(self.path.read_text(encoding="utf-8").splitlines())

    def line(self, fault, outcome):
        if fault.file not in self.digests:
            self.digests[fault.file] = hashlib.sha256((ROOT / fault.file).read_bytes()).hexdigest()[:16]
        return f"{outcome} {self.digests[fault.file]} {fault.file}:{fault.line}:{fault.column} {exchange_of(fault)}"

    def earlier(self, fault, outcomes):
        """What an earlier run has made of a fault, if that was one of these outcomes."""
        return next((outcome for outcome in outcomes if self.line(fault, outcome) in self.known), None)

    def add(self, fault, outcome):
        with self.path.open("a", encoding="utf-8") as file:
            file.write(self.line(fault, outcome) + "\n")


class Tally:
    """What became of the faults."""

    def __init__(self, programs, accepted, within):
        self.programs, self.accepted, self.within = programs, accepted, within
        self.outcomes = collections.Counter()
        self.kinds = collections.Counter()
        self.passed = []

    @property
    def tried(self):
        return sum(self.outcomes.values()) - self.outcomes["uncompiled"]

    def kind(self, fault, outcome):
        """What a fault that some program let pass is called."""
        if is_listed(self.accepted, fault):
            return "accepted"
        if BOUNDARY in self.programs and is_listed(self.within, fault) and \
                (outcome == UNIT or UNIT not in self.programs):
            return "within"
        return "MISSED" if outcome == UNIT else "SURVIVED"

    def add(self, fault, outcome):
        self.outcomes[outcome] += 1
        if outcome == BOUNDARY and is_listed(self.within, fault):
            print(f"seen though listed: {fault.file}:{fault.line}: {exchange_of(fault)}\n         {fault.text}",
                  flush=True)
        if outcome in ("uncompiled", self.programs[0]):
            return
        kind = self.kind(fault, outcome)
        self.kinds[kind] += 1
        if kind.isupper():
            self.passed.append(fault)
            (FOLDER / "survivors.json").write_text(json.dumps(self.passed, indent=1))
        print(f"{kind:8} {fault.file}:{fault.line}: {fault.old} -> {fault.new}\n         {fault.text}", flush=True)

    def conclude(self):
        """Prints the figures; whether they are as they should be."""
        (FOLDER / "survivors.json").write_text(json.dumps(self.passed, indent=1))
        seen = ", ".join(f"{self.outcomes[name]} by {name}" for name in self.programs)
        print(f"{self.tried} faults: seen {seen}; {self.outcomes['survived']} survived, "
              f"{self.kinds['SURVIVED']} of them not listed; {self.outcomes['uncompiled']} more did not compile")
        good = not self.kinds["SURVIVED"]
        if BOUNDARY in self.programs:
            seen = self.outcomes[BOUNDARY]
            visible = seen + self.kinds["MISSED"] + self.kinds["SURVIVED"]
            share = seen / max(visible, 1)
            print(f"at the boundary: {seen} of {visible} visible faults seen, {100 * share:.1f} % "
                  f"({self.kinds['within']} are not visible there, {self.kinds['accepted']} nowhere)")
            if UNIT not in self.programs:
                good = True
            good = good and share >= LEAST_SHARE
        return good


def choose(options):
    """The faults in the order to try them."""
    places = all_places(options.seed)
    if options.again:
        last = [Fault(*entry) for entry in json.loads((FOLDER / "survivors.json").read_text())]
        # By what stands there: lines may have moved.
        known = {(place.file, place.text, place.old): place for place in places}
        return [known[key]._replace(new=fault.new) for fault in last
                if (key := (fault.file, fault.text, fault.old)) in known]
    if options.files:
        wanted = {str((pathlib.Path.cwd() / name).resolve().relative_to(ROOT)) for name in options.files}
        places = [place for place in places if place.file in wanted]
    if options.since:
        changed = changed_lines(options.since)
        places = [place for place in places if (place.file, place.line) in changed]
    random.Random(options.seed).shuffle(places)
    return places


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seed", default="1")
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--since")
    parser.add_argument("--only", choices=("unit", "boundary"))
    parser.add_argument("--jobs", type=int, default=driver_variant.JOBS)
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--resume", action="store_true")
    parser.add_argument("--check-lists", action="store_true")
    parser.add_argument("files", nargs="*")
    options = parser.parse_args()

    accepted, within = reasoned_list.read(ACCEPTED), reasoned_list.read(WITHIN)
    outdated = list(reasoned_list.stale(accepted + within))
    for line in outdated:
        print(f"not ok - {line}")
    if options.check_lists:
        if not outdated:
            print("ok - each accepted fault's line stands in src/")
        return 1 if outdated else 0

    faults = choose(options)
    if not faults:
        print("no place in src/ to plant a fault at")
        return 1 if outdated else 0
    if options.again:
        options.count = len(faults)
    programs = [name for name in (BOUNDARY, UNIT) if options.only is None or name.startswith(options.only)]
    bench = Bench(programs)
    for index in range(options.jobs):
        bench.folders.put(scratch(index))

    began, began_processor = time.monotonic(), processor_seconds()
    tally = Tally(programs, accepted, within)
    waiting = iter(faults)
    seen, taken_over = Seen(options.resume), 0
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        running = {}
        while True:
            while len(running) < options.jobs and tally.tried + len(running) < options.count:
                fault = next(waiting, None)
                if fault is None:
                    break
                earlier = seen.earlier(fault, ("uncompiled", programs[0]))
                if earlier:
                    tally.add(fault, earlier)
                    taken_over += earlier != "uncompiled"
                    continue
                wanted = programs
                if len(programs) > 1 and is_listed(accepted, fault):
                    tally.add(fault, "survived")
                    continue
                if len(programs) > 1 and is_listed(within, fault):
                    wanted = [UNIT]
                running[pool.submit(bench.try_fault, fault, wanted)] = fault
            if not running:
                break
            done, _ = concurrent.futures.wait(running, return_when=concurrent.futures.FIRST_COMPLETED)
            for future in done:
                fault = running.pop(future)
                tally.add(fault, future.result())
                if future.result() in ("uncompiled", programs[0]):
                    seen.add(fault, future.result())
                if tally.tried % 50 == 0 and future.result() != "uncompiled":
                    print(f"{tally.tried} faults in {time.monotonic() - began:.0f} s", flush=True)

    each = (processor_seconds() - began_processor) / max(tally.tried - taken_over, 1)
    print(f"seed {options.seed}, {time.monotonic() - began:.0f} s, {each:.1f} s of a processor for each fault"
          + (f"; {taken_over} of an earlier run" if taken_over else ""))
    good = tally.conclude()
    return 1 if outdated or not good else 0


if __name__ == "__main__":
    sys.exit(main())
