#include "apdu/decipher.h"

#include <gtest/gtest.h>

#include "support/scripted_card.h"

namespace KelmoraID::FINEID {
namespace {

using testing::bytes;

TEST(Decipher, HasItsName) {
    EXPECT_EQ(Decipher(std::nullopt, 0x00, false).getName(), "DECIPHER");
}

TEST(Decipher, OfAFirstBlockPutsThePaddingIndicatorAheadAndHasNoLe) {
    const ByteVector block(254, 0xC3);
    ByteVector expected = bytes("10 2A 80 86 FF 81");
    expected.insert(expected.end(), block.begin(), block.end());
    EXPECT_EQ(Decipher(block, 0xFE, true).buildRequest().bytes, expected);
}

TEST(Decipher, OfALastBlockHasNoIndicatorAndItsLe) {
    EXPECT_EQ(Decipher(bytes("AA BB"), 0xFF, false).buildRequest().bytes,
              bytes("00 2A 80 86 02 AA BB FF"));
    EXPECT_EQ(Decipher(bytes("04 AA BB"), 0x00, false).buildRequest().bytes,
              bytes("00 2A 80 86 03 04 AA BB 00"));
}

TEST(Decipher, ChainedWithoutDataSendsNoPaddingIndicator) {
    EXPECT_EQ(Decipher(std::nullopt, 0xFE, true).buildRequest().bytes, bytes("10 2A 80 86"));
    EXPECT_EQ(Decipher(ByteVector{}, 0xFE, true).buildRequest().bytes, bytes("10 2A 80 86 01 81"));
}

TEST(Decipher, AsksForTheRestOf6110WithLe10) {
    Decipher command(bytes("AA"), 0x00, false);
    const auto next = command.handleResponse(ApduResponse(bytes("61 10")));
    ASSERT_TRUE(next.has_value());
    EXPECT_EQ(next->bytes, bytes("00 C0 00 00 10"));
    EXPECT_FALSE(command.success());
}

TEST(Decipher, TakesTheDataOf9000AndOf6282) {
    for (const char* word : {"90 00", "62 82"}) {
        Decipher command(bytes("AA"), 0x00, false);
        EXPECT_FALSE(
            command.handleResponse(ApduResponse(bytes(std::string("C1 C2 ") + word))).has_value());
        EXPECT_TRUE(command.success()) << word;
        EXPECT_EQ(command.responseData(), bytes("C1 C2")) << word;
    }
}

TEST(Decipher, ReplacesItsDataBySuccessAndKeepsItOtherwise) {
    Decipher command(bytes("AA"), 0x00, false);
    command.handleResponse(ApduResponse(bytes("C1 90 00")));
    command.handleResponse(ApduResponse(bytes("C2 61 01")));
    EXPECT_EQ(command.responseData(), bytes("C1"));
    command.handleResponse(ApduResponse(bytes("C3 90 00")));
    EXPECT_EQ(command.responseData(), bytes("C3"));
    EXPECT_FALSE(command.handleResponse(ApduResponse(bytes("C4 69 82"))).has_value());
    EXPECT_EQ(command.responseData(), bytes("C3"));
    EXPECT_FALSE(command.success());
    command.handleResponse(ApduResponse(bytes("90 00")));
    EXPECT_EQ(command.responseData(), std::nullopt);
    EXPECT_TRUE(command.success());
}

}  // namespace
}  // namespace KelmoraID::FINEID
