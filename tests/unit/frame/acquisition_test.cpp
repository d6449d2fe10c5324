#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include "session/card_context.h"
#include "session/entry_points.h"
#include "support/fineid_script.h"
#include "support/log_capture.h"
#include "support/platform_calls.h"
#include "support/statuses.h"
#include "support/test_certificates.h"

namespace KelmoraID {
namespace {

using namespace testing;

const LogLines entryLine{{"CardAcquireContext", "Entering the function"}};

class CardAcquireContextTest : public ::testing::Test {
protected:
    FineidContent content{.certificates = {p256Certificate(), rsa2048Certificate()}};
    PlatformCallsGuard hooks;
    LogCapture log;
};

TEST_F(CardAcquireContextTest, RefusesANullRecord) {
    EXPECT_EQ(CardAcquireContext(nullptr, 0), status::invalidParameter);
    EXPECT_EQ(log.file(), entryLine);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_35: pCardData is NULL"}}));
}

TEST_F(CardAcquireContextTest, RefusesFlags) {
    PlatformRecord record(CardType::type3);
    EXPECT_EQ(CardAcquireContext(&record.data, 1), status::invalidParameter);
    EXPECT_EQ(log.file(), entryLine);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_36: nonzero dwFlags was passed"}}));
}

TEST_F(CardAcquireContextTest, RewritesVersionZeroToOneAndRefusesIt) {
    PlatformRecord record(CardType::type3);
    record.data.dwVersion = 0;
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::revisionMismatch);
    EXPECT_EQ(record.data.dwVersion, 1);
    EXPECT_EQ(
        log.output(),
        (LogLines{{"ERROR", "CMR_37: Too low version: 1 < 7 (ERROR_REVISION_MISMATCH: 1306)"}}));
}

TEST_F(CardAcquireContextTest, RefusesVersionSix) {
    PlatformRecord record(CardType::type3);
    record.data.dwVersion = 6;
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::revisionMismatch);
    EXPECT_EQ(record.data.dwVersion, 6);
    EXPECT_EQ(
        log.output(),
        (LogLines{{"ERROR", "CMR_37: Too low version: 6 < 7 (ERROR_REVISION_MISMATCH: 1306)"}}));
    EXPECT_EQ(log.file(), entryLine);
}

TEST_F(CardAcquireContextTest, RewritesVersionEightToSevenAndProceeds) {
    ScriptedCard card;
    expectAcquisition(card, content, 2);
    PlatformRecord record(CardType::type3);
    record.data.dwVersion = 8;
    EXPECT_EQ(CardAcquireContext(&record.data, 0), 0);
    EXPECT_EQ(record.data.dwVersion, 7);
}

TEST_F(CardAcquireContextTest, RefusesABadAtrOrName) {
    const LogLines line{
        {"DEBUG",
         "CMR_38, CMR_39 or CMR_40: NULL pbAtr, invalid cvAtr or NULL pwszCardName was passed"}};
    for (int which = 0; which < 4; ++which) {
        PlatformRecord record(CardType::type3);
        if (which == 0) record.data.pbAtr = nullptr;
        if (which == 1) record.data.pwszCardName = nullptr;
        if (which == 2) record.data.cbAtr = 0;
        if (which == 3) record.data.cbAtr = 0xFFFFFFFF;
        EXPECT_EQ(CardAcquireContext(&record.data, 0), status::invalidParameter) << which;
        EXPECT_EQ(log.output(), line) << which;
    }
}

TEST_F(CardAcquireContextTest, RefusesAnUnknownAtr) {
    PlatformRecord record(CardType::unknown);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::unknownCard);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_41: Card not recognized"}}));
}

TEST_F(CardAcquireContextTest, RefusesAMissingMemoryFunction) {
    for (int which = 0; which < 3; ++which) {
        PlatformRecord record(CardType::type3);
        if (which == 0) record.data.pfnCspAlloc = nullptr;
        if (which == 1) record.data.pfnCspReAlloc = nullptr;
        if (which == 2) record.data.pfnCspFree = nullptr;
        EXPECT_EQ(CardAcquireContext(&record.data, 0), status::invalidParameter) << which;
        EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_42: Memory management pointer is NULL"}}));
    }
}

