#include <botan/auto_rng.h>
#include <botan/ec_group.h>
#include <botan/ecdsa.h>
#include <botan/rsa.h>
#include <botan/x509self.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "support/scripted_card.h"

namespace {

using Bytes = std::vector<BYTE>;
using KelmoraID::testing::bytes;

constexpr DWORD malformed = 0x80093103;
constexpr DWORD encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

Bytes selfSigned(const Botan::Private_Key& key) {
    Botan::AutoSeeded_RNG rng;
    Botan::X509_Cert_Options options("Holder/FI/Kelmora/Test");
    options.not_before("20240229120000Z");
    options.not_after("20510101000000Z");
    return Botan::X509::create_self_signed_cert(options, key, "SHA-256", rng).BER_encode();
}

const Botan::RSA_PrivateKey& rsaKey() {
    static Botan::AutoSeeded_RNG rng;
    static const Botan::RSA_PrivateKey key(rng, 1024);
    return key;
}

const Bytes& rsaCertificate() {
    static const Bytes encoded = selfSigned(rsaKey());
    return encoded;
}

PCCERT_CONTEXT create(const Bytes& encoded) {
    return CertCreateCertificateContext(encoding, encoded.data(),
                                        static_cast<DWORD>(encoded.size()));
}

Bytes bytesOf(const CRYPT_BIT_BLOB& blob) {
    return {blob.pbData, blob.pbData + blob.cbData};
}

// One element of DER with a length of up to two bytes.
Bytes der(BYTE tag, const Bytes& content) {
    Bytes result{tag};
    if (content.size() > 0xFF) {
        result.push_back(0x82);
        result.push_back(static_cast<BYTE>(content.size() >> 8));
    } else if (content.size() > 0x7F) {
        result.push_back(0x81);
    }
    result.push_back(static_cast<BYTE>(content.size()));
    result.insert(result.end(), content.begin(), content.end());
    return result;
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes result;
    for (const Bytes& part : parts) result.insert(result.end(), part.begin(), part.end());
    return result;
}

// A certificate put together by hand, of which a test can spoil a part.
struct Handmade {
    Bytes version = bytes("A0 03 02 01 02");
    Bytes serial = bytes("02 02 01 23");
    Bytes algorithm = bytes("30 05 06 03 2A 03 04");
    Bytes issuer = bytes("30 00");
    Bytes notBefore = bytes("17 0D 353030313031303030303030 5A");     // 1950
    Bytes notAfter = bytes("18 0F 3939393931323331323335393539 5A");  // 9999
    Bytes subject = bytes("30 02 31 00");
    Bytes key = bytes("30 0C 30 07 06 02 88 37 02 01 05 03 01 00");
    Bytes rest;
    Bytes encoded() const {
        const Bytes tbs =
            der(0x30, join({version, serial, algorithm, issuer,
                            der(0x30, join({notBefore, notAfter})), subject, key, rest}));
        return der(0x30, join({tbs, algorithm, bytes("03 02 00 AA")}));
    }
};

TEST(CertificateContext, TellsThePublicKeyOfARealCertificate) {
    PCCERT_CONTEXT context = create(rsaCertificate());
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->dwCertEncodingType, encoding);
    EXPECT_EQ(Bytes(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded),
              rsaCertificate());
    const CERT_PUBLIC_KEY_INFO& key = context->pCertInfo->SubjectPublicKeyInfo;
    EXPECT_STREQ(key.Algorithm.pszObjId, "1.2.840.113549.1.1.1");
    EXPECT_EQ(bytesOf(key.PublicKey), rsaKey().public_key_bits());
    EXPECT_EQ(key.PublicKey.cUnusedBits, 0U);
    EXPECT_EQ(CertFreeCertificateContext(context), TRUE);
}

TEST(CertificateContext, TellsThePointOfAnEllipticCurveKey) {
    Botan::AutoSeeded_RNG rng;
    const Botan::ECDSA_PrivateKey key(rng, Botan::EC_Group("secp384r1"));
    PCCERT_CONTEXT context = create(selfSigned(key));
    ASSERT_NE(context, nullptr);
    const CERT_PUBLIC_KEY_INFO& info = context->pCertInfo->SubjectPublicKeyInfo;
    EXPECT_STREQ(info.Algorithm.pszObjId, "1.2.840.10045.2.1");
    EXPECT_EQ(info.PublicKey.cbData, 97U);
    EXPECT_EQ(info.PublicKey.pbData[0], 0x04);
    CertFreeCertificateContext(context);
}

