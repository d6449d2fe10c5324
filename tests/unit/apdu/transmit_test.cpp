#include <gtest/gtest.h>

#include <array>
#include <memory>

#include "apdu/decipher.h"
#include "apdu/get_data.h"
#include "apdu/get_response.h"
#include "apdu/select.h"
#include "apdu/verify.h"
#include "channel/transmit_error.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/scripted_card.h"
#include "support/statuses.h"

namespace KelmoraID::FINEID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;
using testing::ScriptedCard;

constexpr const char* root = "00A4 000C 02 3F00";

Select selectRoot() {
    return Select(SelectMode::masterFile, std::nullopt, false);
}

// The one line of a transmission that is given up.
LogLines gaveUp(const std::string& reconnected, const std::string& code) {
    return {{"Transmit", "ERROR: Failed to transmit an apdu. Tried reconnecting: " + reconnected +
                             ". Error: " + code}};
}

// Runs the command and expects the transport exception with that code and text.
void expectTransportFailure(Apdu& command, LONG code, const char* text) {
    try {
        command.Transmit(ScriptedCard::handle, g_rgSCardT1Pci);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), code);
        EXPECT_EQ(error.code().category(), std::system_category());
        // The given text alone: runtimes append a message of their own, each another one.
        EXPECT_STREQ(error.what(), text);
    }
}

TEST(Transmit, SendsTheRequestWithTheRecordGivenAndABufferOf258) {
    for (const SCARD_IO_REQUEST& record : {g_rgSCardT0Pci, g_rgSCardT1Pci}) {
        ScriptedCard card;
        card.expect(root, "9000");
        Select select = selectRoot();
        EXPECT_EQ(&select.Transmit(ScriptedCard::handle, record), &select);
        ASSERT_EQ(card.exchanges().size(), 1U);
        EXPECT_EQ(card.exchanges()[0].announcedReceiveLength, 258U);
        EXPECT_EQ(card.exchanges()[0].sendProtocol, record.dwProtocol);
    }
}

TEST(Transmit, TakesTheLastStatusWordForSuccessWhereTheCommandLeavesItOpen) {
    for (const auto& [reply, word, success] :
         {std::tuple{"9000", 0x9000, true}, std::tuple{"6A82", 0x6A82, false},
          std::tuple{"AABB 9000", 0x9000, true}, std::tuple{"6110", 0x6110, false}}) {
        ScriptedCard card;
        card.expect(root, reply);
        Select select = selectRoot();
        select.Transmit(ScriptedCard::handle, g_rgSCardT1Pci);
        EXPECT_EQ(select.success(), success) << reply;
        EXPECT_EQ(select.Sw1Sw2(), word) << reply;
    }
}

TEST(Transmit, LeavesSuccessAsTheCommandDecidedIt) {
    ScriptedCard card;
    card.expect("00C0 0000 00", "9012").expect("0020 0011", "63C2");
    GetResponse response(BYTE{0x00});
    EXPECT_TRUE(response.Transmit(ScriptedCard::handle, g_rgSCardT1Pci).success());
    EXPECT_EQ(response.Sw1Sw2(), 0x9012);
    Verify verify(0x11, CardType::type3, std::nullopt);
    EXPECT_TRUE(verify.Transmit(ScriptedCard::handle, g_rgSCardT1Pci).success());
}

TEST(Transmit, GoesOnWithTheRequestsOfTheCommand) {
    ScriptedCard card;
    card.expect("00CB 3FFF 0B 4D09 7007 BF8111 03 7F4180 00", "A1 6102");
    card.expect("00C0 0000 00", "B1B2 6101").expect("00C0 0000 00", "C1 9000");
    GetData command(0x81, 0x11, false);
    EXPECT_TRUE(command.Transmit(ScriptedCard::handle, g_rgSCardT1Pci).success());
    EXPECT_EQ(command.responseData(), bytes("A1 B1B2 C1"));
    for (const auto& exchange : card.exchanges()) EXPECT_EQ(exchange.announcedReceiveLength, 258U);
}

