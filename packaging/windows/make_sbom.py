"""The software bill of materials (SPDX 2.3): what is linked into the DLLs, by the linker's own maps."""
import hashlib
import json
import pathlib
import re
import subprocess
from urllib.parse import quote

MAKER = "The Kelmora ID minidriver developers"
GCC_LICENCE = "GPL-3.0-or-later WITH GCC-exception-3.1"
LLVM_LICENCE = "Apache-2.0 WITH LLVM-exception"
MINGW_LICENCE = "ZPL-2.1"
OUR_LICENCE = "MIT"
# Archives of a map, or objects outside of any, and the component that they belong to.
COMPONENTS = {
    "fmt": r"libfmt",
    "Botan": r"libbotan-2",
    "libc++": r"libc\+\+|libc\+\+abi|libunwind",
    "compiler-rt": r"libclang_rt\..*",
    "GCC runtime": r"libstdc\+\+|libgcc|libgcc_eh|libssp|crtbegin\.o|crtend\.o",
    "mingw-w64 runtime": r"dllcrt2\.o|lib(mingw32|mingwex|moldname|msvcrt|ucrt|kernel32|user32|advapi32|ole32|"
                         r"crypt32|bcrypt|winhttp|winscard|api-ms-win-crt-.*)",
}
OUR_OWN = r"libkelmora_driver|\w+\.cpp\.obj|version\.rc\.res|<linker-defined>|<absolute>|<common>"


def package_version(package, field="source:Version"):
    return subprocess.run(["dpkg-query", "-W", "-f", f"${{{field}}}", package], check=True,
                          capture_output=True, text=True).stdout


def upstream(version):
    return re.sub(r"^\d+:", "", version).rsplit("-", 1)[0].split("+ds")[0].split("+dfsg")[0].split("~")[0]


def describe(component, runtime):
    """Licence, Debian package and its version of a component."""
    versions = dict(line.split(" ", 1) for line in
                    (pathlib.Path(runtime) / "versions.txt").read_text().splitlines()) if runtime else {}
    found = {
        "fmt": ("MIT", "fmtlib", lambda: package_version("libfmt-dev")),
        "Botan": ("BSD-2-Clause", "botan", lambda: package_version("libbotan-2-dev")),
        "libc++": (LLVM_LICENCE, "llvm-toolchain-19", lambda: versions["llvm-toolchain-19"]),
        "compiler-rt": (LLVM_LICENCE, "llvm-toolchain-22", lambda: package_version("clang-22")),
        # Its source package has a number of its own: the version of the compiler is that of the binary.
        "GCC runtime": (GCC_LICENCE, "g++-mingw-w64-x86-64-win32",
                        lambda: package_version("g++-mingw-w64-x86-64-win32", "Version")),
        "mingw-w64 runtime": (MINGW_LICENCE, "mingw-w64", lambda: package_version("mingw-w64-common")),
    }[component]
    return found[0], found[1], found[2]()


def linked_in(link_map):
    """The components whose objects a linker's map names: the last column of its lists of symbols."""
    components = set()
    for line in link_map.read_text(errors="replace").splitlines():
        place = re.match(r"\s*[0-9a-f]{4}:[0-9a-f]{8}\s+\S.*?\s[0-9a-f]{16}\s.*?(\S+)$", line)
        if not place:
            continue
        name = place[1].split(":")[0]
        component = next((key for key, pattern in COMPONENTS.items() if re.fullmatch(pattern, name)), None)
        if component:
            components.add(component)
        elif not re.fullmatch(OUR_OWN, name):
            raise SystemExit(f"{link_map}: no component is known for {name}")
    if not components:
        raise SystemExit(f"{link_map} is no map of a linker")
    return components


def make(version, date, files, runtime, output):
    """Writes the bill of materials. files: (name in the distribution, path, linker's map or None)."""
    packages, relations, described = {}, [], []
    namespace = hashlib.sha256()
    for name, path, link_map in files:
        digest = hashlib.sha256(path.read_bytes()).hexdigest()
        namespace.update(f"{name} {digest}\n".encode())
        identifier = "SPDXRef-File-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)
        described.append({
            "SPDXID": identifier, "fileName": "./" + name, "fileTypes": ["BINARY"],
            "checksums": [{"algorithm": "SHA1", "checksumValue": hashlib.sha1(path.read_bytes()).hexdigest()},
                          {"algorithm": "SHA256", "checksumValue": digest}],
            "licenseConcluded": "NOASSERTION", "licenseInfoInFiles": ["NOASSERTION"], "copyrightText": "NOASSERTION"})
        relations.append(("SPDXRef-Minidriver", "CONTAINS", identifier))
        for component in sorted(linked_in(link_map)) if link_map else []:
            reference = "SPDXRef-" + re.sub(r"[^A-Za-z0-9]+", "-", component.replace("+", "x"))
            licence, source, debian = describe(component, runtime)
            packages[reference] = {
                "SPDXID": reference, "name": component, "versionInfo": upstream(debian),
                "supplier": "Organization: Debian", "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
                "licenseConcluded": licence, "licenseDeclared": licence, "copyrightText": "NOASSERTION",
                "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                  "referenceLocator": f"pkg:deb/debian/{quote(source)}@{quote(debian)}"}]}
            relations.append((identifier, "STATIC_LINK", reference))
    document = {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"kelmora-id-minidriver-{version}",
        "documentNamespace": f"urn:sha256:{namespace.hexdigest()}",
        "creationInfo": {"created": f"{date}T00:00:00Z", "creators": [f"Organization: {MAKER}"]},
        "packages": [{"SPDXID": "SPDXRef-Minidriver", "name": "kelmora-id-minidriver", "versionInfo": version,
                      "supplier": f"Organization: {MAKER}", "downloadLocation": "NOASSERTION",
                      "filesAnalyzed": False, "primaryPackagePurpose": "LIBRARY", "licenseConcluded": OUR_LICENCE,
                      "licenseDeclared": OUR_LICENCE, "copyrightText": f"Copyright (c) 2026 {MAKER}"},
                     *(packages[key] for key in sorted(packages))],
        "files": described,
        "relationships": [{"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
                           "relatedSpdxElement": "SPDXRef-Minidriver"},
                          *({"spdxElementId": a, "relationshipType": kind, "relatedSpdxElement": b}
                            for a, kind, b in relations)],
    }
    output.write_text(json.dumps(document, indent=2) + "\n", encoding="utf-8")
