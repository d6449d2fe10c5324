#include <gtest/gtest.h>

#include "card/card_transaction_handler.h"
#include "unit/card/trace_lines.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLines;
using testing::ScriptedCard;
using testing::TracedCard;

ApduResult selectDF(std::string_view path) {
    return CardTransactionHandler(ScriptedCard::handle).selectDF(bytes(path));
}

TEST(DirectorySelection, WalksIdentifierByIdentifierOnACardThatTakesTheFirstForm) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "9000").expect("00A4 0104 02 5016 00", "6200 9000");
    const ApduResult result = selectDF("3F00 5016");
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("6200"));
}

TEST(DirectorySelection, TriesTheWholePathAfter6A86) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "6A86").expect("00A4 0904 04 3F005016 00", "9000");
    EXPECT_TRUE(selectDF("3F00 5016").success());
}

TEST(DirectorySelection, WalksFromTheRootAfter6A86And6A82Or6A86) {
    for (const char* refusal : {"6A82", "6A86"}) {
        ScriptedCard card;
        card.expect("00A4 0104 02 3F00 00", "6A86").expect("00A4 0904 04 3F005016 00", refusal);
        card.expect("00A4 0004 02 3F00 00", "9000").expect("00A4 0004 02 5016 00", "9000");
        EXPECT_TRUE(selectDF("3F00 5016").success()) << refusal;
    }
}

TEST(DirectorySelection, GoesStraightToTheWalkFromTheRootAfter6A82) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "6A82");
    card.expect("00A4 0004 02 3F00 00", "9000").expect("00A4 0004 02 5016 00", "9000");
    EXPECT_TRUE(selectDF("3F00 5016").success());
}

TEST(DirectorySelection, EndsAtAnyOtherStatusWordOfTheFirstForm) {
    for (const char* refusal : {"6982", "6A88", "6A84", "6D00", "6A80", "6B82", "6283"}) {
        ScriptedCard card;
        card.expect("00A4 0104 02 3F00 00", refusal);
        const ApduResult result = selectDF("3F00 5016");
        EXPECT_EQ(ByteVector({result.SW1, result.SW2}), bytes(refusal));
        EXPECT_FALSE(result.success());
    }
}

TEST(DirectorySelection, EndsAtAnyOtherStatusWordOfTheSecondForm) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "6A86").expect("00A4 0904 04 3F005016 00", "6982");
    EXPECT_EQ(selectDF("3F00 5016").Sw1Sw2(), 0x6982);
}

TEST(DirectorySelection, EndsAtTheFirstRefusalOfTheThirdForm) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "6A82").expect("00A4 0004 02 3F00 00", "6A86");
    EXPECT_EQ(selectDF("3F00 5016").Sw1Sw2(), 0x6A86);
}

TEST(DirectorySelection, TriesTheWholePathAfter6A86OnTheSecondIdentifier) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "9000").expect("00A4 0104 02 5016 00", "6A86");
    card.expect("00A4 0904 04 3F005016 00", "9000");
    EXPECT_TRUE(selectDF("3F00 5016").success());
}

TEST(DirectorySelection, SelectsAFinalIdentifierOfOneByteInAnOddPath) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "9000").expect("00A4 0104 01 50 00", "6A82");
    card.expect("00A4 0004 02 3F00 00", "9000").expect("00A4 0004 01 50 00", "9000");
    EXPECT_TRUE(selectDF("3F00 50").success());
}

TEST(DirectorySelection, RepeatsTheWholeLadderForTheSamePath) {
    ScriptedCard card;
    for (int i = 0; i < 2; ++i) {
        card.expect("00A4 0104 02 3F00 00", "6A86").expect("00A4 0904 02 3F00 00", "6A86");
        card.expect("00A4 0004 02 3F00 00", "9000");
    }
    CardTransactionHandler handler(ScriptedCard::handle);
    EXPECT_TRUE(handler.selectDF(bytes("3F00")).success());
    EXPECT_TRUE(handler.selectDF(bytes("3F00")).success());
}

TEST(DirectorySelection, EndsAtATransportFailure) {
    LogCapture log;
    ScriptedCard card;
    card.expectFailure("00A4 0104 02 3F00 00", SCARD_W_REMOVED_CARD);
    const ApduResult result = selectDF("3F00 5016");
    EXPECT_EQ(result.transportErrorCode, SCARD_E_UNEXPECTED);
    EXPECT_FALSE(result.success());
}

TEST(DirectorySelection, SendsNothingForAnEmptyPathAndIsNoSuccess) {
    ScriptedCard card;
    const ApduResult result = selectDF("");
    EXPECT_FALSE(result.success());
    EXPECT_EQ(result.transportErrorCode, 0);
}

TEST(DirectorySelection, TracesEveryTryOfTheLadder) {
    TracedCard traced;
    traced.line("selectDF")
        .line("Checking Sote and ORG cards.")
        .exchange("00A4 0104 02 3F00 00", "9000")
        .line(
            "(1) SOTE&ORG for: Identifier: '3f 0 '; P1: '0x1'; P2: '0x4'; "
            "result.success: 'true'; result.Sw1Sw2: '0x9000'.")
        .line("Checking Sote and ORG cards.")
        .exchange("00A4 0104 02 5016 00", "6A86")
        .line(
            "(1) SOTE&ORG for: Identifier: '50 16 '; P1: '0x1'; P2: '0x4'; "
            "result.success: 'false'; result.Sw1Sw2: '0x6a86'.")
        .line("Checking \"our test cards\" or VRK cards.")
        .exchange("00A4 0904 04 3F005016 00", "6A82")
        .line(
            "(2) our&VRK: Identifier: '3f 0 50 16 '; P1: '0x9'; P2: '0x4'; "
            "result.success: 'false'; result.Sw1Sw2: '0x6a82'.")
        .line("Checking Citizen or Cosmo X cards.")
        .exchange("00A4 0004 02 3F00 00", "9000")
        .line(
            "(3) Citizen/CosmoX for: Identifier: '3f 0 '; P1: '0x0'; P2: '0x4'; "
            "result.success: 'true'; result.Sw1Sw2: '0x9000'.")
        .exchange("00A4 0004 02 5016 00", "9000")
        .line(
            "(3) Citizen/CosmoX for: Identifier: '50 16 '; P1: '0x0'; P2: '0x4'; "
            "result.success: 'true'; result.Sw1Sw2: '0x9000'.")
        .line("selectDF finished.");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    handler.selectDF(bytes("3F00 5016"));
    EXPECT_EQ(log.output(), traced.lines());
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(DirectorySelection, SelectsTheRootDirectory) {
    TracedCard traced;
    traced.line("selectRootDir").exchange("00A4 000C 02 3F00 00", "9000");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    EXPECT_TRUE(handler.selectRootDir().success());
    EXPECT_EQ(log.output(), traced.lines());
}

TEST(DirectorySelection, LogsNothingWhileTheTraceIsOff) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "6982");
    LogCapture log;
    selectDF("3F00");
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
