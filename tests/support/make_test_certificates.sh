#!/bin/sh
# Makes test_certificates.cpp: self-signed certificates of test keys that are thrown away at once.
# Usage: make_test_certificates.sh > test_certificates.cpp
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

certificate() { # name, openssl key options...
    name=$1
    shift
    openssl req -x509 -newkey "$@" -nodes -keyout "$folder/key" -outform DER -out "$folder/cert" \
        -subj "/CN=$name" -days 7300 -set_serial 0x1234 2>/dev/null
    printf 'const ByteVector& %s() {\n    static const ByteVector der = bytes(\n' "$name"
    od -An -v -tx1 -w40 "$folder/cert" | sed 's/ //g; s/.*/        "&"/'
    printf '    );\n    return der;\n}\n\n'
}

cat <<'EOF'
// Made by make_test_certificates.sh: do not edit.
#include "support/test_certificates.h"

#include "support/scripted_card.h"

namespace KelmoraID::testing {

EOF
certificate rsa2048Certificate rsa:2048
certificate rsa1024Certificate rsa:1024
certificate p256Certificate ec -pkeyopt ec_paramgen_curve:P-256
certificate p384Certificate ec -pkeyopt ec_paramgen_curve:P-384
certificate p521Certificate ec -pkeyopt ec_paramgen_curve:P-521
certificate ed25519Certificate ed25519
echo '}  // namespace KelmoraID::testing'
