// The stand-in platform's certificates and RSA keys, and what the product makes of their records.
#include <cstring>
#include <memory>

#include "callers_record.h"
#include "fuzz_target.h"
#include "keys/public_key_blobs.h"
#include "keys/public_key_size.h"
#include "session/card_context.h"

namespace {

void readCertificate(const CERT_CONTEXT& certificate) {
    fuzz::readAll(certificate.pbCertEncoded, certificate.cbCertEncoded);
    const CERT_PUBLIC_KEY_INFO& info = certificate.pCertInfo->SubjectPublicKeyInfo;
    fuzz::readAll(info.Algorithm.pszObjId, std::strlen(info.Algorithm.pszObjId));
    fuzz::require(info.PublicKey.cUnusedBits < 8, "fewer than eight bits of a byte are unused");
    fuzz::readAll(info.PublicKey.pbData, info.PublicKey.cbData);
}

// An RSA key by the platform's rules, in a buffer of any size and in the product's.
void decodeKey(const CRYPT_BIT_BLOB& key, DWORD room) {
    const std::unique_ptr<BYTE[]> buffer(new BYTE[room]);
    DWORD length = room;
    const BOOL decoded = CryptDecodeObject(X509_ASN_ENCODING, RSA_CSP_PUBLICKEYBLOB, key.pbData,
                                           key.cbData, 0, buffer.get(), &length);
    fuzz::require(decoded == FALSE || length <= room, "a key is no longer than its buffer");
    const DWORD needed = KelmoraID::rsaPublicKeyBlobLength(key);
    const std::unique_ptr<BYTE[]> blob(new BYTE[needed]);
    const DWORD written =
        KelmoraID::writeRsaPublicKeyBlob(key, KelmoraID::KeyUse::signature, {blob.get(), needed});
    fuzz::require(written == needed, "a key is as long as it was said to be");
    KelmoraID::eccPublicKeyBlob({key.pbData, key.cbData}, KelmoraID::KeyUse::exchange);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const DWORD room = data[0];
    // A buffer of the very size, which libFuzzer's own is not once a byte is taken off.
    const std::size_t length = size - 1;
    const std::unique_ptr<BYTE[]> bytes(new BYTE[length]);
    std::copy_n(data + 1, length, bytes.get());
    decodeKey({static_cast<DWORD>(length), bytes.get(), 0}, room);
    PCCERT_CONTEXT certificate = CertCreateCertificateContext(
        X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, bytes.get(), static_cast<DWORD>(length));
    if (certificate == nullptr) return 0;
    fuzz::require(certificate->cbCertEncoded <= length, "a certificate is of the bytes given");
    readCertificate(*certificate);
    decodeKey(certificate->pCertInfo->SubjectPublicKeyInfo.PublicKey, room);
    KelmoraID::hasEcPublicKey(certificate);
    {
        const fuzz::CallersRecord record({}, 0, 0);
        KelmoraID::publicKeyBits(record.data, certificate);
    }
    CertFreeCertificateContext(certificate);
    return 0;
}
