#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "session/entry_points.h"
#include "support/acquired_card.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using namespace testing;

class CardSetPropertyTest : public ::testing::Test {
protected:
    DWORD setContext(const WideString& text, DWORD length, DWORD dwFlags = 0) {
        return CardSetProperty(card.data(), WIDE_TEXT("PIN Context String"),
                               reinterpret_cast<PBYTE>(const_cast<WCHAR*>(text.c_str())), length,
                               dwFlags);
    }
    DWORD setWindow(std::uint64_t window, DWORD length = 8, DWORD dwFlags = 0) {
        return CardSetProperty(card.data(), WIDE_TEXT("Parent Window"),
                               reinterpret_cast<PBYTE>(&window), length, dwFlags);
    }
    static LogLine entry(const std::string& name, DWORD flags, DWORD length) {
        return {"CardSetProperty", "Entering the function, with parameters, wszProperty:'" + name +
                                       "', dwFlags:'" + std::to_string(flags) + "', cbDataLen:'" +
                                       std::to_string(length) + "'"};
    }
    static LogLine exit() { return {"CardSetProperty", exited(status::success)}; }
    PlatformCallsGuard hooks;
    LogCapture log;
    AcquiredCard card{CardType::type3};
};

TEST_F(CardSetPropertyTest, RefusesNullsAndAnEmptyNameWithoutAnyLine) {
    BYTE data[8] = {};
    EXPECT_EQ(CardSetProperty(nullptr, WIDE_TEXT("Parent Window"), data, 8, 0),
              status::invalidParameter);
    EXPECT_EQ(CardSetProperty(card.data(), nullptr, data, 8, 0), status::invalidParameter);
    EXPECT_EQ(CardSetProperty(card.data(), WIDE_TEXT(""), data, 8, 0), status::invalidParameter);
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardSetPropertyTest, StoresThePinContextAsUtf8) {
    EXPECT_EQ(setContext(WIDE_TEXT("Kirjaudu, \u00E4\u00F6"), 12), 0);
    EXPECT_EQ(card.context->pinContextString, "Kirjaudu, \xC3\xA4\xC3\xB6");
    EXPECT_EQ(log.file(),
              (LogLines{entry("PIN Context String", 0, 12),
                        {"CardSetProperty", "Pin context string: Kirjaudu, \xC3\xA4\xC3\xB6"},
                        exit()}));
}

TEST_F(CardSetPropertyTest, TakesTheLengthOfThePinContextAsCharacters) {
    EXPECT_EQ(setContext(WIDE_TEXT("abcdef"), 3), 0);
    EXPECT_EQ(card.context->pinContextString, "abc");
}

TEST_F(CardSetPropertyTest, ReadsThePinContextNoFurtherThanItsTerminator) {
    // A buffer of just the bytes that the length names, were it one of bytes: reading as many
    // characters would run past its end.
    const WideString text = WIDE_TEXT("abc");
    const std::size_t size = (text.size() + 1) * sizeof(WCHAR);
    auto exact = std::make_unique<BYTE[]>(size);
    std::memcpy(exact.get(), text.c_str(), size);
    EXPECT_EQ(CardSetProperty(card.data(), WIDE_TEXT("PIN Context String"), exact.get(),
                              static_cast<DWORD>(size), 0),
              0);
    EXPECT_EQ(card.context->pinContextString, "abc");
}

TEST_F(CardSetPropertyTest, AnEmptyPinContextLeavesTheOldText) {
    setContext(WIDE_TEXT("old"), 3);
    log.clear();
    EXPECT_EQ(setContext(WIDE_TEXT("new"), 0), 0);
    EXPECT_EQ(CardSetProperty(card.data(), WIDE_TEXT("PIN Context String"), nullptr, 3, 0), 0);
    EXPECT_EQ(card.context->pinContextString, "old");
    const LogLine empty{"CardSetProperty",
                        "Pin context string, pbData or cbDataLen was empty, returning."};
    EXPECT_EQ(log.file(), (LogLines{entry("PIN Context String", 0, 0), empty,
                                    entry("PIN Context String", 0, 3), empty}));
}

TEST_F(CardSetPropertyTest, RefusesFlagsForThePinContext) {
    EXPECT_EQ(setContext(WIDE_TEXT("abc"), 3, 1), status::invalidParameter);
    EXPECT_EQ(card.context->pinContextString, "");
    EXPECT_EQ(log.file(), (LogLines{entry("PIN Context String", 1, 3)}));
}

