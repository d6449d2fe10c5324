#!/usr/bin/env python3
"""Checks what registers the minidriver with Windows: finds each card in it the way Windows does, in the
registration file, in the MSIs and in the INF of a folder, and looks at the form of the INF.

Usage: packaging/windows/check_registration.py FOLDER PRINT_CARD_PROFILES

Prints one line for each check, beginning with "ok" or "not ok".
"""
import pathlib
import re
import sys

import cards as cards_module
import inf
from checks import Checks
from registration import (VIEWS, expected, find_card, matching_cards, read_msi, read_registration_file)

sys.path.insert(0, str(cards_module.ROOT / "tests/support"))
from known_cards import ALL_CARDS  # pylint: disable=wrong-import-position

# What Windows calls a card that has no name of its own, as its device shows it: written out, so that
# the way from the ATR to it is checked against something.
HARDWARE_IDS = {number: card["hardwareId"] for number, card in ALL_CARDS.items()}


def other_lengths_and_bits(atr):
    """What is no card of ours: one byte short, two long, and each bit the other way, also with the one
    further byte that is allowed."""
    yield "one byte shorter", atr[:-1]
    yield "two bytes longer", atr + b"\x00\x00"
    for bit in range(len(atr) * 8):
        changed = bytearray(atr)
        changed[bit // 8] ^= 1 << bit % 8
        yield f"bit {bit} changed", bytes(changed)
        yield f"bit {bit} changed and a byte behind", bytes(changed) + b"\xda"


def check_view(checks, where, view, cards):
    """One view of the database, by what Windows makes of it."""
    wrong = [name for name, row in view.items() if len(row["ATR"]) != len(row["ATRMask"])]
    checks.equal(f"{where}: every mask is as long as its ATR", wrong, [])
    wrong = [name for name, row in view.items() if any(a & ~m & 0xFF for a, m in zip(row["ATR"], row["ATRMask"]))]
    checks.equal(f"{where}: bytes that the mask leaves out are 0", wrong, [])
    for number, atr in cards:
        ours = {f"Kelmora ID FINEID card type {number}", f"Kelmora ID FINEID card type {number} (longer ATR)"}
        found = [matching_cards(view, atr + extra) for extra in (b"", *(bytes([b]) for b in range(256)))]
        wrong = [names for names in found if len(names) != 1 or names[0] not in ours]
        checks.equal(f"{where}: type {number} matches one row, with any further byte too", wrong, [])
        known = {atr for _, atr in cards}
        wrong = [f"{how}: {find_card(view, other)}" for how, other in other_lengths_and_bits(atr)
                 if find_card(view, other) and not {other, other[:-1]} & known]
        checks.equal(f"{where}: what differs from type {number} matches none", wrong, [])
    checks.equal(f"{where}: the check byte that belongs behind the ATR of type 6 is DA",
                 with_check_byte(dict(cards)[6])[-1], 0xDA)
    checks.equal(f"{where}: a card of type 6 as it is, its check byte behind, takes the longer row",
                 find_card(view, with_check_byte(dict(cards)[6])), "Kelmora ID FINEID card type 6 (longer ATR)")


def with_check_byte(atr):
    """The ATR with TCK behind, which ISO/IEC 7816-3 asks for where T=1 is offered: all bytes from T0 to
    it give 0 by exclusive or."""
    check_byte = 0
    for byte in atr[1:]:
        check_byte ^= byte
    return atr + bytes([check_byte])


def check_inf_form(checks, text, cards):
    """What Windows' rules for driver packages ask of the INF."""
    sections = inf.sections(text)
    version = inf.pairs(sections["version"])
    checks.equal("the INF is of the class SmartCard", (version["class"], version["classguid"].upper()),
                 ("SmartCard", "{990A2BD7-E738-46C7-B26F-1CF8FB9F1391}"))
    checks.equal("the INF locks its files down", version.get("pnplockdown"), "1")
    checks.check("the INF names its catalogue", version.get("catalogfile", "").endswith(".cat"))
    checks.check("the INF has a date and a version of four numbers",
                 re.fullmatch(r"\d\d/\d\d/\d{4},\d+\.\d+\.\d+\.\d+", version["driverver"]), version["driverver"])
    checks.check("the INF is not there to be installed by hand",
                 not any(name.startswith("defaultinstall") for name in sections))
    manufacturer = [part.strip() for part in sections["manufacturer"][0].split("=")[1].split(",")]
    checks.equal("the INF serves three architectures", manufacturer[1:], ["NTamd64", "NTx86", "NTarm64"])

    sources = [line.split("=")[0].strip() for line in sections["sourcedisksfiles"]]
    checks.equal("the INF's files have names of their own in all architectures",
                 len({name.lower() for name in sources}), len(sources))
    used = set()
    expected_ids = [inf_id.lower() for _, inf_id in sorted(HARDWARE_IDS.items())]
    for architecture in manufacturer[1:]:
        models = sections[f"{manufacturer[0]}.{architecture}".lower()]
        ids = [line.split("=")[1].split(",") for line in models]
        checks.check(f"{architecture}: each device has one hardware id and no compatible one",
                     all(len(parts) == 2 for parts in ids))
        checks.equal(f"{architecture}: the hardware ids are those of the cards",
                     sorted(parts[1].strip().lower() for parts in ids), sorted(expected_ids))
        for install in {parts[0].strip().lower() for parts in ids}:
            lists = inf.pairs(sections[f"{install}.nt"])
            for copied in (name.strip().lower() for name in lists["copyfiles"].split(",")):
                used.update(line.split(",")[-1].strip() for line in sections[copied])
                checks.check(f"{architecture}: {copied} has a destination",
                             copied in inf.pairs(sections["destinationdirs"]))
            checks.equal(f"{architecture}: writes the views of the database that its Windows has",
                         lists["addreg"].lower().replace(" ", ""),
                         "database" if architecture == "NTx86" else "database,database32")
            checks.equal(f"{architecture}: no service goes with a card",
                         inf.pairs(sections[f"{install}.nt.services"])["addservice"].replace(" ", ""), ",2")
    checks.equal("the INF copies what it lists, and lists what it copies", used, set(sources))


def main():
    folder, program = pathlib.Path(sys.argv[1]), sys.argv[2]
    checks = Checks("registration")
    cards = cards_module.profiles(program)
    checks.equal("the cards are those of the tests, ATRs and all", [(number, atr.hex()) for number, atr in cards],
                 [(number, card["atr"]) for number, card in ALL_CARDS.items()])
    for number, atr in cards:
        checks.equal(f"type {number}: the hardware id follows from the ATR", cards_module.hardware_id(atr),
                     HARDWARE_IDS.get(number))

    registered = {"kelmora-id-minidriver.reg": read_registration_file(
        (folder / "kelmora-id-minidriver.reg").read_text(encoding="ascii"))}
    for msi in sorted(folder.glob("*.msi")):
        registered[msi.name] = read_msi(msi)
    text = (folder / "driver/kelmora-id-minidriver.inf").read_text(encoding="utf-8")
    registered["INF"] = inf.read_database(text)
    for name, views in registered.items():
        wanted = VIEWS[:1] if name.endswith("-x86.msi") else VIEWS
        checks.equal(f"{name}: writes the views of its Windows", sorted(views), wanted)
        for software, view in views.items():
            checks.check(f"{name}: {software} holds the rows of the cards and no others",
                         view == expected(cards))
    check_view(checks, "the database", expected(cards), cards)
    check_inf_form(checks, text, cards)
    return checks.exit_code()


if __name__ == "__main__":
    sys.exit(main())
