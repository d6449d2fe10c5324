// The reader behind the published SCard calls, and what it can do to its caller.
#include "virtual_card/winscard/virtual_reader.h"

#include "card_session.h"
#include "platform/win32.h"

namespace virtual_card {
namespace {

constexpr DWORD bothProtocols = SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1;

std::uint32_t code(LONG status) {
    return static_cast<std::uint32_t>(status);
}

class Reader : public testing::Test {
protected:
    Reader() { SetCardSeam(reader.seam()); }
    ~Reader() override { SetCardSeam(nullptr); }

    /// One exchange by SCardTransmit. @return the reply as hexadecimal text, or the code
    std::string transmit(std::string_view command, DWORD room = 258) {
        Bytes bytes = fromHex(command);
        Bytes reply(room);
        length = room;
        lastCode =
            code(SCardTransmit(reader.cardHandle(), &g_rgSCardT1Pci, bytes.data(),
                               static_cast<DWORD>(bytes.size()), nullptr, reply.data(), &length));
        if (lastCode != 0) return "failed";
        return toHex(ByteView(reply).first(std::min<std::size_t>(length, room)));
    }

    VirtualReader reader{generationOf(3)};
    DWORD length = 0;
    std::uint32_t lastCode = 0;
};

constexpr std::string_view selectRoot = "00A4000C023F00";
constexpr std::string_view selectMissing = "00A4000C021234";

TEST_F(Reader, GivesTheCardsReplies) {
    EXPECT_EQ(transmit(selectRoot), "9000");
    EXPECT_EQ(transmit(selectMissing), "6A82");
    ASSERT_EQ(reader.exchanges().size(), 2U);
    EXPECT_EQ(toHex(reader.exchanges()[1].command), selectMissing);
    EXPECT_EQ(toHex(reader.exchanges()[1].reply), "6A82");
    EXPECT_EQ(reader.exchanges()[1].code, 0U);
}

TEST_F(Reader, ShowsEachExchangeAsItEnds) {
    std::string shown;
    reader.onExchange = [&](const Exchange& exchange) {
        shown += toHex(exchange.command) + ">" + toHex(exchange.reply) + " ";
    };
    transmit(selectRoot);
    EXPECT_EQ(shown, "00A4000C023F00>9000 ");
}

TEST_F(Reader, IsFoundListedAndConnectedByItsName) {
    SCARDCONTEXT context = 0;
    ASSERT_EQ(SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context), 0);
    WCHAR names[64] = {};
    DWORD count = 64;
    ASSERT_EQ(SCardListReadersW(context, nullptr, names, &count), 0);
    EXPECT_EQ(count, 16U);
    EXPECT_EQ(std::u16string_view(names, count), std::u16string_view(u"Virtual Reader\0\0", 16));
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    ASSERT_EQ(SCardConnectW(context, names, SCARD_SHARE_SHARED, bothProtocols, &card, &protocol),
              0);
    EXPECT_EQ(card, reader.cardHandle());
    EXPECT_EQ(protocol, SCARD_PROTOCOL_T1);
    EXPECT_EQ(
        SCardConnectW(context, u"Another", SCARD_SHARE_SHARED, bothProtocols, &card, &protocol),
        SCARD_E_UNKNOWN_READER);
    EXPECT_EQ(SCardDisconnect(reader.cardHandle(), SCARD_LEAVE_CARD), 0);
    EXPECT_EQ(SCardReleaseContext(context), 0);
}

TEST_F(Reader, TellsTheRoomThatAReadersNameNeeds) {
    DWORD count = 0;
    ASSERT_EQ(SCardListReadersW(reader.contextHandle(), nullptr, nullptr, &count), 0);
    EXPECT_EQ(count, 16U);
    WCHAR names[16];
    count = 15;
    EXPECT_EQ(SCardListReadersW(reader.contextHandle(), nullptr, names, &count),
              SCARD_E_INSUFFICIENT_BUFFER);
    EXPECT_EQ(count, 16U);
}

TEST_F(Reader, TellsItsStatus) {
    DWORD protocol = 0;
    DWORD state = 0;
    BYTE atr[36];
    DWORD atrLength = sizeof atr;
    ASSERT_EQ(
        SCardStatusW(reader.cardHandle(), nullptr, nullptr, &state, &protocol, atr, &atrLength), 0);
    EXPECT_EQ(protocol, SCARD_PROTOCOL_T1);
    EXPECT_EQ(toHex(ByteView(atr, atrLength)), generationOf(3).atr);
    ASSERT_EQ(
        SCardStatusW(reader.cardHandle(), nullptr, nullptr, nullptr, &protocol, nullptr, nullptr),
        0);
}

TEST_F(Reader, FailsItsStatusWhenAskedTo) {
    reader.failStatus(pcsc::removedCard);
    DWORD protocol = 0;
    EXPECT_EQ(code(SCardStatusW(reader.cardHandle(), nullptr, nullptr, nullptr, &protocol, nullptr,
                                nullptr)),
              pcsc::removedCard);
    EXPECT_EQ(protocol, 0U);
}

TEST_F(Reader, UsesTheProtocolOfItsCard) {
    for (const Generation& row : generations()) {
        EXPECT_EQ(VirtualReader(row).protocol(),
                  row.protocol == 0 ? pcsc::protocolT0 : pcsc::protocolT1);
    }
}

TEST_F(Reader, RefusesAnotherProtocolThanTheCards) {
    reader.setProtocol(pcsc::protocolT0);
    transmit(selectRoot);
    EXPECT_EQ(lastCode, pcsc::protocolMismatch);
}

TEST_F(Reader, RefusesAWrongHandle) {
    BYTE reply[258];
    DWORD room = sizeof reply;
    EXPECT_EQ(
        SCardTransmit(reader.cardHandle() + 1, &g_rgSCardT1Pci, reply, 4, nullptr, reply, &room),
        SCARD_E_INVALID_HANDLE);
    EXPECT_EQ(SCardStatusW(0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              SCARD_E_INVALID_HANDLE);
    EXPECT_EQ(SCardReconnect(0, SCARD_SHARE_SHARED, bothProtocols, SCARD_LEAVE_CARD, nullptr),
              SCARD_E_INVALID_HANDLE);
}

TEST_F(Reader, RefusesABufferThatIsTooSmallAndTellsTheSize) {
    transmit(selectRoot, 1);
    EXPECT_EQ(lastCode, pcsc::insufficientBuffer);
    EXPECT_EQ(length, 2U);
}

TEST_F(Reader, ReportsAResetUntilItIsReconnected) {
    EXPECT_EQ(transmit("002000110431323334"), "9000");
    reader.resetCard();
    transmit(selectRoot);
    EXPECT_EQ(lastCode, pcsc::resetCard);
    transmit(selectRoot);
    EXPECT_EQ(lastCode, pcsc::resetCard);
    ASSERT_EQ(SCardReconnect(reader.cardHandle(), SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1,
                             SCARD_LEAVE_CARD, nullptr),
              0);
    EXPECT_EQ(reader.reconnects(), 1U);
    EXPECT_EQ(transmit("00200011"), "63C5");
}

TEST_F(Reader, FailsAReconnectWhenAskedTo) {
    reader.resetCard();
    reader.failReconnect(pcsc::removedCard);
    EXPECT_EQ(code(SCardReconnect(reader.cardHandle(), SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1,
                                  SCARD_LEAVE_CARD, nullptr)),
              pcsc::removedCard);
    transmit(selectRoot);
    EXPECT_EQ(lastCode, pcsc::resetCard);
}

TEST_F(Reader, FailsEverythingOnceTheCardIsGone) {
    reader.removeCard();
    transmit(selectRoot);
    EXPECT_EQ(lastCode, pcsc::removedCard);
    EXPECT_EQ(code(SCardStatusW(reader.cardHandle(), nullptr, nullptr, nullptr, nullptr, nullptr,
                                nullptr)),
              pcsc::removedCard);
    EXPECT_EQ(code(SCardReconnect(reader.cardHandle(), SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1,
                                  SCARD_LEAVE_CARD, nullptr)),
              pcsc::noSmartcard);
    reader.insertCard();
    transmit(selectRoot);
    EXPECT_EQ(lastCode, pcsc::removedCard);
    EXPECT_EQ(SCardReconnect(reader.cardHandle(), SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1,
                             SCARD_LEAVE_CARD, nullptr),
              0);
    EXPECT_EQ(transmit(selectRoot), "9000");
}

TEST_F(Reader, CountsTransactions) {
    EXPECT_EQ(SCardEndTransaction(reader.cardHandle(), SCARD_LEAVE_CARD), SCARD_E_NOT_TRANSACTED);
    EXPECT_EQ(SCardBeginTransaction(reader.cardHandle()), 0);
    EXPECT_EQ(reader.openTransactions(), 1);
    EXPECT_EQ(SCardEndTransaction(reader.cardHandle(), SCARD_LEAVE_CARD), 0);
    EXPECT_EQ(reader.openTransactions(), 0);
    EXPECT_EQ(reader.transactionsBegun(), 1u);
    reader.removeCard();
    EXPECT_EQ(SCardBeginTransaction(reader.cardHandle()), SCARD_W_REMOVED_CARD);
    EXPECT_EQ(reader.transactionsBegun(), 2u);
    EXPECT_EQ(reader.openTransactions(), 0);
}

// The middleman ------------------------------------------------------------------------------

TEST_F(Reader, FailsTheChosenExchangeAndNoOther) {
    reader.failTransmit(2, {Fault::Kind::TransportError, 0x8010002F});
    EXPECT_EQ(transmit(selectRoot), "9000");
    transmit(selectRoot);
    EXPECT_EQ(lastCode, 0x8010002FU);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(transmit(selectRoot), "9000");
}

TEST_F(Reader, KeepsSeveralFaultsUntilTheirTurnOrUntilCleared) {
    reader.failTransmit(1, {Fault::Kind::StatusWord, 0x6985});
    reader.failTransmit(2, {Fault::Kind::StatusWord, 0x6F00});
    reader.failTransmit(3, {Fault::Kind::StatusWord, 0x6F01});
    EXPECT_EQ(transmit(selectRoot), "6985");
    EXPECT_EQ(transmit(selectRoot), "6F00");
    reader.clearFaults();
    EXPECT_EQ(transmit(selectRoot), "9000");
}

TEST_F(Reader, KeepsACommandFromTheCardOrItsReplyFromTheCaller) {
    reader.failTransmit(1, {Fault::Kind::TransportError, pcsc::noSmartcard});
    transmit("00200011083939393939393939");
    EXPECT_EQ(reader.card().triesLeft(PinRole::Authentication), 5U);
    reader.failTransmit(1, {Fault::Kind::StatusWord, 0x6F00});
    transmit("00200011083939393939393939");
    EXPECT_EQ(reader.card().triesLeft(PinRole::Authentication), 5U);
    reader.failTransmit(1, {Fault::Kind::LostReply, pcsc::noSmartcard});
    transmit("00200011083939393939393939");
    EXPECT_EQ(lastCode, pcsc::noSmartcard);
    EXPECT_EQ(reader.card().triesLeft(PinRole::Authentication), 4U);
    // The reply is lost to a reset: the card has counted, and is told of as reset until
    // reconnected.
    reader.failTransmit(1, {Fault::Kind::LostReply, pcsc::resetCard});
    transmit("00200011083939393939393939");
    EXPECT_EQ(lastCode, pcsc::resetCard);
    EXPECT_EQ(reader.card().triesLeft(PinRole::Authentication), 3U);
    transmit(selectRoot);
    EXPECT_EQ(lastCode, pcsc::resetCard);
}

TEST_F(Reader, CutsAReply) {
    for (std::uint32_t count : {0U, 1U, 5U}) {
        reader.failTransmit(1, {Fault::Kind::CutReply, count});
        transmit("00A4020402503100");
        EXPECT_EQ(lastCode, 0U);
        EXPECT_EQ(length, count);
    }
}

TEST_F(Reader, ResetsOrRemovesTheCardAheadOfACommand) {
    reader.failTransmit(1, {Fault::Kind::ResetCard, 0});
    transmit(selectRoot);
    EXPECT_EQ(lastCode, pcsc::resetCard);
    ASSERT_EQ(SCardReconnect(reader.cardHandle(), SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1,
                             SCARD_LEAVE_CARD, nullptr),
              0);
    EXPECT_EQ(transmit(selectRoot), "9000");
    reader.failTransmit(1, {Fault::Kind::RemoveCard, 0});
    transmit(selectRoot);
    EXPECT_EQ(lastCode, pcsc::removedCard);
}

TEST_F(Reader, LiesAboutTheLength) {
    reader.failTransmit(1, {Fault::Kind::ClaimedLength, 4000});
    transmit(selectRoot);
    EXPECT_EQ(lastCode, 0U);
    EXPECT_EQ(length, 4000U);
}

TEST_F(Reader, GivesOtherDataUnderTheSameStatusWord) {
    constexpr std::string_view selectWithParameters = "00A40004023F0000";
    const std::string honest = transmit(selectWithParameters);
    ASSERT_GT(honest.size(), 4U);
    reader.failTransmit(1, {Fault::Kind::WrongData, 0xFF});
    const std::string wrong = transmit(selectWithParameters);
    EXPECT_EQ(wrong, std::string(honest.size() - 4, 'F') + "9000");
    reader.failTransmit(1, {Fault::Kind::WrongData, 0xFF});
    EXPECT_EQ(transmit(selectMissing), "6A82") << "without data nothing can be wrong";
}

TEST_F(Reader, GivesAsMuchDataAsAReplyHolds) {
    reader.failTransmit(1, {Fault::Kind::LongData, 0xEE});
    EXPECT_EQ(transmit(selectMissing), std::string(512, 'E') + "9000");
    reader.failTransmit(1, {Fault::Kind::LongData, 0xEE});
    transmit(selectRoot, 18);
    EXPECT_EQ(lastCode, pcsc::insufficientBuffer);
}

// The double by itself -----------------------------------------------------------------------

TEST(WinscardDouble, IsNoServiceWithoutASeam) {
    SetCardSeam(nullptr);
    SCARDCONTEXT context = 0;
    SCARDHANDLE card = 0;
    DWORD number = 0;
    BYTE bytes[258] = {};
    EXPECT_EQ(SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context),
              SCARD_E_NO_SERVICE);
    EXPECT_EQ(SCardReleaseContext(1), SCARD_E_NO_SERVICE);
    EXPECT_EQ(SCardListReadersW(1, nullptr, nullptr, &number), SCARD_E_NO_SERVICE);
    EXPECT_EQ(
        SCardConnectW(1, u"Virtual Reader", SCARD_SHARE_SHARED, bothProtocols, &card, &number),
        SCARD_E_NO_SERVICE);
    EXPECT_EQ(SCardReconnect(1, SCARD_SHARE_SHARED, bothProtocols, SCARD_LEAVE_CARD, &number),
              SCARD_E_NO_SERVICE);
    EXPECT_EQ(SCardDisconnect(1, SCARD_LEAVE_CARD), SCARD_E_NO_SERVICE);
    EXPECT_EQ(SCardBeginTransaction(1), SCARD_E_NO_SERVICE);
    EXPECT_EQ(SCardEndTransaction(1, SCARD_LEAVE_CARD), SCARD_E_NO_SERVICE);
    EXPECT_EQ(SCardStatusW(1, nullptr, nullptr, nullptr, &number, nullptr, nullptr),
              SCARD_E_NO_SERVICE);
    number = sizeof bytes;
    EXPECT_EQ(SCardTransmit(1, &g_rgSCardT1Pci, bytes, 4, nullptr, bytes, &number),
              SCARD_E_NO_SERVICE);
}

TEST(WinscardDouble, HasDefaultsForASeamOfTransmitAlone) {
    CardSeam seam{};
    seam.transmit = [](void*, std::uintptr_t, std::uint32_t protocol, const std::uint8_t*,
                       std::uint32_t, std::uint8_t* reply, std::uint32_t* replyLength) {
        reply[0] = 0x90;
        reply[1] = static_cast<std::uint8_t>(protocol);
        *replyLength = 2;
        return 0;
    };
    SetCardSeam(&seam);
    SCARDCONTEXT context = 0;
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    EXPECT_EQ(SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context), 0);
    EXPECT_EQ(SCardConnectW(context, u"Virtual Reader", SCARD_SHARE_SHARED, bothProtocols, &card,
                            &protocol),
              0);
    EXPECT_NE(card, 0U);
    EXPECT_EQ(protocol, SCARD_PROTOCOL_T1);
    EXPECT_EQ(SCardBeginTransaction(card), 0);
    EXPECT_EQ(SCardEndTransaction(card, SCARD_LEAVE_CARD), 0);
    protocol = 0;
    EXPECT_EQ(SCardStatusW(card, nullptr, nullptr, nullptr, &protocol, nullptr, nullptr), 0);
    EXPECT_EQ(protocol, SCARD_PROTOCOL_T1);
    BYTE reply[2] = {};
    DWORD length = sizeof reply;
    EXPECT_EQ(SCardTransmit(card, &g_rgSCardT0Pci, reply, 2, nullptr, reply, &length), 0);
    EXPECT_EQ(toHex(ByteView(reply, length)), "9001");
    EXPECT_EQ(SCardReconnect(card, SCARD_SHARE_SHARED, bothProtocols, SCARD_LEAVE_CARD, &protocol),
              0);
    EXPECT_EQ(SCardDisconnect(card, SCARD_LEAVE_CARD), 0);
    EXPECT_EQ(SCardReleaseContext(context), 0);
    SetCardSeam(nullptr);
}

}  // namespace
}  // namespace virtual_card
