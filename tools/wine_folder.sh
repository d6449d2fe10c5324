#!/bin/sh
# Makes a folder with a small Debian of another architecture and Wine in it, for running the x86 and the
# ARM64 DLL, and prints it. The machine's own packages stay of one architecture. A finished folder is kept
# in build/cache, or in the folder that KELMORA_CACHE names, and found there the next time. Needs root, or sudo that asks no password, and
# a machine that allows mounts; ARM64 also needs qemu-user-static and binfmt_misc, by which the kernel
# hands ARM64 programs to it.
#
#   tools/wine_folder.sh x86|arm64
#
# Exit codes: 0 done; 77 this machine does not allow it (the reason is told on standard error). Not 3: with
# that a Windows program ends that aborts.
set -eu

case ${1:-} in
x86) debian=i386 wine="wine wine32" takes="a minute or two" ;;
arm64) debian=arm64 wine="wine wine64" takes="five minutes" ;;
*) echo "usage: $0 x86|arm64" >&2; exit 2 ;;
esac

here=$(cd "$(dirname "$0")" && pwd)
cache=${KELMORA_CACHE:-$(dirname "$here")/build/cache}
mkdir -p "$cache"
cache=$(cd "$cache" && pwd)
. /etc/os-release
name=wine-$debian-${VERSION_CODENAME:-debian}
folder=$cache/$name

refuse() {
    echo "no folder with Wine for $debian: $1" >&2
    exit 77
}

if [ "$(id -u)" = 0 ]; then
    as_root=
elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    as_root="sudo -n"
else
    refuse "it needs root, or sudo without a password"
fi

# The kernel forgets who runs ARM64 programs when the machine starts anew, so this comes each time.
if [ "$debian" = arm64 ] && [ ! -e /proc/sys/fs/binfmt_misc/qemu-aarch64 ]; then
    command -v update-binfmts >/dev/null && [ -x /usr/bin/qemu-aarch64-static ] ||
        refuse "qemu-user-static and binfmt-support are not installed"
    [ -e /proc/sys/fs/binfmt_misc/status ] ||
        $as_root mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc 2>/dev/null ||
        refuse "binfmt_misc cannot be mounted here"
    $as_root update-binfmts --enable qemu-aarch64 >&2 || refuse "binfmt_misc takes no entry here"
fi

if [ -f "$folder/.finished" ]; then
    echo "$folder"
    exit 0
fi

command -v debootstrap >/dev/null || refuse "debootstrap is not installed"
$as_root unshare --mount true 2>/dev/null || refuse "mounts are not allowed here"
exec 9>"$cache/$name.lock"
flock 9
if [ -f "$folder/.finished" ]; then # another call was making it
    echo "$folder"
    exit 0
fi

mirror=$("$here/debian_sources.sh" mirror) || refuse "apt knows no Debian mirror"
making=$folder.making
log=$cache/$name.log
# Everything inside runs in a mount namespace of its own, which takes its mounts with it.
cat >"$cache/$name-make.sh" <<'STEPS'
set -e
making=$1 release=$2 mirror=$3 architecture=$4
shift 4
rm -rf --one-file-system "$making"
debootstrap --arch="$architecture" --variant=minbase "$release" "$making" "$mirror"
mount -t proc proc "$making/proc"
export DEBIAN_FRONTEND=noninteractive
chroot "$making" apt-get update
chroot "$making" apt-get install --yes --no-install-recommends "$@"
chroot "$making" apt-get clean
STEPS
echo "Making the folder with Wine for $debian, $takes" >&2
# shellcheck disable=SC2086 # the packages are words
if ! $as_root env http_proxy="${http_proxy:-}" https_proxy="${https_proxy:-}" \
        unshare --mount --propagation private \
        sh "$cache/$name-make.sh" "$making" "$VERSION_CODENAME" "$mirror" "$debian" $wine \
        >"$log" 2>&1 9>&-; then
    tail -n 10 "$log" >&2
    refuse "making it failed, see above and $log"
fi
$as_root touch "$making/.finished"
$as_root rm -rf --one-file-system "$folder"
$as_root mv "$making" "$folder"
echo "$folder"
