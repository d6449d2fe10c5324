// Signatures with real keys, verified against the card's own certificates.
#include <optional>

#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

using KelmoraID::testing::exited;
using KelmoraID::testing::LogLine;
using KelmoraID::testing::LogLines;

const std::string message = "a challenge of the platform's";

struct HashRow {
    const char* botanName;
    LPCWSTR paddingName;
    ALG_ID algorithm;
};
const HashRow hashes[] = {
    {"SHA-1", WIDE_TEXT("SHA1"), CALG_SHA1},
    {"SHA-256", WIDE_TEXT("SHA256"), CALG_SHA_256},
    {"SHA-384", WIDE_TEXT("SHA384"), CALG_SHA_384},
    {"SHA-512", WIDE_TEXT("SHA512"), CALG_SHA_512},
};

class Signature : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { card.acquireOrFail(); }

    BYTE containers() { return static_cast<BYTE>(card.reader.card().generation().keys.size()); }

    CARD_SIGNING_INFO request(BYTE container, Bytes& data) {
        CARD_SIGNING_INFO info = card.signingInfo(container, data);
        info.dwVersion = 2;
        info.aiHashAlg = 0;
        return info;
    }

    // Signs a hash under padding information; the signature in the order of the card.
    Answer signPadded(BYTE container, const HashRow& hash, DWORD padding,
                      std::optional<ULONG> salt = {}) {
        Bytes data = hashOf(hash.botanName, message);
        BCRYPT_PSS_PADDING_INFO name{hash.paddingName,
                                     salt.value_or(static_cast<ULONG>(data.size()))};
        CARD_SIGNING_INFO info = request(container, data);
        info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
        info.dwPaddingType = padding;
        info.pPaddingInfo = &name;
        Answer answer = card.sign(info);
        answer.bytes = reversed(answer.bytes);
        return answer;
    }

    Answer signPlain(BYTE container, const HashRow& hash, ALG_ID algorithm) {
        Bytes data = hashOf(hash.botanName, message);
        CARD_SIGNING_INFO info = request(container, data);
        info.aiHashAlg = algorithm;
        return card.sign(info);
    }

    PlatformSide card{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(EveryCard, Signature, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(Signature, OfEveryKeyHashAndSchemeIsThatOfTheCertificate) {
    for (BYTE container = 0; container < containers(); ++container) {
        const Bytes certificate = card.certificate(container);
        for (const HashRow& hash : hashes) {
            const std::string suffix = "(" + std::string(hash.botanName) + ")";
            if (card.isEcKey(container)) {
                card.openKey(container);
                const Answer ecdsa = signPlain(container, hash, 0);
                ASSERT_EQ(ecdsa.status, 0u) << int(container) << suffix;
                EXPECT_TRUE(isSignature(certificate, "EMSA1" + suffix, message, ecdsa.bytes));
                continue;
            }
            card.openKey(container);
            const Answer byName = signPadded(container, hash, CARD_PADDING_PKCS1);
            ASSERT_EQ(byName.status, 0u) << int(container) << suffix;
            EXPECT_TRUE(isSignature(certificate, "EMSA3" + suffix, message, byName.bytes));
            card.openKey(container);
            const Answer pss = signPadded(container, hash, CARD_PADDING_PSS);
            ASSERT_EQ(pss.status, 0u) << int(container) << suffix;
            EXPECT_TRUE(isSignature(certificate, "EMSA4" + suffix, message, pss.bytes));
            card.openKey(container);
            const Answer byId = signPlain(container, hash, hash.algorithm);
            ASSERT_EQ(byId.status, 0u) << int(container) << suffix;
            EXPECT_TRUE(isSignature(certificate, "EMSA3" + suffix, message, reversed(byId.bytes)));
        }
    }
}

TEST_P(Signature, RawAndUnderOaepIsRefused) {
    for (BYTE container = 0; container < containers(); ++container) {
        card.openKey(container);
        card.reader.clearExchanges();
        for (const DWORD padding : {CARD_PADDING_NONE, CARD_PADDING_OAEP}) {
            EXPECT_EQ(signPadded(container, hashes[1], padding).status, status::unsupportedFeature);
        }
        EXPECT_TRUE(card.reader.exchanges().empty());
    }
}

TEST_P(Signature, WithoutAVerifiedPinIsASecurityViolation) {
    for (BYTE container = 0; container < containers(); ++container) {
        const ALG_ID algorithm = card.isEcKey(container) ? 0 : CALG_SHA_256;
        const Answer answer = signPlain(container, hashes[1], algorithm);
        EXPECT_EQ(answer.status, status::securityViolation) << int(container);
        EXPECT_TRUE(answer.bytes.empty()) << int(container);
    }
}

TEST_P(Signature, SizeQueryTellsBytesForRsaAndBitsForEcAndClearsTheInput) {
    for (BYTE container = 0; container < containers(); ++container) {
        Bytes data(32, 1);
        CARD_SIGNING_INFO info = request(container, data);
        info.dwSigningFlags = CARD_BUFFER_SIZE_ONLY;
        card.reader.clearExchanges();
        EXPECT_EQ(card.data.pfnCardSignData(&card.data, &info), 0u);
        EXPECT_EQ(info.pbData, nullptr);
        EXPECT_EQ(info.pbSignedData, nullptr);
        switch (card.key(container).kind) {
            case virtual_card::KeyKind::Rsa2048:
                EXPECT_EQ(info.cbSignedData, 256u);
                break;
            case virtual_card::KeyKind::Rsa3072:
                EXPECT_EQ(info.cbSignedData, 384u);
                break;
            case virtual_card::KeyKind::P256:
                EXPECT_EQ(info.cbSignedData, 256u);
                break;
            case virtual_card::KeyKind::P384:
                EXPECT_EQ(info.cbSignedData, 384u);
                break;
            case virtual_card::KeyKind::P521:
                EXPECT_EQ(info.cbSignedData, 528u);
                break;
        }
        EXPECT_TRUE(card.reader.exchanges().empty());
    }
}

TEST_P(Signature, RefusalsComeInTheirOrder) {
    Bytes data(32, 1);
    const BYTE beyond = containers();
    CARD_SIGNING_INFO info = request(0, data);
    info.bContainerIndex = beyond;
    EXPECT_EQ(card.sign(info).status, status::noKeyContainer);
    info.dwSigningFlags = 0x80000000;
    EXPECT_EQ(card.sign(info).status, status::invalidParameter);
    info.dwVersion = 3;
    EXPECT_EQ(card.sign(info).status, status::revisionMismatch);
    EXPECT_EQ(card.data.pfnCardSignData(&card.data, nullptr), status::invalidParameter);
    const SCARDCONTEXT context = card.data.hSCardCtx;
    card.data.hSCardCtx = 0;
    EXPECT_EQ(card.sign(info).status, status::invalidParameter);
    card.data.hSCardCtx = context;
}

TEST_P(Signature, KeySpecificationHasToFitTheKey) {
    for (BYTE container = 0; container < containers(); ++container) {
        Bytes data(32, 1);
        CARD_SIGNING_INFO info = request(container, data);
        info.aiHashAlg = CALG_SHA_256;
        info.dwKeySpec = card.isEcKey(container) ? 2 : 3;
        EXPECT_EQ(card.sign(info).status, status::invalidParameter);
    }
}

class SignatureOfEcKeys : public Signature {};
INSTANTIATE_TEST_SUITE_P(EveryEcCard, SignatureOfEcKeys, ::testing::ValuesIn(ecCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(SignatureOfEcKeys, GoesByTheLengthOfTheHashAndRefusesAnUnknownIdentifier) {
    for (BYTE container = 0; container < containers(); ++container) {
        if (!card.isEcKey(container)) continue;
        // By an identifier that names another hash, and for a hash that no identifier names.
        for (const HashRow& hash :
             {hashes[0], HashRow{"SHA-224", nullptr, 0}, hashes[1], hashes[2], hashes[3]}) {
            card.openKey(container);
            const Answer answer =
                signPlain(container, hash, hash.algorithm == CALG_SHA1 ? CALG_SHA_256 : CALG_SHA1);
            ASSERT_EQ(answer.status, 0u) << hash.botanName;
            EXPECT_TRUE(isSignature(card.certificate(container),
                                    "EMSA1(" + std::string(hash.botanName) + ")", message,
                                    answer.bytes))
                << hash.botanName;
        }
        EXPECT_EQ(signPlain(container, hashes[1], 0x8003).status, status::unsupportedFeature);
        for (const std::size_t size : {30u, 33u}) {
            Bytes data(size, 1);
            EXPECT_EQ(card.sign(request(container, data)).status, status::invalidParameter);
        }
    }
}

class SignatureOfRsaKeys : public Signature {};
INSTANTIATE_TEST_SUITE_P(EveryRsaCard, SignatureOfRsaKeys, ::testing::ValuesIn(rsaCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(SignatureOfRsaKeys, UnderPssHaveTheSaltOfTheCardWhateverLengthIsAskedFor) {
    for (BYTE container = 0; container < containers(); ++container) {
        if (card.isEcKey(container)) continue;
        for (const ULONG salt : {0u, 5u, 32u, 0xFFFFFFFFu}) {
            card.openKey(container);
            const Answer pss = signPadded(container, hashes[1], CARD_PADDING_PSS, salt);
            ASSERT_EQ(pss.status, 0u) << salt;
            EXPECT_TRUE(isSignature(card.certificate(container), "EMSA4(SHA-256,MGF1,32)", message,
                                    pss.bytes))
                << salt;
        }
    }
}

TEST_P(SignatureOfRsaKeys, WithoutAnyHashAlgorithmIsABadArgument) {
    for (BYTE container = 0; container < containers(); ++container) {
        if (card.isEcKey(container)) continue;
        Bytes data(32, 1);
        CARD_SIGNING_INFO info = request(container, data);
        card.reader.clearExchanges();
        EXPECT_EQ(card.sign(info).status, status::invalidParameter);
        info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
        info.dwPaddingType = CARD_PADDING_PKCS1;
        EXPECT_EQ(card.sign(info).status, status::invalidParameter) << "no padding information";
        EXPECT_TRUE(card.reader.exchanges().empty());
    }
}

TEST_P(Signature, AnAllocationThatFailsIsStatusEight) {
    card.openKey(0);
    Bytes data = hashOf("SHA-256", message);
    CARD_SIGNING_INFO info = request(0, data);
    info.aiHashAlg = card.isEcKey(0) ? 0 : CALG_SHA_256;
    PlatformSide::failAllocation(1);
    EXPECT_EQ(card.sign(info).status, status::notEnoughMemory);
}

TEST(SignatureOfRsa, TakesTheLastTwentyBytesOfTheSslForm) {
    PlatformSide card(3);
    card.acquireOrFail();
    card.openKey(0);
    Bytes data(16, 0xAA);
    virtual_card::append(data, hashOf("SHA-1", message));
    BCRYPT_PKCS1_PADDING_INFO name{nullptr};
    CARD_SIGNING_INFO info{};
    info.dwVersion = 2;
    info.dwKeySpec = AT_KEYEXCHANGE;
    info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
    info.dwPaddingType = CARD_PADDING_PKCS1;
    info.pPaddingInfo = &name;
    info.pbData = data.data();
    info.cbData = 36;
    const Answer answer = card.sign(info);
    ASSERT_EQ(answer.status, 0u);
    EXPECT_TRUE(isSignature(card.certificate(0), "EMSA3(SHA-1)", message, reversed(answer.bytes)));
}

TEST(SignatureOfRsa, GoesByTheAlgorithmIdAlsoWherePssWasAskedFor) {
    PlatformSide card(3);
    card.acquireOrFail();
    card.openKey(0);
    Bytes data = hashOf("SHA-384", message);
    BCRYPT_PSS_PADDING_INFO name{WIDE_TEXT("SHA256"), 32};
    CARD_SIGNING_INFO info{};
    info.dwVersion = 2;
    info.dwKeySpec = AT_KEYEXCHANGE;
    info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
    info.dwPaddingType = CARD_PADDING_PSS;
    info.pPaddingInfo = &name;
    info.aiHashAlg = CALG_SHA_384;
    info.pbData = data.data();
    info.cbData = static_cast<DWORD>(data.size());
    DriverLog log;
    const Answer answer = card.sign(info);
    ASSERT_EQ(answer.status, 0u);
    EXPECT_TRUE(
        isSignature(card.certificate(0), "EMSA3(SHA-384)", message, reversed(answer.bytes)));
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "CardSignData: pInfo->aiHashAlg (if)"},
                        {"WARNING",
                         "Entered both 'CARD_PADDING_INFO_PRESENT' and 'aiHashAlg' branch?"}}));
}

TEST(SignatureOfRsa, RefusedByAnUnknownStatusWordReportsSuccessWithoutASignature) {
    PlatformSide card(3);
    card.acquireOrFail();
    card.openKey(0);
    Bytes data = hashOf("SHA-256", message);
    CARD_SIGNING_INFO info{};
    info.dwVersion = 1;
    info.dwKeySpec = AT_KEYEXCHANGE;
    info.aiHashAlg = CALG_SHA_256;
    info.pbData = data.data();
    info.cbData = static_cast<DWORD>(data.size());
    info.cbSignedData = 77;
    card.reader.failTransmit(1, {virtual_card::Fault::Kind::StatusWord, 0x6A82});
    DriverLog log;
    EXPECT_EQ(card.data.pfnCardSignData(&card.data, &info), 0u);
    EXPECT_EQ(info.pbSignedData, nullptr);
    EXPECT_EQ(info.cbSignedData, 77u);
    EXPECT_EQ(log.file().back(), (LogLine{"CardSignData", exited(status::success, " from APDU")}));
}

TEST(SignatureOfRsa, ThatIsLongerThanOneReplyIsGatheredWhole) {
    PlatformSide card(3);
    card.acquireOrFail();
    card.openKey(1);
    Bytes data = hashOf("SHA-256", message);
    CARD_SIGNING_INFO info{};
    info.dwVersion = 1;
    info.bContainerIndex = 1;
    info.dwKeySpec = AT_SIGNATURE;
    info.aiHashAlg = CALG_SHA_256;
    info.pbData = data.data();
    info.cbData = static_cast<DWORD>(data.size());
    card.reader.clearExchanges();
    const Answer answer = card.sign(info);
    ASSERT_EQ(answer.status, 0u);
    EXPECT_EQ(answer.bytes.size(), 384u);
    EXPECT_EQ(card.reader.exchanges().back().command.at(1), 0xC0) << "by GET RESPONSE";
}

TEST(SignatureWithASecondKey, GivesTheHashToTheCardTwice) {
    PlatformSide card(5);
    card.acquireOrFail();
    card.openKey(0);
    Bytes data = hashOf("SHA-256", message);
    CARD_SIGNING_INFO info{};
    info.dwVersion = 1;
    info.dwKeySpec = AT_ECDSA_P256;
    info.pbData = data.data();
    info.cbData = 32;
    card.reader.clearExchanges();
    ASSERT_EQ(card.sign(info).status, 0u);
    const std::string hash = toHex(data);
    const std::vector<std::string> lines = journey(card.reader);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "002241B60684010180014400");
    EXPECT_EQ(lines[1], "002A90A0229020" + hash + "00");
    EXPECT_EQ(lines[2], "002A9E9A20" + hash + "40");
}

}  // namespace
}  // namespace boundary
