"""What registers the minidriver with Windows, written and read in its three forms: the registration
file, the MSI's table and the INF. And how Windows finds a card in it."""
import csv
import io
import re
import subprocess

from cards import DATABASE, STRINGS, rows

VIEWS = ["SOFTWARE", r"SOFTWARE\Wow6432Node"]  # of 64-bit and of 32-bit programs


def registration_file(cards):
    lines = ["Windows Registry Editor Version 5.00", ""]
    for software in VIEWS:
        for name, atr, mask in rows(cards):
            lines.append(rf"[HKEY_LOCAL_MACHINE\{software}\{DATABASE}\{name}]")
            lines.append('"ATR"=hex:' + atr.hex(","))
            lines.append('"ATRMask"=hex:' + mask.hex(","))
            lines.extend(f'"{value}"="{content}"' for value, content in STRINGS)
            lines.append("")
    return "\r\n".join(lines) + "\r\n"


def expected(cards):
    """One view of the database: values by card name, as the readers below give them."""
    return {name: {"ATR": atr, "ATRMask": mask, **dict(STRINGS)} for name, atr, mask in rows(cards)}


def read_registration_file(text):
    """The views of a .reg file: by software key, values by card name."""
    views, current = {}, None
    for line in text.replace("\\\r\n  ", "").replace("\\\n  ", "").splitlines():
        if line.startswith("["):
            key = re.fullmatch(rf"\[HKEY_LOCAL_MACHINE\\(.+?)\\{re.escape(DATABASE)}(?:\\(.+))?\]", line, re.I)
            current = None
            if key and key[2]:
                current = views.setdefault(key[1].replace("Software", "SOFTWARE"), {}).setdefault(key[2], {})
        elif current is not None and (value := re.fullmatch(r'"(.+?)"=(?:hex:(.*)|"(.*)")', line)):
            current[value[1]] = value[3] if value[2] is None else bytes.fromhex(value[2].replace(",", ""))
    return views


def msi_table(msi, table):
    """The rows of an MSI's table, as dictionaries by column."""
    text = subprocess.run(["msiinfo", "export", msi, table], check=True, capture_output=True,
                          text=True).stdout
    lines = list(csv.reader(io.StringIO(text), delimiter="\t", quoting=csv.QUOTE_NONE))
    return [dict(zip(lines[0], line)) for line in lines[3:]]


def read_msi(msi):
    """The views that an MSI writes: 64-bit components see SOFTWARE, others Wow6432Node on a 64-bit
    Windows."""
    wide = {row["Component"]: int(row["Attributes"]) & 256 for row in msi_table(msi, "Component")}
    native = VIEWS[1] if any(wide.values()) else VIEWS[0]
    views = {}
    for row in msi_table(msi, "Registry"):
        key = re.fullmatch(rf"SOFTWARE\\{re.escape(DATABASE)}\\(.+)", row["Key"])
        if not key or row["Root"] != "2":
            raise ValueError(f"{msi}: writes {row}")
        view = views.setdefault(VIEWS[0] if wide[row["Component_"]] else native, {})
        value = row["Value"]
        view.setdefault(key[1], {})[row["Name"]] = bytes.fromhex(value[2:]) if value.startswith("#x") else value
    return views


def find_card(view, atr):
    """The name of the row that Windows takes for a card: the first, in the order of the keys' names,
    whose ATR has the card's length and equals the card's under the mask. None where there is none."""
    for name in sorted(view, key=str.upper):
        stored, mask = view[name]["ATR"], view[name]["ATRMask"]
        if len(stored) == len(atr) and bytes(a & m for a, m in zip(atr, mask)) == stored:
            return name
    return None


def matching_cards(view, atr):
    """Every row that would do, whatever stands ahead of it."""
    return [name for name in view if find_card({name: view[name]}, atr)]
