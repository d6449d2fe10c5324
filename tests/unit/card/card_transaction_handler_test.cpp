#include "card/card_transaction_handler.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;
using testing::ScriptedCard;

const LogLines zeroHandle{{"ERROR",
                           "CardTransactionHandler SCARDHANDLE hSCard_ = 0 is illegal value for "
                           "proper communication with any card!"}};

TEST(CardTransactionHandler, ReportsAHandleOf0AndAsksThePlatformAllTheSame) {
    PlatformCallsGuard guard;
    LogCapture log;
    {
        const CardTransactionHandler handler(0);
        EXPECT_EQ(log.output(), zeroHandle);
    }
    EXPECT_EQ(platformCalls().order, std::vector<std::string>{"SCardStatusW"});
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(CardTransactionHandler, TakesTheT1RecordForAHandleOf0) {
    PlatformCallsGuard guard;
    LogCapture log;
    DWORD protocol = 0;
    platformCalls().SCardTransmit = [&](SCARDHANDLE, LPCSCARD_IO_REQUEST sendPci, LPCBYTE, DWORD,
                                        LPSCARD_IO_REQUEST, LPBYTE, LPDWORD) {
        protocol = sendPci->dwProtocol;
        return SCARD_E_INVALID_HANDLE;
    };
    CardTransactionHandler handler(0);
    const ApduResult result = handler.selectRootDir();
    EXPECT_EQ(protocol, SCARD_PROTOCOL_T1);
    EXPECT_FALSE(result.success());
    EXPECT_EQ(log.output(), zeroHandle);
}

TEST(CardTransactionHandler, SendsWithTheRecordOfTheCardsProtocol) {
    for (const DWORD protocol : {SCARD_PROTOCOL_T0, SCARD_PROTOCOL_T1}) {
        ScriptedCard card;
        card.setProtocol(protocol);
        card.expect("00A4 000C 02 3F00 00", "9000");
        CardTransactionHandler handler(ScriptedCard::handle);
        EXPECT_TRUE(handler.selectRootDir().success());
        ASSERT_EQ(card.exchanges().size(), 1U);
        EXPECT_EQ(card.exchanges()[0].sendProtocol, protocol);
    }
}

TEST(CardTransactionHandler, BeginsAndEndsATransaction) {
    ScriptedCard card;
    card.expectBeginTransaction().expectEndTransaction();
    LogCapture log;
    {
        CardTransactionHandler handler(ScriptedCard::handle);
        EXPECT_EQ(handler.beginTransaction().transportErrorCode, 0);
        EXPECT_EQ(handler.endTransaction().transportErrorCode, 0);
    }
    EXPECT_EQ(card.endDispositions(), std::vector<DWORD>{SCARD_LEAVE_CARD});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(CardTransactionHandler, ReportsATransactionThatDoesNotBegin) {
    ScriptedCard card;
    card.expectBeginTransaction(SCARD_E_SHARING_VIOLATION);
    LogCapture log;
    {
        CardTransactionHandler handler(ScriptedCard::handle);
        EXPECT_EQ(handler.beginTransaction().transportErrorCode, SCARD_E_SHARING_VIOLATION);
        EXPECT_EQ(handler.endTransaction().transportErrorCode, 0);
    }
    EXPECT_EQ(log.output(),
              (LogLines{{"ERROR", "SCardBeginTransaction failed error code hex 8010000b"}}));
}

TEST(CardTransactionHandler, KeepsAnOpenTransactionWhenASecondBeginFails) {
    ScriptedCard card;
    card.expectBeginTransaction().expectBeginTransaction(SCARD_E_SHARING_VIOLATION);
    card.expectEndTransaction();
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.beginTransaction();
    handler.beginTransaction();
    EXPECT_EQ(handler.endTransaction().transportErrorCode, 0);
    EXPECT_EQ(handler.endTransaction().transportErrorCode, 0);
}

TEST(CardTransactionHandler, NeitherCountsNorNestsTransactions) {
    ScriptedCard card;
    card.expectBeginTransaction().expectBeginTransaction().expectEndTransaction();
    LogCapture log;
    {
        CardTransactionHandler handler(ScriptedCard::handle);
        handler.beginTransaction();
        handler.beginTransaction();
        handler.endTransaction();
    }
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(CardTransactionHandler, EndsNothingWithoutABegin) {
    ScriptedCard card;
    CardTransactionHandler handler(ScriptedCard::handle);
    EXPECT_EQ(handler.endTransaction().transportErrorCode, 0);
    EXPECT_EQ(card.endDispositions(), std::vector<DWORD>{});
}

TEST(CardTransactionHandler, IsSilentInDestructionAfterAFailedEnd) {
    ScriptedCard card;
    card.expectBeginTransaction().expectEndTransaction(SCARD_W_REMOVED_CARD);
    LogCapture log;
    {
        CardTransactionHandler handler(ScriptedCard::handle);
        handler.beginTransaction();
        EXPECT_EQ(handler.endTransaction().transportErrorCode, SCARD_W_REMOVED_CARD);
    }
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(card.endDispositions().size(), 1U);
}

TEST(CardTransactionHandler, ForcesTheEndOfAnOpenTransactionInDestruction) {
    for (const auto& [code, text] :
         {std::pair{LONG{0}, "0"}, std::pair{SCARD_W_REMOVED_CARD, "80100069"}}) {
        ScriptedCard card;
        card.expectBeginTransaction().expectEndTransaction(code);
        LogCapture log;
        {
            CardTransactionHandler handler(ScriptedCard::handle);
            handler.beginTransaction();
        }
        EXPECT_EQ(
            log.output(),
            (LogLines{
                {"WARNING", std::string("Transaction open in destruction! End transaction properly "
                                        "before destruction! Force ended with errorcode: ") +
                                text}}));
        EXPECT_EQ(card.endDispositions(), std::vector<DWORD>{SCARD_LEAVE_CARD});
    }
}

TEST(CardTransactionHandler, MakesNoCallAndNoLineInDestructionWithoutATransaction) {
    PlatformCallsGuard guard;
    ScriptedCard card;
    LogCapture log;
    { const CardTransactionHandler handler(ScriptedCard::handle); }
    EXPECT_EQ(platformCalls().order, std::vector<std::string>{"SCardStatusW"});
    EXPECT_EQ(log.output(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
