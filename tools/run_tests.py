#!/usr/bin/env python3
"""Runs the checks and tests, stage by stage, and ends with one line that counts them all.

Usage: tools/run_tests.py [STAGE ...]

Stages, by default all of them in this order:
  lint         format, includes, static analysis
  native       unit and boundary tests under AddressSanitizer and UndefinedBehaviorSanitizer
  windows      builds both DLLs and checks the files themselves
  wine-x64     the boundary suite against the x64 DLL, in Wine
  wine-x86     the boundary suite against the x86 DLL, in 32-bit Wine
  pairing-x64  the directory client and the x64 DLL in Wine, against servers on loopback
  doctor-x64   cardhost doctor in Wine, on a machine that is well and on sick ones
  package      the MSI and the registration file, installed and taken away in Wine
  system       the programs together: PC/SC daemon, virtual reader, cardhost, OpenSSL

What a command prints goes to build/test-logs/; the end of it is shown where something failed.
"""
import os
import pathlib
import re
import subprocess
import sys
import time
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[1]
LOGS = ROOT / "build" / "test-logs"
HEARTBEAT_SECONDS = 30
SKIPPED_BY_MACHINE = 3  # how tools/wine32_folder.sh says that a machine does not allow it


class Tally:
    def __init__(self):
        self.started = time.monotonic()
        self.passed = 0
        self.failed = []
        self.skipped = []

    def seconds(self):
        return f"{time.monotonic() - self.started:.0f} s"

    def result(self, name, problem=None):
        if problem is None:
            self.passed += 1
        else:
            self.failed.append(name)
            print(f"    FAILED {name}" + (f": {problem}" if problem else ""), flush=True)

    def skip(self, name, reason):
        self.skipped.append(f"{name}: {reason}")
        print(f"    SKIPPED {name}: {reason}", flush=True)


def say(text):
    print(text, flush=True)


def run(title, command, log_name, **options):
    """Runs a command, its output into a log; gives its exit code and its output."""
    say(f"  {title}")
    LOGS.mkdir(parents=True, exist_ok=True)
    log = LOGS / f"{log_name}.txt"
    environment = {**os.environ, **options.pop("environment", {})}
    started = time.monotonic()
    with log.open("wb") as output:
        process = subprocess.Popen([str(part) for part in command], stdout=output,
                                   stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                   env=environment, **{"cwd": ROOT, **options})
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


def check(tally, name, title, command, log_name, **options):
    """Runs a command that is one check: its exit code is the result."""
    code, output = run(title, command, log_name, **options)
    if code:
        show_end(output)
    tally.result(name, None if code == 0 else f"exit code {code}")
    return code == 0


def checks(tally, name, title, command, log_name):
    """Runs a command that prints its checks as lines that begin with "ok - " or "not ok - "."""
    code, output = run(title, command, log_name)
    results = re.findall(r"^(not ok|ok) - (.*)$", output, re.M)
    for state, check_name in results:
        tally.result(check_name, None if state == "ok" else "")
    if code not in (0, 1) or not results or bool(code) == all(state == "ok" for state, _ in results):
        show_end(output)
        tally.result(name, f"exit code {code}")


# Reading results ------------------------------------------------------------------------------

def count_ctest(tally, report, stage):
    """Counts the results of a ctest run from its JUnit file."""
    for case in ElementTree.parse(report).getroot().iter("testcase"):
        name = case.get("name")
        skipped = case.find("skipped")
        if skipped is not None or case.get("status") in ("disabled", "notrun"):
            # A test that skips itself says why in its last line.
            said = (case.findtext("system-out") or "").strip().splitlines()
            message = skipped.get("message", "") if skipped is not None else case.get("status")
            tally.skip(name, said[-1] if said else message)
        elif case.get("status") == "fail" or case.find("failure") is not None:
            tally.result(f"{stage} {name}", "")
            show_end(case.findtext("system-out") or "", 40)
        else:
            tally.result(name)


def run_ctest(tally, stage, folder, label_options, parallel):
    report = LOGS / f"{stage}-ctest.xml"
    report.unlink(missing_ok=True)
    code, output = run(f"Running the tests of {folder.relative_to(ROOT)}",
                       ["ctest", "--test-dir", folder, "--output-on-failure", "--no-tests=error",
                        "--test-output-size-passed", "0", "--output-junit", report,
                        "-j", str(parallel), *label_options], f"{stage}-ctest")
    if not report.exists():
        show_end(output)
        tally.result(stage, f"ctest stopped with exit code {code}")
        return
    failed_before = len(tally.failed)
    count_ctest(tally, report, stage)
    if code and len(tally.failed) == failed_before:
        show_end(output)
        tally.result(stage, f"ctest ended with exit code {code}")


