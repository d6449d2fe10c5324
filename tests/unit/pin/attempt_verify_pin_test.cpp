#include "pin/attempt_verify_pin.h"

#include <optional>
#include <system_error>

#include "pin/pin_fixture.h"

namespace KelmoraID {
namespace {

using namespace testing;

const LogLines refusedLength{{"DEBUG", "lambda attemptVerifyPin: Error."}};
constexpr const char* defaultsLine =
    "lambda attemptVerifyPin: Error: Could not get PIN min and/or max values from card. Using "
    "default values.";
const LogLines lengthTestFailed{
    {"CardAuthenticateEx", "Pin length validation failed with an unknown exception."}};

class AttemptVerifyPinTest : public ::testing::Test {
protected:
    PlatformCallsGuard guard;
    ScriptedCard card;
    LogCapture log;

    // One attempt with digits from "1" on, on a card of that type.
    std::optional<PinVerifyResult> attempt(CardType cardType, PinId pinId, DWORD length,
                                           bool hasPin = true) {
        const AcquiredPinCard acquired(cardType);
        CardOperations operations(ScriptedCard::handle, cardType);
        const AttemptVerifyPin attemptVerifyPin(acquired.context, acquired.data, pinId, operations);
        ByteVector pin;
        for (DWORD i = 0; i < length; ++i) pin.push_back(static_cast<BYTE>('1' + i % 9));
        return attemptVerifyPin(hasPin ? pin.data() : nullptr, length);
    }
};

TEST_F(AttemptVerifyPinTest, SendsTwoSelectionsGetDataASelectionAndVerifyOnCardType3) {
    card.expect(selectApplication, "9000");
    card.expect(selectRootCommand, "9000");
    card.expect("00 CB 3F FF 0B 4D09 7007 BF8111 03 7F4180 00", pinProperties(4, 12));
    card.expect(selectRootCommand, "9000");
    card.expect("00 20 00 11 06 313233343536", "9000");
    const auto result = attempt(CardType::type3, PinId::user, 6);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, PinVerifyResult::verified);
    EXPECT_EQ(result->attemptsRemaining, -1);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(AttemptVerifyPinTest, ReadsTheLimitsOfTheSignaturePinInEsignOnCardType3) {
    card.expect(selectApplication, "9000");
    card.expect(selectRootCommand, "9000").expect(selectEsignAsChild, "9000");
    card.expect("00 CB 3F FF 0B 4D09 7007 BF8195 03 7F4180 00", pinProperties(6, 6));
    card.expect(selectRootCommand, "9000").expect(selectEsignAsChild, "9000");
    card.expect("00 20 00 95 06 313233343536", "63C2");
    const auto result = attempt(CardType::type3, PinId::signature, 6);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, PinVerifyResult::wrong);
    EXPECT_EQ(result->attemptsRemaining, 2);
}

TEST_F(AttemptVerifyPinTest, PadsASixDigitPinToTwelveBytesOnCardsWithASecondSigningKey) {
    for (const CardType cardType : {CardType::type4, CardType::type5, CardType::type7}) {
        expectLimitsInDirectories(card, {{4, 12}, {6, 12}});
        card.expect(selectRootCommand, "9000");
        card.expect("00 20 00 11 0C 313233343536 000000000000", "9000");
        EXPECT_TRUE(attempt(cardType, PinId::user, 6));
    }
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(AttemptVerifyPinTest, SendsTheSamePinAsSixBytesOnCardType6) {
    expectLimitsByGetData(card, "01", 4, 12);
    card.expect(selectRootCommand, "9000");
    card.expect("00 20 00 81 06 313233343536", "9000");
    EXPECT_TRUE(attempt(CardType::type6, PinId::user, 6));
}

TEST_F(AttemptVerifyPinTest, SendsThePinAsItIsOnCardType8WithLimitsFromTheDirectories) {
    expectLimitsInDirectories(card, {{4, 8}, {6, 8}});
    card.expect(selectRootCommand, "9000");
    card.expect("00 20 00 03 06 313233343536", "9000");
    EXPECT_TRUE(attempt(CardType::type8, PinId::user, 6));
}

TEST_F(AttemptVerifyPinTest, TakesTheSecondEntryForEveryPinIdButTheFirst) {
    struct Row {
        PinId pinId;
        const char* verify;
    };
    const Row rows[] = {{PinId::administrator, "00 20 00 12 07 31323334353637"},
                        {PinId::unblock, "00 20 00 12 07 31323334353637"},
                        {PinId::signature, "00 20 00 04 07 31323334353637"}};
    for (const Row& row : rows) {
        expectLimitsInDirectories(card, {{4, 4}, {7, 7}});
        card.expect(selectRootCommand, "9000");
        if (row.pinId == PinId::signature) card.expect(selectEsignAsChild, "9000");
        card.expect(row.verify, "9000");
        EXPECT_TRUE(attempt(CardType::type8, row.pinId, 7));
    }
    expectLimitsInDirectories(card, {{4, 4}, {7, 7}});
    EXPECT_FALSE(attempt(CardType::type8, PinId::user, 7));
    EXPECT_EQ(log.output(), refusedLength);
}

TEST_F(AttemptVerifyPinTest, AcceptsExactlyTheMinimumAndExactlyTheMaximumOfTheDirectories) {
    expectLimitsInDirectories(card, {{5, 8}});
    EXPECT_FALSE(attempt(CardType::type8, PinId::user, 4));
    expectLimitsInDirectories(card, {{5, 8}});
    card.expect(selectRootCommand, "9000").expect("00 20 00 03 05 3132333435", "9000");
    EXPECT_TRUE(attempt(CardType::type8, PinId::user, 5));
    expectLimitsInDirectories(card, {{5, 8}});
    card.expect(selectRootCommand, "9000").expect("00 20 00 03 08 3132333435363738", "9000");
    EXPECT_TRUE(attempt(CardType::type8, PinId::user, 8));
    expectLimitsInDirectories(card, {{5, 8}});
    EXPECT_FALSE(attempt(CardType::type8, PinId::user, 9));
}

TEST_F(AttemptVerifyPinTest, AcceptsExactlyTheMinimumAndExactlyTheMaximumOfGetData) {
    expectLimitsByGetData(card, "11", 5, 8);
    EXPECT_FALSE(attempt(CardType::type3, PinId::user, 4));
    EXPECT_EQ(log.output(), refusedLength);
    expectLimitsByGetData(card, "11", 5, 8);
    card.expect(selectRootCommand, "9000").expect("00 20 00 11 05 3132333435", "9000");
    EXPECT_TRUE(attempt(CardType::type3, PinId::user, 5));
    expectLimitsByGetData(card, "11", 5, 8);
    card.expect(selectRootCommand, "9000").expect("00 20 00 11 08 3132333435363738", "9000");
    EXPECT_TRUE(attempt(CardType::type3, PinId::user, 8));
    EXPECT_EQ(log.output(), LogLines{});
    expectLimitsByGetData(card, "11", 5, 8);
    EXPECT_FALSE(attempt(CardType::type3, PinId::user, 9));
    EXPECT_EQ(log.output(), refusedLength);
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(AttemptVerifyPinTest, TakesTheDefaultLimitsWhenALimitInTheDirectoriesIs0) {
    const std::pair<int, int> unusable[] = {{0, 8}, {4, 0}};
    for (const auto& limits : unusable) {
        expectLimitsInDirectories(card, {limits});
        card.expect(selectRootCommand, "9000");
        card.expect("00 20 00 03 0C 313233343536373839313233", "9000");
        EXPECT_TRUE(attempt(CardType::type8, PinId::user, 12));
        EXPECT_EQ(log.output(), (LogLines{{"DEBUG", defaultsLine}}));
    }
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(AttemptVerifyPinTest, TakesTheDefaultLimitsWhenTheDirectoriesCannotBeRead) {
    const auto expectUnreadable = [&] {
        card.expect("00 A4 04 00 0C A0000000 63504B43532D3135 00", "9000");
        card.expect("00 A4 01 04 02 3F00 00", "6982");
    };
    const LogLines refusedByDefaults{{"DEBUG", defaultsLine},
                                     {"DEBUG", "lambda attemptVerifyPin: Error."}};
    expectUnreadable();
    EXPECT_FALSE(attempt(CardType::type8, PinId::user, 3));
    EXPECT_EQ(log.output(), refusedByDefaults);
    expectUnreadable();
    EXPECT_FALSE(attempt(CardType::type8, PinId::user, 13));
    EXPECT_EQ(log.output(), refusedByDefaults);
    expectUnreadable();
    card.expect(selectRootCommand, "9000").expect("00 20 00 03 04 31323334", "9000");
    EXPECT_TRUE(attempt(CardType::type8, PinId::user, 4));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", defaultsLine}}));
}

TEST_F(AttemptVerifyPinTest, AsksForTheLimitsBeforeItRefusesANullPin) {
    expectLimitsByGetData(card, "11", 0, 12);
    EXPECT_FALSE(attempt(CardType::type3, PinId::user, 6, false));
    EXPECT_EQ(log.output(), refusedLength);
    expectLimitsInDirectories(card, {{4, 12}});
    EXPECT_FALSE(attempt(CardType::type5, PinId::user, 6, false));
    EXPECT_EQ(log.output(), refusedLength);
}

TEST_F(AttemptVerifyPinTest, APinOf256BytesStillCostsTheGetData) {
    expectLimitsByGetData(card, "11", 0, 255);
    EXPECT_FALSE(attempt(CardType::type3, PinId::user, 256));
    EXPECT_EQ(log.output(), refusedLength);
}

TEST_F(AttemptVerifyPinTest, APinAboveTwelveBytesIsALengthErrorWhereItIsPadded) {
    expectLimitsInDirectories(card, {{4, 16}});
    try {
        attempt(CardType::type5, PinId::user, 13);
        FAIL() << "nothing was thrown";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "vector too long");
    }
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(AttemptVerifyPinTest, APinAboveTwelveBytesGoesAsItIsElsewhere) {
    expectLimitsInDirectories(card, {{4, 16}});
    card.expect(selectRootCommand, "9000");
    card.expect("00 20 00 03 0D 31323334353637383931323334", "9000");
    EXPECT_TRUE(attempt(CardType::type8, PinId::user, 13));
}

TEST_F(AttemptVerifyPinTest, APinOfTwelveBytesIsSentWithoutPadding) {
    expectLimitsInDirectories(card, {{4, 12}});
    card.expect(selectRootCommand, "9000");
    card.expect("00 20 00 11 0C 313233343536373839313233", "9000");
    EXPECT_TRUE(attempt(CardType::type5, PinId::user, 12));
}

TEST_F(AttemptVerifyPinTest, ARefusedGetDataSurfacesAsFailedToVerifyPin) {
    card.expect(selectApplication, "9000").expect(selectRootCommand, "9000");
    card.expect("00 CB 3F FF 0B 4D09 7007 BF8111 03 7F4180 00", "6A88");
    EXPECT_EQ(textOfThrownPointer([&] { attempt(CardType::type3, PinId::user, 6); }),
              "Failed to verify PIN.");
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "Error: Failed to read PIN properties. Exception."}}));
    EXPECT_EQ(log.file(), lengthTestFailed);
}

