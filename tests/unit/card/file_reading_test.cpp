#include <gtest/gtest.h>

#include "card/card_transaction_handler.h"
#include "unit/card/trace_lines.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLines;
using testing::ScriptedCard;
using testing::TracedCard;

// As many bytes of content as asked for, each telling its offset, as hexadecimal text.
std::string content(std::size_t first, std::size_t size) {
    ByteVector text;
    for (std::size_t i = first; i < first + size; ++i) text.push_back(static_cast<BYTE>(i * 7));
    return testing::traceSpacedHex(text);
}

ApduResult readFile(std::string_view path) {
    return CardTransactionHandler(ScriptedCard::handle).ReadFile(bytes(path));
}

ApduResult readBinary(std::uint32_t length) {
    return CardTransactionHandler(ScriptedCard::handle).readBinary(length);
}

TEST(FileReading, GoesStraightToTheFileForAPathOfTwoBytes) {
    ScriptedCard card;
    card.expect("00A4 0204 02 5032 00", "6204 8002 0003 9000")
        .expect("00B0 0000 03", "AABBCC 9000");
    const ApduResult result = readFile("5032");
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("AABBCC"));
}

TEST(FileReading, WalksToTheDirectoryAndSelectsTheFileInIt) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "9000");
    card.expect("00A4 0204 02 5032 00", "6204 8002 0001 9000").expect("00B0 0000 01", "AA 9000");
    EXPECT_EQ(readFile("3F00 5032").responseData, bytes("AA"));
}

TEST(FileReading, WalksThroughEveryDirectoryOfALongerPath) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "9000").expect("00A4 0104 02 5016 00", "9000");
    card.expect("00A4 0204 02 4331 00", "6204 8002 0001 9000").expect("00B0 0000 01", "AA 9000");
    EXPECT_EQ(readFile("3F00 5016 4331").responseData, bytes("AA"));
}

TEST(FileReading, TriesTheWholePathAfterAnyRefusalOfTheIdentifier) {
    for (const char* refusal : {"6A82", "6982", "6283", "6D00"}) {
        ScriptedCard card;
        card.expect("00A4 0104 02 3F00 00", "9000").expect("00A4 0204 02 5032 00", refusal);
        card.expect("00A4 0204 04 3F005032 00", "6204 8002 0001 9000");
        card.expect("00B0 0000 01", "AA 9000");
        EXPECT_EQ(readFile("3F00 5032").responseData, bytes("AA")) << refusal;
    }
}

TEST(FileReading, TriesThePathFormLast) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "9000").expect("00A4 0204 02 5032 00", "6A82");
    card.expect("00A4 0204 04 3F005032 00", "6A86");
    card.expect("00A4 0904 04 3F005032 00", "6204 8002 0001 9000");
    card.expect("00B0 0000 01", "AA 9000");
    EXPECT_EQ(readFile("3F00 5032").responseData, bytes("AA"));
}

TEST(FileReading, GivesTheResultOfTheLastSelectWhenAllFormsFail) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "9000").expect("00A4 0204 02 5032 00", "6A82");
    card.expect("00A4 0204 04 3F005032 00", "6A86").expect("00A4 0904 04 3F005032 00", "6A88");
    const ApduResult result = readFile("3F00 5032");
    EXPECT_EQ(result.Sw1Sw2(), 0x6A88);
    EXPECT_EQ(result.transportErrorCode, SCARD_E_FILE_NOT_FOUND);
}

TEST(FileReading, SelectsNoFileAfterAFailedDirectoryWalk) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "6982");
    const ApduResult result = readFile("3F00 5032");
    EXPECT_EQ(result.Sw1Sw2(), 0x6982);
    EXPECT_EQ(result.transportErrorCode, SCARD_W_SECURITY_VIOLATION);
}

TEST(FileReading, WalksTheLadderOfACardThatTakesTheThirdFormOfDirectories) {
    ScriptedCard card;
    card.expect("00A4 0104 02 3F00 00", "6A86").expect("00A4 0904 02 3F00 00", "6A86");
    card.expect("00A4 0004 02 3F00 00", "9000");
    card.expect("00A4 0204 02 5032 00", "6204 8002 00C8 9000");
    card.expect("00B0 0000 7F", content(0, 127) + "9000");
    card.expect("00B0 007F 49", content(127, 73) + "9000");
    const ApduResult result = readFile("3F00 5032");
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes(content(0, 200)));
}

// The control parameters then pass for the content.
TEST(FileReading, GivesTheControlParametersOfAFileOfSize0) {
    for (const char* answer : {"6204 8002 0000", "6F04 8002 0010", ""}) {
        ScriptedCard card;
        card.expect("00A4 0204 02 5032 00", std::string(answer) + "9000");
        const ApduResult result = readFile("5032");
        EXPECT_TRUE(result.success());
        EXPECT_EQ(result.responseData, bytes(answer));
    }
}

