"""The lists of what tests do not see, and the faults that are planted in src/."""
import pathlib
import random
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))
import coverage  # noqa: E402
import mutants  # noqa: E402
import reasoned_list  # noqa: E402


class ReasonedLists(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lists-")
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        before = reasoned_list.ROOT
        self.addCleanup(lambda: setattr(reasoned_list, "ROOT", before))
        reasoned_list.ROOT = self.root
        (self.root / "a.cpp").write_text("int f() {\n    return a | b;\n}\n")

    def read(self, text):
        (self.root / "list.txt").write_text(text)
        return reasoned_list.read(self.root / "list.txt")

    def test_a_line_of_code_may_hold_the_separator(self):
        entry, = self.read("# a comment\n\na.cpp | return a | b; | a -> b | both are the same\n")
        self.assertEqual((entry.text, entry.what), ("return a | b;", "a -> b"))
        self.assertEqual(list(reasoned_list.stale([entry])), [])
        self.assertTrue(reasoned_list.fits(entry, "a.cpp", "return a | b;", "a -> b"))
        self.assertFalse(reasoned_list.fits(entry, "a.cpp", "return a | b;", "b -> a"))
        self.assertFalse(reasoned_list.fits(entry, "b.cpp", "return a | b;", "a -> b"))

    def test_a_star_stands_for_anything(self):
        entry, = self.read("a.cpp | * | * | all of it\n")
        self.assertEqual(list(reasoned_list.stale([entry])), [])
        self.assertTrue(reasoned_list.fits(entry, "a.cpp", "any line", "anything"))

    def test_an_entry_goes_stale_with_its_line_or_its_file(self):
        for line in ("a.cpp | return a; | * | gone", "b.cpp | * | * | gone"):
            with self.subTest(line):
                self.assertEqual(len(list(reasoned_list.stale(self.read(line)))), 1)

    def test_an_entry_without_a_reason_is_refused(self):
        for line in ("a.cpp | return a; | x", "a.cpp | return a; | x | "):
            with self.subTest(line), self.assertRaises(SystemExit):
                self.read(line)


class PlantedFaults(unittest.TestCase):
    def faults(self, text):
        with tempfile.NamedTemporaryFile("w", suffix=".cpp", dir=ROOT / "build", delete=False) as file:
            file.write(text)
        path = pathlib.Path(file.name)
        self.addCleanup(path.unlink)
        families = {"SCARD_": {"SCARD_A", "SCARD_B"}, "Kind::": {"Kind::one", "Kind::two"}}
        families = mutants.collections.defaultdict(set, families)
        return [(fault.old, fault.new) for fault in mutants.places_in(path, families, random.Random(1))]

    def test_each_kind_of_token_is_exchanged(self):
        for text, old, choices in (
                ("return a == b;", "==", {"!="}), ("if (a && b) {", "&&", {"||"}), ("if (!a) {", "!", {""}),
                ("return a < b;", "<", {"<=", ">="}), ("return a - b;", "-", {"+"}), ("++at;", "++", {"--"}),
                ("return 0x9000;", "0x9000", {"0x9001", "0x8fff"}), ("return 0;", "0", {"1"}),
                ("return true;", "true", {"false"}), ("return SCARD_A;", "SCARD_A", {"SCARD_B"}),
                ("return Kind::two;", "Kind::two", {"Kind::one"}), ('log("a");', '"a"', {'"b"'})):
            with self.subTest(text):
                (found, new), = self.faults(text)
                self.assertEqual(found, old)
                self.assertIn(new, choices)

    def test_what_is_no_code_is_let_be(self):
        for text in ("// return true;", "#include <a/1.h>", "static_assert(sizeof(a) == 1);", "/* 1\n2 */",
                     "std::vector<int> a;", "const A& a", 'log("{}");', "a->b = *c;"):
            with self.subTest(text):
                self.assertEqual(self.faults(text), [])

    def test_the_sample_of_a_seed_is_one_and_the_same(self):
        first, again, other = (mutants.all_places(seed) for seed in ("1", "1", "2"))
        self.assertGreater(len(first), 2000)
        self.assertEqual(first, again)
        self.assertNotEqual(first, other)


class Coverage(unittest.TestCase):
    """What counts as a gap, over the form in which the compiler's tools tell it."""

    SOURCE = ROOT / "src" / "bytes" / "tlv_scan.cpp"

    def gaps(self, *functions):
        data = {"functions": [{"filenames": [str(self.SOURCE)], **function} for function in functions]}
        return {gap.what.split()[0] for gap in coverage.gaps(coverage.Sums(data), coverage.Sources())}

    @staticmethod
    def function(regions=(), branches=(), conditions=()):
        return {"regions": [[19, 1, 19, 5, count, 0, 0, 0] for count in regions],
                "branches": [[19, 1, 19, 5, *sides, 0, 0, 4] for sides in branches],
                "mcdc_records": [[19, 1, 19, 5, 1, 0, 0, 0, 5, decided, []] for decided in conditions]}

    def test_what_is_reached_is_no_gap(self):
        self.assertEqual(self.gaps(self.function([1], [(1, 2)], [[True, True]])), set())

    def test_each_kind_of_gap_is_found(self):
        self.assertEqual(self.gaps(self.function([0])), {"runs"})
        self.assertEqual(self.gaps(self.function([1], [(0, 1)])), {"true"})
        self.assertEqual(self.gaps(self.function([1], [(1, 0)])), {"false"})
        self.assertEqual(self.gaps(self.function([1], [], [[True, False]])), {"condition"})

    def test_the_instantiations_of_a_template_count_together(self):
        self.assertEqual(self.gaps(self.function([0], [(0, 1)], [[True, False]]),
                                   self.function([1], [(1, 0)], [[False, True]])), set())


if __name__ == "__main__":
    unittest.main()
