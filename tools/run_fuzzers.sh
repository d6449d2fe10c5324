#!/bin/sh
# Runs each fuzzer of build/fuzz for a while, on from the inputs it has found before (build/fuzz/corpus)
# and those that the repository keeps (tests/fuzz/corpus). Stops at the first finding.
#
#   tools/run_fuzzers.sh [SECONDS]       a minute each by default
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
ran=0
for fuzzer in build/fuzz/tests/fuzz/fuzz_*; do
    [ -f "$fuzzer" ] && [ -x "$fuzzer" ] || continue
    name=$(basename "$fuzzer")
    found=build/fuzz/corpus/$name
    kept=tests/fuzz/corpus/$name
    mkdir -p "$found"
    [ -d "$kept" ] || kept=
    echo "$name, $seconds s"
    "$fuzzer" -max_total_time="$seconds" -print_final_stats=1 -verbosity=0 \
        -artifact_prefix="$found-" "$found" ${kept:+"$kept"}
    ran=$((ran + 1))
done
echo "$ran fuzzers ran without a finding"
[ "$ran" -gt 0 ]
