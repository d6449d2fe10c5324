"""Lists of what a check lets pass, each line with its reason:

    FILE | LINE OF CODE | WHAT | REASON

The line of code is given as it stands there, without its indentation, and not by its number: so an entry
stays right while other lines come and go, and goes stale with the line itself. A WHAT of * stands for
anything on that line, a line of code of * for any line of the file; either may end in * and stands for
whatever begins so.
"""
import collections
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[1]

Entry = collections.namedtuple("Entry", "file text what reason place")


def read(path):
    entries = []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        # A line of code may hold " | " itself.
        fields = [field.strip() for field in line.split(" | ")]
        place = f"{path.relative_to(ROOT)}:{number}"
        if len(fields) < 4 or not all(fields):
            raise SystemExit(f"{place}: FILE | LINE OF CODE | WHAT | REASON is wanted")
        entries.append(Entry(fields[0], " | ".join(fields[1:-2]), fields[-2], fields[-1], place))
    return entries


def fits_text(given, text):
    return text.startswith(given[:-1]) if given.endswith("*") else text == given


def fits(entry, file, text, what):
    return entry.file == file and fits_text(entry.text, text) and fits_text(entry.what, what)


def stale(entries):
    """What is wrong with entries whose line of code is gone."""
    for entry in entries:
        file = ROOT / entry.file
        lines = [line.strip() for line in file.read_text(encoding="utf-8").splitlines()] if file.is_file() else []
        if not any(fits_text(entry.text, line) for line in lines):
            yield f"{entry.place}: no longer in {entry.file}: {entry.text}"
