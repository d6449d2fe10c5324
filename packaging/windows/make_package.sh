#!/bin/sh
# Makes what an administrator needs, of the DLLs that 'make windows' has built: build/package/ with the
# MSIs for x64 and x86, both DLLs, the registration file. Takes the options of release.py.
#
#   packaging/windows/make_package.sh [OPTION ...]
set -eu
cd "$(dirname "$0")/../.."
[ -f build/native/CMakeCache.txt ] || cmake --preset native >/dev/null
cmake --build build/native --target print_card_profiles >/dev/null
exec python3 packaging/windows/release.py --output build/package --architectures x64,x86 "$@"
