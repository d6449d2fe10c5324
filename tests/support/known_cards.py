"""What the tests expect of each card, by its type: tests/data/cards.json. Written out there, and not taken from the
programs under test.

Two variables of the environment let the same tests look at a card that is not there otherwise
(tests/system/new_card): KELMORA_TEST_DATA is another folder for tests/data, KELMORA_CARD_TYPES the only types
to be looked at, with commas between.
"""
import json
import os
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
DATA = pathlib.Path(os.environ.get("KELMORA_TEST_DATA", ROOT / "tests/data"))
RECORDINGS = DATA / "recordings"
_ONLY = os.environ.get("KELMORA_CARD_TYPES", "")

# All of them, whichever are to be looked at: {type: {"atr": ..., "hardwareId": ..., "keys": [...], "tries": {...}}}
ALL_CARDS = {int(card_type): card for card_type, card in json.loads((DATA / "cards.json").read_text()).items()}
CARDS = {card_type: card for card_type, card in ALL_CARDS.items()
         if not _ONLY or str(card_type) in _ONLY.split(",")}
ATRS = {card_type: card["atr"] for card_type, card in CARDS.items()}
# The keys of the containers, in order.
KEYS = {card_type: card["keys"] for card_type, card in CARDS.items()}
# Of PIN 1 and PIN 4, when none is lost.
TRIES = {pin: {card_type: card["tries"][str(pin)] for card_type, card in CARDS.items()} for pin in (1, 4)}
