#!/usr/bin/env python3
"""GCC's analyser over src/: memory that is used or given back once it is gone, or leaked; null pointers.

Usage: tests/lint/check_analyser.py BUILD [--all]

Every alarm has to stand in tests/lint/analyser_accepted.txt with the reason why it is false. Exit code 1 for
any that does not, and for an entry that is not raised any more. BUILD is a configured build folder: it has the
compile commands, and the outcomes are kept there, so that a file is looked at again only when itself, what it
includes of ours or its options have changed. Of files without an outcome it looks by default only at those that
check_sources.py counts as changed. What only Windows compiles goes through the cross compiler.
"""
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

import check_sources
from check_sources import ROOT

sys.path.insert(0, str(ROOT / "tools"))
import reasoned_list  # noqa: E402

LIST = ROOT / "tests/lint/analyser_accepted.txt"
NATIVE, WINDOWS = "g++-12", "x86_64-w64-mingw32-g++-posix"
# -O1: without inlining it sees next to nothing of a class. Of a std::optional it does not know when it holds
# something, and calls it uninitialised at every turn. By its own bound, 5, it breaks off in every fourth file
# and leaves functions out; by 10 it finds what is planted at the end of each.
OPTIONS = ["-O1", "-fanalyzer", "-Wno-analyzer-use-of-uninitialized-value",
           "--param=analyzer-bb-explosion-factor=10", "-fdiagnostics-plain-output"]
ALARM = re.compile(r"^(\S+?):(\d+):\d+: warning: (.*?)(?: \[CWE-\d+\])? \[-Wanalyzer-([\w-]+)\]$", re.M)
TAKEN_OVER = ("-D", "-I", "-std=")

# Where it is, the line of code, the name of the check and what it says, and the way there that it shows.
Alarm = collections.namedtuple("Alarm", "file line text what shown")


def name_of(path):
    return str(path.relative_to(ROOT) if path.is_relative_to(ROOT) else path)


def run(command):
    """What a compiler says, in the quotation marks of ASCII; raises SystemExit where it does not compile."""
    done = subprocess.run([str(part) for part in command], cwd=ROOT, stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, env={**os.environ, "LC_ALL": "C"})
    if done.returncode:
        raise SystemExit(f"{shlex.join(map(str, command))}\n{done.stderr}exit code {done.returncode}")
    return done.stderr


def analyse(command, source):
    """The alarms over one file, which 'command' compiles but for its name."""
    said = run([*command, "-c", source, "-o", os.devnull])
    found = list(ALARM.finditer(said))
    alarms = []
    for alarm, after in zip(found, [*found[1:], None]):
        path, line = pathlib.Path(ROOT, alarm[1]), int(alarm[2])
        text = path.read_text(encoding="utf-8", errors="replace").splitlines()[line - 1].strip()
        alarms.append(Alarm(name_of(path), line, text, f"{alarm[4]}: {alarm[3]}",
                            said[alarm.start():after.start() if after else None].strip()))
    return alarms


