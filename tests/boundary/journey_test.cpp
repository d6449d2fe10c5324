// The commands of whole journeys, compared whole: no extra command is sent, nothing selected is
// remembered.
#include "journeys.h"
#include "platform_side.h"

namespace boundary {
namespace {

class Journey : public ::testing::TestWithParam<int> {
protected:
    // Acquire, serve files and keys, verify the PIN of container 0 and sign with it.
    std::string ofALogon() {
        PlatformSide card(GetParam());
        std::string text;
        const auto note = [&](const char* title) {
            text += std::string(title) + "\n";
            for (const std::string& line : journey(card.reader)) text += "  " + line + "\n";
            card.reader.clearExchanges();
        };
        card.acquireOrFail();
        note("acquire");
        card.readFile(nullptr, "cardid");
        card.certificate(0);
        card.property(WIDE_TEXT("PIN Information"), 1);
        note("answer from memory");
        card.openKey(0);
        note("verify the PIN");
        Bytes hash(32, 0x11);
        CARD_SIGNING_INFO info{};
        info.dwVersion = 1;
        info.dwKeySpec = card.isEcKey(0) ? AT_ECDSA_P256 : AT_KEYEXCHANGE;
        info.aiHashAlg = card.isEcKey(0) ? 0 : 0x800C;
        info.pbData = hash.data();
        info.cbData = 32;
        EXPECT_EQ(card.sign(info).status, 0u);
        note("sign");
        card.openKey(1);
        note("verify the signature PIN");
        card.release();
        note("delete the context");
        return text;
    }
};
INSTANTIATE_TEST_SUITE_P(EveryCard, Journey, ::testing::ValuesIn(allCardTypes));

TEST_P(Journey, OfALogonIsExactlyThese) {
    EXPECT_EQ(ofALogon(), expectedJourney(GetParam()));
}

}  // namespace
}  // namespace boundary
