#include "hash/guid_name.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using testing::PlatformCalls;
using testing::platformCalls;
using testing::PlatformCallsGuard;

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

}  // namespace
}  // namespace KelmoraID
