// CRYPT32's certificate contexts, the RSA public key structure and base64 text.
#include <algorithm>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"
#include "posix/der_reader.h"

namespace KelmoraID::platform {
namespace {

constexpr DWORD E_INVALIDARG = 0x80070057;
constexpr DWORD CERT_V1 = 0;
constexpr DWORD CERT_V3 = 2;
constexpr DWORD CRYPT_STRING_NOCR = 0x80000000;

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// A context and all that it points to; the blobs point into the encoded bytes.
struct OwnedCertificate : CERT_CONTEXT {
    CERT_INFO info{};
    std::vector<BYTE> encoded;
    std::vector<BYTE> serial;
    std::deque<std::string> identifiers;  // a deque: their texts stay where they are
    std::vector<CERT_EXTENSION> extensions;
};

CRYPTOAPI_BLOB blobOf(std::span<const BYTE> bytes) {
    // The published records have no const; nobody writes through them.
    return {static_cast<DWORD>(bytes.size()), const_cast<BYTE*>(bytes.data())};
}

CRYPT_BIT_BLOB bitsOf(const DerElement& element) {
    if (element.content.empty()) throw DerError{CRYPT_E_ASN1_CORRUPT};
    const BYTE unused = element.content[0];
    const std::span<const BYTE> bits = element.content.subspan(1);
    if (unused > 7 || (unused != 0 && bits.empty())) throw DerError{CRYPT_E_ASN1_CORRUPT};
    return {static_cast<DWORD>(bits.size()), const_cast<BYTE*>(bits.data()), unused};
}

LPSTR identifierOf(OwnedCertificate& certificate, const DerElement& element) {
    return certificate.identifiers.emplace_back(dottedIdentifier(element.content)).data();
}

// AlgorithmIdentifier (RFC 5280, section 4.1.1.2); the parameters are kept as they are encoded.
CRYPT_ALGORITHM_IDENTIFIER algorithmOf(OwnedCertificate& certificate, const DerElement& element) {
    DerReader fields(element.content);
    CRYPT_ALGORITHM_IDENTIFIER algorithm{};
    algorithm.pszObjId = identifierOf(certificate, fields.next(Tag::objectIdentifier));
    if (!fields.atEnd()) algorithm.Parameters = blobOf(fields.next().whole);
    fields.end();
    return algorithm;
}

// Least significant byte first, as CERT_INFO has it, without the bytes that only repeat the sign.
std::vector<BYTE> serialOf(const DerElement& element) {
    std::span<const BYTE> bytes = element.content;
    if (bytes.empty()) throw DerError{CRYPT_E_ASN1_CORRUPT};
    while (bytes.size() > 1 &&
           ((bytes[0] == 0x00 && bytes[1] < 0x80) || (bytes[0] == 0xFF && bytes[1] >= 0x80))) {
        bytes = bytes.subspan(1);
    }
    return {bytes.rbegin(), bytes.rend()};
}

DWORD versionOf(DerReader& fields) {
    const std::optional<DerElement> tagged = fields.nextIf(0xA0);
    if (!tagged) return CERT_V1;
    DerReader inside(tagged->content);
    const DerElement number = inside.next(Tag::integer);
    inside.end();
    if (number.content.size() != 1 || number.content[0] > CERT_V3) {
        throw DerError{CRYPT_E_ASN1_CORRUPT};
    }
    return number.content[0];
}

void readExtensions(OwnedCertificate& certificate, const DerElement& tagged) {
    DerReader outer(tagged.content);
    DerReader list(outer.next(Tag::sequence).content);
    outer.end();
    while (!list.atEnd()) {
        DerReader fields(list.next(Tag::sequence).content);
        CERT_EXTENSION extension{};
        extension.pszObjId = identifierOf(certificate, fields.next(Tag::objectIdentifier));
        if (const auto critical = fields.nextIf(Tag::boolean)) {
            if (critical->content.size() != 1) throw DerError{CRYPT_E_ASN1_CORRUPT};
            extension.fCritical = critical->content[0] != 0 ? TRUE : FALSE;
        }
        extension.Value = blobOf(fields.next(Tag::octetString).content);
        fields.end();
        certificate.extensions.push_back(extension);
    }
}

// TBSCertificate (RFC 5280, section 4.1.2).
void readToBeSigned(OwnedCertificate& certificate, const DerElement& element) {
    CERT_INFO& info = certificate.info;
    DerReader fields(element.content);
    info.dwVersion = versionOf(fields);
    certificate.serial = serialOf(fields.next(Tag::integer));
    info.SerialNumber = blobOf(certificate.serial);
    info.SignatureAlgorithm = algorithmOf(certificate, fields.next(Tag::sequence));
    info.Issuer = blobOf(fields.next(Tag::sequence).whole);
    DerReader validity(fields.next(Tag::sequence).content);
    info.NotBefore = fileTimeOf(validity.next());
    info.NotAfter = fileTimeOf(validity.next());
    validity.end();
    info.Subject = blobOf(fields.next(Tag::sequence).whole);
    DerReader key(fields.next(Tag::sequence).content);
    info.SubjectPublicKeyInfo.Algorithm = algorithmOf(certificate, key.next(Tag::sequence));
    info.SubjectPublicKeyInfo.PublicKey = bitsOf(key.next(Tag::bitString));
    key.end();
    if (const auto issuer = fields.nextIf(0x81)) info.IssuerUniqueId = bitsOf(*issuer);
    if (const auto subject = fields.nextIf(0x82)) info.SubjectUniqueId = bitsOf(*subject);
    if (const auto extensions = fields.nextIf(0xA3)) readExtensions(certificate, *extensions);
    fields.end();
    info.cExtension = static_cast<DWORD>(certificate.extensions.size());
    if (info.cExtension != 0) info.rgExtension = certificate.extensions.data();
}

void readCertificate(OwnedCertificate& certificate) {
    DerReader outer(certificate.encoded);
    DerReader parts(outer.next(Tag::sequence).content);
    readToBeSigned(certificate, parts.next(Tag::sequence));
    algorithmOf(certificate, parts.next(Tag::sequence));
    bitsOf(parts.next(Tag::bitString));
    parts.end();
}

struct RsaPublicKey {
    std::span<const BYTE> modulus;  // most significant byte first, which is not 0
    DWORD exponent;
};

std::span<const BYTE> unsignedOf(const DerElement& element) {
    std::span<const BYTE> bytes = element.content;
    while (!bytes.empty() && bytes[0] == 0) bytes = bytes.subspan(1);
    if (bytes.empty()) throw DerError{CRYPT_E_ASN1_CORRUPT};
    return bytes;
}

// RSAPublicKey (RFC 8017, appendix A.1.1). What follows the structure is left alone.
RsaPublicKey rsaPublicKeyOf(std::span<const BYTE> encoded) {
    DerReader outer(encoded);
    DerReader fields(outer.next(Tag::sequence).content);
    RsaPublicKey key{unsignedOf(fields.next(Tag::integer)), 0};
    const std::span<const BYTE> exponent = unsignedOf(fields.next(Tag::integer));
    fields.end();
    if (exponent.size() > sizeof(key.exponent)) throw DerError{CRYPT_E_ASN1_LARGE};
    for (const BYTE byte : exponent) key.exponent = key.exponent << 8 | byte;
    return key;
}

std::string base64Of(std::span<const BYTE> bytes, std::string_view lineEnd) {
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr std::size_t bytesOfLine = 48;
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::span<const BYTE> group =
            bytes.subspan(at, std::min<std::size_t>(3, bytes.size() - at));
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            value = value << 8 | (i < group.size() ? group[i] : BYTE{0});
        }
        for (std::size_t i = 0; i < 4; ++i) {
            text += i <= group.size() ? digits[value >> (18 - 6 * i) & 0x3F] : '=';
        }
        if (at + 3 >= bytes.size() || (at + 3) % bytesOfLine == 0) text += lineEnd;
    }
    return text;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

// The encoded certificate is the DER element at the front of the bytes; what stands behind it is no
// part of it.
PCCERT_CONTEXT WINAPI CertCreateCertificateContext(DWORD dwCertEncodingType,
                                                   const BYTE* pbCertEncoded,
                                                   DWORD cbCertEncoded) try {
    if ((dwCertEncodingType & X509_ASN_ENCODING) == 0 ||
        (pbCertEncoded == nullptr && cbCertEncoded != 0)) {
        SetLastError(E_INVALIDARG);
        return nullptr;
    }
    DerReader reader({pbCertEncoded, cbCertEncoded});
    const std::span<const BYTE> element = reader.next(Tag::sequence).whole;
    auto certificate = std::make_unique<OwnedCertificate>();
    certificate->encoded.assign(element.begin(), element.end());
    readCertificate(*certificate);
    certificate->dwCertEncodingType = dwCertEncodingType;
    certificate->pbCertEncoded = certificate->encoded.data();
    certificate->cbCertEncoded = static_cast<DWORD>(certificate->encoded.size());
    certificate->pCertInfo = &certificate->info;
    return certificate.release();
} catch (const DerError& error) {
    SetLastError(error.code);
    return nullptr;
} catch (const std::exception&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

BOOL WINAPI CertFreeCertificateContext(PCCERT_CONTEXT pCertContext) {
    delete static_cast<const OwnedCertificate*>(pCertContext);
    return TRUE;
}

// Of the structure types only RSA_CSP_PUBLICKEYBLOB is offered.
BOOL WINAPI CryptDecodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType,
                              const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                              void* pvStructInfo, DWORD* pcbStructInfo) try {
    if ((dwCertEncodingType & X509_ASN_ENCODING) == 0 || lpszStructType != RSA_CSP_PUBLICKEYBLOB) {
        return fail(ERROR_FILE_NOT_FOUND);
    }
    if (pcbStructInfo == nullptr || (pbEncoded == nullptr && cbEncoded != 0) || dwFlags != 0) {
        return fail(E_INVALIDARG);
    }
    const DWORD room = pvStructInfo == nullptr ? 0 : *pcbStructInfo;
    *pcbStructInfo = 0;
    const RsaPublicKey key = rsaPublicKeyOf({pbEncoded, cbEncoded});
    const auto modulusLength = static_cast<DWORD>(key.modulus.size());
    const PUBLICKEYSTRUC header{PUBLICKEYBLOB, 2, 0, CALG_RSA_KEYX};
    const RSAPUBKEY rsa{0x31415352, modulusLength * 8, key.exponent};
    const auto needed = static_cast<DWORD>(sizeof(header) + sizeof(rsa)) + modulusLength;
    *pcbStructInfo = needed;
    if (pvStructInfo == nullptr) return TRUE;
    if (room < needed) return fail(ERROR_MORE_DATA);
    auto* out = static_cast<BYTE*>(pvStructInfo);
    std::memcpy(out, &header, sizeof(header));
    std::memcpy(out + sizeof(header), &rsa, sizeof(rsa));
    std::reverse_copy(key.modulus.begin(), key.modulus.end(), out + sizeof(header) + sizeof(rsa));
    return TRUE;
} catch (const DerError& error) {
    return fail(error.code);
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

// Base64 in lines of 64 characters, each with its line end, or in one piece.
BOOL WINAPI CryptBinaryToStringA(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags,
                                 LPSTR pszString, DWORD* pcchString) try {
    constexpr DWORD lineEnds = CRYPT_STRING_NOCRLF | CRYPT_STRING_NOCR;
    if (pbBinary == nullptr || pcchString == nullptr ||
        (dwFlags & ~lineEnds) != CRYPT_STRING_BASE64) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    std::string_view lineEnd = "\r\n";
    if ((dwFlags & CRYPT_STRING_NOCR) != 0) lineEnd = "\n";
    if ((dwFlags & CRYPT_STRING_NOCRLF) != 0) lineEnd = "";
    const std::string text = base64Of({pbBinary, cbBinary}, lineEnd);
    if (text.size() >= 0xFFFFFFFF) return fail(ERROR_NOT_ENOUGH_MEMORY);
    const auto length = static_cast<DWORD>(text.size());
    const DWORD room = *pcchString;
    if (pszString == nullptr || room <= length) {
        // The count needed has the terminator in it; the count written has not.
        *pcchString = length + 1;
        return pszString == nullptr ? TRUE : fail(ERROR_MORE_DATA);
    }
    std::memcpy(pszString, text.c_str(), text.size() + 1);
    *pcchString = length;
    return TRUE;
} catch (const std::exception&) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}
