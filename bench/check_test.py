#!/usr/bin/env python3
"""Plants worsenings, and sees that the check finds them.

Usage: bench/check_test.py --bin build/native [-v]
"""
import copy
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))

import instructions  # pylint: disable=wrong-import-position
import kept  # pylint: disable=wrong-import-position

BIN = pathlib.Path()
CARD = 6
# Stands in for the C library's: 60 more instructions each time.
DEARER_MALLOC = """
#include <stddef.h>
void* __libc_malloc(size_t size);
void* malloc(size_t size) {
    for (volatile int i = 0; i < 20; ++i) {}
    return __libc_malloc(size);
}
"""


def by(factor, figures):
    return {card: {step: round(value * factor) for step, value in steps.items()}
            for card, steps in figures.items()}


class Check(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.kept = kept.read()
        cls.kept["instructions"] = {card: steps for card, steps in cls.kept["instructions"].items()
                                    if card == str(CARD)}

    def test_finds_more_instructions(self):
        found = kept.worsened(self.kept, by(1.06, self.kept["instructions"]), {})
        self.assertTrue(any(text.startswith("acquisition") for text in found), found)

    def test_lets_a_little_more_pass(self):
        self.assertEqual(kept.worsened(self.kept, by(1.04, self.kept["instructions"]), {}), [])

    def test_lets_fewer_pass(self):
        self.assertEqual(kept.worsened(self.kept, by(0.5, self.kept["instructions"]), {}), [])

    def test_finds_a_larger_dll(self):
        for name, size in self.kept["sizes"].items():
            self.assertEqual(kept.worsened(self.kept, {}, {name: size}), [])
            self.assertEqual(len(kept.worsened(self.kept, {}, {name: round(size * 1.06)})) >= 1, True)

    def test_finds_a_dll_above_the_limit(self):
        generous = copy.deepcopy(self.kept)
        generous["sizes"]["x64"] = kept.LARGEST_DLL
        self.assertEqual(kept.worsened(generous, {}, {"x64": kept.LARGEST_DLL}), [])
        self.assertEqual(len(kept.worsened(generous, {}, {"x64": kept.LARGEST_DLL + 1})), 1)

    def test_finds_a_step_that_is_gone_or_new(self):
        counted = by(1, self.kept["instructions"])
        del counted[str(CARD)]["PIN"]
        self.assertEqual(len(kept.worsened(self.kept, counted, {})), 1)
        counted = by(1, self.kept["instructions"])
        counted[str(CARD)]["dance"] = 1
        self.assertEqual(len(kept.worsened(self.kept, counted, {})), 1)

    def test_names_other_tools(self):
        here = {**self.kept["made with"], "libc6": "9.99"}
        self.assertIn("9.99", kept.advice(self.kept, here))
        self.assertNotIn("others here", kept.advice(self.kept, self.kept["made with"]))

    def test_finds_a_library_that_works_more(self):
        with tempfile.TemporaryDirectory() as folder:
            source, library = pathlib.Path(folder, "malloc.c"), pathlib.Path(folder, "malloc.so")
            source.write_text(DEARER_MALLOC, encoding="ascii")
            subprocess.run(["cc", "-O1", "-shared", "-fPIC", "-o", library, source], check=True)
            os.environ["LD_PRELOAD"] = str(library)
            try:
                counted = kept.count(BIN, (CARD,))
            finally:
                del os.environ["LD_PRELOAD"]
        found = kept.worsened(self.kept, counted, {})
        self.assertTrue(any(text.startswith("acquisition") for text in found), (found, counted))

    def test_cannot_count_without_entry_points(self):
        with tempfile.TemporaryDirectory() as folder:
            with self.assertRaises(instructions.Unmeasurable):
                instructions.journey(pathlib.Path(folder), CARD)


if __name__ == "__main__":
    position = sys.argv.index("--bin")
    BIN = pathlib.Path(sys.argv[position + 1])
    del sys.argv[position:position + 2]
    unittest.main()
