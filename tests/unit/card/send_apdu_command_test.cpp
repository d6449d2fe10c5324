#include <gtest/gtest.h>

#include "apdu/apdu_commands.h"
#include "card/card_transaction_handler.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLine;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;
using testing::ScriptedCard;

const LogLine shortReply{"ERROR", "APDU response bytes contained less than 2 bytes"};

constexpr const char* root = "00A4 000C 02 3F00 00";

ApduResult sendRootSelection(bool trace = false) {
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(trace);
    ApduResult result(apduCommands::selectRootDir());
    handler.SendApduCommand(result);
    return result;
}

std::vector<DWORD> announcedLengths(const ScriptedCard& card) {
    std::vector<DWORD> lengths;
    for (const auto& exchange : card.exchanges())
        lengths.push_back(exchange.announcedReceiveLength);
    return lengths;
}

TEST(SendApduCommand, AnnouncesABufferOf510BytesAndTakesTheReply) {
    ScriptedCard card;
    card.expect(root, "AABBCC 9000");
    LogCapture log;
    const ApduResult result = sendRootSelection();
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("AABBCC"));
    EXPECT_EQ(result.status.text(), "Command processed without error");
    EXPECT_EQ(announcedLengths(card), std::vector<DWORD>{510});
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(SendApduCommand, Answers6100ByGetResponseWithLe00AndABufferOf258) {
    ScriptedCard card;
    card.expect(root, "6100").expect("00C0 0000 00", "AABB 9000");
    const ApduResult result = sendRootSelection();
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("AABB"));
    EXPECT_EQ(announcedLengths(card), (std::vector<DWORD>{510, 258}));
}

TEST(SendApduCommand, AnnouncesTheCountAndTwoBytesMoreForAGetResponse) {
    ScriptedCard card;
    card.expect(root, "6103").expect("00C0 0000 03", "AABBCC 61FF");
    card.expect("00C0 0000 FF", "DD 9000");
    sendRootSelection();
    EXPECT_EQ(announcedLengths(card), (std::vector<DWORD>{510, 5, 257}));
}

TEST(SendApduCommand, JoinsTheDataOfChained61AnswersInTheOrderOfArrival) {
    ScriptedCard card;
    card.expect(root, "A1A2 6102")
        .expect("00C0 0000 02", "B1B2 6101")
        .expect("00C0 0000 01", "C1 9000");
    const ApduResult result = sendRootSelection();
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("A1A2 B1B2 C1"));
    // The record's command stays the one sent first.
    EXPECT_EQ(result.command.encode(), bytes(root));
}

TEST(SendApduCommand, TakesStatusRowAndCodeOfTheLastReply) {
    ScriptedCard card;
    card.expect(root, "AA 6101").expect("00C0 0000 01", "6982");
    const ApduResult result = sendRootSelection();
    EXPECT_EQ(result.Sw1Sw2(), 0x6982);
    EXPECT_EQ(result.status.text(), "Security status not satisfied");
    EXPECT_EQ(result.transportErrorCode, SCARD_W_SECURITY_VIOLATION);
    EXPECT_EQ(result.responseData, bytes("AA"));
    EXPECT_FALSE(result.success());
}

TEST(SendApduCommand, EndsAt6C20WithoutSendingAgain) {
    ScriptedCard card;
    card.expect(root, "6C20");
    const ApduResult result = sendRootSelection();
    EXPECT_FALSE(result.success());
    EXPECT_EQ(result.transportErrorCode, 0);
    EXPECT_EQ(result.status.text(), "if Le > Licc = 32");
}

TEST(SendApduCommand, DoesNotReconnectToACardThatWasReset) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_RESET_CARD);
    const ApduResult result = sendRootSelection();
    EXPECT_FALSE(result.success());
    EXPECT_TRUE(card.reconnects().empty());
}

TEST(SendApduCommand, AppendsToTheDataThatStandsInTheRecord) {
    ScriptedCard card;
    card.expect(root, "BB 9000");
    CardTransactionHandler handler(ScriptedCard::handle);
    ApduResult result(apduCommands::selectRootDir());
    result.responseData = bytes("AA");
    handler.SendApduCommand(result);
    EXPECT_EQ(result.responseData, bytes("AA BB"));
}

TEST(SendApduCommand, ReportsAReplyOfFewerThanTwoBytes) {
    for (const char* reply : {"", "90"}) {
        ScriptedCard card;
        card.expect(root, reply);
        LogCapture log;
        const ApduResult result = sendRootSelection();
        EXPECT_EQ(result.transportErrorCode, SCARD_E_UNEXPECTED);
        EXPECT_EQ(result.Sw1Sw2(), 0x0000);
        EXPECT_FALSE(result.success());
        EXPECT_EQ(log.output(), LogLines{shortReply});
    }
}

