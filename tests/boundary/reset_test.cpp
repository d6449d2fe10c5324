// Another program, or the system itself, resets the card between any two commands. What each call
// then ends with follows from three rules, and is worked out from them here:
//
// - The commands that read files and sign do not reconnect: the first one after the reset fails,
//   and so does every later one.
// - The commands for PINs, decryption and agreement reconnect once and are sent again.
// - The card keeps nothing over a reset: no verified PIN, no directory, no security environment,
//   no gathered block, no reply that waits to be fetched. It stands at its root.
//
// Afterwards the platform renews the connection, the user shows the PIN, and everything works.
#include <array>
#include <functional>
#include <utility>

#include "between.h"
#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

using virtual_card::Fault;
using virtual_card::PinRole;
using Commands = std::vector<Bytes>;

// INS of ISO/IEC 7816-4 and 7816-8.
constexpr std::uint8_t verifyIns = 0x20;
constexpr std::uint8_t setEnvironmentIns = 0x22;
constexpr std::uint8_t selectIns = 0xA4;
constexpr std::uint8_t readBinaryIns = 0xB0;
constexpr std::uint8_t getDataIns = 0xCB;

std::uint8_t insOf(const Bytes& command) {
    return command.at(1);
}

// What a call is to end with, and how often it reconnects on the way.
struct Outcome {
    DWORD status;
    std::size_t reconnects;
};

struct Operation {
    std::function<void(PlatformSide&)> prepare;
    std::function<DWORD(PlatformSide&)> act;
    /// With the card reset just before the command at `n` of the undisturbed run.
    std::function<Outcome(const Commands& commands, std::size_t n)> expected;
    /// After the platform has renewed the connection, up to a second `act`.
    std::function<void(PlatformSide&)> recover;
};

class Reset : public ::testing::TestWithParam<int> {
protected:
    const virtual_card::Generation& generation() {
        return *virtual_card::findGeneration(GetParam());
    }

    Commands undisturbed(const Operation& operation) {
        PlatformSide card(GetParam());
        operation.prepare(card);
        card.reader.clearExchanges();
        EXPECT_EQ(operation.act(card), 0u);
        Commands commands;
        for (const auto& exchange : card.reader.exchanges()) commands.push_back(exchange.command);
        return commands;
    }

    void goThrough(const Operation& operation) {
        const Commands commands = undisturbed(operation);
        ASSERT_FALSE(commands.empty());
        for (std::size_t n = 0; n < commands.size(); ++n) {
            SCOPED_TRACE("reset before command " + std::to_string(n + 1) + ", " +
                         toHex(commands[n]));
            PlatformSide card(GetParam());
            operation.prepare(card);
            const std::size_t reconnects = card.reader.reconnects();
            card.reader.failTransmit(n + 1, {Fault::Kind::ResetCard, 0});
            const Outcome expected = operation.expected(commands, n);
            EXPECT_EQ(operation.act(card), expected.status);
            EXPECT_EQ(card.reader.reconnects() - reconnects, expected.reconnects);
            card.reconnect();
            operation.recover(card);
            EXPECT_EQ(operation.act(card), 0u) << "and once more, after a reconnect";
        }
    }

    // The card is reset before each command from `first` on, all of which reconnect, and the reader
    // does not come back, for whatever reason: the call ends there. Nothing is sent again, so that
    // no PIN reaches a card that nobody has looked at.
    void goThroughWithoutReconnect(const Operation& operation,
                                   const std::function<DWORD(const Bytes& command)>& expected,
                                   std::size_t first = 0) {
        const Commands commands = undisturbed(operation);
        ASSERT_LT(first, commands.size());
        for (std::size_t n = first; n < commands.size(); ++n) {
            for (const DWORD code : reasons) {
                SCOPED_TRACE(::testing::Message()
                             << "reset before command " << n + 1 << ", " << toHex(commands[n])
                             << ", then 0x" << std::hex << code);
                PlatformSide card(GetParam());
                operation.prepare(card);
                const std::size_t reconnects = card.reader.reconnects();
                const Tries before = triesLeft(card);
                card.reader.clearExchanges();
                card.reader.failTransmit(n + 1, {Fault::Kind::ResetCard, 0});
                card.reader.failReconnect(code);
                EXPECT_EQ(operation.act(card), expected(commands[n]));
                EXPECT_EQ(card.reader.exchanges().size(), n + 1);
                EXPECT_EQ(card.reader.reconnects() - reconnects, 1u);
                EXPECT_EQ(triesLeft(card), before);
                card.reader.failReconnect(0);
                card.reconnect();
                operation.recover(card);
                EXPECT_EQ(operation.act(card), 0u) << "and once more, after a reconnect";
            }
        }
    }
    static constexpr DWORD reasons[] = {status::removedCard,       status::resetCard,
                                        status::noService,         status::sharingViolation,
                                        status::readerUnavailable, status::invalidHandle};
    using Tries = std::array<unsigned, 2>;
    static Tries triesLeft(PlatformSide& card) {
        return {card.reader.card().triesLeft(PinRole::Authentication),
                card.reader.card().triesLeft(PinRole::Signature)};
    }

