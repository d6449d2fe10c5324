#include "card_session.h"

namespace virtual_card {
namespace {

class ReadBinary : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        content = session.readFile("3F005032");
        ASSERT_GT(content.size(), 40U);
        ASSERT_LT(content.size(), 127U);
    }
    CardSession session{GetParam()};
    Bytes content;
};

TEST_P(ReadBinary, GivesAPartOfTheSelectedFile) {
    Bytes part(content.begin() + 5, content.begin() + 5 + 16);
    EXPECT_EQ(session.send("00B0000510"), toHex(part) + "9000");
}

TEST_P(ReadBinary, GivesWhatThereIsForLe00) {
    EXPECT_EQ(session.send("00B0000000"), toHex(content) + "9000");
}

TEST_P(ReadBinary, WarnsAtTheEndOfTheFile) {
    EXPECT_EQ(session.send("00B000007F"), toHex(content) + "6282");
}

TEST_P(ReadBinary, RefusesAnOffsetBehindTheEnd) {
    EXPECT_EQ(session.send("00B0010001"), "6B00");
    Bytes atEnd{0x00, 0xB0, 0x00, static_cast<std::uint8_t>(content.size()), 0x01};
    EXPECT_EQ(toHex(session.card.transmit(atEnd)), "6B00");
}

TEST_P(ReadBinary, RefusesWithoutASelectedFile) {
    session.selectRoot();
    EXPECT_EQ(session.send("00B0000001"), "6986");
}

TEST_P(ReadBinary, RefusesAShortFileIdentifier) {
    EXPECT_EQ(session.send("00B0810001"), "6A82");
}

TEST_P(ReadBinary, RefusesDataAndAMissingLe) {
    EXPECT_EQ(session.send("00B00000"), "6700");
    EXPECT_EQ(session.send("00B00000021234"), "6700");
}

INSTANTIATE_TEST_SUITE_P(CardType, ReadBinary, testing::ValuesIn(allCardTypes()));

}  // namespace
}  // namespace virtual_card
