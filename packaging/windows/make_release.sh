#!/bin/sh
# Makes dist/ of the DLLs of all three architectures that are built: everything of a release. Takes the
# options of release.py, of which those for signing sign it.
#
#   packaging/windows/make_release.sh [OPTION ...]
set -eu
cd "$(dirname "$0")/../.."
[ -f build/native/CMakeCache.txt ] || cmake --preset native >/dev/null
cmake --build build/native --target print_card_profiles >/dev/null
for architecture in x64 x86 arm64; do
    cmake --build "build/windows-$architecture" --target minidriver minidriver_debug cardhost >/dev/null
done
exec python3 packaging/windows/release.py --release --output dist --architectures x64,x86,arm64 \
    --runtime "$(tools/build_arm64_runtime.sh)" "$@"
