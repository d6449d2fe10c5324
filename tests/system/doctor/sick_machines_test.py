#!/usr/bin/env python3
"""Lets the doctor look at a Wine prefix that is well, and at the same prefix made sick in one way: ROWS.

    sick_machines_test.py --cardhost build/windows-x64/cardhost.exe --launcher "tools/run_in_wine.sh x64"
                          --readers winscard.dll --dialog CodeEntryLibrary.dll [unittest arguments]

The winscard.dll is that of readers.cpp; the tests have a prefix of their own, build/wine/sick.
"""
import argparse
import contextlib
import getpass
import http.server
import os
import pathlib
import re
import shutil
import socket
import socketserver
import struct
import subprocess
import sys
import threading
import typing
import unittest

import doctor_runs
from doctor_runs import NOT_FOUND, OK, REPOSITORY, DoctorTest, not_well, run, settings
from known_cards import ALL_CARDS, RECORDINGS

DLL = "kelmora-id-minidriver.dll"
WIDE, NARROW = r"SOFTWARE", r"SOFTWARE\Wow6432Node"
DATABASE = r"Microsoft\Cryptography\Calais\SmartCards"
LSA = r"SYSTEM\CurrentControlSet\Control\Lsa"
APP_CONTROL = r"SYSTEM\CurrentControlSet\Control\CI\Policy"
WINDOWS = WIDE + r"\Microsoft\Windows NT\CurrentVersion"
POLICIES = WIDE + r"\Policies\Microsoft\Windows"
LOGON = POLICIES + r"\SmartCardCredentialProvider"
REMOTE = WIDE + r"\Policies\Microsoft\Windows NT\Terminal Services"
SETTINGS = r"Kelmora\KelmoraID"
RUN = NARROW + r"\Microsoft\Windows\CurrentVersion\Run"
SERVICES = r"SYSTEM\CurrentControlSet\Services"
ATR = {card_type: bytes.fromhex(card["atr"]) for card_type, card in ALL_CARDS.items()}

built = argparse.Namespace(x64=None, x86=None, readers=None, dialog=None)


# The registry, as text for reg import ----------------------------------------------------------

def data(value):
    if value is None:
        return "-"
    if isinstance(value, int):
        return f"dword:{value:08x}"
    if isinstance(value, bytes):
        return "hex:" + value.hex(",")
    return '"' + value.replace("\\", "\\\\").replace('"', '\\"') + '"'


def key(name, **values):
    """A key of HKEY_LOCAL_MACHINE with these values; with None for a value it goes."""
    return "\n".join([rf"[HKEY_LOCAL_MACHINE\{name}]",
                      *(f'"{value}"={data(content)}' for value, content in values.items())]) + "\n"


def no_key(name):
    return rf"[-HKEY_LOCAL_MACHINE\{name}]" + "\n"


def row(view, card_type):
    return rf"{view}\{DATABASE}\Kelmora ID FINEID card type {card_type}"


def card_row(name, atr, mask, **values):
    texts = {"Crypto Provider": "Microsoft Base Smart Card Crypto Provider",
             "Smart Card Key Storage Provider": "Microsoft Smart Card Key Storage Provider",
             "80000001": DLL}
    return key(name, ATR=atr, ATRMask=mask, **{**texts, **values})


def registration():
    """Of all cards, each in both lengths of its ATR, in both views."""
    for view in (WIDE, NARROW):
        yield no_key(rf"{view}\{DATABASE}")
        for card_type, atr in ATR.items():
            mask = b"\xff" * len(atr)
            yield card_row(row(view, card_type), atr, mask)
            yield card_row(row(view, card_type) + " (longer ATR)", atr + b"\0", mask + b"\0")


ON_DEMAND, DISABLED = 3, 4


def service(name, start=ON_DEMAND):
    return no_key(rf"{SERVICES}\{name}") + key(
        rf"{SERVICES}\{name}", ImagePath=r"C:\windows\system32\svchost.exe", Start=start, Type=0x20,
        ErrorControl=1, ObjectName="LocalSystem")


