#!/usr/bin/env python3
"""Makes a linker wrapper for each platform call that the stand-in platform's header declares.

Usage: make_platform_wraps.py HEADER FOLDER

Writes four files: platform_hooks.inc (a hook for each call, the members of PlatformCalls),
platform_names.inc (the calls' names as texts), platform_wraps.inc (the wrappers) and wrap_options.txt
(the linker's options).
"""
import pathlib
import re
import sys

header = pathlib.Path(sys.argv[1]).read_text()
folder = pathlib.Path(sys.argv[2])
folder.mkdir(parents=True, exist_ok=True)

calls = re.findall(r"^(\w+) WINAPI (\w+)\(([^)]*)\);", header, re.MULTILINE)
hooks, wraps, options = [], [], []
for result, name, parameters in calls:
    parameters = " ".join(parameters.split())
    names = [re.search(r"(\w+)$", p).group(1) for p in parameters.split(",")] if parameters else []
    arguments = ", ".join(names)
    hooks.append(f"std::function<{result}({parameters})> {name};")
    wraps.append(
        f"extern \"C\" {result} __real_{name}({parameters});\n"
        f"extern \"C\" {result} __wrap_{name}({parameters});\n"
        f"extern \"C\" {result} __wrap_{name}({parameters}) {{\n"
        f"    return intercept<{result}>(\"{name}\", platformCalls().{name}, "
        f"[&] {{ return __real_{name}({arguments}); }}{', ' if arguments else ''}{arguments});\n"
        "}\n")
    options.append(f"-Wl,--wrap={name}")


def write(name, lines):
    path = folder / name
    text = "\n".join(lines) + "\n"
    if not path.exists() or path.read_text() != text:
        path.write_text(text)


write("platform_hooks.inc", hooks)
write("platform_names.inc", [f'"{name}",' for _, name, _ in calls])
write("platform_wraps.inc", wraps)
write("wrap_options.txt", options)
