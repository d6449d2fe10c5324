#!/usr/bin/env python3
"""Runs cardhost over a reader: the PC/SC daemon with its virtual reader driver, and in that reader
the virtual card, a program of its own. All of it in a network and a /run/pcscd that nobody else
sees, so that it disturbs no daemon of the machine.

    reader_test.py --cardhost build/native/cardhost --card build/native/virtual-card/virtual-card

Exits with 77, and says why, where the machine does not allow that.
"""
import argparse
import contextlib
import fcntl
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

OK, USAGE, NOT_FOUND, REFUSED, WRONG_PIN, BLOCKED, FILE = range(7)
SKIPPED = 77
READER = "Virtual PCD 00 00"
PATIENCE = 60  # seconds for a program to come up or to notice

settings = argparse.Namespace(cardhost="", card="")


def wait_for(what, condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"{what} did not happen in {PATIENCE} seconds")
        time.sleep(0.1)


def run(*arguments):
    return subprocess.run([settings.cardhost, *map(str, arguments)], capture_output=True,
                          encoding="utf-8", timeout=300, check=False)


@contextlib.contextmanager
def program(*command):
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as started:
        try:
            yield started
        finally:
            started.send_signal(signal.SIGTERM)
            started.wait(timeout=PATIENCE)


@contextlib.contextmanager
def card_in_reader(card_type, *options):
    """The virtual card of that type in the reader, as the daemon sees it."""
    with program(settings.card, "--generation", str(card_type), *map(str, options)):
        wait_for("a card in the reader", lambda: "ATR" in run("list").stdout)
        yield
    wait_for("an empty reader", lambda: "ATR" not in run("list").stdout)


class Reader(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="cardhost-reader-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def cardhost(self, *arguments, expected=OK):
        done = run(*arguments)
        self.assertEqual(done.returncode, expected, (arguments, done.stdout, done.stderr))
        return done.stdout, done.stderr

    def test_without_a_card(self):
        out, _ = self.cardhost("list")
        self.assertRegex(out, rf"(?m)^{READER}\n  card +no card$")
        _, error = self.cardhost("info", "--reader", expected=NOT_FOUND)
        self.assertEqual(error, "cardhost: no reader has a card in it\n")
        _, error = self.cardhost("info", "--reader", READER, expected=NOT_FOUND)
        self.assertEqual(error, f"cardhost: no card answers in {READER}: 0x8010000c "
                                "SCARD_E_NO_SMARTCARD (no card in the reader)\n")
        _, error = self.cardhost("info", "--reader", "Nobody's", expected=NOT_FOUND)
        self.assertTrue(error.startswith(f"cardhost: no reader 'Nobody's'; there are: {READER}"))

    def test_signs_with_every_generation_and_openssl_verifies(self):
        for card_type in range(3, 9):
            with self.subTest(card_type=card_type), card_in_reader(card_type):
                out, _ = self.cardhost("list")
                self.assertRegex(out, rf"card +FINEID card of type {card_type}, ")
                out, _ = self.cardhost("info", "--reader")
                self.assertRegex(out, rf"reader +{READER}\n")
                folder = self.folder / str(card_type)
                self.cardhost("logon", "--reader", READER, "--pin", "1234", "-o", folder)
                seen = subprocess.run(
                    ["openssl", "dgst", "-sha256", "-verify", folder / "public-key.pem",
                     "-signature", folder / "signature.bin", folder / "challenge.bin"],
                    capture_output=True, encoding="utf-8", check=False)
                self.assertEqual(seen.stdout.strip(), "Verified OK")

    def test_traces_what_goes_to_the_reader(self):
        with card_in_reader(3):
            _, error = self.cardhost("verify", "--reader", "--pin", "1234", "--trace")
            self.assertRegex(error, r"(?m)^  > VERIFY +00 20 00 11 04 \*\* \*\* \*\* \*\*$")
            self.assertNotIn("31 32 33 34", error)

    def test_tries_are_the_cards_and_not_the_programs(self):
        state = self.folder / "state"
        with card_in_reader(6, "--state", state):
            for _ in range(2):
                self.cardhost("verify", "--reader", "--pin", "9999", expected=WRONG_PIN)
            self.cardhost("verify", "--reader", "--pin", "9999", expected=BLOCKED)
        with card_in_reader(6, "--state", state):
            _, error = self.cardhost("verify", "--reader", "--pin", "1234", expected=BLOCKED)
            self.assertTrue(re.search(r"cardhost: PIN 1 \(authentication\) is .*blocked", error))


def skip(reason):
    print(f"reader_test.py: not run: {reason}")
    sys.exit(SKIPPED)


def raise_loopback():
    """The loopback interface of a new network is down."""
    get_flags, set_flags, up = 0x8913, 0x8914, 1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        request = struct.pack("16sh", b"lo", 0) + bytes(22)
        flags = struct.unpack_from("h", fcntl.ioctl(any_socket, get_flags, request), 16)[0]
        fcntl.ioctl(any_socket, set_flags, struct.pack("16sh", b"lo", flags | up) + bytes(22))


def enter_private_room():
    """Runs this script again, in a network and a mount table of its own."""
    if os.geteuid() != 0:
        skip("needs root, for a PC/SC daemon of its own")
    if shutil.which("pcscd") is None or not list(pathlib.Path("/etc/reader.conf.d").glob("vpcd*")):
        skip("pcscd and vsmartcard-vpcd are not installed")
    room = ["unshare", "--mount", "--net", "--propagation", "private"]
    if subprocess.run([*room, "true"], capture_output=True, check=False).returncode != 0:
        skip("this machine allows no network and mount table of its own")
    os.execvp(room[0], [*room, sys.executable, *sys.argv, "--inside"])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cardhost", required=True, help="the program under test")
    parser.add_argument("--card", required=True, help="the virtual card for the virtual reader")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    known, rest = parser.parse_known_args()
    if not known.inside:
        enter_private_room()
    settings.cardhost = str(pathlib.Path(known.cardhost).resolve())
    settings.card = str(pathlib.Path(known.card).resolve())
    pathlib.Path("/run/pcscd").mkdir(exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/run/pcscd"], check=True)
    raise_loopback()
    with program("pcscd", "--foreground"):
        wait_for("a reader of the daemon", lambda: READER in run("list").stdout)
        outcome = unittest.main(argv=[sys.argv[0], *rest], exit=False)
    sys.exit(0 if outcome.result.wasSuccessful() else 1)


if __name__ == "__main__":
    main()