# What a healthy machine has; imported, it heals a sick one.
SOUND_SERVICES = "".join(map(service, ("SCardSvr", "ScDeviceEnum", "CertPropSvc")))
SOUND = "".join([
    *registration(), *map(no_key, (rf"{WIDE}\{SETTINGS}", rf"{NARROW}\{SETTINGS}", REMOTE, POLICIES + r"\CertProp")),
    key(WINDOWS, CurrentBuildNumber="19045"), key(LSA, RunAsPPL=0), key(RUN, **{"Kelmora ID": None}),
    key(APP_CONTROL, VerifiedAndReputablePolicyState=0), key(POLICIES + r"\ScPnP", EnableScPnP=0),
    key(LOGON, EnumerateECCCerts=1, AllowCertificatesWithNoEKU=1, X509HintsNeeded=1)])

# What the doctor finds there: nothing is wrong, and a note says that the DLLs have no signature.
UNSIGNED = {"note driver.signature"}
HEALTHY = UNSIGNED | {
    "well registration.rows", "well driver.file", "well platform.service", "well platform.lsa",
    "well platform.app-control", "well readers.card", "well settings.none", "well dialog.none", "well log.off",
    "well card.acquired", "well card.files", "well card.certificate", "well card.tries", "well policy.ecc",
    "well policy.no-eku", "well policy.hints", "well policy.propagation", "well policy.plug-and-play"}


# Files -------------------------------------------------------------------------------------------

def drive(path):
    return settings.prefix / "drive_c" / path


def remove(path):
    if path.is_dir():
        shutil.rmtree(path)
    else:
        path.unlink(missing_ok=True)


def patched(content, *changes):
    for before, after in changes:
        assert len(before) == len(after) and before in content
        content = content.replace(before, after)
    return content


def dll(name, *changes):
    """A file of the builds, bytes of it changed."""
    return lambda _: patched(getattr(built, name).read_bytes(), *changes)


def version_changed(_):
    """The version number of the file (VS_FIXEDFILEINFO) is another."""
    content = bytearray(built.x86.read_bytes())
    at = content.index(struct.pack("<I", 0xFEEF04BD)) + 8
    content[at:at + 8] = struct.pack("<HHHH", 7, 9, 3, 5)
    return bytes(content)


def without_resources(_):
    """The entry of the resources, and with them the version, is empty in the header (PE32)."""
    content = bytearray(built.x86.read_bytes())
    at = struct.unpack_from("<I", content, 0x3C)[0] + 24 + 96 + 2 * 8
    content[at:at + 8] = bytes(8)
    return bytes(content)


def signed(test):
    """The x64 driver as a throw-away signer signs it."""
    pem, certificate, result = (test.folder / name for name in ("key.pem", "certificate.pem", "signed.dll"))
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", pem, "-out",
                    certificate, "-days", "30", "-subj", "/CN=Doctor Test Signer",
                    "-addext", "extendedKeyUsage=codeSigning"], check=True, capture_output=True)
    subprocess.run(["osslsigncode", "sign", "-h", "sha256", "-certs", certificate, "-key", pem, "-in", built.x64,
                    "-out", result], check=True, capture_output=True)
    return result.read_bytes()


def signed_and_changed(test):
    content = bytearray(signed(test))
    content[0x500] ^= 1
    return bytes(content)


def made_for_arm64(_):
    """The dialog library with that architecture in its header."""
    content = bytearray(built.dialog.read_bytes())
    at = struct.unpack_from("<I", content, 0x3C)[0] + 4
    content[at:at + 2] = struct.pack("<H", 0xAA64)
    return bytes(content)


FOLDER = object()  # in place of a file's content
DLL64, DLL32 = f"windows/system32/{DLL}", f"windows/syswow64/{DLL}"
WINSCARD = "windows/system32/winscard.dll"
LIBRARY = "Companion/CodeEntryLibrary.dll"
COMPANION = r"C:\Companion\Companion.exe"
LOG = "Program Files/Kelmora-ID-minidriver/Log/Kelmora-ID-minidriver.log"
REDIRECTED = f"users/{getpass.getuser()}/AppData/Local/VirtualStore/{LOG}"