// A command that notes the status word at hand while it is shown a response.
class WordNotingCommand final : public Apdu {
public:
    std::string_view getName() const override { return "NOTING"; }
    ApduRequest buildRequest() override {
        return ApduRequest(0x00, 0xA4, 0x00, 0x0C, std::nullopt, std::nullopt);
    }
    std::optional<ApduRequest> handleResponse(const ApduResponse&) override {
        words.push_back(Sw1Sw2());
        return words.size() < 2 ? std::optional(buildRequest()) : std::nullopt;
    }

    std::vector<std::uint16_t> words;
};

TEST(Transmit, SetsTheStatusWordBeforeTheCommandIsShownTheResponse) {
    ScriptedCard card;
    card.expect("00A4 000C", "6A82").expect("00A4 000C", "9000");
    WordNotingCommand command;
    command.Transmit(ScriptedCard::handle, g_rgSCardT1Pci);
    EXPECT_EQ(command.words, (std::vector<std::uint16_t>{0x6A82, 0x9000}));
}

TEST(Transmit, ReconnectsOnceToACardThatWasReset) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_RESET_CARD).expectReconnect().expect(root, "9000");
    LogCapture log;
    Select select = selectRoot();
    EXPECT_TRUE(select.Transmit(ScriptedCard::handle, g_rgSCardT0Pci).success());
    ASSERT_EQ(card.reconnects().size(), 1U);
    EXPECT_EQ(card.reconnects()[0].shareMode, SCARD_SHARE_SHARED);
    EXPECT_EQ(card.reconnects()[0].preferredProtocols, SCARD_PROTOCOL_T0);
    EXPECT_EQ(card.reconnects()[0].initialization, SCARD_LEAVE_CARD);
    EXPECT_FALSE(card.reconnects()[0].wantsActiveProtocol);
    ASSERT_EQ(card.exchanges().size(), 2U);
    EXPECT_EQ(card.exchanges()[1].announcedReceiveLength, 258U);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(Transmit, GivesUpOnACardThatIsResetOnBothTries) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_RESET_CARD).expectReconnect();
    card.expectFailure(root, SCARD_W_RESET_CARD);
    LogCapture log;
    Select select = selectRoot();
    expectTransportFailure(select, static_cast<LONG>(status::resetCard),
                           "Failed to transmit data.");
    EXPECT_EQ(card.reconnects().size(), 1U);
    // The code is printed as a signed number: a PC/SC code is a LONG.
    EXPECT_EQ(log.file(), gaveUp("true", "0x-7fefff98"));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(Transmit, GivesUpWhenTheReconnectFails) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_RESET_CARD).expectReconnect(SCARD_W_REMOVED_CARD);
    LogCapture log;
    Select select = selectRoot();
    expectTransportFailure(select, SCARD_W_REMOVED_CARD, "Could not reconnect to card.");
    EXPECT_EQ(log.file(),
              (LogLines{{"Transmit", "ERROR: Could not reconnect to card. Error: 0x-7fefff97"}}));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(Transmit, DoesNotReconnectForAnyOtherCode) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_REMOVED_CARD);
    LogCapture log;
    Select select = selectRoot();
    expectTransportFailure(select, SCARD_W_REMOVED_CARD, "Failed to transmit data.");
    EXPECT_EQ(log.file(), gaveUp("false", "0x-7fefff97"));
    EXPECT_THROW(select.success(), std::bad_optional_access);
}

TEST(Transmit, PrintsAPlainSystemCodeAsItIs) {
    ScriptedCard card;
    card.expectFailure(root, 0x1F);
    LogCapture log;
    Select select = selectRoot();
    expectTransportFailure(select, 0x1F, "Failed to transmit data.");
    EXPECT_EQ(log.file(), gaveUp("false", "0x1f"));
}

TEST(Transmit, AllowsEveryRequestAReconnectOfItsOwn) {
    ScriptedCard card;
    card.expectFailure("002A 8086 01 AA 00", SCARD_W_RESET_CARD).expectReconnect();
    card.expect("002A 8086 01 AA 00", "6102");
    card.expectFailure("00C0 0000 02", SCARD_W_RESET_CARD).expectReconnect();
    card.expect("00C0 0000 02", "C1C2 9000");
    Decipher command(bytes("AA"), 0x00, false);
    EXPECT_TRUE(command.Transmit(ScriptedCard::handle, g_rgSCardT1Pci).success());
    EXPECT_EQ(command.responseData(), bytes("C1C2"));
}

