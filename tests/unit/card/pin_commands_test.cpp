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

constexpr const char* root = "00A4 000C 02 3F00 00";
constexpr const char* esign = "00A4 010C 02 5016 00";

TEST(PinCommands, VerifyTheFirstPinWithoutAnySelection) {
    TracedCard traced;
    traced.line("verifyPIN1").exchange("0020 0091 04 31323334 00", "63C2");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    EXPECT_EQ(handler.verifyPIN1(bytes("31323334")).Sw1Sw2(), 0x63C2);
    EXPECT_EQ(log.output(), traced.lines());
}

TEST(PinCommands, VerifyTheSecondPinInTheEsignDirectory) {
    TracedCard traced;
    traced.line("verifyPIN2").line("selectRootDir").exchange(root, "9000").exchange(esign, "9000");
    traced.exchange("0020 0095 03 353637 00", "9000");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    EXPECT_TRUE(handler.verifyPIN2(bytes("353637")).success());
    EXPECT_EQ(log.output(), traced.lines());
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(PinCommands, ReportAnUnselectableRootThoughTheTraceIsOff) {
    ScriptedCard card;
    card.expect(root, "6A82");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    EXPECT_EQ(handler.verifyPIN2(bytes("353637")).Sw1Sw2(), 0x6A82);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "On selecting root MF directory: 6a82"}}));
}

// No blank between the words and the number.
TEST(PinCommands, ReportAnUnselectableEsignDirectoryThoughTheTraceIsOff) {
    ScriptedCard card;
    card.expect(root, "9000").expect(esign, "6A86");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    EXPECT_EQ(handler.verifyPIN2(bytes("353637")).Sw1Sw2(), 0x6A86);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "On selecting ESIGN directory6a86"}}));
}

}  // namespace
}  // namespace KelmoraID
