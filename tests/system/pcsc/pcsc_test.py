#!/usr/bin/env python3
"""Runs the programs together as a user of a real reader has them: the PC/SC daemon with its virtual
reader driver, the virtual card as a program of its own, pcsc_scan and scriptor as independent
clients, cardhost over the driver and its PC/SC adapter, and OpenSSL as the other party.

    pcsc_test.py --bin build/native [unittest arguments]

Each run has a daemon of its own, in a place of the machine that nobody else sees. Without the name of a
test all are run, each in a place of its own, several at a time: they wait for the daemon more than they
work. Where the machine allows no such place, root runs the daemon in the open, if no other one is
there. Exits with 77, and says why, where neither can be.
"""
import argparse
import concurrent.futures
import contextlib
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "support"))
import private_place  # pylint: disable=wrong-import-position
import programs  # pylint: disable=wrong-import-position
from doctor_report import assert_finds, findings_of  # pylint: disable=wrong-import-position
from programs import READERS, seen_cards  # pylint: disable=wrong-import-position

SKIPPED = 77
SIDE_BY_SIDE = 8
OK, USAGE, NOT_FOUND, REFUSED, WRONG_PIN, BLOCKED, FILE = range(7)
UNWELL = 8
AUTHENTICATION, SIGNATURE = 1, 4
PINS = {AUTHENTICATION: "1234", SIGNATURE: "123456"}

# Of each card type: its ATR, its protocol, the keys of its containers in order, its PINs' tries.
CARDS = {
    3: ("3BDD96008031FE450031B8640429ECC1739401808248", "T=1", ["rsa 2048", "rsa 3072"], (5, 5)),
    4: ("3B7F9600008031B865B085050011122460829000", "T=0", ["P-384"] * 3, (5, 5)),
    5: ("3B7F9600008031B865B08504021B1200F6829000", "T=0", ["P-256"] * 3, (5, 5)),
    6: ("3BDF96008031FE450031B8640429ECC173940180829000", "T=1", ["P-256", "rsa 2048"], (3, 3)),
    7: ("3B7F9600008031B865B0850300EF1200F6829000", "T=0", ["P-256"] * 3, (5, 5)),
    8: ("3BDD96008031FE450031B8640429ECC1739401808349", "T=1", ["P-521", "P-256"], (5, 3)),
}

VERIFY, PSO, SELECT, READ_BINARY = 0x20, 0x2A, 0xA4, 0xB0

settings = argparse.Namespace(bin=pathlib.Path())


def for_each_card_type(test_class):
    """Makes of each method "check_..." one test for every card type."""
    for name, check in list(vars(test_class).items()):
        if name.startswith("check_"):
            for card_type in CARDS:
                def test(self, check=check, card_type=card_type):
                    check(self, card_type)
                setattr(test_class, f"test_{name.removeprefix('check_')}_type_{card_type}", test)
    return test_class


def pin_id_of(container):
    return AUTHENTICATION if container == 0 else SIGNATURE


def is_rsa(key):
    return key.startswith("rsa")


def bits_of(key):
    return re.search(r"\d+", key)[0]


def atr_text(card_type):
    return " ".join(re.findall("..", CARDS[card_type][0]))


def atr_pattern(card_type):
    """The same where a row may be broken."""
    return atr_text(card_type).replace(" ", r"\s+")


