// RSA decipher and ECDH agreement, with OpenSSL as the other party.
#include "card_session.h"
#include "openssl.h"
#include "virtual_card/tlv.h"

namespace virtual_card {
namespace {

std::uint16_t setRsa(CardSession& session, std::uint8_t keyReference) {
    return session
        .exchange(commandOf("002241B8", Bytes{0x80, 0x01, 0x1A, 0x84, 0x01, keyReference}))
        .status;
}

std::uint16_t setEcdh(CardSession& session, std::uint8_t keyReference) {
    return session
        .exchange(commandOf("002241B8",
                            Bytes{0x80, 0x04, 0xFF, 0x30, 0x04, 0x00, 0x84, 0x01, keyReference}))
        .status;
}

// RSA ----------------------------------------------------------------------------------------

struct RsaCase {
    int cardType;
    std::size_t key;
    std::size_t blockSize;
};

void PrintTo(const RsaCase& value, std::ostream* out) {
    *out << "card type " << value.cardType << ", key " << value.key;
}

class RsaDecipher : public testing::TestWithParam<RsaCase> {
protected:
    void open() {
        ASSERT_EQ(session.verify(key().pin), sw::ok);
        ASSERT_EQ(setRsa(session, key().decipherReference), sw::ok);
    }
    const KeyRow& key() { return session.key(GetParam().key); }

    Bytes encrypted(const Bytes& message) {
        openSsl.takeCertificate(session.certificate(key()));
        openSsl.write("message", message);
        EXPECT_TRUE(openSsl.run("pkeyutl -encrypt -pubin -inkey public.pem -in message -out block"))
            << openSsl.readText("output");
        return openSsl.read("block");
    }

    std::uint16_t sendFirst(ByteView block) {
        Bytes data{0x81};
        append(data, block.first(254));
        return session.exchange(commandOf("102A8086", data)).status;
    }

    Reply sendRest(ByteView block, std::uint8_t le = 0xFF) {
        return session.exchange(commandOf("002A8086", block.subspan(254), le));
    }

