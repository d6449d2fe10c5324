"""What a journey's bytes take on the wire, command by command, from the recordings."""
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[1]
RECORDINGS = ROOT / "tests/data/recordings"
LONGEST_BLOCK = 254  # bytes of a T=1 block's information field (ISO/IEC 7816-3, 11.4)
SPEEDS = {
    115_200: "contacts, 115,200 bits/s (ISO/IEC 7816-3: T=0 12 bit times a byte and a procedure byte a "
             "command, T=1 11 and 4 bytes around a block)",
    848_000: "contactless, 848,000 bits/s (ISO/IEC 14443-4: 9 bit times a byte, 3 bytes around a block)",
}


def blocks(length):
    return max(1, -(-length // LONGEST_BLOCK))


def seconds(out, back, protocol, speed):
    """The time on the wire of one command of `out` bytes and its reply of `back`."""
    if speed == 848_000:
        return 9 * (out + back + 3 * (blocks(out) + blocks(back))) / speed
    if protocol == "T=0":
        return 12 * (out + back + 1) / speed
    return 11 * (out + back + 4 * (blocks(out) + blocks(back))) / speed


def exchanges(card_type):
    """The calls of a recording: [(call, [(meaning, bytes out, bytes back), ...]), ...] and the protocol."""
    calls, protocol, out = [], "T=1", None
    text = (RECORDINGS / f"card-type-{card_type}.txt").read_text(encoding="utf-8")
    # What is too long for a line goes on, deeper, in the next ones.
    text = re.sub(r"\n {4}(?=(?:[0-9A-F]{2}|\*\*)\b)", " ", text)
    for line in text.splitlines():
        line = line.strip()
        if match := re.match(r"protocol (T=[01])", line, re.I):
            protocol = match[1]
        elif re.match(r"(Card\w+|Query of)", line):
            calls.append((line, []))
        elif line.startswith("> "):
            command, _, meaning = line[2:].partition("#")
            out = [meaning.strip(), len(command.split())]
        elif line.startswith("#") and out and not out[0]:
            out[0] = line[1:].strip()
        elif line.startswith("< ") and out and calls:
            reply = re.match(r"((?:[0-9A-F]{2} ?)+)", line[2:])
            calls[-1][1].append((out[0], out[1], len(reply[1].split()) if reply else 0))
            out = None
    return calls, protocol
