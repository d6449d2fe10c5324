#include <gtest/gtest.h>

#include <cstring>

#include "session/entry_points.h"
#include "support/acquired_card.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using namespace testing;

class CardGetPropertyTest : public ::testing::Test {
protected:
    struct Got {
        DWORD status;
        ByteVector answer;
    };

    // Asks with a buffer of ample size. The answer's length is what came back in pdwDataLen.
    Got get(LPCWSTR property, DWORD dwFlags, DWORD cbData = 200) {
        BYTE buffer[200];
        std::memset(buffer, 0xEE, sizeof(buffer));
        DWORD length = 0;
        const DWORD status =
            CardGetProperty(card.data(), property, buffer, cbData, &length, dwFlags);
        EXPECT_EQ(PlatformRecord::liveAllocations(), 0) << "the answer's buffer is freed";
        return {status, ByteVector(buffer, buffer + length)};
    }

    DWORD number(LPCWSTR property, DWORD dwFlags = 0) {
        const Got got = get(property, dwFlags);
        EXPECT_EQ(got.status, 0);
        EXPECT_EQ(got.answer.size(), 4u);
        DWORD value = 0;
        if (got.answer.size() == 4) std::memcpy(&value, got.answer.data(), 4);
        return value;
    }

    // The file's lines of a call that ends with that status and an exit line.
    static LogLines lines(const std::string& name, DWORD status) {
        return {{"CardGetProperty", "Entering the function"},
                {"CardGetProperty", "with parameters wszProperty: '" + name + "'"},
                exitLine("CardGetProperty", status)};
    }

    void expectInvalidFlags(LPCWSTR property, DWORD dwFlags) {
        log.clear();
        EXPECT_EQ(get(property, dwFlags).status, status::invalidParameter);
        EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_329: dwFlags is invalid."}}));
        EXPECT_EQ(log.file().back(), exitLine("CardGetProperty", status::invalidParameter));
    }

    PlatformCallsGuard hooks;
    LogCapture log;
    AcquiredCard card{CardType::type3};
};

TEST_F(CardGetPropertyTest, FreeSpaceHasNoContainersUnlikeTheEntryPoint) {
    const Got got = get(WIDE_TEXT("Free Space"), 0);
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(hexOf(got.answer), "01000000000000000000000000000000");
    EXPECT_EQ(log.file(), lines("Free Space", status::success));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardGetPropertyTest, CapabilitiesSayThatCertificatesAreCompressed) {
    EXPECT_EQ(hexOf(get(WIDE_TEXT("Capabilities"), 0).answer), "010000000100000000000000");
}

TEST_F(CardGetPropertyTest, KeySizesComeFromCardQueryKeySizes) {
    EXPECT_EQ(hexOf(get(WIDE_TEXT("Key Sizes"), 2).answer),
              "0100000000080000000800000008000000000000");
    EXPECT_EQ(hexOf(get(WIDE_TEXT("Key Sizes"), 5).answer),
              "0100000009020000090200000902000001000000");
}

TEST_F(CardGetPropertyTest, KeySizesLogTheCallThatFillsThem) {
    EXPECT_EQ(get(WIDE_TEXT("Key Sizes"), 8).status, 0);
    LogLines expected = lines("Key Sizes", status::success);
    expected.insert(expected.begin() + 2,
                    {{"CardQueryKeySizes",
                      "Entering the function, with parameters, dwKeySpec:'8' dwFlags:'0', "
                      "dwVersion:'1'"},
                     exitLine("CardQueryKeySizes", status::success)});
    EXPECT_EQ(log.file(), expected);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardGetPropertyTest, KeySizesWithFlagsZeroFailBeforeTheAllocation) {
    PlatformRecord::failAllocation(1);
    expectInvalidFlags(WIDE_TEXT("Key Sizes"), 0);
}

TEST_F(CardGetPropertyTest, KeySizesWithFlagsNineCallCardQueryKeySizesFirst) {
    EXPECT_EQ(get(WIDE_TEXT("Key Sizes"), 9).status, status::invalidParameter);
    const LogLines file = log.file();
    ASSERT_EQ(file.size(), 5u);
    EXPECT_EQ(file[2].scope, "CardQueryKeySizes");
    EXPECT_EQ(file[3], exitLine("CardQueryKeySizes", status::invalidParameter));
    EXPECT_EQ(file[4], exitLine("CardGetProperty", status::invalidParameter));
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_329: dwFlags is invalid."}}));
}

