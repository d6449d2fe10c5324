#!/usr/bin/env python3
"""From the recording of a card that nobody knew to a card like the others: tests/data/new_card, the example of
docs/new-card.md.

    new_card_test.py --cardhost build/native/cardhost --with-the-card FOLDER --data FOLDER [unittest arguments]

The first program is the one that everybody has and does not know the card. In the first folder are those with
its rows, in the second the tests' data with that of the card; the build makes both from a copy of the tables,
and nothing of it goes into the repository. Besides its own, all tests of cardhost run here that go over
each card, over this card alone.
"""
import argparse
import os
import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[3]
RECORDING = ROOT / "tests/data/new_card/recording.txt"
TYPE = 9
NEAREST = 8  # the known type as which it was recorded


def options():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cardhost", required=True, type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--with-the-card", required=True, type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--data", required=True, type=lambda path: pathlib.Path(path).resolve())
    return parser.parse_known_args()


chosen, unittest_arguments = options()
# What the other tests look at, ahead of their import.
os.environ["KELMORA_TEST_DATA"] = str(chosen.data)
os.environ["KELMORA_CARD_TYPES"] = str(TYPE)
sys.path[:0] = [str(ROOT / folder) for folder in ("tests/system/cardhost", "tests/system/doctor",
                                                  "packaging/windows")]
# pylint: disable=wrong-import-position
import add_card
import cards
import cardhost_test
import doctor_test
import recordings_test
from cardhost_test import REFUSED, USAGE, CardhostTest
from known_cards import CARDS
from recordings_test import commands_of, without_times

cardhost_test.settings.cardhost = str(chosen.with_the_card / "cardhost")
doctor_test.settings.cardhost = cardhost_test.settings.cardhost


class Before(CardhostTest):
    """The programs as they are: the card is not known, and can be recorded all the same."""

    def setUp(self):
        super().setUp()
        known = cardhost_test.settings.cardhost
        self.addCleanup(setattr, cardhost_test.settings, "cardhost", known)
        cardhost_test.settings.cardhost = str(chosen.cardhost)

    def test_the_card_is_refused(self):
        self.assertRegex(self.message("--replay", RECORDING, "info", expected=REFUSED),
                         "SCARD_E_UNKNOWN_CARD")
        self.message("--virtual", TYPE, "info", expected=USAGE)
        self.message("--reader", "--as", TYPE, "info", expected=USAGE)

    def test_taken_for_the_nearest_it_can_be_read(self):
        out, _ = self.cardhost("--replay", RECORDING, "--as", NEAREST, "info")
        self.assertRegex(out, "type +not known by its ATR")
        self.assertEqual(out.count("the key of the certificate"), len(CARDS[TYPE]["keys"]))
        self.cardhost("--replay", RECORDING, "--as", NEAREST, "report", "--out", "card.html")
        page = (self.folder / "card.html").read_text(encoding="utf-8")
        self.assertIn("not known by its ATR", page)

    def test_its_directories_may_make_no_sense(self):
        head, query = RECORDING.read_text().split("Query of the PIN and key directories", 1)
        for broken, read in (("A0 08 30 84", 1), ("A0 00 30 06", 1), ("A0 FF 30 06", 0), ("FF FF FF FF", 0),
                             ("A0 80 00 00", 0)):
            with self.subTest(broken):
                self.assertIn("A0 08 30 06", query)
                name = self.write("broken.txt", (head + "Query of the PIN and key directories" + query.replace(
                    "A0 08 30 06", broken, 1)).encode())
                out, _ = self.cardhost("--replay", name, "--as", NEAREST, "record", "--out", "again.txt")
                self.assertRegex(out, f"directories +{read} of 2 recorded")

    def test_the_tables_have_no_row_of_it(self):
        for path, _, piece in add_card.pieces((add_card.CARD / "additions.txt").read_text(encoding="utf-8")):
            self.assertNotIn(piece, (ROOT / path).read_text(encoding="utf-8"))

    def test_it_can_be_recorded_again(self):
        self.cardhost("--replay", RECORDING, "--as", NEAREST, "record", "--anonymous", "--out", "again.txt")
        self.assertEqual(without_times((self.folder / "again.txt").read_text()),
                         without_times(RECORDING.read_text()))


class After(CardhostTest):
    """The programs with the rows of the card."""

    def test_the_recorded_card_is_known(self):
        out, _ = self.cardhost("--replay", RECORDING, "info")
        self.assertRegex(out, rf"type +{TYPE}, a FINEID card with one signing key")

    def test_the_virtual_card_says_what_the_recorded_one_said(self):
        self.cardhost("--virtual", TYPE, "--as", NEAREST, "record", "--anonymous", "--out", "virtual.txt")
        # The PINs of a card that is not known are not asked for their tries.
        without_query = lambda text: re.sub(r"(?m)^Query .*\n(  .*\n)*", "", without_times(text))
        self.assertEqual(without_query((self.folder / "virtual.txt").read_text()),
                         without_query(RECORDING.read_text()))

    def test_the_journeys_ask_what_the_recorded_card_answered(self):
        acquisition = lambda text: commands_of(text[text.index("CardAcquireContext"):text.index("\n  = ")])
        recorded = acquisition(RECORDING.read_text())
        self.assertGreater(len(recorded), 20)
        journeys = sorted((chosen.data / "journeys").glob(f"card-type-{TYPE}-*.txt"))
        self.assertEqual(len(journeys), 5)  # the PINs are no journey
        for journey in journeys:
            if journey.stem.endswith("-pins"):
                continue
            with self.subTest(journey=journey.name):
                self.assertEqual(acquisition(journey.read_text()), recorded)

    def test_the_help_and_a_wrong_type_name_it(self):
        out, _ = self.cardhost("--help")
        self.assertEqual(re.findall(r"TYPE:\{[0-9,]*,(\d+)\}", out), [str(TYPE)] * 2)
        self.assertIn(f",{TYPE}}}", self.message("--virtual", TYPE + 1, "info", expected=USAGE))

    def test_windows_would_know_it(self):
        registered = dict(cards.profiles(chosen.with_the_card / "print_card_profiles"))
        self.assertEqual(registered[TYPE].hex(), CARDS[TYPE]["atr"])
        self.assertEqual(cards.hardware_id(registered[TYPE]), CARDS[TYPE]["hardwareId"])


def goes_over_each_card(test):
    """By the names that it uses."""
    return not {"ATRS", "KEYS", "TRIES"}.isdisjoint(getattr(test, test.id().split(".")[-1]).__code__.co_names)


def load_tests(loader, own, _):
    """The own tests, and of the others those that go over each card, here over the one."""
    suite = unittest.TestSuite([own])
    for module in (cardhost_test, recordings_test, doctor_test):
        for tests in loader.loadTestsFromModule(module):
            suite.addTests(test for test in tests if goes_over_each_card(test))
    return suite


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *unittest_arguments])
