"""cardhost as an archive for one architecture: the program, and the library by which it puts a virtual card or
a recording in the place of Windows' readers. The driver is the installed one."""
import datetime
import io
import shutil
import zipfile

import make_sbom

THIRD_PARTY = "THIRD-PARTY-LICENCES"
# What is compiled in from headers alone, which no linker's map tells of.
HEADERS_ONLY = {"CLI11", "JSON for Modern C++"}
# Name in the archive: place in the build folder of its architecture, the linker's map there, headers.
PROGRAMS = {
    "cardhost.exe": ("cardhost.exe", "debug/cardhost.map", HEADERS_ONLY),
    "virtual-card/winscard.dll": ("virtual-card/winscard.dll", "virtual-card/winscard.map", set()),
}
TEXTS = ["LICENSE", THIRD_PARTY]


def archive_name(version, architecture):
    return f"kelmora-id-cardhost-{version}-{architecture}.zip"


def make(version, architecture, built, folder, epoch, sign):
    """Writes the archive into the folder, which has the texts, of what is built. sign is called with the path of
    each program before it is packed. Equal input gives equal bytes. Gives what the bill of materials lists."""
    contents, listed = {name: (folder / name).read_bytes() for name in TEXTS}, []
    archive = archive_name(version, architecture)
    passing = folder / f"cardhost-{architecture}"
    for name, (place, link_map, headers) in PROGRAMS.items():
        program = passing / name
        program.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(built / place, program)
        sign(program)
        contents[name] = program.read_bytes()
        listed.append((f"{archive}/{name}", contents[name], make_sbom.linked_in(built / link_map) | headers))
    shutil.rmtree(passing)
    moment = datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc).timetuple()[:6]
    packed = io.BytesIO()
    with zipfile.ZipFile(packed, "w") as writer:
        for name, content in sorted(contents.items()):
            entry = zipfile.ZipInfo(name, moment)
            entry.compress_type = zipfile.ZIP_DEFLATED
            writer.writestr(entry, content, compresslevel=9)
    (folder / archive).write_bytes(packed.getvalue())
    return [(archive, packed.getvalue(), ()), *listed]
