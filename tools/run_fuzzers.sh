#!/bin/sh
# Runs each fuzzer of build/fuzz for a while, on from the inputs it has found before (build/fuzz/corpus)
# and those that the repository keeps (tests/fuzz/corpus). Stops at the first finding; tests/fuzz/README.md
# says what to do with it. Ahead of them one that has to find the fault that is planted in it.
#
#   tools/run_fuzzers.sh [SECONDS]       a minute each by default
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
fuzzers=build/fuzz/tests/fuzz
log=build/fuzz/planted_overflow.txt

# run_fuzzer PROGRAM SECONDS PREFIX FOLDER... : the first folder takes what is found on the way.
# Leaks are looked for once at the end: after each input that would cost three quarters of the time,
# since the errors that the product throws as pointers look like leaks at first.
run_fuzzer() {
    program=$1 limit=$2 prefix=$3
    shift 3
    "$program" -max_total_time="$limit" -timeout=60 -detect_leaks=0 -verbosity=0 \
        -dict=tests/fuzz/dictionary.txt -print_final_stats=1 -artifact_prefix="$prefix" "$@"
}

echo "planted_overflow, at most 120 s"
if run_fuzzer "$fuzzers/planted_overflow" 120 build/fuzz/planted_overflow- >"$log" 2>&1 ||
    ! grep -q 'heap-buffer-overflow' "$log"; then
    echo "the planted fault was not found: $log" >&2
    exit 1
fi

ran=0
for fuzzer in "$fuzzers"/fuzz_*; do
    [ -f "$fuzzer" ] && [ -x "$fuzzer" ] || continue
    name=$(basename "$fuzzer")
    found=build/fuzz/corpus/$name
    kept=tests/fuzz/corpus/$name
    mkdir -p "$found"
    [ -d "$kept" ] || kept=
    echo "$name, $seconds s"
    run_fuzzer "$fuzzer" "$seconds" "$found-" "$found" ${kept:+"$kept"}
    ran=$((ran + 1))
done
echo "$ran fuzzers ran without a finding"
[ "$ran" -gt 0 ]
