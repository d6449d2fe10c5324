// Signatures of the card's keys, verified by OpenSSL with the certificate read from the card.
#include "card_session.h"
#include "openssl.h"
#include "virtual_card/tlv.h"

namespace virtual_card {
namespace {

struct HashCase {
    std::uint8_t nibble;
    std::size_t size;
    const char* openSslName;
};

constexpr HashCase hashes[] = {
    {0x10, 20, "sha1"},   {0x30, 28, "sha224"}, {0x40, 32, "sha256"},
    {0x50, 48, "sha384"}, {0x60, 64, "sha512"},
};

Bytes hashOf(std::size_t size) {
    Bytes hash(size);
    for (std::size_t index = 0; index < size; ++index) {
        hash[index] = static_cast<std::uint8_t>(0xF1 - 3 * index);
    }
    return hash;
}

/// r and s in a row as the SEQUENCE of two INTEGERs that OpenSSL takes.
Bytes derSignature(ByteView raw) {
    Bytes parts;
    for (ByteView half : {raw.first(raw.size() / 2), raw.last(raw.size() / 2)}) {
        while (half.size() > 1 && half[0] == 0) half = half.subspan(1);
        Bytes number(half.begin(), half.end());
        if (number.front() >= 0x80) number.insert(number.begin(), 0x00);
        append(parts, tlv(0x02, number));
    }
    return tlv(0x30, parts);
}

std::size_t signatureSize(KeyKind kind) {
    switch (kind) {
        case KeyKind::Rsa2048:
            return 256;
        case KeyKind::Rsa3072:
            return 384;
        case KeyKind::P256:
            return 64;
        case KeyKind::P384:
            return 96;
        case KeyKind::P521:
            return 132;
    }
    return 0;
}

class EverySignature : public testing::TestWithParam<int> {
protected:
    /// Opens the key, and chooses it where the card lets itself be told.
    void prepare(const KeyRow& key, std::uint8_t algorithm) {
        ASSERT_EQ(session.verify(key.pin), sw::ok);
        std::uint16_t expected = session.card.generation().knowsSignatureEnvironment
                                     ? sw::ok
                                     : sw::instructionNotSupported;
        ASSERT_EQ(session.setSignature(key.signReference, algorithm), expected);
    }

    bool opensslAccepts(const Bytes& hash, const Bytes& signature, const std::string& options) {
        openSsl.write("hash", hash);
        openSsl.write("signature", signature);
        return openSsl.run("pkeyutl -verify -pubin -inkey public.pem -in hash -sigfile signature " +
                           options);
    }

