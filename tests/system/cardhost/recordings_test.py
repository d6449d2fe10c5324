#!/usr/bin/env python3
"""Records cards with cardhost, replays them, and writes reports of logons.

    recordings_test.py --cardhost build/native/cardhost [--launcher "tools/run_in_wine.sh x64"]
                       [unittest arguments]
"""
import html.parser
import json
import os
import pathlib
import pty
import re
import subprocess
import sys
import unittest

import cardhost_test
from cardhost_test import ALL_CARDS, FILE, KEYS, PINS, ROOT, TRIES, CardhostTest, settings
from known_cards import RECORDINGS

RECORDING_HAS_NOT, UNWELL, UNSEEN = 7, 8, 9
COMPLETION = ROOT / "cardhost/completion/cardhost.bash"
ALL_PINS = ["--pin", PINS[1], "--signature-pin", PINS[4]]


def without_times(text):
    return re.sub(r"\s+in \d+\.\d{3} ms", "", text)


def commands_of(text):
    """The bytes of all commands, as text."""
    found, is_open = [], False
    for line in text.splitlines():
        body = line.split("#")[0].rstrip()
        if body.startswith("  >"):
            found.append(body[4:])
            is_open = True
        elif body.startswith("    ") and is_open:
            found[-1] += " " + body.strip()
        elif body:
            is_open = False
    return found


def reply_bytes(text):
    """All reply data as one byte string, the status words left out."""
    data, current = b"", None
    for line in text.splitlines():
        body = re.sub(r"\s+in [\d.]+ ms", "", line.split("#")[0]).rstrip()
        if body.startswith("  <") or not body.startswith("    "):
            if current:
                data += current[:-2]
            current = None
        if body.startswith("  <") and re.match(r"  < [0-9A-F]{2}( |$)", body):
            current = bytes.fromhex(body[4:])
        elif body.startswith("    ") and current is not None:
            current += bytes.fromhex(body.strip())
    return data