class PcscTest(unittest.TestCase):
    """A folder and a daemon for each test."""

    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="pcsc-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)
        self.start_daemon()

    def start_daemon(self):
        self.daemon = self.stack.enter_context(programs.daemon())

    def card(self, card_type, *options, reader=0):
        return programs.card_in(reader, settings.bin / "virtual-card/virtual-card", card_type,
                                *options)

    def run_cardhost(self, *arguments):
        return programs.run(settings.bin / "cardhost", *arguments, "--reader", READERS[0])

    def cardhost(self, *arguments, expected=OK):
        """Runs cardhost over the reader and gives (standard output, standard error)."""
        done = self.run_cardhost(*arguments)
        self.assertEqual(done.returncode, expected, (arguments, done.stdout, done.stderr))
        return done.stdout, done.stderr

    def failure(self, *arguments, expected):
        """The one line with which cardhost ends."""
        done = self.run_cardhost(*arguments)
        self.assertEqual(done.returncode, expected, (arguments, done.stdout, done.stderr))
        return self.message(done)

    def message(self, done):
        """The one line that cardhost said of a failure, beside what the driver prints of it."""
        self.assertEqual(done.stdout, "")
        lines = re.findall(r"^cardhost: (.*)$", done.stderr, re.M)
        self.assertEqual(len(lines), 1, done.stderr)
        return lines[0]

    def openssl(self, *arguments, stdin=b""):
        done = subprocess.run(["openssl", *map(str, arguments)], input=stdin, cwd=self.folder,
                              capture_output=True, timeout=programs.PATIENCE, check=False)
        self.assertEqual(done.returncode, 0, (arguments, done.stdout, done.stderr))
        return done.stdout

    def exported(self, container):
        """The certificate of a container, and its public key as OpenSSL takes it from it."""
        certificate = self.folder / f"certificate-{container}.pem"
        self.cardhost("export", "--container", container, "-o", certificate)
        key = self.folder / f"key-{container}.pem"
        key.write_bytes(self.openssl("x509", "-in", certificate, "-noout", "-pubkey"))
        return certificate, key

    def data(self):
        path = self.folder / "data.txt"
        path.write_bytes(b"What the user agrees to.\n" * 5000)
        return path


# What is in the reader ------------------------------------------------------------------------

@for_each_card_type
class Presence(PcscTest):
    def check_pcsc_scan_sees_the_card(self, card_type):
        self.assertEqual(seen_cards(), {READERS[0]: None, READERS[1]: None})
        with self.card(card_type):
            self.assertEqual(seen_cards(), {READERS[0]: CARDS[card_type][0], READERS[1]: None})
        self.assertEqual(seen_cards(), {READERS[0]: None, READERS[1]: None})

    def check_scriptor_talks_to_the_card(self, card_type):
        read_at_nothing = "00 B0 00 00 00"
        with self.card(card_type):
            done = programs.run("scriptor", "-r", READERS[0], stdin=f"reset\n{read_at_nothing}\n")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(f"Using {CARDS[card_type][1]} protocol", done.stdout + done.stderr)
        self.assertIn(f"< OK: {atr_text(card_type)}", done.stdout)
        self.assertRegex(done.stdout, rf"> {read_at_nothing}\n< 6[0-9A-F] [0-9A-F]{{2}} :")

    def check_cardhost_lists_the_card(self, card_type):
        with self.card(card_type, reader=1):
            done = programs.run(settings.bin / "cardhost", "list")
            listed = programs.run(settings.bin / "cardhost", "list", "--json")
        self.assertEqual((done.returncode, listed.returncode), (OK, OK), done.stderr + listed.stderr)
        self.assertEqual([(one["reader"], one["type"]) for one in json.loads(listed.stdout)],
                         [(READERS[0], None), (READERS[1], card_type)])
        self.assertRegex(done.stdout, rf"\A{READERS[0]}\n  card +no card\n\n"
                                      rf"{READERS[1]}\n  card +FINEID card of type {card_type}, .*\n"
                                      rf"  ATR +{atr_pattern(card_type)}\n\Z")


