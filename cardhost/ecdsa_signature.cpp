#include "ecdsa_signature.h"

#include <botan/bigint.h>
#include <botan/der_enc.h>

namespace cardhost {

Bytes ecdsaSigValue(ByteView rAndS) {
    const std::size_t half = rAndS.size() / 2;
    const Botan::BigInt r(rAndS.data(), half);
    const Botan::BigInt s(rAndS.data() + half, half);
    Bytes der;
    Botan::DER_Encoder(der).start_cons(Botan::SEQUENCE).encode(r).encode(s).end_cons();
    return der;
}

}  // namespace cardhost
