#!/bin/sh
# Builds a static Botan 2 for a Windows target from Debian's own source package, patches included,
# and prints the folder that holds it: libbotan-2.a and build/include. A finished build is kept
# by version, target, options and compiler, and found the next time (tools/cached_build.sh).
#
#   tools/build_botan.sh x86_64|i686|aarch64
set -eu

here=$(cd "$(dirname "$0")" && pwd)
. "$here/cached_build.sh"
target=${1:-}
compiler=$target-w64-mingw32-g++-posix
archiver=$target-w64-mingw32-ar
kind=gcc
case $target in
x86_64) cpu=x86_64 ;;
i686) cpu=x86_32 ;;
aarch64)
    cpu=arm64 kind=clang archiver=llvm-ar-22
    runtime=$("$here/build_arm64_runtime.sh")
    compiler=$runtime/bin/$target-w64-mingw32-clang++
    ;;
*) echo "usage: $0 x86_64|i686|aarch64" >&2; exit 2 ;;
esac

# The product needs the hash functions; keys, certificates and curves are the virtual card's.
modules=sha1,sha2_32,sha2_64,md5,hmac,hex,base64,pem,asn1,pubkey,x509,rsa,ecdsa,ecdh,ec_group,\
emsa_pkcs1,emsa1,emsa_pssr,emsa_raw,eme_pkcs1,eme_oaep,eme_raw,kdf,kdf2,auto_rng,system_rng,rng

version=$(dpkg-query -W -f '${source:Version}' libbotan-2-dev) ||
    { echo "$0: install libbotan-2-dev first: it tells which version to build" >&2; exit 1; }
options="--os=mingw --cc=$kind --cpu=$cpu --disable-shared --minimized-build --build-targets=static
         --without-documentation --link-method=copy --enable-modules=$modules"
flags="-ffunction-sections -fdata-sections"
recipe=$({ echo "$options $flags${runtime:+ $runtime}"; "$compiler" --version; } | sha256sum | cut -c 1-12)
begin_cached_build "botan-$version-$target-$recipe"

compile() {
    cd "$work/source" || return
    # The folder's own name must not reach the library, nor the moment of the build.
    SOURCE_DATE_EPOCH=0
    export SOURCE_DATE_EPOCH
    # shellcheck disable=SC2086 # the options are words
    python3 configure.py $options --cc-bin="$compiler" \
        --ar-command="$archiver" \
        --extra-cxxflags="$flags -ffile-prefix-map=$work/source=botan" &&
        make -j"$(nproc)"
}

step "Fetching Debian's source package of Botan $version" fetch_source "botan=$version"
step "Unpacking it" dpkg-source -x "$work"/botan_*.dsc "$work/source"
step "Building Botan for $target, about a minute" compile

mkdir -p "$work/done/build"
cp "$work/source/libbotan-2.a" "$work/done/"
cp -rL "$work/source/build/include" "$work/done/build/"
cp "$work/source/license.txt" "$work/done/"
finish_cached_build
