#include "keys/public_key_blobs.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "session/card_context.h"

namespace KelmoraID {
namespace {

using Magic = std::array<BYTE, 4>;

struct UseInBlobs {
    ALG_ID rsaAlgorithm;
    Magic eccMagic;
};

// quirk: magic-of-p384. It goes with every curve.
constexpr UseInBlobs exchangeInBlobs{CALG_RSA_KEYX, {'E', 'C', 'K', '3'}};
constexpr UseInBlobs signatureInBlobs{CALG_RSA_SIGN, {'E', 'C', 'S', '3'}};

constexpr const UseInBlobs& inBlobs(KeyUse use) {
    return use == KeyUse::exchange ? exchangeInBlobs : signatureInBlobs;
}

constexpr std::size_t eccHeaderLength = sizeof(BCRYPT_ECCKEY_BLOB);
static_assert(eccHeaderLength == 8);

}  // namespace

std::optional<ByteVector> eccPublicKeyBlob(std::span<const BYTE> point, KeyUse use) {
    if (point.empty()) return std::nullopt;
    const auto coordinates = point.subspan(1);
    const auto coordinateLength = static_cast<DWORD>(coordinates.size() / 2);
    ByteVector blob(inBlobs(use).eccMagic.begin(), inBlobs(use).eccMagic.end());
    for (unsigned shift = 0; shift < 32; shift += 8) {
        blob.push_back(static_cast<BYTE>(coordinateLength >> shift));
    }
    blob.insert(blob.end(), coordinates.begin(), coordinates.end());
    return blob;
}

bool decodeRsaPublicKey(const CRYPT_BIT_BLOB& key, BYTE* blob, DWORD& length) {
    return CryptDecodeObject(certificateEncodings, RSA_CSP_PUBLICKEYBLOB, key.pbData, key.cbData, 0,
                             blob, &length) != FALSE;
}

DWORD rsaPublicKeyBlobLength(const CRYPT_BIT_BLOB& key) {
    DWORD length = 0;
    if (!decodeRsaPublicKey(key, nullptr, length)) return 0;
    return length;
}

DWORD writeRsaPublicKeyBlob(const CRYPT_BIT_BLOB& key, KeyUse use, std::span<BYTE> blob) {
    const auto room = static_cast<DWORD>(blob.size());
    DWORD length = room;
    if (!decodeRsaPublicKey(key, blob.data(), length)) return 0;
    if (length < sizeof(PUBLICKEYSTRUC) || length > room) return 0;
    const ALG_ID algorithm = inBlobs(use).rsaAlgorithm;
    std::memcpy(blob.data() + offsetof(PUBLICKEYSTRUC, aiKeyAlg), &algorithm, sizeof(algorithm));
    return length;
}

}  // namespace KelmoraID
