"""Plants faults and sees that the checkers of this folder find them."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent


class PlantedFaults(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="checks-")
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def findings(self, script):
        done = subprocess.run([sys.executable, HERE / script, self.root], capture_output=True, text=True)
        self.assertEqual(done.stderr, "")
        lines = done.stdout.splitlines()
        self.assertEqual(done.returncode, 1 if lines else 0)
        return lines

    def include_findings(self, name, text):
        self.write(name, text)
        return self.findings("check_includes.py")


class Includes(PlantedFaults):
    def test_downward_and_standard_includes_pass(self):
        self.assertEqual(self.include_findings(
            "src/card/a.cpp",
            '#include <vector>\n#include <fmt/format.h>\n#include "channel/b.h"\n#include "card/c.h"\n'), [])

    def test_an_upward_include_is_found(self):
        self.assertEqual(self.include_findings("src/log/a.cpp", '\n#include "apdu/b.h"\n'),
                         ["src/log/a.cpp:2: apdu/b.h stands above log/ or beside it"])

    def test_an_include_of_a_folder_beside_is_found(self):
        self.assertEqual(len(self.include_findings("src/pin/a.cpp", '#include "keys/b.h"\n')), 1)

    def test_entry_points_share_the_session_below_them(self):
        self.assertEqual(self.include_findings("src/pin/a.cpp", '#include "session/entry_log.h"\n'), [])
        self.assertEqual(len(self.include_findings("src/pin/b.cpp", '#include "frame/other.h"\n')), 1)

    def test_a_component_without_a_layer_is_found(self):
        self.assertEqual(self.include_findings("src/misc/a.cpp", "\n"), ["src/misc/a.cpp:1: misc/ has no layer"])

    def test_a_member_outside_its_class_s_component_is_found(self):
        self.write("src/card/a.h", "class Card final {\n};\n")
        self.assertEqual(self.include_findings("src/card/a.cpp", "ByteVector Card::read(int length) {\n"), [])
        for definition in ("Card::Card(int)", "Card::~Card() {", "const ByteVector& Card::read() {"):
            with self.subTest(definition):
                self.assertEqual(self.include_findings("src/keys/a.cpp", f"\n{definition}\n"),
                                 ["src/keys/a.cpp:2: a member of Card, a class of card/"])

    def test_the_card_layer_knows_nothing_of_a_session(self):
        self.assertEqual(len(self.include_findings("src/card/a.h", '#include "session/card_context.h"\n')), 1)

    def test_a_system_header_is_found_outside_the_platform_s_folder(self):
        for header in ("windows.h", "unistd.h", "winscard.h", "sys/stat.h", "botan/hash.h"):
            with self.subTest(header):
                self.assertEqual(len(self.include_findings("src/pin/a.cpp", f"#include <{header}>\n")), 1)
        self.assertEqual(self.include_findings("src/pin/a.cpp", "")
                         + self.include_findings("src/platform/a.cpp", "#include <unistd.h>\n"), [])

    def test_a_compile_time_condition_is_found_outside_the_platform_s_folder(self):
        self.assertEqual(len(self.include_findings("src/apdu/a.h", "#pragma once\n#ifdef _WIN32\n")), 1)
        self.write("src/apdu/a.h", "")
        self.assertEqual(self.include_findings("src/platform/a.h", "#ifdef _WIN32\n"), [])

    def test_the_virtual_card_shares_nothing_with_the_product(self):
        for header in ("apdu/apdu.h", "profiles/card_profiles.h"):
            with self.subTest(header):
                self.assertEqual(len(self.include_findings("virtual_card/a.cpp", f'#include "{header}"\n')), 1)

    def test_a_recording_knows_nothing_of_the_product(self):
        self.assertEqual(len(self.include_findings("recording/a.h", '#include "platform/win32.h"\n')), 1)

    def test_cardhost_knows_the_records_and_the_cards_only(self):
        self.assertEqual(self.include_findings("cardhost/c.cpp", '#include "profiles/card_profiles.h"\n'), [])
        self.assertEqual(self.include_findings("cardhost/a.cpp", '#include "platform/minidriver.h"\n'), [])
        self.assertEqual(len(self.include_findings("cardhost/b.cpp", '#include "frame/boundary.h"\n')), 1)


class NamedTests(PlantedFaults):
    HEAD = "# Limits\n\n| Rule | Answer | Held by |\n|---|---|---|\n"

    def limits_findings(self, rows):
        self.write("tests/boundary/a_test.cpp",
                   "TEST(Suite, Plain) {}\nTEST_P(Suite,\n       Broken) {}\nTEST_F(Other, Fixture) {}\n")
        self.write("docs/windows-limits.md", self.HEAD + rows)
        return self.findings("check_named_tests.py")

    def test_rows_with_tests_that_exist_pass(self):
        self.assertEqual(self.limits_findings(
            "| a | `0x1` | `Suite.Plain`, `Suite.Broken` |\n| b | c | `Other.Fixture` |\n"), [])

    def test_a_name_that_is_no_test_is_found(self):
        self.assertEqual(self.limits_findings("| a | b | `Suite.Plain`, `Suite.Fixture` |\n"),
                         ["docs/windows-limits.md:5: Suite.Fixture is no test of tests/boundary"])

    def test_a_row_without_a_test_is_found(self):
        self.assertEqual(self.limits_findings("| a | `Suite.Plain` | by nobody |\n"),
                         ["docs/windows-limits.md:5: no test holds this row"])

    def test_a_later_table_is_checked_as_well(self):
        rows = "| a | b | `Suite.Plain` |\n\nMore.\n\n| Rule | Held by |\n|---|---|\n| a | `No.Test` |\n"
        self.assertEqual(self.limits_findings(rows),
                         ["docs/windows-limits.md:11: No.Test is no test of tests/boundary"])

    def test_a_table_without_the_column_is_found(self):
        self.assertEqual(len(self.limits_findings("| a | b | `Suite.Plain` |\n\n| Rule | Answer |\n")), 1)

    def test_a_page_without_rows_is_found(self):
        self.assertEqual(len(self.limits_findings("")), 1)


class FindingCodes(PlantedFaults):
    def code_findings(self, source, made_up, real=""):
        self.write("cardhost/doctor/log.cpp", source)
        self.write("tests/unit/doctor/log_test.cpp", made_up)
        self.write("tests/system/doctor/log_test.py", real)
        return self.findings("check_findings.py")

    SOURCE = '#include "log.h"\n    findings.note("log.cut", "lines", text);\n'
    NAMED = 'HasSubstr("note log.cut lines")'
    NOT_FOUND = "cardhost/doctor/log.cpp:2: no test in tests/system finds 'note log.cut'"

    def test_a_code_that_tests_name_passes(self):
        self.assertEqual(self.code_findings(self.SOURCE, self.NAMED, self.NAMED), [])

    def test_a_code_without_a_test_is_found(self):
        for test in ("", '"log.cut-off"', '"the_log.cut"'):
            with self.subTest(test):
                self.assertEqual(self.code_findings(self.SOURCE, test, self.NAMED), [
                    "cardhost/doctor/log.cpp:2: no test in tests/unit/doctor names the finding log.cut"])

    def test_a_finding_of_no_real_machine_is_found(self):
        for test in ("", '"log.cut"', '"problem log.cut"', '"note log.cut-off"'):
            with self.subTest(test):
                self.assertEqual(self.code_findings(self.SOURCE, self.NAMED, test), [self.NOT_FOUND])

    def test_a_finding_whose_verdict_a_helper_chooses_is_found(self):
        source = '#include "log.h"\n    complain("log.cut", text);\n'
        self.assertEqual(self.code_findings(source, self.NAMED, '"problem log.cut"'), [])
        self.assertEqual(self.code_findings(source, self.NAMED, '"log.cut"'),
                         ["cardhost/doctor/log.cpp:2: no test in tests/system finds 'log.cut'"])

    def test_an_exception_holds_as_long_as_it_is_one(self):
        self.write("tests/system/doctor/made_up_only.txt", "# Why.\nnote log.cut: a reason\n")
        stale = ["tests/system/doctor/made_up_only.txt: 'note log.cut' is no finding, or is found in tests/system "
                 "after all"]
        self.assertEqual(self.code_findings(self.SOURCE, self.NAMED), [])
        self.assertEqual(self.code_findings(self.SOURCE, self.NAMED, self.NAMED), stale)
        self.assertEqual(self.code_findings(self.SOURCE.replace("note", "problem"), self.NAMED, '"problem log.cut"'),
                         stale)

    def test_a_code_that_is_put_together_is_found(self):
        source = self.SOURCE + "    findings.problem(kind + part, text, text, text);\n"
        self.assertEqual(self.code_findings(source, self.NAMED, self.NAMED),
                         ["cardhost/doctor/log.cpp: a finding begins with k, and not with its code"])

    def test_no_codes_at_all_are_found(self):
        self.assertEqual(self.code_findings("", ""), ["cardhost/doctor has no findings"])


class Quirks(PlantedFaults):
    PAGE = "# Oddities\n\n## Log\n\n### two-blanks\n\nWhat.\n\n- Who would notice: all.\n- Test: `Log.HasBlanks`\n"
    CODE = "int a;\n// quirk: two-blanks. A reason.\n"
    CASE = "TEST_F(Log, HasBlanks) {\n"

    def quirk_findings(self, page=PAGE, code=CODE, case=CASE):
        self.write("docs/quirks.md", page)
        self.write("src/log/a.cpp", code)
        self.write("tests/unit/log/a_test.cpp", case)
        return self.findings("check_quirks.py")

    def test_a_page_that_fits_the_code_and_the_tests_passes(self):
        self.assertEqual(self.quirk_findings(), [])

    def test_a_name_without_code_is_found(self):
        self.assertEqual(self.quirk_findings(code=""), ["docs/quirks.md:5: no code has two-blanks"])

    def test_a_name_in_the_code_that_the_page_lacks_is_found(self):
        self.assertEqual(self.quirk_findings(code=self.CODE + "int b;  // quirk: other. Why.\n"),
                         ["src/log/a.cpp:3: other is not in docs/quirks.md"])

    def test_a_test_that_is_gone_is_found(self):
        for case in ("", "TEST(Log, HasBlank) {\n", "// Log.HasBlanks\n"):
            with self.subTest(case):
                self.assertEqual(self.quirk_findings(case=case), ["docs/quirks.md:5: there is no test Log.HasBlanks"])

    def test_a_section_without_a_test_or_a_witness_is_found(self):
        for line, finding in (("- Test: `Log.HasBlanks`\n", "names no test"),
                              ("- Who would notice: all.\n", "does not say who would notice")):
            with self.subTest(line):
                self.assertEqual(self.quirk_findings(page=self.PAGE.replace(line, "")),
                                 [f"docs/quirks.md:5: two-blanks {finding}"])

    def test_a_name_that_stands_twice_is_found(self):
        twice = self.PAGE + self.PAGE[self.PAGE.index("\n### "):]
        self.assertEqual(self.quirk_findings(page=twice), ["docs/quirks.md:12: two-blanks stands here twice"])

    def test_a_comment_without_a_reason_is_found(self):
        for comment in ("// A pointer, and meant so.", "int a;  // Meant so: as it is.", "// The two blanks are meant."):
            with self.subTest(comment):
                self.assertEqual(self.quirk_findings(code=self.CODE + comment + "\n"),
                                 ["src/log/a.cpp:3: a reason in words, or nothing"])


if __name__ == "__main__":
    unittest.main()