TEST(CertificateContext, TakesTheRareForms) {
    Handmade made;
    made.version.clear();
    made.key = bytes("30 0D 30 07 06 02 2A 03 02 01 05 03 02 07 80");
    made.rest = bytes("81 02 07 80 82 02 00 55");
    PCCERT_CONTEXT context = create(made.encoded());
    ASSERT_NE(context, nullptr);
    const CERT_PUBLIC_KEY_INFO& key = context->pCertInfo->SubjectPublicKeyInfo;
    EXPECT_STREQ(key.Algorithm.pszObjId, "1.2.3");
    EXPECT_EQ(bytesOf(key.PublicKey), bytes("80"));
    EXPECT_EQ(key.PublicKey.cUnusedBits, 7U);
    CertFreeCertificateContext(context);
}

TEST(CertificateContext, LeavesOutWhatStandsBehindTheCertificate) {
    Bytes padded = rsaCertificate();
    padded.resize(padded.size() + 300, 0xFF);
    PCCERT_CONTEXT context = create(padded);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->cbCertEncoded, rsaCertificate().size());
    CertFreeCertificateContext(context);
}

TEST(CertificateContext, KeepsACopyOfItsBytes) {
    Bytes encoded = rsaCertificate();
    PCCERT_CONTEXT context = create(encoded);
    ASSERT_NE(context, nullptr);
    std::fill(encoded.begin(), encoded.end(), BYTE{0});
    EXPECT_EQ(Bytes(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded),
              rsaCertificate());
    CertFreeCertificateContext(context);
}

TEST(CertificateContext, IsRefusedWhereItIsMalformed) {
    const auto refused = [](const Bytes& encoded) {
        SetLastError(0);
        PCCERT_CONTEXT context = create(encoded);
        CertFreeCertificateContext(context);
        return context == nullptr && GetLastError() == malformed;
    };
    ASSERT_FALSE(refused(Handmade().encoded()));
    for (const char* encoded :
         {"", "30", "30 03 30 01", "04 00", "30 85 01 00 00 00 00", "30 84 FF FF FF FF 30"}) {
        EXPECT_TRUE(refused(bytes(encoded))) << encoded;
    }
    const struct {
        Bytes Handmade::*part;
        const char* by;
    } rows[] = {
        {&Handmade::serial, "04 01 01"},
        {&Handmade::algorithm, "04 00"},
        {&Handmade::issuer, "31 00"},
        {&Handmade::subject, "30 05 31 00"},
        {&Handmade::key, "30 04 30 02 06 00"},
        {&Handmade::key, "30 05 30 03 06 01 2A"},
        {&Handmade::key, "30 07 30 03 06 01 2A 03 00"},
        {&Handmade::key, "30 0A 30 04 06 02 2A 03 03 02 08 00"},
        {&Handmade::key, "30 08 30 04 06 02 2A 03 03 00"},
        {&Handmade::key, "30 0B 30 04 06 02 2A 03 03 01 00 05 00"},
    };
    for (const auto& row : rows) {
        Handmade made;
        made.*row.part = bytes(row.by);
        EXPECT_TRUE(refused(made.encoded())) << row.by;
    }
}

TEST(CertificateContext, OfNothingCanBeFreed) {
    EXPECT_EQ(CertFreeCertificateContext(nullptr), TRUE);
}

TEST(CertificateContext, SurvivesEveryCutAndEverySpoiltByte) {
    const Bytes& whole = rsaCertificate();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(create(cut), nullptr) << length;
    }
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const BYTE value : bytes("00 01 7F 80 82 84 FF")) {
            Bytes spoilt = whole;
            spoilt[at] = value;
            PCCERT_CONTEXT context = create(spoilt);
            if (context == nullptr) continue;
            // Whatever is accepted can be read to its end.
            EXPECT_LE(bytesOf(context->pCertInfo->SubjectPublicKeyInfo.PublicKey).size(),
                      context->cbCertEncoded);
            CertFreeCertificateContext(context);
        }
    }
}

Bytes decode(const Bytes& encoded) {
    DWORD size = 0;
    if (CryptDecodeObject(encoding, RSA_CSP_PUBLICKEYBLOB, encoded.data(),
                          static_cast<DWORD>(encoded.size()), 0, nullptr, &size) == FALSE) {
        return {};
    }
    Bytes blob(size);
    EXPECT_EQ(CryptDecodeObject(encoding, RSA_CSP_PUBLICKEYBLOB, encoded.data(),
                                static_cast<DWORD>(encoded.size()), 0, blob.data(), &size),
              TRUE);
    EXPECT_EQ(size, blob.size());
    return blob;
}

