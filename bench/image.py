"""What a Windows DLL is made of: its size by section, what takes the space, and what loading it touches."""
import bisect
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[1]
PAGE = 4096

# What an address belongs to, by the section that it came from, the symbol there and its object.
KINDS = ("own code", "own constants", "formatting", "C++ library", "C runtime", "tables for exceptions",
         "imports", "resources, relocations, headers")
# The objects of others among the largest, and what each is for.
PURPOSES = {
    "libfmt:fmt_library.cpp": "the formatting of log lines, compiled once",
    "libstdc++:cow-stdexcept.o": "copies of exception texts",
    "libstdc++:eh_alloc.o": "memory for exceptions, a reserve for when there is no more",
    "libstdc++:eh_personality.o": "finds the handler of an exception",
    "libstdc++:eh_terminate.o": "the end of the process where nothing can be caught",
    "libstdc++:stdexcept.o": "the standard exceptions",
    "libstdc++:tree.o": "the balancing of std::map",
    "libstdc++:functexcept.o": "throws the standard exceptions",
    "libstdc++:pointer_type_info.o": "which handlers take a thrown pointer",
    "libstdc++:si_class_type_info.o": "which handlers take a derived exception",
    "libstdc++:vmi_class_type_info.o": "the same with several bases",
    "libstdc++:class_type_info.o": "the same without one",
    "libstdc++:new_op.o": "operator new",
    "libstdc++:system_error.o": "errors with a code",
    "libgcc_eh:unwind-dw2.o": "walks the stack for an exception",
    "libgcc_eh:unwind-dw2-fde.o": "finds the unwind table of a function",
    "libgcc_eh:unwind-seh.o": "walks the stack for an exception, by Windows' own tables",
}


def contributions(link_map):
    """Of a map of lld: (section number, offset, size, section name) in order."""
    found = []
    for line in link_map.splitlines():
        match = re.match(r"\s*([0-9a-f]{4}):([0-9a-f]{8})\s+([0-9a-f]{8})H\s+(\S+)\s+(?:CODE|DATA)", line)
        if match:
            found.append((int(match[1], 16), int(match[2], 16), int(match[3], 16), match[4]))
    return sorted(set(found))


def symbols(link_map):
    """Of a map of lld: (section number, offset) to (symbol, object)."""
    found = {}
    for line in link_map.splitlines():
        match = re.match(r"\s*([0-9a-f]{4}):([0-9a-f]{8})\s+(\S.*?)\s+[0-9a-f]{16}\s.*?(\S+)$", line)
        if match:
            found.setdefault((int(match[1], 16), int(match[2], 16)), (match[3].strip(), match[4]))
    return found


def kind_of(section, symbol, owner):
    base = section.split("$")[0]
    if base in (".eh_frame", ".gcc_except_table", ".pdata", ".xdata"):
        return "tables for exceptions"
    if base.startswith((".idata", ".CRT")) or owner.startswith(
            ("libmsvcrt", "libkernel32", "libwinscard", "libcrypt32", "libadvapi32", "libbcrypt",
             "libwinhttp", "libole32", "libuser32")):
        return "imports"
    if base == ".rsrc":
        return "resources, relocations, headers"
    if owner.startswith("libfmt") or "3fmt2v" in symbol or "3fmt2v" in section:
        return "formatting"
    if owner.startswith(("libstdc++", "libgcc", "libc++", "libunwind")):
        return "C++ library"
    if re.search(r"_Z(N?K?St|NKSt|NSt|N9__gnu_cxx|T[VISv]|G|NSs|S)", symbol + section) and \
            "9KelmoraID" not in symbol + section:
        return "C++ library"
    if owner.startswith(("libmingw", "dllcrt2", "crtbegin", "crtend", "libssp", "libmoldname")):
        return "C runtime"
    return "own code" if base == ".text" or base.startswith(".text") else "own constants"


