"""The software bill of materials (SPDX 2.3): what is linked into each file, by the linker's own map, and the
licences of that as a text."""
import dataclasses
import hashlib
import json
import pathlib
import re
import subprocess
from urllib.parse import quote

MAKER = "The Kelmora ID minidriver developers"
GCC_LICENCE = "GPL-3.0-or-later WITH GCC-exception-3.1"
LLVM_LICENCE = "Apache-2.0 WITH LLVM-exception"
OUR_LICENCE = "MIT"


@dataclasses.dataclass(frozen=True)
class Component:
    """A part that is not our own: its licence, Debian's source package, and the binary package that tells its
    version and copyright; where there is no such package, the build of the ARM64 runtime tells both. Pattern:
    archives of a map, or objects outside of any."""
    licence: str
    source: str
    package: str
    pattern: str = ""
    field: str = "source:Version"


COMPONENTS = {
    "fmt": Component("MIT", "fmtlib", "libfmt-dev", r"libfmt"),
    "Botan": Component("BSD-2-Clause", "botan", "libbotan-2-dev", r"libbotan-2"),
    "CLI11": Component("BSD-3-Clause", "cli11", "libcli11-dev"),
    "JSON for Modern C++": Component("MIT", "nlohmann-json3", "nlohmann-json3-dev"),
    "libc++": Component(LLVM_LICENCE, "llvm-toolchain-19", "", r"libc\+\+|libc\+\+abi|libunwind"),
    "compiler-rt": Component(LLVM_LICENCE, "llvm-toolchain-22", "clang-22", r"libclang_rt\..*"),
    # Its source package has a number of its own: the version of the compiler is that of the binary.
    "GCC runtime": Component(GCC_LICENCE, "g++-mingw-w64-x86-64-win32", "g++-mingw-w64-x86-64-win32",
                             r"libstdc\+\+|libgcc|libgcc_eh|libssp|crtbegin\.o|crtend\.o|crtfastmath\.o", "Version"),
    "mingw-w64 runtime": Component(
        "ZPL-2.1", "mingw-w64", "mingw-w64-common",
        r"(dll)?crt2\.o|lib(mingw32|mingwex|moldname|msvcrt|ucrt|kernel32|user32|advapi32|ole32|shell32|version|"
        r"crypt32|bcrypt|winhttp|winscard|wintrust|ws2_32|api-ms-win-crt-.*)"),
    "winpthreads": Component("MIT AND BSD-3-Clause", "mingw-w64", "mingw-w64-common", r"libpthread|libwinpthread"),
}
OUR_OWN = (r"lib(kelmora_driver|cardhost_parts|doctor|virtual_reader|virtual_card|recording)|(\w+\.cpp|unity_\d+_cxx\.cxx)\.obj|"
           r"version\.rc\.res|<linker-defined>|<absolute>|<common>")


def package_version(package, field="source:Version"):
    return subprocess.run(["dpkg-query", "-W", "-f", f"${{{field}}}", package], check=True,
                          capture_output=True, text=True).stdout


def upstream(version):
    return re.sub(r"^\d+:", "", version).rsplit("-", 1)[0].split("+ds")[0].split("+dfsg")[0].split("~")[0]


def version_of(component, runtime):
    if component.package:
        return package_version(component.package, component.field)
    return dict(line.split(" ", 1) for line in
                (pathlib.Path(runtime) / "versions.txt").read_text().splitlines())[component.source]


def licence_text(component, runtime):
    path = (pathlib.Path("/usr/share/doc") / component.package / "copyright" if component.package else
            pathlib.Path(runtime) / "COPYING.LLVM.txt")
    return path.read_text(encoding="utf-8")


def licences(runtime):
    """The licences of all components, one after the other."""
    texts = {}
    for name, component in COMPONENTS.items():
        texts.setdefault(licence_text(component, runtime), []).append(name)
    line = "=" * 80
    return "".join(f"{line}\n{', '.join(names)}\n{line}\n\n{text.rstrip()}\n\n" for text, names in texts.items())


def names_of_map(text):
    """What a linker's map says that was taken: archives and objects, without folders. The linkers are lld, whose
    lists of symbols name it in their last column, and GNU ld, which begins with the archives' members."""
    if text.startswith("Archive member included"):
        members = re.findall(r"^(\S+)\.a\(", text.split("\nDiscarded input sections")[0], re.M)
        objects = re.findall(r"^LOAD (\S+\.(?:o|obj))$", text, re.M)
        return {pathlib.PurePath(name).name for name in members + objects}
    return {place.split(":")[0] for place in
            re.findall(r"^\s*[0-9a-f]{4}:[0-9a-f]{8}\s+\S.*?\s[0-9a-f]{16}\s.*?(\S+)$", text, re.M)}


def linked_in(link_map):
    """The components that a linker's map names."""
    components = set()
    for name in names_of_map(link_map.read_text(errors="replace")):
        component = next((key for key, part in COMPONENTS.items() if re.fullmatch(part.pattern, name)), None)
        if component:
            components.add(component)
        elif not re.fullmatch(OUR_OWN, name):
            raise SystemExit(f"{link_map}: no component is known for {name}")
    if not components:
        raise SystemExit(f"{link_map} is no map of a linker")
    return components


def make(version, date, files, runtime, output):
    """Writes the bill of materials. files: (name in the distribution, content, names of the components in it);
    what is in an archive follows it, its name behind that of the archive and a slash."""
    packages, relations, described = {}, [], []
    namespace = hashlib.sha256()
    archive = None
    for name, content, components in files:
        digest = hashlib.sha256(content).hexdigest()
        namespace.update(f"{name} {digest}\n".encode())
        identifier = "SPDXRef-File-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)
        is_archive = name.endswith(".zip")
        described.append({
            "SPDXID": identifier, "fileName": "./" + name, "fileTypes": ["ARCHIVE" if is_archive else "BINARY"],
            "checksums": [{"algorithm": "SHA1", "checksumValue": hashlib.sha1(content).hexdigest()},
                          {"algorithm": "SHA256", "checksumValue": digest}],
            "licenseConcluded": "NOASSERTION", "licenseInfoInFiles": ["NOASSERTION"], "copyrightText": "NOASSERTION"})
        if is_archive:
            archive = (name + "/", identifier)
        contained = archive and name.startswith(archive[0])
        relations.append((archive[1] if contained else "SPDXRef-Minidriver", "CONTAINS", identifier))
        for component in sorted(components):
            reference = "SPDXRef-" + re.sub(r"[^A-Za-z0-9]+", "-", component.replace("+", "x"))
            part = COMPONENTS[component]
            version_there = version_of(part, runtime)
            packages[reference] = {
                "SPDXID": reference, "name": component, "versionInfo": upstream(version_there),
                "supplier": "Organization: Debian", "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
                "licenseConcluded": part.licence, "licenseDeclared": part.licence, "copyrightText": "NOASSERTION",
                "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                  "referenceLocator": f"pkg:deb/debian/{quote(part.source)}@{quote(version_there)}"}]}
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
