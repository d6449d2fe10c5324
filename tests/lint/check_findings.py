#!/usr/bin/env python3
"""Checks that each finding that the doctor can print (cardhost/doctor) is named by its tests: its code by one over
a made-up machine (tests/unit/doctor); its verdict and its code, as in "problem card.blocked", by one over a real
machine that is sick in that way, or well (tests/system), unless tests/system/doctor/made_up_only.txt says why not.
And that each finding has a code that stands there whole.

Usage: tests/lint/check_findings.py [ROOT]
"""
import re
import sys

from checker import sources, tell

DOCTOR = "cardhost/doctor"
MADE_UP, REAL = "tests/unit/doctor", "tests/system"
EXCEPTIONS = "tests/system/doctor/made_up_only.txt"
VERDICTS = ("well", "note", "problem", "unknown")
CODE = re.compile(r'"([a-z]+\.[a-z-]+)"')
# A finding is made by one of these; what its first argument, or the second of add, is made of.
MADE = re.compile(r"\bfindings(?:\(\))?\.(well|note|problem|unknown|add)\(\s*(.)")
MADE_WHOLE = re.compile(r'\bfindings(?:\(\))?\.(well|note|problem|unknown)\(\s*"([a-z]+\.[a-z-]+)"')


def codes(root):
    """{code: the first place where it stands}."""
    found = {}
    for path, text in sources(root, DOCTOR):
        for number, line in enumerate(text.splitlines(), 1):
            if not line.lstrip().startswith("#include"):
                for code in CODE.findall(line):
                    found.setdefault(code, f"{path}:{number}")
    return found


def findings(root, known):
    """{"verdict code", or the code alone where the call does not tell the verdict: where it is made}."""
    made = {}
    for path, text in sources(root, DOCTOR):
        for call in MADE_WHOLE.finditer(text):
            line = text.count("\n", 0, call.start(2)) + 1
            made.setdefault(f"{call[1]} {call[2]}", f"{path}:{line}")
    told = {name.split()[1] for name in made}
    return made | {code: place for code, place in known.items() if code not in told}


def exceptions(root):
    """{finding: the reason why no real machine has it}."""
    path = root / EXCEPTIONS
    lines = path.read_text(encoding="utf-8").splitlines() if path.exists() else []
    return dict(line.split(": ", 1) for line in lines if line and not line.startswith("#"))


def text_of(root, folder):
    return "\n".join(path.read_text(encoding="utf-8") for path in sorted((root / folder).rglob("*"))
                     if path.suffix in (".cpp", ".py"))


def is_named(name, tests):
    pattern = re.escape(name).replace(r"\ ", " ")
    return re.search(rf"(?<![\w.-]){pattern}(?![\w-])", tests) is not None


def is_found(name, tests):
    """With a verdict, be it any."""
    return is_named(name, tests) if " " in name else any(is_named(f"{verdict} {name}", tests) for verdict in VERDICTS)


def problems(root):
    made_up, real = text_of(root, MADE_UP), text_of(root, REAL)
    known = codes(root)
    if not known:
        yield f"{DOCTOR} has no findings"
    for code, place in sorted(known.items()):
        if not is_named(code, made_up):
            yield f"{place}: no test in {MADE_UP} names the finding {code}"
    made, excused = findings(root, known), exceptions(root)
    for name, place in sorted(made.items()):
        if name not in excused and not is_found(name, real):
            yield f"{place}: no test in {REAL} finds '{name}'"
    for name in excused:
        if name not in made or is_found(name, real):
            yield f"{EXCEPTIONS}: '{name}' is no finding, or is found in {REAL} after all"
    for path, text in sources(root, DOCTOR):
        for kind, first in MADE.findall(text):
            if kind != "add" and first not in '"i':  # a code, or the parameter 'id' of a helper
                yield f"{path}: a finding begins with {first}, and not with its code"


if __name__ == "__main__":
    sys.exit(tell(problems))
