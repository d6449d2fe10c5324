#!/usr/bin/env python3
"""Lets the doctor look at machines: this one over virtual cards, and a Wine prefix that is well until a
test makes it sick in one way.

    doctor_test.py --cardhost build/native/cardhost [unittest arguments]
    doctor_test.py --cardhost build/windows-x64/cardhost.exe --launcher "tools/run_in_wine.sh x64"
                   [unittest arguments]

In Wine the tests have a prefix of their own, build/wine/doctor.
"""
import argparse
import contextlib
import functools
import http.server
import itertools
import json
import os
import pathlib
import pty
import re
import shlex
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(REPOSITORY / "tests/support"))
from known_cards import ATRS, RECORDINGS, TRIES  # pylint: disable=wrong-import-position

OK, NOT_FOUND, FILE, UNWELL = 0, 2, 6, 8
PREFIX = REPOSITORY / "build/wine/doctor"
DRIVE = PREFIX / "drive_c"
DLL = "kelmora-id-minidriver.dll"
DLL64 = DRIVE / "windows/system32" / DLL
DLL32 = DRIVE / "windows/syswow64" / DLL
LOG_FOLDER = DRIVE / "Program Files/Kelmora-ID-minidriver/Log"
SOFTWARE = r"HKLM\SOFTWARE"
NARROW = r"HKLM\SOFTWARE\Wow6432Node"
CARDS = r"Microsoft\Cryptography\Calais\SmartCards"
LSA = r"HKLM\SYSTEM\CurrentControlSet\Control\Lsa"
APP_CONTROL = r"HKLM\SYSTEM\CurrentControlSet\Control\CI\Policy"
POLICIES = SOFTWARE + r"\Policies\Microsoft\Windows"
SETTINGS = SOFTWARE + r"\Kelmora\KelmoraID"
RUN = NARROW + r"\Microsoft\Windows\CurrentVersion\Run"
SERVICES = ("SCardSvr", "ScDeviceEnum", "CertPropSvc")

settings = argparse.Namespace(cardhost="", launcher=[])


def run(*command, cwd=None):
    """Runs a program: its exit code, standard output and standard error."""
    # Files, not pipes: Wine's own processes outlive the program and would keep a pipe open.
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as error:
        done = subprocess.run([str(part) for part in command], cwd=cwd, stdin=subprocess.DEVNULL,
                              stdout=out, stderr=error, timeout=300, check=False)
        texts = []
        for stream in (out, error):
            stream.seek(0)
            texts.append(stream.read().decode(errors="replace").replace("\r\n", "\n"))
    return done.returncode, *texts


def wine(*command, cwd=None):
    """Runs a program of Windows; it has to succeed."""
    code, out, error = run(*settings.launcher, *command, cwd=cwd)
    if code:
        raise AssertionError(f"{command} ended with {code}\n{out}\n{error}")
    return out


def service_control(*arguments):
    """Wine's service manager does not answer every call on a busy machine: asks until it does."""
    for _ in range(20):
        code, out, _ = run(*settings.launcher, "sc", *arguments)
        if code == 0:
            return
    raise AssertionError(f"sc {arguments} ended with {code}\n{out}")


def create_service(name, start="demand"):
    service_control("create", name, "binPath=", r"C:\windows\system32\svchost.exe", "start=", start)


def registration():
    """The registration of all cards in both views, as a file for reg import."""
    lines = ["Windows Registry Editor Version 5.00", ""]
    for view in ("SOFTWARE", r"SOFTWARE\Wow6432Node"):
        for card_type, text in ATRS.items():
            atr = bytes.fromhex(text)
            name = rf"Kelmora ID FINEID card type {card_type}"
            for key, value, mask in ((name, atr, b"\xff" * len(atr)),
                                     (name + " (longer ATR)", atr + b"\0", b"\xff" * len(atr) + b"\0")):
                lines += [rf"[HKEY_LOCAL_MACHINE\{view}\{CARDS}\{key}]",
                          '"ATR"=hex:' + value.hex(","), '"ATRMask"=hex:' + mask.hex(","),
                          '"Crypto Provider"="Microsoft Base Smart Card Crypto Provider"',
                          '"Smart Card Key Storage Provider"="Microsoft Smart Card Key Storage Provider"',
                          f'"80000001"="{DLL}"', ""]
    return "\r\n".join(lines)


class DoctorTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="doctor-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def doctor(self, *arguments, card=3):
        """Exit code and report of a look at the machine, with a virtual card unless that is None."""
        chosen = [] if card is None else ["--virtual", card]
        code, out, error = run(*settings.launcher, settings.cardhost, *chosen, "doctor", *arguments,
                               cwd=self.folder)
        self.assertIn(code, (OK, UNWELL), out + error)
        return code, out

    def findings(self, *arguments, card=3):
        """What a look finds not to be well: {id: [found, ...]}; the exit code has to fit."""
        for _ in range(20):
            code, out = self.doctor("--json", *arguments, card=card)
            report = json.loads(out)
            # Wine's service manager does not answer every call on a busy machine.
            if not any((finding["id"], finding["verdict"]) == ("platform.service", "unknown")
                       for finding in report["findings"]):
                break
        self.assertEqual(code == OK, report["isWell"])
        found = {}
        for finding in report["findings"]:
            if finding["verdict"] != "well":
                found.setdefault(finding["verdict"] + " " + finding["id"], []).append(
                    f"{finding['subject']}: {finding['found']}")
        return found

    def log(self, content):
        path = self.folder / "the.log"
        path.write_bytes(content)
        return path.name


class Log(DoctorTest):
    """--log FILE: the same on each system."""

    def explain(self, content, expected):
        code, out, error = run(*settings.launcher, settings.cardhost, "doctor", "--log",
                               self.log(content), cwd=self.folder)
        self.assertEqual(code, expected, out + error)
        self.assertLessEqual(max(map(len, out.splitlines())), 80, out)
        return out

    def test_names_the_failed_call(self):
        out = self.explain(
            b"[2026-11-21 05:10:19] [CardAcquireContext] Entering the function\n"
            b"[2026-11-21 05:10:19] [CardAcquireContext] Entering RegisterCard\n"
            b"[2026-11-21 05:10:21] [CardSignData] Entering the function, with parameters\n"
            b"[2026-11-21 05:10:21] [CardSignData] Exiting the function, with status code: "
            b"'0x8010001f'\n"
            b"[2026-11-21 05:10:22] [CardDeleteContext] Entering the function\n", UNWELL)
        self.assertIn("Acquisition 1 of 1: 2026-11-21 05:10:19 to 2026-11-21 05:10:22", out)
        self.assertRegex(out, r"PROBLEM +CardSignData: 2026-11-21 05:10:21: 0x8010001f\s+"
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
        if settings.launcher:
            folder = LOG_FOLDER
        else:
            folder = pathlib.Path("/var/log/kelmora-id-minidriver")
            if not os.access(folder.parent, os.W_OK) or folder.exists():
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
        refusing, count = re.subn(r"(  > 00 2A 9E 9A.*\n(?: {4}.*\n)*)  < .*\n", r"\1  < 6F 00\n", kept)
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
                code, out = self.doctor("--json", card=card)
                found = {(finding["id"], finding["subject"]): finding
                         for finding in json.loads(out)["findings"]}
                self.assertIn(f"type {card}", found["readers.card", "Virtual Reader"]["found"])
                for subject in ("certificate 0", "certificate 1"):
                    self.assertEqual(found["card.certificate", subject]["verdict"], "well")
                for pin, tries in TRIES.items():
                    self.assertEqual(found["card.tries", f"PIN {pin}"]["found"],
                                     f"{tries[card]} tries left")
                self.assertIn("cardid (16)", found["card.files", "files"]["found"])

    def test_tells_of_blocked_pins(self):
        state = self.folder / "state"
        for _ in range(5):
            run(*settings.launcher, settings.cardhost, "--virtual", 3, "--virtual-state", state.name,
                "verify", "--pin-id", 1, "--pin", "9999", cwd=self.folder)
        code, out, _ = run(*settings.launcher, settings.cardhost, "--virtual", 3, "--virtual-state",
                           state.name, "doctor", cwd=self.folder)
        self.assertEqual(code, UNWELL)
        self.assertIn("PROBLEM  PIN 1: is blocked", out)

    def test_prints_no_more_than_80_columns(self):
        for arguments in ((), ("--json",)):
            _, out = self.doctor(*arguments)
            if not arguments:
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
        self.assertEqual([name for name in found if not name.startswith("note log.")], [], found)

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


class Answering(http.server.BaseHTTPRequestHandler):
    """Counts what it is asked and answers as a service does that knows POST only."""
    seen = []

    def do_HEAD(self):  # pylint: disable=invalid-name
        Answering.seen.append((self.command, self.path, self.headers.get("Content-Length")))
        self.send_response(405)
        self.end_headers()

    do_POST = do_GET = do_HEAD

    def log_message(self, *_):
        pass


class Prefix(DoctorTest):
    """A Wine prefix with the package's registration, the DLLs and the services."""

    @classmethod
    def setUpClass(cls):
        if not settings.launcher:
            raise unittest.SkipTest("this is the machine with a registry")
        shutil.rmtree(PREFIX, ignore_errors=True)
        folder = pathlib.Path(tempfile.mkdtemp(prefix="doctor-"))
        cls.addClassCleanup(shutil.rmtree, folder)
        (folder / "cards.reg").write_text(registration(), encoding="utf-16")
        wine("reg", "import", "cards.reg", cwd=folder)
        cls.keeper = None
        cls.addClassCleanup(cls.stop_wine)
        cls.built = {"x64": REPOSITORY / "build/windows-x64" / DLL,
                     "x86": REPOSITORY / "build/windows-x86" / DLL}
        shutil.copy(cls.built["x64"], DLL64)
        shutil.copy(cls.built["x86"], DLL32)
        for service in SERVICES:
            create_service(service)
        cls.restart_wine()
        wine("reg", "add", LSA, "/v", "RunAsPPL", "/t", "REG_DWORD", "/d", "0", "/f")
        wine("reg", "add", POLICIES + r"\ScPnP", "/v", "EnableScPnP", "/t", "REG_DWORD", "/d", "0", "/f")

    @classmethod
    def stop_wine(cls):
        if cls.keeper is not None:
            cls.keeper.stdin.close()
            cls.keeper.wait()
            cls.keeper = None
        subprocess.run(["wineserver", "-k"], check=False)
        subprocess.run(["wineserver", "-w"], check=True)

    @classmethod
    def restart_wine(cls):
        """Wine's service manager surely knows what stood in the registry when it started. As long as the
        keeper runs, it does: its start takes a while on a busy machine."""
        cls.stop_wine()
        cls.keeper = subprocess.Popen([*settings.launcher, "cmd"], stdin=subprocess.PIPE,
                                      stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def change_services(self, *changes):
        for change in changes:
            change()
        self.restart_wine()

    def named(self, expected, text, *arguments, card=3):
        """The sickness is named with that text, and no other stands beside it."""
        found = self.findings(*arguments, card=card)
        self.assertIn(expected, found)
        self.assertTrue(any(text in entry for entry in found[expected]), found[expected])
        usual = set(self.usual())
        problems = {name for name in found if name.startswith("problem ")} - usual
        self.assertEqual(problems, {expected} if expected.startswith("problem ") else set(), found)

    @staticmethod
    def usual():
        """What the virtual cards' certificates lack for a logon: they stand for no user."""
        return ["problem policy.no-eku", "problem policy.hints", "problem policy.ecc"]

    def add(self, key, name, kind, data):
        """Sets a value, and takes it back after the test."""
        before = self.exported(key)
        wine("reg", "add", key, "/v", name, "/t", kind, "/d", data, "/f")
        self.addCleanup(self.restore, key, before)

    def delete(self, key, name=None):
        before = self.exported(key)
        wine("reg", "delete", key, *(["/v", name] if name else []), "/f")
        self.addCleanup(self.restore, key, before)

    def exported(self, key):
        path = self.folder / "before.reg"
        path.unlink(missing_ok=True)
        code, _, _ = run(*settings.launcher, "reg", "export", key, path.name, "/y", cwd=self.folder)
        return path.read_bytes() if code == 0 and path.exists() else None

    def restore(self, key, before):
        run(*settings.launcher, "reg", "delete", key, "/f")
        if before is not None:
            path = self.folder / "restore.reg"
            path.write_bytes(before)
            wine("reg", "import", path.name, cwd=self.folder)

    def replace(self, path, content):
        """Another file in this place, or none, until the test ends."""
        before = path.read_bytes()
        self.addCleanup(path.write_bytes, before)
        path.unlink()
        if content is not None:
            path.write_bytes(content)

    def sign(self, path):
        """The file as a throw-away signer signs it."""
        key, certificate = self.folder / "key.pem", self.folder / "certificate.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key,
                        "-out", certificate, "-days", "30", "-subj", "/CN=Doctor Test Signer",
                        "-addext", "extendedKeyUsage=codeSigning"], check=True, capture_output=True)
        signed = self.folder / "signed.dll"
        subprocess.run(["osslsigncode", "sign", "-h", "sha256", "-certs", certificate, "-key", key,
                        "-in", path, "-out", signed], check=True, capture_output=True)
        return signed.read_bytes()


