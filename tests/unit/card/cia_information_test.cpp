#include <gtest/gtest.h>

#include "card/card_transaction_handler.h"
#include "unit/card/trace_lines.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLines;
using testing::ScriptedCard;
using testing::tlv;
using testing::TracedCard;

const std::string version = "020101";
const std::string serial = "0403 4601A2";
const std::string manufacturer = "0C02 4142";
const std::string label = "8005 46494E4544";

struct Outcome {
    bool result;
    ByteVector serialNumber;
    std::string label;
    LogLines trace;
};

// The outputs stand as "before" until they are written.
Outcome readInformation() {
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    Outcome outcome{false, bytes("77"), "before", {}};
    outcome.result =
        handler.GetSerialNumberAndLabelFromCIAInfo(outcome.serialNumber, outcome.label);
    EXPECT_EQ(log.file(), LogLines{});
    outcome.trace = log.output();
    return outcome;
}

void readFile(TracedCard& traced, const std::string& content) {
    traced.line("GetSerialNumberAndLabelFromCIAInfo").line("Reading CIA file: 3f 00 50 32.");
    traced.file("5032", content).line("CIA file read successfully.");
    traced.line("CIA file data: " + testing::traceSpacedHex(bytes(content)));
}

TEST(CiaInformation, GivesSerialNumberAndLabel) {
    TracedCard traced;
    traced.application();
    readFile(traced, tlv("30", version + serial + manufacturer + label));
    traced.line("CIA file decoding successful!")
        .line("CIA file, serialNumber: 46 1 a2 ")
        .line("CIA file, version: 1 ")
        .line("CIA file, labelString: FINED");
    const Outcome outcome = readInformation();
    EXPECT_TRUE(outcome.result);
    EXPECT_EQ(outcome.serialNumber, bytes("4601A2"));
    EXPECT_STREQ(outcome.label.c_str(), "FINED");
    EXPECT_EQ(outcome.trace, traced.lines());
}

TEST(CiaInformation, DecodesTheElementsInAnyOrderPastOthers) {
    TracedCard traced;
    traced.application();
    readFile(traced,
             tlv("30", "A200" + label + "0302 0510" + manufacturer + serial + version) + "0000");
    const Outcome outcome = readInformation();
    EXPECT_TRUE(outcome.result);
    EXPECT_EQ(outcome.serialNumber, bytes("4601A2"));
    EXPECT_STREQ(outcome.label.c_str(), "FINED");
}

// The manufacturer identifier is not kept, and must be there all the same.
TEST(CiaInformation, DoesNotDecodeARecordThatLacksAnElement) {
    for (const std::string& record : {serial + manufacturer + label, version + manufacturer + label,
                                      version + serial + label, version + serial + manufacturer}) {
        TracedCard traced;
        traced.application();
        readFile(traced, tlv("30", record));
        traced.line("CIA file decoding failed.");
        const Outcome outcome = readInformation();
        EXPECT_FALSE(outcome.result);
        EXPECT_EQ(outcome.serialNumber, bytes("77"));
        EXPECT_EQ(outcome.label, "before");
        EXPECT_EQ(outcome.trace, traced.lines());
    }
}

TEST(CiaInformation, DoesNotDecodeAFileWithoutARecord) {
    TracedCard traced;
    traced.application();
    readFile(traced, version + serial + manufacturer + label);
    traced.line("CIA file decoding failed.");
    const Outcome outcome = readInformation();
    EXPECT_FALSE(outcome.result);
    EXPECT_EQ(outcome.trace, traced.lines());
}

// The stand-in's ANSI code page is 1252: 80 is the euro sign there, E4 an a with dots. Read as
// UTF-8 these bytes would be malformed.
TEST(CiaInformation, ReadsTheLabelByTheSystemsCodePage) {
    TracedCard traced;
    traced.application();
    readFile(traced, tlv("30", version + serial + manufacturer + "8002 41E4"));
    const Outcome outcome = readInformation();
    EXPECT_TRUE(outcome.result);
    EXPECT_STREQ(outcome.label.c_str(), "A\xC3\xA4");
}

TEST(CiaInformation, EndsTheLabelAtItsFirstZeroByte) {
    TracedCard traced;
    traced.application();
    readFile(traced, tlv("30", version + serial + manufacturer + "8005 4142004344"));
    traced.line("CIA file decoding successful!")
        .line("CIA file, serialNumber: 46 1 a2 ")
        .line("CIA file, version: 1 ")
        .line("CIA file, labelString: AB");
    const Outcome outcome = readInformation();
    EXPECT_STREQ(outcome.label.c_str(), "AB");
    EXPECT_EQ(outcome.trace, traced.lines());
}

TEST(CiaInformation, ShowsAFailedApplicationSelectionOnlyAsAFileThatCannotBeRead) {
    TracedCard traced;
    traced.card().expect("00A4 0400 0C A000000063504B43532D3135 00", "6A82");
    traced.card().expect("00A4 0400 10 A0000000 77030C60 000000FE 00000500 00", "6A82");
    traced.missingFile("5032");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    ByteVector serialNumber = bytes("77");
    std::string labelText = "before";
    EXPECT_FALSE(handler.GetSerialNumberAndLabelFromCIAInfo(serialNumber, labelText));
    EXPECT_EQ(serialNumber, bytes("77"));
    EXPECT_EQ(labelText, "before");
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(CiaInformation, TracesAFileThatCannotBeRead) {
    TracedCard traced;
    traced.application();
    traced.line("GetSerialNumberAndLabelFromCIAInfo").line("Reading CIA file: 3f 00 50 32.");
    traced.missingFile("5032").line("CIA file reading failed.");
    const Outcome outcome = readInformation();
    EXPECT_FALSE(outcome.result);
    EXPECT_EQ(outcome.trace, traced.lines());
}

}  // namespace
}  // namespace KelmoraID
