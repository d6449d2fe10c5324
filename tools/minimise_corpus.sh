#!/bin/sh
# Minimises the kept inputs of the fuzzers (tests/fuzz/corpus): those with a name stay, seeds and findings;
# of those named by a hash, and of what fuzzers have found since (build/fuzz/corpus), the fewest that run
# all code that any of them runs. Ends with a table of files and bytes, before and after.
#
#   tools/minimise_corpus.sh [TARGET ...]             all of them by default
set -eu
cd "$(dirname "$0")/.."
# shellcheck disable=SC2046 # words
[ $# -gt 0 ] || set -- $(cd tests/fuzz/corpus && ls)

is_hash='[0-9a-f]{40}'

# files FOLDER, bytes FOLDER
files() {
    find "$1" -type f | wc -l
}
bytes() {
    find "$1" -type f -exec cat {} + | wc -c
}

printf '%-24s %9s %9s %9s %9s\n' target files bytes 'files now' 'bytes now'
for name in "$@"; do
    kept=tests/fuzz/corpus/$name
    found=build/fuzz/corpus/$name
    merged=build/fuzz/merged/$name
    log=build/fuzz/merge-$name.txt
    before="$(files "$kept") $(bytes "$kept")"
    rm -rf "$merged"
    mkdir -p "$merged" "$found"
    find "$kept" -type f -regextype posix-extended ! -regex ".*/$is_hash" -exec cp {} "$merged" \;
    if ! "build/fuzz/tests/fuzz/$name" -set_cover_merge=1 -use_counters=0 -detect_leaks=0 -timeout=60 \
        "$merged" "$kept" "$found" >"$log" 2>&1 || grep '^SUMMARY' "$log" >&2; then
        echo "an input is a finding, or the merge has failed: $log" >&2
        exit 1
    fi
    find "$kept" -type f -regextype posix-extended -regex ".*/$is_hash" -delete
    find "$merged" -type f -regextype posix-extended -regex ".*/$is_hash" -exec cp {} "$kept" \;
    # shellcheck disable=SC2086 # two words
    printf '%-24s %9s %9s %9s %9s\n' "$name" $before "$(files "$kept")" "$(bytes "$kept")"
done
