#!/usr/bin/env python3
"""Checks the components of src/: who includes whom, and that a class stays in one of them.

Usage: tests/lint/check_includes.py [ROOT]

A component of src/ includes only itself and components of the layers below its own, takes the platform's
calls from platform/ and nowhere else, and holds the members of its own classes only; compile-time
conditions stand in platform/ only. The virtual card shares nothing with the product but the platform's own
calls, a recording nothing at all, and cardhost no more than the published records and the rows of the
supported cards.
"""
import re
import sys

from checker import sources, tell

LAYERS = [["platform"], ["bytes"], ["text", "log", "profiles"], ["hash", "registry", "error_names", "channel"],
          ["apdu"], ["card"], ["session"], ["files", "keys", "pin", "pairing"], ["properties"], ["frame"]]
COMPONENTS = [component for layer in LAYERS for component in layer]
# What stands beside the product, and what it may know of it.
BESIDE = {"virtual_card": ["platform"], "recording": [], "cardhost": ["platform", "profiles"]}
STANDARD = set("""algorithm array atomic cctype cerrno charconv chrono climits clocale compare concepts
    condition_variable cstddef cstdint cstdio cstdlib cstring ctime exception filesystem fstream functional
    initializer_list iomanip ios iostream iterator limits map memory mutex new numeric optional ostream
    ranges regex set span sstream stdexcept streambuf string string_view system_error tuple type_traits
    typeinfo unordered_map unordered_set utility variant vector""".split())
# What a component may take from outside the language's own library.
LIBRARIES = {"": ("fmt/",), "hash": ("fmt/", "botan/")}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
CLASS = re.compile(r"^(?:class|struct) (\w+)\b[^;]*\{")
MEMBER = re.compile(r"^(?:[\w:<>,&*\[\] ]+ )?[&*]?(\w+)::~?\w+\(")
CONDITION = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif|else)\b")


def allowed(component):
    """The components that a component may include."""
    below = next(index for index, layer in enumerate(LAYERS) if component in layer)
    return [component, *(name for layer in LAYERS[:below] for name in layer)]


def problem_with(component, kind, name):
    """Why a file of src/<component> may not include this; None where it may."""
    if kind == "<":
        if name in STANDARD or name.startswith(LIBRARIES.get(component, LIBRARIES[""])):
            return None
        return "is neither a standard header nor a library that this component uses"
    if "/" not in name:
        return "is not named from src/ on"
    return None if name.split("/")[0] in allowed(component) else f"stands above {component}/ or beside it"


def lines_of(root, top):
    for path, text in sources(root, top):
        for number, line in enumerate(text.splitlines(), 1):
            yield path, number, line


def problems(root):
    home = {}  # of a class: the component that declares it
    members = []
    for path, number, line in lines_of(root, "src"):
        component = path.parts[1]
        if component == "platform":
            continue
        if component not in COMPONENTS:
            yield f"{path}:{number}: {component}/ has no layer"
            return
        include = INCLUDE.match(line)
        if include and (why := problem_with(component, *include.groups())):
            yield f"{path}:{number}: {include[2]} {why}"
        if CONDITION.match(line):
            yield f"{path}:{number}: a compile-time condition belongs into platform/"
        if path.suffix == ".h" and (declared := CLASS.match(line)):
            home[declared[1]] = component
        if path.suffix == ".cpp" and (defined := MEMBER.match(line)):
            members.append((path, number, component, defined[1]))
    for path, number, component, name in members:
        if home.get(name, component) != component:
            yield f"{path}:{number}: a member of {name}, a class of {home[name]}/"
    for top, shared in BESIDE.items():
        barred = tuple(f"{component}/" for component in COMPONENTS if component not in shared)
        for path, number, line in lines_of(root, top):
            include = INCLUDE.match(line)
            if include and include[1] == '"' and include[2].startswith(barred):
                yield f"{path}:{number}: {top}/ keeps apart from the product's {include[2]}"


if __name__ == "__main__":
    sys.exit(tell(problems))