class Replay(CardhostTest):
    """The kept recordings of the virtual cards, against the driver as it is."""

    def test_every_journey_of_every_recording_goes_as_it_went(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                kept = RECORDINGS / f"card-type-{card_type}.txt"
                self.cardhost("--replay", kept, "record", *ALL_PINS, "--out", "again.txt")
                again = (self.folder / "again.txt").read_text()
                self.assertEqual(without_times(again), without_times(kept.read_text()))

    def test_commands_find_their_part_of_a_recording(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                card = ["--replay", RECORDINGS / f"card-type-{card_type}.txt"]
                out, _ = self.cardhost(*card, "info")
                live, _ = self.cardhost("--virtual", card_type, "info")
                self.assertEqual(out.replace("Recording", "Virtual Reader"), live)
                out, _ = self.cardhost(*card, "verify", "--pin-id", 4, "--pin", "999999")
                self.assertEqual(out, "PIN 4 (signature) is right.\n")

    def test_what_the_recording_has_not_is_told_with_what_it_has(self):
        card = ["--replay", RECORDINGS / "card-type-5.txt"]
        message = self.message(*card, "sign", "--in", self.data, "--out", "s", "--pin", "1234",
                               expected=RECORDING_HAS_NOT)
        self.assertRegex(message, r"^the recording has not what was asked: 00 2A 90 A0 [0-9A-F .]+ "
                                  r"\(PSO HASH\); next in it, on line \d+, is 00 2A 90 A0 ")
        self.assertFalse((self.folder / "s").exists())
        message = self.message(*card, "verify", "--pin", "12345", "--pin-id", 3,
                               expected=RECORDING_HAS_NOT)
        self.assertRegex(message, "it has no further call of CardAuthenticateEx with PIN 3$")

    def test_a_card_of_no_known_type_can_be_taken_for_one(self):
        kept = (RECORDINGS / "card-type-5.txt").read_text()
        atr = "ATR 3B 7F 96 00 00 80 31 B8 65 B0 85 04 02 1B 12 00 F6 82 90 00"
        self.assertIn(atr, kept)
        self.write("card.txt", kept.replace(atr, atr.replace("1B 12", "77 12")).encode())
        self.assertRegex(self.message("--replay", "card.txt", "info", expected=cardhost_test.REFUSED),
                         "CardAcquireContext: 0x8010000d SCARD_E_UNKNOWN_CARD")
        out, _ = self.cardhost("--replay", "card.txt", "--as", 5, "info")
        self.assertRegex(out, "type +not known by its ATR")
        self.assertEqual(out.count("the key of the certificate"), 3)
        self.message("--replay", "card.txt", "--as", 8, "verify", "--pin", "1234",
                     expected=RECORDING_HAS_NOT)
        self.cardhost("--replay", "card.txt", "--as", 5, "record", "--out", "again.txt")
        self.assertIn("77 12", (self.folder / "again.txt").read_text().splitlines()[2])

    def test_no_pin_stands_in_a_message(self):
        _, error = self.cardhost("--replay", RECORDINGS / "card-type-3.txt", "verify", "--pin",
                                 "77777", expected=RECORDING_HAS_NOT)
        self.assertNotIn("37 37", error)
        self.assertIn("00 20 00 11 05 ** ** ** ** **", error)

    def test_files_that_are_no_recording_end_with_the_line(self):
        whole = (RECORDINGS / "card-type-3.txt").read_bytes()
        for content, reason in (
                (b"", "line 1: this is no conversation"),
                (whole[:len(whole) // 2], r"line \d+: "),
                (whole.replace(b"ATR 3B", b"ATR 3", 1), "line 3: no byte of two hexadecimal digits"),
                (b"conversation 1\n" + b"\n" * 2**24, "more than the 16777216 bytes"),
                (bytes(range(256)) * 100, "line 1: this is no conversation")):
            with self.subTest(reason=reason):
                name = self.write("broken.txt", content)
                self.assertRegex(self.message("--replay", name, "info", expected=FILE), reason)
        self.assertEqual(self.message("--replay", "nothing.txt", "info", expected=FILE),
                         "cannot read nothing.txt")


class Record(CardhostTest):
    def record(self, card_type, name, *options):
        out, _ = self.cardhost("--virtual", card_type, "record", "--out", name, *options)
        return out, (self.folder / name).read_text()

    def test_warns_of_personal_data_ahead_of_the_card(self):
        out, _ = self.record(3, "a.txt")
        self.assertRegex(out, r"^A recording holds what the card holds of its holder")
        out, _ = self.record(3, "a.txt", "--anonymous")
        self.assertRegex(out, r"^Names, numbers, keys and signatures are blanked")
        self.assertLessEqual(max(map(len, out.splitlines())), 80)

    def test_holds_the_tries_left_and_no_pin(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                out, text = self.record(card_type, "a.txt", *ALL_PINS)
                for pin, tries in TRIES.items():
                    self.assertRegex(out, rf"PIN {pin} +{tries[card_type]} tries left")
                commands = commands_of(text)
                verified = [command for command in commands if re.match(r"00 20 00 .. ..", command)]
                self.assertEqual(len(verified), len(KEYS[card_type]))
                for command in verified:
                    self.assertRegex(command, r"^00 20 00 .. ..( \*\*)+$")
                self.assertNotIn("31 32 33 34", "".join(commands))

    def test_without_a_pin_no_key_is_used(self):
        _, text = self.record(4, "a.txt")
        self.assertNotIn("CardAuthenticateEx", text)
        self.assertNotIn("CardSignData", text)
        _, text = self.record(4, "a.txt", "--pin", "1234")
        self.assertEqual(text.count("CardAuthenticateEx"), 1)
        self.assertEqual(text.count("CardSignData"), 1)

    def test_a_wrong_pin_is_tried_once_and_what_was_said_is_kept(self):
        self.cardhost("record", "--out", "a.txt", "--pin", "9999",
                      expected=cardhost_test.WRONG_PIN)
        text = (self.folder / "a.txt").read_text()
        self.assertEqual(text.count("CardAuthenticateEx"), 1)
        self.assertRegex(text, r"(?m)^  < 63 C4 ")
        self.assertTrue(text.endswith("end\n"))

    def test_a_file_that_cannot_be_written_costs_no_try(self):
        self.write("kept.txt", b"kept")
        for command, name in (("record", "none/a.txt"), ("report", "none/a.html"), ("record", ".")):
            with self.subTest(command=command, name=name):
                self.assertRegex(self.message("--virtual", 3, "--virtual-state", "state", command, "--out", name,
                                              "--pin", "9999", expected=FILE), "^cannot write ")
        _, text = self.record(3, "a.txt", "--virtual-state", "state")
        self.assertIn("< 63 C5", text)
        # Nor is a file touched, or left behind, where the card is not reached.
        self.cardhost("--driver", "nothing.so", "record", "--out", "kept.txt", expected=cardhost_test.NOT_FOUND)
        self.assertEqual((self.folder / "kept.txt").read_bytes(), b"kept")

    def test_of_a_driver_whose_commands_are_not_seen_fails(self):
        if not settings.deaf_driver:
            self.skipTest("no driver that sends no command is given")
        for status in (None, "8010001f"):
            if status is not None:
                os.environ["DEAF_DRIVER_STATUS"] = status
                self.addCleanup(os.environ.pop, "DEAF_DRIVER_STATUS")
            for command, name in (("record", "a.txt"), ("report", "a.html")):
                with self.subTest(command=command, status=status):
                    _, error = self.cardhost("--driver", settings.deaf_driver, command, "--out", name,
                                             expected=UNSEEN)
                    self.assertRegex(error, "(?m)^cardhost: the driver's commands to the card cannot be seen: ")
                    self.assertFalse((self.folder / name).exists())
        for command, name in (("record", "a.txt"), ("report", "a.html")):
            self.cardhost("--driver", "nothing.so", command, "--out", name, expected=cardhost_test.NOT_FOUND)
            self.assertFalse((self.folder / name).exists())
        # A refusal of a card that it has not reached is told alike.
        self.cardhost("--driver", settings.deaf_driver, "info", expected=UNSEEN)

    def test_what_the_driver_says_of_the_holder_is_not_shown(self):
        kept = (RECORDINGS / "card-type-3.txt").read_text()
        # The second certificate cannot be read: the driver then tells all that it has of the first.
        broken, count = re.subn(r"(?m)^(  > 00 A4 02 04 02 43 32 .*\n)  < .*\n(?: {4}.*\n)*", r"\1  < 6A 82\n", kept)
        self.assertGreater(count, 0)
        self.write("broken.txt", broken.encode())

        def tells_of_the_holder(*arguments, **options):
            said = "".join(self.cardhost("--replay", "broken.txt", *arguments, **options))
            digits = re.sub(r"[^0-9a-f]", "", re.sub("0x", "", said.lower()))
            return "KORTTINEN" in said or b"KORTTINEN".hex() in digits

        for command, expected in ((["record", "--anonymous", "--out", "a.txt"], RECORDING_HAS_NOT),
                                  (["doctor"], UNWELL)):
            with self.subTest(command=command):
                self.assertFalse(tells_of_the_holder(*command, expected=expected))
        self.assertTrue(tells_of_the_holder("--trace", "info", expected=RECORDING_HAS_NOT))

    def test_an_anonymous_one_tells_nobody_and_can_be_replayed(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                _, open_text = self.record(card_type, "open.txt", *ALL_PINS)
                _, text = self.record(card_type, "anonymous.txt", *ALL_PINS, "--anonymous")
                self.assertEqual([len(line) for line in commands_of(text)],
                                 [len(line) for line in commands_of(open_text)])
                data, open_data = reply_bytes(text), reply_bytes(open_text)
                self.assertEqual(len(data), len(open_data))
                self.assertIn(b"KORTTINEN", open_data)
                for personal in (b"KORTTINEN", b"TESTI", b"9990000", b"virtual.test",
                                 bytes.fromhex(f"9990000{card_type}")):
                    self.assertNotIn(personal, data)
                for container in range(len(KEYS[card_type])):
                    self.cardhost("export", "--virtual", card_type, "--container", container, "--der",
                                  "-o", "c.der")
                    key = self.openssl("x509", "-inform", "DER", "-in", "c.der", "-noout", "-pubkey")
                    der = self.openssl("pkey", "-pubin", "-outform", "DER", stdin=key)
                    self.assertIn(der[-32:], open_data)
                    if not KEYS[card_type][container].startswith("rsa"):
                        self.assertNotIn(der[-32:], data)
                    else:
                        self.assertNotIn(der[40:72], data)
                replay = ["--replay", "anonymous.txt"]
                out, _ = self.cardhost(*replay, "info")
                self.assertEqual(out.count("the key of the certificate"), len(KEYS[card_type]))
                self.assertNotIn("NOT the key", out)
                self.cardhost(*replay, "report", "--out", "r.html", "--pin", "1234")
                # Of all that was done with the keys only a block encrypted to one is missing.
                if not any(key.startswith("rsa") for key in KEYS[card_type]):
                    self.cardhost(*replay, "record", "--out", "again.txt", *ALL_PINS)


class Reports(CardhostTest):
    def check_well_formed(self, page):
        """Every tag is closed, and there is nothing that runs or asks for anything."""
        problems, open_tags, arrows = [], [], []

        class Checker(html.parser.HTMLParser):
            def handle_starttag(self, tag, attributes):
                if tag in ("script", "img", "iframe", "object", "embed"):
                    problems.append(tag)
                for name, value in attributes:
                    if name.startswith("on") or (name in ("src", "href") and value != "data:,"):
                        problems.append((tag, name, value))
                    if name == "class" and "arrow" in value.split():
                        arrows.append(value)
                if tag not in ("meta", "link", "br"):
                    open_tags.append(tag)

            def handle_endtag(self, tag):
                if not open_tags or open_tags.pop() != tag:
                    problems.append(f"</{tag}>")

        Checker().feed(page)
        self.assertEqual(problems, [])
        self.assertEqual(open_tags, [])
        return arrows

    def test_of_a_recording_has_as_many_arrows_as_the_conversation(self):
        for card_type in KEYS:
            with self.subTest(card_type=card_type):
                recording = RECORDINGS / f"card-type-{card_type}.txt"
                _, trace = self.cardhost("--replay", recording, "--trace", "report", "--out", "r.html",
                                         "--pin", "1234")
                arrows = self.check_well_formed((self.folder / "r.html").read_text("utf-8"))
                lines = trace.splitlines()
                count = lambda start: sum(line.startswith(start) for line in lines)
                calls = sum(bool(re.match("[A-Z]", line)) for line in lines) - count("ATR ")
                self.assertEqual(len(arrows), calls + count("  >") + count("  <") + count("  ="))

    def test_of_a_live_card_says_that_the_logon_works(self):
        self.cardhost("--virtual", 8, "report", "--out", "r.html", "--pin", "1234")
        page = (self.folder / "r.html").read_text("utf-8")
        self.assertIn("The logon works", page)
        self.assertIn("KORTTINEN", page)
        self.assertNotIn("31 32 33 34", page)

    def test_of_a_failure_is_written_and_says_what_failed(self):
        self.cardhost("--virtual", 3, "report", "--out", "r.html", "--pin", "9999",
                      expected=cardhost_test.WRONG_PIN)
        page = (self.folder / "r.html").read_text("utf-8")
        self.check_well_formed(page)
        self.assertRegex(page, r'class="outcome bad">PIN 1 \(authentication\) is wrong')

    def test_what_a_hostile_card_says_stays_text(self):
        markup = b"<script>alert(1)</script>"
        kept = (RECORDINGS / "card-type-5.txt").read_text()
        name = " ".join(f"{byte:02X}" for byte in b"KORTTINEN")
        bad = " ".join(f"{byte:02X}" for byte in b"<b>&<i>&x")
        self.assertEqual(len(name), len(bad))
        self.assertIn(name, kept)
        self.write("hostile.txt", kept.replace(name, bad).encode())
        self.cardhost("--replay", "hostile.txt", "report", "--out", "r.html", "--pin", "1234")
        page = (self.folder / "r.html").read_text("utf-8")
        self.check_well_formed(page)
        self.assertIn("&lt;b&gt;&amp;&lt;i&gt;&amp;x", page)
        log = self.write("log.txt", b"[2026-01-01 10:00:00] [CardAcquireContext] Entering the function\n"
                         b"[2026-01-01 10:00:00] [CardAcquireContext] " + markup + b"\n"
                         b"[2026-01-01 10:00:01] [CardAcquireContext] Exiting the function, with "
                         b"status code: '0x8010001f'\n")
        self.cardhost("report", "--log", log, "--out", "r.html")
        page = (self.folder / "r.html").read_text("utf-8")
        self.check_well_formed(page)
        self.assertIn("&lt;script&gt;alert(1)&lt;/script&gt;", page)
        self.assertIn("CardAcquireContext ended with 0x8010001f SCARD_E_UNEXPECTED", page)

    def test_what_a_hostile_card_says_does_not_steer_the_terminal(self):
        kept = (RECORDINGS / "card-type-5.txt").read_text()
        name = " ".join(f"{byte:02X}" for byte in b"KORTTINEN")
        self.assertIn(name, kept)
        self.write("hostile.txt", kept.replace(name, "1B 5B 33 31 6D 1B 5B 32 4A").encode())
        for command in (["info"], ["logon", "--pin", "1234", "-o", "f"], ["report", "--out", "r.html"],
                        ["record", "--out", "r.txt"]):
            with self.subTest(command=command):
                expected = RECORDING_HAS_NOT if command[0] == "logon" else 0
                for text in self.cardhost("--replay", "hostile.txt", *command, expected=expected):
                    self.assertNotIn("\x1b", text)
        out, _ = self.cardhost("--replay", "hostile.txt", "info")
        self.assertIn("?[31m?[2J", out)

    def test_a_log_without_calls_is_told(self):
        self.assertRegex(self.message("report", "--log", self.data, "--out", "r.html", expected=FILE),
                         "tells of no call of the driver$")


class ForPrograms(CardhostTest):
    def test_info_as_json(self):
        for card_type, keys in KEYS.items():
            with self.subTest(card_type=card_type):
                out, _ = self.cardhost("info", "--virtual", card_type, "--json")
                told = json.loads(out)
                self.assertEqual(told["card"]["type"], card_type)
                self.assertEqual([one["index"] for one in told["containers"]],
                                 list(range(len(keys))))
                self.assertTrue(all(one["keyOfCertificate"] for one in told["containers"]))
                self.assertEqual([one["pin"] for one in told["pins"]], [1, 2, 3, 4])
                self.assertEqual(told["driver"]["version"], 7)
                self.assertIn({"path": "/cardid", "bytes": 16}, told["files"])

    @unittest.skipIf(os.name == "nt", "no terminal of this kind")
    def test_colour_is_for_a_terminal_only_and_not_with_no_color(self):
        out, _ = self.cardhost("info")
        self.assertNotIn("\033", out)
        if settings.launcher:
            return
        for no_color, is_coloured in (("", True), ("1", False)):
            ours, theirs = pty.openpty()
            process = subprocess.Popen([settings.cardhost, "info"], stdout=theirs,
                                       stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
                                       env={**os.environ, "NO_COLOR": no_color, "TERM": "xterm"})
            os.close(theirs)
            text = b""
            while True:
                try:
                    piece = os.read(ours, 65536)
                except OSError:
                    break
                if not piece:
                    break
                text += piece
            process.wait(60)
            os.close(ours)
            self.assertEqual(b"\033[1mCard\033[0m" in text, is_coloured)
            self.assertIn(b"Card", text)


class Completion(CardhostTest):
    def complete(self, *words):
        """What bash offers for the last of the words."""
        script = (f"source {COMPLETION}; COMP_WORDS=(\"$@\"); COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); "
                  "_cardhost; printf '%s\\n' \"${COMPREPLY[@]}\"")
        done = subprocess.run(["bash", "-c", script, "bash", settings.cardhost, *words],
                              capture_output=True, text=True, cwd=self.folder, check=True)
        return set(done.stdout.split())

    def options_of(self, *command):
        out, _ = self.cardhost(*command, "--help")
        options = set()
        for line in out.splitlines():
            if line.startswith("  -"):
                options.update(word for word in re.split(r"[ ,]", line.strip().split("  ")[0])
                               if word.startswith("-") and not word.startswith("--reader,"))
        return {word for word in options if re.fullmatch(r"--?[a-z-]+", word)}

    def setUp(self):
        super().setUp()
        if settings.launcher:
            self.skipTest("bash asks the native program")

    def test_offers_every_command_and_option_of_the_help(self):
        out, _ = self.cardhost("--help")
        commands = set(re.findall(r"(?m)^  ([a-z]+) ", out.split("Subcommands:")[1]))
        self.assertIn("record", commands)
        offered = self.complete("")
        self.assertEqual({word for word in offered if not word.startswith("-")}, commands)
        common = {"--driver", "--virtual", "--virtual-state", "--reader", "--trace", "--replay", "--as"}
        self.assertLessEqual(common, offered)
        for command in sorted(commands):
            with self.subTest(command=command):
                wanted = self.options_of(command)
                self.assertLessEqual(wanted | common, self.complete(command, "-"))
                self.assertEqual({word for word in self.complete(command, "") if word[0] != "-"},
                                 set())

    def test_offers_values_and_files(self):
        self.assertEqual(self.complete("--virtual", ""), set(map(str, ALL_CARDS)))
        self.assertEqual(self.complete("info", "--as", ""), set(map(str, ALL_CARDS)))
        self.assertEqual(self.complete("sign", "--hash", "sha2"), {"sha224", "sha256"})
        self.assertEqual(self.complete("sign", "--scheme", ""), {"pkcs1", "pss", "ecdsa"})
        self.assertEqual(self.complete("--replay", "data"), {"data.txt"})
        self.assertEqual(self.complete("verify", "--pin", ""), set())


if __name__ == "__main__":
    cardhost_test.main()
