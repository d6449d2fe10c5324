// The wrappers of the PC/SC context and a reader connection over a real daemon. Each suite is for
// one state of the daemon and its two virtual readers, which pcsc_test.py brings about.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "channel/reader_connection.h"
#include "channel/reader_context.h"
#include "support/log_capture.h"

namespace KelmoraID {
namespace {

using testing::LogCapture;
using testing::LogLines;
using Names = std::vector<WideString>;

const WideString firstReader = WIDE_TEXT("Virtual PCD 00 00");
const WideString secondReader = WIDE_TEXT("Virtual PCD 00 01");
const LogLines leftOpen{
    {"ERROR",
     "Card left open without disconnect on destructor! Please, ensure proper disconnect!"}};

TEST(WithoutADaemon, ReportsThatNoServiceAnswers) {
    LogCapture log;
    {
        ReaderContext context;
        EXPECT_EQ(context.establish(), SCARD_E_NO_SERVICE);
        EXPECT_FALSE(context.isEstablished());
    }
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "Error establishing context: -2146435043"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(WithoutADaemon, FindsNoReader) {
    LogCapture log;
    ReaderContext context;
    EXPECT_NE(context.listReaders(false), 0);
    Names found{WIDE_TEXT("left over")};
    EXPECT_EQ(context.findReaders(found, {}), Names{});
    EXPECT_EQ(log.output(), LogLines{});
}

class WithDaemon : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(context.establish(), 0);
        ASSERT_TRUE(context.isEstablished());
        ASSERT_NE(context.getContext(), 0U);
    }

    LogCapture log;
    ReaderContext context;
};

class WithEmptyReaders : public WithDaemon {};

TEST_F(WithEmptyReaders, FindsEveryReaderWithoutAFilter) {
    Names found;
    EXPECT_EQ(context.findReaders(found, {}), (Names{firstReader, secondReader}));
    EXPECT_EQ(context.listReaders(true), 0);
    EXPECT_EQ(context.readerNames(), (Names{firstReader, secondReader}));
}

TEST_F(WithEmptyReaders, FindsTheReadersThatHoldTheFilter) {
    Names found;
    EXPECT_EQ(context.findReaders(found, WIDE_TEXT("PCD 00 01")), Names{secondReader});
    EXPECT_EQ(context.findReaders(found, WIDE_TEXT("Virtual")), (Names{firstReader, secondReader}));
    EXPECT_EQ(context.findReaders(found, WIDE_TEXT("virtual")), Names{});
    EXPECT_EQ(log.output(), LogLines{});
}

// This daemon has a code of its own for it, unlike the platform's for a card that was taken out.
TEST_F(WithEmptyReaders, ConnectsToNone) {
    {
        ReaderConnection connection;
        connection.setReaderName(firstReader);
        EXPECT_EQ(connection.connect(context.getContext()), SCARD_E_NO_SMARTCARD);
        EXPECT_EQ(connection.handle(), 0U);
        EXPECT_EQ(connection.protocol(), 0U);
    }
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "SCardConnectW failed error code hex -7feffff4"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(WithEmptyReaders, ConnectsToNoReaderThatIsNotThere) {
    ReaderConnection connection;
    connection.setReaderName(WIDE_TEXT("Lukija \u00E4"));
    EXPECT_EQ(connection.connect(context.getContext()), SCARD_E_UNKNOWN_READER);
    EXPECT_EQ(connection.handle(), 0U);
    EXPECT_EQ(log.output(), (LogLines{{"ERROR", "SCardConnectW failed error code hex -7feffff7"}}));
}

TEST_F(WithEmptyReaders, LeavesAMovedContextToWhoeverTookIt) {
    SCARDCONTEXT taken = 0;
    {
        ReaderContext source;
        ASSERT_EQ(source.establish(), 0);
        const ReaderContext moved(std::move(source));
        taken = moved.getContext();
    }
    // Neither object has released it: the mark went to the source, the handle to the new object.
    EXPECT_EQ(SCardReleaseContext(taken), 0);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(WithEmptyReaders, ReleasesTheContextAtItsEnd) {
    SCARDCONTEXT handle = 0;
    {
        ReaderContext owner;
        ASSERT_EQ(owner.establish(), 0);
        handle = owner.getContext();
    }
    EXPECT_EQ(SCardReleaseContext(handle), SCARD_E_INVALID_HANDLE);
}

// A card for T=1 in the first reader, one for T=0 in the second.
class WithCards : public WithDaemon {};

TEST_F(WithCards, ConnectsOverTheProtocolOfEachCard) {
    {
        ReaderConnection first;
        first.setReaderName(firstReader);
        EXPECT_EQ(first.connect(context.getContext()), 0);
        EXPECT_NE(first.handle(), 0U);
        EXPECT_EQ(first.protocol(), SCARD_PROTOCOL_T1);
        EXPECT_EQ(first.readerNameUtf8().c_str(), std::string("Virtual PCD 00 00"));
    }
    EXPECT_EQ(log.output(), leftOpen);
    {
        ReaderConnection second;
        second.setReaderName(secondReader);
        EXPECT_EQ(second.connect(context.getContext()), 0);
        EXPECT_EQ(second.protocol(), SCARD_PROTOCOL_T0);
    }
    EXPECT_EQ(log.output(), leftOpen);
    EXPECT_EQ(log.file(), LogLines{});
}

TEST_F(WithCards, DisconnectsAtItsEndAndLeavesTheCardAsItIs) {
    ReaderConnection other;
    other.setReaderName(firstReader);
    ASSERT_EQ(other.connect(context.getContext()), 0);
    SCARDHANDLE ended = 0;
    {
        ReaderConnection connection;
        connection.setReaderName(firstReader);
        ASSERT_EQ(connection.connect(context.getContext()), 0);
        ended = connection.handle();
    }
    EXPECT_EQ(log.output(), leftOpen);
    EXPECT_EQ(SCardDisconnect(ended, SCARD_LEAVE_CARD), SCARD_E_INVALID_HANDLE);
    // After a reset the daemon would refuse this connection's next call.
    const BYTE selectMasterFile[] = {0x00, 0xA4, 0x00, 0x0C, 0x02, 0x3F, 0x00};
    BYTE reply[258] = {};
    DWORD length = sizeof(reply);
    EXPECT_EQ(SCardTransmit(other.handle(), &g_rgSCardT1Pci, selectMasterFile,
                            sizeof(selectMasterFile), nullptr, reply, &length),
              0);
    EXPECT_EQ(length, 2U);
    EXPECT_EQ(reply[0], 0x90);
}

}  // namespace
}  // namespace KelmoraID
