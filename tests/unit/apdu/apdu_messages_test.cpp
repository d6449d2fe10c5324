#include "apdu/apdu_messages.h"

#include <gtest/gtest.h>

#include "support/scripted_card.h"

namespace KelmoraID {
namespace {

using testing::bytes;

TEST(ApduRequest, EncodesWithoutLcWhenDataIsAbsent) {
    const ApduRequest request(0x00, 0x20, 0x00, 0x91, std::nullopt, std::nullopt);
    EXPECT_EQ(request.bytes, bytes("00 20 00 91"));
    EXPECT_EQ(request.Lc, std::nullopt);
    EXPECT_EQ(request.data, std::nullopt);
    EXPECT_EQ(request.Le, std::nullopt);
}

TEST(ApduRequest, EncodesPresentAndEmptyDataAsAByteZero) {
    const ApduRequest request(0x00, 0x20, 0x00, 0x91, ByteVector{}, std::nullopt);
    EXPECT_EQ(request.bytes, bytes("00 20 00 91 00"));
    EXPECT_EQ(request.Lc, BYTE{0x00});
}

TEST(ApduRequest, EncodesDataAndLe) {
    const ApduRequest request(0x10, 0x2A, 0x80, 0x86, bytes("AA BB"), BYTE{0x00});
    EXPECT_EQ(request.bytes, bytes("10 2A 80 86 02 AA BB 00"));
    EXPECT_EQ(request.CLA, 0x10);
    EXPECT_EQ(request.INS, 0x2A);
    EXPECT_EQ(request.P1, 0x80);
    EXPECT_EQ(request.P2, 0x86);
    EXPECT_EQ(request.Lc, BYTE{0x02});
    EXPECT_EQ(request.data, bytes("AA BB"));
    EXPECT_EQ(request.Le, BYTE{0x00});
    EXPECT_EQ(ApduRequest(0x00, 0xC0, 0x00, 0x00, std::nullopt, BYTE{0x10}).bytes,
              bytes("00 C0 00 00 10"));
}

TEST(ApduRequest, TakesTheLowEightBitsOfALargerSizeWithoutFurtherCheck) {
    const ApduRequest request(0x00, 0x2A, 0x80, 0x86, ByteVector(0x102, 0x5A), BYTE{0xFF});
    ByteVector expected = bytes("00 2A 80 86 02");
    expected.insert(expected.end(), 0x102, 0x5A);
    expected.push_back(0xFF);
    EXPECT_EQ(request.bytes, expected);
    EXPECT_EQ(request.Lc, BYTE{0x02});
}

TEST(ApduResponse, HasNoDataInAReplyOfExactlyTwoBytes) {
    const ApduResponse response(bytes("69 82"));
    EXPECT_EQ(response.data, std::nullopt);
    EXPECT_EQ(response.SW1, 0x69);
    EXPECT_EQ(response.SW2, 0x82);
    EXPECT_EQ(response.Sw1Sw2, 0x6982);
}

TEST(ApduResponse, TakesTheBytesBeforeTheLastTwoAsData) {
    const ApduResponse one(bytes("AA 90 00"));
    EXPECT_EQ(one.data, bytes("AA"));
    EXPECT_EQ(one.Sw1Sw2, 0x9000);
    const ApduResponse three(bytes("AA BB CC 61 10"));
    EXPECT_EQ(three.data, bytes("AA BB CC"));
    EXPECT_EQ(three.Sw1Sw2, 0x6110);
}

}  // namespace
}  // namespace KelmoraID
