#include "profiles/card_profiles.h"

#include <gtest/gtest.h>

#include "bytes/byte_texts.h"
#include "support/fineid_script.h"

namespace KelmoraID {
namespace {

using testing::atrOf;

struct Row {
    CardType type;
    bool hasSecondSigningKey;
};
const Row rows[] = {
    {CardType::type3, false}, {CardType::type4, true}, {CardType::type5, true},
    {CardType::type6, false}, {CardType::type7, true}, {CardType::type8, false},
};

TEST(SupportedCards, AreThoseOfTheTableEachFoundByItsOwnAtr) {
    ASSERT_EQ(supportedCards().size(), std::size(rows));
    for (std::size_t at = 0; at < std::size(rows); ++at) {
        const CardProfile& card = supportedCards()[at];
        EXPECT_EQ(card.type, rows[at].type);
        EXPECT_EQ(bytesToHex({card.atr.begin(), card.atr.end()}), atrOf(rows[at].type));
        EXPECT_EQ(findCardByAtr(card.atr), &card);
    }
    EXPECT_EQ(findCardByAtr({}), nullptr);
}

TEST(SupportedCards, AreNoCardWithoutAnAtrAndNoUnknownOne) {
    for (const Row& row : rows) EXPECT_TRUE(isSupported(row.type)) << atrOf(row.type);
    for (const auto type : {CardType::unknown, CardType::noAtr, CardType{0}, CardType{9}}) {
        EXPECT_FALSE(isSupported(type)) << static_cast<int>(type);
    }
}

TEST(CardProfiles, TellWhichTypesHaveASecondSigningKey) {
    for (const Row& row : rows) {
        EXPECT_EQ(profileOf(row.type).hasSecondSigningKey, row.hasSecondSigningKey)
            << atrOf(row.type);
    }
}

}  // namespace
}  // namespace KelmoraID
