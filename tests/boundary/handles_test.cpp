// Handles are numbers of the system's choosing, as wide as a pointer: only 0 is none.
#include <cstdint>

#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

constexpr unsigned halfWidth = sizeof(std::uintptr_t) * 4;

class Handles : public ::testing::TestWithParam<int> {
protected:
    void use(std::uintptr_t cardHandle, std::uintptr_t contextHandle) {
        card.reader.setHandles(cardHandle, contextHandle);
        card.data.hScard = cardHandle;
        card.data.hSCardCtx = contextHandle;
    }
    void expectService() {
        ASSERT_EQ(card.acquire(), 0u);
        for (BYTE container = 0; container < card.containers(); ++container) {
            EXPECT_TRUE(card.signsTruly(container)) << int(container);
        }
        EXPECT_EQ(card.numberOf(WIDE_TEXT("Read Only Mode"), 0), 1u);
        EXPECT_EQ(card.data.pfnCardDeauthenticateEx(&card.data, 2, 0), status::unsupportedFeature);
        if (card.isEcKey(0)) {
            ASSERT_EQ(card.authenticate(1, "1234"), 0u);
            BYTE index = 0;
            EXPECT_EQ(card.agreeWithItself(&index), 0u);
            EXPECT_EQ(card.derive(index).status, 0u);
            EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, index, 0), 0u);
        }
    }
    PlatformSide card{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(EveryCard, Handles, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(Handles, WithAZeroLowHalfAreHandles) {
    use(std::uintptr_t{0xCA2D} << halfWidth, std::uintptr_t{0xC021} << halfWidth);
    expectService();
}

TEST_P(Handles, WithAllBitsSetAreHandles) {
    use(~std::uintptr_t{0}, ~std::uintptr_t{0});
    expectService();
}

TEST_P(Handles, OfZeroAreRefusedBeforeAnythingGoesToTheCard) {
    use(0, std::uintptr_t{0xC021} << halfWidth);
    EXPECT_EQ(card.acquire(), status::invalidHandle);
    use(std::uintptr_t{0xCA2D} << halfWidth, 0);
    EXPECT_EQ(card.acquire(), status::invalidHandle);
    EXPECT_TRUE(card.reader.exchanges().empty());
}

}  // namespace
}  // namespace boundary
