#!/bin/sh
# Makes what an administrator needs, of the DLLs that 'make windows' has built: build/package/ with both
# DLLs, the registration file and the MSI, all of them signed where a certificate is given.
#
#   packaging/windows/make_package.sh [CERTIFICATE KEY]      (two PEM files)
set -eu
cd "$(dirname "$0")/../.."
case $# in
0 | 2) ;;
*) echo "usage: $0 [CERTIFICATE KEY]" >&2; exit 2 ;;
esac

version=$(sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
folder=build/package
name=kelmora-id-minidriver

sign() { # the file, and the certificate and key behind it
    [ $# -eq 3 ] || return 0
    osslsigncode sign -h sha256 -n "Kelmora ID minidriver" -certs "$2" -key "$3" \
        -in "$1" -out "$1.signed" >/dev/null
    mv "$1.signed" "$1"
}

rm -rf "$folder"
for architecture in x64 x86; do
    mkdir -p "$folder/$architecture"
    cp "build/windows-$architecture/$name.dll" "$folder/$architecture/"
    sign "$folder/$architecture/$name.dll" "$@"
done
python3 packaging/windows/make_registration.py "$version" "$folder"
(cd "$folder" && wixl --arch x64 --output "$name-$version.msi" "$name.wxs")
sign "$folder/$name-$version.msi" "$@"
rm "$folder/$name.wxs"
cp LICENSE "$folder/"
echo "$folder:"
ls -l "$folder" "$folder"/x64 "$folder"/x86
