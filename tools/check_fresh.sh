#!/bin/sh
# Runs commands, by default the README's two, as on a machine that has nothing yet: in a folder with the smallest
# Debian of this release, ca-certificates and git, from a clean clone of what is committed. Tells which
# packages each command needed and how long it took. Takes about half an hour; needs root, or sudo.
#
#   tools/check_fresh.sh [COMMAND...]
#
# A command is a line for the shell. 'make package' has nothing but make ahead of it:
#
#   tools/check_fresh.sh 'apt-get -qq update && apt-get -qq install --yes make' 'make package'
set -eu

here=$(cd "$(dirname "$0")" && pwd)
repository=$(dirname "$here")
[ $# -gt 0 ] || set -- ./demo.sh ./test.sh

as_root=
[ "$(id -u)" = 0 ] || as_root=sudo
for tool in debootstrap git; do
    command -v "$tool" >/dev/null || PATH=$PATH:/usr/sbin command -v "$tool" >/dev/null || {
        echo "$0: $tool is missing: tools/install_packages.sh test installs it" >&2
        exit 1
    }
done
. /etc/os-release
mirror=$("$here/debian_sources.sh" mirror)
folder=$(mktemp -d "${TMPDIR:-/tmp}/kelmora-fresh.XXXXXX")
chmod 755 "$folder"
trap '$as_root rm -rf --one-file-system "$folder"' EXIT
trap 'exit 1' HUP INT TERM

if [ -n "$(git -C "$repository" status --porcelain)" ]; then
    echo "There are changes that are not committed: they are not in the clone."
fi
echo "Making a bare $PRETTY_NAME in $folder"
$as_root env http_proxy="${http_proxy:-}" https_proxy="${https_proxy:-}" debootstrap --variant=minbase \
    --include=ca-certificates,git "$VERSION_CODENAME" "$folder" "$mirror" >"$folder.log" 2>&1 || {
    tail -n 20 "$folder.log" >&2
    exit 1
}
rm -f "$folder.log"
# The suites that this machine has, as an installed Debian has its security updates.
"$here/debian_sources.sh" sources | sed 's/^deb-src/deb/' | $as_root tee "$folder/etc/apt/sources.list" >/dev/null
# And its name for itself, which no package brings.
[ -s "$folder/etc/hosts" ] || printf '127.0.0.1\tlocalhost\n' | $as_root tee "$folder/etc/hosts" >/dev/null
$as_root git clone --quiet --no-hardlinks "file://$repository" "$folder/root/clone"

# Everything inside runs in a mount namespace of its own, which takes its mounts with it.
inside() {
    $as_root unshare --mount --propagation private sh -c '
        set -e
        folder=$1
        shift
        # A mount point, as the root of a machine is: in there mounts can be made as anywhere.
        mount --rbind "$folder" "$folder"
        mount -t proc proc "$folder/proc"
        mount --rbind /sys "$folder/sys"
        mount --rbind /dev "$folder/dev"
        exec chroot "$folder" /usr/bin/env -i -C /root/clone HOME=/root TERM=dumb LANG=C.UTF-8 \
            PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"
    ' sh "$folder" http_proxy="${http_proxy:-}" https_proxy="${https_proxy:-}" "$@"
}

packages() { inside dpkg-query -W -f '${Package}\n' | sort; }

failed=
packages >"$folder/root/before"
echo "$(wc -l <"$folder/root/before") packages are there"
for command in "$@"; do
    echo
    echo "=== $command"
    began=$(date +%s)
    code=0
    inside sh -c "$command" </dev/null || code=$?
    seconds=$(($(date +%s) - began))
    packages >"$folder/root/after"
    comm -13 "$folder/root/before" "$folder/root/after" >"$folder/root/added"
    added=$(wc -l <"$folder/root/added")
    mv "$folder/root/after" "$folder/root/before"
    echo "=== $command ended with exit code $code after $((seconds / 60)) min $((seconds % 60)) s;" \
         "it brought $added packages:"
    tr '\n' ' ' <"$folder/root/added" | fold -s -w 78
    echo
    [ "$code" = 0 ] || failed="$failed $command"
done
echo
if [ -n "$failed" ]; then
    echo "On a bare machine these fail:$failed"
    exit 1
fi
echo "On a bare machine everything passes."