    // Whether the card has a PIN of that reference at its root, where a reset leaves it.
    bool isAtRoot(std::uint8_t virtual_card::PinRow::*reference, std::uint8_t value) {
        for (const auto& pin : generation().pins) {
            if (pin.directory == virtual_card::masterFile && pin.*reference == value) return true;
        }
        return false;
    }
    const virtual_card::PinRow& pinRow(PinRole role) {
        for (const auto& pin : generation().pins) {
            if (pin.role == role) return pin;
        }
        throw std::logic_error("a card without that PIN");
    }

    Operation verification(PIN_ID pinId, PinRole role);
    void expectVerification(PIN_ID pinId, PinRole role);
    void expectNoSignature(BYTE container);
};
INSTANTIATE_TEST_SUITE_P(EveryCard, Reset, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

auto acquiredAndOpened(BYTE container) {
    return [container](PlatformSide& card) {
        card.acquireOrFail();
        card.openKey(container);
    };
}

auto withOpenKey(BYTE container) {
    return [container](PlatformSide& card) { card.openKey(container); };
}

TEST_P(Reset, DuringTheAcquisitionEndsItAndTheNextOneSucceeds) {
    goThrough({nothing, [](PlatformSide& card) { return card.acquire(); },
               [](const Commands& commands, std::size_t n) {
                   // The first file that is read is the one with the serial number; all that is
                   // read behind it is on the way to certificates.
                   std::size_t end = 0;
                   while (insOf(commands[end]) != readBinaryIns) ++end;
                   while (insOf(commands[end]) == readBinaryIns) ++end;
                   return Outcome{n < end ? status::unexpected : status::fileNotFound, 0};
               },
               nothing});
}

// The limits that files hold are read first, by SELECTs that want an answer, and without a
// reconnect. The first of the other commands.
std::size_t firstThatReconnects(const Commands& commands) {
    std::size_t first = 0;
    while (insOf(commands[first]) != selectIns || commands[first].at(3) != 0x0C) ++first;
    return first;
}

Operation Reset::verification(PIN_ID pinId, PinRole role) {
    return {acquired,
            [pinId, value = std::string(pinRow(role).value)](PlatformSide& card) {
                return card.authenticate(pinId, value);
            },
            {},
            nothing};
}

void Reset::expectVerification(PIN_ID pinId, PinRole role) {
    const virtual_card::PinRow& pin = pinRow(role);
    const bool isInRoot = pin.directory == virtual_card::masterFile;
    Operation operation = verification(pinId, role);
    operation.expected = [&](const Commands& commands, std::size_t n) -> Outcome {
        // Limits in files are given up for the defaults, and the first other command reconnects.
        if (n < firstThatReconnects(commands)) return {0, 1};
        switch (insOf(commands[n])) {
            case selectIns:
                return {0, 1};  // From the root on, like any other.
            case getDataIns:
                return {
                    isInRoot || isAtRoot(&virtual_card::PinRow::dataReference, pin.dataReference)
                        ? 0
                        : status::unexpected,
                    1};
            case verifyIns:
                if (isInRoot) return {0, 1};
                // Held against the PIN at the root that has the same reference.
                return {isAtRoot(&virtual_card::PinRow::reference, pin.reference)
                            ? status::wrongPin
                            : status::unexpected,
                        1};
            default:
                return {status::unexpected, 1};  // GET RESPONSE: nothing waits any longer.
        }
    };
    goThrough(operation);
}

TEST_P(Reset, DuringTheVerificationOfTheAuthenticationPin) {
    expectVerification(1, PinRole::Authentication);
}

TEST_P(Reset, DuringTheVerificationOfTheSignaturePin) {
    expectVerification(4, PinRole::Signature);
}

TEST_P(Reset, ThatTheReaderDoesNotComeBackFromEndsAVerificationWithoutASecondTry) {
    const auto unexpected = [](const Bytes&) { return status::unexpected; };
    for (const auto& [pinId, role] :
         {std::pair<PIN_ID, PinRole>{1, PinRole::Authentication}, {4, PinRole::Signature}}) {
        const Operation operation = verification(pinId, role);
        goThroughWithoutReconnect(operation, unexpected,
                                  firstThatReconnects(undisturbed(operation)));
    }
}

TEST_P(Reset, AtTheVerifyOfTheSignaturePinCostsAnAttemptOnlyWhereBothPinsShareAReference) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    card.reader.clearExchanges();
    card.openKey(1);
    card.reader.failTransmit(card.reader.exchanges().size(), {Fault::Kind::ResetCard, 0});
    card.authenticate(4, card.pin(PinRole::Signature));
    const bool shared =
        isAtRoot(&virtual_card::PinRow::reference, pinRow(PinRole::Signature).reference);
    EXPECT_EQ(shared, GetParam() == 6);
    EXPECT_EQ(card.reader.card().triesLeft(PinRole::Authentication),
              pinRow(PinRole::Authentication).tries - (shared ? 1u : 0u));
    EXPECT_EQ(card.reader.card().triesLeft(PinRole::Signature), pinRow(PinRole::Signature).tries);
}

