#!/bin/sh
# Makes a folder with a small Debian of the i386 architecture and 32-bit Wine in it, for running the x86
# DLL, and prints it. The machine's own packages stay of one architecture. A finished folder is kept
# outside the build tree and found there the next time. Needs root, or sudo that asks no password, and
# a machine that allows mounts.
#
#   tools/wine32_folder.sh
#
# Exit codes: 0 done; 3 this machine does not allow it (the reason is told on standard error).
set -eu

here=$(cd "$(dirname "$0")" && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}/kelmora-id-minidriver
. /etc/os-release
folder=$cache/wine32-${VERSION_CODENAME:-debian}

refuse() {
    echo "no 32-bit Wine folder: $1" >&2
    exit 3
}

if [ "$(id -u)" = 0 ]; then
    as_root=
elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    as_root="sudo -n"
else
    refuse "it needs root, or sudo without a password"
fi

if [ -f "$folder/.finished" ]; then
    echo "$folder"
    exit 0
fi

command -v debootstrap >/dev/null || refuse "debootstrap is not installed"
$as_root unshare --mount true 2>/dev/null || refuse "mounts are not allowed here"
mkdir -p "$cache"
exec 9>"$cache/wine32.lock"
flock 9
if [ -f "$folder/.finished" ]; then # another call was making it
    echo "$folder"
    exit 0
fi

mirror=$("$here/debian_sources.sh" mirror) || refuse "apt knows no Debian mirror"
making=$folder.making
log=$cache/wine32.log
# Everything inside runs in a mount namespace of its own, which takes its mounts with it.
cat >"$cache/wine32-make.sh" <<'STEPS'
set -e
making=$1 release=$2 mirror=$3
rm -rf --one-file-system "$making"
debootstrap --arch=i386 --variant=minbase "$release" "$making" "$mirror"
mount -t proc proc "$making/proc"
export DEBIAN_FRONTEND=noninteractive
chroot "$making" apt-get update
chroot "$making" apt-get install --yes --no-install-recommends wine wine32
chroot "$making" apt-get clean
STEPS
echo "Making the folder for 32-bit Wine, a minute or two" >&2
if ! $as_root env http_proxy="${http_proxy:-}" https_proxy="${https_proxy:-}" \
        unshare --mount --propagation private \
        sh "$cache/wine32-make.sh" "$making" "$VERSION_CODENAME" "$mirror" >"$log" 2>&1 9>&-; then
    tail -n 10 "$log" >&2
    refuse "making it failed, see above and $log"
fi
$as_root touch "$making/.finished"
$as_root rm -rf --one-file-system "$folder"
$as_root mv "$making" "$folder"
echo "$folder"
