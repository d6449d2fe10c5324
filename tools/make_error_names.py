#!/usr/bin/env python3
"""Writes the platform's error names into the source.

Usage: tools/make_error_names.py TSV [INCLUDE]

TSV holds one pair a line, a code ("0x8000FFFF"), a tab and its name, in the order in which the pairs
count: of two pairs with the same code the first one is the code's name. INCLUDE is the file to write,
by default src/error_names/error_name_table.inc. Building needs the written file only, not the TSV.
"""
import pathlib
import re
import sys

EXPECTED_COUNT = 6381
BLOCK_LIMIT = 60000  # Compilers need not take a literal of more than 65536 characters.


def read_pairs(path):
    pairs = []
    for number, line in enumerate(path.read_text(encoding="ascii").splitlines(), 1):
        match = re.fullmatch(r"0x([0-9A-Fa-f]{1,8})\t(\w+)", line)
        if not match:
            sys.exit(f"{path}:{number}: no pair: {line!r}")
        pairs.append((int(match.group(1), 16), match.group(2)))
    if len(pairs) != EXPECTED_COUNT:
        sys.exit(f"{path}: {len(pairs)} pairs where {EXPECTED_COUNT} are expected")
    return pairs


def make_text(pairs):
    blocks, rows = [[]], []
    size = 0
    for code, name in pairs:
        if size + len(name) + 1 > BLOCK_LIMIT:
            blocks.append([])
            size = 0
        rows.append(f"    {{0x{code:08X}, {len(blocks) - 1}, {size}}},  // {name}")
        blocks[-1].append(name)
        size += len(name) + 1
    # Sorted by code, and the pairs of one code in their order.
    by_code = sorted(range(len(pairs)), key=lambda i: (pairs[i][0], i))

    lines = ["// Made by tools/make_error_names.py: change that, not this.", ""]
    lines += ["// The names, one behind the other, each with a terminator."]
    for number, names in enumerate(blocks):
        lines.append(f"constexpr char errorNameBlock{number}[] =")
        lines += [f'    "{name}\\0"' for name in names]
        lines[-1] += ";"
        lines.append("")
    lines.append("constexpr const char* errorNameBlocks[] = {"
                 + ", ".join(f"errorNameBlock{n}" for n in range(len(blocks))) + "};")
    lines += ["", "// The pairs in their order: code, block, place of the name in the block."]
    lines += ["constexpr ErrorNameRow errorNameRows[] = {", *rows, "};", ""]
    lines += ["// The rows sorted by code; those of one code in their order."]
    lines.append("constexpr std::uint16_t errorNamesByCode[] = {")
    for start in range(0, len(by_code), 16):
        lines.append("    " + ", ".join(str(i) for i in by_code[start:start + 16]) + ",")
    lines.append("};")
    return "\n".join(lines) + "\n"


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    root = pathlib.Path(__file__).resolve().parent.parent
    target = pathlib.Path(sys.argv[2] if len(sys.argv) == 3
                          else root / "src" / "error_names" / "error_name_table.inc")
    target.write_text(make_text(read_pairs(pathlib.Path(sys.argv[1]))), encoding="ascii")


main()
