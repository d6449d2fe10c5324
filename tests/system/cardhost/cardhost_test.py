#!/usr/bin/env python3
"""Runs cardhost over a virtual card of each generation, with OpenSSL as the other party.

    cardhost_test.py --cardhost build/native/cardhost [--launcher "tools/run_in_wine.sh x64"]
                     [unittest arguments]
"""
import argparse
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "tests/support"))
from known_cards import ALL_CARDS, KEYS, TRIES  # pylint: disable=wrong-import-position

OK, USAGE, NOT_FOUND, REFUSED, WRONG_PIN, BLOCKED, FILE = range(7)

# The name of a curve, as OpenSSL knows it.
OPENSSL_CURVES = {"secp256r1": "prime256v1", "secp384r1": "secp384r1", "secp521r1": "secp521r1"}
PINS = {1: "1234", 4: "123456"}

settings = argparse.Namespace(cardhost="", launcher=[], deaf_driver="")


def is_rsa(key):
    return key.startswith("rsa")


def pin_of(container):
    return PINS[1] if container == 0 else PINS[4]


class CardhostTest(unittest.TestCase):
    """A folder of its own for each test, and the programs under test."""

    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="cardhost-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.data = self.write("data.txt", b"What the user agrees to.\n" * 5000)

    def write(self, name, content):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def cardhost(self, *arguments, expected=OK, stdin=""):
        """Runs a command and gives (standard output, standard error)."""
        command = [*settings.launcher, settings.cardhost, *map(str, arguments)]
        # Files, not pipes: Wine's own processes outlive the program and would keep a pipe open.
        with tempfile.TemporaryFile("w+", encoding="utf-8") as out, \
                tempfile.TemporaryFile("w+", encoding="utf-8") as error:
            done = subprocess.run(command, cwd=self.folder, input=stdin, stdout=out, stderr=error,
                                  encoding="utf-8", timeout=300, check=False)
            texts = []
            for stream in (out, error):
                stream.seek(0)
                texts.append(stream.read())
        self.assertEqual(done.returncode, expected, "\n".join([" ".join(command), *texts]))
        return texts[0], texts[1]

    def message(self, *arguments, expected, stdin=""):
        """The one line with which a command fails."""
        out, error = self.cardhost(*arguments, expected=expected, stdin=stdin)
        self.assertEqual(out, "")
        lines = [line for line in error.splitlines() if line.startswith("cardhost: ")]
        self.assertEqual(len(lines), 1, error)
        return lines[0].removeprefix("cardhost: ")

    def openssl(self, *arguments, stdin=b""):
        done = subprocess.run(["openssl", *map(str, arguments)], cwd=self.folder, input=stdin,
                              capture_output=True, check=False)
        self.assertEqual(done.returncode, 0, (arguments, done.stdout, done.stderr))
        return done.stdout

    def export(self, card_type, container):
        """The certificate of a container and, beside it, its public key."""
        certificate = self.folder / f"certificate-{container}.pem"
        self.cardhost("export", "--virtual", card_type, "--container", container, "-o", certificate)
        key = self.folder / f"key-{container}.pem"
        key.write_bytes(self.openssl("x509", "-in", certificate, "-noout", "-pubkey"))
        return certificate, key


