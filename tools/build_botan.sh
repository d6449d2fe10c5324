#!/bin/sh
# Builds a static Botan 2 for a Windows target from Debian's own source package, patches included,
# and prints the folder that holds it: libbotan-2.a and build/include. A finished build is kept outside
# the build tree, by version, target, options and compiler, and found there the next time.
#
#   tools/build_botan.sh x86_64|i686
set -eu

target=${1:-}
case $target in
x86_64) cpu=x86_64 ;;
i686) cpu=x86_32 ;;
*) echo "usage: $0 x86_64|i686" >&2; exit 2 ;;
esac

# The product needs the hash functions; keys, certificates and curves are the virtual card's.
modules=sha1,sha2_32,sha2_64,md5,hmac,hex,base64,pem,asn1,pubkey,x509,rsa,ecdsa,ecdh,ec_group,\
emsa_pkcs1,emsa1,emsa_pssr,emsa_raw,eme_pkcs1,eme_oaep,eme_raw,kdf,kdf2,auto_rng,system_rng,rng

here=$(cd "$(dirname "$0")" && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}/kelmora-id-minidriver
version=$(dpkg-query -W -f '${source:Version}' libbotan-2-dev) ||
    { echo "$0: install libbotan-2-dev first: it tells which version to build" >&2; exit 1; }
compiler=$target-w64-mingw32-g++-posix
options="--os=mingw --cc=gcc --cpu=$cpu --disable-shared --minimized-build --build-targets=static
         --without-documentation --link-method=copy --enable-modules=$modules"
flags="-ffunction-sections -fdata-sections"
recipe=$({ echo "$options $flags"; "$compiler" --version; } | sha256sum | cut -c 1-12)
name=botan-$version-$target-$recipe
prefix=$cache/$name
if [ -f "$prefix/libbotan-2.a" ]; then
    echo "$prefix"
    exit 0
fi

mkdir -p "$cache"
exec 9>"$cache/botan-$target.lock"
flock 9
if [ -f "$prefix/libbotan-2.a" ]; then # another call was building it
    echo "$prefix"
    exit 0
fi

work=$(mktemp -d "$cache/making-$name.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM
log=$work/log.txt

step() {
    echo "$1" >&2
    shift
    "$@" >>"$log" 2>&1 && return
    tail -n 30 "$log" >&2
    echo "$0: that failed, see above" >&2
    exit 1
}

fetch() {
    "$here/debian_sources.sh" sources >"$work/sources.list" || return
    mkdir -p "$work/lists/partial" "$work/archives/partial"
    set -- -o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o Dir::State::Lists="$work/lists" -o Dir::Cache="$work" -o Dir::Cache::archives=archives \
        -o APT::Sandbox::User=
    cd "$work" || return
    apt-get "$@" update &&
        apt-get "$@" source --download-only "botan=$version"
}

compile() {
    cd "$work/source" || return
    # The folder's own name must not reach the library, nor the moment of the build.
    SOURCE_DATE_EPOCH=0
    export SOURCE_DATE_EPOCH
    # shellcheck disable=SC2086 # the options are words
    python3 configure.py $options --cc-bin="$compiler" \
        --ar-command="$target-w64-mingw32-ar" \
        --extra-cxxflags="$flags -ffile-prefix-map=$work/source=botan" &&
        make -j"$(nproc)"
}

step "Fetching Debian's source package of Botan $version" fetch
step "Unpacking it" dpkg-source -x "$work"/botan_*.dsc "$work/source"
step "Building Botan for $target, about a minute" compile

mkdir -p "$work/done/build"
cp "$work/source/libbotan-2.a" "$work/done/"
cp -rL "$work/source/build/include" "$work/done/build/"
cp "$work/source/license.txt" "$work/done/"
rm -rf "$prefix"
mv "$work/done" "$prefix"
echo "$prefix"
