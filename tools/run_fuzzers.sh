#!/bin/sh
# Runs each fuzzer of build/fuzz for a while, on from the inputs it has found before (build/fuzz/corpus)
# and those that the repository keeps (tests/fuzz/corpus), and ends with a table: runs, features covered,
# findings. A finding lies in build/fuzz/corpus/TARGET-...; tests/fuzz/README.md says what to do with it.
# Ahead of them one that has to find the fault that is planted in it.
#
#   tools/run_fuzzers.sh [-j JOBS] [-r RUNS] [SECONDS [TARGET ...]]
#
#   SECONDS   for each target: 60 by default
#   TARGET    all of them by default
#   -j JOBS   so many side by side: 1 by default
#   -r RUNS   at least so many runs together: when each has had its time, the quick ones go on with
#             inputs of up to 96 bytes; their rows come again, with the sums
set -eu
cd "$(dirname "$0")/.."
fuzzers=build/fuzz/tests/fuzz
record=build/fuzz/runs.txt # target, seconds of a processor, runs, features, findings: a line for each run

usage() {
    sed -n 's/^#   \(tools.*\)/usage: \1/p' "$0" >&2
    exit 2
}

# run_fuzzer PROGRAM PREFIX OPTION... FOLDER... : the first folder takes what is found on the way.
# Leaks are looked for once at the end: after each input that would cost three quarters of the time,
# since the errors that the product throws as pointers look like leaks at first.
run_fuzzer() {
    program=$1 prefix=$2
    shift 2
    "$program" -timeout=300 -report_slow_units=60 -detect_leaks=0 -dict=tests/fuzz/dictionary.txt \
        -print_final_stats=1 -artifact_prefix="$prefix" "$@"
}

row() {
    printf '%-24s %12s %9s %9s\n' "$@"
}

# one TARGET LIMIT : a line in the record, and the target's row with the sums of all its lines.
one() {
    name=$1 limit=$2
    found=build/fuzz/corpus/$name
    kept=tests/fuzz/corpus/$name
    log=build/fuzz/$name.txt
    mkdir -p "$found"
    [ -d "$kept" ] || kept=
    finding=0
    # What is to make a number of runs makes them with short inputs; long ones have had their time.
    case $limit in -runs=*) short=-max_len=96 ;; *) short= ;; esac
    run_fuzzer "$fuzzers/$name" "$found-" "$limit" ${short:+"$short"} "$found" ${kept:+"$kept"} \
        >"$log" 2>&1 || finding=1
    # Without the count of runs it has not run at all.
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    if [ -z "$runs" ]; then
        tail -n 5 "$log" >&2
        exit 1
    fi
    features=$(sed -n 's/.* ft: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
    # Not by the clock: on a busy machine that says nothing of how quick a target is.
    times >"$log.times"
    spent=$(awk 'NR == 2 { split($1, part, /[ms]/); print int(part[1] * 60 + part[2]) }' "$log.times")
    echo "$name $spent $runs ${features:--} $finding" >>"$record"
    # shellcheck disable=SC2046 # three words
    row "$name" $(awk -v name="$name" '$1 == name { runs += $3; features = $4; findings += $5 }
                                       END { printf "%d %s %d", runs, features, findings }' "$record")
    [ "$finding" = 0 ] || grep -E '^SUMMARY|^does not hold|Test unit written' "$log" >&2 || true
}

# Lines of a target and its limit, which run side by side.
all() {
    xargs -r -P "$jobs" -L 1 tools/run_fuzzers.sh --one
}

# The missing runs among those that are at least half as quick as the quickest, by their rates, so that
# they end together. One with a finding would stop at it again.
shares() {
    awk -v wanted="$1" '
        { total += $3; if ($5) next; rate[$1] = $3 / ($2 + 1); if (rate[$1] > best) best = rate[$1] }
        END {
            for (name in rate) if (rate[name] >= best / 2) sum += rate[name]
            if (total < wanted && sum > 0)
                for (name in rate) if (rate[name] >= best / 2)
                    printf "%s -runs=%d\n", name, (wanted - total) * rate[name] / sum + 1
        }' "$record"
}

jobs=1
wanted=0
if [ "${1:-}" = --one ]; then
    one "$2" "$3"
    exit
fi
while getopts j:r: option; do
    case $option in
        j) jobs=$OPTARG ;;
        r) wanted=$OPTARG ;;
        *) usage ;;
    esac
done
shift $((OPTIND - 1))
seconds=${1:-60}
[ $# -eq 0 ] || shift
for number in "$jobs" "$wanted" "$seconds"; do
    case $number in '' | *[!0-9]*) usage ;; esac
done
if [ $# -eq 0 ]; then
    for program in "$fuzzers"/fuzz_*; do
        if [ ! -f "$program" ] || [ ! -x "$program" ]; then continue; fi
        set -- "$@" "$(basename "$program")"
    done
fi
[ $# -gt 0 ] || usage

echo "Targets: $#, for $seconds s each, so many side by side: $jobs"
log=build/fuzz/planted_overflow.txt
echo "planted_overflow, at most 120 s"
if run_fuzzer "$fuzzers/planted_overflow" build/fuzz/planted_overflow- -max_total_time=120 >"$log" 2>&1 ||
    ! grep -q 'heap-buffer-overflow' "$log"; then
    echo "the planted fault was not found: $log" >&2
    exit 1
fi

row target runs features findings
: >"$record"
printf "%s -max_total_time=$seconds\n" "$@" | all
shares "$wanted" | all
awk '{ runs += $3; findings += $5 } END { printf "%-24s %12d %9s %9d\n", "together", runs, "", findings
                                          exit findings != 0 }' "$record"
