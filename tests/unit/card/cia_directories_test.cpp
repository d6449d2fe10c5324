#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

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

std::string pathReference(std::string_view tag, std::string_view path) {
    return tlv(tag, tlv("30", tlv("04", path)));
}

// An ODF as cards have it: references to other directories ahead, zero filler behind.
const std::string odf = pathReference("A0", "3F004402") + pathReference("A1", "3F004403") +
                        pathReference("A4", "3F004404") + pathReference("A8", "3F004401") +
                        "0000000000";

std::string certificateEntry(std::string_view path) {
    return tlv("30", tlv("30", tlv("0C", "4141")) + tlv("30", tlv("04", "45")) +
                         tlv("A1", tlv("30", tlv("30", tlv("04", path)))));
}

// A PIN's entry, each element to be left out or changed.
struct PinEntry {
    std::string flags = "0302040C";
    std::string type = "0A0101";
    std::string minimum = "020104";
    std::string stored = "02010C";
    std::string maximum = "020110";
    std::string reference = "800111";
    std::string path = "3006 0404 3F00 5016";

    std::string text() const {
        return tlv("30", tlv("30", "0C0141") + tlv("30", "040101") +
                             tlv("A1", tlv("30", flags + type + minimum + stored + maximum +
                                                     reference + path)));
    }
};

struct Outcome {
    ByteVector result;
    LogLines trace;
};

Outcome getDirectories(bool readPrivateKey, bool readCertificate, std::uint32_t index) {
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    const ByteVector result = handler.GetDirectories(readPrivateKey, readCertificate, index);
    EXPECT_EQ(log.file(), LogLines{});
    return {result, log.output()};
}

// What the script of a card leads to, with all of its trace.
void expectOutcome(const TracedCard& traced, bool readPrivateKey, bool readCertificate,
                   std::uint32_t index, std::string_view result) {
    const Outcome outcome = getDirectories(readPrivateKey, readCertificate, index);
    EXPECT_EQ(outcome.result, bytes(result));
    EXPECT_EQ(outcome.trace, traced.lines());
}

// The trace up to the content of the AODF, and of the CDF.
void readAodf(TracedCard& traced, const std::string& aodf) {
    traced.line("GetDirectories").file("5031", odf);
    traced.line("GetDirectories, ODF file read successful.");
    traced.line("GetDirectories PRK, private key file reading, filepath: 3f 0 44 1 .");
    traced.file("4401", aodf).line("GetDirectories PRK, AOD file read successful.");
}

void readCdf(TracedCard& traced, const std::string& cdf) {
    traced.line("GetDirectories").file("5031", odf);
    traced.line("GetDirectories, ODF file read successful.");
    traced.line("GetDirectories CERT, reading filepath: 3f 0 44 4 .").file("4404", cdf);
}

TEST(CiaDirectories, GiveTheLengthsOfAPin) {
    TracedCard traced;
    readAodf(traced, PinEntry().text());
    traced.line("GetDirectories PRK, file read successful.")
        .line("GetDirectories PRK, pinmin: 04")
        .line("GetDirectories PRK, pinmax: 0c");
    expectOutcome(traced, true, false, 0, "04 0C");
}

TEST(CiaDirectories, GiveTheLengthsOfTheSecondPinPastForeignTags) {
    PinEntry second;
    second.minimum = "020106";
    second.stored = "02010A";
    TracedCard traced;
    readAodf(traced, PinEntry().text() + "A003020101" + second.text() + "0000");
    traced.line("GetDirectories PRK, file read successful.")
        .line("GetDirectories PRK, pinmin: 06")
        .line("GetDirectories PRK, pinmax: 0a");
    expectOutcome(traced, true, false, 1, "06 0A");
}

TEST(CiaDirectories, ReadTheAodfAloneWhenBothAreAskedFor) {
    TracedCard traced;
    readAodf(traced, PinEntry().text());
    EXPECT_EQ(getDirectories(true, true, 0).result, bytes("04 0C"));
}

