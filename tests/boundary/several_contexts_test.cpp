// Several acquisitions in one process: each record has a context of its own, and deleting one
// leaves the others as they were.
#include <algorithm>

#include "platform_side.h"
#include "readers.h"
#include "support/statuses.h"

namespace boundary {
namespace {

void expectService(PlatformSide& card) {
    const std::string serial{card.reader.card().generation().serialNumber};
    Bytes cardid = fromHex(serial);
    if (cardid.size() > 16) cardid = hashOf("SHA-256", std::string(cardid.begin(), cardid.end()));
    cardid.resize(16);
    EXPECT_EQ(card.readFile(nullptr, "cardid").bytes, cardid);
    for (BYTE container = 0; container < card.containers(); ++container) {
        EXPECT_TRUE(card.signsTruly(container)) << int(container);
    }
}

TEST(SeveralContexts, OfAllCardTypesServeSideBySideAndGoOneByOne) {
    Readers readers;
    std::vector<std::unique_ptr<PlatformSide>> cards;
    for (const int cardType : allCardTypes()) {
        cards.push_back(std::make_unique<PlatformSide>(cardType));
    }
    for (const auto& card : cards) readers.add(*card);
    for (const auto& card : cards) card->acquireOrFail();
    for (const auto& card : cards) expectService(*card);
    // Every second one, and then the others.
    for (const std::size_t first : {0u, 1u}) {
        for (std::size_t gone = first; gone < cards.size(); gone += 2) {
            cards[gone]->release();
            for (const auto& card : cards) {
                if (card->acquired) expectService(*card);
            }
        }
    }
}

TEST(SeveralContexts, AVerifiedPinOfOneCardOpensNoOther) {
    Readers readers;
    PlatformSide first(3);
    PlatformSide second(6);
    readers.add(first);
    readers.add(second);
    first.acquireOrFail();
    second.acquireOrFail();
    first.openKey(0);
    EXPECT_EQ(second.signMessage(0, "a message").status, status::securityViolation);
    EXPECT_EQ(first.signMessage(0, "a message").status, 0u);
    second.release();
    EXPECT_EQ(first.signMessage(0, "a message").status, 0u);
}

// Two programs' parts in one process, such as the older and the newer interface of the platform,
// each acquire the card in the one reader.
class TwoRecordsOfOneCard : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override {
        other = card.data;
        card.acquireOrFail();
        ASSERT_EQ(acquireContextOfDriver()(&other, 0), 0u);
        EXPECT_NE(other.pvVendorSpecific, card.data.pvVendorSpecific);
    }
    PlatformSide card{GetParam()};
    CARD_DATA other{};
};
INSTANTIATE_TEST_SUITE_P(EveryCard, TwoRecordsOfOneCard, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(TwoRecordsOfOneCard, AreApartWhenTheLaterOneIsDeleted) {
    card.openKey(0);
    ASSERT_EQ(other.pfnCardDeleteContext(&other), 0u);
    EXPECT_EQ(card.signMessage(0, "a message").status, 0u) << "the PIN is the card's, and open";
    expectService(card);
}

TEST_P(TwoRecordsOfOneCard, AreApartWhenTheEarlierOneIsDeleted) {
    ASSERT_EQ(card.data.pfnCardDeleteContext(&card.data), 0u);
    card.data = other;  // From here on the later record is the one that is used, and deleted.
    expectService(card);
}

class TwoRecordsOfOneEcCard : public TwoRecordsOfOneCard {};
INSTANTIATE_TEST_SUITE_P(EveryEcCard, TwoRecordsOfOneEcCard, ::testing::ValuesIn(ecCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(TwoRecordsOfOneEcCard, KeepTheirAgreementsApart) {
    card.openKey(0);
    BYTE index = 0;
    ASSERT_EQ(card.agreeWithItself(&index), 0u);
    EXPECT_EQ(index, 1);
    std::swap(card.data, other);
    EXPECT_EQ(card.derive(1).status, status::invalidParameter)
        << "the other record has no such secret";
    ASSERT_EQ(card.agreeWithItself(&index), 0u);
    EXPECT_EQ(index, 1) << "each counts for itself";
    const Bytes derived = card.derive(1).bytes;
    EXPECT_EQ(derived.size(), 20u);
    ASSERT_EQ(card.data.pfnCardDeleteContext(&card.data), 0u);
    std::swap(card.data, other);
    EXPECT_EQ(card.derive(1).bytes, derived) << "the same keys, the same secret, still there";
}

}  // namespace
}  // namespace boundary
