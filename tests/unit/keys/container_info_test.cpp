#include <cstring>

#include "keys/keys_fixture.h"
#include "keys/public_key_blobs.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::exited;
using testing::KeysFixture;
using testing::lines;
using testing::LogLines;
using testing::platformCalls;
using testing::TestKey;

constexpr const char* scope = "CardGetContainerInfo";
constexpr const char* entered = "Entering the function";

std::string parameters(int index, DWORD flags, DWORD version) {
    return "with parameters, bContainerIndex:'" + std::to_string(index) + "' dwFlags:'" +
           std::to_string(flags) + "', dwVersion:'" + std::to_string(version) + "'";
}

ByteVector taken(const CARD_DATA& data, PBYTE pointer, DWORD length) {
    const ByteVector blob(pointer, pointer + length);
    data.pfnCspFree(pointer);
    return blob;
}

const CRYPT_BIT_BLOB& keyOf(PCCERT_CONTEXT certificate) {
    return certificate->pCertInfo->SubjectPublicKeyInfo.PublicKey;
}

// A key of a certificate that lies about itself, for as long as the test runs.
struct ChangedKey {
    ChangedKey(PCCERT_CONTEXT certificate, DWORD length)
        : key(certificate->pCertInfo->SubjectPublicKeyInfo.PublicKey), old(key.cbData) {
        key.cbData = length;
    }
    ~ChangedKey() { key.cbData = old; }
    ChangedKey(const ChangedKey&) = delete;
    ChangedKey& operator=(const ChangedKey&) = delete;
    CRYPT_BIT_BLOB& key;
    DWORD old;
};

TEST(CardGetContainerInfo, RefusesNullPointersAndFlagsInThisOrderWithoutExitLine) {
    KeysFixture keys(CardType::type3);
    CONTAINER_INFO info{};
    EXPECT_EQ(CardGetContainerInfo(nullptr, 0, 1, nullptr), status::invalidParameter);
    EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 1, nullptr), status::invalidParameter);
    EXPECT_EQ(CardGetContainerInfo(keys.data, 9, 1, &info), status::invalidParameter);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered, entered, entered}));
    EXPECT_EQ(keys.log.output(), (LogLines{{"DEBUG", "CMR_377: pCardData is NULL"},
                                           {"DEBUG", "CMR_378: pContainerInfo is NULL"},
                                           {"DEBUG", "CMR_380: dwFlags is nonzero"}}));
}

TEST(CardGetContainerInfo, RefusesContainer2WithoutSecondSigningKey) {
    KeysFixture keys(CardType::type6);
    CONTAINER_INFO info{};
    info.dwVersion = 2;  // The index is looked at first.
    EXPECT_EQ(CardGetContainerInfo(keys.data, 2, 0, &info), status::noKeyContainer);
    EXPECT_EQ(keys.log.file(),
              lines(scope, {entered, parameters(2, 0, 2), exited(status::noKeyContainer)}));
    EXPECT_EQ(info.dwVersion, 2u);
}

TEST(CardGetContainerInfo, RefusesContainer3WithSecondSigningKey) {
    KeysFixture keys(CardType::type5, TestKey::p256);
    CONTAINER_INFO info{};
    EXPECT_EQ(CardGetContainerInfo(keys.data, 3, 0, &info), status::noKeyContainer);
    EXPECT_EQ(keys.log.file(),
              lines(scope, {entered, parameters(3, 0, 0), exited(status::noKeyContainer)}));
}

TEST(CardGetContainerInfo, RefusesVersion2WithoutExitLineAndLeavesTheRecord) {
    KeysFixture keys(CardType::type3);
    CONTAINER_INFO info{2, 3, 4, nullptr, 5, nullptr};
    EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 0, &info), 1306u);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered, parameters(0, 0, 2)}));
    EXPECT_EQ(info.dwVersion, 2u);
    EXPECT_EQ(info.dwReserved, 3u);
    EXPECT_EQ(info.cbSigPublicKey, 4u);
    EXPECT_EQ(info.cbKeyExPublicKey, 5u);
}

TEST(CardGetContainerInfo, AcceptsVersions0And1AndGives1Back) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    for (const DWORD version : {0u, 1u}) {
        CONTAINER_INFO info{};
        info.dwVersion = version;
        EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 0, &info), 0u);
        EXPECT_EQ(info.dwVersion, 1u);
        keys.data->pfnCspFree(info.pbKeyExPublicKey);
    }
}

TEST(CardGetContainerInfo, WorksWithoutACardContext) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    keys.data->hSCardCtx = 0;
    CONTAINER_INFO info{};
    EXPECT_EQ(CardGetContainerInfo(keys.data, 1, 0, &info), 0u);
    keys.data->pfnCspFree(info.pbSigPublicKey);
}

