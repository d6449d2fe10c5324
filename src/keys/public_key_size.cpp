#include "keys/public_key_size.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "keys/public_key_blobs.h"
#include "session/card_context.h"

namespace KelmoraID {
namespace {

WORD rsaKeyBits(const CARD_DATA& card, const CRYPT_BIT_BLOB& publicKey) {
    DWORD size = 0;
    if (!decodeRsaPublicKey(publicKey, nullptr, size)) return 0;
    auto* blob = static_cast<BYTE*>(card.pfnCspAlloc(size));
    if (blob == nullptr) return 0;
    RSAPUBKEY key{};
    if (decodeRsaPublicKey(publicKey, blob, size) &&
        size >= sizeof(PUBLICKEYSTRUC) + sizeof(RSAPUBKEY)) {
        std::memcpy(&key, blob + sizeof(PUBLICKEYSTRUC), sizeof(key));
    }
    card.pfnCspFree(blob);
    return static_cast<WORD>(key.bitlen & 0xFFFF);
}

}  // namespace

WORD publicKeyBits(const CARD_DATA& card, PCCERT_CONTEXT certificate) {
    const CRYPT_BIT_BLOB& publicKey = certificate->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    if (!hasEcPublicKey(certificate)) return rsaKeyBits(card, publicKey);
    // quirk: p521-has-528-bits. The bytes of a coordinate count, and not the bits of the field.
    const std::int64_t bits =
        std::int64_t{publicKey.cbData} * 4 - std::int64_t{publicKey.cUnusedBits} - 4;
    return static_cast<WORD>(std::clamp<std::int64_t>(bits, 0, 0xFFFF));
}

}  // namespace KelmoraID
