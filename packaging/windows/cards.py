"""The cards that the minidriver takes, as Windows' smart-card database and its device ids want them."""
import json
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
DLL = "kelmora-id-minidriver.dll"
DATABASE = r"Microsoft\Cryptography\Calais\SmartCards"
STRINGS = [
    ("Crypto Provider", "Microsoft Base Smart Card Crypto Provider"),
    ("Smart Card Key Storage Provider", "Microsoft Smart Card Key Storage Provider"),
    ("80000001", DLL),
]


def profiles(program):
    """Pairs (card type, ATR) of the product's own table, as the program print_card_profiles tells them."""
    text = subprocess.run([program], check=True, capture_output=True, text=True).stdout
    return [(row["type"], bytes.fromhex(row["atr"])) for row in json.loads(text)]


def rows(cards):
    """Rows (name, ATR, mask) of the database. Windows compares lengths too, while the minidriver takes
    each ATR with any one byte behind it as well: that is a row of its own, with a mask that leaves the
    byte out."""
    for number, atr in cards:
        name = f"Kelmora ID FINEID card type {number}"
        yield name, atr, b"\xff" * len(atr)
        yield f"{name} (longer ATR)", atr + b"\x00", b"\xff" * len(atr) + b"\x00"


def historical_bytes(atr):
    """What ISO/IEC 7816-3 calls so: behind T0 and the interface bytes that each TD announces."""
    count, announced, position = atr[1] & 0x0F, atr[1] >> 4, 2
    while announced:
        position += (announced & 7).bit_count()  # TA, TB, TC
        if not announced & 8:
            break
        announced = atr[position] >> 4  # TD
        position += 1
    found = atr[position:position + count]
    if len(found) != count:
        raise ValueError(f"the ATR {atr.hex()} ends within its historical bytes")
    return found


def hardware_id(atr):
    """How Windows names the device of a card that it has no other name for."""
    return r"SCFILTER\CID_" + historical_bytes(atr).hex()