class Info(CardhostTest):
    def test_tells_the_card_its_files_its_keys_and_its_pins(self):
        for card_type, keys in KEYS.items():
            with self.subTest(card_type=card_type):
                out, _ = self.cardhost("info", "--virtual", card_type)
                self.assertRegex(out, rf"type +{card_type}, a FINEID card with")
                self.assertRegex(out, r"card identifier +([0-9A-F]{2} ){15}[0-9A-F]{2}\n")
                self.assertRegex(out, rf"/mscp/cmapfile +{86 * len(keys)} bytes")
                self.assertRegex(out, r"/cardcf +6 bytes")
                self.assertRegex(out, r"/cardid +16 bytes")
                self.assertEqual(out.count("the key of the certificate"), len(keys))
                self.assertNotIn("NOT the key", out)
                self.assertEqual(len(re.findall(r"^Container \d: ", out, re.M)), len(keys))
                descriptions = re.findall(r"^    key +(.*)$", out, re.M)
                self.assertEqual(descriptions, [
                    f"RSA, {key[3:]} bits" if is_rsa(key) else
                    f"EC, {re.search('p(...)r', key)[1]} bits, {key}" for key in keys])
                self.assertIn("PIN 1, 2, 3, 4 (0xffffff1e)", out)

    def test_names_the_slots_that_an_rsa_card_leaves_empty(self):
        out, _ = self.cardhost("info", "--virtual", 3)
        self.assertRegex(out, r"not offered +CardDeauthenticate, CardConstructDHAgreement, CardDeriveKey,\s+"
                              r"CardDestroyDHAgreement\n")
        out, _ = self.cardhost("info", "--virtual", 8)
        self.assertRegex(out, r"not offered +CardDeauthenticate\n")

    def test_shows_what_the_driver_says_of_a_file_when_asked_for_more(self):
        out, _ = self.cardhost("info", "--virtual", 3, "--verbose")
        self.assertRegex(out, r"/mscp/kxc00 +\d+ bytes \(CardGetFileInfo says 20\); everyone reads, the\s+"
                              r"user writes\n")
        self.assertRegex(out, r"offered +CardSignData\n")
        self.assertRegex(out, r"Read Only Mode +1\n")

    def test_tells_the_same_of_a_certificate_as_openssl(self):
        out, _ = self.cardhost("info", "--virtual", 4)
        certificate, _ = self.export(4, 0)
        seen = self.openssl("x509", "-in", certificate, "-noout", "-serial").decode()
        serial = seen.strip().removeprefix("serial=")
        self.assertIn(" ".join(re.findall("..", serial)), out)


class Export(CardhostTest):
    def test_writes_every_certificate_into_a_folder(self):
        for card_type, keys in KEYS.items():
            with self.subTest(card_type=card_type):
                folder = self.folder / f"type{card_type}" / "certificates"
                self.cardhost("export", "--virtual", card_type, "-o", folder)
                names = ["kxc00.pem", "ksc01.pem", "ksc02.pem"][:len(keys)]
                self.assertEqual(sorted(path.name for path in folder.iterdir()), sorted(names))
                for name in names:
                    self.openssl("x509", "-in", folder / name, "-noout", "-checkend", "0")

    def test_writes_the_same_certificate_as_der(self):
        self.cardhost("export", "-o", "one.der", "--der", "--container", 1)
        certificate, _ = self.export(3, 1)
        self.assertEqual(self.openssl("x509", "-in", certificate, "-outform", "DER"),
                         (self.folder / "one.der").read_bytes())

    def test_refuses_a_container_that_the_card_has_not(self):
        message = self.message("export", "--container", 2, "-o", "x.pem", expected=USAGE)
        self.assertEqual(message, "the card has no container 2 (it has 2)")

    def test_fails_on_a_folder_that_cannot_be_made(self):
        self.assertRegex(self.message("export", "-o", self.data, expected=FILE),
                         "^cannot make the folder ")


