# Sourced by the scripts that build something once: it is kept in build/cache, or in the folder that
# KELMORA_CACHE names, which several clones can share, under a name that tells everything it depends on,
# and found there the next time. The script has set $here, its own folder.
# shellcheck shell=sh
#
#   begin_cached_build NAME     prints the finished folder and exits where there is one; otherwise waits
#                               for its turn and sets $prefix, $work (a folder for the way) and $log
#   step TITLE COMMAND...       tells the title on standard error; where the command fails, the end of
#                               what it printed, and exits
#   fetch_source NAME=VERSION   a Debian source package of this machine's mirror, into $work
#   finish_cached_build         moves $work/done to its place and prints that
cache=${KELMORA_CACHE:-$(dirname "$here")/build/cache}
mkdir -p "$cache"
cache=$(cd "$cache" && pwd)

begin_cached_build() {
    prefix=$cache/$1
    if [ -f "$prefix/.finished" ]; then
        echo "$prefix"
        exit 0
    fi
    exec 9>"$prefix.lock"
    flock 9
    if [ -f "$prefix/.finished" ]; then # another call was building it
        echo "$prefix"
        exit 0
    fi
    work=$(mktemp -d "$cache/making-$1.XXXXXX")
    log=$work/log.txt
    trap 'rm -rf "$work"' EXIT
    trap 'exit 1' HUP INT TERM
}

step() {
    echo "$1" >&2
    shift
    "$@" >>"$log" 2>&1 && return
    tail -n 30 "$log" >&2
    echo "$0: that failed, see above" >&2
    exit 1
}

fetch_source() {
    "$here/debian_sources.sh" sources >"$work/sources.list" || return
    mkdir -p "$work/lists/partial" "$work/archives/partial"
    cd "$work" || return
    set -- "$1" -o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o Dir::State::Lists="$work/lists" -o Dir::Cache="$work" -o Dir::Cache::archives=archives \
        -o APT::Sandbox::User=
    package=$1
    shift
    apt-get "$@" update && apt-get "$@" source --download-only "$package"
}

finish_cached_build() {
    touch "$work/done/.finished"
    rm -rf "$prefix"
    mv "$work/done" "$prefix"
    echo "$prefix"
}