# Cards -------------------------------------------------------------------------------------------

def recorded(card_type, *changes):
    """The recorded card of that type, with other bytes in what it said."""
    def choose(test):
        text = (RECORDINGS / f"card-type-{card_type}.txt").read_text(encoding="ascii")
        places = []  # of each byte of a reply but its status word
        for reply in re.finditer(r"^  < (?:[0-9A-F]{2}\s+)+", text, re.M):
            places += [reply.start() + byte.start() for byte in re.finditer("[0-9A-F]{2}", reply[0])][:-2]
        said = bytes(int(text[place:place + 2], 16) for place in places)
        for place, byte in zip(places, patched(said, *changes)):
            text = f"{text[:place]}{byte:02X}{text[place + 2:]}"
        (test.folder / "card.txt").write_text(text, encoding="ascii")
        return "--replay", "card.txt"
    return choose


def with_tries_left(left):
    """A virtual card whose PIN 1 has so many; of each PIN: its directory, its reference there, its tries."""
    def choose(test):
        (test.folder / "state").write_text(f"generation 3\ntries 16128 17 {left}\ntries 20502 149 5\n"
                                           "tries 16128 18 10\n", encoding="ascii")
        return "--virtual", 3, "--virtual-state", "state"
    return choose


NOT_BEFORE, NOT_AFTER = b"200101000000Z", b"491231235959Z"
# Of certificates: key usage, and what a logon looks for.
KEY_USAGE, NO_SIGNATURE = bytes.fromhex("03020388"), bytes.fromhex("03020308")
CARD_LOGON, OTHER_USAGE = (bytes.fromhex(f"060a2b060104018237140{end}") for end in ("202", "20f"))
CLIENT, OTHER_CLIENT = (bytes.fromhex(f"06082b060105050703{end}") for end in ("02", "0f"))
USER_NAME, OTHER_NAME = (bytes.fromhex(f"060a2b060104018237140{end}") for end in ("203", "20e"))


# Sick machines -------------------------------------------------------------------------------------

class Row(typing.NamedTuple):
    """A sickness, and what the doctor finds of it."""
    expected: str
    text: str
    registry: str = ""  # what differs from SOUND
    services: str = ""  # also of the registry; Wine has to be started anew to see it
    files: dict = {}  # of drive C: the content, a size for so many zeros, FOLDER or None; functions give it
    card: object = 3  # as for DoctorTest.doctor; a function gives it
    readers: str | None = None  # as readers.cpp takes them
    beside: tuple = ()  # what follows from it and is found too


def addresses(text):
    """The directory services, as 64-bit programs see them."""
    return key(rf"{WIDE}\{SETTINGS}", ADRSURL=text)


def foreign_row(name):
    """A row of another driver for a card of type 3."""
    return card_row(rf"{WIDE}\{DATABASE}\{name}", ATR[3], b"\xff" * len(ATR[3]), **{"80000001": "othercard.dll"})


def companion(command):
    return key(RUN, **{"Kelmora ID": command})


NO_CARD = ("note card.none",)
NARROW_IS_UNSET = ("note settings.view",)
EMPTY, HELD, MUTE, REMOVED = "8010000c", "8010000b", "80100066", "80100069"
OURS = ATR[4].hex()
FOREIGN = OURS.replace("96", "92", 1)