class EmptyReader(PcscTest):
    def test_is_named_by_the_daemons_code(self):
        self.assertEqual(self.failure("info", expected=NOT_FOUND),
                         f"no card answers in {READERS[0]}: 0x8010000c SCARD_E_NO_SMARTCARD "
                         "(no card in the reader)")

    def test_is_passed_over_where_any_card_will_do(self):
        cardhost = settings.bin / "cardhost"
        done = programs.run(cardhost, "info", "--reader")
        self.assertEqual((done.returncode, done.stderr),
                         (NOT_FOUND, "cardhost: no reader has a FINEID card in it; "
                                     f"{READERS[0]}: no card; {READERS[1]}: no card\n"))
        with self.card(5, reader=1):
            done = programs.run(cardhost, "info", "--reader")
        self.assertEqual((done.returncode, done.stderr),
                         (OK, f"cardhost: passed over {READERS[0]}: no card\n"))
        self.assertRegex(done.stdout, rf"reader +{READERS[1]}\n")

    def test_is_passed_over_like_one_with_a_card_of_somebody_else_s(self):
        cardhost = settings.bin / "cardhost"
        with programs.foreign_card_in(0, bytes.fromhex("3B021450")):
            done = programs.run(cardhost, "info", "--reader")
            self.assertEqual((done.returncode, done.stderr),
                             (NOT_FOUND, "cardhost: no reader has a FINEID card in it; "
                                         f"{READERS[0]}: a card that is no known FINEID card; "
                                         f"{READERS[1]}: no card\n"))
            with self.card(3, reader=1):
                done = programs.run(cardhost, "info", "--reader")
            self.assertEqual((done.returncode, done.stderr),
                             (OK, f"cardhost: passed over {READERS[0]}: a card that is no known "
                                  "FINEID card\n"))
            self.assertRegex(done.stdout, rf"reader +{READERS[1]}\n")

    def test_is_not_taken_for_another(self):
        done = programs.run(settings.bin / "cardhost", "info", "--reader", "Nobody's")
        self.assertEqual(done.returncode, NOT_FOUND)
        self.assertEqual(done.stderr, "cardhost: no reader 'Nobody's'; there are: "
                                      f"{READERS[0]}, {READERS[1]}\n")


# The doctor -------------------------------------------------------------------------------------

class Doctor(PcscTest):
    def doctor(self, expected):
        """What it finds; it ends with that exit code."""
        done = programs.run(settings.bin / "cardhost", "doctor", "--json")
        self.assertEqual(done.returncode, expected, done.stdout + done.stderr)
        return findings_of(done.stdout)

    def test_finds_readers_and_a_card_well(self):
        with self.card(6, reader=1):
            found = self.doctor(expected=OK)
        for expected, text in (("well readers.service", "PC/SC daemon: answers"),
                               ("well readers.empty", f"{READERS[0]}: no card in it"),
                               ("well readers.card", f"{READERS[1]}: a FINEID card of type 6, ATR {atr_text(6)}"),
                               ("well card.acquired", "acquisition: "), ("well card.tries", "PIN 1: 3 tries left")):
            assert_finds(self, found, expected, text)

    def test_names_a_reader_without_a_card(self):
        assert_finds(self, self.doctor(expected=OK), "note card.none", "no FINEID card in any reader")

    def test_names_the_nearest_card_of_somebody_else_s(self):
        foreign = bytearray.fromhex(CARDS[4][0])
        foreign[2] ^= 0x04
        with programs.foreign_card_in(0, bytes(foreign)):
            found = self.doctor(expected=UNWELL)
        assert_finds(self, found, "problem readers.foreign",
                     f"{READERS[0]}: a card that this driver does not know")
        assert_finds(self, found, "problem readers.foreign", "one bit away from type 4 (byte 3 is 92, there 96)")

    def test_names_a_card_that_does_not_tell_the_tries_left(self):
        unknown_command = b"\x6d\x00"
        with programs.Cable(settings.bin / "virtual-card/virtual-card", 3,
                            lambda command, _: unknown_command if command[1] == VERIFY else None):
            found = self.doctor(expected=OK)
        assert_finds(self, found, "unknown card.tries", "PIN 1: the card does not tell how many tries are left: 6D 00")

    def test_names_the_daemon_that_is_gone(self):
        self.daemon.send_signal(signal.SIGTERM)
        self.daemon.wait()
        assert_finds(self, self.doctor(expected=UNWELL), "problem readers.service", "no smart-card service answers")


# cardhost and OpenSSL, on every card ----------------------------------------------------------