    CardSession session{GetParam()};
    OpenSsl openSsl;
};

TEST_P(EverySignature, IsAcceptedByOpenSslForEveryKeyHashAndScheme) {
    for (const KeyRow& key : session.card.generation().keys) {
        openSsl.takeCertificate(session.certificate(key));
        for (const HashCase& hash : hashes) {
            SCOPED_TRACE(std::string(key.label) + " " + hash.openSslName);
            Bytes value = hashOf(hash.size);
            Bytes other = value;
            other[0] ^= 0x01;
            const std::vector<int> schemes =
                isRsa(key.kind) ? std::vector<int>{0x02, 0x05} : std::vector<int>{0x04};
            for (int scheme : schemes) {
                prepare(key, static_cast<std::uint8_t>(hash.nibble | scheme));
                Reply reply = session.sign(value);
                ASSERT_EQ(reply.status, sw::ok);
                ASSERT_EQ(reply.data.size(), signatureSize(key.kind));
                std::string options = std::string("-pkeyopt digest:") + hash.openSslName;
                if (scheme == 0x02) options += " -pkeyopt rsa_padding_mode:pkcs1";
                if (scheme == 0x05) {
                    options += " -pkeyopt rsa_padding_mode:pss -pkeyopt rsa_pss_saltlen:digest";
                }
                Bytes signature = scheme == 0x04 ? derSignature(reply.data) : reply.data;
                EXPECT_TRUE(opensslAccepts(value, signature, options))
                    << openSsl.readText("output");
                EXPECT_FALSE(opensslAccepts(other, signature, options));
            }
        }
    }
}

TEST_P(EverySignature, IsRefusedWithoutThePinOfItsKey) {
    for (const KeyRow& key : session.card.generation().keys) {
        SCOPED_TRACE(key.label);
        session.card.reset();
        PinRole other =
            key.pin == PinRole::Authentication ? PinRole::Signature : PinRole::Authentication;
        ASSERT_EQ(session.verify(other), sw::ok);
        session.selectDirectoryOf(key.pin);
        session.setSignature(key.signReference, isRsa(key.kind) ? 0x42 : 0x44);
        EXPECT_EQ(session.sign(hashOf(32)).status, sw::securityStatusNotSatisfied);
    }
}

TEST_P(EverySignature, IsRefusedForAHashOfNoKnownLength) {
    const KeyRow& key = session.key(0);
    prepare(key, isRsa(key.kind) ? 0x42 : 0x44);
    EXPECT_EQ(session.sign(hashOf(33)).status, sw::incorrectData);
}

INSTANTIATE_TEST_SUITE_P(CardType, EverySignature, testing::ValuesIn(allCardTypes()));

class ChosenSignature : public testing::TestWithParam<int> {
protected:
    CardSession session{GetParam()};
    std::uint8_t goodAlgorithm() { return isRsa(session.key(0).kind) ? 0x42 : 0x44; }
};

TEST_P(ChosenSignature, NeedsAnEnvironment) {
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    EXPECT_EQ(session.sign(hashOf(32)).status, sw::conditionsNotSatisfied);
}

TEST_P(ChosenSignature, IsRefusedAfterAWrongKeyReferenceBrokeTheEnvironment) {
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    ASSERT_EQ(session.setSignature(session.key(0).signReference, goodAlgorithm()), sw::ok);
    EXPECT_EQ(session.setSignature(0x55, goodAlgorithm()), sw::referenceNotFound);
    EXPECT_EQ(session.sign(hashOf(32)).status, sw::conditionsNotSatisfied);
}

TEST_P(ChosenSignature, IsRefusedAfterAWrongAlgorithmBrokeTheEnvironment) {
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    const std::uint8_t otherScheme = isRsa(session.key(0).kind) ? 0x44 : 0x42;
    for (std::uint8_t wrong : Bytes{0x00, 0x20, 0x43, 0xF2, otherScheme}) {
        ASSERT_EQ(session.setSignature(session.key(0).signReference, goodAlgorithm()), sw::ok);
        EXPECT_EQ(session.setSignature(session.key(0).signReference, wrong), sw::referenceNotFound);
        EXPECT_EQ(session.sign(hashOf(32)).status, sw::conditionsNotSatisfied);
    }
}

TEST_P(ChosenSignature, IsRefusedAfterAMalformedTemplate) {
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    ASSERT_EQ(session.setSignature(session.key(0).signReference, goodAlgorithm()), sw::ok);
    EXPECT_EQ(session.send("002241B6028001"), "6A80");
    EXPECT_EQ(session.sign(hashOf(32)).status, sw::conditionsNotSatisfied);
}

TEST_P(ChosenSignature, TakesTheReferencesInEitherOrder) {
    Bytes swapped{0x80, 0x01, goodAlgorithm(), 0x84, 0x01, session.key(0).signReference};
    EXPECT_EQ(session.exchange(commandOf("002241B6", swapped)).status, sw::ok);
}

TEST_P(ChosenSignature, IsRefusedForAHashOfAnotherLengthThanItsAlgorithms) {
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    ASSERT_EQ(session.setSignature(session.key(0).signReference, goodAlgorithm()), sw::ok);
    EXPECT_EQ(session.sign(hashOf(20)).status, sw::incorrectData);
}

TEST_P(ChosenSignature, NeedsAnEnvironmentAgainAfterAReset) {
    ASSERT_EQ(session.setSignature(session.key(0).signReference, goodAlgorithm()), sw::ok);
    session.card.reset();
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    EXPECT_EQ(session.sign(hashOf(32)).status, sw::conditionsNotSatisfied);
}

INSTANTIATE_TEST_SUITE_P(CardType, ChosenSignature, testing::Values(3, 4, 5, 6, 7));

class HashedSignature : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
        ASSERT_EQ(session.setSignature(0x01, 0x44), sw::ok);
    }
    std::uint16_t psoHash(const Bytes& hash) {
        return session.exchange(commandOf("002A90A0", tlv(0x90, hash), std::uint8_t{0})).status;
    }
    std::uint16_t compute(const Bytes& hash) {
        return session.exchange(commandOf("002A9E9A", hash, std::uint8_t{0})).status;
    }
    CardSession session{GetParam()};
};

TEST_P(HashedSignature, IsRefusedWithoutPsoHash) {
    EXPECT_EQ(compute(hashOf(32)), sw::conditionsNotSatisfied);
}

TEST_P(HashedSignature, IsRefusedForAnotherHashThanPsoHashGave) {
    Bytes other = hashOf(32);
    other[31] ^= 0x80;
    ASSERT_EQ(psoHash(hashOf(32)), sw::ok);
    EXPECT_EQ(compute(other), sw::incorrectData);
    EXPECT_EQ(compute(hashOf(32)), sw::ok);
}

