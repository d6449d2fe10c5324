#include "card/card_transaction_handler.h"
#include "card/key_references.h"
#include "keys/keys_fixture.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::counting;
using testing::hexOf;
using testing::LogCapture;
using testing::LogLines;
using testing::ScriptedCard;

constexpr const char* mseSha256Ecdsa = "00 22 41 B6 06 84 01 91 80 01 44 00";

ApduResult sign(const ByteVector& data, CardType cardType, BYTE hash = 0x40, BYTE scheme = 0x04,
                BYTE keyRef = 0x91) {
    CardTransactionHandler handler(ScriptedCard::handle);
    return handler.computeSignature(data, hash, scheme, keyRef, cardType);
}

TEST(ComputeSignature, SendsNoHashCommandOnCardType8AndAsksForWhatThereIs) {
    LogCapture log;
    ScriptedCard card;
    const ByteVector hash = counting(32);
    card.expect(mseSha256Ecdsa, "9000").expect("00 2A 9E 9A 20" + hexOf(hash) + "00", "AA BB 9000");
    const ApduResult result = sign(hash, CardType::type8);
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("AA BB"));
    EXPECT_EQ(log.file(), LogLines{});
    EXPECT_EQ(log.output(), LogLines{});
}

TEST(ComputeSignature, SendsTheHashTwiceOnCardsWithASecondSigningKey) {
    struct Row {
        CardType cardType;
        const char* Le;
    };
    for (const Row& row :
         {Row{CardType::type4, "60"}, Row{CardType::type5, "40"}, Row{CardType::type7, "40"}}) {
        ScriptedCard card;
        const std::string hash = hexOf(counting(32));
        card.expect("00 22 41 B6 06 84 01 02 80 01 44 00", "9000")
            .expect("00 2A 90 A0 22 90 20" + hash + "00", "9000")
            .expect("00 2A 9E 9A 20" + hash + row.Le, "01 02 9000");
        EXPECT_EQ(sign(counting(32), row.cardType, 0x40, 0x04, 0x02).responseData, bytes("01 02"));
    }
}

TEST(ComputeSignature, AsksForWhatThereIsOnAllOtherCards) {
    for (const CardType cardType :
         {CardType::unknown, CardType::noAtr, CardType::type3, CardType::type6, CardType::type8}) {
        ScriptedCard card;
        card.expect(mseSha256Ecdsa, "9000").expect("00 2A 9E 9A 01 AA 00", "9000");
        EXPECT_TRUE(sign(bytes("AA"), cardType).success());
    }
}

TEST(ComputeSignature, GoesOnWhenTheCardDoesNotKnowMseSet) {
    ScriptedCard card;
    card.expect(mseSha256Ecdsa, "6D00").expect("00 2A 9E 9A 01 AA 00", "55 9000");
    const ApduResult result = sign(bytes("AA"), CardType::type6);
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.responseData, bytes("55"));
}

TEST(ComputeSignature, EndsWithMseSetWhenTheCardRefusesItOtherwise) {
    for (const char* refusal : {"6A88", "6982", "6D01", "6E00"}) {
        ScriptedCard card;
        card.expect(mseSha256Ecdsa, refusal);
        const ApduResult result = sign(bytes("AA"), CardType::type5);
        EXPECT_FALSE(result.success());
        EXPECT_EQ(result.command.INS, 0x22);
        EXPECT_EQ(ByteVector({result.SW1, result.SW2}), bytes(refusal));
    }
}

TEST(ComputeSignature, EndsWithPsoHashWhenTheCardRefusesIt) {
    ScriptedCard card;
    card.expect(mseSha256Ecdsa, "9000").expect("00 2A 90 A0 03 90 01 AA 00", "6985");
    const ApduResult result = sign(bytes("AA"), CardType::type7);
    EXPECT_FALSE(result.success());
    EXPECT_EQ(result.Sw1Sw2(), 0x6985);
    EXPECT_EQ(result.command.P2, 0xA0);
}

TEST(ComputeSignature, GivesTheRefusalOfTheSignature) {
    ScriptedCard card;
    card.expect(mseSha256Ecdsa, "9000").expect("00 2A 9E 9A 01 AA 00", "6982");
    const ApduResult result = sign(bytes("AA"), CardType::type3);
    EXPECT_FALSE(result.success());
    EXPECT_EQ(result.Sw1Sw2(), 0x6982);
    EXPECT_EQ(result.transportErrorCode, SCARD_W_SECURITY_VIOLATION);
}

TEST(ComputeSignature, EndsWithMseSetWhenItWasNotTransmitted) {
    LogCapture log;
    ScriptedCard card;
    card.expectFailure(mseSha256Ecdsa, SCARD_W_REMOVED_CARD);
    const ApduResult result = sign(bytes("AA"), CardType::type3);
    EXPECT_FALSE(result.success());
    EXPECT_EQ(result.command.INS, 0x22);
    EXPECT_EQ(result.transportErrorCode, SCARD_E_UNEXPECTED);
}

TEST(ComputeSignature, ReadsWhatAFailedTransmissionLeftAsAReply) {
    LogCapture log;
    ScriptedCard card;
    card.expectFailure(mseSha256Ecdsa, SCARD_W_REMOVED_CARD, "6D00");
    card.expect("00 2A 9E 9A 01 AA 00", "55 9000");
    EXPECT_TRUE(sign(bytes("AA"), CardType::type3).success());
}

TEST(ComputeSignature, GathersASignatureThatComesInPieces) {
    ScriptedCard card;
    card.expect(mseSha256Ecdsa, "9000")
        .expect("00 2A 9E 9A 01 AA 00", "01 02 6102")
        .expect("00 C0 00 00 02", "03 04 9000");
    EXPECT_EQ(sign(bytes("AA"), CardType::type3).responseData, bytes("01 02 03 04"));
}

TEST(KeyReferences, FollowTheCardTheKindOfKeyAndTheContainer) {
    struct Row {
        bool hasSecondSignCert;
        bool isEcc;
        BYTE references[3];
    };
    for (const Row& row :
         {Row{true, true, {0x01, 0x02, 0x03}}, Row{true, false, {0x01, 0x02, 0x03}},
          Row{false, true, {0x91, 0x93, 0x93}}, Row{false, false, {0x81, 0x82, 0x82}}}) {
        for (const BYTE container : {BYTE{0}, BYTE{1}, BYTE{2}}) {
            EXPECT_EQ(signatureKeyReference(row.hasSecondSignCert, row.isEcc, container),
                      row.references[container]);
        }
        EXPECT_EQ(signatureKeyReference(row.hasSecondSignCert, row.isEcc, 255), row.references[2]);
    }
    EXPECT_EQ(agreementKeyReference(true), 0x01);
    EXPECT_EQ(agreementKeyReference(false), 0x91);
}

}  // namespace
}  // namespace KelmoraID