ROWS = {
    # Registration
    "without_a_row": Row(
        "problem registration.missing", "64-bit programs: no row fits a card of type 5",
        registry=no_key(row(WIDE, 5))),
    "without_a_row_in_the_narrow_view": Row(
        "problem registration.missing", "32-bit programs: no row fits a card of type 8",
        registry=no_key(row(NARROW, 8))),
    "without_any_row": Row(
        "problem registration.none", f"64-bit programs: no row of the database names {DLL}",
        registry=no_key(rf"{WIDE}\{DATABASE}") + key(rf"{WIDE}\{DATABASE}")),
    "without_the_database": Row(
        "problem registration.database", "32-bit programs: have no smart-card database",
        registry=no_key(rf"{NARROW}\{DATABASE}")),
    "with_a_value_changed": Row(
        "problem registration.value", "is 'Other CSP'",
        registry=key(row(WIDE, 3), **{"Crypto Provider": "Other CSP"})),
    "with_a_row_without_an_atr": Row(
        "problem registration.atr", "has no ATR",
        registry=key(row(WIDE, 6), ATR=None), beside=("problem registration.missing",)),
    "with_a_short_mask": Row(
        "problem registration.mask", "its mask has 2 bytes",
        registry=key(row(NARROW, 6), ATRMask=b"\xff\xff"), beside=("problem registration.missing",)),
    "with_a_driver_in_another_folder": Row(
        "problem registration.path", r"names C:\Old\kelmora-id-minidriver.dll",
        registry=key(row(WIDE, 8), **{"80000001": rf"C:\Old\{DLL}"})),
    "with_another_driver_for_the_same_card": Row(
        "problem registration.rival", "type 3 and names the driver othercard.dll",
        registry=foreign_row("Another card")),
    "with_another_driver_behind": Row(
        "note registration.other", "also fits a card of type 3 and names the driver othercard.dll",
        registry=foreign_row("Z card")),

    # Driver files
    "without_a_dll": Row(
        "problem driver.missing", rf"syswow64\{DLL} is missing", files={DLL32: None}),
    "with_a_dll_that_cannot_be_read": Row(
        "problem driver.unreadable", "more than the", files={DLL64: 65 << 20}),
    "with_the_dll_of_another_architecture": Row(
        "problem driver.architecture", "made for x86; these programs need x64", files={DLL64: dll("x86")}),
    "with_something_else_for_a_dll": Row(
        "problem driver.format", "is no library", files={DLL64: b"MZ, and no more"}),
    "with_a_dll_that_is_no_minidriver": Row(
        "problem driver.export", "does not export CardAcquireContext",
        files={DLL64: dll("x64", (b"\0CardAcquireContext", b"\0CardAcquireContexT"))}),
    "with_two_versions": Row(
        "problem driver.version", "version 9.7.5.3 here", files={DLL32: version_changed}),
    "with_a_dll_without_a_version": Row(
        "note driver.version", "tells no version", files={DLL32: without_resources}),
    "with_a_signature": Row(
        "well driver.signature", "64-bit programs: signed by Doctor Test Signer", files={DLL64: signed}),
    "with_a_broken_signature": Row(
        "problem driver.signature", "does not hold", files={DLL64: signed_and_changed}),

    # Platform
    "with_a_service_disabled": Row(
        "problem platform.service", "Smart Card: is disabled", services=service("SCardSvr", DISABLED)),
    "without_a_service": Row(
        "problem platform.service", "Smart Card: is not there", services=no_key(rf"{SERVICES}\SCardSvr")),
    "without_the_service_of_propagation": Row(
        "note platform.service", "Certificate Propagation: is not there",
        services=no_key(rf"{SERVICES}\CertPropSvc")),
    "with_protected_lsa": Row(
        "problem platform.lsa", "logon with the card fails", registry=key(LSA, RunAsPPL=1)),
    "with_an_lsa_that_may_be_protected": Row(
        "unknown platform.lsa", "not configured",
        registry=key(LSA, RunAsPPL=None) + key(WINDOWS, CurrentBuildNumber="22631")),
    "with_smart_app_control": Row(
        "problem platform.app-control", "refuses files without a trusted signature",
        registry=key(APP_CONTROL, VerifiedAndReputablePolicyState=1)),
    "with_smart_app_control_to_come": Row(
        "note platform.app-control", "evaluating",
        registry=key(APP_CONTROL, VerifiedAndReputablePolicyState=2)),

    # Readers
    "without_the_readers_service": Row(
        "problem readers.service", "SCARD_E_NO_SERVICE", card=None, beside=NO_CARD),
    "without_readers": Row(
        "problem readers.none", "no reader is connected", card=None, readers="", beside=NO_CARD),
    "with_readers_of_windows_only": Row(
        "problem readers.none", "only readers of Windows itself", card=None,
        readers=f"Windows Hello for Business 1|{EMPTY}", beside=("note readers.virtual", *NO_CARD)),
    "with_a_reader_of_windows": Row(
        "note readers.virtual", "Microsoft Virtual Smart Card 0: made by Windows", card=None,
        readers=f"Microsoft Virtual Smart Card 0|{EMPTY};Reader A|{EMPTY}", beside=NO_CARD),
    "with_an_empty_reader": Row(
        "well readers.empty", "Reader A: no card in it", card=None, readers=f"Reader A|{EMPTY}", beside=NO_CARD),
    "with_a_card_that_is_held": Row(
        "problem readers.held", "SCARD_E_SHARING_VIOLATION", card=None, readers=f"Reader A|{HELD}", beside=NO_CARD),
    "with_a_card_that_is_mute": Row(
        "problem readers.mute", "SCARD_W_UNRESPONSIVE_CARD", card=None, readers=f"Reader A|{MUTE}", beside=NO_CARD),
    "with_another_card": Row(
        "problem readers.foreign", "one bit away from type 4", card=None, readers=f"Reader A|0|{FOREIGN}",
        beside=NO_CARD),
    "with_another_card_beside_ours": Row(
        "note readers.foreign", "Reader A: a card that this driver does not know", card=None,
        readers=f"Reader A|0|{FOREIGN};Reader B|0|{OURS}|{REMOVED}", beside=("problem card.failure",)),

    # Settings
    "with_a_directory_service": Row(
        "well settings.address", "https://127.0.0.1:9",
        registry=addresses("https://127.0.0.1:9"), beside=NARROW_IS_UNSET),
    "with_a_directory_service_for_64_bits": Row(
        "note settings.view", "32-bit programs", registry=addresses("https://127.0.0.1:9")),
    "with_a_directory_service_without_encryption": Row(
        "note settings.plain", "unencrypted", registry=addresses("http://127.0.0.1:9"), beside=NARROW_IS_UNSET),
    "with_a_path_in_an_address": Row(
        "note settings.ignored", "the driver drops '/pair'",
        registry=addresses("https://127.0.0.1:9/pair"), beside=NARROW_IS_UNSET),
    "with_a_setting_without_an_address": Row(
        "note settings.none", "no address in it", registry=addresses(" ; "), beside=NARROW_IS_UNSET),
    "with_a_setting_of_another_type": Row(
        "problem settings.type", "no text value", registry=addresses(1), beside=NARROW_IS_UNSET),
    "with_an_address_without_a_port": Row(
        "problem settings.address", "is not of the form", registry=addresses("https://host"), beside=NARROW_IS_UNSET),
    "with_an_address_of_another_scheme": Row(
        "problem settings.address", "begins neither", registry=addresses("ftp://h:21"), beside=NARROW_IS_UNSET),
    "with_an_address_of_port_0": Row(
        "problem settings.address", "from 1 to 65535", registry=addresses("https://h:0"), beside=NARROW_IS_UNSET),
    "with_an_address_that_stops_the_acquisition": Row(
        "problem settings.address", "the first acquisition of each process fails",
        registry=addresses("https://h:x"), beside=("problem card.refused", *NARROW_IS_UNSET)),

    # PIN dialog
    "with_a_run_value_of_another_type": Row(
        "note dialog.type", "no text value", registry=companion(1)),
    "with_a_run_value_in_quotation_marks": Row(
        "note dialog.command", "quotation marks", registry=companion(f'"{COMPANION}"')),
    "without_the_dialog_library": Row(
        "note dialog.missing", r"C:\Companion\CodeEntryLibrary.dll is missing", registry=companion(COMPANION)),
    "with_something_else_for_the_dialog_library": Row(
        "note dialog.format", "is no library", registry=companion(COMPANION), files={LIBRARY: b"no library"}),
    "with_a_dialog_library_without_its_function": Row(
        "problem dialog.function", "does not export promptCodeEntryDefault",
        registry=companion(COMPANION), files={LIBRARY: dll("x64")}),
    "with_a_dialog_library_for_other_programs": Row(
        "note dialog.architecture", "is made for ARM64",
        registry=companion(COMPANION), files={LIBRARY: made_for_arm64}),
    "with_a_dialog_library": Row(
        "well dialog.library", r"C:\Companion\CodeEntryLibrary.dll, x64",
        registry=companion(COMPANION), files={LIBRARY: dll("dialog")}),

    # Log
    "with_a_log_folder": Row(
        "well log.on", "is made with the first line", files={str(pathlib.Path(LOG).parent): FOLDER}),
    "with_a_log": Row("note log.explain", "can be explained", files={LOG: b"a line\n"}),
    "with_a_large_log": Row(
        "note log.large", "has 100000001 bytes", files={LOG: 100_000_001}, beside=("note log.explain",)),
    "with_a_log_that_cannot_be_written": Row(
        "note log.not-writable", "cannot be written by this user", files={LOG: FOLDER}),
    "with_lines_that_went_elsewhere": Row("note log.redirected", "VirtualStore", files={REDIRECTED: b"a line\n"}),

    # Card
    "with_a_card_pulled_out": Row(
        "problem card.failure", "SCARD_W_REMOVED_CARD", card=None, readers=f"Reader A|0|{OURS}|{REMOVED}"),
    "with_a_card_that_knows_no_command": Row(
        "problem card.refused", "the driver refused the card", card=None, readers=f"Reader A|0|{OURS}"),
    "with_a_card_that_has_run_out": Row(
        "problem card.expired", "to 2021-12-31: it has run out", card=recorded(5, (NOT_AFTER, b"211231235959Z"))),
    "with_a_card_for_later": Row(
        "problem card.not-yet-valid", "from 2049-01-01", card=recorded(5, (NOT_BEFORE, b"490101000000Z"))),
    "with_a_card_that_signs_nothing": Row(
        "problem card.usage", "does not allow digital signatures", card=recorded(5, (KEY_USAGE, NO_SIGNATURE))),
    "with_a_card_for_other_purposes": Row(
        "problem card.extended-usage", "neither smart card logon nor client",
        card=recorded(5, (CARD_LOGON, OTHER_USAGE), (CLIENT, OTHER_CLIENT))),
    "with_a_card_with_one_try": Row("note card.last-try", "PIN 1: 1 try left", card=with_tries_left(1)),
    "with_a_blocked_pin": Row("problem card.blocked", "PIN 1: is blocked", card=with_tries_left(0)),

    # Policies for logon
    "without_the_policy_for_ec_keys": Row(
        "problem policy.ecc", "this card needs it", card=8, registry=key(LOGON, EnumerateECCCerts=0)),
    "without_the_policy_for_other_usages": Row(
        "problem policy.no-eku", "this card needs it", card=recorded(5, (CARD_LOGON, OTHER_USAGE)),
        registry=key(LOGON, AllowCertificatesWithNoEKU=0)),
    "without_the_policy_for_user_names": Row(
        "problem policy.hints", "this card needs it", card=recorded(5, (USER_NAME, OTHER_NAME)),
        registry=key(LOGON, X509HintsNeeded=0)),
    "without_policies_and_a_card": Row(
        "note policy.ecc", "are not offered for logon", card=None, readers=f"Reader A|{EMPTY}",
        registry=key(LOGON, EnumerateECCCerts=0, AllowCertificatesWithNoEKU=0, X509HintsNeeded=0),
        beside=("note policy.no-eku", "note policy.hints", *NO_CARD)),
    "with_propagation_off": Row(
        "note policy.propagation", "off", registry=key(POLICIES + r"\CertProp", CertPropEnabled=0)),
    "with_redirection_off": Row("note policy.redirection", "off", registry=key(REMOTE, fEnableSmartCard=0)),
    "with_plug_and_play": Row(
        "note policy.plug-and-play", "another driver", registry=key(POLICIES + r"\ScPnP", EnableScPnP=1)),
}


