#!/usr/bin/env python3
"""Runs suites in Wine that end before they have results, and sees how tools/run_tests.py counts them: what
aborts has failed, and only what says that the machine does not allow it is skipped.

Usage: ends_early_test.py CTEST FOLDER_OF_PLANTED_SUITES

Prints a line for each check, beginning with "ok" or "not ok".
"""
import contextlib
import io
import pathlib
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "packaging/windows")]
import run_tests  # noqa: E402
from checks import Checks  # noqa: E402


def main():
    ctest, folder = sys.argv[1], pathlib.Path(sys.argv[2]).resolve()
    report = folder / "planted.xml"
    report.unlink(missing_ok=True)
    subprocess.run([ctest, "--test-dir", folder, "-C", "Planted", "-R", "^planted[.]", "--output-junit", report],
                   stdout=subprocess.DEVNULL, check=False)
    tally = run_tests.Tally([])
    with contextlib.redirect_stdout(io.StringIO()):
        for case in ElementTree.parse(report).getroot().iter("testcase"):
            run_tests.count_test(tally, case, folder)
    checks = Checks("a suite in Wine")
    checks.equal("has failed where it aborts or terminates", sorted(tally.failed),
                 ["planted.abort", "planted.terminate"])
    checks.equal("is skipped where the machine does not allow it", tally.skipped,
                 ["planted.cannot: this machine does not allow it"])
    checks.equal("has not passed in either case", tally.passed, 0)
    return checks.exit_code()


if __name__ == "__main__":
    sys.exit(main())
