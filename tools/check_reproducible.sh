#!/bin/sh
# Builds both DLLs of the sources as they stand, each twice in two folders of different names, and
# compares the bytes.
set -eu
repository=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/kelmora-reproducible.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM
# Compiled anew each time.
CCACHE_DISABLE=1
export CCACHE_DISABLE

different=0
for target in x86_64:x64:KELMORA_BOTAN_X64 i686:x86:KELMORA_BOTAN_X86; do
    rest=${target#*:}
    architecture=${rest%%:*}
    botan=$("$repository/tools/build_botan.sh" "${target%%:*}")
    for folder in first a/second/longer-one; do
        copy=$work/$folder
        if [ ! -d "$copy" ]; then
            mkdir -p "$copy"
            (cd "$repository" && git ls-files --cached --others --exclude-standard |
                while IFS= read -r name; do [ ! -e "$name" ] || echo "$name"; done |
                tar --no-recursion -T - -cf -) | tar -C "$copy" -xf -
        fi
        echo "Building the $architecture DLL in $copy"
        (cd "$copy" && env "${target##*:}=$botan" cmake --preset "windows-$architecture" -DKELMORA_TESTS=OFF &&
            cmake --build "build/windows-$architecture" --target minidriver) >"$work/log.txt" 2>&1 ||
            { tail -n 30 "$work/log.txt"; exit 1; }
    done
    dll=build/windows-$architecture/kelmora-id-minidriver.dll
    if cmp "$work/first/$dll" "$work/a/second/longer-one/$dll"; then
        echo "Equal: $(sha256sum <"$work/first/$dll" | cut -d' ' -f1) ($architecture)"
    else
        different=1
        echo "The two $architecture DLLs differ."
    fi
done
exit $different
