"""Plants faults in a registration and sees that the model of Windows and the checks find them."""
import contextlib
import io
import unittest

import check_registration
import inf
from cards import hardware_id, historical_bytes
from checks import Checks
from registration import expected, find_card, read_registration_file, registration_file

CARDS = [(3, bytes.fromhex("3bdd96008031fe450031b8640429ecc1739401808248")),
         (6, bytes.fromhex("3bdf96008031fe450031b8640429ecc173940180829000"))]


def failures(view):
    """How many checks of a view find something wrong."""
    checks = Checks("planted")
    with contextlib.redirect_stdout(io.StringIO()):
        check_registration.check_view(checks, "view", view, CARDS)
    return checks.failed


def inf_failures(text):
    checks = Checks("planted")
    cards = [(number, atr) for number, atr in CARDS]
    with contextlib.redirect_stdout(io.StringIO()):
        check_registration.check_inf_form(checks, text, cards)
    return checks.failed


class Model(unittest.TestCase):
    def test_lengths_are_compared(self):
        view = {"a": {"ATR": b"\x3b\x00", "ATRMask": b"\xff\x00"}}
        self.assertEqual(find_card(view, b"\x3b\x77"), "a")
        self.assertIsNone(find_card(view, b"\x3b"))
        self.assertIsNone(find_card(view, b"\x3b\x77\x00"))

    def test_the_first_match_in_the_order_of_names_wins(self):
        row = {"ATR": b"\x3b", "ATRMask": b"\xff"}
        self.assertEqual(find_card({"b": row, "A": row, "c": row}, b"\x3b"), "A")

    def test_a_stored_byte_that_the_mask_leaves_out_matches_nothing_but_zero(self):
        self.assertIsNone(find_card({"a": {"ATR": b"\x3b\x01", "ATRMask": b"\xff\x00"}}, b"\x3b\x01"))


class PlantedFaults(unittest.TestCase):
    def setUp(self):
        self.view = expected(CARDS)
        self.long = "Kelmora ID FINEID card type 6 (longer ATR)"

    def test_none_is_found_where_none_is(self):
        self.assertEqual(failures(self.view), 0)

    def test_a_mask_of_another_length(self):
        self.view[self.long]["ATRMask"] += b"\xff"
        self.assertGreater(failures(self.view), 0)

    def test_a_byte_left_out_that_is_not_0(self):
        self.view[self.long]["ATR"] = self.view[self.long]["ATR"][:-1] + b"\xda"
        self.assertGreater(failures(self.view), 0)

    def test_a_mask_that_leaves_out_one_bit(self):
        mask = bytearray(self.view[self.long]["ATRMask"])
        mask[3] ^= 0x10
        self.view[self.long]["ATRMask"] = bytes(mask)
        self.assertGreater(failures(self.view), 0)

    def test_a_row_that_is_missing(self):
        del self.view[self.long]
        self.assertGreater(failures(self.view), 0)

    def test_a_row_that_takes_another_s_card(self):
        self.view["Another"] = {"ATR": bytes(len(CARDS[0][1])), "ATRMask": bytes(len(CARDS[0][1]))}
        self.assertGreater(failures(self.view), 0)


class Forms(unittest.TestCase):
    def test_the_registration_file_reads_as_it_was_written(self):
        views = read_registration_file(registration_file(CARDS))
        self.assertEqual(list(views.values()), [expected(CARDS)] * 2)

    def test_the_inf_reads_as_it_was_written(self):
        self.assertEqual(list(inf.read_database(inf.write(CARDS, "1.0.0", "2026-01-02")).values()),
                         [expected(CARDS)] * 2)

    def test_faults_of_the_inf_s_form_are_found(self):
        text = inf.write(CARDS, "1.0.0", "2026-01-02")
        least = inf_failures(text)  # there are two cards here, and the hardware ids of all are asked for
        for old, new in (("PnpLockdown = 1", "PnpLockdown = 0"), ("{990A2BD7", "{990A2BD8"),
                         ("NTamd64,NTx86,NTarm64", "NTamd64,NTx86"),
                         ("[Strings]", "[DefaultInstall]\r\nAddReg = Database\r\n\r\n[Strings]"),
                         ("CatalogFile = kelmora-id-minidriver.cat", ""),
                         (hardware_id(CARDS[0][1]), hardware_id(CARDS[0][1]) + ", SCFILTER\\Class"),
                         ("AddService = ,2", "AddService = SCardSvr,2"),
                         ("kelmora-id-minidriver-x86.dll       = 1", "kelmora-id-minidriver-x64.dll       = 1")):
            with self.subTest(new):
                self.assertIn(old, text)
                self.assertGreater(inf_failures(text.replace(old, new)), least)

    def test_historical_bytes_follow_the_announced_interface_bytes(self):
        self.assertEqual(historical_bytes(bytes.fromhex("3b02aabb")), b"\xaa\xbb")
        self.assertEqual(historical_bytes(CARDS[0][1]), bytes.fromhex("0031b8640429ecc17394018082"))
        with self.assertRaises(ValueError):
            historical_bytes(CARDS[0][1][:-3])


if __name__ == "__main__":
    unittest.main()
