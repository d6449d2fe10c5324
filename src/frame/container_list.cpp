#include "frame/container_list.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "bytes/byte_texts.h"
#include "hash/crypto_api_hash.h"

namespace KelmoraID {
namespace {

struct ContainerRow {
    std::string_view suffix;
    PCCERT_CONTEXT CardContext::*certificate;
    BYTE bFlags;
    WORD KeyContainer::*keySizeBits;
};

// In the order of the container indexes; the last row only with hasSecondSignCert.
constexpr std::array<ContainerRow, 3> containerTable{{
    {"_AUTH", &CardContext::authCert,
     CONTAINER_MAP_VALID_CONTAINER | CONTAINER_MAP_DEFAULT_CONTAINER,
     &KeyContainer::wKeyExchangeKeySizeBits},
    {"_SIGN", &CardContext::signCert, CONTAINER_MAP_VALID_CONTAINER,
     &KeyContainer::wSigKeySizeBits},
    {"_SIGN_SEC", &CardContext::secondSignCert, CONTAINER_MAP_VALID_CONTAINER,
     &KeyContainer::wSigKeySizeBits},
}};

constexpr std::size_t sha1Bytes = 20;
using Sha1Digest = std::array<BYTE, sha1Bytes>;

bool sha1(const std::string& text, Sha1Digest& digest) {
    CryptoApiProvider provider;
    CryptoApiHash hash;
    return provider.acquire(PROV_RSA_FULL, CRYPT_VERIFYCONTEXT) &&
           hash.create(provider, CALG_SHA1) &&
           hash.feed({reinterpret_cast<const BYTE*>(text.data()), text.size()}) &&
           hash.finish(digest);
}

WORD rsaKeyBits(const CARD_DATA& card, const CRYPT_BIT_BLOB& publicKey) {
    constexpr DWORD encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
    DWORD size = 0;
    if (!CryptDecodeObject(encoding, RSA_CSP_PUBLICKEYBLOB, publicKey.pbData, publicKey.cbData, 0,
                           nullptr, &size)) {
        return 0;
    }
    auto* blob = static_cast<BYTE*>(card.pfnCspAlloc(size));
    if (blob == nullptr) return 0;
    RSAPUBKEY key{};
    if (CryptDecodeObject(encoding, RSA_CSP_PUBLICKEYBLOB, publicKey.pbData, publicKey.cbData, 0,
                          blob, &size) &&
        size >= sizeof(PUBLICKEYSTRUC) + sizeof(RSAPUBKEY)) {
        std::memcpy(&key, blob + sizeof(PUBLICKEYSTRUC), sizeof(key));
    }
    card.pfnCspFree(blob);
    return static_cast<WORD>(key.bitlen & 0xFFFF);
}

}  // namespace

void containerGuidName(const std::string& text, WCHAR (&wszGuid)[40]) {
    Sha1Digest d{};
    if (!sha1(text, d)) return;
    GUID guid;
    guid.Data1 = static_cast<std::uint32_t>(d[0] | d[1] << 8 | d[2] << 16) |
                 static_cast<std::uint32_t>(d[3]) << 24;
    guid.Data2 = static_cast<std::uint16_t>(d[4] | d[5] << 8);
    guid.Data3 = static_cast<std::uint16_t>(((d[6] | d[7] << 8) & 0x0FFF) | 0x5000);
    // quirk: ninth-byte. It is dropped whole, where RFC 4122 replaces its two top bits.
    guid.Data4[0] = 0x80;
    std::copy(d.begin() + 9, d.begin() + 16, guid.Data4 + 1);
    WCHAR braced[39];
    if (StringFromGUID2(guid, braced, 39) != 0) std::copy(braced, braced + 39, wszGuid);
}

WORD publicKeyBits(const CARD_DATA& card, PCCERT_CONTEXT certificate) {
    const CRYPT_BIT_BLOB& publicKey = certificate->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    if (!hasEcPublicKey(certificate)) return rsaKeyBits(card, publicKey);
    // quirk: p521-has-528-bits. The bytes of a coordinate count, and not the bits of the field.
    const std::int64_t bits =
        std::int64_t{publicKey.cbData} * 4 - std::int64_t{publicKey.cUnusedBits} - 4;
    return static_cast<WORD>(std::clamp<std::int64_t>(bits, 0, 0xFFFF));
}

void listContainers(const CARD_DATA& card, CardContext& context) {
    for (const ContainerRow& row : containerTable) {
        PCCERT_CONTEXT certificate = context.*row.certificate;
        if (certificate == nullptr) continue;
        KeyContainer container{};
        containerGuidName(bytesToHex(context.cardIdentifier) + std::string(row.suffix),
                          container.wszGuid);
        container.bFlags = row.bFlags;
        container.*row.keySizeBits = publicKeyBits(card, certificate);
        context.containers.push_back(container);
    }
}

}  // namespace KelmoraID