TEST(CiaDirectories, GiveNoLengthsOfAnEntryThatLacksAnElement) {
    const auto changed =
        [](const std::vector<std::pair<std::string PinEntry::*, const char*>>& by) {
            PinEntry entry;
            for (const auto& [element, value] : by) entry.*element = value;
            return entry.text();
        };
    const struct {
        const char* what;
        std::string aodf;
    } rows[] = {
        // Flags and reference are not used, and must be there all the same.
        {"flags", changed({{&PinEntry::flags, ""}, {&PinEntry::maximum, ""}})},
        {"minimum", changed({{&PinEntry::minimum, ""}, {&PinEntry::maximum, ""}})},
        {"reference", changed({{&PinEntry::reference, ""}, {&PinEntry::maximum, ""}})},
        {"every number",
         changed({{&PinEntry::minimum, ""}, {&PinEntry::stored, ""}, {&PinEntry::maximum, ""}})},
        {"stored length", changed({{&PinEntry::stored, ""}, {&PinEntry::maximum, ""}})},
        {"content of the stored length", changed({{&PinEntry::stored, "0200"}})},
        {"attributes", "30020C000000"},
        {"content of the attributes", "3002A1000000"},
        {"all of it", "0000"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TracedCard traced;
        readAodf(traced, row.aodf);
        traced.line("GetDirectories PRK, exiting private key file reading.");
        expectOutcome(traced, true, false, 0, "");
    }
}

TEST(CiaDirectories, GiveTheLengthsOfAnEntryWithoutAPath) {
    for (const char* path : {"", "3000"}) {
        PinEntry entry;
        entry.path = path;
        TracedCard traced;
        readAodf(traced, entry.text());
        EXPECT_EQ(getDirectories(true, false, 0).result, bytes("04 0C"));
    }
}

TEST(CiaDirectories, TakeAllOfTheMinimumAndTheFirstByteOfTheStoredLength) {
    PinEntry entry;
    entry.minimum = "02020004";
    entry.stored = "02020C0D";
    TracedCard traced;
    readAodf(traced, entry.text());
    traced.line("GetDirectories PRK, file read successful.")
        .line("GetDirectories PRK, pinmin: 00 04")
        .line("GetDirectories PRK, pinmax: 0c 0d");
    expectOutcome(traced, true, false, 0, "00 04 0C");
}

TEST(CiaDirectories, GiveNothingForAnIndexBeyondThePins) {
    for (const std::uint32_t index : {1U, 0x7FFFFFFEU, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        SCOPED_TRACE(index);
        TracedCard traced;
        readAodf(traced, PinEntry().text());
        traced.line("GetDirectories PRK, exiting private key file reading.");
        expectOutcome(traced, true, false, index, "");
    }
}

TEST(CiaDirectories, GiveThePathOfACertificate) {
    const std::string cdf =
        certificateEntry("3F004331") + "A000" + certificateEntry("3F0050164332") + "0000";
    for (const auto& [index, path] : {std::pair{0U, "3F004331"}, std::pair{1U, "3F0050164332"}}) {
        TracedCard traced;
        readCdf(traced, cdf);
        traced.line("GetDirectories CERT, file read successful.")
            .line("GetDirectories CERT, exit file reading.");
        expectOutcome(traced, false, true, index, path);
    }
}

TEST(CiaDirectories, GiveNothingForAnIndexBeyondTheCertificates) {
    for (const std::uint32_t index : {1U, 0x7FFFFFFEU, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        SCOPED_TRACE(index);
        TracedCard traced;
        readCdf(traced, certificateEntry("3F004331"));
        traced.line("GetDirectories CERT, exit file reading.");
        expectOutcome(traced, false, true, index, "");
    }
}

TEST(CiaDirectories, GiveNoPathOfAnEntryWithoutOneAtAnyLevel) {
    for (const char* entry : {"30020C00", "3002A100", "3004A1023000", "3006A10430023000"}) {
        SCOPED_TRACE(entry);
        TracedCard traced;
        readCdf(traced, entry);
        traced.line("GetDirectories CERT, exit file reading.");
        expectOutcome(traced, false, true, 0, "");
    }
}

constexpr const char* aodfAlone = "A806 3004 0402 4400";

TEST(CiaDirectories, ReadAnAodfOfTheCurrentDirectory) {
    const std::string aodf = PinEntry().text();
    TracedCard traced;
    char select[32];
    std::snprintf(select, sizeof select, "6203 8001 %02X 9000",
                  static_cast<unsigned>(bytes(aodf).size()));
    char read[32];
    std::snprintf(read, sizeof read, "00B0 0000 %02X", static_cast<unsigned>(bytes(aodf).size()));
    traced.line("GetDirectories").file("5031", aodfAlone);
    traced.line("GetDirectories, ODF file read successful.")
        .line("GetDirectories PRK, private key file reading, filepath: 44 0 .")
        .line("readFile")
        .line("ReadFile: full filePath: 44 0 ")
        .line("ReadFile: selectFileApdu, efIdentifier: 44 0 ")
        .exchange("00A4 0204 02 4400 00", select)
        .line("readBinary")
        .exchange(read, aodf + "9000")
        .line("readBinary exiting successfully!")
        .line("Completing ReadFile.")
        .line("GetDirectories PRK, AOD file read successful.")
        .line("GetDirectories PRK, file read successful.")
        .line("GetDirectories PRK, pinmin: 04")
        .line("GetDirectories PRK, pinmax: 0c");
    expectOutcome(traced, true, false, 0, "04 0C");
}

TEST(CiaDirectories, FindNoCertificatesInAnOdfOfAuthenticationObjectsAlone) {
    TracedCard traced;
    traced.line("GetDirectories").file("5031", aodfAlone);
    traced.line("GetDirectories, ODF file read successful.")
        .line("GetDirectories, ODF file decoding failed.");
    expectOutcome(traced, false, true, 0, "");
}

TEST(CiaDirectories, FindNoPinsInAnOdfOfCertificatesAlone) {
    TracedCard traced;
    traced.line("GetDirectories").file("5031", pathReference("A4", "3F004404"));
    traced.line("GetDirectories, ODF file read successful.")
        .line("GetDirectories PRK, ODF file decoding failed.");
    expectOutcome(traced, true, false, 0, "");
}

TEST(CiaDirectories, DoNotDecodeAnOdfThatLacksALevelOfTheReference) {
    for (const char* broken : {"A800A400", "A8023000 A4023000"}) {
        for (const bool privateKey : {true, false}) {
            TracedCard traced;
            traced.line("GetDirectories").file("5031", broken);
            traced.line("GetDirectories, ODF file read successful.");
            traced.line(privateKey ? "GetDirectories PRK, ODF file decoding failed."
                                   : "GetDirectories, ODF file decoding failed.");
            EXPECT_EQ(getDirectories(privateKey, true, 0).trace, traced.lines());
        }
    }
}

TEST(CiaDirectories, GiveNothingWithoutAnOdf) {
    for (const bool privateKey : {true, false}) {
        TracedCard traced;
        traced.line("GetDirectories").missingFile("5031");
        traced.line("GetDirectories, ODF file reading failed");
        expectOutcome(traced, privateKey, true, 0, "");
    }
}

TEST(CiaDirectories, GiveNothingWhenTheDirectoryFileCannotBeRead) {
    for (const bool privateKey : {true, false}) {
        TracedCard traced;
        traced.line("GetDirectories").file("5031", odf);
        traced.line("GetDirectories, ODF file read successful.");
        if (privateKey) {
            traced.line("GetDirectories PRK, private key file reading, filepath: 3f 0 44 1 .");
            traced.missingFile("4401").line("GetDirectories PRK, AOD file reading failed.");
        } else {
            traced.line("GetDirectories CERT, reading filepath: 3f 0 44 4 .");
            traced.missingFile("4404").line("GetDirectories CERT, file reading failed.");
        }
        expectOutcome(traced, privateKey, true, 0, "");
    }
}

TEST(CiaDirectories, GiveNothingWhenNothingIsAskedFor) {
    TracedCard traced;
    traced.line("GetDirectories").file("5031", odf);
    traced.line("GetDirectories, ODF file read successful.")
        .line("Not reading certificates or private keys? Error?");
    expectOutcome(traced, false, false, 0, "");
}

TEST(PinLengths, AreReadAfterSelectingTheApplication) {
    TracedCard traced;
    traced.application();
    readAodf(traced, PinEntry().text());
    traced.line("GetDirectories PRK, file read successful.")
        .line("GetDirectories PRK, pinmin: 04")
        .line("GetDirectories PRK, pinmax: 0c");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    EXPECT_EQ(handler.GetPinMinMaxLength(0), (std::pair<BYTE, BYTE>{4, 12}));
    EXPECT_EQ(log.output(), traced.lines());
}

TEST(PinLengths, AreReadThoughNoApplicationCouldBeSelected) {
    TracedCard traced;
    traced.card().expect("00A4 0400 0C A000000063504B43532D3135 00", "6A82");
    traced.card().expect("00A4 0400 10 A0000000 77030C60 000000FE 00000500 00", "6A82");
    readAodf(traced, PinEntry().text());
    CardTransactionHandler handler(ScriptedCard::handle);
    EXPECT_EQ(handler.GetPinMinMaxLength(0), (std::pair<BYTE, BYTE>{4, 12}));
}

TEST(PinLengths, Are0OfAMinimumOfTwoBytes) {
    PinEntry entry;
    entry.minimum = "02020004";
    TracedCard traced;
    traced.application();
    readAodf(traced, entry.text());
    traced.line("GetDirectories PRK, file read successful.")
        .line("GetDirectories PRK, pinmin: 00 04")
        .line("GetDirectories PRK, pinmax: 0c")
        .line("GetPinMinMaxLength, GetDirectories call failed.");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    EXPECT_EQ(handler.GetPinMinMaxLength(0), (std::pair<BYTE, BYTE>{0, 0}));
    EXPECT_EQ(log.output(), traced.lines());
}

TEST(PinLengths, Are0WhenTheDirectoriesCannotBeRead) {
    TracedCard traced;
    traced.application().line("GetDirectories").missingFile("5031");
    traced.line("GetDirectories, ODF file reading failed")
        .line("GetPinMinMaxLength, GetDirectories call failed.");
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    EXPECT_EQ(handler.GetPinMinMaxLength(1), (std::pair<BYTE, BYTE>{0, 0}));
    EXPECT_EQ(log.output(), traced.lines());
}

}  // namespace
}  // namespace KelmoraID
