"""Plants faults and sees that check_analyser.py finds them with GCC's analyser, and what it makes of them."""
import pathlib
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/lint"))
import check_analyser  # noqa: E402
from check_analyser import Alarm, reasoned_list  # noqa: E402

CLEAN = "void ended(const int* held) {\n    delete held;\n}\n"
# A read of memory that is given back, on one of two ways.
USE_AFTER_DELETE = """
int usesAfterDelete(const int* held, int number) {
    if (number > 3) delete held;
    const int value = *held;
    if (number <= 3) delete held;
    return value;
}
"""
FAULTS = """
#include <cstdio>
#include <cstdlib>
#include <memory>
void freesTwice(void* held) {
    std::free(held);
    std::free(held);
}
int leaks(unsigned size) {
    void* held = std::malloc(size);
    if (held == nullptr || size > 9) return 1;
    std::free(held);
    return 0;
}
int leavesOpen(const char* name) {
    FILE* file = std::fopen(name, "r");
    return file == nullptr ? 1 : std::getc(file);
}
int readsNull() {
    const std::unique_ptr<int> held;
    return *held;
}
""" + USE_AFTER_DELETE


class Folder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="analyser-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.path = self.folder / "a.cpp"
        self.command = [check_analyser.NATIVE, "-std=c++20", "-DFMT_SHARED", f"-I{ROOT}/src", f"-I{ROOT}",
                        *check_analyser.OPTIONS]


class PlantedFaults(Folder):
    def alarms(self, text, compiler=check_analyser.NATIVE):
        self.path.write_text(text)
        return check_analyser.analyse([compiler, *self.command[1:]], self.path)

    def test_each_kind_of_fault_is_found_by_both_compilers(self):
        for compiler in (check_analyser.NATIVE, check_analyser.WINDOWS):
            with self.subTest(compiler):
                self.assertEqual(self.alarms(CLEAN, compiler), [])
                found = {(alarm.what.split(":")[0], alarm.text) for alarm in self.alarms(FAULTS, compiler)}
                self.assertLessEqual({("double-free", "std::free(held);"),
                                      ("malloc-leak", "if (held == nullptr || size > 9) return 1;"),
                                      ("file-leak", "return file == nullptr ? 1 : std::getc(file);"),
                                      ("null-dereference", "return *held;"),
                                      ("use-after-free", "const int value = *held;")}, found)

    def test_a_use_of_a_context_that_is_deleted_is_found(self):
        text = (ROOT / "src/frame/acquisition.cpp").read_text()
        planted = text.replace("    delete context;\n",
                               "    delete context;\n    if (context->hasSecondSignCert) return 1;\n")
        self.assertNotEqual(planted, text)
        self.assertEqual([alarm.text for alarm in self.alarms(planted)],
                         ["if (context->hasSecondSignCert) return 1;"])

    def test_it_comes_to_the_end_of_a_file_at_which_it_would_break_off_by_its_own_bound(self):
        planted = (ROOT / "src/session/entry_log.cpp").read_text() + USE_AFTER_DELETE
        self.assertIn("const int value = *held;", [alarm.text for alarm in self.alarms(planted)])

    def test_a_file_that_does_not_compile_is_no_clean_one(self):
        with self.assertRaises(SystemExit):
            self.alarms("int f() { return missing; }\n")


class Outcomes(Folder):
    def look(self, changed=None):
        header = self.folder / "precompiled_from.h"
        header.write_text("")
        return check_analyser.look({self.path: self.command}, self.folder / "kept", header, changed)

    def test_are_kept_until_a_file_or_what_it_includes_or_its_options_change(self):
        self.path.write_text('#include "a.h"\n' + CLEAN)
        (self.folder / "a.h").write_text("")
        self.assertEqual(self.look(), ([], 1, []))
        self.assertEqual(self.look(), ([], 0, []))
        (self.folder / "a.h").write_text(USE_AFTER_DELETE)
        for analysed in (1, 0):
            (alarm,), count, _ = self.look()
            self.assertEqual((alarm.file, alarm.line, alarm.text, count),
                             (str(self.folder / "a.h"), 4, "const int value = *held;", analysed))
            self.assertIn("deleted here", alarm.shown)
        self.path.write_text(CLEAN)
        self.assertEqual(self.look(), ([], 1, []))
        self.command += ["-DOTHER"]
        self.assertEqual(self.look(), ([], 1, []))

    def test_a_file_without_an_outcome_waits_until_it_or_what_it_includes_has_changed(self):
        self.path.write_text('#include "a.h"\n' + CLEAN)
        (self.folder / "a.h").write_text("")
        self.assertEqual(self.look({self.folder / "b.h"}), ([], 0, [str(self.path)]))
        self.assertEqual(self.look({self.folder / "a.h"}), ([], 1, []))
        self.assertEqual(self.look(set()), ([], 0, []))


class Lists(unittest.TestCase):
    """Over a line that is there, so that none of the entries is stale by itself."""

    ALARM = Alarm("src/frame/acquisition.cpp", 76, "delete context;", "double-free: of 'context'", "the way")

    def entry(self, what):
        return reasoned_list.Entry(self.ALARM.file, self.ALARM.text, what, "a reason", "list.txt:1")

    def test_an_alarm_passes_by_its_entry_alone(self):
        self.assertEqual(check_analyser.wrong([self.ALARM], [self.entry("double-free: *")]), [])
        self.assertEqual(len(check_analyser.wrong([self.ALARM], [])), 1)

    def test_an_entry_of_another_check_covers_nothing_and_is_stale(self):
        self.assertEqual(len(check_analyser.wrong([self.ALARM], [self.entry("malloc-leak: *")])), 2)

    def test_an_entry_that_is_not_raised_any_more_is_found(self):
        entries = [self.entry("double-free: *")]
        self.assertEqual(len(check_analyser.wrong([], entries)), 1)
        self.assertEqual(len(check_analyser.wrong([], entries, ["src/apdu/set.cpp"])), 1)
        self.assertEqual(check_analyser.wrong([], entries, [self.ALARM.file]), [])

    def test_an_entry_of_a_header_waits_for_all_files(self):
        entry = self.entry("*")._replace(file="src/apdu/apdu_command.h", text="struct ApduCommand {")
        self.assertEqual(len(check_analyser.wrong([], [entry])), 1)
        self.assertEqual(check_analyser.wrong([], [entry], ["src/apdu/set.cpp"]), [])


if __name__ == "__main__":
    unittest.main()