    CardSession session{GetParam().cardType};
    OpenSsl openSsl;
};

TEST_P(RsaDecipher, GivesBackWhatOpenSslEncrypted) {
    for (std::size_t size : {1U, 20U, 117U, 245U}) {
        Bytes message(size, 0x5A);
        message[0] = 0x00;  // a leading zero is part of the message
        Bytes block = encrypted(message);
        ASSERT_EQ(block.size(), GetParam().blockSize);
        open();
        ASSERT_EQ(sendFirst(block), sw::ok);
        Reply reply = sendRest(block);
        EXPECT_EQ(reply.status, sw::ok);
        EXPECT_EQ(toHex(reply.data), toHex(message));
    }
}

TEST_P(RsaDecipher, IsRefusedWithoutThePin) {
    Bytes block = encrypted({1, 2, 3});
    ASSERT_EQ(setRsa(session, key().decipherReference), sw::ok);
    EXPECT_EQ(sendFirst(block), sw::securityStatusNotSatisfied);
}

TEST_P(RsaDecipher, IsRefusedWithoutAnEnvironment) {
    Bytes block = encrypted({1, 2, 3});
    ASSERT_EQ(session.verify(key().pin), sw::ok);
    EXPECT_EQ(sendFirst(block), sw::conditionsNotSatisfied);
    ASSERT_EQ(setRsa(session, key().decipherReference), sw::ok);
    EXPECT_EQ(setRsa(session, 0x77), sw::referenceNotFound);
    EXPECT_EQ(sendFirst(block), sw::conditionsNotSatisfied);
}

TEST_P(RsaDecipher, RefusesABrokenPadding) {
    Bytes block = encrypted({1, 2, 3});
    block[10] ^= 0x04;
    open();
    ASSERT_EQ(sendFirst(block), sw::ok);
    Reply reply = sendRest(block);
    EXPECT_EQ(reply.status, sw::incorrectData);
    EXPECT_TRUE(reply.data.empty());
}

TEST_P(RsaDecipher, RefusesABlockThatIsNotAsLongAsTheKey) {
    Bytes block = encrypted({1, 2, 3});
    open();
    ASSERT_EQ(sendFirst(block), sw::ok);
    EXPECT_EQ(sendRest(ByteView(block).first(block.size() - 1)).status, sw::incorrectData);
}

TEST_P(RsaDecipher, RefusesABlockWithoutThePaddingIndicator) {
    Bytes block = encrypted({1, 2, 3});
    open();
    ASSERT_EQ(session.exchange(commandOf("102A8086", ByteView(block).first(254))).status, sw::ok);
    EXPECT_EQ(sendRest(block).status, sw::incorrectData);
}

TEST_P(RsaDecipher, StartsAnewAfterAChainThatAnotherCommandBroke) {
    Bytes message{9, 8, 7};
    Bytes block = encrypted(message);
    open();
    ASSERT_EQ(sendFirst(block), sw::ok);
    session.selectRoot();
    EXPECT_EQ(sendRest(block).status, sw::incorrectData);
    ASSERT_EQ(sendFirst(block), sw::ok);
    EXPECT_EQ(toHex(sendRest(block).data), toHex(message));
}

TEST_P(RsaDecipher, LimitsTheLengthOfAChain) {
    Bytes block = encrypted({1});
    open();
    ASSERT_EQ(sendFirst(block), sw::ok);
    ASSERT_EQ(session.exchange(commandOf("102A8086", Bytes(255, 0))).status, sw::ok);
    EXPECT_EQ(session.exchange(commandOf("102A8086", Bytes(1, 0))).status, sw::wrongLength);
}

INSTANTIATE_TEST_SUITE_P(Keys, RsaDecipher,
                         testing::Values(RsaCase{3, 0, 256}, RsaCase{3, 1, 384},
                                         RsaCase{6, 1, 256}),
                         [](const auto& info) {
                             return "CardType" + std::to_string(info.param.cardType) + "Key" +
                                    std::to_string(info.param.key);
                         });

TEST(RsaDecipherEnvironment, TakesNoEllipticCurveKeyAndNoOtherAlgorithm) {
    CardSession session(6);
    EXPECT_EQ(setRsa(session, 0x91), sw::referenceNotFound);
    EXPECT_EQ(setEcdh(session, 0x82), sw::referenceNotFound);
    EXPECT_EQ(session.send("002241B806800142840182"), "6A88");
}

// ECDH ---------------------------------------------------------------------------------------

struct EcdhCase {
    int cardType;
    std::uint8_t reference;
    const char* curve;
    std::size_t width;
    bool hasIndicator;
    std::uint16_t status;
};

void PrintTo(const EcdhCase& value, std::ostream* out) {
    *out << "card type " << value.cardType;
}

class Ecdh : public testing::TestWithParam<EcdhCase> {
protected:
    void SetUp() override {
        openSsl.takeCertificate(session.certificate(session.key(0)));
        point = newPeer(GetParam().curve, GetParam().width);
    }

    /// A new key of the other party in peer.pem. @return its point, 04 X Y
    Bytes newPeer(const std::string& curve, std::size_t width) {
        EXPECT_TRUE(openSsl.run("genpkey -algorithm EC -pkeyopt ec_paramgen_curve:" + curve +
                                " -out peer.pem"));
        EXPECT_TRUE(openSsl.run("pkey -in peer.pem -pubout -outform DER -out peer.der"));
        Bytes der = openSsl.read("peer.der");
        return Bytes(der.end() - static_cast<std::ptrdiff_t>(1 + 2 * width), der.end());
    }

    void open() {
        ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
        ASSERT_EQ(setEcdh(session, GetParam().reference), sw::ok);
    }

    Bytes asCardWants(Bytes data) {
        if (GetParam().hasIndicator) data.insert(data.begin(), 0x00);
        return data;
    }

    Reply agree(const Bytes& data) {
        return session.exchange(commandOf("002A8086", data, std::uint8_t{0}));
    }