TEST(Transmit, TakesAReplyOfFewerThanTwoBytesForATransportFailure) {
    for (const char* reply : {"", "90"}) {
        ScriptedCard card;
        card.expect(root, reply);
        LogCapture log;
        Select select = selectRoot();
        expectTransportFailure(select, SCARD_E_UNEXPECTED, "Failed to transmit data.");
        EXPECT_EQ(log.file(), gaveUp("false", "0x-7fefffe1"));
    }
}

TEST(Transmit, TellsOfTheReconnectAheadOfAShortReply) {
    ScriptedCard card;
    card.expectFailure(root, SCARD_W_RESET_CARD).expectReconnect().expect(root, "");
    LogCapture log;
    Select select = selectRoot();
    expectTransportFailure(select, SCARD_E_UNEXPECTED, "Failed to transmit data.");
    EXPECT_EQ(log.file(), gaveUp("true", "0x-7fefffe1"));
}

// Whatever the platform states beyond the buffer, zeros stand there, and so in the status word.
TEST(Transmit, TakesNoStatusWordFromAReplyThatIsStatedLongerThanTheBuffer) {
    for (const DWORD stated : {259U, 260U, 511U, 512U, 513U, 0xFFFFFFFFU}) {
        // With 90 as its last byte a single zero behind the buffer would make it a success.
        for (const auto& end : {std::array<BYTE, 2>{0x90, 0x00}, {0xC1, 0x90}}) {
            PlatformCallsGuard guard;
            Decipher command(std::nullopt, 0x00, false);
            platformCalls().SCardTransmit = [=](SCARDHANDLE, LPCSCARD_IO_REQUEST, LPCBYTE, DWORD,
                                                LPSCARD_IO_REQUEST, LPBYTE reply,
                                                LPDWORD received) {
                std::fill_n(reply, 256, BYTE{0xC1});
                reply[256] = end[0];
                reply[257] = end[1];
                *received = stated;
                return SCARD_S_SUCCESS;
            };
            EXPECT_FALSE(command.Transmit(ScriptedCard::handle, g_rgSCardT1Pci).success())
                << stated;
            EXPECT_EQ(command.Sw1Sw2(), 0x0000) << stated;
            EXPECT_EQ(command.responseData(), std::nullopt) << stated;
        }
    }
}

TEST(Transmit, EndsAnEndlessConversationAfter65Requests) {
    PlatformCallsGuard guard;
    platformCalls().SCardTransmit = [](SCARDHANDLE, LPCSCARD_IO_REQUEST, LPCBYTE, DWORD,
                                       LPSCARD_IO_REQUEST, LPBYTE reply, LPDWORD received) {
        reply[0] = 0x61;
        reply[1] = 0x10;
        *received = 2;
        return SCARD_S_SUCCESS;
    };
    LogCapture log;
    GetData command(0x81, 0x11, false);
    expectTransportFailure(command, SCARD_E_UNEXPECTED, "Failed to transmit data.");
    EXPECT_EQ(platformCalls().counts["SCardTransmit"], 65);
    EXPECT_EQ(log.file(), gaveUp("false", "0x-7fefffe1"));
}

TEST(Transmit, LogsNoTrafficSoThatNoPinReachesALog) {
    ScriptedCard card;
    card.expect("0020 0011 04 31323334", "63C2");
    LogCapture log;
    Verify verify(0x11, CardType::type3, bytes("31323334"));
    verify.Transmit(ScriptedCard::handle, g_rgSCardT1Pci);
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(TransmitError, KeepsItsTextAlone) {
    auto error = std::make_unique<TransmitError>(SCARD_W_RESET_CARD, "Failed to transmit data.");
    const TransmitError copy = *error;
    error.reset();
    EXPECT_STREQ(copy.what(), "Failed to transmit data.");
    EXPECT_EQ(copy.code(),
              std::error_code(static_cast<int>(status::resetCard), std::system_category()));
}

}  // namespace
}  // namespace KelmoraID::FINEID
