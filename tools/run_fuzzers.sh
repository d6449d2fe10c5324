#!/bin/sh
# Runs each fuzzer of build/fuzz for a while, on from the inputs it has found before (build/fuzz/corpus)
# and those that the repository keeps (tests/fuzz/corpus), and ends with a table: runs, features covered,
# findings. A finding lies in build/fuzz/corpus/TARGET-...; tests/fuzz/README.md says what to do with it.
# Ahead of them one that has to find the fault that is planted in it.
#
#   tools/run_fuzzers.sh [SECONDS [TARGET ...]]       a minute each by default, and each of them
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ $# -eq 0 ] || shift
fuzzers=build/fuzz/tests/fuzz
log=build/fuzz/planted_overflow.txt

# run_fuzzer PROGRAM SECONDS PREFIX FOLDER... : the first folder takes what is found on the way.
# Leaks are looked for once at the end: after each input that would cost three quarters of the time,
# since the errors that the product throws as pointers look like leaks at first.
run_fuzzer() {
    program=$1 limit=$2 prefix=$3
    shift 3
    "$program" -max_total_time="$limit" -timeout=60 -detect_leaks=0 \
        -dict=tests/fuzz/dictionary.txt -print_final_stats=1 -artifact_prefix="$prefix" "$@"
}

echo "planted_overflow, at most 120 s"
if run_fuzzer "$fuzzers/planted_overflow" 120 build/fuzz/planted_overflow- >"$log" 2>&1 ||
    ! grep -q 'heap-buffer-overflow' "$log"; then
    echo "the planted fault was not found: $log" >&2
    exit 1
fi

if [ $# -eq 0 ]; then
    for program in "$fuzzers"/fuzz_*; do
        [ -f "$program" ] && [ -x "$program" ] || continue
        set -- "$@" "$(basename "$program")"
    done
fi
[ $# -gt 0 ]
total=0
findings=0
printf '%-24s %12s %9s %9s\n' target runs features findings
for name in "$@"; do
    found=build/fuzz/corpus/$name
    kept=tests/fuzz/corpus/$name
    log=build/fuzz/$name.txt
    mkdir -p "$found"
    [ -d "$kept" ] || kept=
    finding=0
    run_fuzzer "$fuzzers/$name" "$seconds" "$found-" "$found" ${kept:+"$kept"} >"$log" 2>&1 || finding=1
    # Without the count of runs it has not run at all.
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    if [ -z "$runs" ]; then
        tail -n 5 "$log" >&2
        exit 1
    fi
    features=$(sed -n 's/.* ft: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
    printf '%-24s %12s %9s %9s\n' "$name" "$runs" "${features:--}" "$finding"
    [ "$finding" = 0 ] || grep -E '^SUMMARY|^does not hold|Test unit written' "$log" >&2 || true
    total=$((total + runs))
    findings=$((findings + finding))
done
printf '%-24s %12s %9s %9s\n' together "$total" '' "$findings"
[ "$findings" -eq 0 ]
