#include "key_operations.h"

#include <algorithm>

#include <fmt/format.h>

#include "ecdsa_signature.h"
#include "memory.h"

namespace cardhost {

namespace {

/// The record of a signature with the names and padding records that it points to.
class SigningRequest {
public:
    SigningRequest(const Container& container, const Hash& hash, const Bytes& hashValue)
        : hashName_(wide(hash.providerName)), hashValue_(hashValue) {
        info.bContainerIndex = container.index;
        info.dwKeySpec = keySpecOf(container);
        info.pbData = hashValue_.data();
        info.cbData = static_cast<DWORD>(hashValue_.size());
        pkcs1_.pszAlgId = hashName_.c_str();
        pss_.pszAlgId = hashName_.c_str();
        pss_.cbSalt = static_cast<ULONG>(hashValue_.size());
    }
    SigningRequest(const SigningRequest&) = delete;
    SigningRequest& operator=(const SigningRequest&) = delete;

    void asKeyStorageProvider(Scheme scheme) {
        info.dwVersion = 2;
        if (scheme == Scheme::ecdsa) return;  // nothing but the hash value: its length tells all
        info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
        info.dwPaddingType = scheme == Scheme::pss ? CARD_PADDING_PSS : CARD_PADDING_PKCS1;
        info.pPaddingInfo = scheme == Scheme::pss ? static_cast<LPVOID>(&pss_) : &pkcs1_;
    }

    void asCryptoApiProvider(const Hash& hash) {
        info.dwVersion = 1;
        info.aiHashAlg = hash.algorithm;
    }

    CARD_SIGNING_INFO info{};

private:
    WideText hashName_;
    Bytes hashValue_;
    BCRYPT_PKCS1_PADDING_INFO pkcs1_{};
    BCRYPT_PSS_PADDING_INFO pss_{};
};

void append(Bytes& bytes, ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void appendNumber(Bytes& bytes, std::uint32_t number) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(number >> shift));
    }
}

/// A public key for agreement as the platform hands it over: BCRYPT_ECCKEY_BLOB, then X and Y.
Bytes agreementBlob(const CurvePoint& point) {
    constexpr std::uint32_t publicP256 = 0x314B4345;  // "ECK1"; "ECK3" and "ECK5" the other two
    const auto length = static_cast<std::uint32_t>(point.x.size());
    const std::uint32_t step = length <= 32 ? 0 : length <= 48 ? 2 : 4;
    Bytes blob;
    appendNumber(blob, publicP256 + (step << 24));
    appendNumber(blob, length);
    append(blob, point.x);
    append(blob, point.y);
    return blob;
}

/// The parameter list of a key derivation, in the platform's form.
class DerivationParameters {
public:
    explicit DerivationParameters(const KeyDerivation& derivation)
        : prepend_(derivation.prepend), append_(derivation.append) {
        if (derivation.hash != nullptr) {
            hashName_ = wide(derivation.hash->providerName);
            add(KDF_HASH_ALGORITHM, hashName_.data(), (hashName_.size() + 1) * sizeof(WCHAR));
        }
        if (!prepend_.empty()) add(KDF_SECRET_PREPEND, prepend_.data(), prepend_.size());
        if (!append_.empty()) add(KDF_SECRET_APPEND, append_.data(), append_.size());
        list_.ulVersion = BCRYPTBUFFER_VERSION;
        list_.cBuffers = static_cast<ULONG>(buffers_.size());
        list_.pBuffers = buffers_.data();
    }
    DerivationParameters(const DerivationParameters&) = delete;
    DerivationParameters& operator=(const DerivationParameters&) = delete;

    PVOID list() { return buffers_.empty() ? nullptr : &list_; }

private:
    void add(ULONG type, PVOID data, std::size_t length) {
        BCryptBuffer buffer{};
        buffer.BufferType = type;
        buffer.pvBuffer = data;
        buffer.cbBuffer = static_cast<ULONG>(length);
        buffers_.push_back(buffer);
    }

