#!/usr/bin/env python3
"""Writes assembler source that imports all that a DLL imports, and does nothing with it.

Usage: same_imports.py DLL OUTPUT [as-large]

With 'as-large' it brings as many bytes of code and of constants as the DLL too.
"""
import os
import pathlib
import sys

try:
    import pefile
except ImportError:  # the package is the system Python's
    if sys.executable == "/usr/bin/python3":
        raise
    os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])


def main():
    dll, output = map(pathlib.Path, sys.argv[1:3])
    image = pefile.PE(dll, fast_load=True)
    image.parse_data_directories([pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_IMPORT"]])
    names = sorted(entry.name.decode() for library in image.DIRECTORY_ENTRY_IMPORT
                   for entry in library.imports)
    loads = "".join(f"\tmovq __imp_{name}(%rip), %rax\n" for name in names)
    text = f"\t.text\n\t.globl keepImports\nkeepImports:\n{loads}\tret\n"
    if sys.argv[3:] == ["as-large"]:
        sizes = {section.Name.rstrip(b"\0").decode(): section.SizeOfRawData for section in image.sections}
        text += f"\t.fill {sizes['.text']}, 1, 0xCC\n"
        text += f"\t.section .rdata\n\t.fill {sum(sizes.values()) - sizes['.text']}, 1, 0x55\n"
    output.write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main()
