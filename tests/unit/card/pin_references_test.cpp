#include "card/pin_references.h"
#include "profiles/card_profiles.h"

#include "pin/pin_fixture.h"

namespace KelmoraID {
namespace {

using namespace testing;

struct ExpectedReferences {
    CardType cardType;
    BYTE pinId1, pinId2, pinId3, pinId4;
};

constexpr ExpectedReferences expectedReferences[] = {
    {CardType::unknown, 0x11, 0x12, 0x12, 0x95}, {CardType::noAtr, 0x11, 0x12, 0x12, 0x95},
    {CardType::type3, 0x11, 0x12, 0x12, 0x95},   {CardType::type4, 0x11, 0x83, 0x83, 0x82},
    {CardType::type5, 0x11, 0x83, 0x83, 0x82},   {CardType::type6, 0x01, 0x02, 0x02, 0x01},
    {CardType::type7, 0x11, 0x83, 0x83, 0x82},   {CardType::type8, 0x03, 0x12, 0x12, 0x04},
};

PinId pinIdOf(std::uint32_t value) {
    return static_cast<PinId>(value);
}

TEST(PinReferences, AreThoseOfTheGenerationForEveryPinId) {
    for (const ExpectedReferences& row : expectedReferences) {
        SCOPED_TRACE(static_cast<std::uint32_t>(row.cardType));
        EXPECT_EQ(pinReferenceOf(PinId::user, row.cardType), row.pinId1);
        EXPECT_EQ(pinReferenceOf(PinId::administrator, row.cardType), row.pinId2);
        EXPECT_EQ(pinReferenceOf(PinId::unblock, row.cardType), row.pinId3);
        EXPECT_EQ(pinReferenceOf(PinId::signature, row.cardType), row.pinId4);
    }
}

TEST(PinReferences, AreTheSameForTheAdministratorAndTheUnblockPinOnEveryCard) {
    for (const CardType cardType : everyCardType()) {
        EXPECT_EQ(pinReferenceOf(PinId::administrator, cardType),
                  pinReferenceOf(PinId::unblock, cardType));
    }
}

TEST(PinReferences, HaveNoValueOutsideThePinIds1To4) {
    for (const CardType cardType : everyCardType()) {
        for (const std::uint32_t pinId : {0u, 5u, 0x80000001u, 0xFFFFFFFFu}) {
            EXPECT_EQ(pinReferenceOf(pinIdOf(pinId), cardType), std::nullopt);
        }
    }
}

TEST(IsValidPinId, IsTrueFrom1To4) {
    const bool expected[] = {false, true, true, true, true, false, false};
    for (std::uint32_t pinId = 0; pinId < 7; ++pinId) {
        EXPECT_EQ(isValidPinId(pinId), expected[pinId]);
    }
    EXPECT_FALSE(isValidPinId(0xFFFFFFFF));
}

TEST(PinReference, SendsNothingWithoutSelection) {
    const PlatformCallsGuard guard;
    for (const CardType cardType : everyCardType()) {
        const ScriptedCard card;
        CardOperations operations(ScriptedCard::handle, cardType);
        for (std::uint32_t pinId = 0; pinId < 6; ++pinId) {
            EXPECT_EQ(operations.pinReference(pinIdOf(pinId), false),
                      pinReferenceOf(pinIdOf(pinId), cardType));
        }
        EXPECT_TRUE(card.exchanges().empty());
    }
}

TEST(PinReference, SelectsTheRootForAllPinsButTheSignaturePin) {
    const PlatformCallsGuard guard;
    for (const CardType cardType : everyCardType()) {
        for (const PinId pinId : {PinId::user, PinId::administrator, PinId::unblock}) {
            ScriptedCard card;
            card.expect(selectRootCommand, "9000");
            CardOperations operations(ScriptedCard::handle, cardType);
            EXPECT_EQ(operations.pinReference(pinId, true), pinReferenceOf(pinId, cardType));
        }
    }
}

TEST(PinReference, SelectsEsignForTheSignaturePin) {
    const PlatformCallsGuard guard;
    for (const CardType cardType : everyCardType()) {
        ScriptedCard card;
        card.expect(selectRootCommand, "9000");
        card.expect(
            profileOf(cardType).hasSecondSigningKey ? selectEsignByIdentifier : selectEsignAsChild,
            "9000");
        CardOperations operations(ScriptedCard::handle, cardType);
        EXPECT_EQ(operations.pinReference(PinId::signature, true),
                  pinReferenceOf(PinId::signature, cardType));
    }
}

TEST(PinReference, SendsNothingForAPinIdOutside1To4) {
    const PlatformCallsGuard guard;
    const ScriptedCard card;
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    EXPECT_EQ(operations.pinReference(pinIdOf(0), true), std::nullopt);
    EXPECT_EQ(operations.pinReference(pinIdOf(5), true), std::nullopt);
    EXPECT_TRUE(card.exchanges().empty());
}

TEST(PinReference, LetsTheSelectionsErrorsPassAsPointers) {
    const PlatformCallsGuard guard;
    ScriptedCard card;
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    card.expect(selectRootCommand, "6A82");
    EXPECT_EQ(textOfThrownPointer([&] { operations.pinReference(PinId::user, true); }),
              "Failed to select root.");
    card.expect(selectRootCommand, "9000").expect(selectEsignAsChild, "6A82");
    EXPECT_EQ(textOfThrownPointer([&] { operations.pinReference(PinId::signature, true); }),
              "Failed to select ESIGN directory.");
}

}  // namespace
}  // namespace KelmoraID
