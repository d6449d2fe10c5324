#include "bytes/byte_texts.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

namespace KelmoraID {
namespace {

// The text of the exception that the call ends with.
template <typename Exception>
std::string messageOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Exception& exception) {
        return exception.what();
    }
    return "nothing was thrown";
}

std::string invalidArgumentOf(const std::function<void()>& call) {
    return messageOf<std::invalid_argument>(call);
}

TEST(BytesToHex, GivesTwoLowerCaseDigitsAByteAndNothingBetween) {
    EXPECT_EQ(bytesToHex(ByteVector{0x01, 0xAB, 0x00, 0xFF}), "01ab00ff");
    EXPECT_EQ(bytesToHex(ByteVector{}), "");
}

TEST(BytesToHexSpaced, PutsOneBlankBetweenBytesAndNoneBehindTheLast) {
    EXPECT_EQ(bytesToHexSpaced(ByteVector{0x01, 0xAB}), "01 ab");
    EXPECT_EQ(bytesToHexSpaced(ByteVector{0x0F}), "0f");
    EXPECT_EQ(bytesToHexSpaced(ByteVector{}), "");
}

TEST(BytesToLogHex, HasNoLeadingZeroAndABlankBehindEveryByte) {
    EXPECT_EQ(bytesToLogHex(ByteVector{0x01, 0xAB}), "1 ab ");
    EXPECT_EQ(bytesToLogHex(ByteVector{0x00}), "0 ");
    EXPECT_EQ(bytesToLogHex(ByteVector{}), "");
}

TEST(HexDigitValue, TakesDigitsAndLettersOfBothCases) {
    const std::string lower = "0123456789abcdef";
    const std::string upper = "0123456789ABCDEF";
    for (int value = 0; value < 16; ++value) {
        EXPECT_EQ(hexDigitValue(lower[static_cast<std::size_t>(value)]), value);
        EXPECT_EQ(hexDigitValue(upper[static_cast<std::size_t>(value)]), value);
    }
}

TEST(HexDigitValue, RefusesEveryOtherCharacter) {
    int refused = 0;
    for (int code = 0; code < 256; ++code) {
        try {
            hexDigitValue(static_cast<char>(code));
        } catch (const std::invalid_argument& exception) {
            EXPECT_STREQ(exception.what(), "Invalid hex character");
            ++refused;
        }
    }
    EXPECT_EQ(refused, 256 - 22);
}

TEST(HexToBytes, ReadsDigitsOfBothCases) {
    EXPECT_EQ(hexToBytes("01aBFf"), (ByteVector{0x01, 0xAB, 0xFF}));
    EXPECT_EQ(hexToBytes(""), ByteVector{});
}

TEST(HexToBytes, RefusesAnOddLengthBeforeItLooksAtTheCharacters) {
    EXPECT_EQ(invalidArgumentOf([] { hexToBytes("012"); }), "Hex string must have an even length");
    EXPECT_EQ(invalidArgumentOf([] { hexToBytes("0G2"); }), "Hex string must have an even length");
}

TEST(HexToBytes, RefusesACharacterThatIsNoDigit) {
    EXPECT_EQ(invalidArgumentOf([] { hexToBytes("G1"); }), "Invalid hex character");
    EXPECT_EQ(invalidArgumentOf([] { hexToBytes("1G"); }), "Invalid hex character");
}

TEST(HexToString, ReadsDigitsOfBothCases) {
    EXPECT_EQ(hexToString("4b45c3A4"), "KE\xC3\xA4");
    EXPECT_EQ(hexToString("4100"), std::string("A\0", 2));
    EXPECT_EQ(hexToString(""), "");
}

TEST(HexToString, FailsOnTheTerminatorBehindAnOddLastDigit) {
    EXPECT_EQ(invalidArgumentOf([] { hexToString("414"); }), "Invalid hex character");
    EXPECT_EQ(invalidArgumentOf([] { hexToString("4 "); }), "Invalid hex character");
}

TEST(ContainsAnyOf, FindsOneOfTheCharacters) {
    EXPECT_TRUE(containsAnyOf("a/b", "\\/"));
    EXPECT_FALSE(containsAnyOf("a.b", "\\/"));
    EXPECT_FALSE(containsAnyOf("", "\\/"));
    EXPECT_FALSE(containsAnyOf("a/b", ""));
}

TEST(FindByte, GivesTheIndexOfTheFirstOccurrenceOrMinusOne) {
    EXPECT_EQ(findByte({1, 2, 3, 2}, 2), 1);
    EXPECT_EQ(findByte({1, 2, 3}, 1), 0);
    EXPECT_EQ(findByte({1, 2, 3}, 4), -1);
    EXPECT_EQ(findByte({}, 0), -1);
}

}  // namespace
}  // namespace KelmoraID
