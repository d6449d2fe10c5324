#!/usr/bin/env python3
"""Checks the sources by a tool: clang-format, cppcheck or clang-tidy.

Usage: tests/lint/check_sources.py format
       tests/lint/check_sources.py cppcheck
       tests/lint/check_sources.py tidy BUILD [--all]

'tidy' goes by the compile commands of a build folder and reads each file without its precompiled header,
so that it also sees which include is missing. By default it looks at what has changed since the branch
left main, or, on main itself, with the last commit; what is unchanged since it was found clean is left out.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = ("*.cpp", "*.h")
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)
# Where an include of ours may be looked for, besides the folder of the file itself.
INCLUDE_FOLDERS = [ROOT / folder for folder in ("", "src", "tests", "tests/unit", "tests/boundary",
                                                "tests/fuzz", "cardhost")]


def git(*arguments, check=True):
    return subprocess.run(["git", *arguments], cwd=ROOT, check=check, capture_output=True,
                          text=True).stdout


def sources():
    names = git("ls-files", "-z", "--cached", "--others", "--exclude-standard", *SOURCES).split("\0")
    return sorted(name for name in names if name and (ROOT / name).exists())


def clang_format():
    return subprocess.call(["clang-format-14", "--dry-run", "--Werror", *sources()], cwd=ROOT)


def cppcheck():
    kept = ROOT / "build/cppcheck"
    kept.mkdir(parents=True, exist_ok=True)
    folders = [name for name in ("src", "posix", "virtual_card", "cardhost", "recording")
               if (ROOT / name).is_dir()]
    return subprocess.call(
        ["cppcheck", f"-j{os.cpu_count() or 2}", "--quiet", "--language=c++", "--std=c++20",
         "--platform=unix64", "--enable=warning,performance,portability", "--inline-suppr",
         "--error-exitcode=1", "--suppressions-list=tests/lint/cppcheck_suppressions.txt",
         f"--cppcheck-build-dir={kept}", "-Isrc", "-I.", *folders], cwd=ROOT)


# clang-tidy -----------------------------------------------------------------------------------

def included(path, seen):
    """Adds to 'seen' a file and the files of ours that it includes, and those that they include."""
    if path in seen:
        return
    seen.add(path)
    for name in INCLUDE.findall(path.read_text(encoding="utf-8")):
        for folder in [path.parent, *INCLUDE_FOLDERS]:
            if (folder / name).is_file():
                included((folder / name).resolve(), seen)
                break


def key_of(command, files):
    """What the outcome hangs on: the command, and what is read."""
    total = hashlib.sha256(command.encode())
    for path in sorted(files):
        total.update(path.read_bytes())
    return total.hexdigest()


def changed_files():
    base = git("merge-base", "HEAD", "main", check=False).strip()
    if not base or base == git("rev-parse", "HEAD").strip():
        base = git("rev-parse", "--verify", "--quiet", "HEAD~1", check=False).strip() or "HEAD"
    names = git("diff", "--name-only", base) + git("ls-files", "--others", "--exclude-standard")
    return {ROOT / name for name in names.splitlines()}


def rules(path):
    """What says by which rules a file is checked: a rule that has changed counts for every such file."""
    return {folder / ".clang-tidy" for folder in path.parents
            if folder.is_relative_to(ROOT) and (folder / ".clang-tidy").exists()}


def without_precompiled_header(command):
    words, kept = iter(shlex.split(command)), []
    for word in words:
        if word == "-Xclang":
            option = next(words)
            if option in ("-include-pch", "-include"):
                next(words), next(words)
            elif option != "-fno-pch-timestamp":
                kept += [word, option]
        elif word != "-fpch-instantiate-templates":
            kept.append(word)
    return shlex.join(kept)


def tidy(build, everything):
    commands = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = pathlib.Path(entry["file"])
        if ROOT in path.parents and ROOT / "build" not in path.parents:
            commands.setdefault(path, {**entry, "command": without_precompiled_header(entry["command"])})
    # clang-tidy finds the compile commands in a folder, so these have one of their own.
    own = build / "tidy"
    clean = own / "clean"
    clean.mkdir(parents=True, exist_ok=True)
    (own / "compile_commands.json").write_text(json.dumps(list(commands.values())))

    changed = changed_files()
    waiting = []
    for path, entry in sorted(commands.items()):
        files = rules(path)
        included(path, files)
        key = clean / key_of(entry["command"], files)
        if (everything or not changed.isdisjoint(files)) and not key.exists():
            waiting.append((path, key))

    def look(job):
        path, key = job
        run = subprocess.run(["clang-tidy-14", "--quiet", "-p", own, path], cwd=ROOT,
                             capture_output=True, text=True)
        if run.returncode == 0:
            key.touch()
        return path, run

    failed = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 2) as pool:
        for path, run in pool.map(look, waiting):
            if run.returncode:
                failed += 1
                print(run.stdout or run.stderr, flush=True)
    print(f"clang-tidy: {len(commands)} files, {len(waiting)} of them looked at, {failed} with findings")
    return 1 if failed or not commands else 0


def main():
    try:
        match sys.argv[1:]:
            case ["format"]:
                return clang_format()
            case ["cppcheck"]:
                return cppcheck()
            case ["tidy", build]:
                return tidy(pathlib.Path(build).resolve(), False)
            case ["tidy", build, "--all"]:
                return tidy(pathlib.Path(build).resolve(), True)
    except FileNotFoundError as error:
        print(f"{error.filename} is missing: tools/install_packages.sh test installs it",
              file=sys.stderr)
        return 1
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main())