TEST(RsaPublicKeyBlob, HasItsModulusLittleEndian) {
    EXPECT_EQ(decode(bytes("30 0C 02 05 00 81 82 83 84 02 03 01 00 01")),
              bytes("06 02 00 00 00 A4 00 00 52 53 41 31 20 00 00 00 01 00 01 00 84 83 82 81"));
}

TEST(RsaPublicKeyBlob, OfARealKeyHasAllItsBits) {
    const Bytes blob = decode(rsaKey().public_key_bits());
    ASSERT_EQ(blob.size(), 148U);
    EXPECT_EQ(Bytes(blob.begin() + 12, blob.begin() + 16), bytes("00 04 00 00"));
    const Bytes modulus = Botan::BigInt::encode(rsaKey().get_n());
    EXPECT_EQ(Bytes(blob.rbegin(), blob.rbegin() + 128), modulus);
}

TEST(RsaPublicKeyBlob, TellsTheSizeWhereTheBufferIsTooSmall) {
    const Bytes encoded = bytes("30 06 02 01 05 02 01 03");
    Bytes blob(20, 0xEE);
    auto size = static_cast<DWORD>(blob.size());
    SetLastError(0);
    EXPECT_EQ(CryptDecodeObject(encoding, RSA_CSP_PUBLICKEYBLOB, encoded.data(), 8, 0, blob.data(),
                                &size),
              FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(size, 21U);
    EXPECT_EQ(blob, Bytes(20, 0xEE));
}

TEST(RsaPublicKeyBlob, IsRefusedForMalformedKeys) {
    for (const char* encoded : {"", "04 41 04", "30 00", "30 03 02 01 05", "30 05 02 00 02 01 03",
                                "30 06 02 01 00 02 01 03", "30 0A 02 01 05 02 05 01 00 00 00 01",
                                "30 08 02 01 05 02 01 03 05 00"}) {
        SetLastError(0);
        EXPECT_TRUE(decode(bytes(encoded)).empty()) << encoded;
        EXPECT_EQ(GetLastError(), malformed) << encoded;
    }
}

TEST(RsaPublicKeyBlob, IsTheOnlyStructureType) {
    DWORD size = 0;
    const Bytes encoded = bytes("30 06 02 01 05 02 01 03");
    SetLastError(0);
    EXPECT_EQ(CryptDecodeObject(encoding, reinterpret_cast<LPCSTR>(ULONG_PTR{8}), encoded.data(), 8,
                                0, nullptr, &size),
              FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

constexpr DWORD onOneLine = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;

std::string base64(const Bytes& data) {
    DWORD length = 0;
    EXPECT_EQ(CryptBinaryToStringA(data.data(), static_cast<DWORD>(data.size()), onOneLine, nullptr,
                                   &length),
              TRUE);
    const DWORD needed = length;
    std::string text(length, '#');
    EXPECT_EQ(CryptBinaryToStringA(data.data(), static_cast<DWORD>(data.size()), onOneLine,
                                   text.data(), &length),
              TRUE);
    EXPECT_EQ(length, needed - 1);  // the terminator counts only where room is asked for
    EXPECT_EQ(text.back(), '\0');
    text.pop_back();
    return text;
}

TEST(Base64Text, HasThePublishedForms) {
    // RFC 4648, section 10.
    EXPECT_EQ(base64({'f'}), "Zg==");
    EXPECT_EQ(base64({'f', 'o'}), "Zm8=");
    EXPECT_EQ(base64({'f', 'o', 'o'}), "Zm9v");
    EXPECT_EQ(base64({'f', 'o', 'o', 'b', 'a', 'r'}), "Zm9vYmFy");
    EXPECT_EQ(base64({0xFB, 0xFF, 0xFE}), "+//+");
}

TEST(Base64Text, IsInOnePieceWithoutLineEnds) {
    EXPECT_EQ(base64(Bytes(49, 0)), std::string(66, 'A') + "==");
}

TEST(Base64Text, IsRefusedInABufferTooSmall) {
    const BYTE data[] = {1, 2, 3};
    char text[4] = {'#'};
    DWORD length = 4;
    SetLastError(0);
    EXPECT_EQ(CryptBinaryToStringA(data, 3, onOneLine, text, &length), FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(text[0], '#');
}

TEST(Base64Text, IsRefusedForOtherFormsAndNoData) {
    const BYTE data[] = {1};
    DWORD length = 0;
    EXPECT_EQ(CryptBinaryToStringA(data, 1, 0, nullptr, &length), FALSE);
    EXPECT_EQ(CryptBinaryToStringA(nullptr, 0, onOneLine, nullptr, &length), FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