TEST_F(CardAcquireContextTest, RefusesAZeroHandleWithoutALine) {
    for (int which = 0; which < 2; ++which) {
        PlatformRecord record(CardType::type3);
        (which == 0 ? record.data.hScard : record.data.hSCardCtx) = 0;
        EXPECT_EQ(CardAcquireContext(&record.data, 0), status::invalidHandle) << which;
        EXPECT_EQ(log.file(), entryLine);
        EXPECT_EQ(log.output(), LogLines{});
    }
}

TEST_F(CardAcquireContextTest, FailsOnTheAtrBeforeTheHandle) {
    PlatformRecord record(CardType::unknown);
    record.data.hScard = 0;
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::unknownCard);
}

TEST_F(CardAcquireContextTest, FailsOnTheAtrBeforeTheMemoryFunctions) {
    PlatformRecord record(CardType::unknown);
    record.data.pfnCspAlloc = nullptr;
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::unknownCard);
}

// A record with every fault there is, mended one by one: each check comes before the next.
TEST_F(CardAcquireContextTest, MakesItsChecksInTheirOrder) {
    PlatformRecord record(CardType::unknown);
    PlatformRecord known(CardType::type3);
    CARD_DATA& data = record.data;
    const WCHAR* cardName = data.pwszCardName;
    data.dwVersion = 6;
    data.pwszCardName = nullptr;
    data.pfnCspReAlloc = nullptr;
    data.hScard = 0;

    EXPECT_EQ(CardAcquireContext(&data, 1), status::invalidParameter);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_36: nonzero dwFlags was passed"}}));
    EXPECT_EQ(data.dwVersion, 6) << "not negotiated yet";

    EXPECT_EQ(CardAcquireContext(&data, 0), status::revisionMismatch);
    log.clear();
    data.dwVersion = 8;
    EXPECT_EQ(CardAcquireContext(&data, 0), status::invalidParameter);
    EXPECT_EQ(
        log.output(),
        (LogLines{{"DEBUG",
                   "CMR_38, CMR_39 or CMR_40: NULL pbAtr, invalid cvAtr or NULL pwszCardName was "
                   "passed"}}));
    EXPECT_EQ(data.dwVersion, 7) << "negotiated, though refused";

    data.pwszCardName = const_cast<LPWSTR>(cardName);
    EXPECT_EQ(CardAcquireContext(&data, 0), status::unknownCard);
    data.pbAtr = known.data.pbAtr;
    data.cbAtr = known.data.cbAtr;
    log.clear();
    EXPECT_EQ(CardAcquireContext(&data, 0), status::invalidParameter);
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_42: Memory management pointer is NULL"}}));
    data.pfnCspReAlloc = known.data.pfnCspReAlloc;
    EXPECT_EQ(CardAcquireContext(&data, 0), status::invalidHandle);
}

TEST_F(CardAcquireContextTest, HasNoAtrOfLengthZeroLookedUp) {
    PlatformRecord record(CardType::type3);
    record.data.cbAtr = 0;
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::invalidParameter)
        << "and not an unknown card";
}

TEST_F(CardAcquireContextTest, AsksThePlatformForCertificatesOfBothEncodings) {
    content.certificates.push_back(p384Certificate());
    ScriptedCard card;
    expectAcquisition(card, content, 3);
    PlatformRecord record(CardType::type7);
    std::vector<std::pair<DWORD, ByteVector>> asked;
    platformCalls().CertCreateCertificateContext = [&](DWORD encoding, const BYTE* encoded,
                                                       DWORD length) -> PCCERT_CONTEXT {
        asked.push_back({encoding, {encoded, encoded + length}});
        return nullptr;
    };
    EXPECT_EQ(CardAcquireContext(&record.data, 0), 8);
    EXPECT_EQ(asked, (std::vector<std::pair<DWORD, ByteVector>>{
                         {certificateEncodings, p256Certificate()},
                         {certificateEncodings, rsa2048Certificate()}}));
}

