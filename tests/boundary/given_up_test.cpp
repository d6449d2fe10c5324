// What the driver gives up and never frees: handles, counted on their way to the platform and back.
// Only natively, where the linker puts the counting between the two.
#include "desktop.h"
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

TEST_P(GivenUp, IsTheDialogsLibraryAfterAnAttemptThatWasBrokenOffAlone) {
    using Kind = virtual_card::Fault::Kind;
    struct Row {
        const char* what;
        std::vector<std::string> typed;
        std::optional<virtual_card::Fault> fault;  // of the first exchange
        int libraries;
    };
    PlatformSide platform(GetParam());
    platform.acquireOrFail();
    const std::string pin = platform.pin(virtual_card::PinRole::Authentication);
    const Row rows[] = {
        {"the PIN", {pin}, {}, 0},
        {"cancelled", {}, {}, 0},
        {"a wrong PIN, and cancelled", {"98765432"}, {}, 0},
        {"a wrong PIN, and the PIN", {"98765432", pin}, {}, 0},
        {"a reset card", {pin}, virtual_card::Fault{Kind::ResetCard, 0}, 0},
        {"a card that was pulled out", {pin}, virtual_card::Fault{Kind::RemoveCard, 0}, 1},
    };
    for (const Row& row : rows) {
        Desktop desktop;
        for (std::size_t at = 0; at < row.typed.size(); ++at) {
            desktop.script->pins[at] = row.typed[at].c_str();
        }
        const int before = liveLibraries();
        if (row.fault) platform.reader.failTransmit(1, *row.fault);
        platform.data.pfnCardAuthenticateEx(&platform.data, 1, 0, nullptr, 0, nullptr, nullptr,
                                            nullptr);
        EXPECT_EQ(liveLibraries() - before, row.libraries) << row.what;
    }
}

INSTANTIATE_TEST_SUITE_P(CardType, GivenUp, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

}  // namespace
}  // namespace boundary
