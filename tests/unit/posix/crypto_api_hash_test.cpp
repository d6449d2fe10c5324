#include <gtest/gtest.h>

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
};

TEST(CryptoApiHashes, GiveThePublishedDigests) {
    for (const Row& row : rows) {
        HCRYPTPROV provider = 0;
        HCRYPTHASH hash = 0;
        ASSERT_EQ(CryptAcquireContextW(&provider, nullptr, nullptr, row.providerType,
                                       CRYPT_VERIFYCONTEXT | CRYPT_SILENT),
                  TRUE);
        ASSERT_EQ(CryptCreateHash(provider, row.algorithm, 0, 0, &hash), TRUE);
        const BYTE text[] = {'a', 'b', 'c'};
        EXPECT_EQ(CryptHashData(hash, text, 1, 0), TRUE);
        EXPECT_EQ(CryptHashData(hash, text + 1, 2, 0), TRUE);
        std::vector<BYTE> digest(64);
        DWORD length = 19;
        EXPECT_EQ(CryptGetHashParam(hash, HP_HASHVAL, digest.data(), &length, 0), FALSE);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
        length = 64;
        EXPECT_EQ(CryptGetHashParam(hash, HP_HASHVAL, digest.data(), &length, 0), TRUE);
        digest.resize(length);
        EXPECT_EQ(digest, bytes(row.digest));
        EXPECT_EQ(CryptDestroyHash(hash), TRUE);
        EXPECT_EQ(CryptReleaseContext(provider, 0), TRUE);
    }
}

TEST(CryptoApiHashes, OfTheSecondFamilyAreNotInTheOldProvider) {
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 0;
    ASSERT_EQ(CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL,
                                   CRYPT_VERIFYCONTEXT | CRYPT_SILENT),
              TRUE);
    EXPECT_EQ(CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash), FALSE);
    EXPECT_EQ(GetLastError(), 0x80090008U);
    EXPECT_EQ(hash, 0U);
    CryptReleaseContext(provider, 0);
}

TEST(CryptoApiHashes, RefuseFlagsThatAreNotInUse) {
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 0;
    for (const DWORD flags : {DWORD{0}, DWORD{CRYPT_SILENT}, DWORD{CRYPT_VERIFYCONTEXT | 1}}) {
        EXPECT_EQ(CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_AES, flags), FALSE);
        EXPECT_EQ(GetLastError(), 0x80090009U);
    }
    ASSERT_EQ(CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_AES,
                                   CRYPT_VERIFYCONTEXT | CRYPT_SILENT),
              TRUE);
    EXPECT_EQ(CryptCreateHash(provider, CALG_SHA1, 1, 0, &hash), FALSE);
    EXPECT_EQ(CryptCreateHash(provider, CALG_SHA1, 0, 1, &hash), FALSE);
    ASSERT_EQ(CryptCreateHash(provider, CALG_SHA1, 0, 0, &hash), TRUE);
    BYTE digest[20] = {};
    DWORD length = sizeof(digest);
    EXPECT_EQ(CryptHashData(hash, digest, 1, 1), FALSE);
    EXPECT_EQ(CryptGetHashParam(hash, HP_HASHVAL, digest, &length, 1), FALSE);
    EXPECT_EQ(CryptDestroyHash(hash), TRUE);
    EXPECT_EQ(CryptReleaseContext(provider, 1), FALSE);
    EXPECT_EQ(CryptReleaseContext(provider, 0), TRUE);
}

}  // namespace