TEST_F(CardAcquireContextTest, ReadsTheCardAndLeavesNoExitLine) {
    ScriptedCard card;
    expectAcquisition(card, content, 2);
    PlatformRecord record(CardType::type3);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), 0);
    EXPECT_EQ(log.file(),
              (LogLines{{"CardAcquireContext", "Entering the function"},
                        {"CardAcquireContext", "Entering RegisterCard"},
                        {"AdAttributeService",
                         "No AD service address found. Skip smart card to AD pairing."}}));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(PlatformRecord::liveAllocations(), 0);

    const CardContext& context = contextOf(&record.data);
    EXPECT_FALSE(context.hasSecondSignCert);
    EXPECT_EQ(context.secondSignCert, nullptr);
    ASSERT_EQ(context.containers.size(), 2u);
    EXPECT_EQ(context.containers[0].bFlags, 3);
    EXPECT_EQ(context.containers[0].wKeyExchangeKeySizeBits, 256);
    EXPECT_EQ(context.containers[0].wSigKeySizeBits, 0);
    EXPECT_EQ(context.containers[1].bFlags, 1);
    EXPECT_EQ(context.containers[1].wKeyExchangeKeySizeBits, 0);
    EXPECT_EQ(context.containers[1].wSigKeySizeBits, 2048);
}

TEST_F(CardAcquireContextTest, OpensNoTransactionAndDisconnectsNothing) {
    ScriptedCard card;  // Any transaction call would fail the test.
    expectAcquisition(card, content, 2);
    PlatformRecord record(CardType::type8);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), 0);
    EXPECT_EQ(platformCalls().counts["SCardBeginTransaction"], 0);
    EXPECT_EQ(platformCalls().counts["SCardDisconnect"], 0);
    EXPECT_EQ(platformCalls().counts["SCardStatusW"], 1);
}

TEST_F(CardAcquireContextTest, ReadsAThirdCertificateOnACardWithASecondSigningKey) {
    content.certificates.push_back(p384Certificate());
    for (const CardType type : {CardType::type4, CardType::type5, CardType::type7}) {
        ScriptedCard card;
        expectAcquisition(card, content, 3);
        PlatformRecord record(type);
        EXPECT_EQ(CardAcquireContext(&record.data, 0), 0);
        const CardContext& context = contextOf(&record.data);
        EXPECT_TRUE(context.hasSecondSignCert);
        ASSERT_EQ(context.containers.size(), 3u);
        EXPECT_EQ(context.containers[2].bFlags, 1);
        EXPECT_EQ(context.containers[2].wSigKeySizeBits, 384);
    }
}

TEST_F(CardAcquireContextTest, FailsWithoutTheThirdCertificateAndLogsAllThree) {
    ScriptedCard card;
    expectAcquisition(card, content, 3);
    PlatformRecord record(CardType::type4);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::fileNotFound);
    EXPECT_EQ(record.data.pvVendorSpecific, nullptr);
    EXPECT_EQ(log.file(), entryLine);
    const LogLines lines = log.output();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].message,
              "Kelmora-ID-minidriver: authCert or signCert empty! Returning error.");
    EXPECT_TRUE(lines[1].message.starts_with("Kelmora-ID-minidriver, authCert: 30 82 "));
    EXPECT_TRUE(lines[2].message.starts_with("Kelmora-ID-minidriver, signCert: 30 82 "));
    EXPECT_EQ(lines[3].message, "Kelmora-ID-minidriver, secondSignCert: ");
    for (const LogLine& line : lines) EXPECT_EQ(line.scope, "DEBUG");
}

TEST_F(CardAcquireContextTest, LogsTheSecondSigningCertificateAsEmptyOnATwoCertificateCard) {
    content.certificates = {bytes("300A0B")};
    ScriptedCard card;
    expectAcquisition(card, content, 2);
    PlatformRecord record(CardType::type3);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::fileNotFound);
    EXPECT_EQ(
        log.output(),
        (LogLines{{"DEBUG", "Kelmora-ID-minidriver: authCert or signCert empty! Returning error."},
                  {"DEBUG", "Kelmora-ID-minidriver, authCert: 30 a b "},
                  {"DEBUG", "Kelmora-ID-minidriver, signCert: "},
                  {"DEBUG", "Kelmora-ID-minidriver, secondSignCert: "}}));
}

TEST_F(CardAcquireContextTest, FailsWithoutCardInformation) {
    ScriptedCard card;
    expectApplication(card);
    expectApplication(card);
    card.expect("00A40104023F0000", "6982");
    PlatformRecord record(CardType::type3);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::unexpected);
    EXPECT_EQ(record.data.pvVendorSpecific, nullptr);
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "GetSerialNumberAndLabelFromCIAInfo failed! Returning error."}}));
}

