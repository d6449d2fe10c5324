#include "apdu/set.h"

#include <gtest/gtest.h>

#include "support/scripted_card.h"

namespace KelmoraID::FINEID {
namespace {

using testing::bytes;

ByteVector wireOf(BYTE tag, BYTE keyRef, BYTE selector, bool extended) {
    return Set(tag, keyRef, selector, extended).buildRequest().bytes;
}

TEST(Set, HasItsName) {
    EXPECT_EQ(Set(0x01).getName(), "SET");
}

TEST(Set, OfTheHashTemplateSendsTwoBytesAlone) {
    EXPECT_EQ(wireOf(0xAA, 0x33, 1, false), bytes("0022 41AA 02 8001"));
}

TEST(Set, OfTheSignatureTemplateSendsTheDerivedAndTheGivenReference) {
    EXPECT_EQ(wireOf(0xB6, 0x33, 1, false), bytes("0022 41B6 06 800181 840133"));
    EXPECT_EQ(wireOf(0xB6, 0x33, 2, false), bytes("0022 41B6 06 800182 840133"));
    EXPECT_EQ(wireOf(0xB6, 0x33, 1, true), bytes("0022 41B6 06 800191 840133"));
    EXPECT_EQ(wireOf(0xB6, 0x33, 0, true), bytes("0022 41B6 06 800193 840133"));
}

TEST(Set, OfTheConfidentialityTemplateTakesTheDerivedReferenceForTheKey) {
    EXPECT_EQ(wireOf(0xB8, 0x33, 1, false), bytes("0022 41B8 06 80011A 840181"));
    EXPECT_EQ(wireOf(0xB8, 0x33, 2, false), bytes("0022 41B8 06 80011A 840182"));
    EXPECT_EQ(wireOf(0xB8, 0x33, 1, true), bytes("0022 41B8 06 80011A 840191"));
    EXPECT_EQ(wireOf(0xB8, 0x33, 7, true), bytes("0022 41B8 06 80011A 840193"));
}

TEST(Set, OfAnyOtherTemplateHasNoData) {
    EXPECT_EQ(wireOf(0xA4, 0x33, 1, false), bytes("0022 41A4"));
}

TEST(Set, ForKeyAgreementSendsTheKeyReferenceBehindItsFixedAlgorithm) {
    EXPECT_EQ(Set(0x01).buildRequest().bytes, bytes("0022 41B8 09 8004FF300400 840101"));
    EXPECT_EQ(Set(0x91).buildRequest().bytes, bytes("0022 41B8 09 8004FF300400 840191"));
}

TEST(Set, IsASuccessOn9000Alone) {
    for (const auto& [reply, success] :
         {std::pair{"90 00", true}, std::pair{"90 01", false}, std::pair{"6A 88", false}}) {
        Set command(0x01);
        EXPECT_FALSE(command.handleResponse(ApduResponse(bytes(reply))).has_value()) << reply;
        EXPECT_EQ(command.success(), success) << reply;
    }
}

}  // namespace
}  // namespace KelmoraID::FINEID
