#!/usr/bin/env python3
"""Adds the card of tests/data/new_card to a copy of the tables and of the tests' data.

    add_card.py FOLDER

The copy, in FOLDER, has the paths of the repository. What each piece of additions.txt goes ahead of has to
stand in its file: a table that has changed its form ends this with a message.
"""
import json
import pathlib
import re
import shutil
import sys

ROOT = pathlib.Path(__file__).resolve().parents[3]
CARD = ROOT / "tests/data/new_card"


def pieces(text):
    """(file, the line that the piece goes ahead of, the piece), in the order of the text."""
    parts = re.split(r"^== ([^:\n]+): (.+)\n", text, flags=re.M)[1:]
    return [(path, line, piece.strip("\n") + "\n")
            for path, line, piece in zip(parts[::3], parts[1::3], parts[2::3])]


def with_piece(text, line, piece, path):
    """The piece ahead of the last such line."""
    at = f"\n{text}".rfind(f"\n{line}\n")
    if at < 0:
        sys.exit(f"{path} has no line '{line}': what goes ahead of it, in {CARD / 'additions.txt'}, has no place")
    return text[:at] + piece + text[at:]


def main():
    tree = pathlib.Path(sys.argv[1])
    shutil.rmtree(tree, ignore_errors=True)
    changed = {}
    for path, line, piece in pieces((CARD / "additions.txt").read_text(encoding="utf-8")):
        text = changed.get(path) or (ROOT / path).read_text(encoding="utf-8")
        changed[path] = with_piece(text, line, piece, path)
    for path, text in changed.items():
        (tree / path).parent.mkdir(parents=True, exist_ok=True)
        (tree / path).write_text(text, encoding="utf-8")

    data = tree / "tests/data"
    for folder in ("recordings", "journeys"):
        shutil.copytree(ROOT / "tests/data" / folder, data / folder)
        shutil.copytree(CARD / folder, data / folder, dirs_exist_ok=True)
    cards = {**json.loads((ROOT / "tests/data/cards.json").read_text()),
             **json.loads((CARD / "cards.json").read_text())}
    (data / "cards.json").write_text(json.dumps(cards, indent=2))


if __name__ == "__main__":
    main()
