#include <gtest/gtest.h>

#include "card/card_transaction_handler.h"
#include "support/platform_calls.h"
#include "unit/card/trace_lines.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLines;
using testing::ScriptedCard;
using testing::tlv;
using testing::TracedCard;

const std::string odf = tlv("A4", tlv("30", tlv("04", "3F004404")));

std::string entry(std::string_view path) {
    return tlv("30", tlv("30", "") + tlv("A1", tlv("30", tlv("30", tlv("04", path)))));
}
const std::string cdf = entry("3F004331") + entry("3F004332");

// The trace up to the certificate's path.
void readDirectories(TracedCard& traced) {
    traced.application().line("GetCertificate").line("GetDirectories").file("5031", odf);
    traced.line("GetDirectories, ODF file read successful.")
        .line("GetDirectories CERT, reading filepath: 3f 0 44 4 .")
        .file("4404", cdf);
}

void readPath(TracedCard& traced, const std::string& identifier) {
    readDirectories(traced);
    traced.line("GetDirectories CERT, file read successful.")
        .line("GetDirectories CERT, exit file reading.")
        .line("GetCertificate, reading cert with path: 3f 0 " +
              testing::traceHex(bytes(identifier)));
}

struct Outcome {
    ByteVector result;
    LogLines trace;
};

Outcome getCertificate(std::uint32_t index) {
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    const ByteVector result = handler.GetCertificate(index);
    EXPECT_EQ(log.file(), LogLines{});
    return {result, log.output()};
}

TEST(Certificates, AreReadByTheirPlaceInTheDirectory) {
    for (const auto& [index, identifier] : {std::pair{0U, "4331"}, std::pair{1U, "4332"}}) {
        TracedCard traced;
        readPath(traced, identifier);
        traced.file(identifier, "3082 0102 AB")
            .line("GetCertificate, CERT file read successfully!")
            .line("Cert result: 30 82 01 02 ab")
            .line("Cert len: 5");
        const Outcome outcome = getCertificate(index);
        EXPECT_EQ(outcome.result, bytes("3082 0102 AB"));
        EXPECT_EQ(outcome.trace, traced.lines());
    }
}

TEST(Certificates, AreNotTrimmedByTheirOwnLength) {
    TracedCard traced;
    readPath(traced, "4331");
    traced.file("4331", "3002 0500 0000 0000");
    EXPECT_EQ(getCertificate(0).result, bytes("3002 0500 0000 0000"));
}

TEST(Certificates, GiveNothingForAnIndexBeyondTheDirectory) {
    TracedCard traced;
    readDirectories(traced);
    traced.line("GetDirectories CERT, exit file reading.")
        .line("GetCertificate, reading cert with path: ")
        .line("GetCertificate, cert directory fetching failed.");
    const Outcome outcome = getCertificate(2);
    EXPECT_EQ(outcome.result, ByteVector{});
    EXPECT_EQ(outcome.trace, traced.lines());
}

// The platform holds the card around each call, so nothing here begins a transaction.
TEST(Certificates, AreReadByTransmissionsAlone) {
    TracedCard traced;
    readPath(traced, "4331");
    traced.file("4331", "AB");
    testing::PlatformCallsGuard guard;
    CardTransactionHandler(ScriptedCard::handle).GetCertificate(0);
    std::vector<std::string> expected(traced.card().exchanges().size(), "SCardTransmit");
    expected.insert(expected.begin(), "SCardStatusW");
    EXPECT_EQ(testing::platformCalls().order, expected);
}

// The text speaks of the ODF though it is the certificate's file that failed, and stays so.
TEST(Certificates, GiveNothingWhenTheFileCannotBeRead) {
    TracedCard traced;
    readPath(traced, "4331");
    traced.missingFile("4331").line("GetCertificate, ODF file read failed.");
    const Outcome outcome = getCertificate(0);
    EXPECT_EQ(outcome.result, ByteVector{});
    EXPECT_EQ(outcome.trace, traced.lines());
}

TEST(Certificates, GiveTheControlParametersOfAFileOfSize0) {
    TracedCard traced;
    readPath(traced, "4331");
    traced.fileSelection("4331", "6204 8002 0000 9000").line("Completing ReadFile.");
    traced.line("GetCertificate, CERT file read successfully!")
        .line("Cert result: 62 04 80 02 00 00")
        .line("Cert len: 6");
    const Outcome outcome = getCertificate(0);
    EXPECT_EQ(outcome.result, bytes("6204 8002 0000"));
    EXPECT_EQ(outcome.trace, traced.lines());
}

TEST(Certificates, AreEachReadWithTheDirectoriesAnew) {
    TracedCard traced;
    for (const char* identifier : {"4331", "4332", "4331"}) {
        readPath(traced, identifier);
        traced.file(identifier, "AB");
    }
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    for (const std::uint32_t index : {0U, 1U, 0U}) {
        EXPECT_EQ(handler.GetCertificate(index), bytes("AB"));
    }
    // The trace is off unless it is asked for.
    EXPECT_EQ(log.output(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