TEST_F(CardSetPropertyTest, RefusesFlagsBeforeItLooksForAPinContext) {
    EXPECT_EQ(CardSetProperty(card.data(), WIDE_TEXT("PIN Context String"), nullptr, 0, 1),
              status::invalidParameter);
    EXPECT_EQ(log.file(), (LogLines{entry("PIN Context String", 1, 0)}));
}

TEST_F(CardSetPropertyTest, StoresAParentWindowThatIsAWindow) {
    HWND asked = nullptr;
    platformCalls().IsWindow = [&](HWND window) -> BOOL {
        asked = window;
        return 1;
    };
    EXPECT_EQ(setWindow(0xFFFFFFFF00012345), 0);
    EXPECT_EQ(card.context->parentWindow, 0x12345u);
    EXPECT_EQ(reinterpret_cast<ULONG_PTR>(asked), 0x12345u) << "the first 32 bits alone";
    EXPECT_EQ(log.file(), (LogLines{entry("Parent Window", 0, 8), exit()}));
}

TEST_F(CardSetPropertyTest, RefusesAParentWindowThatIsNone) {
    platformCalls().IsWindow = [](HWND) -> BOOL { return 0; };
    EXPECT_EQ(setWindow(0x12345), status::invalidParameter);
    EXPECT_EQ(card.context->parentWindow, 0u);
    EXPECT_EQ(log.file(), (LogLines{entry("Parent Window", 0, 8)}));
}

TEST_F(CardSetPropertyTest, AcceptsAParentWindowOfZero) {
    card.context->parentWindow = 77;
    EXPECT_EQ(setWindow(0), 0);
    EXPECT_EQ(card.context->parentWindow, 0u);
    EXPECT_EQ(platformCalls().counts["IsWindow"], 0);
}

TEST_F(CardSetPropertyTest, RefusesAParentWindowOfFourBytes) {
    EXPECT_EQ(setWindow(0, 4), status::invalidParameter);
    EXPECT_EQ(setWindow(0, 9), status::invalidParameter);
    EXPECT_EQ(setWindow(0, 8, 1), status::invalidParameter);
    EXPECT_EQ(CardSetProperty(card.data(), WIDE_TEXT("Parent Window"), nullptr, 8, 0),
              status::invalidParameter);
}

TEST_F(CardSetPropertyTest, RefusesReadOnlyPropertiesAsUnsupportedWithoutAnExitLine) {
    BYTE data[4] = {};
    for (const auto& [property, name] :
         {std::pair{WIDE_TEXT("Read Only Mode"), "Read Only Mode"},
          std::pair{WIDE_TEXT("Cache Mode"), "Cache Mode"},
          std::pair{WIDE_TEXT("Supports Windows x.509 Enrollment"),
                    "Supports Windows x.509 Enrollment"},
          std::pair{WIDE_TEXT("Card Identifier"), "Card Identifier"},
          std::pair{WIDE_TEXT("Card Serial Number"), "Card Serial Number"},
          std::pair{WIDE_TEXT("PIN Information"), "PIN Information"},
          std::pair{WIDE_TEXT("PIN Strength Verify"), "PIN Strength Verify"},
          std::pair{WIDE_TEXT("PIN Strength Change"), "PIN Strength Change"},
          std::pair{WIDE_TEXT("PIN Strength Unblock"), "PIN Strength Unblock"}}) {
        EXPECT_EQ(CardSetProperty(card.data(), property, data, 4, 0), status::unsupportedFeature)
            << name;
        EXPECT_EQ(log.file(), (LogLines{entry(name, 0, 4)}));
        EXPECT_EQ(CardSetProperty(card.data(), property, nullptr, 4, 0), status::invalidParameter)
            << name;
        log.clear();
    }
}

TEST_F(CardSetPropertyTest, RefusesAnyOtherNameAsABadArgument) {
    BYTE data[16] = {};
    for (LPCWSTR property :
         {WIDE_TEXT("Free Space"), WIDE_TEXT("Capabilities"), WIDE_TEXT("Key Sizes"),
          WIDE_TEXT("PIN List"), WIDE_TEXT("Authenticated State"), WIDE_TEXT("no such property"),
          WIDE_TEXT("parent window")}) {
        EXPECT_EQ(CardSetProperty(card.data(), property, data, 8, 0), status::invalidParameter);
    }
}

TEST_F(CardSetPropertyTest, WorksWithoutAContextHandle) {
    card.data()->hSCardCtx = 0;
    EXPECT_EQ(setContext(WIDE_TEXT("abc"), 3), 0);
}

}  // namespace
}  // namespace KelmoraID