// A slow typist: the call has begun, and nothing has gone to the card when it is reset.
TEST_P(Reset, WhileThePinIsTypedLeavesTheCardReadyToSign) {
    for (BYTE container = 0; container < generation().keys.size(); ++container) {
        PlatformSide card(GetParam());
        card.acquireOrFail();
        card.reader.failTransmit(1, {Fault::Kind::ResetCard, 0});
        EXPECT_TRUE(card.signsTruly(container)) << int(container);
        EXPECT_EQ(card.reader.reconnects(), 1u);
    }
}

TEST_P(Reset, WhileThePinIsTypedPutsTheDefaultLimitsInPlaceOfThoseInTheCardsFiles) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    const auto verifyIsSent = [&] {
        for (const auto& exchange : card.reader.exchanges()) {
            if (insOf(exchange.command) == verifyIns) return true;
        }
        return false;
    };
    // The card's own limits of the signature PIN begin at 6, the defaults at 4.
    card.reader.clearExchanges();
    EXPECT_EQ(card.authenticate(4, "12345"), status::wrongPin);
    EXPECT_FALSE(verifyIsSent());
    card.reader.failTransmit(1, {Fault::Kind::ResetCard, 0});
    card.reader.clearExchanges();
    EXPECT_EQ(card.authenticate(4, "12345"), status::wrongPin);
    EXPECT_EQ(verifyIsSent(), !generation().knowsGetData);
}

// A slow service at the end of the acquisition: the card is reset while no call runs, and nobody
// reconnects. A call then asks for the protocol in use, is not told, and takes T=1: with that it
// reconnects to a card of T=1, and not to one of T=0.
TEST_P(Reset, BetweenTwoCallsWithoutAReconnectOfThePlatform) {
    const bool reconnects = generation().protocol == 1;
    for (BYTE container = 0; container < generation().keys.size(); ++container) {
        SCOPED_TRACE("container " + std::to_string(container));
        PlatformSide card(GetParam());
        card.acquireOrFail();
        card.openKey(container);
        const PIN_ID pinId = container == 0 ? 1 : 4;
        const std::string pin = card.pin(card.key(container).pin);

        card.reader.resetCard();
        EXPECT_EQ(card.signMessage(container, "a message").status, status::unexpected);
        if (container == 0 && card.isEcKey(0)) {
            EXPECT_EQ(card.agreeWithItself(), status::securityViolation);
        }
        card.reader.resetCard();
        EXPECT_EQ(card.authenticate(pinId, pin), reconnects ? 0u : status::unexpected);
        EXPECT_EQ(card.signMessage(container, "a message").status,
                  reconnects ? 0u : status::unexpected);
        card.reconnect();
        EXPECT_TRUE(card.signsTruly(container));
    }
}

TEST_P(Reset, DuringASignatureIsAFailureWithoutAReconnect) {
    for (BYTE container = 0; container < generation().keys.size(); ++container) {
        SCOPED_TRACE("container " + std::to_string(container));
        goThrough({acquiredAndOpened(container),
                   [container](PlatformSide& card) {
                       const Answer answer = card.signMessage(container, "a message");
                       EXPECT_EQ(answer.status == 0, !answer.bytes.empty());
                       return answer.status;
                   },
                   [](const Commands&, std::size_t) {
                       return Outcome{status::unexpected, 0};
                   },
                   withOpenKey(container)});
    }
}

