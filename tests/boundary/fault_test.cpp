// Every exchange with the card goes wrong in every way, one after the other: each call ends with a
// status, nothing crashes, nothing hangs, and no buffer of the platform's is lost.
#include <set>

#include "platform_side.h"

namespace boundary {
namespace {

using virtual_card::Fault;

const Fault faults[] = {
    {Fault::Kind::TransportError, 0x8010002F},  // the reader does not answer
    {Fault::Kind::LostReply, 0x80100016},
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

// The statuses that the system lays down; nothing else ever leaves it.
const std::set<DWORD> statuses{0,          8,          0x57,       0x51A,      0x80100003,
                               0x80100004, 0x80100008, 0x8010000B, 0x8010000D, 0x8010001F,
                               0x80100022, 0x80100024, 0x80100030, 0x8010006A, 0x8010006B,
                               0x8010006C, 0x8010006F, 0x80100069, 0x80100068};

void expectStatus(DWORD status, std::size_t n) {
    EXPECT_TRUE(statuses.contains(status)) << "0x" << std::hex << status << " at " << std::dec << n;
}

class Faults : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(EveryCard, Faults, ::testing::ValuesIn(allCardTypes));

// Does something from a fresh card on, with the n-th exchange of it going wrong, for every n.
template <typename Prepare, typename Act>
void goThrough(int cardType, Prepare prepare, Act act) {
    std::size_t exchanges = 0;
    {
        PlatformSide card(cardType);
        prepare(card);
        card.reader.clearExchanges();
        act(card);
        exchanges = card.reader.exchanges().size();
    }
    ASSERT_GT(exchanges, 0u);
    // A long reading repeats itself: its middle is sampled.
    for (std::size_t n = 1; n <= exchanges; n += (n > 20 && n + 20 < exchanges) ? 7 : 1) {
        for (const Fault& fault : faults) {
            PlatformSide card(cardType);
            prepare(card);
            card.reader.failTransmit(n, fault);
            expectStatus(act(card), n);
        }
    }
}

void nothing(PlatformSide&) {}
void acquired(PlatformSide& card) {
    card.acquireOrFail();
}
void opened(PlatformSide& card) {
    card.acquireOrFail();
    card.openKey(0);
}

TEST_P(Faults, AtTheAcquisition) {
    goThrough(GetParam(), nothing, [](PlatformSide& card) {
        const DWORD status = card.acquire();
        if (status == 0) {
            EXPECT_EQ(card.readFile(nullptr, "cardid").bytes.size(), 16u);
        }
        return status;
    });
}

TEST_P(Faults, AtTheVerificationOfAPin) {
    for (const PIN_ID pinId : {1u, 4u}) {
        goThrough(GetParam(), acquired, [pinId](PlatformSide& card) {
            return card.authenticate(pinId, pinId == 1 ? "1234" : "123456");
        });
    }
}

TEST_P(Faults, AtASignature) {
    goThrough(GetParam(), opened, [](PlatformSide& card) {
        Bytes hash(32, 0x11);
        CARD_SIGNING_INFO info{};
        info.dwVersion = 1;
        info.dwKeySpec = card.isEcKey(0) ? AT_ECDSA_P256 : AT_KEYEXCHANGE;
        info.aiHashAlg = card.isEcKey(0) ? 0 : 0x800C;
        info.pbData = hash.data();
        info.cbData = 32;
        const Answer answer = card.sign(info);
        return answer.status;
    });
}

TEST_P(Faults, AtADecryption) {
    if (GetParam() != 3) return;
    goThrough(GetParam(), opened,
              [](PlatformSide& card) { return card.decrypt(0, Bytes(256, 0x01)).status; });
}

TEST_P(Faults, AtAnAgreement) {
    if (GetParam() == 3) return;
    goThrough(GetParam(), opened, [](PlatformSide& card) {
        // Not a point of the curve: the card refuses it, if nothing else has gone wrong before.
        Bytes blob(8 + 64, 0x07);
        CARD_DH_AGREEMENT_INFO info{};
        info.dwVersion = 2;
        info.dwPublicKey = static_cast<DWORD>(blob.size());
        info.pbPublicKey = blob.data();
        return card.data.pfnCardConstructDHAgreement(&card.data, &info);
    });
}

TEST_P(Faults, AllocationsFailingOneByOne) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    for (int n = 1; n <= 3; ++n) {
        PlatformSide::failAllocation(n);
        card.property(WIDE_TEXT("PIN Information"), 1);
        card.property(WIDE_TEXT("Card Identifier"), 0);
        card.readFile("mscp", "cmapfile");
        PlatformSide::failAllocation(0);
    }
    EXPECT_EQ(card.property(WIDE_TEXT("PIN List"), 0).status, 0u);
}

TEST(FaultsAtTheAcquisition, ACardPulledOutInTheMiddleOfAChainEndsIt) {
    // The second reply says that more waits, and the card is gone when that is asked for: the
    // reading ends with a status, and does not hang.
    PlatformSide card(5);
    card.reader.failTransmit(2, {Fault::Kind::StatusWord, 0x6105});
    card.reader.failTransmit(3, {Fault::Kind::RemoveCard, 0});
    EXPECT_EQ(card.acquire(), 0x8010001Fu);
}

}  // namespace
}  // namespace boundary
