#!/usr/bin/env python3
"""Writes what registers the minidriver with Windows' smart-card database.

Usage: packaging/windows/make_registration.py VERSION FOLDER

Into FOLDER go kelmora-id-minidriver.reg, for an administrator who copies the DLLs by hand, and
kelmora-id-minidriver.wxs, the source of the MSI. The cards are those of the product's own table,
src/frame/card_type_of.cpp.
"""
import pathlib
import re
import sys
import uuid
from xml.sax.saxutils import quoteattr

ROOT = pathlib.Path(__file__).resolve().parents[2]
TABLE = ROOT / "src/frame/card_type_of.cpp"
DLL = "kelmora-id-minidriver.dll"
DATABASE = r"Microsoft\Cryptography\Calais\SmartCards"
STRINGS = [
    ("Crypto Provider", "Microsoft Base Smart Card Crypto Provider"),
    ("Smart Card Key Storage Provider", "Microsoft Smart Card Key Storage Provider"),
    ("80000001", DLL),
]
# The name space of this package's identifiers, so that equal input gives equal packages.
NAMESPACE = uuid.UUID("6f0f8a52-5d0e-4b0c-9a86-0e5f6d7c21b4")


def cards():
    """Rows (name, ATR, mask). The database compares lengths too, while the minidriver takes each ATR
    with any one byte behind it as well: that is a row of its own, with a mask that leaves the byte out."""
    rows = re.findall(r'\{"([0-9a-f]+)", CardType::type(\d)\}', TABLE.read_text(encoding="utf-8"))
    if len(rows) != 6:
        sys.exit(f"{TABLE} holds {len(rows)} cards where six are expected")
    for atr, number in rows:
        key = bytes.fromhex(atr)
        name = f"Kelmora ID FINEID card type {number}"
        yield name, key, b"\xff" * len(key)
        yield f"{name} (longer ATR)", key + b"\x00", b"\xff" * len(key) + b"\x00"


def registration_file():
    lines = ["Windows Registry Editor Version 5.00", ""]
    for software in (r"SOFTWARE", r"SOFTWARE\Wow6432Node"):
        for name, atr, mask in cards():
            lines.append(rf"[HKEY_LOCAL_MACHINE\{software}\{DATABASE}\{name}]")
            lines.append('"ATR"=hex:' + atr.hex(","))
            lines.append('"ATRMask"=hex:' + mask.hex(","))
            lines.extend(f'"{value}"="{content}"' for value, content in STRINGS)
            lines.append("")
    return "\r\n".join(lines) + "\r\n"


def identifier(name):
    return str(uuid.uuid5(NAMESPACE, name)).upper()


def component(name, win64, dll):
    """The DLL of one architecture and its view of the database."""
    yield f'<Component Id="{name}" Guid="{identifier(name)}" Win64="{"yes" if win64 else "no"}">'
    yield f'  <File Id="{name}Dll" Name="{DLL}" Source={quoteattr(dll)} KeyPath="yes"/>'
    for card, atr, mask in cards():
        key = quoteattr(rf"SOFTWARE\{DATABASE}\{card}")
        # In the installer's own table "#x" begins a binary value and "#" a number. wixl 0.101 writes a
        # binary value as plain text, so it is given as the number that comes out right.
        values = [("ATR", "integer", "x" + atr.hex().upper()),
                  ("ATRMask", "integer", "x" + mask.hex().upper()),
                  *((value, "string", content) for value, content in STRINGS)]
        for value, kind, content in values:
            yield (f'  <RegistryValue Root="HKLM" Key={key} Name={quoteattr(value)} Type="{kind}"'
                   f' Value={quoteattr(content)}/>')
    yield "</Component>"


def package_source(version):
    def indented(name, win64, dll):
        return "\n".join(" " * 10 + line for line in component(name, win64, dll))
    return f"""<?xml version="1.0" encoding="utf-8"?>
<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
  <Product Id="{identifier(f"product {version}")}" Name="Kelmora ID minidriver" Language="1033"
           Version="{version}" Manufacturer="The Kelmora ID minidriver developers"
           UpgradeCode="{identifier("upgrade")}">
    <Package Id="{identifier(f"package {version}")}" InstallerVersion="500" Compressed="yes"
             InstallScope="perMachine"
             Description="Kelmora ID minidriver {version}"/>
    <MajorUpgrade DowngradeErrorMessage="A newer version is installed."/>
    <Media Id="1" Cabinet="minidriver.cab" EmbedCab="yes"/>
    <Directory Id="TARGETDIR" Name="SourceDir">
      <Directory Id="System64Folder">
{indented("MinidriverX64", True, "x64/" + DLL)}
      </Directory>
      <Directory Id="SystemFolder">
{indented("MinidriverX86", False, "x86/" + DLL)}
      </Directory>
    </Directory>
    <Feature Id="Minidriver" Level="1" Title="Kelmora ID minidriver">
      <ComponentRef Id="MinidriverX64"/>
      <ComponentRef Id="MinidriverX86"/>
    </Feature>
  </Product>
</Wix>
"""


def main():
    version, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "kelmora-id-minidriver.reg").write_bytes(registration_file().encode("ascii"))
    (folder / "kelmora-id-minidriver.wxs").write_text(package_source(version), encoding="utf-8")


if __name__ == "__main__":
    main()
