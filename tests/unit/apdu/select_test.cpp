#include "apdu/select.h"

#include <gtest/gtest.h>

#include "support/scripted_card.h"

namespace KelmoraID::FINEID {
namespace {

using testing::bytes;

ByteVector wireOf(SelectMode mode, std::optional<ByteVector> identifier, bool wantResponse) {
    return Select(mode, std::move(identifier), wantResponse).buildRequest().bytes;
}

TEST(Select, HasItsName) {
    EXPECT_EQ(Select(SelectMode::masterFile, std::nullopt, false).getName(), "SELECT");
}

TEST(Select, OfTheMasterFileSendsItsIdentifierAndNotTheOneGiven) {
    EXPECT_EQ(wireOf(SelectMode::masterFile, bytes("50 16"), false), bytes("00A4 000C 02 3F00"));
    EXPECT_EQ(wireOf(SelectMode::masterFile, std::nullopt, false), bytes("00A4 000C 02 3F00"));
}

TEST(Select, OfTheParentDirectorySendsNoData) {
    EXPECT_EQ(wireOf(SelectMode::parentDirectory, bytes("50 16"), false), bytes("00A4 030C"));
}

TEST(Select, UnderTheMasterFileSendsTheIdentifierWithP1Of00) {
    EXPECT_EQ(wireOf(SelectMode::identifierUnderMasterFile, bytes("50 16"), false),
              bytes("00A4 000C 02 5016"));
    EXPECT_EQ(wireOf(SelectMode::identifierUnderMasterFile, std::nullopt, false),
              bytes("00A4 000C"));
}

TEST(Select, SendsAnyOtherModeAsP1) {
    EXPECT_EQ(wireOf(SelectMode::childDirectory, bytes("50 16"), false),
              bytes("00A4 010C 02 5016"));
    EXPECT_EQ(wireOf(SelectMode::applicationIdentifier, bytes("A0 00 01"), false),
              bytes("00A4 040C 03 A00001"));
    EXPECT_EQ(wireOf(SelectMode::applicationIdentifier, std::nullopt, false), bytes("00A4 040C"));
    EXPECT_EQ(wireOf(static_cast<SelectMode>(0x09), bytes("3F 00"), false),
              bytes("00A4 090C 02 3F00"));
}

TEST(Select, AsksForAResponseByP2Of04AndAFinal00) {
    EXPECT_EQ(wireOf(SelectMode::childDirectory, bytes("50 16"), true),
              bytes("00A4 0104 02 5016 00"));
    EXPECT_EQ(wireOf(SelectMode::parentDirectory, std::nullopt, true), bytes("00A4 0304 00"));
}

TEST(Select, KeepsTheDataOfTheLastResponse) {
    Select select(SelectMode::masterFile, std::nullopt, true);
    EXPECT_EQ(select.responseData(), std::nullopt);
    EXPECT_FALSE(select.handleResponse(ApduResponse(bytes("62 00 90 00"))).has_value());
    EXPECT_EQ(select.responseData(), bytes("62 00"));
    EXPECT_FALSE(select.handleResponse(ApduResponse(bytes("90 00"))).has_value());
    EXPECT_EQ(select.responseData(), std::nullopt);
}

TEST(Select, DoesNotFetchA61xxAndLeavesSuccessToTheStatusWord) {
    Select select(SelectMode::masterFile, std::nullopt, true);
    EXPECT_FALSE(select.handleResponse(ApduResponse(bytes("61 10"))).has_value());
    EXPECT_THROW(select.success(), std::bad_optional_access);
}

}  // namespace
}  // namespace KelmoraID::FINEID
