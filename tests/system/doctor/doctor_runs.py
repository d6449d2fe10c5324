"""How the tests of the doctor run it, and what they take from its report."""
import argparse
import contextlib
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile
import unittest

REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(REPOSITORY / "tests/support"))
from doctor_report import assert_finds, findings_of  # pylint: disable=wrong-import-position

OK, NOT_FOUND, FILE, UNWELL = 0, 2, 6, 8

settings = argparse.Namespace(cardhost="", launcher=[], prefix=None)


def take_options(parser, prefix):
    """The options of every script here; in Wine it has that prefix of its own. Gives them, and those of unittest."""
    parser.add_argument("--cardhost", required=True)
    parser.add_argument("--launcher", default="")
    options, others = parser.parse_known_args()
    settings.cardhost = str(pathlib.Path(options.cardhost).resolve())
    settings.launcher = shlex.split(options.launcher)
    if settings.launcher:
        settings.launcher[0] = str(pathlib.Path(settings.launcher[0]).resolve())
        settings.prefix = REPOSITORY / "build/wine" / prefix
        os.environ["WINEPREFIX"] = str(settings.prefix)
    return options, others


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


def keep_wine():
    """A program that keeps Wine's own ones running until it is let go: their start takes a while on a busy machine."""
    return subprocess.Popen([*settings.launcher, "cmd"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)


def let_go(keeper):
    keeper.stdin.close()
    keeper.wait()


def log_folder():
    """Where the driver writes its log, if the folder is there."""
    if settings.prefix is None:
        return pathlib.Path("/var/log/kelmora-id-minidriver")
    return settings.prefix / "drive_c/Program Files/Kelmora-ID-minidriver/Log"


class DoctorTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="doctor-")))

    def doctor(self, *arguments, card=3):
        """Exit code and report of a look at the machine: with a virtual card of that type, or with
        what is chosen by options, or with the readers of the machine."""
        if isinstance(card, int):
            card = ("--virtual", card)
        code, out, error = run(*settings.launcher, settings.cardhost, *(card or ()), "doctor", *arguments,
                               cwd=self.folder)
        self.assertIn(code, (OK, UNWELL), out + error)
        return code, out

    def findings(self, *arguments, card=3):
        """What a look finds (findings_of); the exit code has to fit."""
        code, out = self.doctor("--json", *arguments, card=card)
        found = findings_of(out)
        self.assertEqual(code == UNWELL, any(name.startswith("problem ") for name in found), found)
        return found

    def assert_finds(self, found, expected, text):
        assert_finds(self, found, expected, text)


def not_well(found):
    return {name for name in found if not name.startswith("well ")}


@contextlib.contextmanager
def variable(name, value):
    """A variable of the environment; None is none."""
    if value is not None:
        os.environ[name] = value
    try:
        yield
    finally:
        os.environ.pop(name, None)