TEST_P(HashedSignature, NeedsPsoHashForEachSignature) {
    ASSERT_EQ(psoHash(hashOf(32)), sw::ok);
    EXPECT_EQ(compute(hashOf(32)), sw::ok);
    EXPECT_EQ(compute(hashOf(32)), sw::conditionsNotSatisfied);
}

TEST_P(HashedSignature, PsoHashNeedsAnEnvironmentAndItsTemplate) {
    EXPECT_EQ(psoHash(hashOf(20)), sw::incorrectData);
    EXPECT_EQ(session.exchange(commandOf("002A90A0", hashOf(32))).status, sw::incorrectData);
    session.card.reset();
    EXPECT_EQ(psoHash(hashOf(32)), sw::conditionsNotSatisfied);
}

INSTANTIATE_TEST_SUITE_P(CardType, HashedSignature, testing::Values(4, 5, 7));

TEST(SignatureOfGeneration3, SendsAn3072BitSignatureInTwoReplies) {
    CardSession session(3);
    ASSERT_EQ(session.verify(PinRole::Signature), sw::ok);
    ASSERT_EQ(session.setSignature(0x82, 0x42), sw::ok);
    Bytes first = session.card.transmit(commandOf("002A9E9A", hashOf(32), std::uint8_t{0}));
    ASSERT_EQ(first.size(), 258U);
    EXPECT_EQ(toHex(ByteView(first).last(2)), "6180");
    std::string rest = session.send("00C0000080");
    EXPECT_EQ(rest.size(), 2 * (128 + 2));
    EXPECT_EQ(rest.substr(2 * 128), "9000");
}

TEST(SignatureOfGeneration3, DoesNotKnowPsoHash) {
    CardSession session(3);
    ASSERT_EQ(session.setSignature(0x81, 0x42), sw::ok);
    EXPECT_EQ(session.exchange(commandOf("002A90A0", tlv(0x90, hashOf(32)))).status,
              sw::incorrectP1P2);
}

TEST(SignatureOfGeneration6, Keeps256BytesForGetResponseAndTellsThemAs00) {
    CardSession session(6);
    ASSERT_EQ(session.verify(PinRole::Signature), sw::ok);
    ASSERT_EQ(session.setSignature(0x82, 0x45), sw::ok);
    EXPECT_EQ(toHex(session.card.transmit(commandOf("002A9E9A", hashOf(32), std::uint8_t{0}))),
              "6100");
    std::string reply = session.send("00C0000000");
    EXPECT_EQ(reply.size(), 2 * (256 + 2));
    EXPECT_EQ(reply.substr(2 * 256), "9000");
}

TEST(SignatureOfGeneration4, FitsTheLeOf96Bytes) {
    CardSession session(4);
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    ASSERT_EQ(session.setSignature(0x01, 0x54), sw::ok);
    ASSERT_EQ(session.exchange(commandOf("002A90A0", tlv(0x90, hashOf(48)))).status, sw::ok);
    Bytes reply = session.card.transmit(commandOf("002A9E9A", hashOf(48), std::uint8_t{0x60}));
    ASSERT_EQ(reply.size(), 98U);
    EXPECT_EQ(toHex(ByteView(reply).last(2)), "9000");
}

TEST(SignatureOfGeneration7, CostsTheSignaturePinAndNotTheAuthenticationPin) {
    CardSession session(7);
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    ASSERT_EQ(session.verify(PinRole::Signature), sw::ok);
    ASSERT_EQ(session.setSignature(0x01, 0x44), sw::ok);
    EXPECT_EQ(session.sign(hashOf(32)).status, sw::ok);
    EXPECT_EQ(session.sign(hashOf(32)).status, sw::ok);
    ASSERT_EQ(session.setSignature(0x02, 0x44), sw::ok);
    EXPECT_EQ(session.sign(hashOf(32)).status, sw::ok);
    EXPECT_EQ(session.sign(hashOf(32)).status, sw::securityStatusNotSatisfied);
    EXPECT_EQ(session.queryPin(PinRole::Signature), sw::triesLeft(5));
    EXPECT_EQ(session.queryPin(PinRole::Authentication), sw::ok);
}

TEST(SignatureOfGeneration8, UsesTheKeyOfTheCurrentDirectory) {
    CardSession session(8);
    ASSERT_EQ(session.verify(PinRole::Authentication), sw::ok);
    ASSERT_EQ(session.verify(PinRole::Signature), sw::ok);
    EXPECT_EQ(session.sign(hashOf(32)).data.size(), 64U);
    session.selectRoot();
    EXPECT_EQ(session.sign(hashOf(32)).data.size(), 132U);
}

}  // namespace
}  // namespace virtual_card