class Healthy(Prefix):
    def test_passes(self):
        for name in ("AllowCertificatesWithNoEKU", "X509HintsNeeded"):
            self.add(POLICIES + r"\SmartCardCredentialProvider", name, "REG_DWORD", "1")
        found = self.findings()
        self.assertEqual([name for name in found if not name.startswith("note driver.signature")],
                         [], found)
        code, out = self.doctor()
        self.assertEqual(code, OK, out)
        self.assertIn("Nothing stands in the way.", out)
        self.assertRegex(out, r"64-bit programs: C:\\windows\\system32\\kelmora-id-minidriver.dll, x64,"
                              r"\s+version 1\.\d+\.\d+\.\d+")


    def test_takes_the_installed_driver_where_none_is_beside_the_program(self):
        program = self.folder / "cardhost.exe"
        shutil.copy(settings.cardhost, program)
        shutil.copytree(pathlib.Path(settings.cardhost).with_name("virtual-card"), self.folder / "virtual-card")
        code, out, error = run(*settings.launcher, program, "--virtual", 5, "info")
        self.assertEqual(code, OK, error)
        self.assertIn("5, a FINEID card", out)
        self.replace(DLL64, None)
        code, _, error = run(*settings.launcher, program, "--virtual", 5, "info")
        self.assertEqual(code, NOT_FOUND, error)
        self.assertIn("system32", error)


