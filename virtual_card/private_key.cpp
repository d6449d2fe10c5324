#include "virtual_card/private_key.h"

#include <botan/data_src.h>
#include <botan/ecc_key.h>
#include <botan/ecdh.h>
#include <botan/exceptn.h>
#include <botan/pkcs8.h>
#include <botan/pubkey.h>

#include "virtual_card/pkcs15_files.h"

namespace virtual_card {

namespace {

constexpr HashKind hashKinds[] = {
    {0x10, "SHA-160", 20}, {0x30, "SHA-224", 28}, {0x40, "SHA-256", 32},
    {0x50, "SHA-384", 48}, {0x60, "SHA-512", 64},
};

std::unique_ptr<Botan::Private_Key> loadKey(const KeyRow& row) {
    Bytes der = derOfPem(row.key->privateKey);
    Botan::DataSource_Memory source(der.data(), der.size());
    return Botan::PKCS8::load_key(source);
}

Bytes fixedWidth(const Botan::BigInt& number, std::size_t size) {
    auto encoded = Botan::BigInt::encode_1363(number, size);
    return Bytes(encoded.begin(), encoded.end());
}

}  // namespace

const HashKind* findHash(std::uint8_t algorithm) {
    for (const HashKind& kind : hashKinds) {
        if (kind.nibble == (algorithm & 0xF0)) return &kind;
    }
    return nullptr;
}

PrivateKey::PrivateKey(const KeyRow& row, Botan::RandomNumberGenerator& random)
    : key_(loadKey(row)), random_(random) {}

Bytes PrivateKey::signRsa(const std::string& padding, ByteView hash) {
    Botan::PK_Signer signer(*key_, random_, padding);
    return signer.sign_message(hash.data(), hash.size(), random_);
}

Bytes PrivateKey::signPkcs1(const HashKind& kind, ByteView hash) {
    return signRsa("EMSA_PKCS1(Raw," + std::string(kind.name) + ")", hash);
}

Bytes PrivateKey::signPss(const HashKind& kind, ByteView hash) {
    return signRsa(
        "PSSR_Raw(" + std::string(kind.name) + ",MGF1," + std::to_string(kind.size) + ")", hash);
}

Bytes PrivateKey::signEcdsa(ByteView hash) {
    // By hand, since Botan's own signer hashes what it is given: s = (e + r d) / k.
    const auto& key = dynamic_cast<const Botan::EC_PrivateKey&>(*key_);
    const Botan::EC_Group& group = key.domain();
    const std::size_t orderBits = group.get_order_bits();
    Botan::BigInt e(hash.data(), hash.size(), orderBits);  // the leftmost bits of the hash
    std::vector<Botan::BigInt> workspace;
    for (;;) {
        Botan::BigInt k = group.random_scalar(random_);
        Botan::BigInt r =
            group.mod_order(group.blinded_base_point_multiply_x(k, random_, workspace));
        Botan::BigInt s = group.multiply_mod_order(
            group.inverse_mod_order(k),
            group.mod_order(group.multiply_mod_order(r, key.private_value()) + e));
        if (r.is_zero() || s.is_zero()) continue;
        Bytes signature = fixedWidth(r, group.get_order_bytes());
        append(signature, fixedWidth(s, group.get_order_bytes()));
        return signature;
    }
}

std::optional<Bytes> PrivateKey::decipher(ByteView block) {
    if (block.size() * 8 != key_->key_length()) return std::nullopt;
    try {
        Botan::PK_Decryptor_EME decryptor(*key_, random_, "EME-PKCS1-v1_5");
        auto message = decryptor.decrypt(block.data(), block.size());
        return Bytes(message.begin(), message.end());
    } catch (const Botan::Exception&) {
        return std::nullopt;
    }
}

std::optional<Bytes> PrivateKey::agree(ByteView point) {
    const auto& key = dynamic_cast<const Botan::EC_PrivateKey&>(*key_);
    std::size_t width = key.domain().get_p_bytes();
    if (point.size() != 1 + 2 * width || point[0] != 0x04) return std::nullopt;
    try {
        Botan::ECDH_PrivateKey ecdh(random_, key.domain(), key.private_value());
        Botan::PK_Key_Agreement agreement(ecdh, random_, "Raw");
        auto secret = agreement.derive_key(0, point.data(), point.size()).bits_of();
        return Bytes(secret.begin(), secret.end());
    } catch (const Botan::Exception&) {
        return std::nullopt;
    }
}

}  // namespace virtual_card
