// What the driver gives up and never frees: handles, counted on their way to the platform and back.
// Only natively, where the linker puts the counting between the two.
#include "native_platform.h"
#include "platform_side.h"
#include "support/statuses.h"
#include "support/thrown_pointers.h"
#include "virtual_card/virtual_card.h"

namespace boundary {
namespace {

class GivenUp : public ::testing::TestWithParam<int> {};

TEST_P(GivenUp, IsTheCertificateOfTheSecondSigningKeyAlone) {
    const std::size_t before = liveCertificates();
    PlatformSide platform(GetParam());
    platform.acquireOrFail();
    const bool hasSecondSigningKey = virtual_card::findGeneration(GetParam())->keys.size() > 2;
    EXPECT_EQ(liveCertificates() - before, hasSecondSigningKey ? 3u : 2u);
    platform.release();
    EXPECT_EQ(liveCertificates() - before, hasSecondSigningKey ? 1u : 0u);
}

TEST_P(GivenUp, AreTheErrorsOfAPinWhoseLimitsTheCardDoesNotTell) {
    PlatformSide platform(GetParam());
    platform.acquireOrFail();
    const int before = KelmoraID::testing::thrownPointers();
    platform.reader.failTransmit(1, {virtual_card::Fault::Kind::TransportError, status::lostData});
    platform.authenticate(1, platform.pin(virtual_card::PinRole::Authentication));
    const bool isAskedForLimits = virtual_card::findGeneration(GetParam())->knowsGetData;
    EXPECT_EQ(KelmoraID::testing::thrownPointers() - before, isAskedForLimits ? 2 : 0);
}

INSTANTIATE_TEST_SUITE_P(CardType, GivenUp, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

}  // namespace
}  // namespace boundary
