"""The product's own code compiled another way, under the test programs as they are.

The programs of build/sanitized are linked once more: their own objects stay, libkelmora_driver.a is one that
was compiled here with other options. So nothing but src/ is built for a measurement.
"""
import collections
import concurrent.futures
import functools
import json
import os
import pathlib
import shlex
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[1]
SANITIZED = ROOT / "build" / "sanitized"
ARCHIVE = "src/libkelmora_driver.a"
JOBS = os.cpu_count() or 2


def run(command, **options):
    """Runs a command and gives what it printed; where it fails, that goes to standard error and it raises."""
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, **options)
    if done.returncode:
        raise SystemExit(f"{shlex.join(str(part) for part in command)}\n{done.stdout}{done.stderr}"
                         f"exit code {done.returncode}")
    return done.stdout


def build_programs(programs):
    """Builds the test programs whose objects are taken over."""
    run(["cmake", "--preset", "sanitized"], cwd=ROOT)
    run(["cmake", "--build", SANITIZED, "--target", *programs], cwd=ROOT)


Command = collections.namedtuple("Command", "options precompiled")


@functools.cache
def compile_commands():
    """The files of the library and the options that each is compiled with, without the sanitizers; whether by
    the precompiled header."""
    found = {}
    for entry in json.loads((SANITIZED / "compile_commands.json").read_text()):
        path = pathlib.Path(entry["file"])
        if ROOT / "src" not in path.parents or "kelmora_driver.dir" not in entry["command"]:
            continue
        words = iter(shlex.split(entry["command"]))
        kept, precompiled = [], False
        for word in words:
            if word == "-Xclang":
                if next(words) in ("-include-pch", "-include"):
                    precompiled = True
                    next(words), next(words)
            elif word in ("-o", "-c"):
                next(words)
            elif not word.startswith(("-fsanitize", "-fno-sanitize", "-Winvalid-pch")):
                kept.append(word)
        # Ahead of the first option stands what starts the compiler.
        found[path] = Command(kept[next(at for at, word in enumerate(kept) if word.startswith("-D")):], precompiled)
    if not found:
        raise SystemExit("build/sanitized/compile_commands.json names no file of kelmora_driver")
    return found


class Variant:
    """A folder with the library's objects, by one compiler and with options of its own."""

    def __init__(self, folder, compiler, options):
        self.folder = folder
        self.compiler = compiler
        self.options = options
        folder.mkdir(parents=True, exist_ok=True)

    def precompiled(self):
        """The header that most files take, compiled once with these options."""
        header = SANITIZED / "precompiled" / "kelmora_driver.h"
        made = self.folder / "precompiled.pch"
        stamp = self.folder / "precompiled.txt"
        options = next(command.options for command in compile_commands().values() if command.precompiled)
        command = [self.compiler, *options, *self.options, "-x", "c++-header", str(header), "-o", str(made)]
        said = shlex.join(command) + header.read_text()
        newest = max(path.stat().st_mtime for path in [header, *(ROOT / "src" / "platform").glob("*.h"),
                                                       *(ROOT / "posix").glob("*.h")])
        if not (made.exists() and stamp.exists() and stamp.read_text() == said
                and made.stat().st_mtime > newest):
            run(command)
            stamp.write_text(said)
        return made

    def command(self, source, *first):
        command = compile_commands()[source]
        header = ["-include-pch", str(self.folder / "precompiled.pch")] if command.precompiled else []
        return [self.compiler, *first, *command.options, *self.options, *header]

    def object_of(self, source):
        return self.folder / "objects" / source.relative_to(ROOT / "src").with_suffix(".o")

    def is_current(self, source):
        made = self.object_of(source)
        rules = made.with_suffix(".d")
        if not (made.exists() and rules.exists()):
            return False
        age = made.stat().st_mtime
        files = rules.read_text().replace("\\\n", " ").split(":", 1)[1].split()
        return all(os.path.exists(file) and os.stat(file).st_mtime < age
                   for file in [*files, self.folder / "precompiled.txt"])

    def compile(self):
        """Compiles what is not current."""
        self.precompiled()

        def one(source):
            made = self.object_of(source)
            made.parent.mkdir(parents=True, exist_ok=True)
            run([*self.command(source), "-MMD", "-MF", made.with_suffix(".d"), "-c", source, "-o", made])

        with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
            list(pool.map(one, [source for source in compile_commands() if not self.is_current(source)]))

    def objects(self):
        return [self.object_of(source) for source in compile_commands()]

    def includers(self, header):
        """The files of the library that include a header."""
        name = str(header)
        return [source for source in compile_commands()
                if name in self.object_of(source).with_suffix(".d").read_text().split()]


@functools.cache
def link_command(program):
    """The words that link a program of build/sanitized, its own output left out."""
    last = run(["ninja", "-C", SANITIZED, "-t", "commands", program]).strip().splitlines()[-1]
    words = shlex.split(last)
    # ": && COMMAND && OTHER COMMAND"
    words = words[words.index("&&") + 1:]
    words = words[:words.index("&&")]
    at = words.index("-o")
    return words[:at] + words[at + 2:]


def link(program, objects, made, *more):
    """Links a program with objects of ours in the place of its library: ahead of its own, so that of an
    inline function that both have it is ours which is taken. Gives what the linker said, empty if nothing."""
    words = [word for word in link_command(program) if word != ARCHIVE]
    if len(words) == len(link_command(program)):
        raise SystemExit(f"{program} does not link {ARCHIVE}")
    done = subprocess.run([words[0], *map(str, objects), *words[1:], "--ld-path=ld.lld-22", *map(str, more),
                           "-o", str(made)], cwd=SANITIZED, capture_output=True, text=True)
    return done.stdout + done.stderr if done.returncode else ""


# The test programs, and where each finds its data beside itself.
PROGRAMS = {"unit_driver": SANITIZED / "tests" / "unit", "boundary_tests": SANITIZED / "tests" / "boundary"}
DATA = ["journeys", "calls", "CodeEntryLibrary.dll"]
# Without the tests of all faults at all places, of threads and of long runs: those run the same lines as the
# others, and take minutes.
BRISK = "-*Faults*:Threads.*:*LongRun*"


def place_for(program, folder):
    """Where a program is linked to in a folder: in one of its own, with the data that it looks for beside
    itself."""
    home = folder / program
    home.mkdir(parents=True, exist_ok=True)
    for data in DATA:
        beside = home / data
        if program in PROGRAMS and (PROGRAMS[program] / data).exists() and not beside.exists():
            beside.symlink_to(PROGRAMS[program] / data)
    return home / program
