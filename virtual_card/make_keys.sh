#!/bin/bash
# Makes test_keys.cpp: the keys and certificates of the virtual cards. They are test data and nothing
# else: the private keys stand in the repository for everyone to read. Run once by hand; a new run
# makes new keys, and a new issuer whose private key is thrown away.
#
#   virtual_card/make_keys.sh
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Name in the source | kind of key | use | holder's serial number
keys='
generation3Authentication RSA:2048 auth 99900003A
generation3Signature      RSA:3072 sign 99900003A
generation4Authentication EC:P-384 auth 99900004B
generation4Signature      EC:P-384 sign 99900004B
generation4Seal           EC:P-384 seal 99900004B
generation5Authentication EC:P-256 auth 99900005C
generation5Signature      EC:P-256 sign 99900005C
generation5Seal           EC:P-256 seal 99900005C
generation6Authentication EC:P-256 auth 99900006D
generation6Signature      RSA:2048 sign 99900006D
generation7Authentication EC:P-256 auth 99900007E
generation7Signature      EC:P-256 sign 99900007E
generation7Seal           EC:P-256 seal 99900007E
generation8Authentication EC:P-521 auth 99900008F
generation8Signature      EC:P-256 sign 99900008F
'

newKey() { # kind file
    case $1 in
    RSA:*) openssl genpkey -quiet -algorithm RSA -pkeyopt "rsa_keygen_bits:${1#RSA:}" -out "$2" ;;
    EC:*) openssl genpkey -quiet -algorithm EC -pkeyopt "ec_paramgen_curve:${1#EC:}" -out "$2" ;;
    esac
}

cat >"$work/openssl.cnf" <<'END'
[ca]
default_ca = virtual
[virtual]
dir = .
database = index.txt
new_certs_dir = .
serial = serial
default_md = sha256
policy = any
unique_subject = no
email_in_dn = no
string_mask = utf8only
default_startdate = 20200101000000Z
default_enddate = 20491231235959Z
[any]
countryName = optional
serialNumber = optional
givenName = optional
surname = optional
commonName = optional
[issuer]
basicConstraints = critical,CA:true
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[auth]
basicConstraints = critical,CA:false
keyUsage = critical,digitalSignature,keyEncipherment
extendedKeyUsage = clientAuth,1.3.6.1.4.1.311.20.2.2
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
subjectAltName = otherName:1.3.6.1.4.1.311.20.2.3;UTF8:${ENV::HOLDER}@virtual.test
certificatePolicies = 2.999.1
[authec]
basicConstraints = critical,CA:false
keyUsage = critical,digitalSignature,keyAgreement
extendedKeyUsage = clientAuth,1.3.6.1.4.1.311.20.2.2
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
subjectAltName = otherName:1.3.6.1.4.1.311.20.2.3;UTF8:${ENV::HOLDER}@virtual.test
certificatePolicies = 2.999.1
[sign]
basicConstraints = critical,CA:false
keyUsage = critical,nonRepudiation
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
certificatePolicies = 2.999.2
[seal]
basicConstraints = critical,CA:false
keyUsage = critical,digitalSignature,nonRepudiation
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
certificatePolicies = 2.999.3
END
out=$PWD/test_keys.cpp
cd "$work"
: >index.txt
echo 1001 >serial
export HOLDER=none
newKey RSA:2048 issuer.key
openssl req -new -key issuer.key -subj "/C=FI/O=Virtual Card/CN=Virtual Test CA" -out issuer.csr
openssl ca -batch -notext -config openssl.cnf -selfsign -keyfile issuer.key -in issuer.csr \
    -extensions issuer -preserveDN -policy any -subj "/C=FI/CN=Virtual Test CA" -out issuer.pem 2>/dev/null

{
    cat <<'END'
// The keys and certificates of the virtual cards, made by make_keys.sh. TEST KEYS: they are public,
// belong to nobody and protect nothing. Never use them for anything but tests.
#include "virtual_card/test_keys.h"

// clang-format off
namespace virtual_card {

END
    printf 'const char* const testIssuerCertificate = R"(%s\n)";\n\n' "$(cat issuer.pem)"
    echo "$keys" | while read -r name kind use holder; do
        [ -n "$name" ] || continue
        export HOLDER=$holder
        newKey "$kind" card.key
        openssl req -new -key card.key -subj "/CN=unused" -out card.csr
        extensions=$use
        [[ $kind == EC:* && $use == auth ]] && extensions=authec
        openssl ca -batch -notext -config openssl.cnf -cert issuer.pem -keyfile issuer.key \
            -in card.csr -extensions "$extensions" -preserveDN -out card.pem \
            -subj "/C=FI/serialNumber=$holder/GN=TESTI/SN=KORTTINEN/CN=KORTTINEN TESTI $holder" 2>/dev/null
        printf 'const TestKey %s = {R"(%s\n)",\n' "$name" "$(cat card.key)"
        printf '    R"(%s\n)"};\n\n' "$(cat card.pem)"
    done
    echo '}  // namespace virtual_card'
} >"$out"
