#include "text/text_lists.h"

#include <gtest/gtest.h>

namespace KelmoraID {
namespace {

using Texts = std::vector<std::string>;
using WideTexts = std::vector<WideString>;

// A multi-string from a literal with its NULs, without the literal's own terminator.
template <std::size_t size>
WideString multiString(const WCHAR (&literal)[size]) {
    return WideString(literal, size - 1);
}

TEST(MultiStringToList, ReadsUpToTheEmptyString) {
    EXPECT_EQ(multiStringToList(multiString(WIDE_TEXT("one\0two\0\0three\0"))),
              (WideTexts{WIDE_TEXT("one"), WIDE_TEXT("two")}));
}

TEST(MultiStringToList, OfNothingIsEmpty) {
    EXPECT_EQ(multiStringToList({}), WideTexts{});
    EXPECT_EQ(multiStringToList(multiString(WIDE_TEXT("\0\0"))), WideTexts{});
}

TEST(MultiStringToList, EndsWithTheBufferWhenTheEmptyStringIsMissing) {
    EXPECT_EQ(multiStringToList(multiString(WIDE_TEXT("one\0two"))),
              (WideTexts{WIDE_TEXT("one"), WIDE_TEXT("two")}));
    EXPECT_EQ(multiStringToList(multiString(WIDE_TEXT("one\0"))), WideTexts{WIDE_TEXT("one")});
}

TEST(SplitString, OfAnEmptyTextIsEmpty) {
    EXPECT_EQ(splitString("", ';'), Texts{});
}

TEST(SplitString, GivesNoEmptyLastElementForADelimiterAtTheEnd) {
    EXPECT_EQ(splitString("a;b;", ';'), (Texts{"a", "b"}));
    EXPECT_EQ(splitString("a;b;;", ';'), (Texts{"a", "b", ""}));
    EXPECT_EQ(splitString(";", ';'), Texts{""});
}

TEST(SplitString, KeepsEmptyElementsElsewhere) {
    EXPECT_EQ(splitString(";a;;b", ';'), (Texts{"", "a", "", "b"}));
}

TEST(SplitString, CutsAtTheDelimiterOnly) {
    EXPECT_EQ(splitString("a b\nc", ';'), Texts{"a b\nc"});
}

TEST(JoinStrings, PutsTheSeparatorBetweenTheElements) {
    EXPECT_EQ(joinStrings({"a", "", "b"}, "\\"), "a\\\\b");
    EXPECT_EQ(joinStrings({"a"}, "\\"), "a");
}

TEST(TrimBlanks, RemovesTheSixBlanksFromBothEnds) {
    std::string text = " \t\n\v\f\ra b\tc \t\n\v\f\r";
    trimBlanks(text);
    EXPECT_EQ(text, "a b\tc");
}

TEST(TrimBlanks, LeavesNothingOfABlankText) {
    for (std::string text : {"", " ", " \t\n\v\f\r"}) {
        trimBlanks(text);
        EXPECT_EQ(text, "");
    }
}

TEST(TrimBlanks, LeavesOtherControlCharacters) {
    std::string text("\0a\x01", 3);
    trimBlanks(text);
    EXPECT_EQ(text, std::string("\0a\x01", 3));
}

}  // namespace
}  // namespace KelmoraID
