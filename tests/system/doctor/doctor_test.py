#!/usr/bin/env python3
"""Lets the doctor look at this machine over virtual cards, and at logs.

    doctor_test.py --cardhost build/native/cardhost [unittest arguments]
    doctor_test.py --cardhost build/windows-x64/cardhost.exe --launcher "tools/run_in_wine.sh x64"
                   [unittest arguments]

In Wine the tests have a prefix of their own, build/wine/doctor. Sick machines stand in sick_machines_test.py.
"""
import argparse
import contextlib
import itertools
import os
import pty
import re
import shutil
import socket
import subprocess
import sys
import unittest

import doctor_runs
from doctor_runs import FILE, OK, UNWELL, DoctorTest, log_folder, run, settings
from known_cards import ATRS, RECORDINGS, TRIES


def line(second, scope, message):
    return f"[2026-11-21 05:10:{second:02}] [{scope}] {message}\n"


def entry(second, scope):
    return line(second, scope, "Entering the function")


def left(second, scope, status):
    return line(second, scope, f"Exiting the function, with status code: {status}")


ACQUIRED = entry(1, "CardAcquireContext") + line(1, "CardAcquireContext", "Entering RegisterCard")
RELEASED = entry(9, "CardDeleteContext")
REFUSED = left(3, "CardSignData", "'0x8010001f'")
FAILED = ACQUIRED + entry(2, "CardSignData") + REFUSED + RELEASED

# What a log says, by the name of a test: the log, the finding, and what it says of it.
LOGS = {
    "a_good_day": (ACQUIRED + entry(2, "CardSignData") + left(3, "CardSignData", "'0x00000000'") + RELEASED,
                   "well log.acquisitions", "1, no call in them failed"),
    "its_time": (FAILED, "well log.lines", "5, from 2026-11-21 05:10:01 to 2026-11-21 05:10:09"),
    "how_many_acquisitions_failed": (ACQUIRED + RELEASED + FAILED, "note log.acquisitions",
                                     "2; something went wrong in 1; the last one among them"),
    "another_file": ("Not a line of the driver's.\n" * 3, "problem log.foreign", "none of 3 is a line"),
    "lines_that_were_cut": (ACQUIRED + "rdReadFile] Exiting\n" + RELEASED, "note log.cut", "1 cut"),
    "a_failed_call": (FAILED, "problem log.refused", "CardSignData: 2026-11-21 05:10:03: 0x8010001f"),
    "a_call_refused_as_usual": (ACQUIRED + left(2, "CardGetProperty", "'0x80100022'") + RELEASED,
                                "note log.refused", "CardGetProperty"),
    "a_message": (ACQUIRED + line(2, "AdAttributeService", "Could not parse URL.") + RELEASED,
                  "problem log.message", "an address in ADRSURL is malformed"),
    "a_message_of_no_harm": (ACQUIRED + line(2, "CodeEntry", "Error: Changing directory failed.") + RELEASED,
                             "note log.message", "Windows asked for the PIN"),
    "a_wrong_pin": (ACQUIRED + left(2, "CardAuthenticatePin", "'0x8010006b' or '0x8010006c'") + RELEASED,
                    "note log.wrong-pin", "or blocked by now"),
    "a_call_without_an_end": (ACQUIRED + entry(2, "CardSignData") + RELEASED, "note log.unfinished",
                              "CardSignData: 2026-11-21 05:10:02: has no end"),
    "a_card_that_was_not_acquired": (
        line(0, "DllMain", "Started with reason code: 1") + entry(1, "CardAcquireContext")
        + line(2, "DllMain", "Started with reason code: 0"), "problem log.not-acquired", "of no known kind"),
    "a_card_whose_acquisition_is_cut_off": (entry(1, "CardAcquireContext"), "note log.not-acquired", "may hide it"),
    "several_processes_at_once": (ACQUIRED + FAILED, "note log.mixed", "does not tell whose a line is"),
    "more_failures_than_are_shown": (
        ACQUIRED + "".join(left(2, f"Call{i}", "'0x8010001f'") for i in range(25)) + RELEASED,
        "note log.more", "5 earlier kinds"),
}