struct Chunks {
    std::uint32_t length;
    std::vector<const char*> commands;
};

TEST(FileReading, ReadsInChunksOf127Bytes) {
    for (const Chunks& chunks : {
             Chunks{1, {"00B0 0000 01"}},
             Chunks{127, {"00B0 0000 7F"}},
             Chunks{128, {"00B0 0000 7F", "00B0 007F 01"}},
             Chunks{254, {"00B0 0000 7F", "00B0 007F 7F"}},
             Chunks{255, {"00B0 0000 7F", "00B0 007F 7F", "00B0 00FE 01"}},
             Chunks{382, {"00B0 0000 7F", "00B0 007F 7F", "00B0 00FE 7F", "00B0 017D 01"}},
         }) {
        SCOPED_TRACE(chunks.length);
        ScriptedCard card;
        std::size_t offset = 0;
        for (const char* command : chunks.commands) {
            const std::size_t size = bytes(command).back();
            card.expect(command, content(offset, size) + "9000");
            offset += size;
        }
        const ApduResult result = readBinary(chunks.length);
        EXPECT_TRUE(result.success());
        EXPECT_EQ(result.responseData, bytes(content(0, chunks.length)));
    }
}

TEST(FileReading, ClosesAReadWithARecordThatIsNeverSent) {
    ScriptedCard card;
    card.expect("00B0 0000 7F", content(0, 127) + "9000").expect("00B0 007F 01", "AA 9000");
    const ApduResult result = readBinary(128);
    EXPECT_EQ(result.command.encode(), bytes("00B0 7F00 80"));
    EXPECT_EQ(result.transportErrorCode, 0);
    EXPECT_EQ(result.Sw1Sw2(), 0x9000);
    EXPECT_EQ(result.status.text(), "Command processed without error");
}

TEST(FileReading, ReadsNothingOfALengthOf0) {
    ScriptedCard card;
    const ApduResult result = readBinary(0);
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, ByteVector{});
}

TEST(FileReading, DropsWhatWasGatheredWhenAChunkFails) {
    for (const std::string data : {"", "AABB"}) {
        ScriptedCard card;
        card.expect("00B0 0000 7F", content(0, 127) + "9000").expect("00B0 007F 02", data + "6982");
        const ApduResult result = readBinary(129);
        EXPECT_EQ(result.Sw1Sw2(), 0x6982);
        EXPECT_EQ(result.responseData, bytes(data));
        EXPECT_FALSE(result.success());
    }
}

TEST(FileReading, TakesAWarningAtTheFilesEndForAFailure) {
    ScriptedCard card;
    card.expect("00B0 0000 03", "AABBCC 6282");
    EXPECT_FALSE(readBinary(3).success());
}

// No caller checks a length.
TEST(FileReading, GivesAShortChunkAloneAsASuccess) {
    ScriptedCard card;
    card.expect("00B0 0000 7F", content(0, 127) + "9000").expect("00B0 007F 03", "AABB 9000");
    const ApduResult result = readBinary(130);
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("AABB"));
}

TEST(FileReading, GivesAChunkThatIsTooLongAloneAsASuccess) {
    ScriptedCard card;
    card.expect("00B0 0000 03", "AABBCCDD 9000");
    const ApduResult result = readBinary(3);
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("AABBCCDD"));
}

// 517 chunks begin at an offset that P1 and P2 can hold, the last of them at 65532.
void expectChunks(ScriptedCard& card, std::size_t length) {
    for (std::size_t offset = 0; offset < length; offset += 127) {
        const std::size_t size = std::min<std::size_t>(127, length - offset);
        char command[32];
        std::snprintf(command, sizeof command, "00B0 %04X %02X",
                      static_cast<unsigned>(offset & 0xFFFF), static_cast<unsigned>(size));
        card.expect(command, content(offset, size) + "9000");
    }
}

