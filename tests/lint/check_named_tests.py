#!/usr/bin/env python3
"""Checks the tables of docs/windows-limits.md: each row names, in its last column, at least one test,
and each test named stands in tests/boundary.

Usage: tests/lint/check_named_tests.py [ROOT]
"""
import pathlib
import re
import sys

PAGE = pathlib.Path("docs/windows-limits.md")
TESTS = pathlib.Path("tests/boundary")
COLUMN = "Held by"
DEFINITION = re.compile(r"^TEST(?:_P|_F)?\(\s*(\w+),\s*(\w+)\)", re.M)
NAME = re.compile(r"`(\w+\.\w+)`")


def defined_tests(root):
    """The names of all tests, each as Suite.Name."""
    return {".".join(found) for path in (root / TESTS).glob("*.cpp")
            for found in DEFINITION.findall(path.read_text(encoding="utf-8"))}


def cells(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


def problems(root):
    defined = defined_tests(root)
    rows, in_body = 0, False
    for number, line in enumerate((root / PAGE).read_text(encoding="utf-8").splitlines(), 1):
        if not line.startswith("|"):
            in_body = False
            continue
        row = cells(line)
        if not in_body:
            # The head, or the line of dashes that ends it.
            in_body = set("".join(row)) <= set("-:")
            if not in_body and row[-1] != COLUMN:
                yield f"{PAGE}:{number}: the last column of a table is \"{COLUMN}\""
            continue
        rows += 1
        names = NAME.findall(row[-1])
        if not names:
            yield f"{PAGE}:{number}: no test holds this row"
        for name in names:
            if name not in defined:
                yield f"{PAGE}:{number}: {name} is no test of {TESTS}"
    if not rows:
        yield f"{PAGE}: no table with rows"


def main():
    here = pathlib.Path(__file__).resolve().parents[2]
    root = pathlib.Path(sys.argv[1]).resolve() if len(sys.argv) > 1 else here
    found = list(problems(root))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
