#include "card/card_operations.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <system_error>

#include "support/log_capture.h"
#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using testing::ScriptedCard;

constexpr const char* fineid = "00A4 040C 0C A000000063504B43532D3135";
constexpr const char* root = "00A4 000C 02 3F00";

// The text of the runtime error that a selection throws as a pointer: a handler
// for std::exception, which stands first here, does not see it.
template <typename Selection>
std::string thrownPointerOf(Selection selection) {
    try {
        selection();
    } catch (const std::exception& error) {
        return std::string("an object: ") + error.what();
    } catch (std::runtime_error* error) {
        return std::unique_ptr<std::runtime_error>(error)->what();
    }
    return "nothing";
}

TEST(CardOperations, AsksForTheProtocolOnceAndSendsWithItsRecord) {
    for (const DWORD protocol : {SCARD_PROTOCOL_T0, SCARD_PROTOCOL_T1}) {
        ScriptedCard card;
        card.setProtocol(protocol);
        card.expect(root, "9000").expect(root, "9000");
        CardOperations operations(ScriptedCard::handle, CardType::type3);
        operations.selectRoot();
        operations.selectRoot();
        EXPECT_EQ(card.statusCalls(), 1);
        EXPECT_EQ(card.exchanges()[1].sendProtocol, protocol);
    }
}

TEST(CardOperations, TakesTheT1RecordAfterAFailedStatusCall) {
    ScriptedCard card;
    card.setProtocol(SCARD_PROTOCOL_T0);
    card.setStatusCode(SCARD_W_REMOVED_CARD);
    card.expect(root, "9000");
    CardOperations(ScriptedCard::handle, CardType::type3).selectRoot();
    EXPECT_EQ(card.exchanges()[0].sendProtocol, SCARD_PROTOCOL_T1);
}

TEST(CardOperations, SelectsTheApplicationByItsFirstIdentifierAloneWithoutResponseData) {
    ScriptedCard card;
    card.expect(fineid, "9000");
    LogCapture log;
    CardOperations(ScriptedCard::handle, CardType::type3).SelectFineidApplication();
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(CardOperations, DoesNotTryTheSecondIdentifier) {
    for (const char* refusal : {"6A82", "6A86", "6110"}) {
        ScriptedCard card;
        card.expect(fineid, refusal);
        CardOperations operations(ScriptedCard::handle, CardType::type8);
        EXPECT_EQ(thrownPointerOf([&] { operations.SelectFineidApplication(); }),
                  "Failed to select FINEID application.");
    }
}

TEST(CardOperations, TurnsATransportFailureOfTheApplicationsSelectionIntoItsOwn) {
    ScriptedCard card;
    card.expectFailure(fineid, SCARD_W_REMOVED_CARD);
    LogCapture log;
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    EXPECT_EQ(thrownPointerOf([&] { operations.SelectFineidApplication(); }),
              "Failed to select FINEID application.");
    EXPECT_EQ(log.file(),
              (LogLines{{"Transmit",
                         "ERROR: Failed to transmit an apdu. Tried reconnecting: false. Error: "
                         "0x-7fefff97"},
                        {"SelectFineidApplication",
                         "Transmit error. Exception: Failed to transmit data., error: "
                         "-2146434967"}}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(CardOperations, TellsWhenTheReconnectOfTheApplicationsSelectionFailed) {
    ScriptedCard card;
    card.expectFailure(fineid, SCARD_W_RESET_CARD).expectReconnect(SCARD_E_NO_SMARTCARD);
    LogCapture log;
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    EXPECT_EQ(thrownPointerOf([&] { operations.SelectFineidApplication(); }),
              "Failed to select FINEID application.");
    EXPECT_EQ(log.file(),
              (LogLines{{"Transmit", "ERROR: Could not reconnect to card. Error: 0x-7feffff4"},
                        {"SelectFineidApplication",
                         "Transmit error. Exception: Could not reconnect to card., error: "
                         "-2146435060"}}));
}

TEST(CardOperations, SelectsTheRoot) {
    ScriptedCard card;
    card.expect(root, "9000").expect(root, "6A82");
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    EXPECT_EQ(thrownPointerOf([&] { operations.selectRoot(); }), "nothing");
    EXPECT_EQ(thrownPointerOf([&] { operations.selectRoot(); }), "Failed to select root.");
}

TEST(CardOperations, SelectsTheParent) {
    ScriptedCard card;
    card.expect("00A4 030C", "9000").expect("00A4 030C", "6A86");
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    EXPECT_EQ(thrownPointerOf([&] { operations.selectParent(); }), "nothing");
    EXPECT_EQ(thrownPointerOf([&] { operations.selectParent(); }), "Failed to select parent.");
}

TEST(CardOperations, SelectsTheEsignDirectoryUnderTheRootByCardType) {
    for (std::uint32_t number = 1; number <= 8; ++number) {
        SCOPED_TRACE(number);
        const bool underMasterFile = number == 4 || number == 5 || number == 7;
        ScriptedCard card;
        card.expect(root, "9000");
        card.expect(underMasterFile ? "00A4 000C 02 5016" : "00A4 010C 02 5016", "9000");
        CardOperations(ScriptedCard::handle, static_cast<CardType>(number)).selectEsignDirectory();
    }
}

TEST(CardOperations, FailsToSelectTheEsignDirectoryByItsOwnTextOrThatOfTheRoot) {
    {
        ScriptedCard card;
        card.expect(root, "6A82");
        CardOperations operations(ScriptedCard::handle, CardType::type3);
        EXPECT_EQ(thrownPointerOf([&] { operations.selectEsignDirectory(); }),
                  "Failed to select root.");
    }
    ScriptedCard card;
    card.expect(root, "9000").expect("00A4 010C 02 5016", "6A82");
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    EXPECT_EQ(thrownPointerOf([&] { operations.selectEsignDirectory(); }),
              "Failed to select ESIGN directory.");
}

TEST(CardOperations, LetsTheTransportExceptionOfTheOtherSelectionsGoUp) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_REMOVED_CARD);
    LogCapture log;
    CardOperations operations(ScriptedCard::handle, CardType::type3);
    EXPECT_EQ(thrownPointerOf([&] { operations.selectEsignDirectory(); }),
              "an object: Failed to transmit data.");
    EXPECT_EQ(log.file().size(), 1U);
}

}  // namespace
}  // namespace KelmoraID
