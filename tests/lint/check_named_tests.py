#!/usr/bin/env python3
"""Checks the tables of docs/windows-limits.md: each row names, in its last column, at least one test,
and each test named stands in tests/boundary.

Usage: tests/lint/check_named_tests.py [ROOT]
"""
import pathlib
import re
import sys

from checker import tell, test_cases

PAGE = pathlib.Path("docs/windows-limits.md")
TESTS = "tests/boundary"
COLUMN = "Held by"
NAME = re.compile(r"`(\w+\.\w+)`")


def cells(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


def problems(root):
    defined = test_cases(root, TESTS)
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


if __name__ == "__main__":
    sys.exit(tell(problems))
