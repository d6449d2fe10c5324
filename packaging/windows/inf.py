"""The INF: written from its source in this folder, and read again."""
import datetime
import pathlib
import re

from cards import DATABASE, STRINGS, hardware_id, rows
from registration import VIEWS

SOURCE = pathlib.Path(__file__).with_name("kelmora-id-minidriver.inf.in")
BINARY, TEXT = 0x00000001, 0x00000000  # FLG_ADDREG_BINVALUETYPE, FLG_ADDREG_TYPE_SZ


def devices(cards, architecture):
    return "\n".join(f"%Card{number}% = Install_{architecture}, {hardware_id(atr)}" for number, atr in cards)


def database(cards, software):
    lines = []
    for name, atr, mask in rows(cards):
        key = rf'HKLM, "{software}\{DATABASE}\{name}"'
        for value, content in (("ATR", atr), ("ATRMask", mask)):
            lines.append(f'{key}, "{value}", 0x{BINARY:08x}, {content.hex(",")}')
        lines.extend(f'{key}, "{value}", 0x{TEXT:08x}, "{content}"' for value, content in STRINGS)
    return "\n".join(lines)


def write(cards, version, date):
    """The text of the INF; the date is that of the version, YYYY-MM-DD."""
    values = {
        "VERSION": version,
        "DRIVER_DATE": f"{datetime.date.fromisoformat(date):%m/%d/%Y}",
        **{f"DEVICES_{name.upper()}": devices(cards, name) for name in ("amd64", "x86", "arm64")},
        "DATABASE": database(cards, VIEWS[0]),
        "DATABASE32": database(cards, VIEWS[1]),
        "CARD_NAMES": "\n".join(f'Card{number}  = "Kelmora ID FINEID card type {number}"'
                                for number, _ in cards),
    }
    text = re.sub(r"@(\w+)@", lambda name: values[name[1]], SOURCE.read_text(encoding="utf-8"))
    return text.replace("\n", "\r\n")


def sections(text):
    """The lines of each section, comments and blanks taken off, strings put in; by lower-case name."""
    found, current = {}, None
    for line in text.splitlines():
        line = re.sub(r';(?=(?:[^"]*"[^"]*")*[^"]*$).*', "", line).strip()
        if line.startswith("["):
            current = found.setdefault(line.strip("[]").lower(), [])
        elif line:
            current.append(line)
    strings = {name.strip().lower(): value.strip().strip('"')
               for name, value in (line.split("=", 1) for line in found.get("strings", []))}
    return {name: [re.sub(r"%([^%]+)%", lambda key: strings[key[1].lower()], line) for line in lines]
            for name, lines in found.items()}


def pairs(lines):
    """The "name = value" lines of a section, names in lower case."""
    return {name.strip().lower(): value.strip()
            for name, value in (line.split("=", 1) for line in lines if "=" in line)}


def read_database(text):
    """The views that the INF's AddReg sections write, by software key, values by card name."""
    views = {}
    found = sections(text)
    for section in ("database", "database32"):
        for line in found[section]:
            fields = re.fullmatch(r'HKLM, "(.+?)", "(.+?)", (0x\d+), (?:"(.*)"|(.*))', line)
            key = re.fullmatch(rf"(.+?)\\{re.escape(DATABASE)}\\(.+)", fields[1])
            binary = int(fields[3], 16) == BINARY
            views.setdefault(key[1], {}).setdefault(key[2], {})[fields[2]] = (
                bytes.fromhex(fields[5].replace(",", "")) if binary else fields[4])
    return views