def count_googletest(tally, stage, report, code, output):
    """Counts the results of a GoogleTest program from its XML file; a program that wrote none, or
    ended badly with every test passed, has crashed."""
    failed_before = len(tally.failed)
    if not report.exists():
        show_end(output)
        tally.result(stage, f"the program stopped with exit code {code}")
        return
    for case in ElementTree.parse(report).getroot().iter("testcase"):
        name = f"{stage} {case.get('classname')}.{case.get('name')}"
        failures = case.findall("failure")
        if failures:
            tally.result(name, "")
            for failure in failures:
                show_end(failure.text or "", 20)
        elif case.get("result") == "skipped":
            reason = case.find("skipped")
            tally.skip(name, reason.get("message", "").strip() if reason is not None else "")
        elif case.get("status") == "run":
            tally.result(name)
    if code and len(tally.failed) == failed_before:
        show_end(output)
        tally.result(stage, f"the program ended with exit code {code}")


def count_unittest(tally, stage, code, output):
    """Counts the results of a Python unittest run with -v from its lines "name (its.full.Name) ... ok"."""
    failed_before, counted = len(tally.failed), 0
    for full_name, result, reason in re.findall(
            r"^\w+ \((?:__main__\.)?([\w.]+)\)(?:\n.*?)? \.\.\. "
            r"(ok|skipped|FAIL|ERROR)(?: ['\"](.*)['\"])?$", output, re.M):
        name = f"{stage} {full_name}"
        counted += 1
        if result == "ok":
            tally.result(name)
        elif result == "skipped":
            tally.skip(name, reason)
        else:
            tally.result(name, "")
    ran = re.search(r"^Ran (\d+) tests? in", output, re.M)
    if len(tally.failed) > failed_before:
        show_end(output)
    elif code or ran is None or int(ran[1]) != counted:
        show_end(output)
        tally.result(stage, f"exit code {code}, {counted} results seen")


# Building -------------------------------------------------------------------------------------

def botan_for(tally, stage, target):
    """The folder of Botan for a cross build; None where that failed."""
    code, output = run(f"Looking for Botan for {target} (built once, and kept)",
                       ["tools/build_botan.sh", target], f"{stage}-botan")
    if code:
        show_end(output)
        tally.result(f"{stage}: Botan", f"exit code {code}")
        return None
    return output.splitlines()[-1]


def build(tally, stage, preset, targets=(), environment=None):
    """Configures and builds a preset; counts only a failure."""
    target_options = ["--target", *targets] if targets else []
    for title, command in (("Configuring", ["cmake", "--preset", preset]),
                           ("Building", ["cmake", "--build", ROOT / "build" / preset, *target_options])):
        code, output = run(f"{title} {preset}", command, f"{stage}-{title.lower()}-{preset}",
                           environment=environment or {})
        if code:
            show_end(output)
            tally.result(f"{stage}: {title.lower()} {preset}", f"exit code {code}")
            return False
    return True


WINDOWS = {"x64": ("x86_64", "KELMORA_BOTAN_X64"), "x86": ("i686", "KELMORA_BOTAN_X86")}


def build_windows(tally, stage, architecture, targets):
    target, variable = WINDOWS[architecture]
    botan = botan_for(tally, stage, target)
    return botan is not None and build(tally, stage, f"windows-{architecture}", targets,
                                       {variable: botan})


# Stages ---------------------------------------------------------------------------------------

def sources(*patterns):
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard",
                             *patterns], cwd=ROOT, check=True, capture_output=True)
    return sorted(name for name in listed.stdout.decode().split("\0") if name and (ROOT / name).exists())


def lint(tally):
    check(tally, "lint: format", "Checking the format",
          ["clang-format-14", "--dry-run", "--Werror", *sources("*.cpp", "*.h")], "lint-format")
    check(tally, "lint: includes", "Checking who includes whom",
          [sys.executable, "tests/lint/check_includes.py"], "lint-includes")
    check(tally, "lint: named tests", "Checking that the tests named in the docs exist",
          [sys.executable, "tests/lint/check_named_tests.py"], "lint-named-tests")
    check(tally, "lint: the checkers", "Checking that the checkers see planted faults",
          [sys.executable, "-m", "unittest", "discover", "-s", "tests/lint", "-p", "*_test.py"],
          "lint-checkers")
    kept = ROOT / "build" / "cppcheck"
    kept.mkdir(parents=True, exist_ok=True)
    check(tally, "lint: static analysis", "Analysing with cppcheck",
          ["cppcheck", "-j2", "--quiet", "--language=c++", "--std=c++20", "--platform=unix64",
           "--enable=warning,performance,portability", "--inline-suppr", "--error-exitcode=1",
           "--suppressions-list=tests/lint/cppcheck_suppressions.txt", f"--cppcheck-build-dir={kept}",
           "-Isrc", "-I.", "src", "posix", "virtual_card", "cardhost",
           "recording"], "lint-cppcheck")


def native(tally):
    if build(tally, "native", "sanitized"):
        run_ctest(tally, "native", ROOT / "build/sanitized", ["-LE", "system"], os.cpu_count() or 2)


