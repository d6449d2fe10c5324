// The other party of an agreement.
#pragma once

#include <botan/auto_rng.h>
#include <botan/ec_group.h>
#include <botan/ecdh.h>
#include <botan/ecdsa.h>
#include <botan/pubkey.h>
#include <botan/x509_key.h>
#include <botan/x509cert.h>

#include <memory>

#include "platform_side.h"

namespace boundary {

/// A party with a key of its own on the curve of the card's key.
class OtherParty {
public:
    explicit OtherParty(const Bytes& cardCertificate)
        : certificate_(cardCertificate),
          cardKey_(dynamic_cast<const Botan::EC_PublicKey&>(publicKey()).domain(),
                   dynamic_cast<const Botan::EC_PublicKey&>(publicKey()).public_point()),
          key_(random_, cardKey_.domain()) {}

    /// The public key as the platform hands it over: a header of 8 bytes, X and Y.
    Bytes blob() const {
        const auto point = key_.public_value();
        Bytes bytes = fromHex("45434B3100000000");
        bytes[4] = static_cast<std::uint8_t>((point.size() - 1) / 2);
        bytes.insert(bytes.end(), point.begin() + 1, point.end());
        return bytes;
    }

    /// The shared secret: the X coordinate, as long as the field.
    Bytes secret() {
        Botan::PK_Key_Agreement agreement(key_, random_, "Raw");
        const auto derived = agreement.derive_key(0, cardKey_.public_value()).bits_of();
        return {derived.begin(), derived.end()};
    }

private:
    const Botan::Public_Key& publicKey() {
        if (!parsed_) parsed_.reset(certificate_.load_subject_public_key().release());
        return *parsed_;
    }

    Botan::AutoSeeded_RNG random_;
    std::unique_ptr<Botan::Public_Key> parsed_;
    Botan::X509_Certificate certificate_;
    Botan::ECDH_PublicKey cardKey_;
    Botan::ECDH_PrivateKey key_;
};

}  // namespace boundary
