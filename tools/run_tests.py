#!/usr/bin/env python3
"""Runs the checks and tests, stage by stage, and ends with one line that counts them all.

Usage: tools/run_tests.py [STAGE ...]

Stages, by default all of them in this order:
  lint         the sources: format, includes, names, static analysis
  native       unit and boundary tests under AddressSanitizer and UndefinedBehaviorSanitizer
  system       the programs together, under the same: PC/SC daemon, virtual reader, cardhost, OpenSSL
  coverage     what of src/ the unit and boundary tests run, but for what is listed with its reason
  windows-x86  builds the x86 DLL; checks the file itself; the boundary suite in 32-bit Wine
  windows-x64  the same for the x64 DLL; besides, the directory client and the doctor, in Wine
  package      the MSI and the registration file, installed and taken away in Wine
  bench        instructions and sizes against the figures that are kept

A stage is a preset: configured, built and handed to ctest. What ctest cannot do is done here: the count of
what a test program says of each of its own tests, why one was skipped, and a line now and then from what
takes long. What a command prints goes to build/test-logs/; the end of it is shown where something failed.
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import threading
import time
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[1]
LOGS = ROOT / "build" / "test-logs"
TIMES = LOGS / "times.json"
HEARTBEAT_SECONDS = 30


class Tally:
    def __init__(self, names):
        self.names = names  # of the stages
        self.started = time.monotonic()
        self.passed = 0
        self.failed = []
        self.skipped = []

    def result(self, name, problem=None):
        if problem is None:
            self.passed += 1
        else:
            self.failed.append(name)
            say(f"    FAILED {name}" + (f": {problem}" if problem else ""))

    def skip(self, name, reason):
        self.skipped.append(f"{name}: {reason}")
        say(f"    SKIPPED {name}: {reason}")


def say(text):
    print(text, flush=True)


def run(title, command, log_name):
    """Runs a command, its output into a log; gives its exit code and its output."""
    say(f"  {title}")
    LOGS.mkdir(parents=True, exist_ok=True)
    log = LOGS / f"{log_name}.txt"
    started = time.monotonic()
    with log.open("wb") as output:
        process = subprocess.Popen([str(part) for part in command], stdout=output, cwd=ROOT,
                                   stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        while True:
            try:
                process.wait(HEARTBEAT_SECONDS)
                break
            except subprocess.TimeoutExpired:
                say(f"    still at it, {time.monotonic() - started:.0f} s")
    return process.returncode, log.read_text(errors="replace")


def show_end(output, lines=60):
    for line in output.splitlines()[-lines:]:
        say(f"    | {line}")


# Counting -------------------------------------------------------------------------------------

def count_googletest(tally, suite, report):
    """Counts the tests of a GoogleTest program by the file that it wrote; True if one failed."""
    any_failed = False
    for case in ElementTree.parse(report).getroot().iter("testcase"):
        name = f"{suite} {case.get('classname')}.{case.get('name')}"
        failures = case.findall("failure")
        if failures:
            any_failed = True
            tally.result(name, "")
            for failure in failures:
                show_end(failure.text or "", 20)
        elif case.get("result") == "skipped":
            reason = case.find("skipped")
            tally.skip(name, reason.get("message", "").strip() if reason is not None else "")
        elif case.get("status") == "run":
            tally.result(name)
    return any_failed


def count_lines(tally, suite, output):
    """Counts the tests of a script by its lines, those of unittest ("name (its.full.Name) ... ok") or of a
    checker ("ok - name"); the number of them and whether one failed."""
    results = [(name, state == "not ok", None)
               for state, name in re.findall(r"^(not ok|ok) - (.*)$", output, re.M)]
    for name, state, reason in re.findall(
            r"^\w+ \((?:__main__\.)?([\w.]+)\)(?:\n.*?)? \.\.\. "
            r"(ok|skipped|FAIL|ERROR)(?: ['\"](.*)['\"])?$", output, re.M):
        results.append((name, state in ("FAIL", "ERROR"), reason if state == "skipped" else None))
    ran = re.search(r"^Ran (\d+) tests? in", output, re.M)
    # A class that skips itself whole has a line, and unittest does not count it.
    whole_classes = len(re.findall(r"^setUpClass \(.* \.\.\. skipped ", output, re.M))
    if results and ran is not None and int(ran[1]) != len(results) - whole_classes:
        tally.result(suite, f"{ran[1]} tests ran, {len(results)} results were seen")
    for name, has_failed, reason in results:
        if reason is not None:
            tally.skip(f"{suite} {name}", reason)
        else:
            tally.result(f"{suite} {name}", "" if has_failed else None)
    return len(results), any(has_failed for _, has_failed, _ in results)


def count_test(tally, case, reports):
    """Counts one test of ctest, or the many that it stands for."""
    name, output = case.get("name"), case.findtext("system-out") or ""
    skipped = case.find("skipped")
    if skipped is not None or case.get("status") in ("disabled", "notrun"):
        # A test that skips itself says why in its last line.
        said = output.strip().splitlines()
        tally.skip(name, said[-1] if said else skipped.get("message", "") if skipped is not None else "not run")
        return
    has_failed = case.get("status") == "fail" or case.find("failure") is not None
    report = reports / f"{name}.xml"
    if report.exists():
        counted, one_failed = 1, count_googletest(tally, name, report)
    else:
        counted, one_failed = count_lines(tally, name, output)
    if has_failed and not one_failed:
        # It has crashed, leaked, run out of time, or is one test by itself.
        tally.result(name, "")
    elif not counted:
        tally.result(name)
    if has_failed:
        show_end(output)


# Stages ---------------------------------------------------------------------------------------

def step(tally, stage, title, command):
    """Runs a step that counts only where it fails."""
    code, output = run(title, command, f"{stage}-{title.split()[0].lower()}")
    if code:
        show_end(output)
        tally.result(f"{stage}: {title}", f"exit code {code}")
    return code == 0


def run_ctest(tally, stage, configuration, preset):
    reports = ROOT / "build" / configuration / "test-results"
    report = LOGS / f"{stage}-ctest.xml"
    for old in [report, *reports.glob("*.xml")]:
        old.unlink(missing_ok=True)
    code, output = run("Running the tests", ["ctest", "--preset", preset, "--output-junit", report],
                       f"{stage}-ctest")
    failed_before = len(tally.failed)
    if report.exists():
        for case in ElementTree.parse(report).getroot().iter("testcase"):
            count_test(tally, case, reports)
    if not report.exists() or (code and len(tally.failed) == failed_before):
        show_end(output)
        tally.result(stage, f"ctest ended with exit code {code}")


def commands(configuration, targets):
    """What configures a preset, and what builds targets of it, or all of it."""
    build = ["cmake", "--build", ROOT / "build" / configuration, *(["--target", *targets] if targets else [])]
    return ["cmake", "--preset", configuration], build


class Ahead:
    """Builds what later stages need while earlier ones are tested: tests wait more than they work. A stage
    waits here for its build, and then does the same once more, which is quick and shows what went wrong."""

    def __init__(self):
        self.threads = {}

    def begin(self, names):
        """Begins, once and in the order of the stages, with those of these names."""
        if self.threads:
            return
        before = None
        for name in names:
            if name in BUILT_AHEAD:
                configuration, targets = BUILT_AHEAD[name]
                thread = threading.Thread(target=self._build, args=(before, configuration, targets), daemon=True)
                thread.start()
                before = self.threads[configuration] = thread

    def wait(self, configuration):
        began = time.monotonic()
        thread = self.threads.get(configuration)
        while thread is not None and thread.is_alive():
            thread.join(HEARTBEAT_SECONDS)
            if thread.is_alive():
                say(f"    {configuration} is being built, {time.monotonic() - began:.0f} s")

    @staticmethod
    def _build(before, configuration, targets):
        if before is not None:
            before.join()
        with (LOGS / f"ahead-{configuration}.txt").open("wb") as output:
            for command in commands(configuration, targets):
                if subprocess.run(command, stdout=output, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                  cwd=ROOT, check=False).returncode:
                    return


ahead = Ahead()


def preset_stage(configuration, targets=None, preset=None):
    """A stage: configure a preset, build targets of it (None for nothing, () for all), run a test preset."""
    def stage(tally, name):
        ahead.wait(configuration)
        configure, build = commands(configuration, targets)
        if step(tally, name, f"Configuring {configuration}", configure) and (
                targets is None or step(tally, name, f"Building {configuration}", build)):
            if targets is not None:
                ahead.begin(tally.names)
            run_ctest(tally, name, configuration, preset or configuration)
    return stage


def package(tally, name):
    for configuration in ("windows-x64", "windows-x86", "native"):
        ahead.wait(configuration)
    for configuration in ("windows-x64", "windows-x86"):
        if not (step(tally, name, f"Configuring {configuration}", ["cmake", "--preset", configuration]) and
                step(tally, name, f"Building {configuration}",
                     ["cmake", "--build", ROOT / "build" / configuration, "--target", "minidriver"])):
            return
    if not step(tally, name, "Making the package", ["packaging/windows/make_package.sh"]):
        return
    tally.result("package: is made")
    for title, script in (
            ("Finding the cards in what registers them",
             ["packaging/windows/check_registration.py", "build/package", "build/native/print_card_profiles"]),
            ("Installing it in Wine, and taking it away", ["packaging/windows/check_package.py"])):
        code, output = run(title, [sys.executable, *script], f"package-{pathlib.Path(script[0]).stem}")
        counted, one_failed = count_lines(tally, name, output)
        if code not in (0, 1) or not counted or bool(code) != one_failed:
            show_end(output)
            tally.result(f"{name}: {script[0]}", f"exit code {code}")
    check = [sys.executable, "-m", "unittest", "discover", "-s", "packaging/windows", "-p", "*_test.py"]
    if step(tally, name, "Planting faults in what registers the cards", check):
        tally.result("package: planted faults are found")


def begin_wine_folder(names):
    """Starts making the folder in which the x86 DLL runs, where it is not there yet: that waits for packages
    more than it works. The stage that needs it waits for the end, and says so if it failed."""
    if "windows-x86" not in names:
        return None
    LOGS.mkdir(parents=True, exist_ok=True)
    with (LOGS / "wine-folder.txt").open("wb") as output:
        return subprocess.Popen([ROOT / "tools/wine_folder.sh", "x86"], stdout=output, stderr=output,
                                stdin=subprocess.DEVNULL, cwd=ROOT)


def coverage(tally, name):
    code, output = run("Running the tests over src/ with counters", ["tools/coverage.py"], name)
    counted, _ = count_lines(tally, name, output)
    if code or not counted:
        show_end(output)
    if not counted:
        tally.result(name, f"exit code {code}")


# Preset and targets of the stages whose build need not wait for its turn.
BUILT_AHEAD = {
    "windows-x86": ("windows-x86", ("minidriver", "test_programs")),
    "windows-x64": ("windows-x64", ("minidriver", "cardhost", "test_programs")),
    "bench": ("native", ("bench_journey",)),
}

STAGES = {
    "lint": ("Lint", preset_stage("sanitized", None, "lint")),
    "native": ("Unit and boundary tests, under sanitizers", preset_stage("sanitized", ())),
    "system": ("System tests", preset_stage("sanitized", (), "system")),
    "coverage": ("Coverage of src/", coverage),
    "windows-x86": ("The x86 DLL, in Wine", preset_stage(*BUILT_AHEAD["windows-x86"])),
    "windows-x64": ("The x64 DLL, in Wine", preset_stage(*BUILT_AHEAD["windows-x64"])),
    "package": ("The package for Windows", package),
    "bench": ("What the driver costs", preset_stage(*BUILT_AHEAD["bench"], "bench")),
}


def missing_packages():
    """The Debian packages that the tests lean on and that are not there."""
    return subprocess.run(["tools/install_packages.sh", "--missing", "build", "run", "test"], cwd=ROOT,
                          check=True, capture_output=True, text=True).stdout.split()


def keep_times(seconds, stages):
    """Adds the times of a whole run to those of earlier ones, for make bench."""
    LOGS.mkdir(parents=True, exist_ok=True)
    runs = json.loads(TIMES.read_text(encoding="utf-8")) if TIMES.exists() else []
    runs.append({"when": time.strftime("%Y-%m-%d %H:%M"), "seconds": round(seconds),
                 "stages": {name: round(value) for name, value in stages.items()}})
    TIMES.write_text(json.dumps(runs[-20:], indent=1) + "\n", encoding="utf-8")


def main():
    names = sys.argv[1:] or list(STAGES)
    unknown = [name for name in names if name not in STAGES]
    if unknown:
        print(f"No such stage: {', '.join(unknown)}. Stages: {', '.join(STAGES)}.", file=sys.stderr)
        return 2
    tally = Tally(names)
    for name in missing_packages():
        tally.result(f"package {name} is missing", "tools/install_packages.sh build run test installs it")
    folder = begin_wine_folder(names)
    stages = {}
    for name in names:
        title, stage = STAGES[name]
        began, before, failed_before = time.monotonic(), tally.passed, len(tally.failed)
        say(f"{title} ({name})")
        stage(tally, name)
        failed = len(tally.failed) - failed_before
        stages[name] = time.monotonic() - began
        say(f"  {tally.passed - before} passed" + (f", {failed} failed" if failed else "") +
            f" in {time.monotonic() - began:.0f} s ({time.monotonic() - tally.started:.0f} s since the start)")
    if folder is not None:
        folder.wait()
    if names == list(STAGES):
        keep_times(time.monotonic() - tally.started, stages)
    say("")
    for title, entries in (("Skipped", tally.skipped), ("Failed", tally.failed)):
        for entry in entries:
            say(f"{title}: {entry}")
    say(f"{tally.passed} passed, {len(tally.failed)} failed, {len(tally.skipped)} skipped")
    return 1 if tally.failed or not tally.passed else 0


if __name__ == "__main__":
    sys.exit(main())
