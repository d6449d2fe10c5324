#include "frame/container_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "session/entry_points.h"
#include "support/fineid_script.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/test_certificates.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

using namespace testing;

std::string nameOf(const std::string& text) {
    WCHAR wszGuid[40] = {};
    containerGuidName(text, wszGuid);
    EXPECT_EQ(wszGuid[39], 0);
    return wideToUtf8(wszGuid).c_str();
}

// SHA-1("abc") is a9993e36 4706 816a ba 3e25717850c26c 9cd0d89d (FIPS 180-4).
TEST(ContainerName, IsTheDigestWithTheNinthByteReplaced) {
    EXPECT_EQ(nameOf("abc"), "{363E99A9-0647-5A81-803E-25717850C26C}");
}

TEST(ContainerName, DependsOnIdentifierAndSuffixAlone) {
    EXPECT_EQ(nameOf("00000000000000000000000000000000_AUTH"),
              nameOf("00000000000000000000000000000000_AUTH"));
    EXPECT_NE(nameOf("00000000000000000000000000000000_AUTH"),
              nameOf("00000000000000000000000000000000_SIGN"));
}

TEST(ContainerName, StaysEmptyWhenAStepOfThePlatformFails) {
    PlatformCallsGuard hooks;
    LogCapture log;
    for (const char* call : {"CryptAcquireContextW", "CryptCreateHash", "CryptHashData",
                             "CryptGetHashParam", "StringFromGUID2"}) {
        platformCalls() = PlatformCalls();
        platformCalls().failCall(call);
        EXPECT_EQ(nameOf("abc"), "") << call;
        EXPECT_EQ(platformCalls().counts["CryptReleaseContext"],
                  std::string(call) == "CryptAcquireContextW" ? 0 : 1)
            << call;
    }
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(ContainerName, IsMadeWithAProviderThatOnlyVerifies) {
    PlatformCallsGuard hooks;
    std::vector<DWORD> asked;
    platformCalls().CryptAcquireContextW = [&](HCRYPTPROV*, LPCWSTR container, LPCWSTR provider,
                                               DWORD type, DWORD flags) -> BOOL {
        EXPECT_EQ(container, nullptr);
        EXPECT_EQ(provider, nullptr);
        asked = {type, flags};
        return 0;
    };
    EXPECT_EQ(nameOf("abc"), "");
    EXPECT_EQ(asked, (std::vector<DWORD>{1, 0xF0000000}));
}

class PublicKeyBits : public ::testing::Test {
protected:
    WORD bitsOf(const ByteVector& certificate) {
        PCCERT_CONTEXT context = CertCreateCertificateContext(
            0x10001, certificate.data(), static_cast<DWORD>(certificate.size()));
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
        EXPECT_EQ(encoding, 0x10001);
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

class CardIdentity : public ::testing::Test {
protected:
    // Acquires a card with that serial number and gives its identifier.
    ByteVector identifierOf(const ByteVector& serialNumber) {
        const FineidContent content{
            .serialNumber = serialNumber,
            .certificates = {p256Certificate(), p256Certificate(), p256Certificate()}};
        ScriptedCard card;
        expectAcquisition(card, content, 3);
        EXPECT_EQ(CardAcquireContext(&record.data, 0), 0);
        const CardContext& context = contextOf(&record.data);
        names.clear();
        for (const KeyContainer& container : context.containers) {
            names.push_back(wideToUtf8(container.wszGuid).c_str());
        }
        return {std::begin(context.cardIdentifier), std::end(context.cardIdentifier)};
    }
    LogCapture log;
    PlatformCallsGuard hooks;
    PlatformRecord record{CardType::type7};
    std::vector<std::string> names;
};

TEST_F(CardIdentity, IsASerialNumberOf16BytesAsItStands) {
    const ByteVector serial = bytes("000102030405060708090A0B0C0D0E0F");
    EXPECT_EQ(identifierOf(serial), serial);
}

TEST_F(CardIdentity, IsTheHashOfASerialNumberOf17Bytes) {
    // SHA-256 of the 17 bytes 00 to 10, its first half.
    EXPECT_EQ(hexOf(identifierOf(bytes("000102030405060708090A0B0C0D0E0F10"))),
              "3E5718FEA51A8F3F5BACA61C77AFAB47");
}

TEST_F(CardIdentity, IsAShortSerialNumberPaddedWithZeros) {
    EXPECT_EQ(identifierOf(bytes("01020304050607080910")),
              bytes("01020304050607080910000000000000"));
}

TEST_F(CardIdentity, IsZeroWhenTheHashFails) {
    platformCalls().failCall("CryptAcquireContextW", 1);
    EXPECT_EQ(identifierOf(bytes("000102030405060708090A0B0C0D0E0F10")), ByteVector(16, 0));
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CryptAcquireContext failed:  1234"}}));
}

TEST_F(CardIdentity, GivesTheSameContainersOnEveryMachine) {
    identifierOf(bytes("000102030405060708090A0B0C0D0E0F"));
    // Of the SHA-1 of the identifier in lower-case hexadecimal and "_AUTH", "_SIGN", "_SIGN_SEC".
    EXPECT_EQ(names, (std::vector<std::string>{"{54497D1B-F8F9-5B48-80C4-DD601EC4DAE3}",
                                               "{D5368176-94AB-544F-80A6-044D26C72C68}",
                                               "{BCA2164A-C5DD-5A96-80DD-0435F610DF27}"}));
}

}  // namespace
}  // namespace KelmoraID