TEST_F(CardGetPropertyTest, ReadOnlyModeAndEnrollmentBothAnswerOne) {
    EXPECT_EQ(number(WIDE_TEXT("Read Only Mode")), 1);
    EXPECT_EQ(number(WIDE_TEXT("Supports Windows x.509 Enrollment")), 1);
}

TEST_F(CardGetPropertyTest, CacheModeIsThreeAndKeyImportSupportZero) {
    EXPECT_EQ(number(WIDE_TEXT("Cache Mode")), 3);
    EXPECT_EQ(number(WIDE_TEXT("Key Import Support")), 0);
}

TEST_F(CardGetPropertyTest, CardIdentifierIsTheContentOfCardid) {
    EXPECT_EQ(hexOf(get(WIDE_TEXT("Card Identifier"), 0).answer),
              "000102030405060708090A0B0C0D0E0F");
    const LogLines file = log.file();
    ASSERT_EQ(file.size(), 6u);
    EXPECT_EQ(file[2], (LogLine{"CardReadFile", "Entering the function"}));
    EXPECT_EQ(file[5], exitLine("CardGetProperty", status::success));
}

TEST_F(CardGetPropertyTest, CardIdentifierFailsWithTheStatusOfCardReadFile) {
    PlatformRecord::failAllocation(1);
    EXPECT_EQ(get(WIDE_TEXT("Card Identifier"), 0).status, 8);
    EXPECT_EQ(log.file().back(), exitLine("CardGetProperty", status::notEnoughMemory));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardGetPropertyTest, CardSerialNumberIsRefusedWithTheExitLine) {
    EXPECT_EQ(get(WIDE_TEXT("Card Serial Number"), 77).status, status::unsupportedFeature);
    EXPECT_EQ(log.file(), lines("Card Serial Number", status::unsupportedFeature));
}

TEST_F(CardGetPropertyTest, ThreePropertiesAreRefusedWithoutTheExitLine) {
    for (const auto& [property, name] :
         {std::pair{WIDE_TEXT("Authenticated State"), "Authenticated State"},
          std::pair{WIDE_TEXT("PIN Strength Change"), "PIN Strength Change"},
          std::pair{WIDE_TEXT("PIN Strength Unblock"), "PIN Strength Unblock"}}) {
        EXPECT_EQ(get(property, 77).status, status::unsupportedFeature) << name;
        LogLines expected = lines(name, status::unsupportedFeature);
        expected.pop_back();
        EXPECT_EQ(log.file(), expected);
        EXPECT_EQ(log.output(), LogLines{});
    }
}

TEST_F(CardGetPropertyTest, PinInformationFollowsTheTable) {
    struct Row {
        DWORD pinId;
        SECRET_PURPOSE purpose;
        DWORD change, unblock;
        PIN_CACHE_POLICY_TYPE policy;
    };
    for (const Row& row : {Row{1, AuthenticationPin, 0x2, 0x8, PinCacheNormal},
                           Row{2, AdministratorPin, 0x4, 0x4, PinCacheAlwaysPrompt},
                           Row{3, UnblockOnlyPin, 0, 0, PinCacheAlwaysPrompt},
                           Row{4, DigitalSignaturePin, 0x18, 0x8, PinCacheAlwaysPrompt}}) {
        const Got got = get(WIDE_TEXT("PIN Information"), row.pinId);
        ASSERT_EQ(got.answer.size(), 36u);
        PIN_INFO info;
        std::memcpy(&info, got.answer.data(), sizeof(info));
        EXPECT_EQ(info.dwVersion, 6);
        EXPECT_EQ(info.PinType, AlphaNumericPinType);
        EXPECT_EQ(info.PinPurpose, row.purpose);
        EXPECT_EQ(info.dwChangePermission, row.change);
        EXPECT_EQ(info.dwUnblockPermission, row.unblock);
        EXPECT_EQ(info.PinCachePolicy.dwVersion, 6);
        EXPECT_EQ(info.PinCachePolicy.PinCachePolicyType, row.policy);
        EXPECT_EQ(info.PinCachePolicy.dwPinCachePolicyInfo, 0);
        EXPECT_EQ(info.dwFlags, 0);
    }
}

TEST_F(CardGetPropertyTest, PinInformationWithFlagsZeroOrFiveFails) {
    expectInvalidFlags(WIDE_TEXT("PIN Information"), 0);
    expectInvalidFlags(WIDE_TEXT("PIN Information"), 5);
}

