#!/bin/sh
# Runs a Windows program in Wine and exits with its exit code; with 77, and the reason on standard error, where
# this machine does not allow it. Calls may run at the same time.
#
#   tools/run_in_wine.sh x64|x86|arm64 PROGRAM [ARGUMENT ...]
#
# An x86 or ARM64 program runs in the folder of tools/wine_folder.sh, with this repository and the current
# folder visible at their own paths, and with the variables whose names begin with KELMORA_. A winscard.dll
# beside the program goes before Wine's own. The Wine prefix is one of the repository's build folder for each
# architecture, unless WINEPREFIX names another (inside the repository or the current folder).
set -eu

usage() { echo "usage: $0 x64|x86|arm64 PROGRAM [ARGUMENT ...]" >&2; exit 2; }
[ $# -ge 2 ] || usage
architecture=$1
shift
here=$(cd "$(dirname "$0")" && pwd)
repository=$(dirname "$here")
WINEPREFIX=${WINEPREFIX:-$repository/build/wine/$architecture}
WINEDEBUG=${WINEDEBUG:--all}
# The browser and .NET parts of a prefix are not wanted: asking to fetch them would stop a first run.
WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-winscard=n,b;mscoree=;mshtml=}
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
mkdir -p "$WINEPREFIX"

case $architecture in
x64)
    unset DISPLAY
    WINEARCH=win64
    export WINEARCH
    in_wine() { wine "$@"; }
    ;;
x86 | arm64)
    folder=$("$here/wine_folder.sh" "$architecture") || exit $?
    [ "$architecture" = x86 ] && WINEARCH=win32 || WINEARCH=win64
    as_root=
    [ "$(id -u)" = 0 ] || as_root="sudo -n"
    # The mounts live in a namespace of their own and go with the last process in it.
    in_wine() {
        set -- wine "$@"
        # What the tests go by, such as KELMORA_ROUNDS.
        for name in $(env | sed -n 's/^\(KELMORA_[A-Z_]*\)=.*/\1/p'); do
            eval "set -- \"$name=\$$name\" \"\$@\""
        done
        $as_root unshare --mount --propagation private sh -c '
            set -e
            folder=$1 repository=$2 current=$3
            shift 3
            mount -t proc proc "$folder/proc"
            mount --rbind /dev "$folder/dev"
            for visible in "$repository" "$current"; do
                [ "$visible" != / ] || continue
                mkdir -p "$folder$visible"
                mount --rbind "$visible" "$folder$visible"
            done
            exec chroot "$folder" /usr/bin/env "$@"
        ' sh "$folder" "$repository" "$PWD" \
            -i -C "$PWD" HOME=/root PATH=/usr/bin:/bin LANG=C.UTF-8 WINEARCH="$WINEARCH" \
            WINEPREFIX="$WINEPREFIX" WINEDEBUG="$WINEDEBUG" \
            WINEDLLOVERRIDES="$WINEDLLOVERRIDES" "$@"
    }
    ;;
*) usage ;;
esac

if [ ! -f "$WINEPREFIX/.made" ]; then
    exec 9>"$WINEPREFIX.lock"
    flock 9
    if [ ! -f "$WINEPREFIX/.made" ]; then
        in_wine wineboot --init >/dev/null 2>&1 9>&- </dev/null
        touch "$WINEPREFIX/.made"
    fi
    exec 9>&-
fi
in_wine "$@"
