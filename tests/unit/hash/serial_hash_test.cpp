#include "hash/serial_hash.h"

#include <gtest/gtest.h>

#include "hash/hash_text.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;
using Calls = std::vector<std::string>;

ByteVector firstHalf(const ByteVector& digest) {
    return {digest.begin(), digest.begin() + 16};
}

TEST(HashOfSerial, IsTheFirstHalfOfTheSha256) {
    LogCapture log;
    // FIPS 180-4, the example "abc".
    EXPECT_EQ(hashOfSerial("abc"), bytes("BA7816BF8F01CFEA414140DE5DAE2223"));
    const std::string serial(
        "12345678\0"
        "90123456",
        17);
    EXPECT_EQ(hashOfSerial(serial), firstHalf(HashText::digest("SHA-256", serial)));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(HashOfSerial, AsksThePlatformForASilentVerificationContextAndSha256) {
    PlatformCallsGuard guard;
    int checked = 0;
    platformCalls().CryptAcquireContextW = [&](HCRYPTPROV* provider, LPCWSTR container,
                                               LPCWSTR name, DWORD type, DWORD flags) -> BOOL {
        EXPECT_EQ(container, nullptr);
        EXPECT_EQ(name, nullptr);
        EXPECT_EQ(type, 24U);
        EXPECT_EQ(flags, 0xF0000040U);
        *provider = 0x11;
        return ++checked;
    };
    platformCalls().CryptCreateHash = [&](HCRYPTPROV provider, ALG_ID algorithm, HCRYPTKEY key,
                                          DWORD flags, HCRYPTHASH* hash) -> BOOL {
        EXPECT_EQ(provider, 0x11U);
        EXPECT_EQ(algorithm, 0x800CU);
        EXPECT_EQ(key, 0U);
        EXPECT_EQ(flags, 0U);
        *hash = 0x22;
        return ++checked;
    };
    platformCalls().CryptHashData = [&](HCRYPTHASH hash, const BYTE* data, DWORD length,
                                        DWORD flags) -> BOOL {
        EXPECT_EQ(hash, 0x22U);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(data), length), "serial");
        EXPECT_EQ(flags, 0U);
        return ++checked;
    };
    platformCalls().CryptGetHashParam = [&](HCRYPTHASH hash, DWORD parameter, BYTE* data,
                                            DWORD* length, DWORD flags) -> BOOL {
        EXPECT_EQ(hash, 0x22U);
        EXPECT_EQ(parameter, 2U);
        EXPECT_EQ(*length, 32U);
        EXPECT_EQ(flags, 0U);
        for (BYTE i = 0; i < 32; ++i) data[i] = i;
        return ++checked;
    };
    platformCalls().CryptDestroyHash = [&](HCRYPTHASH hash) -> BOOL {
        EXPECT_EQ(hash, 0x22U);
        return ++checked;
    };
    platformCalls().CryptReleaseContext = [&](HCRYPTPROV provider, DWORD flags) -> BOOL {
        EXPECT_EQ(provider, 0x11U);
        EXPECT_EQ(flags, 0U);
        return ++checked;
    };
    EXPECT_EQ(hashOfSerial("serial"), bytes("000102030405060708090A0B0C0D0E0F"));
    EXPECT_EQ(checked, 6);
    EXPECT_EQ(platformCalls().order,
              (Calls{"CryptAcquireContextW", "CryptCreateHash", "CryptHashData",
                     "CryptGetHashParam", "CryptDestroyHash", "CryptReleaseContext"}));
}

struct FailingCall {
    const char* name;
    const char* line;
    Calls calls;
};

class HashOfSerialFailing : public ::testing::TestWithParam<FailingCall> {};

TEST_P(HashOfSerialFailing, GivesZeroBytesAndALineWithTwoBlanksAndReleasesWhatItHolds) {
    PlatformCallsGuard guard;
    LogCapture log;
    platformCalls().failCall(GetParam().name, 1, 0x8009000F);
    EXPECT_EQ(hashOfSerial("12345678901234567"), ByteVector(16));
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", GetParam().line}}));
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(platformCalls().order, GetParam().calls);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, HashOfSerialFailing,
    ::testing::Values(
        FailingCall{"CryptAcquireContextW",
                    "CryptAcquireContext failed:  2148073487",
                    {"CryptAcquireContextW"}},
        FailingCall{"CryptCreateHash",
                    "CryptCreateHash failed:  2148073487",
                    {"CryptAcquireContextW", "CryptCreateHash", "CryptReleaseContext"}},
        FailingCall{"CryptHashData",
                    "CryptHashData failed:  2148073487",
                    {"CryptAcquireContextW", "CryptCreateHash", "CryptHashData", "CryptDestroyHash",
                     "CryptReleaseContext"}},
        FailingCall{"CryptGetHashParam",
                    "CryptGetHashParam failed:  2148073487",
                    {"CryptAcquireContextW", "CryptCreateHash", "CryptHashData",
                     "CryptGetHashParam", "CryptDestroyHash", "CryptReleaseContext"}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace KelmoraID