// The companion's library is there, and a window of that class is in front.
void bringUpTheDialog(LPCWSTR foregroundClass) {
    platformCalls().RegGetValueW = [](HKEY, LPCWSTR, LPCWSTR, DWORD, LPDWORD, PVOID data,
                                      LPDWORD size) -> LSTATUS {
        static const WideString value = WIDE_TEXT("C:\\App\\Companion.exe");
        std::memcpy(data, value.c_str(), (value.size() + 1) * 2);
        *size = static_cast<DWORD>((value.size() + 1) * 2);
        return 0;
    };
    platformCalls().LoadLibraryExW = [](LPCWSTR, HANDLE, DWORD) -> HMODULE {
        static int library;
        return &library;
    };
    platformCalls().FreeLibrary = [](HMODULE) -> BOOL { return 1; };
    platformCalls().SetCurrentDirectoryW = [](LPCWSTR) -> BOOL { return 1; };
    platformCalls().GetClassNameW = [foregroundClass](HWND, LPWSTR text, int) -> int {
        const WideString name(foregroundClass);
        std::memcpy(text, name.c_str(), (name.size() + 1) * 2);
        return static_cast<int>(name.size());
    };
}

TEST_F(CardGetPropertyTest, PinIsExternalWhereTheDialogIsAvailable) {
    bringUpTheDialog(WIDE_TEXT("Chrome_WidgetWin_1"));
    EXPECT_EQ(get(WIDE_TEXT("PIN Information"), 1).answer.at(4), ExternalPinType);
    EXPECT_EQ(card.context->codeEntryLibPath, WIDE_TEXT("C:\\App\\CodeEntryLibrary.dll"));
}

TEST_F(CardGetPropertyTest, PinIsAlphanumericOnTheLogonScreen) {
    bringUpTheDialog(WIDE_TEXT("LogonUI Logon Window"));
    EXPECT_EQ(get(WIDE_TEXT("PIN Information"), 1).answer.at(4), AlphaNumericPinType);
}

TEST_F(CardGetPropertyTest, PinListHasTheUpperBytesAllOnesOnEveryCard) {
    EXPECT_EQ(number(WIDE_TEXT("PIN List")), 0xFFFFFF1E);
    AcquiredCard other(CardType::type5);
    BYTE buffer[4];
    DWORD length = 0;
    EXPECT_EQ(CardGetProperty(other.data(), WIDE_TEXT("PIN List"), buffer, 4, &length, 0), 0);
    EXPECT_EQ(hexOf({buffer, buffer + 4}), "1EFFFFFF");
}

TEST_F(CardGetPropertyTest, PinStrengthVerifyIsOneForAValidIdentifier) {
    for (DWORD pinId = 1; pinId <= 4; ++pinId) {
        EXPECT_EQ(number(WIDE_TEXT("PIN Strength Verify"), pinId), 1);
    }
    expectInvalidFlags(WIDE_TEXT("PIN Strength Verify"), 0);
    expectInvalidFlags(WIDE_TEXT("PIN Strength Verify"), 5);
}

TEST_F(CardGetPropertyTest, AlgorithmsAreAMultiString) {
    EXPECT_EQ(get(WIDE_TEXT("Algorithms"), 1).answer,
              bytes("3300 4400 4500 5300 5F00 3100 3100 3200 0000 0000"));
    EXPECT_EQ(hexOf(get(WIDE_TEXT("Algorithms"), 2).answer), "0000");
    expectInvalidFlags(WIDE_TEXT("Algorithms"), 0);
    expectInvalidFlags(WIDE_TEXT("Algorithms"), 3);
}

TEST_F(CardGetPropertyTest, PaddingSchemesAreNone) {
    EXPECT_EQ(number(WIDE_TEXT("Padding Schemes"), 1), 0);
    EXPECT_EQ(number(WIDE_TEXT("Padding Schemes"), 2), 0);
    expectInvalidFlags(WIDE_TEXT("Padding Schemes"), 0);
}

TEST_F(CardGetPropertyTest, ChainingModesAreAMultiStringWithFourZeroBytes) {
    for (const DWORD flags : {1u, 2u}) {
        const ByteVector answer = get(WIDE_TEXT("Chaining Modes"), flags).answer;
        ASSERT_EQ(answer.size(), 34u);
        EXPECT_EQ(std::memcmp(answer.data(), WIDE_TEXT("ChainingModeCBC"), 30), 0);
        EXPECT_EQ(hexOf({answer.begin() + 30, answer.end()}), "00000000");
    }
    expectInvalidFlags(WIDE_TEXT("Chaining Modes"), 3);
}

