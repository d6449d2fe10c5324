#include "card_session.h"

namespace virtual_card {
namespace {

std::string propertyQuery(std::uint8_t reference) {
    Bytes data = fromHex("4D097007BF81");
    data.push_back(reference);
    append(data, fromHex("037F4180"));
    return toHex(commandOf("00CB3FFF", data, std::uint8_t{0}));
}

class GetData : public testing::TestWithParam<int> {
protected:
    CardSession session{GetParam()};
};

TEST_P(GetData, TellsMaximumAtOffset11AndMinimumAtOffset14) {
    for (PinRole role : {PinRole::Authentication, PinRole::Signature, PinRole::Unblock}) {
        session.selectDirectoryOf(role);
        Reply reply = session.exchange(propertyQuery(session.pin(role).dataReference));
        ASSERT_EQ(reply.status, sw::ok);
        ASSERT_GE(reply.data.size(), 15U);
        EXPECT_EQ(reply.data[11], session.pin(role).maximumLength);
        EXPECT_EQ(reply.data[14], session.pin(role).minimumLength);
    }
}

TEST_P(GetData, RefusesAnUnknownPinAndAPinOfAnotherDirectory) {
    session.selectRoot();
    EXPECT_EQ(session.exchange(propertyQuery(0x7E)).status, sw::referenceNotFound);
    session.selectEsign();
    EXPECT_EQ(session.exchange(propertyQuery(session.pin(PinRole::Unblock).dataReference)).status,
              sw::referenceNotFound);
}

TEST_P(GetData, RefusesAnotherListAndAnotherObject) {
    session.selectRoot();
    EXPECT_EQ(session.send("00CB3FFF0A4D087006BF811102A08000"), "6A80");
    EXPECT_EQ(session.send("00CB3FFF0B4D097007BF8A11037F418000"), "6A80");
    EXPECT_EQ(session.send("00CB00FF0B4D097007BF8111037F418000"), "6A86");
}

INSTANTIATE_TEST_SUITE_P(CardType, GetData, testing::Values(3, 6));

TEST(GetDataOfGeneration3, AnswersAtOnce) {
    CardSession session(3);
    EXPECT_EQ(session.send(propertyQuery(0x11)), "7013BF81110F7F410C8001088101049A01059B01059000");
}

TEST(GetDataOfGeneration6, KeepsTheAnswerForGetResponse) {
    CardSession session(6);
    EXPECT_EQ(session.send(propertyQuery(0x01)), "6115");
    EXPECT_EQ(session.send("00C0000000"), "7013BF81010F7F410C80010C8101049A01039B01039000");
}

TEST(GetDataOfOtherGenerations, IsUnknown) {
    for (int cardType : {4, 5, 7, 8}) {
        EXPECT_EQ(CardSession(cardType).send(propertyQuery(0x11)), "6D00");
    }
}

}  // namespace
}  // namespace virtual_card
