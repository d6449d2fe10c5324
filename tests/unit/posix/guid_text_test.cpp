#include <gtest/gtest.h>

#include <string>

#include "platform/win32.h"

namespace {

constexpr GUID guid = {
    0x01234567, 0x89AB, 0xCDEF, {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10}};

TEST(GuidText, IsBracedUpperCaseWithATerminator) {
    WCHAR text[40];
    text[39] = u'#';
    EXPECT_EQ(StringFromGUID2(guid, text, 39), 39);
    EXPECT_EQ(std::u16string(text, 40),
              std::u16string(u"{01234567-89AB-CDEF-FEDC-BA9876543210}\0#", 40));
}

TEST(GuidText, IsRefusedInABufferTooSmall) {
    WCHAR text[39] = {u'#'};
    EXPECT_EQ(StringFromGUID2(guid, text, 38), 0);
    EXPECT_EQ(text[0], u'#');
}

}  // namespace