TEST_F(CardAcquireContextTest, FailsOnAnEmptySerialNumberAndOnAnEmptyLabel) {
    for (int which = 0; which < 2; ++which) {
        if (which == 0) content.serialNumber.clear();
        if (which == 1) content = {.label = "", .certificates = {}};
        ScriptedCard card;
        expectApplication(card);
        expectApplication(card);
        expectRead(card, bytes("3F005032"), ciaInfo(content));
        PlatformRecord record(CardType::type3);
        EXPECT_EQ(CardAcquireContext(&record.data, 0), status::unexpected) << which;
    }
}

TEST_F(CardAcquireContextTest, DisregardsAFailedApplicationSelection) {
    ScriptedCard card;
    card.expect("00A404000CA000000063504B43532D313500", "6A82");
    card.expect("00A4040010A0000000770 30C60000000FE0000050000", "6A82");
    expectApplication(card);
    expectRead(card, bytes("3F005032"), ciaInfo(content));
    for (std::size_t index = 0; index < 2; ++index) expectCertificate(card, content, index);
    PlatformRecord record(CardType::type3);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), 0);
}

TEST_F(CardAcquireContextTest, LeavesAHalfFilledContextWhenThePlatformRefusesACertificate) {
    content.certificates[1] = bytes("DEADBEEF");
    ScriptedCard card;
    expectAcquisition(card, content, 2);
    PlatformRecord record(CardType::type3);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), 8);
    ASSERT_NE(record.data.pvVendorSpecific, nullptr);
    EXPECT_EQ(record.data.pfnCardReadFile, nullptr);
    EXPECT_TRUE(contextOf(&record.data).containers.empty());
    EXPECT_EQ(platformCalls().counts["CertCreateCertificateContext"], 2)
        << "both are tried in any case";
}

TEST_F(CardAcquireContextTest, TriesBothCertificatesThoughTheFirstIsRefused) {
    content.certificates[0] = bytes("DEADBEEF");
    content.certificates.push_back(p256Certificate());
    ScriptedCard card;
    expectAcquisition(card, content, 3);
    PlatformRecord record(CardType::type5);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), 8);
    EXPECT_EQ(platformCalls().counts["CertCreateCertificateContext"], 2) << "and not the third";
}

TEST_F(CardAcquireContextTest, RefusesAThirdCertificateThatThePlatformRefuses) {
    content.certificates.push_back(bytes("DEADBEEF"));
    ScriptedCard card;
    expectAcquisition(card, content, 3);
    PlatformRecord record(CardType::type7);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), 8);
    ASSERT_NE(record.data.pvVendorSpecific, nullptr);
}

TEST_F(CardAcquireContextTest, FillsTheAgreementSlotsByTheAuthenticationKeyAlone) {
    struct Row {
        std::vector<ByteVector> certificates;
        bool filled;
    };
    for (const Row& row : {Row{{p256Certificate(), rsa2048Certificate()}, true},
                           Row{{rsa2048Certificate(), p256Certificate()}, false}}) {
        content.certificates = row.certificates;
        ScriptedCard card;
        expectAcquisition(card, content, 2);
        PlatformRecord record(CardType::type3);
        ASSERT_EQ(CardAcquireContext(&record.data, 0), 0);
        EXPECT_EQ(record.data.pfnCardConstructDHAgreement != nullptr, row.filled);
        EXPECT_EQ(record.data.pfnCardDeriveKey != nullptr, row.filled);
        EXPECT_EQ(record.data.pfnCardDestroyDHAgreement != nullptr, row.filled);
        EXPECT_NE(record.data.pfnCspGetDHAgreement, nullptr);
    }
}

TEST_F(CardAcquireContextTest, FillsEverySlotButDeauthenticateAndTheUnusedMembers) {
    ScriptedCard card;
    expectAcquisition(card, content, 2);
    PlatformRecord record(CardType::type3);
    int unused3 = 0;
    int unused4 = 0;
    record.data.pvUnused3 = &unused3;
    record.data.pvUnused4 = &unused4;
    record.data.pfnCardDeauthenticate = CardDeauthenticate;
    ASSERT_EQ(CardAcquireContext(&record.data, 0), 0);
    EXPECT_EQ(record.data.pfnCardDeauthenticate, nullptr);
    EXPECT_EQ(record.data.pvUnused3, &unused3);
    EXPECT_EQ(record.data.pvUnused4, &unused4);
    const auto* slot = reinterpret_cast<void* const*>(&record.data.pfnCardDeleteContext);
    const auto* end = reinterpret_cast<void* const*>(&record.data + 1);
    int empty = 0;
    for (; slot != end; ++slot) empty += *slot == nullptr ? 1 : 0;
    EXPECT_EQ(empty, 1) << "pfnCardDeauthenticate alone";
}

