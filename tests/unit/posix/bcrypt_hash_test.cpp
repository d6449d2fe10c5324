#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/win32.h"
#include "support/scripted_card.h"

namespace {

using KelmoraID::testing::bytes;

constexpr NTSTATUS invalidParameter = static_cast<NTSTATUS>(0xC000000D);
constexpr NTSTATUS notFound = static_cast<NTSTATUS>(0xC0000225);

// The digests of "abc" in RFC 1321 and FIPS 180-4's examples.
struct Row {
    LPCWSTR name;
    const char* digest;
};
const Row rows[] = {
    {u"MD5", "900150983CD24FB0D6963F7D28E17F72"},
    {u"SHA1", "A9993E364706816ABA3E25717850C26C9CD0D89D"},
    {u"SHA256", "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD"},
    {u"SHA384",
     "CB00753F45A35E8BB5A03D699AC65007272C32AB0EDED1631A8B605A43FF5BED8086072BA1E7CC2358BAECA1"
     "34C825A7"},
    {u"SHA512",
     "DDAF35A193617ABACC417349AE20413112E6FA4E89A97EA20A9EEEE64B55D39A2192992A274FC1A836BA3C23"
     "A3FEEBBD454D4423643CE80E2A9AC94FA54CA49F"},
};

TEST(BCryptHashes, GiveThePublishedDigestsOfPieces) {
    for (const Row& row : rows) {
        const std::vector<BYTE> expected = bytes(row.digest);
        BCRYPT_ALG_HANDLE provider = nullptr;
        ASSERT_EQ(BCryptOpenAlgorithmProvider(&provider, row.name, MS_PRIMITIVE_PROVIDER, 0), 0);
        ULONG length = 0;
        ULONG written = 0;
        EXPECT_EQ(BCryptGetProperty(provider, BCRYPT_HASH_LENGTH, reinterpret_cast<PUCHAR>(&length),
                                    sizeof(length), &written, 0),
                  0);
        EXPECT_EQ(written, 4U);
        EXPECT_EQ(length, expected.size());
        BCRYPT_HASH_HANDLE hash = nullptr;
        ASSERT_EQ(BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0), 0);
        BYTE text[] = {'a', 'b', 'c'};
        EXPECT_EQ(BCryptHashData(hash, text, 1, 0), 0);
        EXPECT_EQ(BCryptHashData(hash, nullptr, 0, 0), 0);
        EXPECT_EQ(BCryptHashData(hash, text + 1, 2, 0), 0);
        std::vector<BYTE> digest(length);
        EXPECT_EQ(BCryptFinishHash(hash, digest.data(), length, 0), 0);
        EXPECT_EQ(digest, expected);
        EXPECT_EQ(BCryptDestroyHash(hash), 0);
        EXPECT_EQ(BCryptCloseAlgorithmProvider(provider, 0), 0);
    }
}

TEST(BCryptHashes, AreFinishedIntoABufferOfTheirLengthOnly) {
    BCRYPT_ALG_HANDLE provider = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    ASSERT_EQ(BCryptOpenAlgorithmProvider(&provider, u"SHA1", MS_PRIMITIVE_PROVIDER, 0), 0);
    ASSERT_EQ(BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0), 0);
    BYTE digest[21];
    EXPECT_EQ(BCryptFinishHash(hash, digest, 19, 0), invalidParameter);
    EXPECT_EQ(BCryptFinishHash(hash, digest, 21, 0), invalidParameter);
    EXPECT_EQ(BCryptFinishHash(hash, digest, 20, 0), 0);
    EXPECT_EQ(BCryptDestroyHash(hash), 0);
    EXPECT_EQ(BCryptCloseAlgorithmProvider(provider, 0), 0);
}

TEST(BCryptHashes, AreFoundByNameOnly) {
    BCRYPT_ALG_HANDLE provider = nullptr;
    EXPECT_EQ(BCryptOpenAlgorithmProvider(&provider, u"SHA3", MS_PRIMITIVE_PROVIDER, 0), notFound);
    EXPECT_EQ(BCryptOpenAlgorithmProvider(&provider, u"", MS_PRIMITIVE_PROVIDER, 0), notFound);
    EXPECT_EQ(provider, nullptr);
}

TEST(BCryptHashes, RefuseFlagsAndWhatIsNotInUse) {
    BCRYPT_ALG_HANDLE provider = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    EXPECT_EQ(BCryptOpenAlgorithmProvider(&provider, u"SHA1", MS_PRIMITIVE_PROVIDER, 1),
              invalidParameter);
    EXPECT_EQ(BCryptOpenAlgorithmProvider(&provider, u"SHA1", u"another provider", 0), notFound);
    ASSERT_EQ(BCryptOpenAlgorithmProvider(&provider, u"SHA1", MS_PRIMITIVE_PROVIDER, 0), 0);
    ULONG length = 0;
    ULONG written = 0;
    EXPECT_EQ(BCryptGetProperty(provider, BCRYPT_HASH_LENGTH, reinterpret_cast<PUCHAR>(&length),
                                sizeof(length), &written, 1),
              invalidParameter);
    EXPECT_EQ(BCryptCreateHash(provider, &hash, nullptr, 1, nullptr, 0, 0), invalidParameter);
    EXPECT_EQ(BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 1, 0), invalidParameter);
    EXPECT_EQ(BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 1), invalidParameter);
    ASSERT_EQ(BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0), 0);
    BYTE digest[20] = {};
    EXPECT_EQ(BCryptHashData(hash, digest, 1, 1), invalidParameter);
    EXPECT_EQ(BCryptFinishHash(hash, digest, 20, 1), invalidParameter);
    EXPECT_EQ(BCryptDestroyHash(hash), 0);
    EXPECT_EQ(BCryptCloseAlgorithmProvider(provider, 1), invalidParameter);
    EXPECT_EQ(BCryptCloseAlgorithmProvider(provider, 0), 0);
}

}  // namespace
