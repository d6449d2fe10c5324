#include <gtest/gtest.h>

#include "bytes/byte_texts.h"
#include "profiles/card_profiles.h"
#include "session/card_type_of.h"
#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::bytes;

CardType typeOf(std::string_view atr) {
    ByteVector value = bytes(atr);
    CARD_DATA data{};
    data.pbAtr = value.data();
    data.cbAtr = static_cast<DWORD>(value.size());
    return cardTypeOf(&data);
}

struct Row {
    const char* atr;
    CardType type;
};
const Row rows[] = {
    {"3bdd96008031fe450031b8640429ecc1739401808248", CardType::type3},
    {"3b7f9600008031b865b085050011122460829000", CardType::type4},
    {"3b7f9600008031b865b08504021b1200f6829000", CardType::type5},
    {"3bdf96008031fe450031b8640429ecc173940180829000", CardType::type6},
    {"3b7f9600008031b865b0850300ef1200f6829000", CardType::type7},
    {"3bdd96008031fe450031b8640429ecc1739401808349", CardType::type8},
};

TEST(CardTypeOf, RecognisesEveryAtrOfTheTable) {
    for (const Row& row : rows) EXPECT_EQ(typeOf(row.atr), row.type) << row.atr;
}

TEST(CardTypeOf, RecognisesAnAtrWithOneFurtherByteOfAnyValue) {
    for (const Row& row : rows) {
        for (const char* last : {"00", "7f", "FF"}) {
            EXPECT_EQ(typeOf(std::string(row.atr) + last), row.type) << row.atr << last;
        }
    }
}

TEST(CardTypeOf, DoesNotRecogniseAnAtrThatIsOneByteShorter) {
    for (const Row& row : rows) {
        const std::string atr(row.atr);
        EXPECT_EQ(typeOf(atr.substr(0, atr.size() - 2)), CardType::unknown) << row.atr;
    }
}

TEST(CardTypeOf, DoesNotRecogniseAnAtrWithTwoFurtherBytes) {
    EXPECT_EQ(typeOf(std::string(rows[0].atr) + "0000"), CardType::unknown);
}

TEST(CardTypeOf, TellsARecordWithoutAtrFromAnUnknownOne) {
    EXPECT_EQ(typeOf(""), CardType::noAtr);
    EXPECT_EQ(typeOf("3B"), CardType::unknown);
}

TEST(CardTypeOf, DoesNotReadAnAtrThatIsLongerThanAnyCanBe) {
    BYTE one = 0x3B;
    CARD_DATA data{};
    data.pbAtr = &one;
    data.cbAtr = 0xFFFFFFFE;
    EXPECT_EQ(cardTypeOf(&data), CardType::unknown);
}

TEST(CardTypeOf, KnowsWhichTypesHaveASecondSigningKey) {
    EXPECT_FALSE(profileOf(CardType::type3).hasSecondSigningKey);
    EXPECT_TRUE(profileOf(CardType::type4).hasSecondSigningKey);
    EXPECT_TRUE(profileOf(CardType::type5).hasSecondSigningKey);
    EXPECT_FALSE(profileOf(CardType::type6).hasSecondSigningKey);
    EXPECT_TRUE(profileOf(CardType::type7).hasSecondSigningKey);
    EXPECT_FALSE(profileOf(CardType::type8).hasSecondSigningKey);
}

TEST(SupportedCards, AreThoseOfTheTableEachFoundByItsOwnAtr) {
    ASSERT_EQ(supportedCards().size(), std::size(rows));
    for (std::size_t at = 0; at < std::size(rows); ++at) {
        const CardProfile& card = supportedCards()[at];
        EXPECT_EQ(bytesToHex({card.atr.begin(), card.atr.end()}), rows[at].atr);
        EXPECT_EQ(findCardByAtr(card.atr), &card);
    }
    EXPECT_EQ(findCardByAtr({}), nullptr);
}

}  // namespace
}  // namespace KelmoraID
