#!/bin/sh
# What only a release needs to be tested for: the boundary suite against the ARM64 DLL, the page of a logon in a
# browser, the DLL files of all architectures, the packages in Wine of each, signing, the contents of dist/,
# and that two builds are equal. 'make test-all' builds the DLLs first. Each check's output goes to
# build/test-logs/.
#
#   tools/test_release.sh
set -eu
cd "$(dirname "$0")/.."
logs=build/test-logs
mkdir -p "$logs"
passed=0 failed=0 skipped=

# run NAME TITLE COMMAND... : a command that prints lines "ok - " and "not ok - ", or none and is one check
# itself; its exit code 77 says that this machine cannot do it.
run() {
    name=$1 title=$2
    shift 2
    printf '%s\n' "  $title"
    code=0
    "$@" >"$logs/$name.txt" 2>&1 || code=$?
    good=$(grep -c '^ok - ' "$logs/$name.txt" || true)
    bad=$(grep -c '^not ok - ' "$logs/$name.txt" || true)
    if [ "$code" = 77 ]; then
        skipped="$skipped
Skipped: $title: $(tail -n 1 "$logs/$name.txt")"
        return
    fi
    [ "$good$bad" != 00 ] || [ "$code" != 0 ] || good=1
    passed=$((passed + good))
    if [ "$code" != 0 ]; then
        [ "$bad" != 0 ] || bad=1
        grep '^not ok - ' "$logs/$name.txt" || tail -n 40 "$logs/$name.txt"
    fi
    failed=$((failed + bad))
}

build_boundary_tests() {
    cmake --build build/windows-arm64 --target boundary_tests
}

# GoogleTest's own lines, told the way of the other checks. The tests of the dialog run apart: Wine gives
# its desktop ten seconds to come up, and under emulation that may take more than one start.
boundary_arm64() (
    tools/run_in_wine.sh arm64 hostname || exit
    cd build/windows-arm64/tests/boundary
    suite() { ../../../../tools/run_in_wine.sh arm64 ./boundary_tests.exe "--gtest_filter=$1" >"$2" 2>&1; }
    code=0
    for _ in 1 2 3; do
        dialog=0
        suite 'ExternalDialog.*' dialog.txt || dialog=$?
        grep -q desktopIsUp dialog.txt || break
    done
    suite '-ExternalDialog.*' results.txt || code=$?
    [ "$code" != 0 ] || code=$dialog
    cat dialog.txt results.txt | tr -d '\r' | sed -n 's/^\[       OK \] \(.*\) (.*/ok - arm64 \1/p
        s/^\[  FAILED  \] \(.*\) (.* ms)$/not ok - arm64 \1/p'
    # A crash leaves the last test without a line of either kind.
    [ "$code" = 0 ] || tail -n 20 dialog.txt results.txt
    exit "$code"
)

# A program under the DLL's own guard of the stack: goes on where nothing is overrun, and ends otherwise.
stack_guard() {
    cmake --build "build/windows-$1" --target overrun >/dev/null || return
    tools/run_in_wine.sh "$1" hostname >/dev/null || return
    for bytes in 0 8 9 200; do
        code=0
        tools/run_in_wine.sh "$1" "build/windows-$1/overrun.exe" "$bytes" >build/test-logs/overrun.txt || code=$?
        said=$(tr -d '\r' <build/test-logs/overrun.txt)
        case $bytes:$code:$said in
        0:0: | "8:0:went on" | 9:9: | 200:9:) echo "ok - $1 stack guard: $bytes bytes" ;;
        *) echo "not ok - $1 stack guard: $bytes bytes: $code $said" ;;
        esac
    done | tee build/test-logs/stack-guard.txt
    ! grep -q '^not ok' build/test-logs/stack-guard.txt
}

# cardhost out of its archive, with the driver of that architecture beside it: a logon with each virtual card.
# On ARM64 the driver is the DLL of the registered name, which hands on to the one that has the code.
cardhost_logons() {
    folder=build/cardhost-check/$1
    tools/run_in_wine.sh "$1" hostname >/dev/null || return
    rm -rf "$folder"
    python3 -m zipfile -e dist/kelmora-id-cardhost-*-"$1".zip "$folder" || return
    # A logon leaves files where it is called.
    logon() {
        (cd "$folder" && ../../../tools/run_in_wine.sh "$1" ./cardhost.exe --driver kelmora-id-minidriver.dll \
            --virtual "$2" logon --pin 1234) >"$folder/logon.txt" 2>&1
    }
    bad=0
    if [ "$1" = arm64 ]; then
        cp "dist/$1/kelmora-id-minidriver.dll" "$folder"
        if ! logon "$1" 5 && grep -q 'does not export' "$folder/logon.txt"; then
            echo "ok - $1 cardhost: the DLL that stands for two is nothing by itself"
        else
            echo "not ok - $1 cardhost: the DLL that stands for two is nothing by itself"
            cat "$folder/logon.txt"
            bad=1
        fi
    fi
    cp "dist/$1"/*.dll "$folder"
    for type in 3 4 5 6 7 8; do
        if logon "$1" "$type"; then
            echo "ok - $1 cardhost: a logon with a card of type $type"
        else
            echo "not ok - $1 cardhost: a logon with a card of type $type"
            cat "$folder/logon.txt"
            bad=1
        fi
    done
    return "$bad"
}

run arm64-build "Building the boundary suite for ARM64" build_boundary_tests
run arm64-boundary "Running the boundary suite against the ARM64 DLL" boundary_arm64
for architecture in x64 x86 arm64; do
    run "guard-$architecture" "Overrunning a buffer under the $architecture DLL's guard" stack_guard "$architecture"
    run "dll-$architecture" "Checking the $architecture DLL itself" tests/lint/check_dll.py \
        "$architecture" "build/windows-$architecture/kelmora-id-minidriver.dll"
    run "faults-$architecture" "Planting faults into the $architecture DLL" tests/lint/check_dll_faults.py \
        "$architecture" "build/windows-$architecture/kelmora-id-minidriver.dll"
done
run dll-forwarder "Checking the DLL that stands for two on ARM64" tests/lint/check_dll.py forwarder \
    build/windows-arm64/forwarder/kelmora-id-minidriver.dll
run faults-forwarder "Planting faults into it" tests/lint/check_dll_faults.py forwarder \
    build/windows-arm64/forwarder/kelmora-id-minidriver.dll
run report-page "Looking at the page of a logon in headless Chromium" tests/system/report/report_page_test.py \
    --cardhost build/native/cardhost --screenshots build/report
run release-make "Making dist/" packaging/windows/make_release.sh
run release-check "Checking dist/" packaging/windows/check_release.py dist
for architecture in x64 x86 arm64; do
    run "cardhost-$architecture" "Logging on by the archive's $architecture cardhost" cardhost_logons "$architecture"
done
run release-registration "Finding the cards in what registers them" \
    packaging/windows/check_registration.py dist build/native/print_card_profiles
run release-models "Planting faults in what registers them" \
    python3 -m unittest discover -s packaging/windows -p '*_test.py'
run release-signing "Signing by a throw-away authority" packaging/windows/check_signing.py \
    x64,x86,arm64
for architecture in x64 x86 arm64; do
    run "package-$architecture" "Installing the $architecture package in Wine, and more" \
        packaging/windows/check_package.py dist "$architecture"
done
run release-reproducible "Building the release once more, in another folder" tools/check_reproducible.sh dist
echo "$skipped"
echo "$passed passed, $failed failed"
[ "$failed" = 0 ] && [ "$passed" != 0 ]