    WideText hashName_;
    Bytes prepend_;
    Bytes append_;
    std::vector<BCryptBuffer> buffers_;
    BCryptBufferDesc list_{};
};

Bytes deriveKey(Acquisition& acquisition, BYTE secret, const KeyDerivation& derivation) {
    DerivationParameters parameters(derivation);
    WideText function = wide("HASH");
    CARD_DERIVE_KEY info{};
    info.dwVersion = 2;
    info.pwszKDF = function.data();
    info.bSecretAgreementIndex = secret;
    info.pParameterList = parameters.list();
    acquisition.require(fmt::format("CardDeriveKey from secret {}", secret),
                        acquisition.record().pfnCardDeriveKey, &info);
    return takeBlock(info.pbDerivedKey, info.cbDerivedKey);
}

}  // namespace

Bytes signHash(Acquisition& acquisition, const Container& container, Scheme scheme,
               Provider provider, const Hash& hash, const Bytes& hashValue) {
    SigningRequest request(container, hash, hashValue);
    if (provider == Provider::keyStorage) {
        request.asKeyStorageProvider(scheme);
    } else {
        request.asCryptoApiProvider(hash);
    }
    acquisition.require(fmt::format("CardSignData with container {}", container.index),
                        acquisition.record().pfnCardSignData, &request.info);
    const Bytes signature = takeBlock(request.info.pbSignedData, request.info.cbSignedData);
    if (signature.empty()) {
        throw Failure(ExitCode::refused,
                      "the driver reports a success of CardSignData and gives no signature: the "
                      "card refused with a status word that has no platform status (--trace shows "
                      "it)");
    }
    if (!container.certificate.key.isEc) return reversed(signature);
    if (signature.size() % 2 != 0) {
        throw Failure(ExitCode::refused, fmt::format("an ECDSA signature of {} bytes cannot be cut "
                                                     "into r and s",
                                                     signature.size()));
    }
    return ecdsaSigValue(signature);
}

Bytes decipher(Acquisition& acquisition, const Container& container, const Bytes& block) {
    // The message overwrites the block and may, as the driver sees it, be longer.
    constexpr std::size_t room = 65536;
    const Bytes littleEndian = reversed(block);
    Bytes buffer(std::max(room, littleEndian.size()));
    std::copy(littleEndian.begin(), littleEndian.end(), buffer.begin());
    CARD_RSA_DECRYPT_INFO info{};
    info.dwVersion = 2;
    info.bContainerIndex = container.index;
    info.dwKeySpec = keySpecOf(container);
    info.pbData = buffer.data();
    info.cbData = static_cast<DWORD>(block.size());
    info.dwPaddingType = CARD_PADDING_PKCS1;
    acquisition.require(fmt::format("CardRSADecrypt with container {}", container.index),
                        acquisition.record().pfnCardRSADecrypt, &info);
    if (info.cbData > buffer.size()) {
        throw Failure(ExitCode::refused,
                      fmt::format("the driver reports a message of {} bytes", info.cbData));
    }
    return reversed(ByteView(buffer).first(info.cbData));
}

Bytes agree(Acquisition& acquisition, const Container& container, const CurvePoint& peer,
            const KeyDerivation& derivation) {
    Bytes blob = agreementBlob(peer);
    CARD_DH_AGREEMENT_INFO info{};
    info.dwVersion = 2;
    info.bContainerIndex = container.index;
    info.pbPublicKey = blob.data();
    info.dwPublicKey = static_cast<DWORD>(blob.size());
    acquisition.require(fmt::format("CardConstructDHAgreement with container {}", container.index),
                        acquisition.record().pfnCardConstructDHAgreement, &info);
    const BYTE secret = info.bSecretAgreementIndex;
    const Bytes key = deriveKey(acquisition, secret, derivation);
    acquisition.require(fmt::format("CardDestroyDHAgreement of secret {}", secret),
                        acquisition.record().pfnCardDestroyDHAgreement, secret, DWORD{0});
    return key;
}

}  // namespace cardhost
