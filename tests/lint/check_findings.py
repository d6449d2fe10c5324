#!/usr/bin/env python3
"""Checks that each code of a finding that the doctor can print (cardhost/doctor) is named by at least one of its
tests (tests/unit/doctor, tests/system), and that each finding has a code that stands there whole.

Usage: tests/lint/check_findings.py [ROOT]
"""
import re
import sys

from checker import sources, tell

DOCTOR = "cardhost/doctor"
TESTS = ("tests/unit/doctor", "tests/system")
CODE = re.compile(r'"([a-z]+\.[a-z-]+)"')
# A finding is made by one of these; what its first argument, or the second of add, is made of.
MADE = re.compile(r"\bfindings(?:\(\))?\.(well|note|problem|unknown|add)\(\s*(.)")
WHERE_NAMED = r"(?<![\w.-]){}(?![\w-])"


def codes(root):
    """{code: the first place where it stands}."""
    found = {}
    for path, text in sources(root, DOCTOR):
        for number, line in enumerate(text.splitlines(), 1):
            if not line.lstrip().startswith("#include"):
                for code in CODE.findall(line):
                    found.setdefault(code, f"{path}:{number}")
    return found


def problems(root):
    tests = "\n".join(path.read_text(encoding="utf-8") for folder in TESTS
                      for path in sorted((root / folder).rglob("*")) if path.suffix in (".cpp", ".py"))
    found = codes(root)
    if not found:
        yield f"{DOCTOR} has no findings"
    for code, place in sorted(found.items()):
        if not re.search(WHERE_NAMED.format(re.escape(code)), tests):
            yield f"{place}: no test names the finding {code}"
    for path, text in sources(root, DOCTOR):
        for kind, first in MADE.findall(text):
            if kind != "add" and first not in '"i':  # a code, or the parameter 'id' of a helper
                yield f"{path}: a finding begins with {first}, and not with its code"


if __name__ == "__main__":
    sys.exit(tell(problems))