TEST_F(CardAcquireContextTest, StopsAnExceptionAtTheBoundary) {
    ScriptedCard card;
    expectAcquisition(card, content, 2);
    platformCalls().CertCreateCertificateContext = [](auto, auto, auto) -> PCCERT_CONTEXT {
        throw std::runtime_error("an exception that nobody expects");
    };
    PlatformRecord record(CardType::type3);
    EXPECT_EQ(CardAcquireContext(&record.data, 0), status::unexpected);
    EXPECT_EQ(log.file(), entryLine);
}

TEST_F(CardAcquireContextTest, StopsAThrownPointerInATableSlotAtTheBoundary) {
    ScriptedCard card;
    expectAcquisition(card, content, 2);
    PlatformRecord record(CardType::type3);
    ASSERT_EQ(CardAcquireContext(&record.data, 0), 0);
    static std::runtime_error thrown("as a pointer");
    platformCalls().IsWindow = [](HWND) -> BOOL { throw &thrown; };
    BYTE window[8] = {1};
    EXPECT_EQ(
        record.data.pfnCardSetProperty(&record.data, WIDE_TEXT("Parent Window"), window, 8, 0),
        status::unexpected);
}

TEST_F(CardAcquireContextTest, EveryFailingPlatformCallEndsWithAStatus) {
    content.certificates.push_back(rsa2048Certificate());
    for (int n = 1;; ++n) {
        ::testing::TestPartResultArray ignored;
        PlatformRecord record(CardType::type5);
        DWORD status = 1;
        {
            // The script fails by itself where a failing call ends it early: only the status
            // counts.
            ::testing::ScopedFakeTestPartResultReporter reporter(
                ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD,
                &ignored);
            ScriptedCard card;
            expectAcquisition(card, content, 3);
            platformCalls().failNth(n);
            status = CardAcquireContext(&record.data, 0);
            platformCalls().failAt = 0;
        }
        if (!platformCalls().failed) {
            EXPECT_EQ(status, 0);
            EXPECT_GT(n, 80);
            break;
        }
        EXPECT_TRUE(status == 0 || status == 8 || status == status::unexpected ||
                    status == status::fileNotFound)
            << n << ": " << std::hex << status;
        log.clear();
    }
    platformCalls().failNth(0);
}

class CardDeleteContextTest : public CardAcquireContextTest {};

TEST_F(CardDeleteContextTest, RefusesANullRecord) {
    EXPECT_EQ(CardDeleteContext(nullptr), status::invalidParameter);
    EXPECT_EQ(log.file(), (LogLines{{"CardDeleteContext", "Entering the function"}}));
    EXPECT_EQ(log.output(), (LogLines{{"DEBUG", "CMR_48: pCardData is NULL."}}));
}

TEST_F(CardDeleteContextTest, DoesNothingWithoutAContext) {
    CARD_DATA data{};
    EXPECT_EQ(CardDeleteContext(&data), 0);
    EXPECT_EQ(log.output(), LogLines{});
}

TEST_F(CardDeleteContextTest, FreesTwoCertificatesAndKeepsTheValueOfTheMember) {
    content.certificates.push_back(p384Certificate());
    ScriptedCard card;
    expectAcquisition(card, content, 3);
    PlatformRecord record(CardType::type5);
    ASSERT_EQ(CardAcquireContext(&record.data, 0), 0);
    PCCERT_CONTEXT givenUp = contextOf(&record.data).secondSignCert;
    void* before = record.data.pvVendorSpecific;
    log.clear();
    EXPECT_EQ(record.data.pfnCardDeleteContext(&record.data), 0);
    EXPECT_EQ(record.data.pvVendorSpecific, before);
    EXPECT_EQ(platformCalls().counts["CertFreeCertificateContext"], 2)
        << "the second signing certificate's handle is given up";
    EXPECT_EQ(log.file(), (LogLines{{"CardDeleteContext", "Entering the function"}}));
    record.data.pvVendorSpecific = nullptr;
    CertFreeCertificateContext(givenUp);
}

}  // namespace
}  // namespace KelmoraID
