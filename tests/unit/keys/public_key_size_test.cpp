#include "keys/public_key_size.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "session/card_context.h"
#include "support/fineid_script.h"
#include "support/platform_calls.h"
#include "support/test_certificates.h"

namespace KelmoraID {
namespace {

using namespace testing;

class PublicKeyBits : public ::testing::Test {
protected:
    WORD bitsOf(const ByteVector& certificate) {
        PCCERT_CONTEXT context = CertCreateCertificateContext(
            certificateEncodings, certificate.data(), static_cast<DWORD>(certificate.size()));
        EXPECT_NE(context, nullptr);
        if (context == nullptr) return 0;
        const WORD bits = publicKeyBits(record.data, context);
        CertFreeCertificateContext(context);
        return bits;
    }
    PlatformCallsGuard hooks;
    PlatformRecord record{CardType::type3};
};

TEST_F(PublicKeyBits, GivesTheModulusLengthOfAnRsaKey) {
    EXPECT_EQ(bitsOf(rsa2048Certificate()), 2048);
    EXPECT_EQ(bitsOf(rsa1024Certificate()), 1024);
    EXPECT_EQ(PlatformRecord::takeAllocatedSizes(), (std::vector<std::size_t>{20 + 256, 20 + 128}));
    EXPECT_EQ(PlatformRecord::liveAllocations(), 0);
}

TEST_F(PublicKeyBits, GivesTheFieldSizeOfAnEcKey) {
    EXPECT_EQ(bitsOf(p256Certificate()), 256);
    EXPECT_EQ(bitsOf(p384Certificate()), 384);
}

TEST_F(PublicKeyBits, ReportsP521With528Bits) {
    EXPECT_EQ(bitsOf(p521Certificate()), 528);
}

TEST_F(PublicKeyBits, GivesZeroForAKeyOfAnotherKind) {
    EXPECT_EQ(bitsOf(ed25519Certificate()), 0);
    EXPECT_EQ(PlatformRecord::liveAllocations(), 0);
}

TEST_F(PublicKeyBits, GivesZeroWhenTheAllocationFails) {
    PlatformRecord::failAllocation(1);
    EXPECT_EQ(bitsOf(rsa2048Certificate()), 0);
}

TEST_F(PublicKeyBits, GivesZeroAndFreesTheBufferWhenTheDecodingFails) {
    platformCalls().failCall("CryptDecodeObject", 2);
    EXPECT_EQ(bitsOf(rsa2048Certificate()), 0);
    EXPECT_EQ(PlatformRecord::liveAllocations(), 0);
}

// The blob of an RSA key as the platform would decode it, of that bit length and that size.
void decodeTo(DWORD bits, DWORD size) {
    platformCalls().CryptDecodeObject = [bits, size](DWORD encoding, LPCSTR type, const BYTE*,
                                                     DWORD, DWORD flags, void* blob,
                                                     DWORD* length) -> BOOL {
        EXPECT_EQ(encoding, certificateEncodings);
        EXPECT_EQ(type, RSA_CSP_PUBLICKEYBLOB);
        EXPECT_EQ(flags, 0);
        *length = size;
        if (blob == nullptr) return 1;
        const RSAPUBKEY key{0x31415352, bits, 0x10001};
        BYTE whole[sizeof(PUBLICKEYSTRUC) + sizeof(key)] = {};
        std::memcpy(whole + sizeof(PUBLICKEYSTRUC), &key, sizeof(key));
        std::memcpy(blob, whole, std::min<std::size_t>(size, sizeof(whole)));
        return 1;
    };
}

TEST_F(PublicKeyBits, AreTheLower16BitsOfAnRsaKeysLength) {
    decodeTo(0x12345, 20);
    EXPECT_EQ(bitsOf(rsa2048Certificate()), 0x2345);
    EXPECT_EQ(PlatformRecord::liveAllocations(), 0);
}

TEST_F(PublicKeyBits, GivesZeroForABlobThatIsShorterThanItsHeaders) {
    decodeTo(2048, 19);
    EXPECT_EQ(bitsOf(rsa2048Certificate()), 0);
    EXPECT_EQ(PlatformRecord::liveAllocations(), 0);
}

TEST_F(PublicKeyBits, TakesOffUnusedBitsAndIsLimitedTo16Bits) {
    char algorithm[] = "1.2.840.10045.2.1";
    BYTE point = 4;
    CERT_INFO info{};
    info.SubjectPublicKeyInfo.Algorithm.pszObjId = algorithm;
    info.SubjectPublicKeyInfo.PublicKey = {65, &point, 3};
    CERT_CONTEXT certificate{1, nullptr, 0, &info, nullptr};
    EXPECT_EQ(publicKeyBits(record.data, &certificate), 253);
    info.SubjectPublicKeyInfo.PublicKey = {0x10000, &point, 0};
    EXPECT_EQ(publicKeyBits(record.data, &certificate), 0xFFFF);
    info.SubjectPublicKeyInfo.PublicKey = {0, &point, 0};
    EXPECT_EQ(publicKeyBits(record.data, &certificate), 0);
}

}  // namespace
}  // namespace KelmoraID