class Sick(Prefix):
    def row(self, view, card_type):
        return rf"{view}\{CARDS}\Kelmora ID FINEID card type {card_type}"

    def test_without_a_row(self):
        self.delete(self.row(SOFTWARE, 5))
        self.named("problem registration.missing", "64-bit programs: no row fits a card of type 5")

    def test_without_a_row_in_the_narrow_view(self):
        self.delete(self.row(NARROW, 8))
        self.named("problem registration.missing", "32-bit programs: no row fits a card of type 8")

    def test_without_the_database(self):
        self.delete(rf"{NARROW}\{CARDS}")
        self.named("problem registration.database", "32-bit programs")

    def test_with_a_value_changed(self):
        self.add(self.row(SOFTWARE, 3), "Crypto Provider", "REG_SZ", "Other CSP")
        self.named("problem registration.value", "is 'Other CSP'")

    def test_with_another_driver_for_the_same_card(self):
        key = rf"{SOFTWARE}\{CARDS}\Another card"
        self.add(key, "ATR", "REG_BINARY", "3bdd96008031fe450031b8640429ecc1739401808248")
        wine("reg", "add", key, "/v", "ATRMask", "/t", "REG_BINARY", "/d", "ff" * 22, "/f")
        wine("reg", "add", key, "/v", "80000001", "/t", "REG_SZ", "/d", "othercard.dll", "/f")
        self.named("problem registration.rival", "type 3 and names the driver othercard.dll")

    def test_without_a_dll(self):
        self.replace(DLL32, None)
        self.named("problem driver.missing", r"syswow64\kelmora-id-minidriver.dll is missing")

    def test_with_the_dll_of_another_architecture(self):
        self.replace(DLL64, self.built["x86"].read_bytes())
        self.named("problem driver.architecture", "made for x86; these programs need x64")

    def test_with_something_else_for_a_dll(self):
        self.replace(DLL64, b"MZ, and no more")
        self.named("problem driver.format", "is no library")

    def test_with_a_dll_that_is_no_minidriver(self):
        self.replace(DLL64, (DRIVE / "windows/system32/version.dll").read_bytes())
        self.named("problem driver.export", "does not export CardAcquireContext")

    def test_with_a_signature(self):
        """Wine takes every signer for trusted."""
        signed = self.sign(self.built["x64"])
        self.replace(DLL64, signed)
        _, out = self.doctor()
        self.assertIn("64-bit programs: signed by Doctor Test Signer", out)

    def test_with_a_broken_signature(self):
        signed = self.sign(self.built["x64"])
        self.replace(DLL64, signed[:0x500] + bytes([signed[0x500] ^ 1]) + signed[0x501:])
        self.named("problem driver.signature", "does not hold")

    def test_with_protected_lsa(self):
        self.add(LSA, "RunAsPPL", "REG_DWORD", "1")
        self.named("problem platform.lsa", "logon with the card fails")

    def test_with_smart_app_control(self):
        self.add(APP_CONTROL, "VerifiedAndReputablePolicyState", "REG_DWORD", "1")
        self.named("problem platform.app-control", "refuses files without a trusted signature")

    def test_with_the_service_disabled(self):
        delete = functools.partial(service_control, "delete", "SCardSvr")
        self.addCleanup(self.change_services, delete, functools.partial(create_service, "SCardSvr"))
        self.change_services(delete, functools.partial(create_service, "SCardSvr", "disabled"))
        self.named("problem platform.service", "Smart Card: is disabled")

    def test_without_the_service(self):
        self.addCleanup(self.change_services, functools.partial(create_service, "SCardSvr"))
        self.change_services(functools.partial(service_control, "delete", "SCardSvr"))
        self.named("problem platform.service", "Smart Card: is not there")

    def test_with_an_ec_card_and_no_policy(self):
        found = self.findings(card=8)
        self.assertIn("problem policy.ecc", found)
        self.assertNotIn("problem policy.ecc", self.findings(card=3))
        self.add(POLICIES + r"\SmartCardCredentialProvider", "EnumerateECCCerts", "REG_DWORD", "1")
        self.assertNotIn("problem policy.ecc", self.findings(card=8))

    def test_with_propagation_off(self):
        self.add(POLICIES + r"\CertProp", "CertPropEnabled", "REG_DWORD", "0")
        self.named("note policy.propagation", "off")

    def test_with_malformed_addresses(self):
        for address, text in (("https://host", "is not of the form"), ("ftp://h:21", "begins neither"),
                              ("https://h:0", "from 1 to 65535")):
            with self.subTest(address=address):
                self.add(SETTINGS, "ADRSURL", "REG_SZ", address)
                self.named("problem settings.address", text)

    def test_with_an_address_that_stops_the_acquisition(self):
        self.add(SETTINGS, "ADRSURL", "REG_SZ", "https://h:x")
        found = self.findings()
        self.assertIn("the first acquisition of each process fails",
                      found["problem settings.address"][0])
        self.assertIn("SCARD_E_UNEXPECTED", found["problem card.refused"][0])

    def test_with_an_address_of_another_type(self):
        self.add(SETTINGS, "ADRSURL", "REG_DWORD", "1")
        self.named("problem settings.type", "no text value")

    def test_with_a_service_that_does_not_answer(self):
        with socket.create_server(("127.0.0.1", 0)) as closed:
            port = closed.getsockname()[1]
        self.add(SETTINGS, "ADRSURL", "REG_SZ", f"http://127.0.0.1:{port}")
        self.named("problem settings.answer", "cannot be connected", "--network")
        self.assertNotIn("problem settings.answer", self.findings())

    def test_with_a_service_that_answers(self):
        Answering.seen.clear()
        with http.server.HTTPServer(("127.0.0.1", 0), Answering) as server:
            thread = threading.Thread(target=server.serve_forever)
            thread.start()
            self.add(SETTINGS, "ADRSURL", "REG_SZ", f"http://127.0.0.1:{server.server_port}/pair")
            try:
                _, out = self.doctor("--network", card=None)
            finally:
                server.shutdown()
                thread.join()
        self.assertIn("answers (HTTP status 405)", " ".join(out.split()))
        # Nothing of a card goes there.
        self.assertEqual([row[:2] for row in Answering.seen], [("HEAD", "/registercard")])
        self.assertIn(Answering.seen[0][2], (None, "0"))

    def test_with_a_run_value_without_a_library(self):
        self.add(RUN, "Kelmora ID", "REG_SZ", r"C:\Companion\Companion.exe")
        self.named("note dialog.missing", r"C:\Companion\CodeEntryLibrary.dll is missing")

    def test_with_a_run_value_in_quotation_marks(self):
        self.add(RUN, "Kelmora ID", "REG_SZ", r'\"C:\Companion\Companion.exe\"')
        self.named("note dialog.command", "quotation marks")

    def test_with_a_dialog_library_without_its_function(self):
        self.add(RUN, "Kelmora ID", "REG_SZ", r"C:\Companion\Companion.exe")
        (DRIVE / "Companion").mkdir()
        self.addCleanup(shutil.rmtree, DRIVE / "Companion")
        shutil.copy(self.built["x64"], DRIVE / "Companion/CodeEntryLibrary.dll")
        self.named("problem dialog.function", "does not export promptCodeEntryDefault")

    def test_with_a_log_that_cannot_be_written(self):
        (LOG_FOLDER / "Kelmora-ID-minidriver.log").mkdir(parents=True)
        self.addCleanup(shutil.rmtree, LOG_FOLDER)
        self.named("note log.not-writable", "cannot be written by this user")

    def test_with_a_log(self):
        LOG_FOLDER.mkdir(parents=True)
        self.addCleanup(shutil.rmtree, LOG_FOLDER)
        _, out = self.doctor("--json", card=None)
        states = {finding["id"] for finding in json.loads(out)["findings"]}
        self.assertIn("log.on", states)
        self.assertEqual(list(LOG_FOLDER.glob("*.tmp")), [], "the trial leaves nothing")

    def test_without_readers(self):
        found = self.findings(card=None)
        self.assertTrue({"problem readers.service", "problem readers.none"} & set(found), found)


def main():
    parser = argparse.ArgumentParser(allow_abbrev=False)
    parser.add_argument("--cardhost", required=True)
    parser.add_argument("--launcher", default="")
    options, others = parser.parse_known_args()
    settings.cardhost = str(pathlib.Path(options.cardhost).resolve())
    settings.launcher = shlex.split(options.launcher)
    if settings.launcher:
        settings.launcher[0] = str(pathlib.Path(settings.launcher[0]).resolve())
        os.environ["WINEPREFIX"] = str(PREFIX)
    unittest.main(argv=[sys.argv[0], *others])


if __name__ == "__main__":
    main()