    CardSession session{GetParam().cardType};
    OpenSsl openSsl;
    Bytes point;
};

TEST_P(Ecdh, GivesTheSecretThatOpenSslDerives) {
    for (int round = 0; round < 3; ++round) {
        point = newPeer(GetParam().curve, GetParam().width);
        ASSERT_TRUE(openSsl.run("pkeyutl -derive -inkey peer.pem -peerkey public.pem -out secret"))
            << openSsl.readText("output");
        open();
        Reply reply = agree(asCardWants(point));
        EXPECT_EQ(reply.status, GetParam().status);
        EXPECT_EQ(reply.data.size(), GetParam().width);
        EXPECT_EQ(toHex(reply.data), toHex(openSsl.read("secret")));
    }
}

TEST_P(Ecdh, RefusesTheOtherFormOfTheData) {
    open();
    Bytes wrong = point;
    if (!GetParam().hasIndicator) wrong.insert(wrong.begin(), 0x00);
    Reply reply = agree(wrong);
    EXPECT_EQ(reply.status, sw::incorrectData);
    EXPECT_TRUE(reply.data.empty());
}

TEST_P(Ecdh, RefusesAPointThatIsNotOnTheCurve) {
    open();
    point.back() ^= 0x01;
    EXPECT_EQ(agree(asCardWants(point)).status, sw::incorrectData);
}

TEST_P(Ecdh, RefusesAPointOfAnotherLength) {
    open();
    point.pop_back();
    EXPECT_EQ(agree(asCardWants(point)).status, sw::incorrectData);
}

TEST_P(Ecdh, IsRefusedWithoutThePin) {
    ASSERT_EQ(setEcdh(session, GetParam().reference), sw::ok);
    EXPECT_EQ(agree(asCardWants(point)).status, sw::securityStatusNotSatisfied);
}

TEST_P(Ecdh, IsRefusedWithoutAnEnvironment) {
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    EXPECT_EQ(agree(asCardWants(point)).status, sw::conditionsNotSatisfied);
}

TEST_P(Ecdh, TakesOnlyTheReferenceOfTheAuthenticationKey) {
    for (int reference = 0; reference <= 0xFF; ++reference) {
        if (reference == GetParam().reference) continue;
        EXPECT_EQ(setEcdh(session, static_cast<std::uint8_t>(reference)), sw::referenceNotFound);
    }
}

INSTANTIATE_TEST_SUITE_P(Cards, Ecdh,
                         testing::Values(EcdhCase{4, 0x01, "P-384", 48, true, sw::endOfFile},
                                         EcdhCase{5, 0x01, "P-256", 32, true, sw::ok},
                                         EcdhCase{6, 0x91, "P-256", 32, false, sw::ok},
                                         EcdhCase{7, 0x01, "P-256", 32, true, sw::ok},
                                         EcdhCase{8, 0x91, "P-521", 66, true, sw::ok}),
                         [](const auto& info) {
                             return "CardType" + std::to_string(info.param.cardType);
                         });

TEST(EcdhReply, WaitsForGetResponseOnGeneration5) {
    CardSession session(5);
    OpenSsl openSsl;
    openSsl.takeCertificate(session.certificate(session.key(0)));
    ASSERT_TRUE(openSsl.run("pkey -pubin -in public.pem -outform DER -out own.der"));
    Bytes der = openSsl.read("own.der");
    Bytes data{0x00};
    append(data, ByteView(der).last(65));
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    ASSERT_EQ(setEcdh(session, 0x01), sw::ok);
    EXPECT_EQ(toHex(session.card.transmit(commandOf("002A8086", data, std::uint8_t{0}))), "6120");
    std::string secret = session.send("00C0000020");
    EXPECT_EQ(secret.size(), 2 * (32 + 2));
    EXPECT_EQ(secret.substr(64), "9000");
    EXPECT_EQ(session.send("00C0000020"), "6985");
}

}  // namespace
}  // namespace virtual_card