class Machine(DoctorTest):
    """The prefix. What the registry holds is known, so that a row changes only what has to be changed."""
    keeper = None
    registry = services = None

    @classmethod
    def setUpClass(cls):
        if Machine.registry is not None:
            return
        run(*settings.launcher, "cmd", "/c", "exit")  # makes the prefix
        for place in ("Companion", pathlib.Path(LOG).parent, pathlib.Path(REDIRECTED).parent):
            remove(drive(place))
        for source, place in ((built.x64, DLL64), (built.x86, DLL32), (built.readers, WINSCARD)):
            remove(drive(place))
            shutil.copy(source, drive(place))

    @classmethod
    def stop(cls):
        if Machine.keeper is not None:
            doctor_runs.let_go(Machine.keeper)
            Machine.keeper = None
        subprocess.run(["wineserver", "-k"], check=False)
        subprocess.run(["wineserver", "-w"], check=True)

    @classmethod
    def restart(cls):
        """Wine's service manager surely knows what stands in the registry when it starts."""
        cls.stop()
        Machine.keeper = doctor_runs.keep_wine()

    def set_registry(self, registry="", services=""):
        """What differs from a healthy machine; nothing for a healthy one."""
        if (registry, services) == (Machine.registry, Machine.services):
            return
        text = "Windows Registry Editor Version 5.00\n\n" + SOUND + SOUND_SERVICES + services + registry
        (self.folder / "machine.reg").write_text(text.replace("\n", "\r\n"), encoding="utf-16", newline="")
        code, out, error = run(*settings.launcher, "reg", "import", "machine.reg", cwd=self.folder)
        self.assertEqual(code, OK, out + error)
        if services != Machine.services:
            self.restart()
        Machine.registry, Machine.services = registry, services

    def set_file(self, name, content):
        """Another file in this place, or none, until the test ends."""
        path = drive(name)
        if path.exists():
            kept = self.folder / "kept" / path.name
            kept.parent.mkdir(exist_ok=True)
            self.addCleanup(self.put_back, shutil.move(path, kept), path)
        else:
            made = next(parent for parent in [path, *path.parents] if parent.parent.exists())
            self.addCleanup(remove, made)
            path.parent.mkdir(parents=True, exist_ok=True)
        if content is None:
            return
        if content is FOLDER:
            path.mkdir()
        elif isinstance(content, int):
            path.touch()
            os.truncate(path, content)
        else:
            path.write_bytes(content)
            path.chmod(0o755)

    @staticmethod
    def put_back(kept, path):
        remove(path)
        shutil.move(kept, path)

    def findings(self, *arguments, card=3):
        for _ in range(20):
            found = super().findings(*arguments, card=card)
            # Wine's service manager does not answer every call on a busy machine.
            if not any("cannot be asked" in entry for entries in found.values() for entry in entries):
                break
        return found


