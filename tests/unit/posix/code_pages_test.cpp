#include <gtest/gtest.h>

#include <string>

#include "platform/win32.h"

namespace {

std::u16string wideOf(UINT page, const char* text) {
    std::u16string wide(32, u'#');
    const int count = MultiByteToWideChar(page, 0, text, -1, wide.data(), 32);
    EXPECT_EQ(MultiByteToWideChar(page, 0, text, -1, nullptr, 0), count);
    wide.resize(static_cast<std::size_t>(count));
    return wide;
}

std::string narrowOf(const char16_t* text) {
    std::string narrow(32, '#');
    const int count =
        WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.data(), 32, nullptr, nullptr);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr), count);
    narrow.resize(static_cast<std::size_t>(count));
    return narrow;
}

// A literal with its terminator.
template <typename Character, std::size_t size>
std::basic_string<Character> terminated(const Character (&literal)[size]) {
    return {literal, size};
}

TEST(CodePages, ConvertUtf8OfEveryLengthBothWaysWithItsTerminator) {
    const char* narrow = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x82\xA1";
    const char16_t* wide = u"a\u00E4\u20AC\U0001F0A1";
    EXPECT_EQ(wideOf(CP_UTF8, narrow), terminated(u"a\u00E4\u20AC\U0001F0A1"));
    EXPECT_EQ(narrowOf(wide), terminated("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x82\xA1"));
    EXPECT_EQ(wideOf(CP_UTF8, ""), terminated(u""));
    EXPECT_EQ(narrowOf(u""), terminated(""));
}

TEST(CodePages, HaveOneByteForACharacterOfTheAnsiPage) {
    EXPECT_EQ(wideOf(CP_ACP, "a\xC3\xA4\xFF"), terminated(u"a\u00C3\u00A4\u00FF"));
}

TEST(CodePages, PutReplacementCharactersForWhatIsIllFormed) {
    EXPECT_EQ(wideOf(CP_UTF8, "a\x80z"), terminated(u"a\uFFFDz"));
    EXPECT_EQ(wideOf(CP_UTF8, "\xE2\x82"), terminated(u"\uFFFD"));    // cut short
    EXPECT_EQ(wideOf(CP_UTF8, "\xE2\x82z"), terminated(u"\uFFFDz"));  // broken off
    EXPECT_EQ(wideOf(CP_UTF8, "\xFF"), terminated(u"\uFFFD"));
    // An overlong form, a surrogate, past the last character.
    for (const char* text : {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_EQ(wideOf(CP_UTF8, text).find_first_not_of(u"\uFFFD\0", 0, 2), std::u16string::npos);
    }
    const char16_t high[] = {0xD800, u'a', 0};
    const char16_t low[] = {0xDC00, 0xD800, 0};
    EXPECT_EQ(narrowOf(high), terminated("\xEF\xBF\xBD"
                                         "a"));
    EXPECT_EQ(narrowOf(low), terminated("\xEF\xBF\xBD\xEF\xBF\xBD"));
}

TEST(CodePages, RefuseABufferThatIsTooSmall) {
    WCHAR wide[3] = {};
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, wide, 3), 0);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    char narrow[3] = {};
    SetLastError(0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"abc", -1, narrow, 3, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST(CodePages, RefuseWhatIsNotOffered) {
    WCHAR wide[4] = {};
    const auto refused = [](int count) {
        const DWORD last = GetLastError();
        SetLastError(0);
        return count == 0 && last == DWORD{ERROR_INVALID_PARAMETER};
    };
    EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, nullptr, -1, wide, 4)));
    EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, "a", 1, wide, 4)));
    EXPECT_TRUE(refused(MultiByteToWideChar(932, 0, "a", -1, wide, 4)));
    EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 1, "a", -1, wide, 4)));
    char narrow[4] = {};
    EXPECT_TRUE(refused(WideCharToMultiByte(CP_ACP, 0, u"a", -1, narrow, 4, nullptr, nullptr)));
}

}  // namespace
