#include <gtest/gtest.h>

#include <string>

#include "platform/win32.h"

namespace {

std::u16string wideOf(UINT page, const std::string& text) {
    std::u16string wide(text.size() * 2 + 1, u'#');
    const int count = MultiByteToWideChar(page, 0, text.data(), static_cast<int>(text.size()),
                                          wide.data(), static_cast<int>(wide.size()));
    wide.resize(static_cast<std::size_t>(count));
    return wide;
}

std::string narrowOf(UINT page, const std::u16string& text) {
    std::string narrow(text.size() * 4 + 1, '#');
    const int count =
        WideCharToMultiByte(page, 0, text.data(), static_cast<int>(text.size()), narrow.data(),
                            static_cast<int>(narrow.size()), nullptr, nullptr);
    narrow.resize(static_cast<std::size_t>(count));
    return narrow;
}

TEST(CodePages, ConvertUtf8OfEveryLengthBothWays) {
    const std::string narrow = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x82\xA1";
    const std::u16string wide = u"a\u00E4\u20AC\U0001F0A1";
    EXPECT_EQ(wideOf(CP_UTF8, narrow), wide);
    EXPECT_EQ(narrowOf(CP_UTF8, wide), narrow);
}

TEST(CodePages, TakeTheTerminatorAlongWithALengthOfMinusOne) {
    WCHAR wide[4] = {u'#', u'#', u'#', u'#'};
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "ab", -1, nullptr, 0), 3);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "ab", -1, wide, 4), 3);
    EXPECT_EQ(std::u16string(wide, 4), std::u16string(u"ab\0#", 4));
    char narrow[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"ab", -1, narrow, 4, nullptr, nullptr), 3);
    EXPECT_EQ(std::string(narrow, 4), std::string("ab\0#", 4));
}

TEST(CodePages, CountWithoutWriting) {
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xE2\x82\xAC", 3, nullptr, 0), 1);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"\u20AC", 1, nullptr, 0, nullptr, nullptr), 3);
}

TEST(CodePages, RefuseABufferThatIsTooSmall) {
    WCHAR wide[2] = {};
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 3, wide, 2), 0);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    char narrow[2] = {};
    SetLastError(0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"abc", 3, narrow, 2, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST(CodePages, PutOneReplacementCharacterForEachIllFormedPart) {
    EXPECT_EQ(wideOf(CP_UTF8, "\x80"), u"\uFFFD");
    EXPECT_EQ(wideOf(CP_UTF8, "\xC0\xAF"), u"\uFFFD\uFFFD");                    // overlong
    EXPECT_EQ(wideOf(CP_UTF8, "\xE2\x82"), u"\uFFFD");                          // cut short
    EXPECT_EQ(wideOf(CP_UTF8, "\xE2\x82z"), u"\uFFFDz");                        // broken off
    EXPECT_EQ(wideOf(CP_UTF8, "\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");          // a surrogate
    EXPECT_EQ(wideOf(CP_UTF8, "\xF4\x90\x80\x80"), std::u16string(4, 0xFFFD));  // past the last
    EXPECT_EQ(wideOf(CP_UTF8, "\xFF"), u"\uFFFD");
}

TEST(CodePages, PutAReplacementCharacterForAnUnpairedSurrogate) {
    EXPECT_EQ(narrowOf(CP_UTF8, {0xD800, u'a'}),
              "\xEF\xBF\xBD"
              "a");
    EXPECT_EQ(narrowOf(CP_UTF8, {0xDC00}), "\xEF\xBF\xBD");
    EXPECT_EQ(narrowOf(CP_UTF8, {u'a', 0xD800}), "a\xEF\xBF\xBD");
}

TEST(CodePages, HaveWindows1252AsTheAnsiPage) {
    std::string all;
    for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
    const std::u16string wide = wideOf(CP_ACP, all);
    ASSERT_EQ(wide.size(), 256U);
    EXPECT_EQ(wide[0x41], u'A');
    EXPECT_EQ(wide[0x80], 0x20AC);
    EXPECT_EQ(wide[0x81], 0x0081);
    EXPECT_EQ(wide[0x8A], 0x0160);
    EXPECT_EQ(wide[0x9F], 0x0178);
    EXPECT_EQ(wide[0xE4], 0x00E4);
    EXPECT_EQ(narrowOf(CP_ACP, wide), all);
}

TEST(CodePages, PutTheDefaultCharacterForWhatTheAnsiPageLacks) {
    EXPECT_EQ(narrowOf(CP_ACP, u"a\u4E00b"), "a?b");
    char narrow[4] = {};
    BOOL used = FALSE;
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"\u4E00", 1, narrow, 4, "!", &used), 1);
    EXPECT_EQ(narrow[0], '!');
    EXPECT_EQ(used, TRUE);
}

TEST(CodePages, RefuseWrongArguments) {
    WCHAR wide[4] = {};
    char narrow[4] = {};
    BOOL used = FALSE;
    const auto refused = [](int count, DWORD error) {
        const DWORD last = GetLastError();
        SetLastError(0);
        return count == 0 && last == error;
    };
    EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, nullptr, 1, wide, 4), 87));
    EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, "a", 0, wide, 4), 87));
    EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, "a", 1, nullptr, 4), 87));
    EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, "a", 1, wide, -1), 87));
    EXPECT_TRUE(refused(MultiByteToWideChar(932, 0, "a", 1, wide, 4), 87));
    EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 1, "a", 1, wide, 4), 1004));
    EXPECT_TRUE(refused(WideCharToMultiByte(CP_UTF8, 0, u"a", 1, narrow, 4, nullptr, &used), 87));
}

}  // namespace