class Healthy(Machine):
    def test_passes(self):
        self.set_registry()
        found = self.findings()
        self.assertEqual(set(found), HEALTHY, found)
        code, out = self.doctor()
        self.assertEqual(code, OK, out)
        self.assertIn("Nothing stands in the way.", out)
        self.assertRegex(out, r"64-bit programs: C:\\windows\\system32\\kelmora-id-minidriver.dll, x64,"
                              r"\s+version 1\.\d+\.\d+\.\d+")

    def test_takes_the_installed_driver_where_none_is_beside_the_program(self):
        program = self.folder / "cardhost.exe"
        shutil.copy(settings.cardhost, program)
        shutil.copytree(pathlib.Path(settings.cardhost).with_name("virtual-card"), self.folder / "virtual-card")
        code, out, error = run(*settings.launcher, program, "--virtual", 5, "info")
        self.assertEqual(code, OK, error)
        self.assertIn("5, a FINEID card", out)
        self.set_file(DLL64, None)
        code, _, error = run(*settings.launcher, program, "--virtual", 5, "info")
        self.assertEqual(code, NOT_FOUND, error)
        self.assertIn("system32", error)


class Sick(Machine):
    """A test for each of ROWS: the sickness is named, and no other stands beside it."""

    def check(self, sick):
        def made(value):
            return value(self) if callable(value) else value

        self.set_registry(sick.registry, sick.services)
        for name, content in sick.files.items():
            self.set_file(name, made(content))
        with doctor_runs.variable("KELMORA_TEST_READERS", sick.readers):
            found = self.findings(card=made(sick.card))
        self.assert_finds(found, sick.expected, sick.text)
        self.assertEqual(not_well(found) - UNSIGNED, not_well({sick.expected, *sick.beside}), found)


