#!/bin/sh
# Shows one logon with a signature for each generation of card: the x64 DLL in Wine, loaded as the
# platform loads it, over a virtual card with real keys. 'make demo' builds what it needs first.
set -eu

repository=$(cd "$(dirname "$0")/.." && pwd)
built=$repository/build/windows-x64
work=$repository/build/demo
WINEPREFIX=$repository/build/wine/demo
export WINEPREFIX
log_folder="$WINEPREFIX/drive_c/Program Files/Kelmora-ID-minidriver/Log"
log="$log_folder/Kelmora-ID-minidriver.log"

rule() { printf '%s\n' "--------------------------------------------------------------------------------"; }

cat <<TEXT
A smart-card minidriver is the DLL through which Windows reaches a card. This is the one for FINEID
cards at work: the x64 DLL runs in Wine, 'cardhost' calls it as Windows does when a user logs on, and a
virtual card with real keys answers the commands. At the end of each logon OpenSSL checks the
signature against the certificate that came off the card.

The driver writes a log where an administrator has made the folder for it; here there is one:
  C:\\Program Files\\Kelmora-ID-minidriver\\Log
TEXT

rm -rf "$work"
mkdir -p "$work"
# Wine's first start makes its drive C:.
"$repository/tools/run_in_wine.sh" x64 hostname >/dev/null
mkdir -p "$log_folder"

accepted=0
for type in 3 4 5 6 7 8; do
    folder=$work/card-type-$type
    mkdir -p "$folder"
    rm -f "$log"
    echo
    rule
    echo "Card type $type"
    rule
    # What the driver itself prints is kept apart: the log says the same and more.
    if ! (cd "$folder" && "$repository/tools/run_in_wine.sh" x64 "$built/cardhost.exe" \
            --virtual "$type" logon --pin 1234 >steps.txt 2>driver-output.txt); then
        cat "$folder/steps.txt" "$folder/driver-output.txt"
        echo "The logon failed." >&2
        exit 1
    fi
    tr -d '\r' <"$folder/steps.txt"
    (cd "$folder" && openssl x509 -in certificate.pem -noout -pubkey >certificate-key.pem)
    echo
    echo "OpenSSL, with the public key of the card's certificate, about the signature:"
    if (cd "$folder" && openssl dgst -sha256 -verify certificate-key.pem -signature signature.bin \
            challenge.bin); then
        accepted=$((accepted + 1))
    fi
    cp "$log" "$folder/log.txt"
    tr -d '\r' <"$folder/log.txt" >"$folder/log-lines.txt"
    lines=$(wc -l <"$folder/log-lines.txt")
    echo
    if [ "$type" = 3 ]; then
        echo "The driver's log of this logon, all $lines lines:"
        sed 's/^/  /' "$folder/log-lines.txt"
    else
        echo "The end of the driver's log of this logon ($lines lines, $folder/log.txt):"
        tail -n 6 "$folder/log-lines.txt" | sed 's/^/  /'
    fi
done

echo
rule
echo "OpenSSL accepted $accepted of 6 signatures. Certificates, challenges, signatures and logs: $work"
[ "$accepted" = 6 ]
