"""The figures that are kept in the repository, and whether those of today are worse."""
import json
import pathlib
import platform
import re
import subprocess

import instructions

FILE = pathlib.Path(__file__).with_name("figures.json")
ALLOWED = 1.05  # times the kept figure
SLACK = 150  # instructions: what the state of the heap makes of a short step
CHECKED_CARDS = (3, 5, 6)  # RSA; three EC keys; one of each
DLLS = {"x64": "build/windows-x64/kelmora-id-minidriver.dll",
        "x86": "build/windows-x86/kelmora-id-minidriver.dll",
        "arm64": "build/windows-arm64/kelmora-id-minidriver.dll"}
LARGEST_DLL = 320 * 1024


def made_with(bin_folder):
    """What instruction counts hang on, besides the source."""
    def first_line(*command):
        try:
            return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]
        except (OSError, subprocess.CalledProcessError, IndexError):
            return "unknown"

    def package(name):
        return first_line("dpkg-query", "-W", "-f", "${Version}\n", name)

    cache = bin_folder / "CMakeCache.txt"
    text = cache.read_text(encoding="utf-8") if cache.exists() else ""
    compiler = re.search(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", text, re.M)
    return {"compiler": first_line(compiler[1] if compiler else "c++", "--version"),
            "build type": (re.search(r"^CMAKE_BUILD_TYPE:\w+=(.*)$", text, re.M) or ["", "unknown"])[1],
            "libc6": package("libc6"), "libstdc++6": package("libstdc++6"), "libfmt9": package("libfmt9"),
            "valgrind": package("valgrind"), "machine": platform.machine()}


def count(bin_folder, card_types=CHECKED_CARDS):
    return {str(card): instructions.journey(bin_folder, card) for card in card_types}


def sizes(root):
    return {name: (root / path).stat().st_size for name, path in DLLS.items() if (root / path).exists()}


def read():
    return json.loads(FILE.read_text(encoding="utf-8"))


def worsened(kept, counted, dlls):
    """A text for each figure that is worse than the kept one by more than is allowed."""
    found = []
    for card, steps in counted.items():
        for step, now in steps.items():
            before = kept["instructions"].get(card, {}).get(step)
            if before is None:
                found.append(f"{step} with card type {card}: no figure is kept")
            elif now > before * ALLOWED and now > before + SLACK:
                found.append(f"{step} with card type {card}: {now:,} instructions, "
                             f"{100 * (now / before - 1):.1f} % more than the kept {before:,}")
        for step in kept["instructions"].get(card, {}):
            if step not in steps:
                found.append(f"{step} with card type {card}: kept, and not counted")
    for name, now in dlls.items():
        before = kept["sizes"].get(name)
        if before is None:
            found.append(f"DLL for {name}: no size is kept")
        elif now > before * ALLOWED:
            found.append(f"DLL for {name}: {now:,} bytes, {100 * (now / before - 1):.1f} % more than the "
                         f"kept {before:,}")
        if now > LARGEST_DLL:
            found.append(f"DLL for {name}: {now:,} bytes, above {LARGEST_DLL:,}")
    return found


def advice(kept, here):
    """What stands behind a failure: other tools, or a change for the worse."""
    other = [f"  {name}: kept with {kept['made with'].get(name)}, here {value}"
             for name, value in here.items() if kept["made with"].get(name) != value]
    if other:
        return ("Instruction counts hang on compiler, libraries and valgrind, and these are others here:\n" +
                "\n".join(other) + "\nIf the commit before this one fails too, keep new figures: "
                "bench/bench.py keep")
    return ("Compiler, libraries and valgrind are those of the kept figures: the change did it. Where it is "
            "worth that, keep new figures: bench/bench.py keep")


def check(root, bin_folder, card_types=CHECKED_CARDS):
    """Prints a line for each kind of figure; whether all are well."""
    kept = read()
    counted = count(bin_folder, card_types)
    dlls = sizes(root)
    found = worsened(kept, counted, dlls)
    for card, steps in counted.items():
        lines = [text for text in found if f"card type {card}:" in text]
        print(f"{'not ok' if lines else 'ok'} - instructions with card type {card}: {sum(steps.values()):,}, "
              f"kept {sum(kept['instructions'].get(card, {}).values()):,}")
    for name in DLLS:
        if name not in dlls:
            print(f"DLL for {name}: not checked, it is not built")
    for name, size in dlls.items():
        lines = [text for text in found if f"DLL for {name}:" in text]
        print(f"{'not ok' if lines else 'ok'} - DLL for {name}: {size:,} bytes, kept "
              f"{kept['sizes'].get(name, 0):,}")
    for text in found:
        print(f"  {text}")
    if found:
        print(advice(kept, made_with(bin_folder)))
    return not found


def keep(root, bin_folder):
    """Writes today's figures; a size whose DLL is not there stays as it is kept."""
    sizes_before = read()["sizes"] if FILE.exists() else {}
    figures = {"made with": made_with(bin_folder), "instructions": count(bin_folder),
               "sizes": {**sizes_before, **sizes(root)}}
    FILE.write_text(json.dumps(figures, indent=2) + "\n", encoding="utf-8")
