#!/usr/bin/env python3
"""Runs every fault at every place, as many processes side by side as there are processors, and adds up.

Usage: tools/run_faults.py PROGRAM [ARGUMENT ...]

The arguments are those of GoogleTest, such as --gtest_filter=*card3. Without any, fewer than 50,000 runs are a
failure.
"""
import os
import re
import subprocess
import sys
import time

LEAST = 50_000
COLUMNS = ("exchange", "platform", "pfnCspAlloc", "operator new", "all")


def line(name, numbers):
    return f"{name:<26}" + "".join(f"{number:>{width}}" for number, width in zip(numbers, (12, 12, 14, 14, 10)))


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    shards = os.cpu_count() or 1
    began = time.monotonic()
    processes = [subprocess.Popen([*sys.argv[1:], "--gtest_brief=1"], text=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, errors="replace",
                                  env={**os.environ, "KELMORA_FAULTS": "all", "GTEST_TOTAL_SHARDS": str(shards),
                                       "GTEST_SHARD_INDEX": str(shard)})
                 for shard in range(shards)]
    runs, failed = {}, False
    for process in processes:
        output = process.communicate()[0]
        for name, numbers in re.findall(r"^(Card\w+)((?: +\d+){5})$", output, re.M):
            old = runs.get(name, [0] * len(COLUMNS))
            runs[name] = [before + int(number) for before, number in zip(old, numbers.split())]
        if process.returncode:
            failed = True
            print(re.sub(r"^\[\d{4}-.*\n", "", output, flags=re.M))
    print(line("Runs with a fault at", COLUMNS))
    for name, numbers in sorted(runs.items()):
        print(line(name, numbers))
    sums = [sum(column) for column in zip(*runs.values())] if runs else [0] * len(COLUMNS)
    print(line("all", sums))
    print(f"{time.monotonic() - began:.0f} s")
    if len(sys.argv) == 2 and sums[-1] < LEAST:
        print(f"fewer than {LEAST} runs")
        failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
