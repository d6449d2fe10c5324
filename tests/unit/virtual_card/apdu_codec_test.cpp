#include "virtual_card/apdu_codec.h"

#include <gmock/gmock.h>

namespace virtual_card {
namespace {

TEST(CardCommand, ReadsTheFourCases) {
    auto bare = parseCommand(fromHex("00200081"));
    ASSERT_TRUE(bare);
    EXPECT_TRUE(bare->data.empty());
    EXPECT_FALSE(bare->le);

    auto withLe = parseCommand(fromHex("00B001027F"));
    ASSERT_TRUE(withLe);
    EXPECT_EQ(withLe->p1, 0x01);
    EXPECT_EQ(withLe->p2, 0x02);
    EXPECT_EQ(withLe->le, 127U);

    auto withData = parseCommand(fromHex("00A4000C023F00"));
    ASSERT_TRUE(withData);
    EXPECT_EQ(toHex(withData->data), "3F00");
    EXPECT_FALSE(withData->le);

    auto withBoth = parseCommand(fromHex("10A40004023F0010"));
    ASSERT_TRUE(withBoth);
    EXPECT_EQ(withBoth->cla, 0x10);
    EXPECT_EQ(withBoth->ins, 0xA4);
    EXPECT_EQ(toHex(withBoth->data), "3F00");
    EXPECT_EQ(withBoth->le, 16U);
}

TEST(CardCommand, TakesLe00As256) {
    EXPECT_EQ(parseCommand(fromHex("00B0000000"))->le, 256U);
    EXPECT_EQ(parseCommand(fromHex("00A40004023F0000"))->le, 256U);
}

TEST(CardCommand, HasNoMeaningWhenItsLengthsDoNotFit) {
    for (const char* bytes : {"", "00", "00A400", "00A40004023F", "00A40004023F000000",
                              "00A4000400023F00", "00B000000000FF"}) {
        EXPECT_FALSE(parseCommand(fromHex(bytes))) << bytes;
    }
}

TEST(CardReply, HasTheStatusWordBehindTheData) {
    EXPECT_EQ(toHex(encodeReply({{0x01, 0x02}, 0x6282})), "01026282");
    EXPECT_EQ(toHex(encodeReply({{}, 0x6A82})), "6A82");
}

TEST(CardStatusWord, TellsTriesAndWaitingBytes) {
    EXPECT_EQ(sw::triesLeft(0), 0x63C0);
    EXPECT_EQ(sw::triesLeft(5), 0x63C5);
    EXPECT_EQ(sw::bytesWaiting(1), 0x6101);
    EXPECT_EQ(sw::bytesWaiting(255), 0x61FF);
    EXPECT_EQ(sw::bytesWaiting(256), 0x6100);
    EXPECT_EQ(sw::bytesWaiting(384), 0x6100);
}

TEST(HexText, IsReadAndWritten) {
    EXPECT_EQ(toHex(fromHex("00 aF 7e")), "00AF7E");
    EXPECT_THROW(fromHex("0"), std::invalid_argument);
    EXPECT_THROW(fromHex("0G"), std::invalid_argument);
}

}  // namespace
}  // namespace virtual_card
