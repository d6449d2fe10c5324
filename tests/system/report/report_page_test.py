#!/usr/bin/env python3
"""Looks at the page of `cardhost report` in headless Chromium.

    report_page_test.py --cardhost build/native/cardhost [--screenshots FOLDER] [unittest arguments]

Chromium is spoken to over its debugging pipe; nothing listens on the network.
"""
import argparse
import base64
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "tests/support"))
from known_cards import CARDS, RECORDINGS  # pylint: disable=wrong-import-position

PHONE_WIDTH = 360
PATIENCE = 60

settings = argparse.Namespace(cardhost="", screenshots=None)


class Chromium:
    """A browser with one page, spoken to by the DevTools protocol."""

    def __init__(self, folder):
        to_browser, self.commands = os.pipe()
        self.answers, from_browser = os.pipe()

        def place_pipes():  # the browser reads from descriptor 3 and writes to 4
            os.dup2(to_browser, 50)
            os.dup2(from_browser, 51)
            os.dup2(50, 3)
            os.dup2(51, 4)

        self.process = subprocess.Popen(
            ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
             "--remote-debugging-pipe", f"--user-data-dir={folder}", "--no-first-run",
             "--disable-background-networking", "about:blank"],
            preexec_fn=place_pipes, close_fds=False, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.buffer = b""
        self.count = 0
        self.events = []
        self.session = None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(f"{domain}.enable")

    def close(self):
        os.close(self.commands)
        self.process.terminate()
        self.process.wait(PATIENCE)
        os.close(self.answers)

    def message(self):
        while b"\0" not in self.buffer:
            piece = os.read(self.answers, 1 << 20)
            if not piece:
                raise RuntimeError("the browser has ended")
            self.buffer += piece
        text, self.buffer = self.buffer.split(b"\0", 1)
        return json.loads(text)

    def call(self, method, **parameters):
        self.count += 1
        command = {"id": self.count, "method": method, "params": parameters}
        if self.session:
            command["sessionId"] = self.session
        os.write(self.commands, json.dumps(command).encode() + b"\0")
        while True:
            answer = self.message()
            if answer.get("id") == self.count:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)

    def open(self, path):
        self.events.clear()
        self.call("Page.navigate", url=path.as_uri())
        while not any(event.get("method") == "Page.loadEventFired" for event in self.events):
            self.events.append(self.message())

    def value(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"])
        return result["result"].get("value")

    def press(self, key, code):
        text = {"text": "\r"} if key == "Enter" else {}
        for kind in ("keyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=key,
                      windowsVirtualKeyCode=code, **(text if kind == "keyDown" else {}))

    def look(self, width=1100, height=900, scheme="light", media=""):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=width < 500)
        self.call("Emulation.setEmulatedMedia", media=media,
                  features=[{"name": "prefers-color-scheme", "value": scheme}])

    def screenshot(self, path):
        picture = self.call("Page.captureScreenshot", format="png")
        path.write_bytes(base64.b64decode(picture["data"]))


class ReportPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="report-"))
        cls.browser = Chromium(cls.folder / "browser")

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        shutil.rmtree(cls.folder, ignore_errors=True)

    def report(self, *arguments, name="report.html"):
        """Writes a page and opens it; gives what --trace told meanwhile."""
        page = self.folder / name
        page.unlink(missing_ok=True)
        done = subprocess.run([settings.cardhost, *map(str, arguments), "--out", page],
                              capture_output=True, text=True, timeout=PATIENCE, check=False)
        self.assertTrue(page.exists(), done.stderr[-2000:])
        self.browser.look()
        self.browser.open(page)
        return done.stderr

    def of_recording(self, card_type):
        return self.report("--replay", RECORDINGS / f"card-type-{card_type}.txt", "--trace", "report",
                           "--pin", "1234")

    def check_quiet(self):
        """No console message, and no request but for the page itself."""
        for event in self.browser.events:
            self.assertNotIn(event.get("method"),
                             ("Runtime.consoleAPICalled", "Runtime.exceptionThrown", "Log.entryAdded"),
                             event)
            if event.get("method") == "Network.requestWillBeSent":
                self.assertRegex(event["params"]["request"]["url"], r"^(file:.*report.*\.html|data:,)$")

    def test_has_as_many_arrows_as_the_conversation_and_says_nothing(self):
        for card_type in CARDS:
            with self.subTest(card_type=card_type):
                lines = self.of_recording(card_type).splitlines()
                count = lambda pattern: sum(bool(re.match(pattern, line)) for line in lines)
                expected = count(r"[A-Z](?!TR )") + count("  >") + count("  <") + count("  =")
                self.assertEqual(self.browser.value("document.querySelectorAll('.arrow').length"),
                                 expected)
                self.check_quiet()

    def test_details_open_by_keyboard(self):
        self.of_recording(5)
        # By Tab from line to line, as they stand on the page; what Enter opens has lines of its own.
        seen = "[...document.querySelectorAll('summary')].filter(s => s.checkVisibility())"
        at = f"{seen}.indexOf(document.activeElement)"
        is_open = "document.activeElement.parentElement.open"
        opened = 0
        for line in range(40):
            self.browser.press("Tab", 9)
            self.assertEqual(self.browser.value(at), line)
            if self.browser.value(is_open):
                continue
            opened += 1
            self.browser.press("Enter", 13)
            self.assertTrue(self.browser.value(is_open))
            inside = "document.activeElement.nextElementSibling.checkVisibility()"
            self.assertTrue(self.browser.value(inside))
        self.assertGreater(opened, 20)
        self.browser.press("Enter", 13)
        self.assertFalse(self.browser.value(is_open), "and closes again")

    def test_printed_it_shows_what_closed_details_hold(self):
        self.of_recording(5)
        hidden = ("[...document.querySelectorAll('details > :not(summary)')]"
                  ".filter(e => !e.checkVisibility() || e.getBoundingClientRect().height === 0).length")
        self.assertGreater(self.browser.value(hidden), 20, "on a screen most are closed")
        self.browser.look(media="print", width=800)
        self.assertEqual(self.browser.value(hidden), 0)
        self.assertLessEqual(self.browser.value("document.documentElement.scrollWidth"), 800)

    def test_printed_it_is_dark_on_light_on_a_dark_screen_too(self):
        self.of_recording(5)
        colours = "(s => s.color + ' on ' + s.backgroundColor)(getComputedStyle(document.body))"
        self.browser.look(media="print", scheme="dark")
        self.assertEqual(self.browser.value(colours), "rgb(0, 0, 0) on rgb(255, 255, 255)")
        self.browser.look(scheme="dark")
        self.assertNotIn("on rgb(255, 255, 255)", self.browser.value(colours))

    def test_details_open_by_a_click(self):
        self.of_recording(5)
        self.assertTrue(self.browser.value(
            "(() => { const d = document.querySelector('details.call:not([open])');"
            " d.querySelector('summary').click(); return d.open; })()"))

    def test_fits_a_phone(self):
        self.of_recording(4)
        self.browser.value("document.querySelectorAll('details').forEach(d => d.open = true)")
        for width in (PHONE_WIDTH, 320, 1100):
            self.browser.look(width=width)
            self.assertLessEqual(self.browser.value("document.documentElement.scrollWidth"), width)
            gaps = ("[...document.querySelectorAll('.heads span')].map(e => { const r = document.createRange();"
                    " r.selectNodeContents(e); return r.getBoundingClientRect(); })"
                    ".map((r, i, all) => i ? r.left - all[i - 1].right : 99)")
            self.assertGreaterEqual(min(self.browser.value(gaps)), 4, "the lanes' names stand apart")

    def test_has_enough_contrast_in_light_and_dark(self):
        # A wrong PIN: good and bad stand on one page.
        self.report("--virtual", "5", "report", "--pin", "9999")
        for colour in ("goodtext", "badtext", "outcome.bad", "arrow.trial"):
            self.assertGreater(self.browser.value(f"document.querySelectorAll('.{colour}').length"), 0)
        contrast = """(() => {
            const numbers = text => text.match(/[\\d.]+/g).map(Number);
            const light = colour => numbers(colour).slice(0, 3).map(v => v / 255)
                .map(v => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4)
                .reduce((sum, v, i) => sum + v * [0.2126, 0.7152, 0.0722][i], 0);
            const back = element => { for (; element; element = element.parentElement) {
                const colour = getComputedStyle(element).backgroundColor;
                if (numbers(colour)[3] !== 0) return colour; } return 'rgb(255,255,255)'; };
            let least = 99;
            for (const element of document.querySelectorAll('.what,.dim,.badtext,.goodtext,.uncleartext,dt,dd,h1,h2,.outcome,.side')) {
                const a = light(getComputedStyle(element).color), b = light(back(element));
                least = Math.min(least, (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05));
            }
            return least; })()"""
        def check():
            for scheme in ("light", "dark"):
                self.browser.look(scheme=scheme)
                self.assertGreaterEqual(self.browser.value(contrast), 4.5, scheme)

        check()
        # And a log that breaks off.
        log = self.folder / "cut.log"
        log.write_text("[2026-01-01 10:00:00] [CardAcquireContext] Entering the function\n"
                       "[2026-01-01 10:00:00] [CardAcquireContext] Entering RegisterCard\n"
                       "[2026-01-01 10:00:00] [CardSignData] Entering the function, with parameters, x\n")
        self.report("report", "--log", log)
        for colour in ("uncleartext", "outcome.unclear"):
            self.assertEqual(self.browser.value(f"document.querySelectorAll('.{colour}').length"), 1)
        check()

    def test_what_a_hostile_card_says_stays_text(self):
        text = (RECORDINGS / "card-type-5.txt").read_text()
        # The name in the certificates, and the label of a key; each would call for something from elsewhere.
        for said, hostile in ((b"KORTTINEN", b"<b id=x>Z"), (b"authentication key", b"<img src=y id=x>XY"),
                              (b"signature key", b"'><i id=x></i")):
            self.assertEqual(len(said), len(hostile))
            # A line may end between two bytes.
            text, count = re.subn(r"\s+".join(f"{byte:02X}" for byte in said), lambda match, new=hostile: "".join(
                f"{byte:02X}{blank}" for byte, blank in zip(new, [*re.findall(r"\s+", match[0]), ""])), text)
            self.assertGreater(count, 0, said)
        name = self.folder / "hostile.txt"
        name.write_text(text)
        self.report("--replay", name, "report", "--pin", "1234")
        self.browser.value("document.querySelectorAll('details').forEach(d => d.open = true)")
        self.assertEqual(self.browser.value("document.querySelectorAll('#x').length"), 0)
        for shown in ("<b id=x>Z", "<img src=y id=x>XY", "'><i id=x></i"):
            self.assertIn(shown, self.browser.value("document.body.innerText"))
        self.check_quiet()

    def test_what_a_hostile_log_says_stays_text(self):
        log = self.folder / "hostile.log"
        log.write_text("[2026-01-01 10:00:00] [CardAcquireContext] Entering the function\n"
                       "[2026-01-01 10:00:00] [CardAcquireContext] <img src=http://127.0.0.1/ id=x>\n")
        self.report("report", "--log", log)
        self.assertEqual(self.browser.value("document.querySelectorAll('#x').length"), 0)
        self.assertIn("<img src=http://127.0.0.1/ id=x>", self.browser.value(
            "document.querySelectorAll('details').forEach(d => d.open = true), document.body.innerText"))
        self.check_quiet()

    def test_screenshots(self):
        folder = settings.screenshots
        if folder is None:
            self.skipTest("no folder given for them")
        folder.mkdir(parents=True, exist_ok=True)
        self.of_recording(6)
        # The acquisition, and in it a command whose reply is shown as what it is made of.
        self.browser.value("(() => { const call = document.querySelector('details.call');"
                           " call.open = true; call.querySelectorAll('details')[1].open = true; })()")
        for name, look in (("light", {}), ("dark", {"scheme": "dark"}),
                           ("phone", {"width": PHONE_WIDTH, "height": 1600}),
                           ("print", {"media": "print", "width": 800, "height": 1100})):
            self.browser.look(**look)
            self.browser.screenshot(folder / f"report-{name}.png")
            self.browser.value("[...document.querySelectorAll('h2')].pop().scrollIntoView()")
            self.browser.screenshot(folder / f"report-{name}-diagram.png")
            self.browser.value("scrollTo(0, 0)")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cardhost", required=True, help="the program that writes the page")
    parser.add_argument("--screenshots", type=pathlib.Path, help="where pictures of it go")
    known, rest = parser.parse_known_args()
    settings.cardhost = str(pathlib.Path(known.cardhost).resolve())
    settings.screenshots = known.screenshots
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
