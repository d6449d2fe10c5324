#!/usr/bin/env python3
"""Compares docs/quirks.md with the code and the tests, so that none of them grows stale.

Usage: check_quirks.py [ROOT]

The page has a section "### name" for each oddity that is kept, with a line "- Who would notice: ..." and a
line "- Test: `Suite.Name`". The code has the name in a comment "quirk: name. Reason". Each name has both,
and each test is there. A comment that only says that something is meant so is no reason, and is found too.
"""
import pathlib
import re
import sys

from checker import sources, tell, test_cases

PAGE = "docs/quirks.md"
TAG = re.compile(r"//.*?\bquirk: ([\w-]+)")
SECTION = re.compile(r"^### (.+)$", re.MULTILINE)
TEST = re.compile(r"^- Test: `(\w+\.\w+)`$", re.MULTILINE)
# Where a comment that gives no reason is looked for.
COMMENTED = ("src", "posix", "recording", "virtual_card", "cardhost", "tests")
NO_REASON = re.compile(r"//.*\b(meant so|on purpose|(is|are|and) meant)\b", re.IGNORECASE)


def sections(page):
    """The name and the text of each section, and the line on which it begins."""
    heads = list(SECTION.finditer(page))
    for head, end in zip(heads, [head.start() for head in heads[1:]] + [len(page)]):
        yield head[1], page[head.end():end], page.count("\n", 0, head.start()) + 1


def problems(root):
    tagged = {}
    for path, text in sources(root, "src"):
        for number, line in enumerate(text.splitlines(), 1):
            where = f"{path}:{number}"
            for tag in TAG.finditer(line):
                tagged.setdefault(tag[1], where)
    for top in COMMENTED:
        for path, text in sources(root, top):
            for number, line in enumerate(text.splitlines(), 1):
                if NO_REASON.search(line):
                    yield f"{path}:{number}: a reason in words, or nothing"
    cases = test_cases(root, "tests")
    listed = set()
    for name, text, number in sections((root / PAGE).read_text(encoding="utf-8")):
        where = f"{PAGE}:{number}"
        if name in listed:
            yield f"{where}: {name} stands here twice"
        listed.add(name)
        if name not in tagged:
            yield f"{where}: no code has {name}"
        if "\n- Who would notice: " not in text:
            yield f"{where}: {name} does not say who would notice"
        tests = TEST.findall(text)
        if not tests:
            yield f"{where}: {name} names no test"
        for test in tests:
            if test not in cases:
                yield f"{where}: there is no test {test}"
    for name, where in tagged.items():
        if name not in listed:
            yield f"{where}: {name} is not in {PAGE}"


if __name__ == "__main__":
    sys.exit(tell(problems))