def commands(build):
    """The files of src/ with what compiles each."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = pathlib.Path(entry["file"])
        # A test may compile a file of its own accord, and then with other options.
        if path.is_relative_to(ROOT / "src") and " -o src/CMakeFiles/" in entry["command"]:
            words = iter(shlex.split(entry["command"]))
            kept = []
            for word in words:
                if word == "-isystem":
                    kept += [word, next(words)]
                elif word.startswith(TAKEN_OVER):
                    kept.append(word)
            found[path] = [NATIVE, *kept, *OPTIONS]
    for name in check_sources.sources():
        if name.startswith("src/") and name.endswith(".cpp"):
            found.setdefault(ROOT / name, [WINDOWS, "-std=c++20", f"-I{ROOT}/src", f"-I{ROOT}", *OPTIONS])
    return found


def precompiled(header, command, kept):
    """A header that has 'header' compiled for 'command' beside it; it stands ahead of each file for the sake of
    speed alone. The compiler passes over one that does not fit."""
    own, stamp = kept / "precompiled.h", kept / "precompiled.key"
    text = f'#include "{header}"\n'
    if not own.exists() or own.read_text() != text:
        own.write_text(text)
    files = set()
    check_sources.included(own, files)
    key = check_sources.key_of(shlex.join(command), files)
    if not stamp.exists() or stamp.read_text() != key:
        run([*command, "-x", "c++-header", own, "-o", own.with_name("precompiled.h.gch")])
        stamp.write_text(key)
    return own


def look(jobs, kept, header, changed=None):
    """The alarms over files, each of which 'jobs' gives a command; how many of the files were analysed, since
    'kept' had no outcome; and which were not, since nothing of them is among the changed files. 'header' is
    what those of the native compiler may take precompiled."""
    keys, waiting, unknown = {}, [], []
    for source, command in sorted(jobs.items()):
        files = set()
        check_sources.included(source, files)
        key = kept / "outcomes" / f"{check_sources.key_of(shlex.join([*command, str(source)]), files)}.json"
        if key.exists() or changed is None or not changed.isdisjoint(files):
            keys[source] = key
            waiting += [] if key.exists() else [source]
        else:
            unknown.append(name_of(source))
    (kept / "outcomes").mkdir(parents=True, exist_ok=True)
    native = [jobs[source] for source in waiting if jobs[source][0] == NATIVE]
    ahead = ["-include", precompiled(header, native[0], kept)] if native else []

    def one(source):
        command = jobs[source]
        alarms = analyse([*command, *(ahead if command[0] == NATIVE else [])], source)
        keys[source].write_text(json.dumps(alarms))

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 2) as pool:
        list(pool.map(one, waiting))
    alarms = {Alarm(*alarm) for key in keys.values() for alarm in json.loads(key.read_text())}
    return sorted(alarms), len(waiting), unknown


def wrong(alarms, entries, unknown=()):
    """What the alarms and the list of accepted ones differ in, but for what the unknown files may raise."""
    def is_listed(alarm, listed):
        return any(reasoned_list.fits(entry, alarm.file, alarm.text, alarm.what) for entry in listed)

    def may_be_raised(entry):
        return entry.file in unknown or (unknown and not entry.file.endswith(".cpp"))

    unlisted = [alarm for alarm in alarms if not is_listed(alarm, entries)]
    gone = list(reasoned_list.stale(entries))
    return [f"{alarm.file} | {alarm.text} | {alarm.what} |\n{alarm.shown}" for alarm in unlisted] + gone + \
        [f"{entry.place}: is no longer raised: {entry.file} | {entry.text} | {entry.what}" for entry in entries
         if not may_be_raised(entry) and not any(is_listed(alarm, [entry]) for alarm in alarms)]


def main():
    if len(sys.argv) < 2 or sys.argv[2:] not in ([], ["--all"]):
        print(__doc__, file=sys.stderr)
        return 2
    build = pathlib.Path(sys.argv[1]).resolve()
    entries = reasoned_list.read(LIST)
    jobs = commands(build)
    changed = check_sources.changed_files()
    # With the rules all files have changed.
    if sys.argv[2:] or not changed.isdisjoint({LIST, pathlib.Path(__file__).resolve()}):
        changed = None
    try:
        alarms, analysed, unknown = look(jobs, build / "analyser", build / "precompiled" / "kelmora_driver.h",
                                         changed)
    except FileNotFoundError as error:
        if error.filename not in (NATIVE, WINDOWS):
            raise
        print(f"{error.filename} is missing: tools/install_packages.sh build installs it", file=sys.stderr)
        return 1
    findings = wrong(alarms, entries, unknown)
    for finding in findings:
        print(finding)
    print(f"{'not ok' if findings else 'ok'} - what GCC's analyser says is listed with its reason: "
          f"{len(jobs)} files, {analysed} looked at now, {len(unknown)} not yet; {len(alarms)} alarms, "
          f"{len(entries)} entries, {len(findings)} wrong")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