class Log(DoctorTest):
    """--log FILE: the same on each system."""

    def log(self, content):
        path = self.folder / "the.log"
        path.write_bytes(content)
        return path.name

    def explain(self, content, expected):
        code, out, error = run(*settings.launcher, settings.cardhost, "doctor", "--log",
                               self.log(content), cwd=self.folder)
        self.assertEqual(code, expected, out + error)
        self.assertLessEqual(max(map(len, out.splitlines())), 80, out)
        return out

    def test_shows_the_failed_call(self):
        out = self.explain(FAILED.encode(), UNWELL)
        self.assertIn("Acquisition 1 of 1: 2026-11-21 05:10:01 to 2026-11-21 05:10:09", out)
        self.assertRegex(out, r"PROBLEM +CardSignData: 2026-11-21 05:10:03: 0x8010001f\s+"
                              r"SCARD_E_UNEXPECTED")

    def test_takes_hostile_bytes(self):
        out = self.explain(b"\x1b[2J[2026-11-21 05:10:19] [A\x1b[31m] Could not parse URL.\x00\xff\n"
                           + bytes(range(256)) * 400, UNWELL)
        self.assertNotIn("\x1b", out)

    def test_takes_a_large_file(self):
        line = b"[2026-11-21 05:10:19] [CardReadFile] Entering the function\n"
        out = self.explain(line * 400_000 + b"x" * 30_000_000, OK)
        self.assertIn("400001, from", out)

    def test_of_a_missing_file_ends_with_a_message(self):
        code, _, error = run(*settings.launcher, settings.cardhost, "doctor", "--log", "none.log",
                             cwd=self.folder)
        self.assertEqual(code, FILE)
        self.assertIn("cannot read none.log", error)

    def switch_on(self):
        """Makes the driver's log folder until the test ends."""
        folder = log_folder()
        if settings.launcher:
            shutil.rmtree(folder, ignore_errors=True)
        elif not os.access(folder.parent, os.W_OK) or folder.exists():
            self.skipTest(f"{folder} cannot be made for a test")
        folder.mkdir(parents=True)
        self.addCleanup(shutil.rmtree, folder)
        return folder

    def test_of_the_driver_itself_stands_beside_its_calls_on_the_page_of_a_logon(self):
        self.switch_on()
        code, out, error = run(*settings.launcher, settings.cardhost, "--virtual", 4, "report", "--pin", "1234",
                               "--out", "page.html", cwd=self.folder)
        self.assertEqual(code, OK, out + error)
        page = (self.folder / "page.html").read_text(encoding="utf-8")
        beside = {}
        for call in page.split('<details class="call"')[1:]:
            name = re.search(r'class="what">(\w+)', call)[1]
            beside.setdefault(name, set()).update(re.findall(r"<li>\[[^]]+\] \[(\w+)\]", call))
        calls = {"CardAcquireContext", "CardAuthenticateEx", "CardSignData", "CardDeleteContext"}
        for name in calls:
            self.assertEqual(beside[name] & calls, {name})

    def test_of_the_driver_itself_is_understood(self):
        """A wrong PIN and a right one, in the log that the driver has written."""
        folder = self.switch_on()
        for pin in ("9999", "1234"):
            run(*settings.launcher, settings.cardhost, "--virtual", 4, "logon", "--pin", pin,
                cwd=self.folder)
        (path,) = folder.iterdir()
        out = self.explain(path.read_bytes(), OK)
        self.assertRegex(out, r"2; something went wrong in 1; the last one went\s+well")
        self.assertRegex(out, r"note +CardAuthenticateEx: .*0x8010006b\s+SCARD_W_WRONG_CHV")

    def page_of(self, content):
        """The outcome on the page of a log, and how it is marked."""
        code, out, error = run(*settings.launcher, settings.cardhost, "report", "--log", self.log(content),
                               "--out", "page.html", cwd=self.folder)
        self.assertEqual(code, OK, out + error)
        page = (self.folder / "page.html").read_text(encoding="utf-8")
        return re.search(r'class="outcome (\w+)">([^<]*)', page).groups()

    def test_of_the_driver_itself_is_a_page_that_hides_no_failure(self):
        folder = self.switch_on()

        # A card that does not sign.
        kept = (RECORDINGS / "card-type-5.txt").read_text()
        refusing, count = re.subn(r"(  > 00 2A 9E 9A.*\n(?: {4}.*\n)*)  < .*\n", r"\1  < failed 0x80100069\n", kept)
        self.assertGreater(count, 0)
        (self.folder / "refusing.txt").write_text(refusing)

        def logged(*arguments):
            for path in folder.iterdir():
                path.unlink()
            run(*settings.launcher, settings.cardhost, *arguments, cwd=self.folder)
            (path,) = folder.iterdir()
            return path.read_bytes()

        good = logged("--virtual", 4, "logon", "--pin", "1234")
        self.assertEqual(self.page_of(good)[0], "good")
        wrong = logged("--virtual", 4, "logon", "--pin", "9999")
        mark, text = self.page_of(wrong)
        self.assertEqual(mark, "bad")
        self.assertIn("CardAuthenticateEx ended with 0x8010006b", text)
        mark, text = self.page_of(logged("--replay", "refusing.txt", "report", "--pin", "1234",
                                                "--out", "r.html"))
        self.assertEqual(mark, "bad", text)
        self.assertIn("CardSignData ended with 0x8010001f", text)
        # Two processes that write in turn, a line each.
        lines = [content.splitlines(keepends=True) for content in (wrong, good)]
        mixed = b"".join(b"".join(pair) for pair in itertools.zip_longest(*lines, fillvalue=b""))
        self.assertEqual(self.page_of(mixed)[0], "bad")
        # One that ends within a call.
        begun = good.index(b"[CardSignData] Entering the function, with parameters")
        mark, text = self.page_of(good[:good.index(b"\n", begun) + 1])
        self.assertEqual((mark, text), ("unclear", "Not complete: CardSignData has no end in the log"))