@for_each_card_type
class Journey(PcscTest):
    def check_info_tells_the_card_and_its_keys(self, card_type):
        keys = CARDS[card_type][2]
        with self.card(card_type):
            out, error = self.cardhost("info")
        self.assertEqual(error, "")
        self.assertRegex(out, rf"type +{card_type}, a FINEID card with")
        self.assertRegex(out, rf"reader +{READERS[0]}\n")
        self.assertRegex(out, rf"ATR +{atr_pattern(card_type)}\n")
        self.assertEqual(re.findall(r"^    key +(RSA|EC), (\d+) bits", out, re.M),
                         [("RSA" if is_rsa(key) else "EC", bits_of(key)) for key in keys])
        self.assertEqual(out.count("the key of the certificate"), len(keys))

    def check_openssl_reads_every_certificate(self, card_type):
        keys = CARDS[card_type][2]
        with self.card(card_type):
            for container, key in enumerate(keys):
                certificate, _ = self.exported(container)
                text = self.openssl("x509", "-in", certificate, "-noout", "-text").decode()
                self.openssl("x509", "-in", certificate, "-noout", "-checkend", "0")
                self.assertIn(f"Public-Key: ({bits_of(key)} bit)", text)
                self.assertEqual(f"NIST CURVE: {key}\n" in text, not is_rsa(key))

    def check_the_right_pin_is_accepted_and_a_wrong_one_counted(self, card_type):
        names = {AUTHENTICATION: "authentication", SIGNATURE: "signature"}
        with self.card(card_type):
            for (pin_id, name), tries in zip(names.items(), CARDS[card_type][3]):
                for left in (tries - 1, tries - 2):
                    self.assertEqual(
                        self.failure("verify", "--pin-id", pin_id, "--pin", "999999",
                                     expected=WRONG_PIN),
                        f"PIN {pin_id} ({name}) is wrong; attempts remaining: {left}: 0x8010006b "
                        "SCARD_W_WRONG_CHV (the PIN is wrong)")
                out, _ = self.cardhost("verify", "--pin-id", pin_id, "--pin", PINS[pin_id])
                self.assertEqual(out, f"PIN {pin_id} ({name}) is right.\n")
                self.assertRegex(self.failure("verify", "--pin-id", pin_id, "--pin", "999999",
                                              expected=WRONG_PIN),
                                 f"attempts remaining: {tries - 1}:")

    def check_openssl_verifies_the_signature_of_every_key(self, card_type):
        data = self.data()
        with self.card(card_type):
            for container, key in enumerate(CARDS[card_type][2]):
                _, public = self.exported(container)
                for scheme in ("pkcs1", "pss") if is_rsa(key) else ("ecdsa",):
                    signature = self.folder / f"{container}-{scheme}.bin"
                    self.cardhost("sign", "--container", container, "--scheme", scheme, "--pin",
                                  PINS[pin_id_of(container)], "--in", data, "--out", signature)
                    padding = ["-sigopt", "rsa_padding_mode:pss"] if scheme == "pss" else []
                    seen = self.openssl("dgst", "-sha256", *padding, "-verify", public,
                                        "-signature", signature, data)
                    self.assertEqual(seen, b"Verified OK\n", (container, scheme))

    def check_a_signature_without_a_pin_is_refused(self, card_type):
        with self.card(card_type):
            self.assertEqual(
                self.failure("sign", "--no-pin", "--in", self.data(), "--out", self.folder / "s",
                             expected=REFUSED),
                "the driver refused CardSignData with container 0: 0x8010006a "
                "SCARD_W_SECURITY_VIOLATION (the PIN of this key is not verified)")
        self.assertFalse((self.folder / "s").exists())

    def check_a_logon_leaves_what_openssl_verifies(self, card_type):
        with self.card(card_type):
            self.cardhost("logon", "--pin", PINS[AUTHENTICATION], "-o", self.folder / "logon")
        seen = self.openssl("dgst", "-sha256", "-verify", "logon/public-key.pem", "-signature",
                            "logon/signature.bin", "logon/challenge.bin")
        self.assertEqual(seen, b"Verified OK\n")

    def check_the_trace_shows_the_commands_with_the_pin_masked(self, card_type):
        with self.card(card_type):
            _, error = self.cardhost("verify", "--pin", PINS[AUTHENTICATION], "--trace")
        verify = re.findall(r"^  > 00 20 00 ([0-9A-F ]+?)((?: \*\*)+)  # VERIFY$", error, re.M)
        self.assertEqual(len(verify), 1, error)
        reference_and_length, masked = verify[0]
        self.assertEqual(int(reference_and_length.split()[1], 16), masked.count("**"))
        self.assertNotIn("31 32 33 34", error)
        self.assertRegex(error, r"(?m)^  > 00 A4 ")
        self.assertRegex(error, r"(?m)^  < 90 00 in ")