for row_name, sickness in ROWS.items():
    setattr(Sick, f"test_{row_name}", lambda self, sickness=sickness: self.check(sickness))


# Directory services ------------------------------------------------------------------------------

class Answering(http.server.BaseHTTPRequestHandler):
    """Counts what it is asked and answers as a service does that knows POST only."""
    seen = []

    def do_HEAD(self):  # pylint: disable=invalid-name
        Answering.seen.append((self.command, self.path, self.headers.get("Content-Length")))
        self.send_response(405)
        self.end_headers()

    do_POST = do_GET = do_HEAD

    def log_message(self, *_):
        pass


class Hesitating(socketserver.BaseRequestHandler):
    """Closes the connection so late that an acquisition has taken too long by then."""

    def handle(self):
        threading.Event().wait(5.2)


class DirectoryService(Machine):
    def set_address(self, port):
        self.set_registry(addresses(f"http://127.0.0.1:{port}/pair"))

    def test_that_is_not_there_is_named(self):
        with socket.create_server(("127.0.0.1", 0)) as closed:
            port = closed.getsockname()[1]
        self.set_address(port)
        self.assert_finds(self.findings("--network"), "problem settings.answer", "cannot be connected")
        self.assertNotIn("problem settings.answer", self.findings())

    @contextlib.contextmanager
    def running(self, server_class, handler):
        with server_class(("127.0.0.1", 0), handler) as server:
            thread = threading.Thread(target=server.serve_forever)
            thread.start()
            try:
                self.set_address(server.server_address[1])
                yield
            finally:
                server.shutdown()
                thread.join()

    def test_that_answers_is_well_and_is_sent_nothing_of_a_card(self):
        Answering.seen.clear()
        with self.running(http.server.HTTPServer, Answering):
            found = self.findings("--network", card=None)
        self.assert_finds(found, "well settings.answer", "answers (HTTP status 405)")
        self.assertEqual([row[:2] for row in Answering.seen], [("HEAD", "/registercard")])
        self.assertIn(Answering.seen[0][2], (None, "0"))

    def test_that_hesitates_makes_the_acquisition_slow(self):
        with self.running(socketserver.TCPServer, Hesitating):
            found = self.findings()
        self.assert_finds(found, "note card.slow", "Windows resets a card that is held idle")


def load_tests(_, suites, __):
    """Side by side what wants the same of the registry; the services, which need a new start of Wine, last."""
    def wanted(test):
        row = ROWS.get(test.id().rpartition(".test_")[2])
        return (row.services, row.registry) if row else ("", "")

    return unittest.TestSuite(sorted((test for suite in suites for test in suite), key=wanted))


def main():
    parser = argparse.ArgumentParser(allow_abbrev=False)
    for name in ("readers", "dialog"):
        parser.add_argument(f"--{name}", required=True, type=lambda path: pathlib.Path(path).resolve())
    options, others = doctor_runs.take_options(parser, "sick")
    built.readers, built.dialog = options.readers, options.dialog
    built.x64, built.x86 = (REPOSITORY / f"build/windows-{name}" / DLL for name in ("x64", "x86"))
    with contextlib.ExitStack() as stack:
        stack.callback(Machine.stop)
        unittest.main(argv=[sys.argv[0], *others])


if __name__ == "__main__":
    main()