for name, (text, expected, found) in LOGS.items():
    def test_log(self, content=text.encode(), expected=expected, text=found):
        self.assert_finds(self.findings("--log", self.log(content), card=None), expected, text)
    setattr(Log, f"test_tells_of_{name}", test_log)


class Anywhere(DoctorTest):
    @unittest.skipIf(os.name == "nt", "asks them there")
    def test_asks_no_directory_services_where_none_can_be_named(self):
        if settings.launcher:
            self.skipTest("Windows names them")
        code, out, error = run(settings.cardhost, "doctor", "--network", cwd=self.folder)
        self.assertEqual((code, out), (1, ""))
        self.assertRegex(error, "^cardhost: --network asks the directory services")

    def test_looks_at_each_card(self):
        for card in ATRS:
            with self.subTest(card=card):
                found = self.findings(card=card)
                self.assert_finds(found, "well readers.card", f"Virtual Reader: a FINEID card of type {card}")
                for container in (0, 1):
                    self.assert_finds(found, "well card.certificate", f"certificate {container}: ")
                for pin, tries in TRIES.items():
                    self.assert_finds(found, "well card.tries", f"PIN {pin}: {tries[card]} tries left")
                self.assert_finds(found, "well card.files", "cardid (16)")

    def test_tells_of_blocked_pins(self):
        state = self.folder / "state"
        for _ in range(5):
            run(*settings.launcher, settings.cardhost, "--virtual", 3, "--virtual-state", state.name,
                "verify", "--pin-id", 1, "--pin", "9999", cwd=self.folder)
        code, out, _ = run(*settings.launcher, settings.cardhost, "--virtual", 3, "--virtual-state",
                           state.name, "doctor", cwd=self.folder)
        self.assertEqual(code, UNWELL)
        self.assertIn("PROBLEM  PIN 1: is blocked", out)

    def test_takes_no_card_that_cannot_be_had_for_a_sick_machine(self):
        (self.folder / "card.txt").write_text("no recording", encoding="ascii")
        code, _, error = run(*settings.launcher, settings.cardhost, "--replay", "card.txt", "doctor", cwd=self.folder)
        self.assertEqual(code, FILE, error)
        self.assertIn("cardhost: card.txt, line 1", error)

    def test_prints_no_more_than_80_columns(self):
        _, out = self.doctor()
        self.assertLessEqual(max(map(len, out.splitlines())), 80, out)
        self.assertNotIn("\x1b", out)


