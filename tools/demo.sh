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

# The cards that there are, by the program's own help: --virtual TYPE:{3,4,...}
types=$("$repository/tools/run_in_wine.sh" x64 "$built/cardhost.exe" --help 2>/dev/null | tr -d '\r' |
    sed -n 's/.*--virtual TYPE:{\([0-9,]*\)}.*/\1/p' | tr , ' ')
[ -n "$types" ]

cards=0 accepted=0
for type in $types; do
    cards=$((cards + 1))
    folder=$work/card-type-$type
    mkdir -p "$folder"
    rm -f "$log"
    echo
    rule
    echo "Card type $type"
    rule
    # Standard error is kept apart, and shown if the logon fails.
    if ! (cd "$folder" && "$repository/tools/run_in_wine.sh" x64 "$built/cardhost.exe" \
            --virtual "$type" logon --pin 1234 >steps.txt 2>errors.txt); then
        cat "$folder/steps.txt" "$folder/errors.txt"
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
    if [ "$cards" = 1 ]; then
        echo "The driver's log of this logon, all $lines lines:"
        sed 's/^/  /' "$folder/log-lines.txt"
    else
        echo "The end of the driver's log of this logon ($lines lines, $folder/log.txt):"
        tail -n 6 "$folder/log-lines.txt" | sed 's/^/  /'
    fi
    if ! (cd "$folder" && "$repository/tools/run_in_wine.sh" x64 "$built/cardhost.exe" \
            --virtual "$type" report --pin 1234 --out report.html >/dev/null 2>report-output.txt); then
        cat "$folder/report-output.txt"
        echo "The report of the logon could not be made." >&2
        exit 1
    fi
done

# cardhost in Wine, in a folder of its own below the work folder.
cardhost() {
    (cd "$folder" && "$repository/tools/run_in_wine.sh" x64 "$built/cardhost.exe" "$@" \
        2>errors.txt | tr -d '\r')
}

echo
rule
echo "Decryption: OpenSSL encrypts to the certificate of a card, and the card decrypts"
rule
folder=$work/card-type-3
printf 'For the eyes of the card holder only.\n' >"$folder/message.txt"
(cd "$folder" && openssl pkeyutl -encrypt -certin -inkey certificate.pem -in message.txt \
    -out encrypted.bin)
cardhost --virtual 3 decrypt --container 0 --pin 1234 --in encrypted.bin --out decrypted.txt
decrypted=no
if cmp -s "$folder/message.txt" "$folder/decrypted.txt"; then decrypted=yes; fi
echo "The message came back: $decrypted"
sed 's/^/  /' "$folder/decrypted.txt"

echo
rule
echo "Key agreement: OpenSSL makes the other party's key, and both sides derive the same"
rule
agreements=0 agreed=0
for type in $types; do
    folder=$work/card-type-$type
    curve=$(openssl pkey -pubin -in "$folder/certificate-key.pem" -noout -text | sed -n 's/^ASN1 OID: //p')
    [ -n "$curve" ] || continue  # an RSA key
    agreements=$((agreements + 1))
    (
        cd "$folder"
        openssl genpkey -algorithm EC -pkeyopt "ec_paramgen_curve:$curve" -out other-party.pem 2>/dev/null
        openssl pkey -in other-party.pem -pubout -out other-party-public.pem
        openssl pkeyutl -derive -inkey other-party.pem -peerkey certificate-key.pem -out secret.bin
        openssl dgst -sha256 -binary -out other-party-derived.bin secret.bin
    )
    cardhost --virtual "$type" agree --peer other-party-public.pem --hash sha256 --pin 1234 \
        --out card-derived.bin >"$folder/agreement.txt"
    verdict=different
    if cmp -s "$folder/card-derived.bin" "$folder/other-party-derived.bin"; then
        verdict='the same on both sides'
        agreed=$((agreed + 1))
    fi
    printf 'Card type %s, %s: SHA-256 of the shared secret is %s\n' "$type" "$curve" "$verdict"
    printf '  %s\n' "$(od -An -v -tx1 "$folder/card-derived.bin" | tr -d ' \n')"
done

echo
rule
echo "OpenSSL accepted $accepted of $cards signatures; decryption: $decrypted; $agreed of $agreements agreements."
echo "Certificates, challenges, signatures, keys and logs: $work"
echo "A page for each logon, to be opened in a browser:"
for type in $types; do echo "  $work/card-type-$type/report.html"; done
[ "$accepted" = "$cards" ] && [ "$decrypted" = yes ] && [ "$agreements" != 0 ] && [ "$agreed" = "$agreements" ]