// A system may leave the length as it was announced when a call fails. Zeros are then taken for a
// reply; their status word has no code of the platform's, so that the caller is told success and
// finds no signature.
TEST_P(Reset, DuringASignatureWhereTheLengthStaysAsAnnounced) {
    const auto sign = [](PlatformSide& card) { return card.signMessage(0, "a message"); };
    const Operation operation{
        acquiredAndOpened(0), [&](PlatformSide& card) { return sign(card).status; }, {}, {}};
    const Commands commands = undisturbed(operation);
    for (std::size_t n = 0; n < commands.size(); ++n) {
        SCOPED_TRACE("reset before command " + std::to_string(n + 1) + ", " + toHex(commands[n]));
        PlatformSide card(GetParam());
        operation.prepare(card);
        const Between between(card, [](Between& reader, const Bytes& command, std::uint8_t* reply,
                                       std::uint32_t* replyLength) {
            const std::uint32_t announced = *replyLength;
            const std::int32_t code = reader.pass(command, reply, replyLength);
            if (code != 0) *replyLength = announced;
            return code;
        });
        card.reader.failTransmit(n + 1, {Fault::Kind::ResetCard, 0});
        const Answer answer = sign(card);
        EXPECT_EQ(answer.status, 0u);
        EXPECT_TRUE(answer.bytes.empty());
    }
}

void Reset::expectNoSignature(BYTE container) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    card.openKey(container);
    card.reader.resetCard();
    card.reconnect();
    EXPECT_EQ(card.signMessage(container, "a message").status, status::securityViolation)
        << int(container);
    EXPECT_TRUE(card.signsTruly(container)) << int(container);
}

TEST_P(Reset, BetweenTwoCallsAndAReconnectOfThePlatformClosesThePin) {
    for (BYTE container = 0; container < generation().keys.size(); ++container) {
        expectNoSignature(container);
    }
}

// The key's environment, the gathered block and the waiting reply are gone with the reset; only
// ahead of the first command there is nothing to lose but the PIN.
Outcome atKeyOperation(const Commands& commands, std::size_t n) {
    switch (insOf(commands[n])) {
        case selectIns:
        case verifyIns:
        case setEnvironmentIns:
            return {status::securityViolation, 1};
        default:
            return {status::unexpected, 1};
    }
}

// Where the reader does not come back, the question whether the PIN is open counts as a no.
DWORD atKeyOperationWithoutReconnect(const Bytes& command) {
    const bool asksForThePin = insOf(command) == selectIns || insOf(command) == verifyIns;
    return asksForThePin ? status::securityViolation : status::unexpected;
}

class ResetOfAnRsaCard : public Reset {};
INSTANTIATE_TEST_SUITE_P(EveryRsaCard, ResetOfAnRsaCard, ::testing::ValuesIn(rsaCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(ResetOfAnRsaCard, DuringADecryption) {
    for (BYTE container = 0; container < generation().keys.size(); ++container) {
        if (!virtual_card::isRsa(generation().keys[container].kind)) continue;
        SCOPED_TRACE("container " + std::to_string(container));
        const Operation decryption{acquiredAndOpened(container),
                                   [container](PlatformSide& card) {
                                       const Bytes block =
                                           encryptedTo(card.certificate(container), "a secret");
                                       return card.decrypt(container, block).status;
                                   },
                                   atKeyOperation, withOpenKey(container)};
        goThrough(decryption);
        goThroughWithoutReconnect(decryption, atKeyOperationWithoutReconnect);
    }
}

class ResetOfAnEcCard : public Reset {};
INSTANTIATE_TEST_SUITE_P(EveryEcCard, ResetOfAnEcCard, ::testing::ValuesIn(ecCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(ResetOfAnEcCard, DuringAnAgreement) {
    const Operation agreement{acquiredAndOpened(0),
                              [](PlatformSide& card) { return card.agreeWithItself(); },
                              atKeyOperation, withOpenKey(0)};
    goThrough(agreement);
    goThroughWithoutReconnect(agreement, atKeyOperationWithoutReconnect);
}

TEST_P(ResetOfAnEcCard, DuringADerivationAndDuringTheEndOfAnAgreementKeepsTheSecret) {
    const auto agreed = [](PlatformSide& card) {
        card.acquireOrFail();
        card.openKey(0);
        ASSERT_EQ(card.agreeWithItself(), 0u);
    };
    const Operation derivation{agreed, [](PlatformSide& card) { return card.derive(1).status; },
                               atKeyOperation, withOpenKey(0)};
    const Operation end{
        agreed,
        [](PlatformSide& card) { return card.data.pfnCardDestroyDHAgreement(&card.data, 1, 0); },
        atKeyOperation, withOpenKey(0)};
    for (const Operation& operation : {derivation, end}) {
        goThrough(operation);
        goThroughWithoutReconnect(operation, atKeyOperationWithoutReconnect);
    }
}

}  // namespace
}  // namespace boundary