class Decryption(PcscTest):
    def check(self, card_type, containers):
        message = self.folder / "message.bin"
        message.write_bytes(bytes(range(48)))
        with self.card(card_type):
            for container in containers:
                certificate, _ = self.exported(container)
                self.openssl("pkeyutl", "-encrypt", "-certin", "-inkey", certificate, "-in",
                             message, "-out", "block.bin")
                clear = self.folder / f"clear-{container}.bin"
                self.cardhost("decrypt", "--container", container, "--in",
                              self.folder / "block.bin", "--out", clear, "--pin",
                              PINS[pin_id_of(container)])
                self.assertEqual(clear.read_bytes(), message.read_bytes())

    def test_gives_back_what_openssl_encrypted_type_3(self):
        self.check(3, (0, 1))

    def test_gives_back_what_openssl_encrypted_type_6(self):
        self.check(6, (1,))


class Agreement(PcscTest):
    def check(self, card_type):
        curve = CARDS[card_type][2][0]
        private, public = self.folder / "peer.pem", self.folder / "peer-public.pem"
        self.openssl("genpkey", "-algorithm", "EC", "-pkeyopt", f"ec_paramgen_curve:{curve}",
                     "-out", private)
        self.openssl("pkey", "-in", private, "-pubout", "-out", public)
        with self.card(card_type):
            _, card_key = self.exported(0)
            self.cardhost("agree", "--peer", public, "--hash", "sha256", "--prepend", "414243",
                          "--append", "5a", "--out", self.folder / "key.bin", "--pin",
                          PINS[AUTHENTICATION])
        secret = self.openssl("pkeyutl", "-derive", "-inkey", private, "-peerkey", card_key)
        self.assertEqual((self.folder / "key.bin").read_bytes(),
                         self.openssl("dgst", "-sha256", "-binary", stdin=b"ABC" + secret + b"Z"))


for ec_type in (4, 5, 6, 7, 8):
    setattr(Agreement, f"test_derives_the_key_that_openssl_derives_type_{ec_type}",
            lambda self, card_type=ec_type: self.check(card_type))


# A card goes, and comes back ------------------------------------------------------------------

