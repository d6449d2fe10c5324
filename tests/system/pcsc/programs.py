"""The programs around a reader: the PC/SC daemon with its virtual reader driver, the virtual card,
and the independent clients pcsc_scan and scriptor."""
import contextlib
import ctypes
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import threading
import time

READERS = ("Virtual PCD 00 00", "Virtual PCD 00 01")
PORTS = (35963, 35964)  # where the driver waits for a card of each reader
DAEMON_SOCKET = "/run/pcscd/pcscd.comm"
PATIENCE = 120  # seconds; nothing here takes more than a few

_die_with_parent = ctypes.CDLL(None).prctl
_PR_SET_PDEATHSIG = 1


def _end_with_the_test():
    _die_with_parent(_PR_SET_PDEATHSIG, signal.SIGKILL)


def wait_for(what, condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"{what} did not come within {PATIENCE} seconds")
        time.sleep(0.02)


def run(*command, stdin=""):
    """Runs a program to its end. One that hangs is ended and fails the test."""
    return subprocess.run([str(part) for part in command], input=stdin, capture_output=True,
                          encoding="utf-8", errors="replace", timeout=PATIENCE, check=False)


@contextlib.contextmanager
def program(*command):
    """A program that runs beside the test, and no longer than the test."""
    with subprocess.Popen([str(part) for part in command], stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          preexec_fn=_end_with_the_test) as started:
        try:
            yield started
        finally:
            started.terminate()
            try:
                started.wait(timeout=PATIENCE)
            except subprocess.TimeoutExpired:
                started.kill()


# The daemon -----------------------------------------------------------------------------------

def missing_programs():
    """The names of what has to be installed first."""
    missing = [name for name in ("pcscd", "pcsc_scan", "scriptor", "openssl")
               if shutil.which(name) is None]
    if not list(pathlib.Path("/etc/reader.conf.d").glob("vpcd*")):
        missing.append("vsmartcard-vpcd")
    return missing


def daemon_answers():
    with socket.socket(socket.AF_UNIX) as client:
        return client.connect_ex(DAEMON_SOCKET) == 0


def port_is_taken(port):
    with socket.socket() as client:
        return client.connect_ex(("127.0.0.1", port)) == 0


def listed_readers():
    return re.findall(r"^\d+: (.*)$", run("pcsc_scan", "-r").stdout, re.M)


@contextlib.contextmanager
def daemon():
    with program("pcscd", "--foreground") as started:
        wait_for("the PC/SC daemon with its readers",
                 lambda: started.poll() is not None or set(READERS) <= set(listed_readers()))
        if started.poll() is not None:
            raise AssertionError(f"pcscd ended with {started.returncode}")
        yield started


# What an independent client sees ---------------------------------------------------------------

def seen_cards():
    """What pcsc_scan sees in each reader: the ATR in hexadecimal digits, or None without a card."""
    text = run("pcsc_scan", "-c").stdout
    cards = {}
    for reader in re.split(r"^ Reader \d+: ", text, flags=re.M)[1:]:
        atr = re.search(r"^  ATR: ([0-9A-F ]+)$", reader, re.M)
        cards[reader.splitlines()[0]] = atr[1].replace(" ", "") if atr else None
    return cards


# The virtual card -----------------------------------------------------------------------------

@contextlib.contextmanager
def card_in(reader, virtual_card, card_type, *options):
    """A virtual card of that type in the reader with that number, from when the daemon sees it."""
    name = READERS[reader]
    with program(virtual_card, "--generation", card_type, "--port", PORTS[reader],
                 *options) as card:
        wait_for("a card in the reader", lambda: seen_cards().get(name))
        yield card
    wait_for("an empty reader", lambda: not daemon_answers() or seen_cards().get(name) is None)


@contextlib.contextmanager
def foreign_card_in(reader, atr):
    """A card of somebody else's with that ATR: it knows no command."""
    ask_for_atr, not_supported = b"\x04", b"\x6d\x00"

    def answer(driver):
        with contextlib.suppress(OSError, EOFError):
            while True:
                message = _receive(driver)
                if message == ask_for_atr:
                    _send(driver, atr)
                elif len(message) > 1:
                    _send(driver, not_supported)

    name = READERS[reader]
    with socket.create_connection(("127.0.0.1", PORTS[reader]), timeout=PATIENCE) as driver:
        driver.settimeout(None)
        thread = threading.Thread(target=answer, args=(driver,))
        thread.start()
        try:
            wait_for("a card in the reader", lambda: seen_cards().get(name))
            yield
        finally:
            driver.shutdown(socket.SHUT_RDWR)
            thread.join(PATIENCE)
    wait_for("an empty reader", lambda: seen_cards().get(name) is None)


class Cable:
    """The virtual card at the first reader, over a cable that tells what goes through it: what
    happens at a command happens before the card sees it."""

    def __init__(self, virtual_card, card_type, at_command):
        """`at_command` gets each command and the card's process; with True the cable is cut, and bytes
        are an answer that the card is not asked for."""
        self.commands = []
        self._virtual_card = virtual_card
        self._card_type = card_type
        self._at_command = at_command
        self._sockets = []
        self._ended = threading.Event()

    def __enter__(self):
        with contextlib.ExitStack() as stack:
            with socket.create_server(("127.0.0.1", 0)) as waiting:
                waiting.settimeout(PATIENCE)
                card = stack.enter_context(
                    program(self._virtual_card, "--generation", self._card_type, "--port",
                            waiting.getsockname()[1]))
                to_card = waiting.accept()[0]
            to_driver = socket.create_connection(("127.0.0.1", PORTS[0]), timeout=PATIENCE)
            for end in (to_card, to_driver):
                end.settimeout(None)
                end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self._sockets = [to_driver, to_card]
            thread = threading.Thread(target=self._carry, args=(to_driver, to_card, card))
            thread.start()
            stack.callback(thread.join, PATIENCE)
            stack.callback(self._cut)
            wait_for("a card in the reader", lambda: seen_cards().get(READERS[0]))
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *error):
        return self._stack.__exit__(*error)

    def was_cut(self):
        """Waits for the end of the cable; says whether a command did it."""
        return self._ended.wait(PATIENCE)

    def _cut(self):
        for end in self._sockets:
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)
            end.close()

    def _carry(self, to_driver, to_card, card):
        ask_for_atr = b"\x04"
        with contextlib.suppress(OSError, EOFError):
            while True:
                message = _receive(to_driver)
                if len(message) > 1:
                    self.commands.append(message)
                    answer = self._at_command(message, card)
                    if isinstance(answer, bytes):
                        _send(to_driver, answer)
                        continue
                    if answer:
                        self._ended.set()
                        break
                _send(to_card, message)
                if len(message) > 1 or message == ask_for_atr:
                    _send(to_driver, _receive(to_card))
        self._cut()


def _receive(connection):
    length = int.from_bytes(_receive_all(connection, 2), "big")
    return _receive_all(connection, length)


def _receive_all(connection, length):
    message = b""
    while len(message) < length:
        part = connection.recv(length - len(message))
        if not part:
            raise EOFError
        message += part
    return message


def _send(connection, message):
    connection.sendall(len(message).to_bytes(2, "big") + message)
