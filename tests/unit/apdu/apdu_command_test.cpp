#include "apdu/apdu_command.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::LogCapture;
using testing::LogLines;

ApduCommand commandWith(std::size_t dataSize, std::optional<BYTE> Le) {
    ApduCommand command;
    command.CLA = 0x10;
    command.INS = 0x2A;
    command.P1 = 0x80;
    command.P2 = 0x86;
    command.data = ByteVector(dataSize, 0xD5);
    command.Le = Le;
    return command;
}

ByteVector operator+(ByteVector left, const ByteVector& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

TEST(ApduCommand, EncodesToFourBytesWithoutDataAndLe) {
    LogCapture log;
    EXPECT_EQ(commandWith(0, std::nullopt).encode(), bytes("10 2A 80 86"));
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(ApduCommand, SendsAPresentLeOfZeroAsAByte) {
    EXPECT_EQ(commandWith(0, BYTE{0x00}).encode(), bytes("10 2A 80 86 00"));
    EXPECT_EQ(commandWith(0, BYTE{0x7F}).encode(), bytes("10 2A 80 86 7F"));
}

TEST(ApduCommand, PutsTheSizeOfTheDataAheadOfIt) {
    EXPECT_EQ(commandWith(1, std::nullopt).encode(), bytes("10 2A 80 86 01 D5"));
    EXPECT_EQ(commandWith(3, BYTE{0x10}).encode(), bytes("10 2A 80 86 03 D5 D5 D5 10"));
}

TEST(ApduCommand, DoesNotReadTheLcThatTheFactorySet) {
    ApduCommand command = commandWith(2, std::nullopt);
    command.Lc = 0x77;
    EXPECT_EQ(command.encode(), bytes("10 2A 80 86 02 D5 D5"));
}

TEST(ApduCommand, Encodes255BytesOfDataWithLcFF) {
    LogCapture log;
    EXPECT_EQ(commandWith(255, BYTE{0x00}).encode(),
              bytes("10 2A 80 86 FF") + ByteVector(255, 0xD5) + bytes("00"));
    EXPECT_EQ(log.output(), LogLines{});
}

// Unlike more, 256 bytes pass the size check and lose their data without a word.
TEST(ApduCommand, LeavesOut256BytesOfDataWithoutAWord) {
    LogCapture log;
    EXPECT_EQ(commandWith(256, BYTE{0x20}).encode(), bytes("10 2A 80 86 20"));
    EXPECT_EQ(commandWith(256, std::nullopt).encode(), bytes("10 2A 80 86"));
    EXPECT_EQ(log.output(), LogLines{});
    EXPECT_EQ(log.file(), LogLines{});
}

TEST(ApduCommand, LeavesOut257BytesOfDataWithAnErrorLine) {
    LogCapture log;
    EXPECT_EQ(commandWith(257, BYTE{0x20}).encode(), bytes("10 2A 80 86 20"));
    EXPECT_EQ(log.output(),
              (LogLines{{"ERROR",
                         "Apdu data size too big 257 > SINGLE_APDU_DATAFIELD_MAX_SIZE to fit "
                         "single command, possibly chaining required, if APDU supports it "
                         "(CLA=10h)!"}}));
    EXPECT_EQ(log.file(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
