#!/usr/bin/env python3
"""Checks the arrows of the house: who includes whom.

Usage: tests/lint/check_includes.py [ROOT]

A folder of src/ includes only itself and folders below it, the subsystems take the platform's calls
from platform/ and nowhere else, and compile-time conditions stand in platform/ only. The virtual card
shares nothing with the product, and cardhost no more than the published records.
"""
import pathlib
import re
import sys

LAYERS = ["platform", "diag", "apdu", "channel", "card"]
ENTRY_POINTS = ["files", "keys", "pin", "pairing"]
# Plain declarations that the entry points of every folder share.
SHARED_BY_ENTRY_POINTS = {"frame/card_context.h", "frame/entry_points.h", "frame/entry_log.h",
                          "frame/card_type_of.h"}
STANDARD = set("""algorithm array atomic cctype cerrno charconv chrono climits clocale compare concepts
    condition_variable cstddef cstdint cstdio cstdlib cstring ctime exception filesystem fstream functional
    initializer_list iomanip ios iostream iterator limits map memory mutex new numeric optional ostream
    ranges regex set span sstream stdexcept streambuf string string_view system_error tuple type_traits
    typeinfo unordered_map unordered_set utility variant vector""".split())
# What a folder may take from outside the language's own library.
LIBRARIES = {"": ("fmt/",), "diag": ("fmt/", "botan/")}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
CONDITION = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif|else)\b")


def allowed_folders(folder):
    """The folders of src/ that a folder of src/ may include."""
    if folder in LAYERS:
        return LAYERS[:LAYERS.index(folder) + 1]
    if folder == "frame":  # it reads the card at the acquisition and names every entry point
        return LAYERS + ["frame"] + ENTRY_POINTS
    return LAYERS + [folder]


def problem_with(folder, kind, name):
    """Why a file of src/<folder> may not include this; None where it may."""
    if kind == "<":
        if name in STANDARD or name.startswith(LIBRARIES.get(folder, LIBRARIES[""])):
            return None
        return "is neither a standard header nor a library that this folder uses"
    target = name.split("/")[0]
    if "/" not in name:
        return "is not named from src/ on"
    if target in allowed_folders(folder) or name in SHARED_BY_ENTRY_POINTS and folder in ENTRY_POINTS:
        return None
    return f"stands above {folder}/ or beside it"


def lines_of(root, top):
    for path in sorted((root / top).rglob("*")):
        if path.suffix in (".h", ".cpp"):
            for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
                yield path.relative_to(root), number, line


def problems(root):
    for path, number, line in lines_of(root, "src"):
        folder = path.parts[1]
        if folder == "platform":
            continue
        include = INCLUDE.match(line)
        if include and (why := problem_with(folder, *include.groups())):
            yield f"{path}:{number}: {include[2]} {why}"
        if CONDITION.match(line):
            yield f"{path}:{number}: a compile-time condition belongs into platform/"
    subsystems = tuple(f"{folder}/" for folder in LAYERS[1:] + ENTRY_POINTS + ["frame"])
    for top, barred in (("virtual_card", subsystems), ("cardhost", subsystems)):
        for path, number, line in lines_of(root, top):
            include = INCLUDE.match(line)
            if include and include[1] == '"' and include[2].startswith(barred):
                yield f"{path}:{number}: {top}/ keeps apart from the product's {include[2]}"


def main():
    here = pathlib.Path(__file__).resolve().parents[2]
    root = pathlib.Path(sys.argv[1]).resolve() if len(sys.argv) > 1 else here
    found = list(problems(root))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