def windows(tally):
    for architecture in WINDOWS:
        if not build_windows(tally, "windows", architecture, ["minidriver", "cardhost"]):
            continue
        dll = ROOT / f"build/windows-{architecture}/kelmora-id-minidriver.dll"
        say(f"    {dll.stat().st_size} bytes")
        checks(tally, f"windows: checks of the {architecture} DLL", f"Checking the {architecture} DLL itself",
               [sys.executable, "tests/lint/check_dll.py", architecture, dll], f"windows-dll-{architecture}")


def in_wine(tally, architecture):
    stage = f"wine-{architecture}"
    if not build_windows(tally, stage, architecture, ["boundary_tests"]):
        return
    code, output = run("Making Wine ready", ["tools/run_in_wine.sh", architecture, "hostname"],
                       f"{stage}-prepare")
    if code == SKIPPED_BY_MACHINE and architecture == "x86":
        tally.skip("the boundary suite against the x86 DLL", output.strip().splitlines()[-1])
        return
    if code:
        show_end(output)
        tally.result(f"{stage}: Wine", f"exit code {code}")
        return
    folder = ROOT / f"build/windows-{architecture}/tests/boundary"
    report = folder / "results.xml"
    report.unlink(missing_ok=True)
    code, output = run(f"Running the boundary suite against the {architecture} DLL",
                       [ROOT / "tools/run_in_wine.sh", architecture, "./boundary_tests.exe",
                        "--gtest_output=xml:results.xml"], f"{stage}-boundary", cwd=folder)
    count_googletest(tally, stage, report, code, output)


def pairing_in_wine(tally):
    stage = "pairing-x64"
    if not build_windows(tally, stage, "x64",
                         ["pairing_client", "trust_certificate", "cardhost", "minidriver"]):
        return
    code, output = run("Letting the directory client meet servers, in Wine",
                       [sys.executable, "tests/system/pairing/pairing_test.py",
                        "--client", "build/windows-x64/pairing_client.exe",
                        "--launcher", "tools/run_in_wine.sh x64", "-v"], stage)
    count_unittest(tally, stage, code, output)


def doctor_in_wine(tally):
    stage = "doctor-x64"
    if not (build_windows(tally, stage, "x64", ["cardhost", "minidriver"]) and
            build_windows(tally, stage, "x86", ["minidriver"])):
        return
    code, output = run("Letting the doctor look at machines, in Wine",
                       [sys.executable, "tests/system/doctor/doctor_test.py",
                        "--cardhost", "build/windows-x64/cardhost.exe",
                        "--launcher", "tools/run_in_wine.sh x64", "-v"], stage)
    count_unittest(tally, stage, code, output)


def system(tally):
    if build(tally, "system", "native"):
        run_ctest(tally, "system", ROOT / "build/native", ["-L", "system"], 1)


def package(tally):
    if not all(build_windows(tally, "package", architecture, ["minidriver"]) for architecture in WINDOWS):
        return
    if check(tally, "package: is made", "Making the package", ["packaging/windows/make_package.sh"],
             "package-make"):
        checks(tally, "package: checks", "Installing it in Wine, and taking it away",
               [sys.executable, "packaging/windows/check_package.py"], "package-check")


STAGES = {
    "lint": ("Lint", lint),
    "native": ("Unit and boundary tests, under sanitizers", native),
    "windows": ("The Windows DLLs", windows),
    "wine-x64": ("The boundary suite in Wine, x64", lambda tally: in_wine(tally, "x64")),
    "wine-x86": ("The boundary suite in Wine, x86", lambda tally: in_wine(tally, "x86")),
    "pairing-x64": ("Directory pairing in Wine, x64", pairing_in_wine),
    "doctor-x64": ("The doctor in Wine, x64", doctor_in_wine),
    "package": ("The package for Windows", package),
    "system": ("System tests", system),
}


def main():
    names = sys.argv[1:] or list(STAGES)
    unknown = [name for name in names if name not in STAGES]
    if unknown:
        print(f"No such stage: {', '.join(unknown)}. Stages: {', '.join(STAGES)}.", file=sys.stderr)
        return 2
    tally = Tally()
    for name in names:
        title, stage = STAGES[name]
        before, failed_before = tally.passed, len(tally.failed)
        say(f"{title} ({name})")
        stage(tally)
        failed = len(tally.failed) - failed_before
        say(f"  {tally.passed - before} passed" + (f", {failed} failed" if failed else "") +
            f" ({tally.seconds()} since the start)")
    say("")
    for title, entries in (("Skipped", tally.skipped), ("Failed", tally.failed)):
        for entry in entries:
            say(f"{title}: {entry}")
    say(f"{tally.passed} passed, {len(tally.failed)} failed, {len(tally.skipped)} skipped")
    return 1 if tally.failed or not tally.passed else 0


if __name__ == "__main__":
    sys.exit(main())