TEST_F(AttemptVerifyPinTest, ARefusedSelectionWithinTheLengthTestSurfacesAsFailedToVerifyPin) {
    card.expect(selectApplication, "6A82");
    EXPECT_EQ(textOfThrownPointer([&] { attempt(CardType::type3, PinId::user, 6); }),
              "Failed to verify PIN.");
    EXPECT_EQ(log.file(), lengthTestFailed);
    card.expect(selectApplication, "9000").expect(selectRootCommand, "6A82");
    EXPECT_EQ(textOfThrownPointer([&] { attempt(CardType::type3, PinId::user, 6); }),
              "Failed to verify PIN.");
    EXPECT_EQ(log.file(), lengthTestFailed);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(AttemptVerifyPinTest, ATransportFailureWithinTheLengthTestSurfacesAsFailedToVerifyPin) {
    card.expect(selectApplication, "9000");
    card.expectFailure(selectRootCommand, SCARD_W_REMOVED_CARD);
    EXPECT_EQ(textOfThrownPointer([&] { attempt(CardType::type3, PinId::user, 6); }),
              "Failed to verify PIN.");
    LogLines lines = log.file();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].scope, "Transmit");
    EXPECT_EQ(lines[1], lengthTestFailed[0]);
}

TEST_F(AttemptVerifyPinTest, ATransportFailureOfVerifyPassesUnchanged) {
    expectLimitsByGetData(card, "11", 4, 12);
    card.expect(selectRootCommand, "9000");
    card.expectFailure("00 20 00 11 06 313233343536", SCARD_W_REMOVED_CARD);
    try {
        attempt(CardType::type3, PinId::user, 6);
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), SCARD_W_REMOVED_CARD);
    }
}