def shares(known, places, section, offset, size):
    """Parts a contribution among the symbols in it: (symbol, object, bytes)."""
    first = bisect.bisect_left(places, (section, offset))
    last = bisect.bisect_left(places, (section, offset + size))
    starts = [offset, *(place[1] for place in places[first + 1:last])] if first < last else [offset]
    for number, start in enumerate(starts):
        end = starts[number + 1] if number + 1 < len(starts) else offset + size
        symbol, owner = known[first + number][1] if first < last else ("", "")
        yield symbol, owner, end - start


def breakdown(link_map, total):
    """The bytes of a DLL by kind, and the ten objects that take the most; by its linker's map."""
    known = sorted(symbols(link_map).items())
    places = [place for place, _ in known]
    kinds, objects = dict.fromkeys(KINDS, 0), {}
    counted = 0
    for section, offset, size, name in contributions(link_map):
        if name.startswith((".debug", ".bss", ".reloc")):
            continue
        counted += size
        for symbol, owner, share in shares(known, places, section, offset, size):
            kind = kind_of(name, symbol, owner)
            kinds[kind] += share
            if owner and kind not in ("tables for exceptions", "imports"):
                owner = owner.removesuffix(".obj")
                objects[owner] = objects.get(owner, 0) + share
    kinds["resources, relocations, headers"] += max(0, total - counted)
    largest = sorted(objects.items(), key=lambda item: -item[1])[:10]
    return kinds, [(name, size, purpose_of(name)) for name, size in largest]


def purpose_of(name):
    """What an object is for: of our own what its source says at its head."""
    if name in PURPOSES:
        return PURPOSES[name]
    source = name.split(":")[-1]
    for path in sorted((ROOT / "src").rglob(source)) if source.endswith(".cpp") else []:
        header = path.with_suffix(".h")
        for file in (path, header):
            text = file.read_text(encoding="utf-8") if file.exists() else ""
            if text.startswith("//"):
                comment = " ".join(line[2:].strip() for line in re.match(r"(?://.*\n)+", text)[0].splitlines())
                return re.split(r"(?<=[^.][.:;])\s", comment)[0].rstrip(".:;")
        return path.parent.name
    library = name.split(":")[0]
    if name.startswith("libmsvcrt"):
        return "calls into the system's C library"
    return {"libstdc++": "of the C++ library", "libgcc_eh": "unwinding", "libmingwex": "of the C runtime",
            "libmingw32": "start of the runtime"}.get(library, library)


def facts(dll):
    """What the file itself tells of a load: relocations, the pages they write, sections."""
    import pefile  # pylint: disable=import-outside-toplevel
    image = pefile.PE(str(dll), fast_load=True)
    image.parse_data_directories([pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_BASERELOC"],
                                  pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_IMPORT"]])
    written, relocations = set(), 0
    for block in getattr(image, "DIRECTORY_ENTRY_BASERELOC", []):
        entries = [entry for entry in block.entries if entry.type != 0]
        relocations += len(entries)
        written.update(entry.rva // PAGE for entry in entries)
    imports = 0
    for library in image.DIRECTORY_ENTRY_IMPORT:
        imports += len(library.imports)
        base = image.OPTIONAL_HEADER.ImageBase
        written.update((entry.address - base) // PAGE for entry in library.imports)
    return {"bytes": dll.stat().st_size, "relocations": relocations, "imports": imports,
            "pages": -(-image.OPTIONAL_HEADER.SizeOfImage // PAGE), "pages written at load": len(written),
            "sections": {section.Name.rstrip(b"\0").decode(): section.SizeOfRawData
                         for section in image.sections}}


def static_initialisers(link_map):
    """The functions that build static objects at load, by the first name of their source."""
    return sorted({name.split("_GLOBAL__sub_I_")[1] for _, _, _, name in contributions(link_map)
                   if "_GLOBAL__sub_I_" in name})