@unittest.skipIf(os.name != "posix", "needs a terminal")
class Terminal(DoctorTest):
    def on_terminal(self, *command, **environment):
        main, side = pty.openpty()
        with os.fdopen(main, "rb", buffering=0) as terminal:
            # To Wine it is a console where all three go there.
            others = side if settings.launcher else subprocess.DEVNULL
            done = subprocess.Popen([*settings.launcher, settings.cardhost, "--virtual", "3", *command],
                                    stdout=side, stderr=others, stdin=others, start_new_session=True,
                                    env={**os.environ, "TERM": "xterm", **environment})
            os.close(side)
            text = b""
            with contextlib.suppress(OSError):  # how a terminal ends
                while piece := terminal.read(65536):
                    text += piece
            done.wait()
        return text

    def test_shows_colour(self):
        self.assertRegex(self.on_terminal("doctor"), rb"\x1b\[32mok\x1b\[(0|39)?m")

    def test_shows_none_where_it_is_not_wanted(self):
        # Wine's console moves the cursor by sequences of its own; colours are ours.
        colour = rb"\x1b\[[1-9][0-9]*m"
        for environment in ({"NO_COLOR": "1"}, {"TERM": "dumb"}, {"TERM": ""}):
            if settings.launcher and "TERM" in environment:
                continue  # the console's, and not the program's
            text = self.on_terminal("doctor", **environment)
            self.assertIn(b"PIN 1", text)
            self.assertNotRegex(text, colour)
        self.assertRegex(self.on_terminal("doctor", NO_COLOR=""), colour)

    def test_has_no_line_that_it_would_have_to_break(self):
        if settings.launcher:
            self.skipTest("Wine's console writes by the screen and not by the line")
        for command in (["info"], ["info", "--verbose"], ["record", "--out", str(self.folder / "a.txt")],
                        ["doctor"], ["--help"], ["record", "--help"]):
            with self.subTest(command=command):
                text = self.on_terminal(*command, NO_COLOR="1").decode()
                self.assertLessEqual(max(map(len, text.split("\r\n"))), 80, text)


class Linux(DoctorTest):
    def setUp(self):
        super().setUp()
        if settings.launcher:
            self.skipTest("this is the machine without a registry")

    def test_a_healthy_machine_passes(self):
        found = self.findings()
        self.assertEqual([name for name in doctor_runs.not_well(found) if not name.startswith("note log.")], [], found)

    def test_a_driver_that_does_not_load_is_named(self):
        library = self.folder / "libkelmora-id-minidriver.so"
        for content, expected in ((None, "driver.missing"), (b"no library", "driver.unreadable")):
            if content is not None:
                library.write_bytes(content)
            found = self.findings("--driver", library)
            self.assertIn(f"problem {expected}", found)

    def test_a_machine_without_readers_is_named(self):
        with socket.socket(socket.AF_UNIX) as client:
            if client.connect_ex("/run/pcscd/pcscd.comm") == 0:
                self.skipTest("a PC/SC daemon runs here")
        found = self.findings(card=None)
        self.assertIn("problem readers.service", found)
        self.assertIn("SCARD_E_NO_SERVICE", found["problem readers.service"][0])


def main():
    _, others = doctor_runs.take_options(argparse.ArgumentParser(allow_abbrev=False), "doctor")
    with contextlib.ExitStack() as stack:
        if settings.launcher:
            stack.callback(doctor_runs.let_go, doctor_runs.keep_wine())
        unittest.main(argv=[sys.argv[0], *others])


if __name__ == "__main__":
    main()
