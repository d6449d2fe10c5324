// The acquisition and the table, on every card there is.
#include <cstring>

#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

using KelmoraID::testing::LogLine;
using KelmoraID::testing::LogLines;

class Acquisition : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(EveryCard, Acquisition, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(Acquisition, ReadsTheCardAndFillsTheTable) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    EXPECT_EQ(card.data.dwVersion, 7u);
    EXPECT_NE(card.data.pvVendorSpecific, nullptr);
    EXPECT_NE(card.data.pfnCardReadFile, nullptr);
    EXPECT_NE(card.data.pfnCardCreateContainerEx, nullptr);
    EXPECT_EQ(card.data.pfnCardDeauthenticate, nullptr);
    EXPECT_NE(card.data.pfnCspGetDHAgreement, nullptr);
    EXPECT_EQ(card.data.pfnCardConstructDHAgreement != nullptr, card.isEcKey(0));
    EXPECT_EQ(card.data.pfnCardDeriveKey != nullptr, card.isEcKey(0));
    EXPECT_EQ(card.data.pfnCardDestroyDHAgreement != nullptr, card.isEcKey(0));
}

TEST_P(Acquisition, LeavesTheCardWithoutATransactionAndWithoutAReset) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    EXPECT_EQ(card.reader.openTransactions(), 0);
    EXPECT_EQ(card.reader.reconnects(), 0u);
}

TEST_P(Acquisition, RecognisesTheAtrWithAFurtherByteAndNotWithOneLess) {
    PlatformSide longer(GetParam());
    longer.atr.push_back(0x5A);
    longer.data.pbAtr = longer.atr.data();
    ++longer.data.cbAtr;
    EXPECT_EQ(longer.acquire(), 0u);
    longer.release();

    PlatformSide shorter(GetParam());
    --shorter.data.cbAtr;
    EXPECT_EQ(shorter.acquire(), status::unknownCard);
}

TEST_P(Acquisition, GivesTheSameContainersEveryTime) {
    Bytes first;
    {
        PlatformSide card(GetParam());
        card.acquireOrFail();
        first = card.readFile("mscp", "cmapfile").bytes;
    }
    PlatformSide card(GetParam());
    card.acquireOrFail();
    EXPECT_EQ(card.readFile("mscp", "cmapfile").bytes, first);
}

TEST(AcquisitionChecks, ComeInTheirOrder) {
    PlatformSide card(3);
    EXPECT_EQ(acquireContextOfDriver()(nullptr, 0), status::invalidParameter);
    EXPECT_EQ(acquireContextOfDriver()(&card.data, 1), status::invalidParameter);
    card.data.dwVersion = 0;
    EXPECT_EQ(card.acquire(), status::revisionMismatch);
    EXPECT_EQ(card.data.dwVersion, 1u);
    card.data.dwVersion = 6;
    EXPECT_EQ(card.acquire(), status::revisionMismatch);
    card.data.dwVersion = 8;
    card.data.hScard = 0;
    EXPECT_EQ(card.acquire(), status::invalidHandle);
    EXPECT_EQ(card.data.dwVersion, 7u);
    card.data.cbAtr = 0xFFFFFFFF;
    EXPECT_EQ(card.acquire(), status::invalidParameter);
    EXPECT_TRUE(card.reader.exchanges().empty());
}

TEST(AcquisitionChecks, FailOnTheAtrBeforeAZeroHandle) {
    PlatformSide card(3);
    card.atr[0] = 0x00;
    card.data.hScard = 0;
    EXPECT_EQ(card.acquire(), status::unknownCard);
}

TEST(AcquisitionLog, HoldsItsLinesAndNoExitLine) {
    DriverLog log;
    PlatformSide card(3);
    log.clear();
    card.acquireOrFail();
    EXPECT_EQ(log.file(),
              (LogLines{{"CardAcquireContext", "Entering the function"},
                        {"CardAcquireContext", "Entering RegisterCard"},
                        {"AdAttributeService",
                         "No AD service address found. Skip smart card to AD pairing."}}));
    EXPECT_EQ(log.output(), LogLines{});
    card.release();
    EXPECT_EQ(log.file(), (LogLines{{"CardDeleteContext", "Entering the function"}}));
}

TEST(AcquisitionLog, TellsACheckThatFailedOnStandardOutput) {
    DriverLog log;
    PlatformSide card(3);
    card.atr[5] ^= 0xFF;
    EXPECT_EQ(card.acquire(), status::unknownCard);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_41: Card not recognized"}}));
}

// The refusals, through the slots of a live table and with the context handle cleared.
TEST(UnsupportedOperations, AnswerThroughTheTable) {
    PlatformSide card(3);
    card.acquireOrFail();
    CARD_DATA& data = card.data;
    const auto unblock = [&] {
        return data.pfnCardUnblockPin(&data, nullptr, nullptr, 0, nullptr, 0, 0, 0);
    };
    EXPECT_EQ(unblock(), status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardGetChallenge(&data, nullptr, nullptr), status::unsupportedFeature);
    EXPECT_EQ(data.pfnCspUnpadData(nullptr, nullptr, nullptr), status::unexpected);
    EXPECT_EQ(data.pfnCardDeauthenticateEx(&data, 2, 0), status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardWriteFile(&data, nullptr, nullptr, 0, nullptr, 0),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardDestroyKey(&data, 0), status::unexpected);
    EXPECT_EQ(data.pfnCardCreateContainerEx(&data, 0, 0, 0, 0, nullptr, 0),
              status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardSetContainerProperty(&data, 0, nullptr, nullptr, 0, 0),
              status::unsupportedFeature);
    const SCARDCONTEXT context = data.hSCardCtx;
    data.hSCardCtx = 0;
    EXPECT_EQ(unblock(), status::invalidParameter);
    EXPECT_EQ(data.pfnCardGetChallenge(&data, nullptr, nullptr), status::unsupportedFeature);
    EXPECT_EQ(data.pfnCardDestroyKey(&data, 0), status::unexpected);
    data.hSCardCtx = context;
}

TEST(UnsupportedOperations, OfTheRsaCardHaveAnAgreementSlotThatRefuses) {
    PlatformSide card(3);
    card.acquireOrFail();
    EXPECT_EQ(card.data.pfnCardDeriveKey, nullptr);
    EXPECT_EQ(card.data.pfnCspGetDHAgreement(&card.data, nullptr, nullptr, 0),
              status::unsupportedFeature);
}

}  // namespace
}  // namespace boundary
