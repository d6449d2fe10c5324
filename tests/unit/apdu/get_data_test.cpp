#include "apdu/get_data.h"

#include <gtest/gtest.h>

#include "support/scripted_card.h"

namespace KelmoraID::FINEID {
namespace {

using testing::bytes;

ByteVector wireOf(BYTE selector, BYTE reference, bool wrapped) {
    return GetData(selector, reference, wrapped).buildRequest().bytes;
}

TEST(GetData, HasItsName) {
    EXPECT_EQ(GetData(0x81, 0x11, false).getName(), "GET DATA");
}

TEST(GetData, WrapsTheTemplateOfEverySelectorFromTheInsideOut) {
    EXPECT_EQ(wireOf(0x81, 0x11, false), bytes("00CB 3FFF 0B 4D09 7007 BF8111 03 7F4180 00"));
    EXPECT_EQ(wireOf(0x8A, 0x11, false), bytes("00CB 3FFF 0A 4D08 7006 BF8A11 02 A280 00"));
    EXPECT_EQ(wireOf(0x90, 0x12, false), bytes("00CB 3FFF 0B 4D09 7007 BF9012 03 7F4880 00"));
    EXPECT_EQ(wireOf(0xA0, 0x11, false), bytes("00CB 3FFF 0B 4D09 7007 BFA011 03 7F4980 00"));
    EXPECT_EQ(wireOf(0xA1, 0x11, false), bytes("00CB 3FFF 0A 4D08 7006 BFA111 02 A380 00"));
    EXPECT_EQ(wireOf(0xFB, 0x95, false), bytes("00CB 3FFF 0A 4D08 7006 BFFB95 02 7B80 00"));
}

TEST(GetData, AsksForAllOfAnObjectByAnUnknownSelector) {
    EXPECT_EQ(wireOf(0x55, 0x11, false), bytes("00CB 3FFF 09 4D07 7005 BF5511 01 80 00"));
}

TEST(GetData, IgnoresTheSelectorsTemplateWhenWrapped) {
    EXPECT_EQ(wireOf(0x81, 0x11, true), bytes("00CB 3FFF 0A 4D08 7006 BF8111 02 A080 00"));
    EXPECT_EQ(wireOf(0xFB, 0x12, true), bytes("00CB 3FFF 0A 4D08 7006 BFFB12 02 A080 00"));
}

TEST(GetData, GathersTheDataOfAllResponses) {
    GetData command(0x81, 0x11, false);
    EXPECT_EQ(command.responseData(), std::nullopt);
    EXPECT_TRUE(command.handleResponse(ApduResponse(bytes("61 10"))).has_value());
    EXPECT_EQ(command.responseData(), std::nullopt);
    EXPECT_TRUE(command.handleResponse(ApduResponse(bytes("AA BB 61 02"))).has_value());
    EXPECT_EQ(command.responseData(), bytes("AA BB"));
    EXPECT_FALSE(command.handleResponse(ApduResponse(bytes("CC 90 00"))).has_value());
    EXPECT_EQ(command.responseData(), bytes("AA BB CC"));
    EXPECT_FALSE(command.handleResponse(ApduResponse(bytes("90 00"))).has_value());
    EXPECT_EQ(command.responseData(), bytes("AA BB CC"));
}

TEST(GetData, AsksForTheRestOf6110WithLe00) {
    GetData command(0x81, 0x11, false);
    const auto next = command.handleResponse(ApduResponse(bytes("61 10")));
    ASSERT_TRUE(next.has_value());
    EXPECT_EQ(next->bytes, bytes("00 C0 00 00 00"));
    EXPECT_THROW(command.success(), std::bad_optional_access);
}

}  // namespace
}  // namespace KelmoraID::FINEID