// A failing call's code goes into the record, and the bytes that its length names are
// parsed as a reply all the same.
TEST(SendApduCommand, ParsesWhatAFailedCallLeftInTheBuffer) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_REMOVED_CARD, "AABB 9000");
    LogCapture log;
    const ApduResult result = sendRootSelection();
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("AABB"));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(SendApduCommand, GoesOnWithGetResponseWhereAFailedFirstCallLeftA61xx) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_REMOVED_CARD, "AA 6101").expect("00C0 0000 01", "BB 9000");
    const ApduResult result = sendRootSelection();
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("AABB"));
}

TEST(SendApduCommand, ReplacesTheCodeOfAFailedCallThatLeftNothing) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_REMOVED_CARD);
    LogCapture log;
    const ApduResult result = sendRootSelection();
    EXPECT_EQ(result.transportErrorCode, SCARD_E_UNEXPECTED);
    EXPECT_FALSE(result.success());
    EXPECT_EQ(log.output(), LogLines{shortReply});
}

TEST(SendApduCommand, ReadsZerosWhereAFailedCallLeftItsLengthAlone) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_REMOVED_CARD, "", 510);
    const ApduResult result = sendRootSelection();
    EXPECT_EQ(result.Sw1Sw2(), 0x0000);
    EXPECT_EQ(result.responseData, ByteVector(508, 0));
    EXPECT_FALSE(result.success());
}

TEST(SendApduCommand, CutsALengthBeyondTheBuffer) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_REMOVED_CARD, "AABB 9000", 0xFFFFFFFF);
    LogCapture log;
    const ApduResult result = sendRootSelection(true);
    ByteVector expected = bytes("AABB 9000");
    expected.resize(510);
    EXPECT_EQ(result.responseData, expected);
    EXPECT_EQ(result.Sw1Sw2(), 0x0000);
    EXPECT_FALSE(result.success());
    // The trace tells the length as the platform gave it.
    EXPECT_EQ(log.output().back(), (LogLine{"DEBUG", "Bytes received: 4294967295"}));
}

TEST(SendApduCommand, ParsesWhatAFailedGetResponseLeftInTheBuffer) {
    struct Row {
        const char* left;
        unsigned statusWord;
        LONG code;
        const char* data;
    };
    for (const Row& row : {Row{"EE 9000", 0x9000, 0, "AA EE"}, Row{"0000", 0x0000, 0, "AA"},
                           Row{"6A88", 0x6A88, SCARD_E_FILE_NOT_FOUND, "AA"}}) {
        SCOPED_TRACE(row.left);
        ScriptedCard card;
        card.expect(root, "AA 6101").expectFailure("00C0 0000 01", SCARD_W_REMOVED_CARD, row.left);
        LogCapture log;
        const ApduResult result = sendRootSelection();
        EXPECT_EQ(result.Sw1Sw2(), row.statusWord);
        EXPECT_EQ(result.transportErrorCode, row.code);
        EXPECT_EQ(result.responseData, bytes(row.data));
        EXPECT_EQ(result.success(), row.statusWord == 0x9000);
        EXPECT_EQ(log.output(), LogLines{});
    }
}

TEST(SendApduCommand, GoesOnWithGetResponseWhereAFailedOneLeftA61xx) {
    ScriptedCard card;
    card.expect(root, "AA 6101")
        .expectFailure("00C0 0000 01", SCARD_W_REMOVED_CARD, "BB 6102")
        .expect("00C0 0000 02", "CC 9000");
    const ApduResult result = sendRootSelection();
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("AABBCC"));
}

TEST(SendApduCommand, SendsGetResponseAgainWhereOneBringsFewerThanTwoBytes) {
    for (const LONG code : {LONG{0}, SCARD_W_REMOVED_CARD}) {
        for (const char* left : {"", "61"}) {
            ScriptedCard card;
            card.expect(root, "AA 6101")
                .expectFailure("00C0 0000 01", code, left)
                .expect("00C0 0000 01", "BB 9000");
            LogCapture log;
            const ApduResult result = sendRootSelection();
            EXPECT_TRUE(result.success());
            EXPECT_EQ(result.responseData, bytes("AABB"));
            EXPECT_EQ(log.output(), LogLines{shortReply});
        }
    }
}

TEST(SendApduCommand, GivesACardThatIsGoneUpAfter64GetResponses) {
    ScriptedCard card;
    card.expect(root, "AA 6101");
    for (int sent = 0; sent < 64; ++sent) card.expectFailure("00C0 0000 01", SCARD_W_REMOVED_CARD);
    LogCapture log;
    const ApduResult result = sendRootSelection();
    EXPECT_EQ(result.Sw1Sw2(), 0x6101);
    EXPECT_EQ(result.transportErrorCode, SCARD_E_UNEXPECTED);
    EXPECT_EQ(result.responseData, bytes("AA"));
    EXPECT_FALSE(result.success());
    EXPECT_EQ(log.output(), LogLines(64, shortReply));
}

