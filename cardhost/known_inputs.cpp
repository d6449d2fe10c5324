#include "known_inputs.h"

#include <algorithm>
#include <string_view>

#include <botan/bigint.h>
#include <botan/ec_group.h>
#include <botan/pubkey.h>
#include <botan/system_rng.h>
#include <botan/x509cert.h>

namespace cardhost {

namespace {

constexpr std::string_view message = "cardhost recording";

}  // namespace

Bytes knownChallenge() {
    Bytes challenge(challengeLength, 0x2E);
    std::copy(message.begin(), message.end(), challenge.begin());
    return challenge;
}

Bytes knownBlock(const Certificate& certificate) {
    const auto key = Botan::X509_Certificate(certificate.der).load_subject_public_key();
    Bytes padded((key->key_length() + 7) / 8, 0x55);
    padded[0] = 0;
    padded[1] = 2;
    const auto start = padded.end() - static_cast<std::ptrdiff_t>(message.size());
    *(start - 1) = 0;
    std::copy(message.begin(), message.end(), start);
    auto& random = Botan::system_rng();
    return Botan::PK_Encryptor_EME(*key, random, "Raw")
        .encrypt(padded.data(), padded.size(), random);
}

CurvePoint knownPeer(const Certificate& certificate) {
    const std::string curve = curveOf(certificate);
    const Botan::EC_Group group(curve);
    std::vector<Botan::BigInt> workspace;
    const Botan::PointGFp point = group.blinded_base_point_multiply(
        Botan::BigInt(0x0123456789ABCDEF), Botan::system_rng(), workspace);
    const std::size_t length = group.get_p_bytes();
    CurvePoint peer{curve, Bytes(length), Bytes(length)};
    point.get_affine_x().binary_encode(peer.x.data(), length);
    point.get_affine_y().binary_encode(peer.y.data(), length);
    return peer;
}

}  // namespace cardhost
