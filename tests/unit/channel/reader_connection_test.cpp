#include "channel/reader_connection.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using testing::platformCalls;
using testing::PlatformCallsGuard;

constexpr SCARDCONTEXT someContext = 0xC0DE;
constexpr SCARDHANDLE someCard = 0xCA4D;
constexpr const char* leftOpen =
    "Card left open without disconnect on destructor! Please, ensure proper disconnect!";

class ReaderConnectionTest : public ::testing::Test {
protected:
    ReaderConnectionTest() {
        platformCalls().SCardConnectW = [this](SCARDCONTEXT context, LPCWSTR reader,
                                               DWORD shareMode, DWORD protocols, LPSCARDHANDLE card,
                                               LPDWORD active) -> LONG {
            EXPECT_EQ(context, someContext);
            EXPECT_EQ(WideString(reader), WIDE_TEXT("Lukija \u00E4"));
            EXPECT_EQ(shareMode, 2U);
            EXPECT_EQ(protocols, 3U);
            EXPECT_EQ(*card, 0U);
            EXPECT_EQ(*active, 0U);
            // A failing platform may write here too.
            *card = someCard;
            *active = SCARD_PROTOCOL_T1;
            return connectCode;
        };
        platformCalls().SCardDisconnect = [this](SCARDHANDLE card, DWORD disposition) -> LONG {
            EXPECT_EQ(card, someCard);
            linesBeforeDisconnect = log.output();
            dispositions.push_back(disposition);
            return disconnectCode;
        };
    }

    PlatformCallsGuard guard;
    LogCapture log;
    LONG connectCode = 0;
    LONG disconnectCode = 0;
    std::vector<DWORD> dispositions;
    LogLines linesBeforeDisconnect;  // of standard output
};

TEST_F(ReaderConnectionTest, KeepsTheReadersNameAlsoAsUtf8) {
    ReaderConnection connection;
    connection.setReaderName(WIDE_TEXT("Lukija \u00E4"));
    EXPECT_STREQ(connection.readerNameUtf8().c_str(), "Lukija \xC3\xA4");
}

TEST_F(ReaderConnectionTest, ConnectsSharedOverEitherProtocol) {
    ReaderConnection connection;
    connection.setReaderName(WIDE_TEXT("Lukija \u00E4"));
    EXPECT_EQ(connection.connect(someContext), 0);
    EXPECT_EQ(connection.handle(), someCard);
    EXPECT_EQ(connection.protocol(), SCARD_PROTOCOL_T1);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(ReaderConnectionTest, DisconnectsAtItsEndWithALineAndLeavesTheCardAsItIs) {
    {
        ReaderConnection connection;
        connection.setReaderName(WIDE_TEXT("Lukija \u00E4"));
        connection.connect(someContext);
    }
    EXPECT_EQ(dispositions, std::vector<DWORD>{SCARD_LEAVE_CARD});
    EXPECT_EQ(linesBeforeDisconnect, (LogLines{{"ERROR", leftOpen}}));
    EXPECT_EQ(log.output(), LogLines{}) << "the line comes first";
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(ReaderConnectionTest, IgnoresAFailingDisconnect) {
    disconnectCode = SCARD_E_INVALID_HANDLE;
    {
        ReaderConnection connection;
        connection.setReaderName(WIDE_TEXT("Lukija \u00E4"));
        connection.connect(someContext);
    }
    EXPECT_EQ(dispositions.size(), 1U);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(ReaderConnectionTest, EndsQuietlyWhenItIsNotConnected) {
    {
        ReaderConnection connection;
        connection.setReaderName(WIDE_TEXT("Lukija \u00E4"));
    }
    EXPECT_EQ(dispositions, std::vector<DWORD>{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(ReaderConnectionTest, HasNoHandleAheadOfConnecting) {
    { EXPECT_EQ(ReaderConnection().handle(), 0U); }
    EXPECT_EQ(dispositions, std::vector<DWORD>{});
}

TEST_F(ReaderConnectionTest, ReportsNoLineForAReaderWithoutACard) {
    connectCode = SCARD_W_REMOVED_CARD;
    {
        ReaderConnection connection;
        connection.setReaderName(WIDE_TEXT("Lukija \u00E4"));
        EXPECT_EQ(static_cast<DWORD>(connection.connect(someContext)), status::removedCard);
        EXPECT_EQ(connection.handle(), 0U);
        EXPECT_EQ(connection.protocol(), 0U);
    }
    EXPECT_EQ(dispositions, std::vector<DWORD>{});
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

// Connecting begins from nothing, and what was connected before is given up as it is.
TEST_F(ReaderConnectionTest, GivesUpAnEarlierHandleWithoutADisconnectWhenItConnectsAgain) {
    {
        ReaderConnection connection;
        connection.setReaderName(WIDE_TEXT("Lukija \u00E4"));
        EXPECT_EQ(connection.connect(someContext), 0);
        EXPECT_EQ(connection.connect(someContext), 0);
        EXPECT_EQ(connection.handle(), someCard);
        connectCode = SCARD_W_REMOVED_CARD;
        EXPECT_EQ(connection.connect(someContext), SCARD_W_REMOVED_CARD);
        EXPECT_EQ(connection.handle(), 0U);
        EXPECT_EQ(connection.protocol(), 0U);
    }
    EXPECT_EQ(dispositions, std::vector<DWORD>{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(ReaderConnectionTest, ReportsAnyOtherFailureAsASignedHexadecimalNumber) {
    connectCode = SCARD_E_NO_SMARTCARD;
    {
        ReaderConnection connection;
        connection.setReaderName(WIDE_TEXT("Lukija \u00E4"));
        EXPECT_EQ(connection.connect(someContext), SCARD_E_NO_SMARTCARD);
        EXPECT_EQ(connection.handle(), 0U);
        EXPECT_EQ(connection.protocol(), 0U);
    }
    EXPECT_EQ(dispositions, std::vector<DWORD>{});
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "SCardConnectW failed error code hex -7feffff4"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
