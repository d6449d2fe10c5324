"""What the checkers of the sources have in common: the tree that they look at, and how they tell."""
import pathlib
import re
import sys

# The first line of a GoogleTest test: its suite and its name.
TEST_CASE = re.compile(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)", re.MULTILINE)

SOURCES = (".h", ".cpp")


def sources(root, top):
    """Path and text of each source file below a folder of the tree."""
    for path in sorted((root / top).rglob("*")):
        if path.suffix in SOURCES:
            yield path.relative_to(root), path.read_text(encoding="utf-8")


def test_cases(root, top):
    """All tests below a folder, each as Suite.Name."""
    return {".".join(case) for _, text in sources(root, top) for case in TEST_CASE.findall(text)}


def tell(problems):
    """Prints what a checker finds in the tree of the first argument, or in this one; the exit code."""
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parents[2]).resolve()
    found = list(problems(root))
    for line in found:
        print(line)
    return 1 if found else 0
