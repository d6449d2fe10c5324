// The private-key operations, called with the records that the platform's providers fill.
#pragma once

#include "containers.h"
#include "driver.h"
#include "hashes.h"

namespace cardhost {

enum class Scheme { pkcs1, pss, ecdsa };

/// The two ways in which the platform asks for a signature: its newer provider names the hash in
/// padding information, the older one by an ALG_ID (RSA with PKCS#1 only).
enum class Provider { keyStorage, cryptoApi };

/// Signs a hash value. The signature is as programs outside the platform expect it: big-endian for
/// RSA, an ECDSA-Sig-Value in DER (RFC 3279, 2.2.3) for EC.
Bytes signHash(Acquisition& acquisition, const Container& container, Scheme scheme,
               Provider provider, const Hash& hash, const Bytes& hashValue);

/// Deciphers a big-endian RSA block with PKCS#1 v1.5 padding; gives the message.
Bytes decipher(Acquisition& acquisition, const Container& container, const Bytes& block);

struct KeyDerivation {
    const Hash* hash = nullptr;  // null leaves the choice to the driver
    Bytes prepend;
    Bytes append;
};

/// Agrees on a secret with the other party's point, derives hash(prepend, secret, append) from it,
/// and has the driver forget the secret.
Bytes agree(Acquisition& acquisition, const Container& container, const CurvePoint& peer,
            const KeyDerivation& derivation);

}  // namespace cardhost