TEST_F(AttemptVerifyPinTest, ARefusedSelectionBeforeVerifyThrowsItsOwnPointer) {
    expectLimitsByGetData(card, "11", 4, 12);
    card.expect(selectRootCommand, "6A82");
    EXPECT_EQ(textOfThrownPointer([&] { attempt(CardType::type3, PinId::user, 6); }),
              "Failed to select root.");
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(AttemptVerifyPinTest, HasNoValueWhenTheCardAnswers6700) {
    expectLimitsByGetData(card, "11", 4, 12);
    card.expect(selectRootCommand, "9000").expect("00 20 00 11 06 313233343536", "6700");
    EXPECT_FALSE(attempt(CardType::type3, PinId::user, 6));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(AttemptVerifyPinTest, GoesByTheContextForPaddingAndLimitsNotByTheCardType) {
    AcquiredPinCard acquired(CardType::type3);
    acquired.context.hasSecondSignCert = true;
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    const PinId pinId = PinId::user;
    const AttemptVerifyPin attemptVerifyPin(acquired.context, acquired.data, pinId, operations);
    expectLimitsInDirectories(card, {{4, 12}});
    card.expect(selectRootCommand, "9000");
    card.expect("00 20 00 11 0C 31323334 0000000000000000", "9000");
    EXPECT_TRUE(attemptVerifyPin(bytes("31323334").data(), 4));
}

TEST_F(AttemptVerifyPinTest, SendsThePinBytesUnchanged) {
    const AcquiredPinCard acquired(CardType::type3);
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    const PinId pinId = PinId::user;
    const AttemptVerifyPin attemptVerifyPin(acquired.context, acquired.data, pinId, operations);
    expectLimitsByGetData(card, "11", 4, 12);
    card.expect(selectRootCommand, "9000").expect("00 20 00 11 05 C3A40061FF", "9000");
    const ByteVector pin = bytes("C3A40061FF");
    EXPECT_TRUE(attemptVerifyPin(pin.data(), 5));
    EXPECT_EQ(pin, bytes("C3A40061FF"));
}

}  // namespace
}  // namespace KelmoraID
