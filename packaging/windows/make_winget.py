"""The winget manifest of a release: three small YAML files of the schema that its repository asks for."""
import hashlib

from make_msi import MAKER, PRODUCT, product_code

PACKAGE = "Kelmora.IDMinidriver"
SCHEMA = "1.6.0"


def manifest(kind, version, fields):
    lines = [f"# yaml-language-server: $schema=https://aka.ms/winget-manifest.{kind}.{SCHEMA}.schema.json", "",
             f"PackageIdentifier: {PACKAGE}", f"PackageVersion: {version}", *fields,
             f"ManifestType: {kind}", f"ManifestVersion: {SCHEMA}"]
    return "\n".join(lines) + "\n"


def make(version, date, packages, address, folder):
    """Writes the manifest. packages: (architecture, MSI); address: where the MSIs will be to be had."""
    folder.mkdir()
    installers = []
    for architecture, msi in packages:
        digest = hashlib.sha256(msi.read_bytes()).hexdigest().upper()
        installers += [f"- Architecture: {architecture}",
                       f"  InstallerUrl: {address.rstrip('/')}/{msi.name}",
                       f"  InstallerSha256: {digest}",
                       f"  ProductCode: '{{{product_code(version, architecture)}}}'"]
    (folder / f"{PACKAGE}.yaml").write_text(manifest("version", version, ["DefaultLocale: en-US"]))
    (folder / f"{PACKAGE}.installer.yaml").write_text(manifest("installer", version, [
        "InstallerType: wix", "Scope: machine", "UpgradeBehavior: install", f"ReleaseDate: {date}",
        "InstallerSuccessCodes:", "- 3010", "Installers:", *installers]))
    (folder / f"{PACKAGE}.locale.en-US.yaml").write_text(manifest("defaultLocale", version, [
        "PackageLocale: en-US", f"Publisher: {MAKER}", f"PackageName: {PRODUCT}", "License: MIT",
        "ShortDescription: A smart-card minidriver for FINEID cards"]))
