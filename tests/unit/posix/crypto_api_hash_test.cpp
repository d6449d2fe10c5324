#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/win32.h"
#include "support/scripted_card.h"

namespace {

using KelmoraID::testing::bytes;

// The digests of "abc" in FIPS 180-4's examples.
struct Row {
    DWORD providerType;
    ALG_ID algorithm;
    const char* digest;
};
const Row rows[] = {
    {PROV_RSA_FULL, CALG_SHA1, "A9993E364706816ABA3E25717850C26C9CD0D89D"},
    {PROV_RSA_AES, CALG_SHA1, "A9993E364706816ABA3E25717850C26C9CD0D89D"},
    {PROV_RSA_AES, CALG_SHA_256,
     "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD"},
    {PROV_RSA_AES, CALG_SHA_384,
     "CB00753F45A35E8BB5A03D699AC65007272C32AB0EDED1631A8B605A43FF5BED8086072BA1E7CC2358BAECA1"
     "34C825A7"},
    {PROV_RSA_AES, CALG_SHA_512,
     "DDAF35A193617ABACC417349AE20413112E6FA4E89A97EA20A9EEEE64B55D39A2192992A274FC1A836BA3C23"
     "A3FEEBBD454D4423643CE80E2A9AC94FA54CA49F"},
};

class CryptoApiHash : public ::testing::Test {
protected:
    void open(DWORD type, ALG_ID algorithm) {
        ASSERT_EQ(CryptAcquireContextW(&provider, nullptr, nullptr, type,
                                       CRYPT_VERIFYCONTEXT | CRYPT_SILENT),
                  TRUE);
        ASSERT_EQ(CryptCreateHash(provider, algorithm, 0, 0, &hash), TRUE);
    }
    bool add(const std::string& text) {
        return CryptHashData(hash, reinterpret_cast<const BYTE*>(text.data()),
                             static_cast<DWORD>(text.size()), 0) == TRUE;
    }
    void TearDown() override {
        if (hash != 0) {
            EXPECT_EQ(CryptDestroyHash(hash), TRUE);
        }
        if (provider != 0) {
            EXPECT_EQ(CryptReleaseContext(provider, 0), TRUE);
        }
    }
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 0;
};

TEST(CryptoApiHashes, GiveThePublishedDigests) {
    for (const Row& row : rows) {
        HCRYPTPROV provider = 0;
        HCRYPTHASH hash = 0;
        ASSERT_EQ(CryptAcquireContextW(&provider, nullptr, nullptr, row.providerType,
                                       CRYPT_VERIFYCONTEXT),
                  TRUE);
        ASSERT_EQ(CryptCreateHash(provider, row.algorithm, 0, 0, &hash), TRUE);
        const BYTE text[] = {'a', 'b', 'c'};
        EXPECT_EQ(CryptHashData(hash, text, 1, 0), TRUE);
        EXPECT_EQ(CryptHashData(hash, text + 1, 2, 0), TRUE);
        std::vector<BYTE> digest(64);
        DWORD length = 64;
        EXPECT_EQ(CryptGetHashParam(hash, HP_HASHVAL, digest.data(), &length, 0), TRUE);
        digest.resize(length);
        EXPECT_EQ(digest, bytes(row.digest));
        EXPECT_EQ(CryptDestroyHash(hash), TRUE);
        EXPECT_EQ(CryptReleaseContext(provider, 0), TRUE);
    }
}

TEST_F(CryptoApiHash, TellsTheLengthWithoutABuffer) {
    open(PROV_RSA_FULL, CALG_SHA1);
    DWORD length = 0;
    EXPECT_EQ(CryptGetHashParam(hash, HP_HASHVAL, nullptr, &length, 0), TRUE);
    EXPECT_EQ(length, 20U);
    EXPECT_TRUE(add("abc"));  // the query finishes nothing
}

TEST_F(CryptoApiHash, TellsTheLengthWithABufferTooSmall) {
    open(PROV_RSA_AES, CALG_SHA_256);
    BYTE digest[31];
    DWORD length = sizeof(digest);
    EXPECT_EQ(CryptGetHashParam(hash, HP_HASHVAL, digest, &length, 0), FALSE);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(length, 32U);
}

TEST_F(CryptoApiHash, IsFinishedOnceTheDigestIsRead) {
    open(PROV_RSA_FULL, CALG_SHA1);
    BYTE first[20] = {};
    BYTE second[20] = {1};
    DWORD length = 20;
    EXPECT_EQ(CryptGetHashParam(hash, HP_HASHVAL, first, &length, 0), TRUE);
    EXPECT_FALSE(add("abc"));
    EXPECT_EQ(GetLastError(), 0x8009000CU);
    EXPECT_EQ(CryptGetHashParam(hash, HP_HASHVAL, second, &length, 0), TRUE);
    EXPECT_EQ(std::vector<BYTE>(first, first + 20), std::vector<BYTE>(second, second + 20));
}

TEST_F(CryptoApiHash, OutlivesItsProvider) {
    open(PROV_RSA_FULL, CALG_SHA1);
    EXPECT_EQ(CryptReleaseContext(provider, 0), TRUE);
    provider = 0;
    EXPECT_TRUE(add("abc"));
}

TEST(CryptoApiHashes, OfTheSecondFamilyAreNotInTheOldProvider) {
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 1;
    ASSERT_EQ(CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
              TRUE);
    EXPECT_EQ(CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash), FALSE);
    EXPECT_EQ(GetLastError(), 0x80090008U);
    EXPECT_EQ(hash, 0U);
    CryptReleaseContext(provider, 0);
}