TEST(FileReading, DoesNotMaskTheHighBitOfTheOffset) {
    ScriptedCard card;
    expectChunks(card, 33'000);
    EXPECT_TRUE(readBinary(33'000).success());
    EXPECT_EQ(card.exchanges().back().command, bytes("00B0 807D 6B"));
}

TEST(FileReading, ReadsAFileOf65536Bytes) {
    ScriptedCard card;
    expectChunks(card, 65'536);
    const ApduResult result = readBinary(65'536);
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData.size(), 65'536U);
    EXPECT_EQ(card.exchanges().back().command, bytes("00B0 FFFC 04"));
}

TEST(FileReading, PutsTheTwoLowestBytesOfALargerOffsetIntoTheCommand) {
    ScriptedCard card;
    expectChunks(card, 0x10100);
    EXPECT_EQ(readBinary(0x10100).responseData.size(), 0x10100U);
    EXPECT_EQ(card.exchanges().back().command, bytes("00B0 00FA 06"));
}

TEST(FileReading, FailsBeforeTheFirstCommandWhereTheStatedSizeIsAbsurd) {
    for (const std::uint32_t length : {0x100001U, 0xFFFFFFFFU}) {
        ScriptedCard card;
        LogCapture log;
        CardTransactionHandler handler(ScriptedCard::handle);
        handler.setTrace(true);
        const ApduResult result = handler.readBinary(length);
        EXPECT_EQ(card.exchanges().size(), 0U);
        EXPECT_EQ(result.transportErrorCode, SCARD_E_UNEXPECTED);
        EXPECT_EQ(result.responseData, ByteVector{});
        EXPECT_FALSE(result.success());
        EXPECT_EQ(log.output(),
                  (LogLines{{"DEBUG", "readBinary"}, {"DEBUG", "Error in readBinary!"}}));
    }
}

TEST(FileReading, ReadsAFileOfTheLargestSize) {
    ScriptedCard card;
    expectChunks(card, 0x100000);
    EXPECT_EQ(readBinary(0x100000).responseData.size(), 0x100000U);
}

LogLines tracedRead(std::string_view path) {
    LogCapture log;
    CardTransactionHandler handler(ScriptedCard::handle);
    handler.setTrace(true);
    handler.ReadFile(bytes(path));
    EXPECT_EQ(log.file(), LogLines{});
    return log.output();
}

TEST(FileReading, TracesARead) {
    TracedCard traced;
    traced.line("readFile")
        .line("ReadFile: full filePath: 3f 0 50 32 ")
        .line("ReadFile: selectDF, filePath-mid: 3f 0 ")
        .line("selectDF")
        .line("Checking Sote and ORG cards.")
        .exchange("00A4 0104 02 3F00 00", "9000")
        .line(
            "(1) SOTE&ORG for: Identifier: '3f 0 '; P1: '0x1'; P2: '0x4'; "
            "result.success: 'true'; result.Sw1Sw2: '0x9000'.")
        .line("selectDF finished.")
        .line("ReadFile: selectFileApdu, efIdentifier: 50 32 ")
        .exchange("00A4 0204 02 5032 00", "6A82")
        .line("ReadFile: selectFileApdu, whole filepath: 3f 0 50 32 ")
        .exchange("00A4 0204 04 3F005032 00", "6A82")
        .line("ReadFile: selectFileApdu (Cosmo X), filePath: 3f 0 50 32 ")
        .exchange("00A4 0904 04 3F005032 00", "6204 8002 0002 9000")
        .line("readBinary")
        .exchange("00B0 0000 02", "AABB 9000")
        .line("readBinary exiting successfully!")
        .line("Completing ReadFile.");
    EXPECT_EQ(tracedRead("3F00 5032"), traced.lines());
}

TEST(FileReading, TracesAFailedDirectoryWalkAndStopsThere) {
    TracedCard traced;
    traced.line("readFile")
        .line("ReadFile: full filePath: 3f 0 50 32 ")
        .line("ReadFile: selectDF, filePath-mid: 3f 0 ")
        .line("selectDF")
        .line("Checking Sote and ORG cards.")
        .exchange("00A4 0104 02 3F00 00", "6982")
        .line(
            "(1) SOTE&ORG for: Identifier: '3f 0 '; P1: '0x1'; P2: '0x4'; "
            "result.success: 'false'; result.Sw1Sw2: '0x6982'.")
        .line("selectDF finished.")
        .line("ReadFile, selecting DF resulted in an error: -2146434966");
    EXPECT_EQ(tracedRead("3F00 5032"), traced.lines());
}

TEST(FileReading, TracesAFileThatNoFormFinds) {
    TracedCard traced;
    traced.missingFile("5032");
    EXPECT_EQ(tracedRead("3F00 5032"), traced.lines());
}

TEST(FileReading, TracesAFailedChunk) {
    TracedCard traced;
    traced.fileSelection("5032", "6204 8002 0002 9000")
        .line("readBinary")
        .exchange("00B0 0000 02", "6982")
        .line("Error in readBinary!")
        .line("ReadFile, readBinary failed.")
        .line("Completing ReadFile.");
    EXPECT_EQ(tracedRead("3F00 5032"), traced.lines());
}

TEST(FileReading, TracesAFileOfSize0WithoutARead) {
    TracedCard traced;
    traced.fileSelection("5032", "6204 8002 0000 9000").line("Completing ReadFile.");
    EXPECT_EQ(tracedRead("3F00 5032"), traced.lines());
}

// A short chunk counts as a success of the read as a whole, so only the chunk's line is traced.
TEST(FileReading, TracesAShortChunk) {
    TracedCard traced;
    traced.fileSelection("5032", "6204 8002 0002 9000")
        .line("readBinary")
        .exchange("00B0 0000 02", "AA 9000")
        .line("Error in readBinary!")
        .line("Completing ReadFile.");
    EXPECT_EQ(tracedRead("3F00 5032"), traced.lines());
}

}  // namespace
}  // namespace KelmoraID
