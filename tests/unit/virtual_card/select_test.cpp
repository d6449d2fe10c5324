// Which forms of SELECT each generation answers, and what it answers.
#include "card_session.h"

namespace virtual_card {
namespace {

struct Step {
    std::string_view command;
    std::uint16_t status;
};

struct Walk {
    std::string_view name;
    int cardType;
    std::vector<Step> steps;
};

void PrintTo(const Walk& walk, std::ostream* out) {
    *out << walk.name;
}

class SelectForm : public testing::TestWithParam<Walk> {};

TEST_P(SelectForm, AnswersEachStepOfTheWalk) {
    CardSession session(GetParam().cardType);
    for (const Step& step : GetParam().steps) {
        EXPECT_EQ(session.exchange(step.command).status, step.status) << step.command;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Walks, SelectForm,
    testing::Values(
        Walk{"ChildByChildAndFileByIdentifier",
             3,
             {{"00A40104023F0000", 0x9000}, {"00A4020402503200", 0x9000}}},
        Walk{"ChildByChildIntoEsign",
             3,
             {{"00A40104023F0000", 0x9000},
              {"00A4010402501600", 0x9000},
              {"00A4020402433200", 0x9000}}},
        Walk{"RefusedPathThenAnyByIdentifierAndFileByPathFromHere",
             4,
             {{"00A40104023F0000", 0x6A86},
              {"00A40904023F0000", 0x6A82},
              {"00A40004023F0000", 0x9000},
              {"00A4020402503200", 0x6A82},
              {"00A40204043F00503200", 0x6A86},
              {"00A40904043F00503200", 0x9000}}},
        Walk{"UnknownPathThenAnyByIdentifierAndFileByWholePath",
             5,
             {{"00A40104023F0000", 0x6A86},
              {"00A40904023F0000", 0x6A86},
              {"00A40004023F0000", 0x9000},
              {"00A4020402503200", 0x6A82},
              {"00A40204043F00503200", 0x9000}}},
        Walk{"MasterFileIsNoChild",
             6,
             {{"00A40104023F0000", 0x6A82},
              {"00A40004023F0000", 0x9000},
              {"00A4000402501600", 0x9000},
              {"00A4020402433200", 0x9000}}},
        Walk{"WholePathOfDirectory",
             7,
             {{"00A40104023F0000", 0x6A86},
              {"00A40904043F00501600", 0x9000},
              {"00A4020402433300", 0x9000}}},
        Walk{"SecondChildRefusedThenWholePath",
             8,
             {{"00A40104023F0000", 0x9000},
              {"00A4010402501600", 0x6A86},
              {"00A40904043F00501600", 0x9000},
              {"00A4020402433100", 0x6A82},
              {"00A40204063F005016433100", 0x9000}}},
        Walk{"EsignAsChildWithoutReplyOn3",
             3,
             {{"00A4000C023F00", 0x9000}, {"00A4010C025016", 0x9000}}},
        Walk{"EsignByIdentifierOn4",
             4,
             {{"00A4000C023F00", 0x9000}, {"00A4010C025016", 0x6A86}, {"00A4000C025016", 0x9000}}},
        Walk{"EsignByIdentifierOn5",
             5,
             {{"00A4000C023F00", 0x9000}, {"00A4010C025016", 0x6A86}, {"00A4000C025016", 0x9000}}},
        Walk{"EsignAsChildWithoutReplyOn6",
             6,
             {{"00A4000C023F00", 0x9000}, {"00A4010C025016", 0x9000}}},
        Walk{"EsignByIdentifierOn7",
             7,
             {{"00A4000C023F00", 0x9000}, {"00A4010C025016", 0x6A86}, {"00A4000C025016", 0x9000}}},
        Walk{"EsignAsChildWithoutReplyOn8",
             8,
             {{"00A4000C023F00", 0x9000}, {"00A4010C025016", 0x9000}}}),
    [](const auto& info) { return std::string(info.param.name); });

constexpr std::string_view fineid = "00A404000CA000000063504B43532D313500";
constexpr std::string_view cosmoX = "00A4040010A000000077030C60000000FE0000050000";

class EveryCardSelect : public testing::TestWithParam<int> {
protected:
    CardSession session{GetParam()};
};

TEST_P(EveryCardSelect, KnowsItsOwnApplicationAlone) {
    bool isCosmoX = GetParam() == 4;
    EXPECT_EQ(session.exchange(fineid).status, isCosmoX ? 0x6A82 : 0x9000);
    EXPECT_EQ(session.exchange(cosmoX).status, isCosmoX ? 0x9000 : 0x6A82);
}

TEST_P(EveryCardSelect, AnswersTheApplicationWithAnFciTemplate) {
    Reply reply = session.exchange(GetParam() == 4 ? cosmoX : fineid);
    ASSERT_GT(reply.data.size(), 2U);
    EXPECT_EQ(reply.data[0], 0x6F);
}

TEST_P(EveryCardSelect, SendsNothingBackWhenNothingIsWanted) {
    EXPECT_EQ(session.send("00A4000C023F0000"), "9000");
    EXPECT_EQ(session.send("00A4000C023F00"), "9000");
}

TEST_P(EveryCardSelect, LeavesTheSelectionAsItWasOnARefusal) {
    session.selectEsign();
    EXPECT_EQ(session.send("00A4000C021234"), "6A82");
    EXPECT_EQ(session.exchange("00A4000402433200").status, sw::ok);
}

TEST_P(EveryCardSelect, GoesToTheParent) {
    session.selectEsign();
    EXPECT_EQ(session.send("00A4030C"), "9000");
    EXPECT_EQ(session.exchange("00A4000402503200").status, sw::ok);
    EXPECT_EQ(session.send("00A4030C"), "6A82");
}

TEST_P(EveryCardSelect, RefusesUnknownP1AndP2) {
    EXPECT_EQ(session.send("00A4050C023F00"), "6A86");
    EXPECT_EQ(session.send("00A40008023F00"), "6A86");
}

TEST_P(EveryCardSelect, RefusesAnIdentifierOfOtherThanTwoBytes) {
    EXPECT_EQ(session.send("00A4000C0150"), "6700");
    EXPECT_EQ(session.send("00A4010C0150"), "6700");
    EXPECT_EQ(session.send("00A4030C023F00"), "6700");
}

TEST_P(EveryCardSelect, StartsAtTheMasterFileAfterAReset) {
    session.selectEsign();
    session.card.reset();
    EXPECT_EQ(session.exchange("00A4000402503200").status, sw::ok);
}

INSTANTIATE_TEST_SUITE_P(CardType, EveryCardSelect, testing::ValuesIn(allCardTypes()));

TEST(FileControlParameters, HaveTag80OnGeneration3) {
    CardSession session(3);
    EXPECT_EQ(session.send("00A4020402503100"), "620E8002001E820101830250318A01059000");
}

TEST(FileControlParameters, HaveTag81OnGeneration6) {
    CardSession session(6);
    EXPECT_EQ(toHex(session.exchange("00A4020402503100").data), "620E8102005E820101830250318A0105");
}

TEST(FileControlParameters, HaveTag81AheadOf80OnGeneration7) {
    CardSession session(7);
    EXPECT_EQ(session.send("00A4020402503100"), "62128102006E8002005E820101830250318A01059000");
}

TEST(FileControlParameters, OfADirectoryHaveNoSize) {
    CardSession session(3);
    EXPECT_EQ(session.send("00A4010402501600"), "620A820138830250168A01059000");
}

}  // namespace
}  // namespace virtual_card