TEST(CryptoApiProviders, AreRefusedWithTheCodeOfTheReason) {
    HCRYPTPROV provider = 1;
    const auto acquire = [&provider](LPCWSTR container, LPCWSTR name, DWORD type, DWORD flags) {
        SetLastError(0);
        EXPECT_EQ(CryptAcquireContextW(&provider, container, name, type, flags), FALSE);
        EXPECT_EQ(provider, 0U);
        return GetLastError();
    };
    EXPECT_EQ(acquire(nullptr, nullptr, 99, CRYPT_VERIFYCONTEXT), 0x80090017U);
    EXPECT_EQ(acquire(nullptr, nullptr, 1, 0), 0x80090016U);
    EXPECT_EQ(acquire(u"key", nullptr, 1, CRYPT_VERIFYCONTEXT), 0x80090016U);
    EXPECT_EQ(acquire(nullptr, u"Provider", 1, CRYPT_VERIFYCONTEXT), 0x80090019U);
    EXPECT_EQ(acquire(nullptr, nullptr, 1, CRYPT_VERIFYCONTEXT | 8), 0x80090009U);
}

TEST(CryptoApiHandles, ReachNothingOnceClosed) {
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 0;
    ASSERT_EQ(CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT),
              TRUE);
    ASSERT_EQ(CryptCreateHash(provider, CALG_SHA1, 0, 0, &hash), TRUE);
    ASSERT_EQ(CryptDestroyHash(hash), TRUE);
    ASSERT_EQ(CryptReleaseContext(provider, 0), TRUE);
    DWORD length = 0;
    const auto refused = [](BOOL result) {
        const bool right = result == FALSE && GetLastError() == DWORD{ERROR_INVALID_HANDLE};
        SetLastError(0);
        return right;
    };
    SetLastError(0);
    EXPECT_TRUE(refused(CryptDestroyHash(hash)));
    EXPECT_TRUE(refused(CryptHashData(hash, nullptr, 0, 0)));
    EXPECT_TRUE(refused(CryptGetHashParam(hash, HP_HASHVAL, nullptr, &length, 0)));
    EXPECT_TRUE(refused(CryptReleaseContext(provider, 0)));
    EXPECT_TRUE(refused(CryptCreateHash(provider, CALG_SHA1, 0, 0, &hash)));
    EXPECT_TRUE(refused(CryptHashData(0, nullptr, 0, 0)));
}

}  // namespace
