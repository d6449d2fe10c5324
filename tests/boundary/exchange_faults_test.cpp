// One exchange with the card after the other goes wrong in each of the ways below: the call ends
// with the status that the rules give for what arrived, nothing crashes, nothing hangs, and no
// buffer of the platform's is lost. Of a long reading only the first and the last twenty exchanges
// are all gone through, and every seventh between; tests/faults draws from all of them, natively.
#include "fault_rules.h"

#include <functional>

#include "between.h"
#include "other_party.h"
#include "support/statuses.h"

namespace boundary {
namespace {

using virtual_card::Fault;

const Fault faults[] = {
    {Fault::Kind::TransportError, status::lostData},  // the reader does not answer
    {Fault::Kind::LostReply, status::notTransacted},
    {Fault::Kind::CutReply, 0},
    {Fault::Kind::CutReply, 1},
    {Fault::Kind::CutReply, 2},
    {Fault::Kind::CutReply, 3},
    {Fault::Kind::StatusWord, 0x6982},
    {Fault::Kind::StatusWord, 0x6A82},
    {Fault::Kind::StatusWord, 0x6A86},
    {Fault::Kind::StatusWord, 0x6100},
    {Fault::Kind::StatusWord, 0x6110},
    {Fault::Kind::StatusWord, 0x6C10},
    {Fault::Kind::StatusWord, 0x9000},
    {Fault::Kind::StatusWord, 0x6282},
    {Fault::Kind::StatusWord, 0x63C0},
    {Fault::Kind::StatusWord, 0x0000},
    {Fault::Kind::ResetCard, 0},
    {Fault::Kind::RemoveCard, 0},
    {Fault::Kind::ClaimedLength, 0},
    {Fault::Kind::ClaimedLength, 1},
    {Fault::Kind::ClaimedLength, 259},
    {Fault::Kind::ClaimedLength, 513},
    {Fault::Kind::ClaimedLength, 0xFFFFFFFF},
};

class Faults : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(EveryCard, Faults, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());
class Replies : public Faults {};
INSTANTIATE_TEST_SUITE_P(EveryCard, Replies, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());
class FaultsOfEcCards : public Faults {};
INSTANTIATE_TEST_SUITE_P(EveryEcCard, FaultsOfEcCards, ::testing::ValuesIn(ecCardTypes()),
                         ::testing::PrintToStringParamName());

// Does something from a fresh card on, once for each exchange of it that goes wrong. Each run ends
// with the status that the rules give for what arrived.
template <typename Prepare, typename Act>
void goThrough(int cardType, Prepare prepare, Act act,
               const std::function<DWORD(const Steps&, const Steps&)>& rule) {
    std::size_t exchanges = 0;
    Steps good;
    {
        PlatformSide card(cardType);
        prepare(card);
        card.reader.clearExchanges();
        ASSERT_EQ(act(card), 0u);
        exchanges = card.reader.exchanges().size();
        good = stepsOf(card.reader.exchanges());
        ASSERT_EQ(rule(good, good), 0u);
    }
    ASSERT_GT(exchanges, 0u);
    // A long reading repeats itself: its middle is sampled.
    for (std::size_t n = 1; n <= exchanges; n += (n > 20 && n + 20 < exchanges) ? 7 : 1) {
        for (const Fault& fault : faults) {
            SCOPED_TRACE(::testing::Message() << "fault " << int(fault.kind) << " of 0x" << std::hex
                                              << fault.value << " at " << std::dec << n);
            PlatformSide card(cardType);
            prepare(card);
            card.reader.clearExchanges();
            card.reader.failTransmit(n, fault);
            const DWORD status = act(card);
            EXPECT_EQ(status, rule(good, stepsOf(card.reader.exchanges(), n, fault)));
            if (::testing::Test::HasFailure()) return;  // One report tells enough.
        }
    }
}

TEST_P(Faults, AtTheAcquisition) {
    Bytes identifier;
    Bytes certificate;
    goThrough(
        GetParam(), nothing,
        [&](PlatformSide& card) {
            const DWORD status = card.acquire();
            if (status == 0) {
                const Bytes identifierNow = card.readFile(nullptr, "cardid").bytes;
                if (identifier.empty()) identifier = identifierNow;
                EXPECT_EQ(identifierNow, identifier);
                const Bytes certificateNow = card.certificate(0);
                if (certificate.empty()) certificate = certificateNow;
                EXPECT_EQ(certificateNow, certificate);
            }
            return status;
        },
        statusOfAcquisition);
}

TEST_P(Faults, AtTheVerificationOfAPin) {
    for (const PIN_ID pinId : {1u, 4u}) {
        const std::string pin = pinId == 1 ? "1234" : "123456";
        constexpr DWORD untouched = 77;
        DWORD attempts = untouched;
        goThrough(
            GetParam(), acquired,
            [&](PlatformSide& card) { return card.authenticate(pinId, pin, &attempts); },
            [&](const Steps& good, const Steps& run) {
                const PinEnd end = endOfPin(good, run, pin);
                EXPECT_EQ(attempts, end.attempts.value_or(untouched));
                return end.status;
            });
    }
}

TEST_P(Faults, AtASignature) {
    Bytes given;
    goThrough(
        GetParam(), opened,
        [&](PlatformSide& card) {
            Bytes hash(32, 0x11);
            const Answer answer = card.sign(card.signingInfo(0, hash));
            given = card.isEcKey(0) ? answer.bytes : reversed(answer.bytes);
            return answer.status;
        },
        [&](const Steps& good, const Steps& run) {
            // A signature is what the last command has brought by 9000; otherwise there is none,
            // whatever the status says.
            const Step& last = run.back();
            const bool isSigned = run.size() == good.size() && isGood(last);
            EXPECT_EQ(given, isSigned ? last.data : Bytes{});
            return statusOfSignature(good, run);
        });
}

TEST(FaultsOfAnRsaKey, AtADecryption) {
    Bytes block;
    goThrough(
        3, opened,
        [&](PlatformSide& card) {
            if (block.empty()) block = encryptedTo(card.certificate(0), "a secret");
            return card.decrypt(0, block).status;
        },
        statusOfDecryption);
}

TEST_P(FaultsOfEcCards, AtAnAgreement) {
    Bytes blob;
    goThrough(
        GetParam(), opened,
        [&](PlatformSide& card) {
            if (blob.empty()) blob = OtherParty(card.certificate(0)).blob();
            CARD_DH_AGREEMENT_INFO info{};
            info.dwVersion = 2;
            info.dwPublicKey = static_cast<DWORD>(blob.size());
            info.pbPublicKey = blob.data();
            return card.data.pfnCardConstructDHAgreement(&card.data, &info);
        },
        statusOfAgreement);
}

TEST_P(Faults, AllocationsFailingOneByOne) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    // Each of the three makes one allocation for its answer.
    for (int n = 0; n <= 3; ++n) {
        SCOPED_TRACE(n);
        PlatformSide::failAllocation(n);
        EXPECT_EQ(card.property(WIDE_TEXT("PIN Information"), 1).status,
                  n == 1 ? status::notEnoughMemory : 0u);
        EXPECT_EQ(card.property(WIDE_TEXT("Card Identifier"), 0).status,
                  n == 2 ? status::notEnoughMemory : 0u);
        EXPECT_EQ(card.readFile("mscp", "cmapfile").status, n == 3 ? status::notEnoughMemory : 0u);
        PlatformSide::failAllocation(0);
    }
}

TEST(FaultsAtTheAcquisition, ACardPulledOutInTheMiddleOfAChainEndsIt) {
    // The second reply says that more waits, and the card is gone when that is asked for: the
    // reading ends with a status, and does not hang.
    PlatformSide card(5);
    card.reader.failTransmit(2, {Fault::Kind::StatusWord, 0x6105});
    card.reader.failTransmit(3, {Fault::Kind::RemoveCard, 0});
    EXPECT_EQ(card.acquire(), status::unexpected);
}

TEST_P(Replies, StatedAByteTooLongHaveNoStatusWord) {
    // Whatever the buffer ends with: here it would be 9000 with the one byte behind it.
    PlatformSide card(GetParam());
    card.acquireOrFail();
    const Between between(card, [&](Between& reader, const Bytes& command, std::uint8_t* reply,
                                    std::uint32_t* replyLength) {
        constexpr BYTE verifyIns = 0x20;
        if (command[1] != verifyIns) return reader.pass(command, reply, replyLength);
        std::fill_n(reply, *replyLength, std::uint8_t{0x90});
        ++*replyLength;
        return std::int32_t{0};
    });
    EXPECT_EQ(card.authenticate(1, card.pin(virtual_card::PinRole::Authentication)),
              status::unexpected);
}

// The room that the driver has for a reply: by command records 510 bytes, and for what waits that
// and its status word; by command objects 258.
TEST_P(Replies, HaveTheRoomThatTheyAreGiven) {
    PlatformSide card(GetParam());
    bool isByRecord = true;
    std::uint32_t waiting = 0;
    const Between between(card, [&](Between& reader, const Bytes& command, std::uint8_t* reply,
                                    std::uint32_t* replyLength) {
        constexpr BYTE getResponseIns = 0xC0;
        const bool isRest = command[1] == getResponseIns;
        EXPECT_EQ(*replyLength, !isByRecord ? 258u : isRest ? waiting + 2 : 510u);
        const std::int32_t code = reader.pass(command, reply, replyLength);
        waiting = *replyLength < 2 || reply[*replyLength - 1] == 0 ? 256 : reply[*replyLength - 1];
        return code;
    });
    ASSERT_EQ(card.acquire(), 0u);
    if (virtual_card::findGeneration(GetParam())->knowsGetData) {
        isByRecord = false;
        EXPECT_EQ(card.authenticate(1, card.pin(virtual_card::PinRole::Authentication)), 0u);
    }
}

}  // namespace
}  // namespace boundary
