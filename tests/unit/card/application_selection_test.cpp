#include <gtest/gtest.h>

#include "card/card_transaction_handler.h"
#include "unit/card/trace_lines.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using testing::ScriptedCard;
using testing::TracedCard;

constexpr const char* fineid = "00A4 0400 0C A000000063504B43532D3135 00";
constexpr const char* cosmoX = "00A4 0400 10 A000000077030C60000000FE00000500 00";

TEST(ApplicationSelection, DoesNotTryTheSecondIdentifierWhereTheFirstIsTaken) {
    ScriptedCard card;
    card.expect(fineid, "6F00 9000");
    const ApduResult result =
        CardTransactionHandler(ScriptedCard::handle).selectFINEIDApplication();
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, testing::bytes("6F00"));
}

TEST(ApplicationSelection, TriesTheSecondIdentifierAfterAnyRefusalOfTheFirst) {
    for (const char* refusal : {"6A82", "6A86", "6982", "6283", "6D00", "63C0", "9001"}) {
        ScriptedCard card;
        card.expect(fineid, refusal).expect(cosmoX, "9000");
        CardTransactionHandler handler(ScriptedCard::handle);
        EXPECT_TRUE(handler.selectFINEIDApplication().success()) << refusal;
    }
}

TEST(ApplicationSelection, TriesTheSecondIdentifierAfterATransportFailureToo) {
    testing::LogCapture log;
    ScriptedCard card;
    card.expectFailure(fineid, SCARD_W_REMOVED_CARD).expect(cosmoX, "9000");
    EXPECT_TRUE(CardTransactionHandler(ScriptedCard::handle).selectFINEIDApplication().success());
}

TEST(ApplicationSelection, ReturnsTheResultOfTheLastTry) {
    ScriptedCard card;
    card.expect(fineid, "6A82").expect(cosmoX, "6982");
    const ApduResult result =
        CardTransactionHandler(ScriptedCard::handle).selectFINEIDApplication();
    EXPECT_EQ(result.Sw1Sw2(), 0x6982);
    EXPECT_EQ(result.transportErrorCode, SCARD_W_SECURITY_VIOLATION);
}

TEST(ApplicationSelection, RemembersNothingFromOneSelectionToTheNext) {
    ScriptedCard card;
    card.expect(fineid, "6A82").expect(cosmoX, "9000");
    card.expect(fineid, "6A82").expect(cosmoX, "9000");
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.selectFINEIDApplication();
    handler.selectFINEIDApplication();
}

TEST(ApplicationSelection, TracesASuccess) {
    TracedCard traced;
    traced.application();
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    handler.selectFINEIDApplication();
    EXPECT_EQ(log.output(), traced.lines());
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(ApplicationSelection, TracesBothTriesAndTheFailure) {
    TracedCard traced;
    traced.line("selectFINEIDApplication")
        .exchange(fineid, "6A86")
        .line(
            "Original selectApplication: P1: '0x4'; P2: '0x0'; result.success: 'false'; "
            "result.Sw1Sw2: '0x6a86'.")
        .exchange(cosmoX, "6A82")
        .line(
            "Cosmo X selectApplication: P1: '0x4'; P2: '0x0'; result.success: 'false'; "
            "result.Sw1Sw2: '0x6a82'.")
        .line("selectFINEIDApplication failed.")
        .line("selectFINEIDApplication failed. Error code: 0");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    handler.selectFINEIDApplication();
    EXPECT_EQ(log.output(), traced.lines());
}

// The transport error code is a signed number here.
TEST(ApplicationSelection, TracesTheCodeOfTheStatusWordAsASignedNumber) {
    ScriptedCard card;
    card.expect(fineid, "6A82").expect(cosmoX, "6982");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    handler.selectFINEIDApplication();
    EXPECT_EQ(log.output().back(),
              (testing::LogLine{"DEBUG", "selectFINEIDApplication failed. Error code: -7fefff96"}));
}

}  // namespace
}  // namespace KelmoraID
