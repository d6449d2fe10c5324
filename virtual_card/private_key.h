// A private key as the card's chip holds it: it pads, signs, deciphers and agrees. Botan computes.
#pragma once

#include <botan/pk_keys.h>
#include <botan/rng.h>

#include <memory>
#include <optional>

#include "virtual_card/generations.h"

namespace virtual_card {

/// The hash that an algorithm reference names by its high nibble (10, 30, 40, 50, 60).
struct HashKind {
    std::uint8_t nibble;
    std::string_view name;  ///< Botan's
    std::size_t size;       ///< bytes
};
const HashKind* findHash(std::uint8_t algorithm);

class PrivateKey {
public:
    PrivateKey(const KeyRow& row, Botan::RandomNumberGenerator& random);

    /// PKCS#1 v1.5 of a hash value: the DigestInfo is built here (RFC 8017, 9.2).
    Bytes signPkcs1(const HashKind& kind, ByteView hash);
    /// PSS of a hash value, MGF1 with the same hash and a salt of its length (RFC 8017, 9.1).
    Bytes signPss(const HashKind& kind, ByteView hash);
    /// ECDSA of a hash value: r and s in a row, each as long as the order of the curve.
    Bytes signEcdsa(ByteView hash);

    /// Removes PKCS#1 v1.5 encryption (RFC 8017, 7.2.2). No value if the block is not the length
    /// of the key or what it holds is not padded so.
    std::optional<Bytes> decipher(ByteView block);
    /// ECDH: the X coordinate of the shared point, as long as the field. No value if the data are
    /// not an uncompressed point (04 X Y) of the key's curve.
    std::optional<Bytes> agree(ByteView point);

private:
    Bytes signRsa(const std::string& padding, ByteView hash);

    std::unique_ptr<Botan::Private_Key> key_;
    Botan::RandomNumberGenerator& random_;
};

}  // namespace virtual_card
