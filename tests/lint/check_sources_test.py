"""Plants faults in a source file and sees that the tools behind check_sources.py find them."""
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/lint"))
import check_sources  # noqa: E402

CLEAN = "int goodName(int first) {\n    return first;\n}\n"


class PlantedFaults(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="sources-")
        self.addCleanup(folder.cleanup)
        self.path = pathlib.Path(folder.name) / "a.cpp"

    def findings(self, text, *command):
        self.path.write_text(text)
        return subprocess.run([*command, self.path, *(["--", "-std=c++20"] if "tidy" in command[0] else [])],
                              capture_output=True, text=True).returncode

    def test_a_name_that_breaks_the_rules(self):
        tidy = ("clang-tidy-14", "--quiet", f"--config-file={ROOT / '.clang-tidy'}")
        self.assertEqual(self.findings(CLEAN, *tidy), 0)
        self.assertNotEqual(self.findings(CLEAN.replace("goodName", "Bad_Name"), *tidy), 0)
        self.assertNotEqual(self.findings(CLEAN.replace("first", "First"), *tidy), 0)

    def test_a_missing_include(self):
        tidy = ("clang-tidy-14", "--quiet", f"--config-file={ROOT / '.clang-tidy'}")
        self.assertNotEqual(self.findings("std::string text();\n", *tidy), 0)

    def test_a_wrong_format(self):
        form = ("clang-format-14", "--dry-run", "--Werror", f"--style=file:{ROOT / '.clang-format'}")
        self.assertEqual(self.findings(CLEAN, *form), 0)
        self.assertNotEqual(self.findings(CLEAN.replace("    return", "  return"), *form), 0)


    def test_memory_that_is_used_after_it_is_given_back_in_the_product_s_own_code(self):
        folder = self.path.parent
        (folder / "src").mkdir()
        for rules in (".clang-tidy", "src/.clang-tidy"):
            shutil.copy(ROOT / rules, folder / rules)
        read = "int readBack(const int* held) {\n    delete held;\n    return *held;\n}\n"
        tidy = ("clang-tidy-14", "--quiet")
        self.assertEqual(self.findings(read, *tidy), 0)
        self.path = folder / "src" / "a.cpp"
        self.assertNotEqual(self.findings(read, *tidy), 0)
        self.assertEqual(self.findings(CLEAN, *tidy), 0)
        self.assertNotEqual(self.findings(CLEAN.replace("goodName", "Bad_Name"), *tidy), 0)


class Rules(unittest.TestCase):
    def test_are_those_of_each_folder_on_the_way_to_a_file(self):
        self.assertEqual(check_sources.rules(ROOT / "src/apdu/set.cpp"),
                         {ROOT / ".clang-tidy", ROOT / "src/.clang-tidy"})
        self.assertEqual(check_sources.rules(ROOT / "tests/a.cpp"), {ROOT / ".clang-tidy"})


class Commands(unittest.TestCase):
    def test_go_without_the_precompiled_header(self):
        command = ("clang++ -O0 -Xclang -fno-pch-timestamp -Xclang -include-pch -Xclang a.pch"
                   " -Xclang -include -Xclang a.hxx -Xclang -fno-x -c a.cpp")
        self.assertEqual(check_sources.without_precompiled_header(command),
                         "clang++ -O0 -Xclang -fno-x -c a.cpp")


if __name__ == "__main__":
    unittest.main()
