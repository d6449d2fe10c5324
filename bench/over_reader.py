#!/usr/bin/env python3
"""Runs bench_reader with each virtual card, over a PC/SC daemon of its own; prints JSON by card type.

Usage: over_reader.py --bin build/native [--rounds N]
"""
import argparse
import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "tests/system/pcsc"))

import private_place  # pylint: disable=wrong-import-position
import programs  # pylint: disable=wrong-import-position


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--bin", type=pathlib.Path, required=True)
    parser.add_argument("--rounds", type=int, default=20)
    parser.add_argument(private_place.INSIDE, dest="inside", action="store_true")
    options = parser.parse_args()
    missing = programs.missing_programs()
    if missing or not (options.inside or private_place.can_make()):
        print(json.dumps({"not measured": f"missing: {', '.join(missing)}" if missing else
                          "this machine allows no place of its own for the PC/SC daemon"}))
        return 0
    if not options.inside:
        private_place.enter()
    private_place.furnish()
    binaries = options.bin.resolve()
    measured = {}
    with programs.daemon():
        for card_type in (3, 4, 5, 6, 7, 8):
            with programs.card_in(0, binaries / "virtual-card/virtual-card", card_type):
                done = subprocess.run([binaries / "bench_reader", programs.READERS[0], str(options.rounds)],
                                      capture_output=True, text=True, timeout=600, check=False)
            if done.returncode:
                sys.exit(f"card type {card_type}: {done.stderr}")
            # The driver may have said something ahead of it.
            measured[card_type] = json.loads(done.stdout.splitlines()[-1])
    print(json.dumps(measured))
    return 0


if __name__ == "__main__":
    sys.exit(main())