class PulledOut(PcscTest):
    """The card, or the daemon, is gone at one command in the middle of a run."""

    def run_until(self, instruction, count, *arguments, card_type, act=lambda: None):
        """Runs cardhost with a card that is killed when the command comes for the count-th time."""
        seen = []

        def at_command(command, card):
            seen.append(command[1])
            if command[1] != instruction or seen.count(instruction) < count:
                return False
            act()
            card.kill()
            card.wait()
            return True

        with programs.Cable(settings.bin / "virtual-card/virtual-card", card_type,
                            at_command) as cable:
            done = self.run_cardhost(*arguments)
            self.assertTrue(cable.was_cut(), (done.stdout, done.stderr))
        return done

    def expect_health(self):
        """The reader is empty, and what comes next into it works."""
        programs.wait_for("an empty reader", lambda: seen_cards()[READERS[0]] is None)
        self.assertRegex(self.failure("info", expected=NOT_FOUND), "SCARD_E_NO_SMARTCARD")
        with self.card(4):
            self.cardhost("verify", "--pin", PINS[AUTHENTICATION])

    def expect_pulled_out(self, call, *arguments, at, card_type):
        done = self.run_until(*at, *arguments, card_type=card_type)
        self.assertEqual(done.returncode, NOT_FOUND, (done.stdout, done.stderr))
        self.assertRegex(self.message(done),
                         rf"^the card in {READERS[0]} no longer answers: {call} ended with "
                         r"0x8010[0-9a-f]{4} SCARD_[A-Z_]+ \(.+\)$")
        self.expect_health()

    def test_while_the_card_is_selected(self):
        for card_type in CARDS:
            with self.subTest(card_type=card_type):
                self.expect_pulled_out("CardAcquireContext", "info", at=(SELECT, 1),
                                       card_type=card_type)

    def test_while_its_files_are_read(self):
        for count in (1, 4, 12):
            with self.subTest(count=count):
                self.expect_pulled_out("CardAcquireContext", "info", at=(READ_BINARY, count),
                                       card_type=4)

    def test_while_its_pin_is_shown(self):
        for card_type in (3, 6):
            with self.subTest(card_type=card_type):
                self.expect_pulled_out("CardAuthenticateEx with PIN 1", "verify", "--pin", "1234",
                                       at=(VERIFY, 1), card_type=card_type)

    def test_while_it_signs(self):
        signature = self.folder / "signature.bin"
        for card_type in (3, 6, 8):
            with self.subTest(card_type=card_type):
                self.expect_pulled_out("CardSignData with container 0", "sign", "--pin", "1234",
                                       "--in", self.data(), "--out", signature, at=(PSO, 1),
                                       card_type=card_type)
                self.assertFalse(signature.exists())

    def test_the_trace_shows_the_command_that_got_no_answer(self):
        done = self.run_until(VERIFY, 1, "verify", "--pin", "1234", "--trace", card_type=3)
        self.assertEqual(done.returncode, NOT_FOUND, (done.stdout, done.stderr))
        self.assertRegex(done.stderr, r"(?m)^  > 00 20 00 11 04 \*\* \*\* \*\* \*\*  # VERIFY\n"
                                      r"  < (nothing|failed 0x8010[0-9A-F]{4}) in ")

    def test_together_with_the_daemon(self):
        def end_daemon():
            self.daemon.terminate()
            self.daemon.wait(programs.PATIENCE)

        done = self.run_until(VERIFY, 1, "verify", "--pin", "1234", card_type=3, act=end_daemon)
        self.assertEqual(done.returncode, NOT_FOUND, (done.stdout, done.stderr))
        self.assertRegex(self.message(done), f"^the card in {READERS[0]} no longer answers: ")
        self.assertEqual(self.failure("info", expected=NOT_FOUND),
                         "no smart-card service answers: 0x8010001d SCARD_E_NO_SERVICE (the "
                         "smart-card service does not run)")


class CardState(PcscTest):
    def test_tries_are_the_cards_and_survive_the_session(self):
        state = self.folder / "state"
        wrong = ("verify", "--pin", "9999")
        with self.card(6, "--state", state):
            self.assertRegex(self.failure(*wrong, expected=WRONG_PIN), "attempts remaining: 2:")
        with self.card(6, "--state", state):
            self.assertRegex(self.failure(*wrong, expected=WRONG_PIN), "attempts remaining: 1:")
            self.assertRegex(self.failure(*wrong, expected=BLOCKED),
                             r"^PIN 1 \(authentication\) is wrong and now blocked: no attempts "
                             "remain: 0x8010006b SCARD_W_WRONG_CHV")
        with self.card(6, "--state", state):
            self.assertRegex(self.failure("verify", "--pin", PINS[AUTHENTICATION],
                                          expected=BLOCKED),
                             r"^PIN 1 \(authentication\) is blocked: 0x8010006c")
            self.cardhost("verify", "--pin-id", SIGNATURE, "--pin", PINS[SIGNATURE])

    def test_a_right_pin_gives_the_tries_back_for_the_next_session(self):
        state = self.folder / "state"
        with self.card(3, "--state", state):
            self.failure("verify", "--pin", "9999", expected=WRONG_PIN)
            self.cardhost("verify", "--pin", PINS[AUTHENTICATION])
        with self.card(3, "--state", state):
            self.assertRegex(self.failure("verify", "--pin", "9999", expected=WRONG_PIN),
                             "attempts remaining: 4:")

    def test_a_new_card_has_all_its_tries(self):
        for _ in range(2):
            with self.card(3):
                self.assertRegex(self.failure("verify", "--pin", "9999", expected=WRONG_PIN),
                                 "attempts remaining: 4:")


