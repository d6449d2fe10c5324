#include "frame/container_list.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "diag/byte_texts.h"

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

class HashProvider {
public:
    HashProvider() {
        if (!CryptAcquireContextW(&handle_, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
            handle_ = 0;
        }
    }
    ~HashProvider() {
        if (handle_ != 0) CryptReleaseContext(handle_, 0);
    }
    HashProvider(const HashProvider&) = delete;
    HashProvider& operator=(const HashProvider&) = delete;
    HCRYPTPROV handle() const { return handle_; }

private:
    HCRYPTPROV handle_ = 0;
};

class Sha1Hash {
public:
    explicit Sha1Hash(const HashProvider& provider) {
        if (!CryptCreateHash(provider.handle(), CALG_SHA1, 0, 0, &handle_)) handle_ = 0;
    }
    ~Sha1Hash() {
        if (handle_ != 0) CryptDestroyHash(handle_);
    }
    Sha1Hash(const Sha1Hash&) = delete;
    Sha1Hash& operator=(const Sha1Hash&) = delete;
    HCRYPTHASH handle() const { return handle_; }

private:
    HCRYPTHASH handle_ = 0;
};

bool sha1(const std::string& text, Sha1Digest& digest) {
    const HashProvider provider;
    if (provider.handle() == 0) return false;
    const Sha1Hash hash(provider);
    if (hash.handle() == 0) return false;
    if (!CryptHashData(hash.handle(), reinterpret_cast<const BYTE*>(text.data()),
                       static_cast<DWORD>(text.size()), 0)) {
        return false;
    }
    DWORD length = sha1Bytes;
    return CryptGetHashParam(hash.handle(), HP_HASHVAL, digest.data(), &length, 0) &&
           length == sha1Bytes;
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
    Sha1Digest d;
    if (!sha1(text, d)) return;
    GUID guid;
    guid.Data1 = static_cast<std::uint32_t>(d[0] | d[1] << 8 | d[2] << 16) |
                 static_cast<std::uint32_t>(d[3]) << 24;
    guid.Data2 = static_cast<std::uint16_t>(d[4] | d[5] << 8);
    guid.Data3 = static_cast<std::uint16_t>(((d[6] | d[7] << 8) & 0x0FFF) | 0x5000);
    // The ninth byte is dropped whole, not merely its two top bits: meant so.
    guid.Data4[0] = 0x80;
    std::copy(d.begin() + 9, d.begin() + 16, guid.Data4 + 1);
    WCHAR braced[39];
    if (StringFromGUID2(guid, braced, 39) != 0) std::copy(braced, braced + 39, wszGuid);
}

WORD publicKeyBits(const CARD_DATA& card, PCCERT_CONTEXT certificate) {
    const CRYPT_BIT_BLOB& publicKey = certificate->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    if (!hasEcPublicKey(certificate)) return rsaKeyBits(card, publicKey);
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
