"""Signs programs, DLLs and MSIs with osslsigncode."""
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


def wanted(options):
    """Whether the options ask for signatures; exits where they contradict themselves."""
    if bool(options.certificate) != bool(options.key):
        raise SystemExit("signing takes both a certificate and a key")
    if options.certificate and not (options.timestamp or options.authority_certificate):
        print("No time-stamp authority is given: the signatures end with the certificate.")
    return bool(options.certificate)


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
    result = subprocess.run([*map(str, command), "-in", path, "-out", signed], capture_output=True, text=True)
    if result.returncode or not signed.exists():
        signed.unlink(missing_ok=True)
        raise SystemExit(f"{path} could not be signed:\n{result.stdout}{result.stderr}")
    signed.replace(path)
