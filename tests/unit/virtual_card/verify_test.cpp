// PINs: where and how they are given, how tries count down, what survives a reset.
#include "card_session.h"

namespace virtual_card {
namespace {

constexpr PinRole roles[] = {PinRole::Authentication, PinRole::Signature, PinRole::Unblock};

class Verify : public testing::TestWithParam<int> {
protected:
    void block(PinRole role) {
        for (unsigned tries = session.pin(role).tries; tries > 0; --tries) {
            ASSERT_EQ(session.verify(role, "99999999"), sw::triesLeft(tries - 1));
        }
    }
    const Generation& generation() { return session.card.generation(); }

    CardSession session{GetParam()};
};

TEST_P(Verify, OpensThePinAndTellsSoToAQuery) {
    for (PinRole role : roles) {
        EXPECT_EQ(session.queryPin(role), sw::triesLeft(session.pin(role).tries));
        EXPECT_EQ(session.verify(role), sw::ok);
        EXPECT_EQ(session.queryPin(role), sw::ok);
    }
}

TEST_P(Verify, OpensNoOtherPin) {
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    EXPECT_EQ(session.queryPin(PinRole::Signature),
              sw::triesLeft(session.pin(PinRole::Signature).tries));
}

TEST_P(Verify, CountsTriesDownAndGivesThemBackForTheRightPin) {
    for (PinRole role : roles) {
        const unsigned tries = session.pin(role).tries;
        EXPECT_EQ(session.verify(role, "99999999"), sw::triesLeft(tries - 1));
        EXPECT_EQ(session.verify(role, "99999999"), sw::triesLeft(tries - 2));
        EXPECT_EQ(session.queryPin(role), sw::triesLeft(tries - 2));
        EXPECT_EQ(session.verify(role), sw::ok);
        EXPECT_EQ(session.card.triesLeft(role), tries);
    }
}

TEST_P(Verify, ClosesTheOpenPinWhenAWrongOneIsGiven) {
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    session.verify(PinRole::Authentication, "99999999");
    EXPECT_FALSE(session.card.isVerified(PinRole::Authentication));
}

TEST_P(Verify, BlocksAtZeroAndRefusesTheRightPinFromThenOn) {
    for (PinRole role : roles) {
        block(role);
        EXPECT_EQ(session.verify(role), generation().blockedVerify);
        EXPECT_EQ(session.queryPin(role), generation().blockedQuery);
        EXPECT_FALSE(session.card.isVerified(role));
    }
}

TEST_P(Verify, ForgetsWhatIsOpenAtAResetAndKeepsTheTries) {
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    session.verify(PinRole::Signature, "99999999");
    session.card.reset();
    EXPECT_EQ(session.queryPin(PinRole::Authentication),
              sw::triesLeft(session.pin(PinRole::Authentication).tries));
    EXPECT_EQ(session.queryPin(PinRole::Signature),
              sw::triesLeft(session.pin(PinRole::Signature).tries - 1U));
}

TEST_P(Verify, RefusesAWrongLengthWithoutCounting) {
    for (PinRole role : roles) {
        session.selectDirectoryOf(role);
        Bytes header{0x00, 0x20, 0x00, session.pin(role).reference};
        for (std::size_t length : {std::size_t{1}, std::size_t{3}, std::size_t{13}}) {
            EXPECT_EQ(session.exchange(commandOf(toHex(header), Bytes(length, '1'))).status,
                      sw::wrongLength);
        }
        EXPECT_EQ(session.card.triesLeft(role), session.pin(role).tries);
    }
}

TEST_P(Verify, RefusesAPinThatThereIsNot) {
    session.selectRoot();
    EXPECT_EQ(session.send("0020007E"), "6A88");
}

// Generation 6 tells its two PINs apart by directory alone: see below.
class VerifyByReference : public Verify {};
INSTANTIATE_TEST_SUITE_P(CardType, VerifyByReference, ::testing::Values(3, 4, 5, 7, 8));

TEST_P(VerifyByReference, RefusesAPinOfAnotherDirectory) {
    const PinRow& authentication = session.pin(PinRole::Authentication);
    const PinRow& signature = session.pin(PinRole::Signature);
    session.selectRoot();
    Bytes query{0x00, 0x20, 0x00, 0x00};
    query.back() = signature.reference;
    EXPECT_EQ(session.exchange(query).status, sw::referenceNotFound);
    session.selectEsign();
    query.back() = authentication.reference;
    EXPECT_EQ(session.exchange(query).status, sw::referenceNotFound);
}

TEST_P(Verify, RefusesAnotherP1) {
    EXPECT_EQ(session.send("00200111"), "6A86");
}

TEST_P(Verify, TakesAnEmptyCommandWithLeAsAQuery) {
    Bytes command{0x00, 0x20, 0x00, session.pin(PinRole::Authentication).reference, 0x00};
    EXPECT_EQ(session.exchange(command).status,
              sw::triesLeft(session.pin(PinRole::Authentication).tries));
}

INSTANTIATE_TEST_SUITE_P(CardType, Verify, testing::ValuesIn(allCardTypes()));

TEST(VerifyOfGeneration6, TellsTwoPinsOfOneReferenceApartByDirectory) {
    CardSession session(6);
    session.selectRoot();
    EXPECT_EQ(session.send("002000810431323334"), "9000");
    session.selectEsign();
    EXPECT_EQ(session.send("00200081"), "63C3");
    EXPECT_EQ(session.send("0020008106313233343536"), "9000");
}

TEST(VerifyOfGeneration5, WantsTwelveBytesPaddedWithZeros) {
    CardSession session(5);
    session.selectRoot();
    EXPECT_EQ(session.send("002000110431323334"), "6700");
    EXPECT_EQ(session.send("002000110C31323334FFFFFFFFFFFFFFFF"), "63C4");
    EXPECT_EQ(session.send("002000110C313233340000000000000000"), "9000");
}

struct BlockedCase {
    int cardType;
    std::uint16_t verify;
    std::uint16_t query;
};

TEST(BlockedPin, IsToldInEachWayThatThereIs) {
    for (const BlockedCase& expected :
         {BlockedCase{3, 0x6983, 0x63C0}, BlockedCase{4, 0x6983, 0x6984},
          BlockedCase{5, 0x6984, 0x63C0}, BlockedCase{6, 0x6984, 0x6984}}) {
        EXPECT_EQ(generationOf(expected.cardType).blockedVerify, expected.verify);
        EXPECT_EQ(generationOf(expected.cardType).blockedQuery, expected.query);
    }
}

}  // namespace
}  // namespace virtual_card
