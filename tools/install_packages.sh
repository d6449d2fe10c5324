#!/bin/sh
# Installs the Debian packages that are missing for a purpose; quick, and without the network, when
# none is.
#
#   tools/install_packages.sh [--missing] build|arm64|run|test|package|browser|test-all ...
#
# With --missing it only prints the names of those that are missing.
set -eu

build="make cmake ninja-build ccache g++ python3 pkg-config libfmt-dev libcli11-dev nlohmann-json3-dev
       libbotan-2-dev libpcsclite-dev libutfcpp-dev googletest g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix
       g++-mingw-w64-x86-64-win32 g++-mingw-w64-i686-win32 lld-22
       dpkg-dev xz-utils ca-certificates"
run="wine wine64 openssl"
test="clang-14 libclang-rt-14-dev clang-format-14 clang-tidy-14 cppcheck clang-22 llvm-22 libclang-rt-22-dev valgrind debootstrap pcscd vsmartcard-vpcd
      pcsc-tools nginx-light git wixl msitools faketime python3-pefile osslsigncode"
# For the ARM64 DLL: the compiler, what its runtime is built with, and what runs it.
arm64="clang-22 lld-22 llvm-22 libclang-rt-22-dev-win debootstrap qemu-user-static binfmt-support"
package="wixl msitools faketime osslsigncode libengine-pkcs11-openssl"
browser="chromium fonts-dejavu-core"
test_all="$arm64 $package $browser softhsm2 python3-pefile"

wanted=
only_tell=
for purpose in "$@"; do
    case $purpose in
    --missing) only_tell=yes ;;
    build) wanted="$wanted $build" ;;
    run) wanted="$wanted $run" ;;
    test) wanted="$wanted $test" ;;
    arm64) wanted="$wanted $arm64" ;;
    package) wanted="$wanted $package" ;;
    browser) wanted="$wanted $browser" ;;
    test-all) wanted="$wanted $test_all" ;;
    *) echo "$0: no such purpose: $purpose (build, arm64, run, test, package, browser, test-all)" >&2; exit 2 ;;
    esac
done
[ -n "$wanted" ] || { echo "usage: $0 build|arm64|run|test|package|browser|test-all ..." >&2; exit 2; }

missing=
for name in $wanted; do
    state=$(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null || true)
    [ "$state" = installed ] || missing="$missing $name"
done
[ -n "$missing" ] || exit 0
if [ -n "$only_tell" ]; then
    # shellcheck disable=SC2086 # the names are words
    printf '%s\n' $missing
    exit 0
fi

. /etc/os-release
if [ "${ID:-}" != debian ] || [ "${VERSION_ID:-}" != 12 ]; then
    echo "This script installs packages on Debian 12 only; this is ${PRETTY_NAME:-another system}." >&2
    echo "Missing here:$missing" >&2
    exit 1
fi

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        echo "Root or sudo is needed to install packages. Missing here:$missing" >&2
        exit 1
    fi
}

echo "Installing with apt-get:$missing"
as_root apt-get -qq -o DPkg::Lock::Timeout=300 update
# shellcheck disable=SC2086 # the names are words
as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 \
    -o Dpkg::Use-Pty=0 install --yes --no-install-recommends $missing
echo "Installed."
