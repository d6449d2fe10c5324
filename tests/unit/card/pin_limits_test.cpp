#include "card/pin_limits.h"

#include <optional>
#include <system_error>

#include "pin/pin_fixture.h"

namespace KelmoraID {
namespace {

using namespace testing;

constexpr const char* getDataOfReference11 = "00 CB 3F FF 0B 4D09 7007 BF8111 03 7F4180 00";
constexpr const char* fourteenBytes = "0102030405060708090A0B0C0D0E";

const LogLines failedToRead{{"DEBUG", "Error: Failed to read PIN properties. Exception."}};

class PinLimits : public ::testing::Test {
protected:
    PlatformCallsGuard guard;
    ScriptedCard card;
    LogCapture log;
    CardOperations operations{ScriptedCard::handle, CardType::type3};

    void expectSelections() {
        card.expect(selectApplication, "9000").expect(selectRootCommand, "9000");
    }
};

TEST_F(PinLimits, RangeTakesBothEndsAndNothingBeyondThem) {
    EXPECT_FALSE(isPinLengthInRange(4, 12, 0));
    EXPECT_FALSE(isPinLengthInRange(4, 12, 3));
    EXPECT_TRUE(isPinLengthInRange(4, 12, 4));
    EXPECT_TRUE(isPinLengthInRange(4, 12, 12));
    EXPECT_FALSE(isPinLengthInRange(4, 12, 13));
    EXPECT_TRUE(isPinLengthInRange(0, 255, 0));
    EXPECT_TRUE(isPinLengthInRange(0, 255, 255));
    EXPECT_FALSE(isPinLengthInRange(0, 255, 256));
    EXPECT_FALSE(isPinLengthInRange(4, 12, 256 + 6));
    EXPECT_FALSE(isPinLengthInRange(0, 255, 0xFFFFFFFF));
    EXPECT_FALSE(isPinLengthInRange(12, 4, 6));
}

TEST_F(PinLimits, PropertiesAreTheMaximumAndTheMinimum) {
    expectSelections();
    card.expect(getDataOfReference11, pinProperties(5, 11));
    EXPECT_EQ(operations.readPinProperties(PinId::user), (std::pair<BYTE, BYTE>{11, 5}));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(PinLimits, PropertiesAreAskedForByTheReferenceWithout80OnCardType6) {
    CardOperations onType6(ScriptedCard::handle, CardType::type6);
    expectSelections();
    card.expect("00 CB 3F FF 0B 4D09 7007 BF8102 03 7F4180 00", pinProperties(8, 8));
    EXPECT_EQ(onType6.readPinProperties(PinId::unblock), (std::pair<BYTE, BYTE>{8, 8}));
}

TEST_F(PinLimits, PropertiesOfTheSignaturePinAreReadInEsign) {
    card.expect(selectApplication, "9000").expect(selectRootCommand, "9000");
    card.expect(selectEsignAsChild, "9000");
    card.expect("00 CB 3F FF 0B 4D09 7007 BF8195 03 7F4180 00", pinProperties(6, 8));
    EXPECT_EQ(operations.readPinProperties(PinId::signature), (std::pair<BYTE, BYTE>{8, 6}));
}

TEST_F(PinLimits, PropertiesAreGatheredByGetResponse) {
    expectSelections();
    card.expect(getDataOfReference11, "0001020304050607 6107");
    card.expect("00 C0 00 00 00", "08090A0C0D0D04 9000");
    EXPECT_EQ(operations.readPinProperties(PinId::user), (std::pair<BYTE, BYTE>{12, 4}));
}

TEST_F(PinLimits, ARefusedGetDataThrowsAPointer) {
    expectSelections();
    card.expect(getDataOfReference11, "6A88");
    EXPECT_EQ(textOfThrownPointer([&] { operations.readPinProperties(PinId::user); }),
              "Failed to read PIN properties.");
    EXPECT_EQ(log.output(), failedToRead);
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(PinLimits, AnAnswerBelow15BytesFailsAsARefusedOne) {
    expectSelections();
    card.expect(getDataOfReference11, std::string(fourteenBytes) + "9000");
    EXPECT_EQ(textOfThrownPointer([&] { operations.readPinProperties(PinId::user); }),
              "Failed to read PIN properties.");
    EXPECT_EQ(log.output(), failedToRead);
}

TEST_F(PinLimits, AnAnswerOf15BytesIsEnough) {
    expectSelections();
    card.expect(getDataOfReference11, std::string(fourteenBytes) + "0F 9000");
    EXPECT_EQ(operations.readPinProperties(PinId::user), (std::pair<BYTE, BYTE>{0x0C, 0x0F}));
}

TEST_F(PinLimits, AnAnswerWithoutDataIsAnOptionalAccessFailure) {
    expectSelections();
    card.expect(getDataOfReference11, "9000");
    EXPECT_THROW(operations.readPinProperties(PinId::user), std::bad_optional_access);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(PinLimits, APinIdWithoutReferenceFailsBehindTheApplication) {
    card.expect(selectApplication, "9000");
    EXPECT_THROW(operations.readPinProperties(static_cast<PinId>(5)), std::bad_optional_access);
}

TEST_F(PinLimits, SelectionErrorsPassAsPointers) {
    card.expect(selectApplication, "6A82");
    EXPECT_EQ(textOfThrownPointer([&] { operations.readPinProperties(PinId::user); }),
              "Failed to select FINEID application.");
    card.expect(selectApplication, "9000").expect(selectRootCommand, "6A82");
    EXPECT_EQ(textOfThrownPointer([&] { operations.readPinProperties(PinId::user); }),
              "Failed to select root.");
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(PinLimits, ATransportFailureOfGetDataPassesUnchanged) {
    expectSelections();
    card.expectFailure(getDataOfReference11, SCARD_W_REMOVED_CARD);
    try {
        operations.readPinProperties(PinId::user);
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), SCARD_W_REMOVED_CARD);
    }
}

TEST_F(PinLimits, ALengthAtEitherLimitIsValid) {
    const std::pair<std::uint32_t, bool> cases[] = {{3, false}, {4, true}, {12, true}, {13, false}};
    for (const auto& [length, valid] : cases) {
        expectLimitsByGetData(card, "11", 4, 12);
        EXPECT_EQ(operations.isPinLengthValid(PinId::user, length), valid) << length;
    }
}

TEST_F(PinLimits, ALengthOf256StillCostsTheGetData) {
    expectLimitsByGetData(card, "11", 0, 255);
    EXPECT_FALSE(operations.isPinLengthValid(PinId::user, 256));
    EXPECT_TRUE(card.done());
    expectLimitsByGetData(card, "11", 0, 255);
    EXPECT_TRUE(operations.isPinLengthValid(PinId::user, 255));
}

}  // namespace
}  // namespace KelmoraID
