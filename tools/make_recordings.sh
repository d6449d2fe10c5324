#!/bin/sh
# Makes the recordings of the virtual cards anew (tests/data/recordings), with the native cardhost: 'make
# native' builds it. Signatures by ECDSA are random and times are times, so each making differs in these.
set -eu
cd "$(dirname "$0")/.."
cardhost=build/native/cardhost
folder=tests/data/recordings
mkdir -p "$folder"
# The types of the help: --virtual TYPE:{3,4,...}
types=$("$cardhost" --help | sed -n 's/.*--virtual TYPE:{\([0-9,]*\)}.*/\1/p' | tr , ' ')
[ -n "$types" ]
for type in $types; do
    "$cardhost" --virtual "$type" record --pin 1234 --signature-pin 123456 \
        --out "$folder/card-type-$type.txt" 2>/dev/null
done
