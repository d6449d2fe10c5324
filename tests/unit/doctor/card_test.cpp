// What the doctor reads of a card itself: certificates, and the tries of its PINs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "card_types.h"
#include "doctor/certificate_facts.h"
#include "doctor/pin_tries.h"
#include "exit_codes.h"
#include "logon_certificates.h"
#include "virtual_card/generations.h"
#include "virtual_card/virtual_card.h"

namespace cardhost::doctor {
namespace {

using State = PinTries::State;

TEST(CertificateFacts, TellWhatALogonLooksAt) {
    const CertificateFacts facts = certificateFacts(logonCertificateDer(), 0, "it");
    EXPECT_EQ(facts.name, "KORTTINEN TESTI 1");
    EXPECT_TRUE(facts.isEc);
    EXPECT_TRUE(facts.allowsSigning);
    EXPECT_TRUE(facts.hasExtendedUsage);
    EXPECT_TRUE(facts.allowsCardLogon);
    EXPECT_TRUE(facts.allowsClientAuthentication);
    EXPECT_TRUE(facts.hasUserPrincipalName);
    EXPECT_EQ(facts.notAfter - facts.notBefore, std::chrono::hours(24 * 3650));
}

TEST(CertificateFacts, MissWhatIsNotThere) {
    const CertificateFacts facts = certificateFacts(plainCertificateDer(), 2, "it");
    EXPECT_EQ(facts.container, 2);
    EXPECT_FALSE(facts.allowsSigning) << "its key usage is key agreement only";
    EXPECT_TRUE(facts.hasExtendedUsage);
    EXPECT_FALSE(facts.allowsCardLogon);
    EXPECT_FALSE(facts.allowsClientAuthentication);
    EXPECT_FALSE(facts.hasUserPrincipalName);
}

TEST(CertificateFacts, AreRefusedForOtherBytes) {
    for (const Bytes& der : {Bytes(), Bytes{0x30, 0x00}, Bytes(2000, 0x30)}) {
        EXPECT_THROW(certificateFacts(der, 0, "it"), Failure);
    }
    Bytes cut = logonCertificateDer();
    while (!cut.empty()) {
        cut.pop_back();
        EXPECT_THROW(certificateFacts(cut, 0, "it"), Failure);
    }
}

/// A virtual card of that type, and the commands that it was sent.
class Card {
public:
    explicit Card(const virtual_card::Generation& generation) : card(generation) {}

    std::vector<PinTries> tries() {
        return pinTries(card.atr(), [this](ByteView command) {
            sent.emplace_back(command.begin(), command.end());
            return card.transmit(command);
        });
    }

    /// Presents a PIN, right or wrong, in its directory.
    void present(const virtual_card::PinRow& pin, const std::string& value) {
        Bytes verify = {0x00, 0x20, 0x00, pin.reference, 0x00};
        const std::size_t padding = card.generation().pinBlockLength;
        verify.insert(verify.end(), value.begin(), value.end());
        if (padding > value.size()) verify.insert(verify.end(), padding - value.size(), 0x00);
        verify[4] = static_cast<std::uint8_t>(verify.size() - 5);
        card.transmit(verify);
    }

    virtual_card::VirtualCard card;
    std::vector<Bytes> sent;
};

const virtual_card::PinRow& pinOf(const virtual_card::Generation& generation,
                                  virtual_card::PinRole role) {
    return *std::find_if(generation.pins.begin(), generation.pins.end(),
                         [&](const virtual_card::PinRow& pin) { return pin.role == role; });
}

class EveryCard : public ::testing::TestWithParam<int> {
protected:
    const virtual_card::Generation& generation = *virtual_card::findGeneration(GetParam());
    const virtual_card::PinRow& authentication =
        pinOf(generation, virtual_card::PinRole::Authentication);
    const virtual_card::PinRow& signature = pinOf(generation, virtual_card::PinRole::Signature);
    Card card{generation};
};

TEST_P(EveryCard, TellsTheTriesOfBothPinsAndLosesNone) {
    for (int round = 0; round < 3; ++round) {
        const auto tries = card.tries();
        ASSERT_EQ(tries.size(), 2U);
        EXPECT_EQ(tries[0].pin, 1);
        EXPECT_EQ(tries[1].pin, 4);
        EXPECT_EQ(tries[0].state, State::open) << tries[0].answer;
        EXPECT_EQ(tries[1].state, State::open) << tries[1].answer;
        EXPECT_EQ(tries[0].left, authentication.tries);
        EXPECT_EQ(tries[1].left, signature.tries);
    }
    for (const Bytes& command : card.sent) {
        EXPECT_TRUE(command[1] == 0xA4 || (command[1] == 0x20 && command.size() == 4))
            << "a command that carries a PIN";
    }
}

TEST_P(EveryCard, TellsALostTryAVerifiedAndABlockedPin) {
    card.tries();  // Leaves the directory of signatures selected.
    card.present(signature, std::string(signature.value.size(), '9'));
    EXPECT_EQ(card.tries()[1].left, signature.tries - 1);
    card.present(signature, std::string(signature.value));
    EXPECT_EQ(card.tries()[1].state, State::verified);
    for (int i = 0; i < signature.tries; ++i) {
        card.present(signature, std::string(signature.value.size(), '9'));
    }
    const auto tries = card.tries();
    EXPECT_EQ(tries[1].state, State::blocked) << tries[1].answer;
    EXPECT_EQ(tries[0].state, State::open) << tries[0].answer;
}

std::vector<int> cardTypes() {
    std::vector<int> types;
    for (const auto& generation : virtual_card::generations()) types.push_back(generation.cardType);
    return types;
}

INSTANTIATE_TEST_SUITE_P(Types, EveryCard, ::testing::ValuesIn(cardTypes()),
                         ::testing::PrintToStringParamName());

TEST(PinTries, OfAForeignCardAreNotAskedFor) {
    EXPECT_TRUE(pinTries(bytesOfHex("3b00"), [](ByteView) -> Bytes {
                    ADD_FAILURE() << "a command";
                    return {};
                }).empty());
}

TEST(PinTries, ShowAnAnswerThatIsNone) {
    const ByteView atr = generations()[0].atr;
    for (const Bytes& reply : {Bytes(), Bytes{0x6A, 0x88}, Bytes{0x63, 0xC5, 0x00}}) {
        for (const PinTries& tries : pinTries(atr, [&](ByteView) { return reply; })) {
            EXPECT_EQ(tries.state, State::unknown);
        }
    }
}

}  // namespace
}  // namespace cardhost::doctor
