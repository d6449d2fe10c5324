// PINs as the platform hands them over, on every card there is.
#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

using KelmoraID::testing::LogLine;
using KelmoraID::testing::LogLines;
using virtual_card::PinRole;

class Authentication : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { card.acquireOrFail(); }
    PlatformSide card{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(EveryCard, Authentication, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(Authentication, TakesTheRightPinAndLeavesTheAttemptsUntouched) {
    for (const auto& [pinId, role] :
         {std::pair{1u, PinRole::Authentication}, std::pair{4u, PinRole::Signature}}) {
        DWORD attempts = 0;
        EXPECT_EQ(card.authenticate(pinId, card.pin(role), &attempts), 0u);
        EXPECT_EQ(attempts, 77u);
        EXPECT_TRUE(card.reader.card().isVerified(role));
    }
}

TEST_P(Authentication, CountsAWrongPinDownToZeroAndThenBlocks) {
    const unsigned tries = card.reader.card().triesLeft(PinRole::Authentication);
    DWORD attempts = 0;
    for (unsigned left = tries - 1; left > 0; --left) {
        EXPECT_EQ(card.authenticate(1, "4321", &attempts), status::wrongPin);
        EXPECT_EQ(attempts, left);
    }
    EXPECT_EQ(card.authenticate(1, "4321", &attempts), status::wrongPin)
        << "63C0 to a real PIN is one more wrong PIN";
    EXPECT_EQ(attempts, 0u);
    // A blocked PIN: 6984 says so, and 6983 leaves it at wrong with no attempts.
    const bool saysBlocked = card.reader.card().generation().blockedVerify == 0x6984;
    EXPECT_EQ(card.authenticate(1, card.pin(PinRole::Authentication), &attempts),
              saysBlocked ? status::blockedPin : status::wrongPin);
    EXPECT_EQ(attempts, 0u);
}

TEST_P(Authentication, RefusesAPinOutsideTheCardsLimitsWithoutAVerify) {
    for (const char* pin : {"123", "", "1234567890123"}) {
        card.reader.clearExchanges();
        DWORD attempts = 0;
        EXPECT_EQ(card.authenticate(1, pin, &attempts), status::wrongPin) << pin;
        EXPECT_EQ(attempts, 77u);
        for (const auto& exchange : card.reader.exchanges()) {
            EXPECT_NE(exchange.command.at(1), 0x20) << "no VERIFY is sent";
        }
    }
    EXPECT_EQ(card.reader.card().triesLeft(PinRole::Authentication),
              card.reader.card().generation().pins[0].tries);
}

TEST_P(Authentication, TakesAPinOfTheShortestAndRefusesOneOfOneLess) {
    EXPECT_EQ(card.pin(PinRole::Signature).size(), 6u);
    EXPECT_EQ(card.authenticate(4, "12345"), status::wrongPin);
    EXPECT_EQ(card.authenticate(4, "123456"), 0u);
}

TEST_P(Authentication, OlderFormKnowsTwoUsersExactly) {
    const auto authenticate = [&](LPCWSTR user) {
        std::string pin = card.pin(PinRole::Authentication);
        WideString name(user);
        return card.data.pfnCardAuthenticatePin(&card.data, name.data(),
                                                reinterpret_cast<PBYTE>(pin.data()),
                                                static_cast<DWORD>(pin.size()), nullptr);
    };
    EXPECT_EQ(authenticate(WIDE_TEXT("user")), 0u);
    EXPECT_EQ(authenticate(WIDE_TEXT("USER")), status::invalidParameter);
    EXPECT_EQ(authenticate(WIDE_TEXT("")), status::invalidParameter);
    EXPECT_EQ(card.data.pfnCardAuthenticatePin(&card.data, nullptr, nullptr, 0, nullptr),
              status::invalidParameter);
}

TEST_P(Authentication, RefusesBadArgumentsBeforeAnythingGoesToTheCard) {
    card.reader.clearExchanges();
    BYTE pin[] = {'1', '2', '3', '4'};
    const auto ex = [&](PIN_ID pinId, DWORD flags, PBYTE bytes) {
        return card.data.pfnCardAuthenticateEx(&card.data, pinId, flags, bytes, 4, nullptr, nullptr,
                                               nullptr);
    };
    EXPECT_EQ(ex(0, 0, pin), status::invalidParameter);
    EXPECT_EQ(ex(5, 0, pin), status::invalidParameter);
    EXPECT_EQ(ex(1, 0, nullptr), status::invalidParameter);
    EXPECT_EQ(ex(1, 0x10000000, pin), status::unsupportedFeature);
    EXPECT_EQ(ex(1, 0x20000000, pin), status::unsupportedFeature);
    EXPECT_EQ(ex(1, 0x30000000, pin), status::invalidParameter);
    EXPECT_EQ(ex(1, 0x00000001, pin), status::invalidParameter);
    EXPECT_TRUE(card.reader.exchanges().empty());
    EXPECT_EQ(ex(1, 0x00000040, pin), 0u) << "a silent context is accepted like none";
}

TEST_P(Authentication, AReaderPulledOutDuringTheVerifyEndsWithOneLine) {
    // The VERIFY is the last command of the sequence.
    card.reader.clearExchanges();
    ASSERT_EQ(card.authenticate(1, "4321"), status::wrongPin);
    const std::size_t commands = card.reader.exchanges().size();
    card.reader.failTransmit(commands, {virtual_card::Fault::Kind::RemoveCard, 0});
    DriverLog log;
    EXPECT_EQ(card.authenticate(1, "1234"), status::unexpected);
    const LogLines lines = log.file();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), (LogLine{"CardAuthenticateEx", "Failed to verify PIN. Aborting..."}));
}

TEST_P(Authentication, ACardThatWasResetIsReconnectedOnce) {
    const std::size_t before = card.reader.reconnects();
    card.reader.clearExchanges();
    ASSERT_EQ(card.authenticate(1, "4321"), status::wrongPin);
    const std::size_t commands = card.reader.exchanges().size();
    card.reader.failTransmit(commands, {virtual_card::Fault::Kind::ResetCard, 0});
    DWORD status = card.authenticate(1, card.pin(PinRole::Authentication));
    // The reset card stands at its root, where the authentication PIN is.
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(card.reader.reconnects(), before + 1);
}

TEST_P(Authentication, WithoutAContextHandleIsABadArgument) {
    const SCARDCONTEXT context = card.data.hSCardCtx;
    card.data.hSCardCtx = 0;
    EXPECT_EQ(card.authenticate(1, "1234"), status::invalidParameter);
    card.data.hSCardCtx = context;
}

TEST(AuthenticationLog, HoldsNoPin) {
    DriverLog log;
    PlatformSide card(5);
    card.acquireOrFail();
    EXPECT_EQ(card.authenticate(1, "1234"), 0u);
    for (const LogLines& lines : {log.file(), log.output()}) {
        for (const LogLine& line : lines) {
            EXPECT_EQ(line.message.find("1234"), std::string::npos) << line.message;
            EXPECT_EQ(line.message.find("31 32 33 34"), std::string::npos) << line.message;
            EXPECT_EQ(line.message.find("31323334"), std::string::npos) << line.message;
        }
    }
}

}  // namespace
}  // namespace boundary
