// CRYPT32's certificate contexts, the RSA public key structure and base64 text, over Botan.
#include <botan/base64.h>
#include <botan/ber_dec.h>
#include <botan/bigint.h>
#include <botan/data_src.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace {

constexpr DWORD CRYPT_E_ASN1_CORRUPT = 0x80093103;

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

Botan::BER_Object next(Botan::BER_Decoder& decoder, Botan::ASN1_Tag type,
                       Botan::ASN1_Tag form = Botan::UNIVERSAL) {
    Botan::BER_Object object = decoder.get_next_object();
    object.assert_is_a(type, form);
    return object;
}

// A context and all that it points to.
struct OwnedCertificate : CERT_CONTEXT {
    CERT_INFO info{};
    std::vector<BYTE> encoded;
    std::string algorithm;
    Botan::BER_Object key;  // the content of a BIT STRING: the count of unused bits, and the bytes
};

// Certificate (RFC 5280, section 4.1), of which the bytes may hold more than the one; of its fields
// only the public key is told.
void readCertificate(OwnedCertificate& certificate, const BYTE* bytes, std::size_t length) {
    Botan::DataSource_Memory source(bytes, length);
    Botan::BER_Decoder all(source);
    Botan::BER_Decoder parts = all.start_cons(Botan::SEQUENCE);
    certificate.encoded.assign(bytes, bytes + source.get_bytes_read());

    Botan::BER_Decoder fields = parts.start_cons(Botan::SEQUENCE);
    Botan::BER_Object field = fields.get_next_object();
    if (field.is_a(0, Botan::ASN1_Tag(Botan::CONSTRUCTED | Botan::CONTEXT_SPECIFIC))) {
        field = fields.get_next_object();  // behind the version, which the first form has not
    }
    field.assert_is_a(Botan::INTEGER, Botan::UNIVERSAL);  // the serial number
    // The signature's algorithm, the issuer, the validity and the subject.
    for (int i = 0; i < 4; ++i) next(fields, Botan::SEQUENCE, Botan::CONSTRUCTED);
    Botan::BER_Decoder keyInfo = fields.start_cons(Botan::SEQUENCE);
    Botan::AlgorithmIdentifier algorithm;
    keyInfo.decode(algorithm);
    certificate.algorithm = algorithm.get_oid().to_string();
    certificate.key = next(keyInfo, Botan::BIT_STRING);
    keyInfo.end_cons();
    const Botan::BER_Object& key = certificate.key;
    if (key.length() == 0 || key.bits()[0] > 7) throw Botan::BER_Decoding_Error("BIT STRING");

    next(parts, Botan::SEQUENCE, Botan::CONSTRUCTED);  // the signature's algorithm, and itself
    next(parts, Botan::BIT_STRING);
    parts.end_cons();
}

// An INTEGER above 0, whatever the sign that its first bit makes of it.
Botan::BigInt positive(Botan::BER_Decoder& fields) {
    const Botan::BER_Object object = next(fields, Botan::INTEGER);
    Botan::BigInt number(object.bits(), object.length());
    if (number.is_zero()) throw Botan::BER_Decoding_Error("no key has a 0");
    return number;
}

// RSAPublicKey (RFC 8017, appendix A.1.1) as a PUBLICKEYBLOB. What follows the structure is left
// alone.
std::vector<BYTE> rsaPublicKeyBlob(const BYTE* bytes, std::size_t length) {
    Botan::BER_Decoder decoder(bytes, length);
    Botan::BER_Decoder fields = decoder.start_cons(Botan::SEQUENCE);
    const std::vector<BYTE> modulus = Botan::BigInt::encode(positive(fields));
    const Botan::BigInt exponent = positive(fields);
    fields.end_cons();
    const PUBLICKEYSTRUC header{PUBLICKEYBLOB, 2, 0, CALG_RSA_KEYX};
    const RSAPUBKEY rsa{0x31415352, static_cast<DWORD>(modulus.size() * 8), exponent.to_u32bit()};
    std::vector<BYTE> blob(sizeof(header) + sizeof(rsa) + modulus.size());
    std::memcpy(blob.data(), &header, sizeof(header));
    std::memcpy(blob.data() + sizeof(header), &rsa, sizeof(rsa));
    std::reverse_copy(modulus.begin(), modulus.end(), blob.begin() + sizeof(header) + sizeof(rsa));
    return blob;
}

}  // namespace

PCCERT_CONTEXT WINAPI CertCreateCertificateContext(DWORD dwCertEncodingType,
                                                   const BYTE* pbCertEncoded,
                                                   DWORD cbCertEncoded) try {
    auto certificate = std::make_unique<OwnedCertificate>();
    readCertificate(*certificate, pbCertEncoded, cbCertEncoded);
    certificate->dwCertEncodingType = dwCertEncodingType;
    certificate->pbCertEncoded = certificate->encoded.data();
    certificate->cbCertEncoded = static_cast<DWORD>(certificate->encoded.size());
    certificate->pCertInfo = &certificate->info;
    CERT_PUBLIC_KEY_INFO& info = certificate->info.SubjectPublicKeyInfo;
    info.Algorithm.pszObjId = certificate->algorithm.data();
    // The published records have no const; nobody writes through them.
    auto* key = const_cast<BYTE*>(certificate->key.bits());
    info.PublicKey = {static_cast<DWORD>(certificate->key.length() - 1), key + 1, key[0]};
    return certificate.release();
} catch (const std::exception&) {
    SetLastError(CRYPT_E_ASN1_CORRUPT);
    return nullptr;
}

BOOL WINAPI CertFreeCertificateContext(PCCERT_CONTEXT pCertContext) {
    delete static_cast<const OwnedCertificate*>(pCertContext);
    return TRUE;
}

// Of the structure types only RSA_CSP_PUBLICKEYBLOB is offered.
BOOL WINAPI CryptDecodeObject(DWORD, LPCSTR lpszStructType, const BYTE* pbEncoded, DWORD cbEncoded,
                              DWORD, void* pvStructInfo, DWORD* pcbStructInfo) try {
    if (lpszStructType != RSA_CSP_PUBLICKEYBLOB) return fail(ERROR_FILE_NOT_FOUND);
    const std::vector<BYTE> blob = rsaPublicKeyBlob(pbEncoded, cbEncoded);
    const DWORD room = *pcbStructInfo;
    *pcbStructInfo = static_cast<DWORD>(blob.size());
    if (pvStructInfo == nullptr) return TRUE;
    if (room < blob.size()) return fail(ERROR_MORE_DATA);
    std::copy(blob.begin(), blob.end(), static_cast<BYTE*>(pvStructInfo));
    return TRUE;
} catch (const std::exception&) {
    *pcbStructInfo = 0;
    return fail(CRYPT_E_ASN1_CORRUPT);
}

// Base64 on one line. The count needed has the terminator in it; the count written has not.
BOOL WINAPI CryptBinaryToStringA(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags,
                                 LPSTR pszString, DWORD* pcchString) {
    if (pbBinary == nullptr || dwFlags != (CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF)) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const auto length = static_cast<DWORD>(Botan::base64_encode_max_output(cbBinary));
    if (pszString == nullptr) {
        *pcchString = length + 1;
        return TRUE;
    }
    if (*pcchString <= length) return fail(ERROR_MORE_DATA);
    std::size_t consumed = 0;
    Botan::base64_encode(pszString, pbBinary, cbBinary, consumed, true);
    pszString[length] = '\0';
    *pcchString = length;
    return TRUE;
}