TEST(CardGetContainerInfo, GivesTheExchangeKeyOfContainer0AsAnEccBlob) {
    KeysFixture keys(CardType::type8, TestKey::p256, TestKey::p384);
    BYTE stale = 0;
    CONTAINER_INFO info{0, 7, 8, &stale, 9, &stale};
    EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 0, &info), 0u);
    EXPECT_EQ(keys.log.file(),
              lines(scope, {entered, parameters(0, 0, 0), exited(status::success)}));
    EXPECT_EQ(keys.log.output(), LogLines{});
    EXPECT_EQ(info.dwVersion, 1u);
    EXPECT_EQ(info.dwReserved, 0u);
    EXPECT_EQ(info.cbSigPublicKey, 0u);
    EXPECT_EQ(info.pbSigPublicKey, nullptr);
    ASSERT_EQ(info.cbKeyExPublicKey, 72u);
    const ByteVector blob = taken(*keys.data, info.pbKeyExPublicKey, info.cbKeyExPublicKey);
    const CRYPT_BIT_BLOB& key = keyOf(keys.context.authCert);
    ASSERT_EQ(key.cbData, 65u);
    ByteVector expected = bytes("45434B33 20000000");  // "ECK3", 32
    expected.insert(expected.end(), key.pbData + 1, key.pbData + 65);
    EXPECT_EQ(blob, expected);
}

TEST(CardGetContainerInfo, GivesTheSignatureKeysAsEccBlobsOfP384) {
    KeysFixture keys(CardType::type4, TestKey::p256, TestKey::p384);
    for (const BYTE index : {BYTE{1}, BYTE{2}}) {
        CONTAINER_INFO info{};
        info.dwVersion = 1;
        EXPECT_EQ(CardGetContainerInfo(keys.data, index, 0, &info), 0u);
        EXPECT_EQ(info.dwVersion, 1u);
        EXPECT_EQ(info.cbKeyExPublicKey, 0u);
        EXPECT_EQ(info.pbKeyExPublicKey, nullptr);
        ASSERT_EQ(info.cbSigPublicKey, 104u);
        const ByteVector blob = taken(*keys.data, info.pbSigPublicKey, info.cbSigPublicKey);
        const CRYPT_BIT_BLOB& key = keyOf(keys.context.signCert);
        ByteVector expected = bytes("45435333 30000000");  // "ECS3", 48
        expected.insert(expected.end(), key.pbData + 1, key.pbData + 97);
        EXPECT_EQ(blob, expected);
    }
}

TEST(CardGetContainerInfo, NamesTheMagicOfP384ForEveryCurve) {
    KeysFixture keys(CardType::type8, TestKey::p521);
    CONTAINER_INFO info{};
    EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 0, &info), 0u);
    const ByteVector blob = taken(*keys.data, info.pbKeyExPublicKey, info.cbKeyExPublicKey);
    ASSERT_EQ(blob.size(), 140u);
    EXPECT_EQ(ByteVector(blob.begin(), blob.begin() + 8), bytes("45434B33 42000000"));
}

TEST(CardGetContainerInfo, GivesRsaKeysWithTheAlgorithmOfTheirUse) {
    KeysFixture keys(CardType::type3, TestKey::rsa2048, TestKey::rsa1024);
    struct Row {
        BYTE index;
        std::size_t modulus;
        const char* head;
    };
    for (const Row& row : {Row{0, 256, "06 02 0000 00A40000 52534131 00080000 01000100"},
                           Row{1, 128, "06 02 0000 00240000 52534131 00040000 01000100"}}) {
        CONTAINER_INFO info{};
        EXPECT_EQ(CardGetContainerInfo(keys.data, row.index, 0, &info), 0u);
        EXPECT_EQ(keys.log.file(),
                  lines(scope, {entered, parameters(row.index, 0, 0), exited(status::success)}));
        const bool exchange = row.index == 0;
        EXPECT_EQ(exchange ? info.pbSigPublicKey : info.pbKeyExPublicKey, nullptr);
        EXPECT_EQ(exchange ? info.cbSigPublicKey : info.cbKeyExPublicKey, 0u);
        const ByteVector blob =
            taken(*keys.data, exchange ? info.pbKeyExPublicKey : info.pbSigPublicKey,
                  exchange ? info.cbKeyExPublicKey : info.cbSigPublicKey);
        ASSERT_EQ(blob.size(), 20 + row.modulus);
        EXPECT_EQ(ByteVector(blob.begin(), blob.begin() + 20), bytes(row.head));
        // The modulus stands in the certificate with its most significant byte first, behind the
        // headers of the sequence and of the number and a sign byte; in the blob it is reversed.
        const CRYPT_BIT_BLOB& key = keyOf(exchange ? keys.context.authCert : keys.context.signCert);
        const BYTE* end = key.pbData + key.cbData - 5;  // the exponent: 02 03 01 00 01
        const ByteVector modulus(end - row.modulus, end);
        EXPECT_EQ(ByteVector(blob.begin() + 20, blob.end()), testing::reversed(modulus));
    }
}

