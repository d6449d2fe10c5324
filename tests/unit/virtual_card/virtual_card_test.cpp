// The card as a whole: unknown commands, GET RESPONSE, the state that it keeps.
#include "virtual_card/virtual_card.h"

#include <set>

#include "card_session.h"

namespace virtual_card {
namespace {

class EveryCard : public testing::TestWithParam<int> {
protected:
    CardSession session{GetParam()};
};

TEST_P(EveryCard, RefusesAnUnknownInstruction) {
    EXPECT_EQ(session.send("00840000"), "6D00");
    EXPECT_EQ(session.send("0044000000"), "6D00");
}

TEST_P(EveryCard, RefusesAnUnknownClassFirst) {
    EXPECT_EQ(session.send("80A4000C023F00"), "6E00");
    EXPECT_EQ(session.send("01840000"), "6E00");
}

TEST_P(EveryCard, ChainsNothingButDecipher) {
    EXPECT_EQ(session.send("10A4000C023F00"), "6884");
    EXPECT_EQ(session.send("102A9E9A0101"), "6884");
}

TEST_P(EveryCard, RefusesUnknownSecurityOperationsAndTemplates) {
    EXPECT_EQ(session.send("002A8680021234"), "6A86");
    EXPECT_EQ(session.send("002241A406840101800142"), "6A86");
    EXPECT_EQ(session.send("0022F3B8"), "6A86");
}

TEST_P(EveryCard, RefusesACommandThatIsNoneWith6700) {
    EXPECT_EQ(session.send(""), "6700");
    EXPECT_EQ(session.send("00A4"), "6700");
    EXPECT_EQ(session.send("00A4000C053F00"), "6700");
}

TEST_P(EveryCard, HasNothingForGetResponseUnasked) {
    EXPECT_EQ(session.send("00C0000000"), "6985");
    EXPECT_EQ(session.send("00C0010000"), "6A86");
}

TEST_P(EveryCard, KeepsTriesInItsState) {
    session.verify(PinRole::Authentication, "99999999");
    session.verify(PinRole::Signature);
    CardSession next(GetParam());
    next.card.loadState(session.card.saveState());
    EXPECT_EQ(next.card.triesLeft(PinRole::Authentication),
              next.pin(PinRole::Authentication).tries - 1U);
    EXPECT_EQ(next.card.triesLeft(PinRole::Signature), next.pin(PinRole::Signature).tries);
    EXPECT_FALSE(next.card.isVerified(PinRole::Signature));
}

TEST_P(EveryCard, RefusesAStateThatIsNotItsOwnAndStaysAsItWas) {
    session.verify(PinRole::Authentication, "99999999");
    const std::string before = session.card.saveState();
    const int other = GetParam() == 3 ? 4 : 3;
    const std::string fresh = CardSession(GetParam()).card.saveState();
    for (const std::string& text :
         {std::string(), std::string("generation"), CardSession(other).card.saveState(),
          fresh.substr(0, fresh.size() - 4), fresh + "more", fresh + fresh}) {
        EXPECT_THROW(session.card.loadState(text), std::runtime_error) << text;
        EXPECT_EQ(session.card.saveState(), before);
    }
}

INSTANTIATE_TEST_SUITE_P(CardType, EveryCard, testing::ValuesIn(allCardTypes()));

TEST(GetResponse, TellsTheRightLengthForOneThatIsTooLarge) {
    CardSession session(5);
    EXPECT_EQ(session.send("00A40004023F0000").substr(0, 2), "61");
    EXPECT_EQ(session.send("00C00000FF").substr(0, 2), "6C");
    EXPECT_EQ(session.exchange("00C0000000").status, sw::ok);
}

TEST(GetResponse, GivesThePartAskedForAndTellsTheRest) {
    CardSession session(5);
    std::string waiting = session.send("00A40004023F0000");
    ASSERT_EQ(waiting.substr(0, 2), "61");
    Bytes length = fromHex(waiting.substr(2));
    std::string first = session.send("00C0000002");
    EXPECT_EQ(first.substr(0, 2), "62");
    Bytes rest{0x61, static_cast<std::uint8_t>(length[0] - 2)};
    EXPECT_EQ(first.substr(4), toHex(rest));
}

TEST(GetResponse, FindsNothingAfterAnotherCommand) {
    CardSession session(5);
    EXPECT_EQ(session.send("00A40004023F0000").substr(0, 2), "61");
    session.selectRoot();
    EXPECT_EQ(session.send("00C0000000"), "6985");
}

TEST(GetResponse, FetchesWhatACommandWithoutLeBrings) {
    CardSession session(3);
    EXPECT_EQ(session.send("00A40204025031").substr(0, 2), "61");
    EXPECT_EQ(session.exchange("00C0000000").status, sw::ok);
}

TEST(Generations, AreSixWithAnAtrEach) {
    EXPECT_EQ(generations().size(), 6U);
    std::set<std::string_view> atrs;
    for (const Generation& row : generations()) {
        EXPECT_EQ(findGeneration(row.cardType), &row);
        atrs.insert(row.atr);
        EXPECT_EQ(toHex(VirtualCard(row).atr()), row.atr);
    }
    EXPECT_EQ(atrs.size(), 6U);
    for (int other : {-1, 0, 1, 2, 9}) EXPECT_EQ(findGeneration(other), nullptr);
}

}  // namespace
}  // namespace virtual_card