# The wrappers of the PC/SC context and a connection -------------------------------------------

class Wrappers(PcscTest):
    def start_daemon(self):
        """The tests say themselves when."""

    def run_suite(self, suite):
        done = programs.run(settings.bin / "pcsc_readers_test", f"--gtest_filter={suite}.*")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertRegex(done.stdout, r"\[  PASSED  \] [1-9]")

    def test_without_a_daemon(self):
        self.run_suite("WithoutADaemon")

    def test_with_empty_readers(self):
        super().start_daemon()
        self.run_suite("WithEmptyReaders")

    def test_with_cards(self):
        super().start_daemon()
        with self.card(3), self.card(4, reader=1):
            self.run_suite("WithCards")


# Where the tests run --------------------------------------------------------------------------


@contextlib.contextmanager
def daemon_place(is_private):
    """Makes the place ready for a daemon."""
    folder = pathlib.Path("/run/pcscd")
    if is_private:
        private_place.furnish()
        yield
        return
    is_new = not folder.exists()
    folder.mkdir(exist_ok=True)
    try:
        yield
    finally:
        if is_new:
            for left_over in folder.iterdir():
                left_over.unlink()
            folder.rmdir()


def reason_not_to_run(is_private):
    missing = programs.missing_programs()
    if missing:
        return f"not installed: {', '.join(missing)}"
    if is_private:
        return None
    if os.geteuid() != 0:
        return "no private place for a PC/SC daemon on this machine, and no root to run one openly"
    if programs.daemon_answers() or any(map(programs.port_is_taken, programs.PORTS)):
        return "no private place for a PC/SC daemon on this machine, and another one runs openly"
    return None


def test_names():
    suite = unittest.defaultTestLoader.loadTestsFromModule(sys.modules[__name__])
    return [test.id().removeprefix("__main__.") for tests in suite for test in tests]


def run_side_by_side(folder):
    """Runs every test as a run of its own; the exit code."""
    def run_one(name):
        # No time-out: what a test waits for has one.
        return subprocess.run([sys.executable, "-B", __file__, "--bin", folder, name], check=False,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              encoding="utf-8", errors="replace")

    names, all_well = test_names(), True
    with concurrent.futures.ThreadPoolExecutor(SIDE_BY_SIDE) as pool:
        for name, done in zip(names, pool.map(run_one, names)):
            is_well = done.returncode == 0
            all_well = all_well and is_well
            print(f"ok - {name}" if is_well else f"{done.stdout}\nnot ok - {name}", flush=True)
    return 0 if all_well else 1


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", type=pathlib.Path, required=True, help="the folder of the native build")
    parser.add_argument("--open", action="store_true",
                        help="run the daemon in the open, even where a private place can be made")
    parser.add_argument(private_place.INSIDE, dest="inside", action="store_true",
                        help=argparse.SUPPRESS)
    known, rest = parser.parse_known_args()
    is_private = not known.open and (known.inside or private_place.can_make())
    reason = reason_not_to_run(is_private)
    if reason:
        print(f"system.pcsc: not run: {reason}")
        return SKIPPED
    if is_private and not known.inside:
        if not rest:
            return run_side_by_side(known.bin)
        private_place.enter()
    settings.bin = known.bin.resolve()
    # So that a test that is told to stop ends what it has started.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    with daemon_place(is_private):
        outcome = unittest.main(argv=[sys.argv[0], *rest], exit=False)
    return 0 if outcome.result.testsRun and outcome.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