TEST(CardGetContainerInfo, AsksThePlatformForTheSizeAndThenForTheBlob) {
    KeysFixture keys(CardType::type3);
    struct Call {
        DWORD encoding;
        LPCSTR type;
        DWORD flags;
        bool hasBuffer;
        DWORD size;
    };
    std::vector<Call> calls;
    platformCalls().CryptDecodeObject = [&](DWORD encoding, LPCSTR type, const BYTE*, DWORD,
                                            DWORD flags, void* buffer, DWORD* size) -> BOOL {
        calls.push_back({encoding, type, flags, buffer != nullptr, *size});
        *size = 12;
        if (buffer != nullptr) std::memset(buffer, 0x55, 12);
        return TRUE;
    };
    CONTAINER_INFO info{};
    EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 0, &info), 0u);
    ASSERT_EQ(calls.size(), 2u);
    for (const Call& call : calls) {
        EXPECT_EQ(call.encoding, certificateEncodings);
        EXPECT_EQ(call.type, RSA_CSP_PUBLICKEYBLOB);
        EXPECT_EQ(call.flags, 0u);
    }
    EXPECT_FALSE(calls[0].hasBuffer);
    EXPECT_TRUE(calls[1].hasBuffer);
    EXPECT_EQ(calls[1].size, 12u);
    EXPECT_EQ(taken(*keys.data, info.pbKeyExPublicKey, info.cbKeyExPublicKey),
              bytes("55555555 00A40000 55555555"));
}

TEST(CardGetContainerInfo, ReportsAnEccKeyWithoutMemoryWithItsLengthInPlace) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    testing::PlatformRecord::failAllocation(1);
    CONTAINER_INFO info{};
    EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 0, &info), status::notEnoughMemory);
    EXPECT_EQ(keys.log.file(),
              lines(scope, {entered, parameters(0, 0, 0), exited(status::notEnoughMemory)}));
    EXPECT_EQ(info.pbKeyExPublicKey, nullptr);
    EXPECT_EQ(info.cbKeyExPublicKey, 72u);
}

TEST(CardGetContainerInfo, ReportsAnRsaKeyWithoutMemoryWithALengthOf0) {
    KeysFixture keys(CardType::type3);
    testing::PlatformRecord::failAllocation(1);
    CONTAINER_INFO info{};
    EXPECT_EQ(CardGetContainerInfo(keys.data, 1, 0, &info), status::notEnoughMemory);
    EXPECT_EQ(keys.log.file(),
              lines(scope, {entered, parameters(1, 0, 0), exited(status::notEnoughMemory)}));
    EXPECT_EQ(info.pbSigPublicKey, nullptr);
    EXPECT_EQ(info.cbSigPublicKey, 0u);
}

TEST(CardGetContainerInfo, GivesNoKeyThatThePlatformDoesNotDecode) {
    for (const int call : {1, 2}) {
        KeysFixture keys(CardType::type3);
        platformCalls().failCall("CryptDecodeObject", call);
        CONTAINER_INFO info{};
        EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 0, &info), status::unexpected);
        EXPECT_EQ(keys.log.file(),
                  lines(scope, {entered, parameters(0, 0, 0), exited(status::unexpected)}));
        EXPECT_EQ(info.pbKeyExPublicKey, nullptr);
        EXPECT_EQ(info.cbKeyExPublicKey, 0u);
        EXPECT_EQ(testing::PlatformRecord::liveAllocations(), 0);
    }
}

TEST(CardGetContainerInfo, GivesNoBlobThatIsShorterThanItsHeaderOrLongerThanItsRoom) {
    for (const DWORD reported : {7u, 21u}) {
        KeysFixture keys(CardType::type3);
        platformCalls().CryptDecodeObject = [&](DWORD, LPCSTR, const BYTE*, DWORD, DWORD,
                                                void* buffer, DWORD* size) -> BOOL {
            *size = buffer == nullptr ? 20 : reported;
            return TRUE;
        };
        CONTAINER_INFO info{};
        EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 0, &info), status::unexpected);
        EXPECT_EQ(info.pbKeyExPublicKey, nullptr);
        EXPECT_EQ(testing::PlatformRecord::liveAllocations(), 0);
    }
}

TEST(CardGetContainerInfo, GivesNoEccKeyThatHasNoByte) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    const ChangedKey empty(keys.context.authCert, 0);
    CONTAINER_INFO info{};
    EXPECT_EQ(CardGetContainerInfo(keys.data, 0, 0, &info), status::unexpected);
    EXPECT_EQ(keys.log.file(),
              lines(scope, {entered, parameters(0, 0, 0), exited(status::unexpected)}));
    EXPECT_EQ(info.pbKeyExPublicKey, nullptr);
    EXPECT_EQ(info.cbKeyExPublicKey, 0u);
}

TEST(EccPublicKeyBlob, DropsTheRemainderOfAnEvenNumberOfKeyBytes) {
    EXPECT_EQ(eccPublicKeyBlob(bytes("04 AA BB CC"), KeyUse::signature),
              bytes("45435333 01000000 AA BB CC"));
    EXPECT_EQ(eccPublicKeyBlob(bytes("04"), KeyUse::exchange), bytes("45434B33 00000000"));
    EXPECT_EQ(eccPublicKeyBlob({}, KeyUse::exchange), std::nullopt);
}

}  // namespace
}  // namespace KelmoraID