class Sign(CardhostTest):
    def check(self, card_type, container, scheme, hash_name, *options):
        _, key = self.export(card_type, container)
        signature = self.folder / "signature.bin"
        self.cardhost("sign", "--virtual", card_type, "--container", container, "--hash", hash_name,
                      "--scheme", scheme, "--pin", pin_of(container), "--in", self.data, "--out",
                      signature, *options)
        pss = ["-sigopt", "rsa_padding_mode:pss"] if scheme == "pss" else []
        seen = self.openssl("dgst", f"-{hash_name}", *pss, "-verify", key, "-signature", signature,
                            self.data)
        self.assertEqual(seen.decode().strip(), "Verified OK")

    def test_openssl_verifies_every_scheme_and_hash_of_every_key(self):
        for card_type, keys in KEYS.items():
            for container, key in enumerate(keys):
                cases = ([(scheme, hash_name) for scheme in ("pkcs1", "pss")
                          for hash_name in ("sha1", "sha256", "sha384", "sha512")]
                         if is_rsa(key) else
                         [("ecdsa", hash_name)
                          for hash_name in ("sha1", "sha224", "sha256", "sha384", "sha512")])
                for scheme, hash_name in cases:
                    with self.subTest(card_type=card_type, container=container, scheme=scheme,
                                      hash=hash_name):
                        self.check(card_type, container, scheme, hash_name)

    def test_signs_in_the_way_of_the_older_provider_too(self):
        for hash_name in ("sha1", "sha256", "sha384", "sha512"):
            with self.subTest(hash=hash_name):
                self.check(3, 1, "pkcs1", hash_name, "--provider", "csp")

    def test_chooses_the_scheme_by_the_key(self):
        out, _ = self.cardhost("sign", "--virtual", 6, "--in", self.data, "--out", "s", "--pin",
                               "1234")
        self.assertIn("EC, 256 bits", out)
        self.cardhost("sign", "--virtual", 6, "--container", 1, "--in", self.data, "--out", "s",
                      "--pin", "123456")
        self.assertEqual(len((self.folder / "s").read_bytes()), 256)

    def test_takes_the_pin_from_a_file_or_from_standard_input(self):
        pin = self.write("pin.txt", b"1234\r\nnot this\n")
        self.cardhost("sign", "--in", self.data, "--out", "a", "--pin-file", pin)
        self.cardhost("sign", "--in", self.data, "--out", "b", stdin="1234\n")
        self.assertEqual((self.folder / "a").read_bytes(), (self.folder / "b").read_bytes())

    def test_a_key_whose_pin_was_not_shown_is_refused_by_status_and_name(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                message = self.message("sign", "--virtual", card_type, "--no-pin", "--in",
                                       self.data, "--out", "s", expected=REFUSED)
                self.assertEqual(message, "the driver refused CardSignData with container 0: "
                                          "0x8010006a SCARD_W_SECURITY_VIOLATION (the PIN of this "
                                          "key is not verified)")
                self.assertFalse((self.folder / "s").exists())

    def test_a_hash_that_the_driver_has_not_for_rsa_is_refused(self):
        message = self.message("sign", "--hash", "sha224", "--in", self.data, "--out", "s", "--pin",
                               "1234", expected=REFUSED)
        self.assertRegex(message, "0x80100022 SCARD_E_UNSUPPORTED_FEATURE")

    def test_a_scheme_that_does_not_fit_the_key_is_wrong_usage(self):
        for card_type, scheme in ((3, "ecdsa"), (5, "pkcs1"), (5, "pss")):
            message = self.message("sign", "--virtual", card_type, "--scheme", scheme, "--in",
                                   self.data, "--out", "s", expected=USAGE)
            self.assertRegex(message, f"^the scheme {scheme} does not fit container 0, whose key ")

    def test_a_file_that_is_not_there_is_told_by_name(self):
        self.assertEqual(self.message("sign", "--in", "nothing.txt", "--out", "s", expected=FILE),
                         "cannot read nothing.txt")
        self.assertEqual(self.message("sign", "--in", ".", "--out", "s", expected=FILE),
                         "cannot read .")

    def test_a_signature_that_cannot_be_written_is_told_by_name(self):
        message = self.message("sign", "--in", self.data, "--out", "no/such/folder/s", "--pin",
                               "1234", expected=FILE)
        self.assertEqual(message, "cannot write no/such/folder/s")


class Verify(CardhostTest):
    def test_the_right_pin(self):
        for card_type in KEYS:
            for pin_id, name in ((1, "authentication"), (4, "signature")):
                with self.subTest(card_type=card_type, pin=pin_id):
                    out, _ = self.cardhost("verify", "--virtual", card_type, "--pin-id", pin_id,
                                           "--pin", PINS[pin_id])
                    self.assertEqual(out, f"PIN {pin_id} ({name}) is right.\n")

    def test_a_wrong_pin_tells_the_attempts_that_remain(self):
        for card_type in KEYS:
            for pin_id, name in ((1, "authentication"), (4, "signature")):
                with self.subTest(card_type=card_type, pin=pin_id):
                    message = self.message("verify", "--virtual", card_type, "--pin-id", pin_id,
                                           "--pin", "999999", expected=WRONG_PIN)
                    left = TRIES[pin_id][card_type] - 1
                    self.assertEqual(message, f"PIN {pin_id} ({name}) is wrong; attempts "
                                              f"remaining: {left}: 0x8010006b SCARD_W_WRONG_CHV "
                                              "(the PIN is wrong)")

    def test_the_last_wrong_pin_blocks_and_the_right_one_is_refused_then(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                state = self.folder / f"state-{card_type}"
                card = ["verify", "--virtual", card_type, "--virtual-state", state]
                for _ in range(TRIES[1][card_type] - 1):
                    self.message(*card, "--pin", "9999", expected=WRONG_PIN)
                message = self.message(*card, "--pin", "9999", expected=BLOCKED)
                self.assertRegex(message, "blocked")
                message = self.message(*card, "--pin", "1234", expected=BLOCKED)
                self.assertRegex(message, "blocked")

    def test_values_given_in_turn_are_tried_until_one_is_right(self):
        out, error = self.cardhost("verify", "--pin", "9999", "--pin", "8888", "--pin", "1234")
        self.assertEqual(out, "PIN 1 (authentication) is right.\n")
        self.assertEqual(error.count("is wrong; attempts remaining:"), 2)

    def test_the_prompt_asks_again_after_a_wrong_pin(self):
        out, error = self.cardhost("verify", stdin="9999\n1234\n")
        self.assertEqual(out, "PIN 1 (authentication) is right.\n")
        self.assertEqual(error.count("is wrong; attempts remaining:"), 1)

    def test_a_pin_of_a_length_that_no_card_has_costs_no_attempt(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                message = self.message("verify", "--virtual", card_type, "--pin", "1" * 13,
                                       expected=WRONG_PIN)
                self.assertRegex(message, "not a length that the card takes; no attempt was used")

    def test_no_pin_at_all_is_wrong_usage(self):
        self.assertEqual(self.message("verify", expected=USAGE), "no PIN given")

    def test_a_pin_file_without_a_pin_or_not_there(self):
        empty = self.write("empty", b"\n1234\n")
        self.assertRegex(self.message("verify", "--pin-file", empty, expected=FILE),
                         "has no PIN in its first line$")
        self.assertEqual(self.message("verify", "--pin-file", "nothing", expected=FILE),
                         "cannot read nothing")

    def test_a_state_file_of_something_else_is_told(self):
        self.assertRegex(self.message("verify", "--virtual-state", self.data, "--pin", "1234",
                                      expected=FILE),
                         "(is no state of this virtual card|more than the)")


class Decrypt(CardhostTest):
    def block(self, certificate, message, name="block.bin"):
        self.openssl("pkeyutl", "-encrypt", "-certin", "-inkey", certificate, "-in", message, "-out",
                     self.folder / name)
        return self.folder / name

    def test_gives_back_what_openssl_encrypted(self):
        message = self.write("message.bin", bytes(range(48)))
        rsa_keys = [(card_type, container) for card_type, keys in KEYS.items()
                    for container, key in enumerate(keys) if is_rsa(key)]
        self.assertNotEqual(rsa_keys, [])
        for card_type, container in rsa_keys:
            with self.subTest(card_type=card_type, container=container):
                certificate, _ = self.export(card_type, container)
                block = self.block(certificate, message)
                self.cardhost("decrypt", "--virtual", card_type, "--container", container, "--in",
                              block, "--out", "clear.bin", "--pin", pin_of(container))
                self.assertEqual((self.folder / "clear.bin").read_bytes(), message.read_bytes())

    def test_a_key_whose_pin_was_not_shown_is_refused(self):
        certificate, _ = self.export(3, 0)
        block = self.block(certificate, self.write("m", b"m"))
        self.assertRegex(self.message("decrypt", "--in", block, "--out", "x", "--no-pin",
                                      expected=REFUSED), "0x8010006a SCARD_W_SECURITY_VIOLATION")

    def test_a_block_of_another_key_is_refused_and_nothing_written(self):
        block = self.write("block.bin", bytes(255) + b"\x01")
        self.message("decrypt", "--in", block, "--out", "x", "--pin", "1234", expected=REFUSED)
        self.assertFalse((self.folder / "x").exists())

    def test_a_block_of_a_wrong_length_is_told(self):
        self.assertRegex(self.message("decrypt", "--in", self.write("b", b"short"), "--out", "x",
                                      "--pin", "1234", expected=FILE),
                         "has 5 bytes; a block for this key has 256$")
        self.assertRegex(self.message("decrypt", "--in", self.data, "--out", "x", expected=FILE),
                         "has more than the 65536 bytes that make sense here$")

    def test_an_ec_key_is_wrong_usage(self):
        block = self.write("block", bytes(256))
        self.assertRegex(self.message("decrypt", "--virtual", 5, "--in", block, "--out", "x",
                                      expected=USAGE),
                         "^container 0 has no RSA key to decrypt with")


class Agree(CardhostTest):
    def peer(self, curve):
        private = self.folder / f"peer-{curve}.pem"
        self.openssl("genpkey", "-algorithm", "EC", "-pkeyopt",
                     f"ec_paramgen_curve:{OPENSSL_CURVES[curve]}", "-out", private)
        public = self.folder / f"peer-{curve}-public.pem"
        self.openssl("pkey", "-in", private, "-pubout", "-out", public)
        return private, public

    def test_derives_the_key_that_openssl_derives(self):
        ec_cards = [card_type for card_type, keys in KEYS.items() if not is_rsa(keys[0])]
        self.assertNotEqual(ec_cards, [])
        for card_type in ec_cards:
            private, public = self.peer(KEYS[card_type][0])
            _, card_key = self.export(card_type, 0)
            secret = self.openssl("pkeyutl", "-derive", "-inkey", private, "-peerkey", card_key)
            for hash_name in ("sha1", "sha256", "sha384", "sha512"):
                for prepend, append in (("", ""), ("414243", ""), ("", "5a"), ("00 01", "ff:fe")):
                    with self.subTest(card_type=card_type, hash=hash_name, prepend=prepend,
                                      append=append):
                        self.cardhost("agree", "--virtual", card_type, "--peer", public, "--hash",
                                      hash_name, "--prepend", prepend, "--append", append, "--out",
                                      "key.bin", "--pin", "1234")
                        plain = lambda text: bytes.fromhex(text.replace(":", " "))
                        expected = self.openssl("dgst", f"-{hash_name}", "-binary",
                                                stdin=plain(prepend) + secret + plain(append))
                        self.assertEqual((self.folder / "key.bin").read_bytes(), expected)

    def test_without_a_hash_the_driver_takes_sha1(self):
        private, public = self.peer("secp256r1")
        _, card_key = self.export(6, 0)
        secret = self.openssl("pkeyutl", "-derive", "-inkey", private, "-peerkey", card_key)
        self.cardhost("agree", "--virtual", 6, "--peer", public, "--out", "key.bin", "--pin", "1234")
        self.assertEqual((self.folder / "key.bin").read_bytes(),
                         self.openssl("dgst", "-sha1", "-binary", stdin=secret))

    def test_a_key_on_another_curve_is_wrong_usage(self):
        _, public = self.peer("secp384r1")
        self.assertEqual(self.message("agree", "--virtual", 5, "--peer", public, "--out", "k",
                                      "--pin", "1234", expected=USAGE),
                         "the peer's key is on secp384r1, the card's on secp256r1")

    def test_an_rsa_card_is_wrong_usage(self):
        _, public = self.peer("secp256r1")
        self.assertRegex(self.message("agree", "--virtual", 3, "--peer", public, "--out", "k",
                                      expected=USAGE), "^container 0 has no EC key to agree with")

    def test_a_key_whose_pin_was_not_shown_is_refused(self):
        _, public = self.peer("secp256r1")
        self.assertRegex(self.message("agree", "--virtual", 5, "--peer", public, "--out", "k",
                                      "--no-pin", expected=REFUSED), "0x8010006a")

    def test_files_and_texts_that_make_no_sense(self):
        _, public = self.peer("secp256r1")
        rsa, _ = self.export(3, 0)
        self.assertRegex(self.message("agree", "--peer", self.write("p", b"rubbish"), "--out", "k",
                                      expected=FILE), "holds no public key")
        self.assertRegex(self.message("agree", "--peer", rsa, "--out", "k", expected=FILE),
                         "holds no public key")
        for text, reason in (("1g", "not a hexadecimal text"), ("123", "an odd number of")):
            self.assertRegex(self.message("agree", "--peer", public, "--out", "k", "--append", text,
                                          expected=USAGE), f"^--append: {reason}")


class Logon(CardhostTest):
    def test_tells_five_steps_and_leaves_what_openssl_verifies(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                folder = self.folder / f"type{card_type}"
                out, _ = self.cardhost("logon", "--virtual", card_type, "-o", folder, "--pin", "1234")
                self.assertEqual(re.findall(r"^(\d)\. ", out, re.M), ["1", "2", "3", "4", "5"])
                seen = self.openssl("dgst", "-sha256", "-verify", folder / "public-key.pem",
                                    "-signature", folder / "signature.bin",
                                    folder / "challenge.bin")
                self.assertEqual(seen.decode().strip(), "Verified OK")
                self.assertEqual(
                    self.openssl("x509", "-in", folder / "certificate.pem", "-noout", "-pubkey"),
                    (folder / "public-key.pem").read_bytes())


class Trace(CardhostTest):
    def test_shows_the_commands_and_masks_the_pin(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                out, error = self.cardhost("verify", "--virtual", card_type, "--pin-id", 4, "--pin",
                                           "123456", "--trace")
                self.assertEqual(out, "PIN 4 (signature) is right.\n")
                self.assertRegex(error, r"(?m)^CardAcquireContext$")
                self.assertRegex(error, r"(?m)^CardAuthenticateEx with PIN 4$")
                self.assertRegex(error, r"(?m)^  > 00 A4 ")
                self.assertRegex(error, r"(?m)^  > 00 B0 00 00 [0-9A-F]{2}  # READ BINARY at 0$")
                length = 12 if len(KEYS[card_type]) == 3 else 6
                self.assertRegex(error, r"(?m)^  > 00 20 00 [0-9A-F]{2} "
                                        rf"{length:02X}( \*\*){{{length}}}  # VERIFY$")
                self.assertNotIn("31 32 33 34 35 36", error)
                self.assertRegex(error, r"(?m)^  < 90 00 in \d+\.\d{3} ms  # done$")


class CommandLine(CardhostTest):
    def test_help_of_the_program_and_of_every_command(self):
        out, _ = self.cardhost("--help")
        self.assertIn("Exit codes: 0 done; 1 wrong usage;", out)
        for command in ("info", "logon", "verify", "sign", "decrypt", "agree", "export", "list"):
            self.assertRegex(out, rf"(?m)^  {command} ")
            text, _ = self.cardhost(command, "--help")
            self.assertIn("see cardhost --help", text)

    def test_what_makes_no_sense_is_told_in_one_line(self):
        for arguments, reason in (
                ([], "A subcommand is required"),
                (["dance"], "no such command: dance"),
                (["info", "--virtual", "99"], f"99 not in {{{','.join(map(str, ALL_CARDS))}}}"),
                (["info", "--virtual", "x"], "--virtual"),
                (["info", "--wrong"], "not expected: --wrong"),
                (["info", "sign"], ""),
                (["sign"], "--in is required"),
                (["sign", "--in", "a", "--out", "b", "--hash", "md5"], "--hash: md5 not in"),
                (["sign", "--in", "a", "--out", "b", "--scheme", "oaep"], "--scheme: oaep not in"),
                (["verify", "--pin-id", "5"], "5 not in range 1 to 4"),
                (["verify", "--pin", "1", "--pin-file", "f"], "excludes"),
                (["info", "--virtual", "3", "--reader", "X"], "excludes"),
                (["export"], "--out is required"),
                (["agree", "--out", "x"], "--peer is required")):
            with self.subTest(arguments=arguments):
                message = self.message(*arguments, expected=USAGE)
                self.assertIn(reason, message)
                self.assertTrue(message.endswith("(see cardhost --help)"), message)

    def test_a_driver_that_is_not_there_or_is_none(self):
        for driver in ("nothing.dll", self.data):
            with self.subTest(driver=driver):
                self.assertRegex(self.message("info", "--driver", driver, expected=NOT_FOUND),
                                 "^cannot load ")

    def test_the_report_can_be_piped_without_the_lines_of_the_driver(self):
        out, error = self.cardhost("verify", "--pin", "1" * 13, expected=WRONG_PIN)
        self.assertEqual(out, "")
        self.assertNotIn("[DEBUG]", error)
        out, error = self.cardhost("--trace", "verify", "--pin", "1" * 13, expected=WRONG_PIN)
        self.assertEqual(out, "")
        self.assertIn("[DEBUG]", error)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cardhost", required=True, help="the program under test")
    parser.add_argument("--launcher", default="", help="what runs it, such as Wine")
    parser.add_argument("--deaf-driver", default="", help="a driver that sends no command")
    known, rest = parser.parse_known_args()
    settings.deaf_driver = known.deaf_driver and pathlib.Path(known.deaf_driver).resolve()
    settings.cardhost = str(pathlib.Path(known.cardhost).resolve())
    launcher = shlex.split(known.launcher)
    settings.launcher = [str(pathlib.Path(launcher[0]).resolve()), *launcher[1:]] if launcher else []
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
