// The public key of a certificate in the forms that the platform takes for a container: the
// PUBLICKEYSTRUC form of an RSA key, the BCRYPT_ECCKEY_BLOB form of an elliptic-curve key.
#pragma once

#include <optional>
#include <span>

#include "bytes/byte_vector.h"

namespace KelmoraID {

/// What a container's key is for: it decides the algorithm, or the magic, in the blob.
enum class KeyUse {
    exchange,   ///< container 0
    signature,  ///< containers 1 and 2
};

/// The blob of an elliptic-curve key: the magic, the coordinates' length, then X and Y. The magic
/// is that of P-384 whatever the curve: the length alone tells the curve's size.
/// @param point  the key bytes of the certificate: 04 X Y (RFC 5480, 2.2)
/// @return 7 bytes more than the point; no value if the point has no byte at all
std::optional<ByteVector> eccPublicKeyBlob(std::span<const BYTE> point, KeyUse use);

/// CryptDecodeObject of an RSA key into its PUBLICKEYSTRUC form.
/// @param key     the key bytes of the certificate: RSAPublicKey (RFC 8017, A.1.1)
/// @param blob    NULL asks for the length alone
/// @param length  the room in bytes, and what was written or is wanted
/// @return whether the platform decodes it
bool decodeRsaPublicKey(const CRYPT_BIT_BLOB& key, BYTE* blob, DWORD& length);

/// The length in bytes of the blob of an RSA key.
/// @return 0 if the platform does not decode them
DWORD rsaPublicKeyBlobLength(const CRYPT_BIT_BLOB& key);

/// Writes the blob of an RSA key, with the algorithm of its use.
/// @param blob  at least rsaPublicKeyBlobLength bytes
/// @return the bytes written, or 0 if the platform does not decode the key
DWORD writeRsaPublicKeyBlob(const CRYPT_BIT_BLOB& key, KeyUse use, std::span<BYTE> blob);

}  // namespace KelmoraID
