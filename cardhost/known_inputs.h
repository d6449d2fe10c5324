// What a recording has a card sign, decrypt and agree with: the same each time, so that the
// recording can be replayed.
#pragma once

#include "certificates.h"

namespace cardhost {

/// How many bytes a challenge has that a card signs.
constexpr std::size_t challengeLength = 64;

Bytes knownChallenge();

/// A block with PKCS#1 v1.5 padding (RFC 8017, 7.2.1) encrypted to an RSA certificate, big-endian.
Bytes knownBlock(const Certificate& certificate);

/// The other party's public key, on the curve of an EC certificate.
CurvePoint knownPeer(const Certificate& certificate);

}  // namespace cardhost
