#!/bin/sh
# What of src/ the corpus of the fuzzers runs, as a table of files: builds the replay programs with
# clang's coverage in build/fuzz-coverage and replays tests/fuzz/corpus, and build/fuzz/corpus if there.
set -eu
cd "$(dirname "$0")/.."
build=build/fuzz-coverage
cmake --preset sanitized -B "$build" \
    -DCMAKE_CXX_FLAGS='-O1 -fprofile-instr-generate -fcoverage-mapping' >/dev/null
cmake --build "$build" --target fuzzers >/dev/null
rm -f "$build"/*.profraw
objects=
for program in "$build"/tests/fuzz/fuzz_*; do
    [ -f "$program" ] && [ -x "$program" ] || continue
    name=$(basename "$program")
    found=build/fuzz/corpus/$name
    [ -d "$found" ] || found=
    LLVM_PROFILE_FILE="$build/$name.profraw" "$program" "tests/fuzz/corpus/$name" \
        ${found:+"$found"} 2>"$build/$name.txt"
    objects="$objects -object $program"
done
llvm-profdata-14 merge -o "$build/all.profdata" "$build"/*.profraw
# The programs' options are split at blanks on purpose; the first takes the place of the binary.
# shellcheck disable=SC2086
llvm-cov-14 report "$build/tests/fuzz/fuzz_texts" $objects \
    -instr-profile="$build/all.profdata" -show-region-summary=false \
    -ignore-filename-regex='(third_party|virtual_card|tests|/usr)/'
