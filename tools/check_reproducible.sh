#!/bin/sh
# Builds the release of the sources as they stand twice, in two folders of different names, and compares
# dist/ byte for byte; or once, and compares it with a release that is there, unsigned, of the same sources.
# Takes the runtimes of the cross builds from where they are kept.
#
#   tools/check_reproducible.sh [DIST]
set -eu
[ $# -le 1 ] || { echo "usage: $0 [DIST]" >&2; exit 2; }
there=${1:+$(cd "$1" && pwd)}
repository=$(cd "$(dirname "$0")/.." && pwd)
git -C "$repository" ls-files --error-unmatch tools/check_reproducible.sh >/dev/null 2>&1 || {
    echo "$0: needs git, and a git checkout of its own: what belongs to the sources is what git tells" >&2
    exit 1
}
work=$(mktemp -d "${TMPDIR:-/tmp}/kelmora-reproducible.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM
# Compiled anew each time.
CCACHE_DISABLE=1
KELMORA_CACHE=${KELMORA_CACHE:-$repository/build/cache}
export KELMORA_CACHE
for target in x86_64 i686; do "$repository/tools/build_botan.sh" "$target" >/dev/null; done
KELMORA_BOTAN_ARM64=$("$repository/tools/build_botan.sh" aarch64)
KELMORA_ARM64_RUNTIME=$("$repository/tools/build_arm64_runtime.sh")
export CCACHE_DISABLE KELMORA_BOTAN_ARM64 KELMORA_ARM64_RUNTIME

build() { # the folder
    for architecture in x64 x86 arm64; do
        cmake --preset "windows-$architecture" -DKELMORA_TESTS=OFF
    done
    cmake --build build/windows-arm64 --target forwarder
    packaging/windows/make_release.sh
}

compare() {
    if diff -r "$1" "$2"; then
        echo "Equal, $(find "$1" -type f | wc -l) files:"
        cat "$1/SHA256SUMS"
    else
        echo "The two releases differ."
        exit 1
    fi
}

for folder in first a/second/longer-one; do
    [ -z "$there" ] || [ "$folder" != first ] || continue
    copy=$work/$folder
    mkdir -p "$copy"
    (cd "$repository" && git ls-files --cached --others --exclude-standard |
        while IFS= read -r name; do [ ! -e "$name" ] || echo "$name"; done |
        tar --no-recursion -T - -cf -) | tar -C "$copy" -xf -
    echo "Building a release in $copy"
    (cd "$copy" && build) >"$work/log.txt" 2>&1 || { tail -n 30 "$work/log.txt"; exit 1; }
done
compare "${there:-$work/first/dist}" "$work/a/second/longer-one/dist"
