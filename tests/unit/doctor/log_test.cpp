// The driver's log: whole, mixed, cut and hostile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <random>

#include "doctor/log_explanation.h"
#include "doctor/log_lines.h"
#include "doctor/log_reader.h"

namespace cardhost::doctor {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

ByteView bytesOf(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A log line at that second.
std::string at(int second, const std::string& scope, const std::string& message) {
    return fmt::format("[2026-11-21 05:{:02}:{:02}] [{}] {}\n", second / 60, second % 60, scope,
                       message);
}

std::string entry(int second, const std::string& scope) {
    return at(second, scope, "Entering the function");
}

std::string leaving(int second, const std::string& scope, const std::string& status) {
    return at(second, scope, "Exiting the function, with status code: '" + status + "'");
}

std::string call(int second, const std::string& scope, const std::string& status = "0x00000000") {
    return entry(second, scope) + leaving(second, scope, status);
}

std::string acquired(int second) {
    return entry(second, "CardAcquireContext") +
           at(second, "CardAcquireContext", "Entering RegisterCard") +
           at(second, "AdAttributeService",
              "No AD service address found. Skip smart card to AD pairing.");
}

std::string loaded() {
    return at(0, "DllMain", "Started with reason code: 1");
}

std::string ended(int second) {
    return at(second, "DllMain", "Started with reason code: 0");
}

void readIn(LogReader& log, const std::string& text, std::size_t pieceSize) {
    for (std::size_t i = 0; i < text.size(); i += pieceSize) {
        log.add(bytesOf(text).subspan(i, std::min(pieceSize, text.size() - i)));
    }
    log.finish();
}

/// "verdict id subject: found" of all that is not well.
std::vector<std::string> explained(const std::string& text) {
    LogReader log;
    log.add(bytesOf(text));
    log.finish();
    Findings findings;
    explainLog(log, "the.log", findings);
    std::vector<std::string> lines;
    for (const Finding& finding : findings.all()) {
        if (finding.verdict == Verdict::well) continue;
        lines.push_back(fmt::format("{} {} {}: {}", verdictName(finding.verdict), finding.id,
                                    finding.subject, finding.found));
    }
    return lines;
}

std::vector<std::string> linesOf(const std::string& text, std::uint64_t& strays) {
    std::vector<std::string> result;
    LogLines lines([&](const LogLine& line) {
        result.push_back(fmt::format("{}|{}|{}", line.time, line.scope, line.message));
    });
    lines.add(bytesOf(text));
    lines.finish();
    strays = lines.strays();
    return result;
}

TEST(LogLines, AreTakenApart) {
    std::uint64_t strays = 0;
    EXPECT_THAT(linesOf("[2026-11-21 05:10:19] [CardReadFile] Entering the function\r\n"
                        "[2026-11-21 05:10:20] [] ] empty\n",
                        strays),
                ElementsAre("2026-11-21 05:10:19|CardReadFile|Entering the function",
                            "2026-11-21 05:10:20||] empty"));
    EXPECT_EQ(strays, 0U);
}

TEST(LogLines, ThatAreCutOrForeignAreCounted) {
    std::uint64_t strays = 0;
    EXPECT_THAT(linesOf("rdReadFile] Exiting\n"
                        "[2026-11-21 05:10:19] [CardRe\n"
                        "\n"
                        " dwPaddingType:'2'\n"
                        "[2026-11-21 05:10] [A] b\n",
                        strays),
                IsEmpty());
    EXPECT_EQ(strays, 3U) << "an empty line and the second line of a message are none of them";
}

TEST(LogLines, ThatRanTogetherAreTakenApart) {
    std::uint64_t strays = 0;
    EXPECT_THAT(
        linesOf("[2026-11-21 05:10:19] [A] Exiti[2026-11-21 05:10:19] [B] Entering\n", strays),
        ElementsAre("2026-11-21 05:10:19|A|Exiti", "2026-11-21 05:10:19|B|Entering"));
    EXPECT_EQ(strays, 1U);
}

TEST(LogLines, AreBounded) {
    std::uint64_t strays = 0;
    std::string text;
    text.append(50'000'000, 'x');
    const auto lines =
        linesOf("[2026-11-21 05:10:19] [A] " + text + "\n" + "[2026-11-21 05:10:19] [B] y", strays);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_LT(lines[0].size(), 10'000U);
    EXPECT_EQ(lines[1], "2026-11-21 05:10:19|B|y");
    EXPECT_EQ(strays, 1U);
}

TEST(Log, OfAGoodDayHasNothingToExplain) {
    EXPECT_THAT(
        explained(loaded() + acquired(1) + call(2, "CardReadFile") + call(3, "CardAuthenticateEx") +
                  call(4, "CardSignData") + entry(5, "CardDeleteContext") + ended(6)),
        IsEmpty());
}

TEST(Log, NamesTheFailedCallAndItsStatus) {
    EXPECT_THAT(
        explained(loaded() + acquired(1) + call(2, "CardSignData", "0x8010001f") +
                  entry(5, "CardDeleteContext") + ended(6)),
        ElementsAre(HasSubstr("something went wrong in 1; the last one among them"),
                    HasSubstr("problem log.refused CardSignData: 2026-11-21 05:00:02: 0x8010001f "
                              "SCARD_E_UNEXPECTED")));
}

TEST(Log, LeavesOpenWhetherAPinWasWrongOrIsBlocked) {
    EXPECT_THAT(explained(acquired(1) + entry(2, "CardAuthenticateEx") +
                          at(3, "CardAuthenticateEx",
                             "Exiting the function, with status code: '0x8010006b' or "
                             "'0x8010006c'") +
                          entry(4, "CardDeleteContext")),
                Contains(HasSubstr("note log.wrong-pin CardAuthenticateEx: 2026-11-21 05:00:03: "
                                   "0x8010006b SCARD_W_WRONG_CHV")));
}

TEST(Log, CountsWhatRepeats) {
    std::string text = acquired(1);
    for (int i = 2; i < 9; ++i) text += call(i, "CardSignData", "0x8010001f");
    EXPECT_THAT(explained(text + entry(9, "CardDeleteContext")),
                Contains(HasSubstr("CardSignData: 7 times, last 2026-11-21 05:00:08")));
}

TEST(Log, TellsThatASignatureSpeaksUnderAnotherName) {
    EXPECT_THAT(explained(acquired(1) + entry(2, "CardSignData") +
                          at(2, "CardReadFile",
                             "Exiting the function, with status code: '0x80100022', unrecommended "
                             "algorithm") +
                          entry(3, "CardDeleteContext")),
                Contains(HasSubstr("this is a signature in truth")));
}

TEST(Log, TellsOfACardThatWasNotAcquired) {
    const std::string failed = loaded() + entry(1, "CardAcquireContext") + ended(2);
    EXPECT_THAT(explained(failed), Contains(HasSubstr("problem log.not-acquired")));
    EXPECT_THAT(explained(failed + loaded() + acquired(3) + entry(4, "CardDeleteContext")),
                Contains(HasSubstr("something went wrong in 1; the last one went well")));
}

TEST(Log, TellsOfACallThatHasNoEnd) {
    EXPECT_THAT(explained(loaded() + acquired(1) +
                          at(2, "CardAuthenticateEx",
                             "Entering the function, with parameters, PinId:'1' dwFlags:'0'")),
                Contains(HasSubstr("note log.unfinished CardAuthenticateEx: 2026-11-21 05:00:02")));
}

TEST(Log, ExplainsEachMessageOfAFailure) {
    for (const char* message :
         {"Unable to load DLL: CodeEntryLibrary", "Unable to find the function in the DLL!",
          "Error: The codeEntryLibPath was not set.", "Error: Changing directory failed.",
          "Class name conversion failed.", "Failed to verify PIN. Aborting...",
          "Pin length validation failed with an unknown exception.",
          "ERROR: Could not reconnect to card. Error: 0x-7fefff97",
          "ERROR: Failed to transmit an apdu. Tried reconnecting: true. Error: 0x-7fefff97",
          "Transmit error. Exception: Failed to transmit data., error: 1", "Could not parse URL.",
          "Receiving anomalous data. Abort.",
          "Could not read data from the server's response. Abort.",
          "Unexpected error. No data was read? Abort.",
          "Certificate handling failure. Skip smart card to AD pairing.",
          "Another registercard action is already running. Do not attempt to pair card.",
          "Could not read registry."}) {
        EXPECT_THAT(
            explained(acquired(1) + at(2, "Anyone", message) + entry(3, "CardDeleteContext")),
            Contains(HasSubstr(std::string("log.message Anyone: 2026-11-21 05:00:02: '") + message +
                               "'")));
    }
}

TEST(Log, SaysThatAcquisitionsAreMixed) {
    // Two processes: the second acquires while the first has not let go.
    const std::string text = loaded() + acquired(1) + loaded() + acquired(2) +
                             call(3, "CardSignData", "0x8010001f") + entry(4, "CardDeleteContext") +
                             entry(5, "CardDeleteContext");
    EXPECT_THAT(explained(text), Contains(HasSubstr("note log.mixed")));
    // One after the other: not.
    EXPECT_THAT(explained(acquired(1) + entry(2, "CardDeleteContext") + acquired(3) +
                          call(3, "CardSignData", "0x8010001f") + entry(4, "CardDeleteContext")),
                Not(Contains(HasSubstr("log.mixed"))));
    // The first process ended without letting go: not either.
    EXPECT_THAT(explained(loaded() + acquired(1) + ended(2) + loaded() + acquired(3) +
                          call(3, "CardSignData", "0x8010001f") + entry(4, "CardDeleteContext")),
                Not(Contains(HasSubstr("log.mixed"))));
}

TEST(Log, OfMixedAcquisitionsIsNotTakenAtItsWord) {
    const std::string text = loaded() + acquired(1) + loaded() + entry(2, "CardAcquireContext") +
                             call(3, "CardReadFile") + entry(4, "CardDeleteContext");
    EXPECT_THAT(explained(text), Contains(HasSubstr("note log.not-acquired")));
}

TEST(Log, ThatBeginsWithinAnAcquisitionIsExplainedToo) {
    EXPECT_THAT(explained("xiting\n" + leaving(1, "CardSignData", "0x80100069")),
                Contains(HasSubstr("SCARD_W_REMOVED_CARD")));
}

TEST(Log, ThatIsNoneIsNamed) {
    EXPECT_THAT(explained("hello\nworld\n"), ElementsAre(HasSubstr("problem log.foreign")));
    EXPECT_THAT(explained(""),
                ElementsAre(HasSubstr("problem log.foreign lines: the file is empty")));
}

TEST(Log, IsReadTheSameInPiecesOfAnySize) {
    const std::string text = loaded() + acquired(1) + call(2, "CardSignData", "0x8010001f") + "cut";
    LogReader whole;
    readIn(whole, text, text.size());
    for (std::size_t size = 1; size < 40; ++size) {
        LogReader pieces;
        readIn(pieces, text, size);
        EXPECT_EQ(pieces.lines(), whole.lines());
        EXPECT_EQ(pieces.strays(), whole.strays());
        ASSERT_EQ(pieces.troubled().size(), 1U);
        EXPECT_EQ(pieces.troubled()[0].incidents.size(), whole.troubled()[0].incidents.size());
    }
}

TEST(Log, OfAnySizeTakesBoundedMemory) {
    LogReader log;
    for (int round = 0; round < 20'000; ++round) {
        const std::string text = entry(1, "CardAcquireContext") +
                                 leaving(2, "Scope" + std::to_string(round), "0x8010001f") +
                                 entry(2, "CardSignData");
        log.add(bytesOf(text));
    }
    log.finish();
    EXPECT_EQ(log.acquisitions(), 20'000U);
    EXPECT_EQ(log.troubledCount(), 20'000U);
    EXPECT_LE(log.troubled().size(), 10U);
    LogReader one;
    one.add(bytesOf(entry(1, "CardAcquireContext")));
    for (int round = 0; round < 20'000; ++round) {
        one.add(bytesOf(leaving(2, "Scope" + std::to_string(round), "0x8010001f")));
    }
    one.finish();
    ASSERT_EQ(one.troubled().size(), 1U);
    EXPECT_LE(one.troubled()[0].incidents.size(), 20U);
    EXPECT_GT(one.troubled()[0].droppedIncidents, 19'000U);
}

TEST(Log, TellsHowManyKindsOfFailureAreLeftOut) {
    std::string text = acquired(1);
    for (int kind = 0; kind < 23; ++kind) {
        text += leaving(2, fmt::format("Scope{:02}", kind), "0x8010001f");
    }
    const auto lines = explained(text + entry(3, "CardDeleteContext"));
    EXPECT_THAT(lines, Contains("note log.more more: 3 earlier kinds of failure are left out"));
    // The last ones are those that are shown.
    EXPECT_THAT(lines, Contains(HasSubstr("Scope22")));
    EXPECT_THAT(lines, Not(Contains(HasSubstr("Scope02"))));
    EXPECT_THAT(explained(acquired(1) + leaving(2, "Scope", "0x8010001f")),
                Not(Contains(HasSubstr("log.more"))));
}

TEST(Log, TellsHowManyLinesAreCut) {
    const std::string good = acquired(1) + entry(2, "CardDeleteContext");
    EXPECT_THAT(explained("xiting\n" + good + "[2026-11-21 05:00:03] [CardRe\n"),
                ElementsAre("note log.cut lines: 2 cut, run together or not the driver's"));
    EXPECT_THAT(explained(good), IsEmpty());
}

TEST(Log, TellsItsLinesAndTheirTimes) {
    LogReader log;
    log.add(bytesOf(acquired(1) + entry(2, "CardDeleteContext")));
    log.finish();
    Findings findings;
    explainLog(log, "the.log", findings);
    EXPECT_EQ(findings.all().front().id, "log.lines");
    EXPECT_EQ(findings.all().front().found, "4, from 2026-11-21 05:00:01 to 2026-11-21 05:00:02");
}

TEST(Log, OfHostileBytesIsRead) {
    std::mt19937 random(7);
    const std::string good = loaded() + acquired(1) + call(2, "CardSignData", "0x8010001f") +
                             at(2, "CardAuthenticateEx", "Failed to verify PIN. Aborting...") +
                             entry(3, "CardDeleteContext");
    for (int round = 0; round < 3000; ++round) {
        std::string text = good;
        for (int i = 0; i < 8; ++i) text[random() % text.size()] = static_cast<char>(random());
        for (const std::string& line : explained(text)) EXPECT_LT(line.size(), 2000U);
    }
    std::string noise(100'000, '\0');
    for (char& byte : noise) byte = static_cast<char>(random());
    explained(noise);
    explained(leaving(1, "A", "0x") + leaving(1, "A", "0xfffffffffffffff") +
              leaving(1, "A", "0xzz") + leaving(1, "A", "0x1") + "[2026-11-21 05:00:01] [");
}

}  // namespace
}  // namespace cardhost::doctor
