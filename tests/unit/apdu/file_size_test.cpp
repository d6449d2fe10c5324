#include <gtest/gtest.h>

#include "apdu/apdu_result.h"
#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

std::uint32_t sizeBy(std::string_view controlParameters) {
    ApduResult result;
    result.responseData = testing::bytes(controlParameters);
    return result.fileSize();
}

TEST(FileSize, IsTheNumberOfDataBytes) {
    EXPECT_EQ(sizeBy("62 04 80 02 01 00"), 256U);
}

TEST(FileSize, IsTheNumberWithStructuralInformationWhereThereIsNoOther) {
    EXPECT_EQ(sizeBy("62 04 81 02 01 00"), 256U);
}

TEST(FileSize, PrefersTheNumberOfDataBytesWhereverItStands) {
    EXPECT_EQ(sizeBy("62 08 81 02 01 00 80 02 00 FF"), 255U);
    EXPECT_EQ(sizeBy("62 08 80 02 00 FF 81 02 01 00"), 255U);
}

TEST(FileSize, Is0WithoutATemplateOrANumber) {
    EXPECT_EQ(sizeBy(""), 0U);
    EXPECT_EQ(sizeBy("62 00"), 0U);
    EXPECT_EQ(sizeBy("62 03 82 01 01"), 0U);
    EXPECT_EQ(sizeBy("6F 04 80 02 01 00"), 0U);
    EXPECT_EQ(sizeBy("80 02 01 00"), 0U);
    EXPECT_EQ(sizeBy("62 05 80 02 01 00"), 0U);
}

TEST(FileSize, IsReadBesideOtherElements) {
    EXPECT_EQ(sizeBy("84 01 AA 62 0A 82 01 01 83 02 50 31 80 01 2A"), 42U);
}

TEST(FileSize, IsABigEndianNumberOfAnyLengthFoldedInto32Bits) {
    EXPECT_EQ(sizeBy("62 02 80 00"), 0U);
    EXPECT_EQ(sizeBy("62 03 80 01 7F"), 127U);
    EXPECT_EQ(sizeBy("62 05 80 03 01 02 03"), 0x010203U);
    EXPECT_EQ(sizeBy("62 06 80 04 FF FF FF FF"), 0xFFFFFFFFU);
    EXPECT_EQ(sizeBy("62 08 80 06 AA BB 01 02 03 04"), 0x01020304U);
}

// An empty number of data bytes is a number all the same.
TEST(FileSize, DoesNotFallBackFromAnEmptyNumber) {
    EXPECT_EQ(sizeBy("62 06 80 00 81 02 01 00"), 0U);
}

}  // namespace
}  // namespace KelmoraID