// A card that never stops saying 61xx, with that many bytes of data each time.
ApduResult sendToEndlessCard(std::size_t dataSize) {
    platformCalls().SCardTransmit = [dataSize](SCARDHANDLE, LPCSCARD_IO_REQUEST, LPCBYTE, DWORD,
                                               LPSCARD_IO_REQUEST, LPBYTE reply, LPDWORD received) {
        std::fill_n(reply, dataSize, BYTE{0xEE});
        reply[dataSize] = 0x61;
        reply[dataSize + 1] = 0x00;
        *received = static_cast<DWORD>(dataSize + 2);
        return SCARD_S_SUCCESS;
    };
    CardTransactionHandler handler(0);
    ApduResult result(apduCommands::selectRootDir());
    handler.SendApduCommand(result);
    return result;
}

TEST(SendApduCommand, EndsAnEndlessChainAfter64GetResponses) {
    for (const std::size_t dataSize : {0, 1, 256}) {
        PlatformCallsGuard guard;
        LogCapture log;
        const ApduResult result = sendToEndlessCard(dataSize);
        EXPECT_EQ(platformCalls().counts["SCardTransmit"], 1 + 64);
        EXPECT_EQ(result.responseData.size(), 65 * dataSize);
        EXPECT_EQ(result.Sw1Sw2(), 0x6100);
        EXPECT_EQ(result.transportErrorCode, SCARD_S_SUCCESS);
        EXPECT_FALSE(result.success());
    }
}

TEST(SendApduCommand, TakesAReplyIn64PiecesMoreThanTheFirst) {
    ScriptedCard card;
    card.expect(root, "A0 6120");
    for (int piece = 1; piece < 64; ++piece) card.expect("00C0 0000 20", "A1 6120");
    card.expect("00C0 0000 20", "A2 9000");
    const ApduResult result = sendRootSelection();
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData.size(), 65U);
}

TEST(SendApduCommand, SendsNothingFromThe10001stCommandOfAnObjectOn) {
    PlatformCallsGuard guard;
    platformCalls().SCardTransmit = [](SCARDHANDLE, LPCSCARD_IO_REQUEST, LPCBYTE, DWORD,
                                       LPSCARD_IO_REQUEST, LPBYTE reply, LPDWORD received) {
        reply[0] = 0x90;
        reply[1] = 0x00;
        *received = 2;
        return SCARD_S_SUCCESS;
    };
    LogCapture log;
    CardTransactionHandler handler(0);
    for (int sent = 0; sent < 10'000; ++sent) {
        ApduResult result(apduCommands::selectRootDir());
        handler.SendApduCommand(result);
        ASSERT_TRUE(result.success());
    }
    log.clear();
    ApduResult result(apduCommands::selectRootDir());
    handler.SendApduCommand(result);
    EXPECT_EQ(platformCalls().counts["SCardTransmit"], 10'000);
    EXPECT_EQ(result.transportErrorCode, SCARD_E_UNEXPECTED);
    EXPECT_EQ(result.Sw1Sw2(), 0x0000);
    EXPECT_EQ(log.output(), LogLines{shortReply});
}

TEST(SendApduCommand, TracesEveryExchange) {
    ScriptedCard card;
    card.expect(root, "AA 6110").expect("00C0 0000 10", "BBCC 9000");
    LogCapture log;
    sendRootSelection(true);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "SendApduCommand"},
                                      {"DEBUG", "APDU command (hSCard=CA4D): 0 a4 0 c 2 3f 0 0 "},
                                      {"DEBUG", "Bytes received: 3"},
                                      {"DEBUG", "APDU command (hSCard=CA4D): 0 c0 0 0 10 "},
                                      {"DEBUG", "Bytes received: 4"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

// The trace masks nothing; that is why nothing in the system switches it on.
TEST(SendApduCommand, TracesAPinInFullAndOnlyWhileTheTraceIsOn) {
    for (const bool trace : {true, false}) {
        ScriptedCard card;
        card.expect("0020 0091 04 31323334 00", "9000");
        LogCapture log;
        CardTransactionHandler handler(ScriptedCard::handle);
        handler.setTrace(trace);
        ApduResult result(apduCommands::verifyPIN1(bytes("31323334")));
        handler.SendApduCommand(result);
        const LogLines lines{{"DEBUG", "SendApduCommand"},
                             {"DEBUG", "APDU command (hSCard=CA4D): 0 20 0 91 4 31 32 33 34 0 "},
                             {"DEBUG", "Bytes received: 2"}};
        EXPECT_EQ(log.output(), trace ? lines : LogLines{});
    }
}

TEST(SendApduCommand, DoesNotTraceUnlessAskedTo) {
    ScriptedCard card;
    card.expect(root, "9000");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    ApduResult result(apduCommands::selectRootDir());
    handler.SendApduCommand(result);
    EXPECT_EQ(log.output(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