TEST_F(CardGetPropertyTest, PropertiesWithoutParametersRefuseFlags) {
    for (LPCWSTR property :
         {WIDE_TEXT("Free Space"), WIDE_TEXT("Capabilities"), WIDE_TEXT("Read Only Mode"),
          WIDE_TEXT("Cache Mode"), WIDE_TEXT("Supports Windows x.509 Enrollment"),
          WIDE_TEXT("Card Identifier"), WIDE_TEXT("PIN List"), WIDE_TEXT("Key Import Support")}) {
        expectInvalidFlags(property, 1);
    }
}

TEST_F(CardGetPropertyTest, NamesAreComparedExactly) {
    for (LPCWSTR property :
         {WIDE_TEXT("free space"), WIDE_TEXT("Free Space "), WIDE_TEXT(""),
          WIDE_TEXT("Parent Window"), WIDE_TEXT("PIN Context String"), WIDE_TEXT("PIN Identifier"),
          WIDE_TEXT("Container Info"), WIDE_TEXT("Associated ECDH Key")}) {
        EXPECT_EQ(get(property, 0).status, status::invalidParameter);
        EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_325: wszProperty is invalid."}}));
    }
}

TEST_F(CardGetPropertyTest, RefusesANullNameWithoutTheParameterLine) {
    EXPECT_EQ(get(nullptr, 0).status, status::invalidParameter);
    EXPECT_EQ(log.file(), (LogLines{{"CardGetProperty", "Entering the function"},
                                    exitLine("CardGetProperty", status::invalidParameter)}));
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_325: wszProperty is invalid."}}));
}

TEST_F(CardGetPropertyTest, RefusesANullRecordAfterTheParameterLine) {
    DWORD length = 0;
    EXPECT_EQ(CardGetProperty(nullptr, WIDE_TEXT("PIN List"), nullptr, 0, &length, 0),
              status::invalidParameter);
    EXPECT_EQ(log.file(), lines("PIN List", status::invalidParameter));
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_324: pCardData is NULL."}}));
}

TEST_F(CardGetPropertyTest, RefusesWithoutAContextHandle) {
    card.data()->hSCardCtx = 0;
    EXPECT_EQ(get(WIDE_TEXT("PIN List"), 0).status, status::invalidParameter);
    EXPECT_EQ(log.file(), lines("PIN List", status::invalidParameter));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardGetPropertyTest, AnAllocationThatFailsHasALineAndStatusEight) {
    PlatformRecord::failAllocation(1);
    EXPECT_EQ(get(WIDE_TEXT("PIN List"), 0).status, 8);
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_21: Out-of-memory (PFN_CSP_ALLOC)."}}));
    EXPECT_EQ(log.file(), lines("PIN List", status::notEnoughMemory));
}

TEST_F(CardGetPropertyTest, ThereIsNoSizeQuery) {
    DWORD length = 77;
    EXPECT_EQ(CardGetProperty(card.data(), WIDE_TEXT("PIN List"), nullptr, 0, &length, 0),
              status::invalidParameter);
    EXPECT_EQ(length, 77);
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_326: pbData is NULL."}}));
    EXPECT_EQ(log.file(), lines("PIN List", status::invalidParameter));
    EXPECT_EQ(PlatformRecord::liveAllocations(), 0);
}

TEST_F(CardGetPropertyTest, ABufferOneByteTooSmallIsRefused) {
    EXPECT_EQ(get(WIDE_TEXT("PIN Information"), 1, 35).status, status::insufficientBuffer);
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_327: cbData is too small."}}));
    EXPECT_EQ(get(WIDE_TEXT("PIN Information"), 1, 36).status, 0);
}

TEST_F(CardGetPropertyTest, ABufferThatIsTooSmallIsRefusedBeforeANullLength) {
    BYTE buffer[4] = {};
    EXPECT_EQ(CardGetProperty(card.data(), WIDE_TEXT("PIN List"), buffer, 3, nullptr, 0),
              status::insufficientBuffer);
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_327: cbData is too small."}}));
    EXPECT_EQ(log.file(), lines("PIN List", status::insufficientBuffer));
}

TEST_F(CardGetPropertyTest, ANullLengthIsRefusedAfterTheBuffer) {
    BYTE buffer[4] = {9, 9, 9, 9};
    EXPECT_EQ(CardGetProperty(card.data(), WIDE_TEXT("PIN List"), buffer, 4, nullptr, 0),
              status::invalidParameter);
    EXPECT_EQ(buffer[0], 9);
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "CMR_328: pdwDataLen is NULL."}}));
}

}  // namespace
}  // namespace KelmoraID
