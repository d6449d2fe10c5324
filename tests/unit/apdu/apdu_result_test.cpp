#include "apdu/apdu_result.h"

#include <gtest/gtest.h>

#include "apdu/apdu_commands.h"
#include "support/log_capture.h"
#include "support/scripted_card.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLines;

ApduResult resultOf(std::string_view reply) {
    ApduResult result;
    result.applyReply(bytes(reply));
    return result;
}

TEST(ApduResult, OfACommandCopiesItAndIsEmptyOtherwise) {
    const ApduResult result(apduCommands::selectRootDir());
    EXPECT_EQ(result.command.encode(), bytes("00A4 000C 02 3F00 00"));
    EXPECT_EQ(result.transportErrorCode, 0);
    EXPECT_EQ(result.SW1, 0);
    EXPECT_EQ(result.SW2, 0);
    EXPECT_EQ(result.responseData, ByteVector{});
    EXPECT_EQ(result.status.text(), "");
    EXPECT_FALSE(result.success());
    EXPECT_TRUE(result.isError());
}

TEST(ApduResult, OfAPcscCodeCarriesTheCodeAlone) {
    const ApduResult result(SCARD_W_REMOVED_CARD);
    EXPECT_EQ(result.transportErrorCode, SCARD_W_REMOVED_CARD);
    EXPECT_EQ(result.command.encode(), bytes("00 00 00 00"));
    EXPECT_EQ(result.responseData, ByteVector{});
    EXPECT_TRUE(result.isError());
}

TEST(ApduResult, TakesTheStatusBytesAndAppendsTheDataOfAReply) {
    LogCapture log;
    ApduResult result;
    result.applyReply(bytes("AA BB 61 02"));
    result.applyReply(bytes("CC DD 90 00"));
    EXPECT_EQ(result.responseData, bytes("AA BB CC DD"));
    EXPECT_EQ(result.SW1, 0x90);
    EXPECT_EQ(result.SW2, 0x00);
    EXPECT_EQ(result.Sw1Sw2(), 0x9000);
    EXPECT_EQ(result.status.text(), "Command processed without error");
    EXPECT_TRUE(result.success());
    EXPECT_FALSE(result.isError());
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(ApduResult, AppendsNothingOfAReplyOfExactlyTwoBytes) {
    EXPECT_EQ(resultOf("90 00").responseData, ByteVector{});
    EXPECT_TRUE(resultOf("90 00").success());
}

TEST(ApduResult, KeepsWhatStandsOnAReplyOfFewerThanTwoBytes) {
    for (const char* reply : {"", "90"}) {
        LogCapture log;
        ApduResult result = resultOf("AA 61 10");
        result.applyReply(bytes(reply));
        EXPECT_EQ(result.transportErrorCode, SCARD_E_UNEXPECTED);
        EXPECT_EQ(result.Sw1Sw2(), 0x6110);
        EXPECT_EQ(result.responseData, bytes("AA"));
        EXPECT_EQ(result.status.text(), "Data bytes still waiting in the card: 16");
        EXPECT_EQ(log.output(),
                  (LogLines{{"ERROR", "APDU response bytes contained less than 2 bytes"}}));
    }
}

TEST(ApduResult, ReplacesTheTransportErrorCodeByThatOfTheStatusWord) {
    const ApduResult result = resultOf("6A 88");
    EXPECT_EQ(static_cast<std::uint32_t>(result.transportErrorCode), status::fileNotFound);
    EXPECT_FALSE(result.success());
    EXPECT_TRUE(result.isError());

    ApduResult failed(SCARD_W_REMOVED_CARD);
    failed.applyReply(bytes("90 00"));
    EXPECT_EQ(failed.transportErrorCode, 0);
    EXPECT_TRUE(failed.success());
}

TEST(ApduResult, IsNoSuccessOnAnUnknownStatusWordThoughItsCodeIsZero) {
    const ApduResult result = resultOf("6A 82");
    EXPECT_EQ(result.transportErrorCode, 0);
    EXPECT_FALSE(result.success());
    EXPECT_TRUE(result.isError());
}

TEST(ApduResult, IsNoSuccessOn9000WithATransportErrorCode) {
    ApduResult result = resultOf("90 00");
    result.transportErrorCode = SCARD_E_UNEXPECTED;
    EXPECT_FALSE(result.success());
    EXPECT_TRUE(result.isError());
}

TEST(ApduResult, CountsTheBytesWaitingBySw2OfA61) {
    EXPECT_EQ(resultOf("61 10").bytesWaiting(), 16U);
    EXPECT_EQ(resultOf("61 FF").bytesWaiting(), 255U);
    EXPECT_EQ(resultOf("61 00").bytesWaiting(), 256U);
    EXPECT_EQ(resultOf("90 00").bytesWaiting(), 0U);
    EXPECT_EQ(resultOf("6C 20").bytesWaiting(), 0U);
}

TEST(ApduResult, GivesTheOutcomeOfAVerify) {
    ApduResult blocked = resultOf("69 84");
    EXPECT_EQ(blocked.verifyOutcome(), 0);
    EXPECT_EQ(static_cast<std::uint32_t>(blocked.transportErrorCode), status::blockedPin);

    ApduResult wrong = resultOf("63 C2");
    EXPECT_EQ(wrong.verifyOutcome(), 2);
    EXPECT_EQ(static_cast<std::uint32_t>(wrong.transportErrorCode), status::wrongPin);

    ApduResult last = resultOf("63 C0");
    EXPECT_EQ(last.verifyOutcome(), 0);
    EXPECT_EQ(static_cast<std::uint32_t>(last.transportErrorCode), status::wrongPin);

    for (const char* word : {"90 00", "63 00", "69 83", "63 D2"}) {
        ApduResult other = resultOf(word);
        EXPECT_EQ(other.verifyOutcome(), -1) << word;
        EXPECT_EQ(other.transportErrorCode, 0) << word;
    }
}

}  // namespace
}  // namespace KelmoraID
