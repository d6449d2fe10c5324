#!/usr/bin/env python3
"""Signs a package the way 'make sign' does, by a throw-away authority, with the key in a file and in a
PKCS#11 token (SoftHSM), and lets osslsigncode judge: valid now, valid by its time stamp after the
certificate has run out, refused where a byte differs or the signature is missing.

Usage: packaging/windows/check_signing.py [ARCHITECTURES]         (x64,x86: what is built of build/)

With x64,x86,arm64 it is a whole release that is signed, cardhost with it, and once more by 'make sign' itself,
whose dist/ stands in a folder of this check; check_release.py then has to find every signature, and the lack of one.

Prints one line for each check, beginning with "ok" or "not ok". Nothing leaves the machine.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import zipfile

from cards import DLL
import signing
from checks import Checks
from release import BUILT

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build/signing-check"
MODULE = "/usr/lib/softhsm/libsofthsm2.so"
PIN = "123456"
SIGNED_AT, WITHIN, AFTERWARDS = "1772366400", "1772452800", "1900000000"  # March 2026, a day on, 2030
EXTENSIONS = """
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
[code]
keyUsage = critical, digitalSignature
extendedKeyUsage = codeSigning
[stamp]
keyUsage = critical, digitalSignature
extendedKeyUsage = critical, timeStamping
"""


def run(*command, **options):
    result = subprocess.run([*map(str, command)], capture_output=True, text=True, cwd=WORK, **options)
    if result.returncode:
        sys.exit(f"{command[0]} ended with {result.returncode}:\n{result.stdout}{result.stderr}")
    return result.stdout


def make_certificates():
    """authority.pem, stamp.pem and lasting.pem for twenty years, code.pem for sixty days of 2026."""
    (WORK / "extensions.cnf").write_text(EXTENSIONS)

    def at_that_time(*command):
        run("faketime", "-f", "2026-02-01 00:00:00", "openssl", *command)
    for name, section, days in (("authority", "authority", 7300), ("code", "code", 60), ("lasting", "code", 7300),
                                ("stamp", "stamp", 7300)):
        run("openssl", "genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048", "-out", f"{name}.key")
        at_that_time("req", "-new", "-key", f"{name}.key", "-subj", f"/CN=Throw-away {name}", "-out", f"{name}.csr")
        issuer = (["-signkey", "authority.key"] if name == "authority" else
                  ["-CA", "authority.pem", "-CAkey", "authority.key", "-CAcreateserial"])
        at_that_time("x509", "-req", "-in", f"{name}.csr", *issuer, "-days", days, "-sha256", "-extfile",
                     "extensions.cnf", "-extensions", section, "-out", f"{name}.pem")


def make_token():
    """A software token with the code key in it; gives the environment that finds it."""
    (WORK / "tokens").mkdir()
    (WORK / "softhsm2.conf").write_text(f"directories.tokendir = {WORK / 'tokens'}\nobjectstore.backend = file\n")
    environment = {**os.environ, "SOFTHSM2_CONF": str(WORK / "softhsm2.conf")}
    run("softhsm2-util", "--init-token", "--free", "--label", "trial", "--pin", PIN, "--so-pin", PIN, env=environment)
    run("softhsm2-util", "--import", "code.key", "--token", "trial", "--label", "code", "--id", "01", "--pin", PIN,
        env=environment)
    (WORK / "pin.txt").write_text(PIN)
    (WORK / "code.key").unlink()
    return environment


def make_signed(folder, architectures, *options, environment=None):
    if set(architectures.split(",")) == set(BUILT):
        options = ("--release", "--runtime", run(ROOT / "tools/build_arm64_runtime.sh").strip(), *options)
    run(sys.executable, ROOT / "packaging/windows/release.py", "--output", WORK / folder, "--architectures",
        architectures, "--certificate", "code.pem", "--time", SIGNED_AT, *options, env=environment)
    for archive in (WORK / folder).glob("*.zip"):
        with zipfile.ZipFile(archive) as packed:
            packed.extractall(WORK / folder / archive.stem)
    return WORK / folder


def verify(path, time):
    """What osslsigncode says of a file at a time: whether it is valid, and its words."""
    return signing.verify(path, WORK / "authority.pem", time=time)


def check_signed(checks, kind, folder, stamped):
    files = [file for kind_of_file in ("*.dll", "*.exe", "*.msi") for file in sorted(folder.rglob(kind_of_file))]
    wanted = {".msi", ".dll"} | ({".exe"} if (folder / "SHA256SUMS").exists() else set())
    checks.equal(f"{kind}: there is something of each kind", {file.suffix for file in files}, wanted)
    for file in files:
        name = f"{kind}: {file.relative_to(folder)}"
        valid, text = verify(file, WITHIN)
        checks.check(f"{name} is valid", valid, text[-600:])
        valid, _ = verify(file, AFTERWARDS)
        checks.check(f"{name} is {'still valid' if stamped else 'no longer valid'} when the certificate has run out",
                     valid == stamped)
        if file.suffix != ".msi":
            checks.check(f"{name} has page hashes", re.search(r"Page hash", text, re.I), text[-600:])
    return files


def check_refusals(checks, files):
    for file in (next(file for file in files if file.suffix == ".dll"),
                 next(file for file in files if file.suffix == ".msi")):
        data = bytearray(file.read_bytes())
        place = data.find(b"CardAcquireContext") if file.suffix == ".dll" else len(data) // 2
        data[place] ^= 1
        changed = WORK / ("changed" + file.suffix)
        changed.write_bytes(data)
        checks.check(f"a changed {file.suffix} is refused", not verify(changed, WITHIN)[0])
    checks.check("an unsigned .dll is refused", not verify(ROOT / f"build/windows-x64/{DLL}", WITHIN)[0])


def check_contents(checks, folder):
    """The packages hold the signed DLLs, not those from before."""
    for msi in sorted(folder.glob("*.msi")):
        target = WORK / ("contents-" + msi.stem)
        target.mkdir()
        run("msiextract", "-C", target, msi)
        held = {file.read_bytes() for file in target.rglob("*.dll")}
        signed = {file.read_bytes() for file in folder.glob("*/*.dll")}
        checks.check(f"{msi.name} holds the signed DLLs", held and held <= signed)


def judge(folder, *options):
    """What check_release.py says: its exit code, and the names of the checks that fail."""
    result = subprocess.run([sys.executable, ROOT / "packaging/windows/check_release.py", *options, folder], cwd=WORK,
                            capture_output=True, text=True)
    return result.returncode, re.findall(r"^not ok - release: (.*?)(?:: .*)?$", result.stdout, re.M), result.stdout


def check_recipe(checks):
    """make sign, with a key under a password; what check_release.py says of it, and of a signature that is missing."""
    run("openssl", "pkey", "-in", "lasting.key", "-aes256", "-passout", "pass:" + PIN, "-out", "locked.key")
    (WORK / "password.txt").write_text(PIN)
    made = WORK / "made/dist"
    recipe = ["make", "--no-print-directory", "-C", ROOT, "sign", f"CERTIFICATE={WORK / 'lasting.pem'}",
              f"KEY={WORK / 'locked.key'}", f"DIST={made}"]
    environment = {name: value for name, value in os.environ.items() if name not in ("MAKEFLAGS", "MAKELEVEL")}

    def make_sign(*more):
        return subprocess.run([*recipe, *more], capture_output=True, text=True, env=environment)
    refused = make_sign()
    checks.check("make sign wants a file for the password of a key", refused.returncode and not made.exists() and
                 "PASSWORD_FILE" in refused.stderr + refused.stdout, refused.stdout[-600:] + refused.stderr[-600:])
    signed = make_sign(f"PASSWORD_FILE={WORK / 'password.txt'}")
    checks.check("make sign makes a release", signed.returncode == 0, signed.stdout[-600:] + signed.stderr[-600:])
    code, failed, text = judge(made, "--signed", "authority.pem")
    checks.check("check_release.py finds every signature of it",
                 code == 0 and "has a signature that holds" in text, failed)
    _, failed, _ = judge(made, "--signed", "authority.pem", "--stamped", "authority.pem")
    checks.check("it finds that there is no time stamp", failed and all(
        name.endswith("has a time stamp that holds") for name in failed), failed)
    (WORK / "password.txt").write_text("another")
    before = {path: path.read_bytes() for path in made.rglob("*") if path.is_file()}
    refused = make_sign(f"PASSWORD_FILE={WORK / 'password.txt'}")
    checks.check("make sign that fails leaves what was there", refused.returncode and before == {
        path: path.read_bytes() for path in made.parent.rglob("*") if path.is_file()}, refused.stdout[-600:])
    unsigned = WORK / "unsigned"
    run(sys.executable, ROOT / "packaging/windows/release.py", "--output", unsigned, "--architectures",
        ",".join(BUILT), "--release", "--runtime", run(ROOT / "tools/build_arm64_runtime.sh").strip())
    _, failed, text = judge(unsigned, "--signed", "authority.pem")
    checks.check("of an unsigned release it finds every signature missing", failed and "signature that holds" in text and
                 len(failed) == len(re.findall("has a signature that holds", text)), failed)


def main():
    architectures = sys.argv[1] if len(sys.argv) > 1 else "x64,x86"
    shutil.rmtree(WORK, ignore_errors=True)
    WORK.mkdir(parents=True)
    checks = Checks("signing")
    make_certificates()
    authority = ("--authority-certificate", "stamp.pem", "--authority-key", "stamp.key")
    files = check_signed(checks, "key in a file", make_signed("file", architectures, "--key", "code.key", *authority),
                         stamped=True)
    check_refusals(checks, files)
    check_contents(checks, WORK / "file")
    check_signed(checks, "no time stamp", make_signed("plain", architectures, "--key", "code.key"), stamped=False)
    if set(architectures.split(",")) == set(BUILT):
        check_recipe(checks)
    environment = make_token()
    check_signed(checks, "key in a token", make_signed(
        "token", architectures, "--key", "pkcs11:token=trial;object=code;type=private", "--pkcs11-module", MODULE,
        "--password-file", "pin.txt", *authority, environment=environment), stamped=True)
    shutil.rmtree(WORK)
    return checks.exit_code()


if __name__ == "__main__":
    sys.exit(main())
