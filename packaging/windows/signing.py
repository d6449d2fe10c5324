"""Signs programs, DLLs and MSIs with osslsigncode, and has it judge signatures."""
import pathlib
import subprocess

NAME = "Kelmora ID minidriver"


def add_options(parser):
    parser.add_argument("--certificate", help="PEM file: the certificate, then those that issued it")
    parser.add_argument("--key", help="PEM file, or with a PKCS#11 module a URI such as pkcs11:object=NAME")
    parser.add_argument("--pkcs11-module", help="library of the hardware that holds the key")
    parser.add_argument("--password-file", help="holds the password of the key or the PIN of the hardware")
    parser.add_argument("--timestamp", help="address of a time-stamp authority (RFC 3161)")
    parser.add_argument("--authority-certificate", help="PEM file: a time-stamp authority of one's own, for trials")
    parser.add_argument("--authority-key", help="PEM file: its key")
    parser.add_argument("--time", help="moment of the signature and the stamp in seconds since 1970, for trials")


def check(options):
    """Exits where the options contradict themselves, and says what comes of what they leave out."""
    if bool(options.certificate) != bool(options.key):
        raise SystemExit("signing takes both a certificate and a key")
    if options.key and not options.pkcs11_module:
        if options.key.startswith("pkcs11:"):
            raise SystemExit("a key in hardware takes its module too: PKCS11_MODULE=... of make (--pkcs11-module)")
        if not pathlib.Path(options.key).is_file():
            raise SystemExit(f"{options.key}: no such file")
    if options.key and not options.password_file:
        check_password(options)
    if options.certificate and not (options.timestamp or options.authority_certificate):
        print("No time-stamp authority is given: the signatures end with the certificate.")


def check_password(options):
    """Exits where osslsigncode would ask for a password, which it does for each file anew; says so where it may."""
    if options.pkcs11_module:
        if "pin-value=" not in options.key and "pin-source=" not in options.key:
            print("No file with the PIN of the hardware is given (PASSWORD_FILE=... of make, --password-file): if the "
                  "hardware wants one, it is asked for with each file that is signed.", flush=True)
    elif b"ENCRYPTED" in pathlib.Path(options.key).read_bytes():
        raise SystemExit(f"{options.key} is protected by a password, which would be asked for with each file that is "
                         "signed: write it into a file that only you can read, and name that by PASSWORD_FILE=... "
                         "(--password-file), or take a key without one for the time of the signing.")


def sign(path, options):
    """Signs a file in place: SHA-256, page hashes in a program or DLL, a time stamp where an authority is given."""
    signed = path.with_name(path.name + ".signed")
    signed.unlink(missing_ok=True)
    command = ["osslsigncode", "sign", "-h", "sha256", "-n", NAME, "-certs", options.certificate,
               "-key", options.key]
    if options.pkcs11_module:
        command += ["-pkcs11module", options.pkcs11_module]
    if options.password_file:
        command += ["-readpass", options.password_file]
    if options.timestamp:
        command += ["-ts", options.timestamp]
    if options.authority_certificate:
        command += ["-TSA-certs", options.authority_certificate, "-TSA-key", options.authority_key]
        if options.time:
            command += ["-TSA-time", options.time]
    if options.time:
        command += ["-time", options.time]
    if path.suffix in (".dll", ".exe"):
        command.append("-ph")
    # What may ask for a PIN has to be seen.
    told = subprocess.DEVNULL if options.password_file or not options.pkcs11_module else None
    result = subprocess.run([*map(str, command), "-in", path, "-out", signed], stdin=told, text=True,
                            capture_output=told is not None)
    if result.returncode or not signed.exists():
        signed.unlink(missing_ok=True)
        raise SystemExit(f"{path.name} could not be signed:\n{result.stdout or ''}{result.stderr or ''}")
    signed.replace(path)


def verify(path, authority, stamp_authority=None, time=None):
    """What osslsigncode says of a file: whether its signature is valid, by the certificates in a PEM file and, of
    the time stamp, in another; at a time in seconds since 1970 instead of now; and its words."""
    command = ["osslsigncode", "verify", "-CAfile", authority, "-TSA-CAfile", stamp_authority or authority]
    if time:
        command += ["-time", time]
    result = subprocess.run([*map(str, command), "-in", path], capture_output=True, text=True)
    text = result.stdout + result.stderr
    return result.returncode == 0 and "Succeeded" in text, text


def is_stamped(text):
    """Whether the words of verify tell of a time stamp that holds."""
    return "Timestamp Server Signature verification: ok" in text
