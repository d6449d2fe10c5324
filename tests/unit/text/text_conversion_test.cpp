#include "text/text_conversion.h"

#include <gtest/gtest.h>

#include "support/platform_calls.h"

namespace KelmoraID {
namespace {

using testing::platformCalls;
using testing::PlatformCallsGuard;

// A literal with its terminator as the last element of the string.
template <std::size_t size>
WideString terminated(const WCHAR (&literal)[size]) {
    return WideString(literal, size);
}
template <std::size_t size>
std::string terminated(const char (&literal)[size]) {
    return std::string(literal, size);
}

// The platform's conversions with an ANSI code page in which the byte E4 is the letter "ä".
void useLatinCodePage() {
    platformCalls().MultiByteToWideChar = [](UINT codePage, DWORD flags, LPCSTR text, int length,
                                             LPWSTR wide, int capacity) -> int {
        EXPECT_EQ(codePage, CP_ACP);
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(length, -1);
        const std::string source = text;
        const int needed = static_cast<int>(source.size()) + 1;
        if (wide == nullptr) return needed;
        EXPECT_EQ(capacity, needed);
        for (int i = 0; i < needed; ++i) wide[i] = static_cast<BYTE>(text[i]);
        return needed;
    };
}

TEST(Utf8ToWide, IsOneElementLongerThanItsText) {
    EXPECT_EQ(utf8ToWide("Kelmora"), terminated(WIDE_TEXT("Kelmora")));
    EXPECT_EQ(utf8ToWide(""), terminated(WIDE_TEXT("")));
}

TEST(Utf8ToWide, ConvertsBeyondTheBasicPlane) {
    EXPECT_EQ(utf8ToWide("\xC3\xA4\xF0\x9F\x94\x91"), terminated(WIDE_TEXT("\u00E4\U0001F511")));
}

TEST(Utf8ToWide, EndsAtTheFirstNul) {
    EXPECT_EQ(utf8ToWide(std::string("a\0b", 3)), terminated(WIDE_TEXT("a")));
}

TEST(Utf8ToWide, HandsThePlatformTheTerminatorToo) {
    PlatformCallsGuard guard;
    std::vector<std::pair<int, int>> lengths;
    platformCalls().MultiByteToWideChar = [&](UINT codePage, DWORD flags, LPCSTR, int length,
                                              LPWSTR, int capacity) -> int {
        EXPECT_EQ(codePage, CP_UTF8);
        EXPECT_EQ(flags, 0U);
        lengths.emplace_back(length, capacity);
        return 4;
    };
    utf8ToWide("abc");
    EXPECT_EQ(lengths, (std::vector<std::pair<int, int>>{{-1, 0}, {-1, 4}}));
}

TEST(Utf8ToWide, GivesAnEmptyStringWhenThePlatformKnowsNoLength) {
    PlatformCallsGuard guard;
    platformCalls().failCall("MultiByteToWideChar", 1);
    EXPECT_EQ(utf8ToWide("abc"), WideString());
    platformCalls().MultiByteToWideChar = [](auto...) { return -1; };
    EXPECT_EQ(utf8ToWide("abc"), WideString());
}

TEST(Utf8ToWide, GivesANulFilledStringWhenThePlatformFailsToConvert) {
    PlatformCallsGuard guard;
    platformCalls().failCall("MultiByteToWideChar", 2);
    EXPECT_EQ(utf8ToWide("abc"), WideString(4, WCHAR{}));
}

TEST(WideToUtf8, IsOneElementLongerThanItsText) {
    EXPECT_EQ(wideToUtf8(WIDE_TEXT("\u00E4\U0001F511")), terminated("\xC3\xA4\xF0\x9F\x94\x91"));
    EXPECT_EQ(wideToUtf8({}), terminated(""));
}

TEST(WideToUtf8, EndsAtTheFirstNul) {
    EXPECT_EQ(wideToUtf8(terminated(WIDE_TEXT("a"))), terminated("a"));
    EXPECT_EQ(wideToUtf8(WideString(WIDE_TEXT("a\0b"), 3)), terminated("a"));
}

TEST(WideToUtf8, GivesAnEmptyOrANulFilledStringWhenThePlatformFails) {
    PlatformCallsGuard guard;
    platformCalls().failCall("WideCharToMultiByte", 1);
    EXPECT_EQ(wideToUtf8(WIDE_TEXT("abc")), std::string());
    platformCalls().failCall("WideCharToMultiByte", 2);
    EXPECT_EQ(wideToUtf8(WIDE_TEXT("abc")), std::string(4, '\0'));
}

TEST(AnsiToUtf8, GoesByWayOfWideText) {
    PlatformCallsGuard guard;
    useLatinCodePage();
    EXPECT_EQ(ansiToUtf8("K\xE4p"), terminated("K\xC3\xA4p"));
    EXPECT_EQ(platformCalls().order,
              (std::vector<std::string>{"MultiByteToWideChar", "MultiByteToWideChar",
                                        "WideCharToMultiByte", "WideCharToMultiByte"}));
}

TEST(AnsiBytesToUtf8, EndsAtTheFirstZeroByte) {
    PlatformCallsGuard guard;
    useLatinCodePage();
    EXPECT_EQ(ansiBytesToUtf8({'K', 0xE4}), terminated("K\xC3\xA4"));
    EXPECT_EQ(ansiBytesToUtf8({'K', 0, 'p'}), terminated("K"));
    EXPECT_EQ(ansiBytesToUtf8({}), terminated(""));
}

TEST(AnsiToUtf8, OfATextThatThePlatformCannotConvertHoldsNothing) {
    PlatformCallsGuard guard;
    platformCalls().failCall("MultiByteToWideChar", 1);
    EXPECT_EQ(ansiToUtf8("abc"), terminated(""));
}

}  // namespace
}  // namespace KelmoraID
