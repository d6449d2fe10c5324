// CardRSADecrypt with real keys: blocks encrypted to the card's certificates.
#include "platform_side.h"
#include "support/statuses.h"

namespace boundary {
namespace {

using KelmoraID::testing::exited;
using KelmoraID::testing::LogLine;
using KelmoraID::testing::LogLines;

const std::string secret = "what only the card can read";

std::string textOf(Bytes message) {
    message = reversed(std::move(message));
    return {message.begin(), message.end()};
}

LogLine line(const std::string& message) {
    return {"CardRSADecrypt", message};
}

class Decryption : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { card.acquireOrFail(); }
    PlatformSide card{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(EveryRsaCard, Decryption, ::testing::ValuesIn(rsaCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(Decryption, GivesBackWhatWasEncryptedToEveryRsaKey) {
    for (BYTE container = 0; container < card.reader.card().generation().keys.size(); ++container) {
        if (card.isEcKey(container)) continue;
        card.openKey(container);
        const Answer answer =
            card.decrypt(container, encryptedTo(card.certificate(container), secret));
        ASSERT_EQ(answer.status, 0u) << int(container);
        EXPECT_EQ(textOf(answer.bytes), secret);
    }
}

class DecryptionWithTheAuthenticationKey : public ::testing::Test {
protected:
    void SetUp() override {
        card.acquireOrFail();
        block = encryptedTo(card.certificate(0), secret);
        buffer = block;
        info.dwVersion = 2;
        info.dwKeySpec = AT_KEYEXCHANGE;
        info.pbData = buffer.data();
        info.cbData = static_cast<DWORD>(buffer.size());
        info.dwPaddingType = CARD_PADDING_PKCS1;
        card.reader.clearExchanges();
    }
    DWORD decrypt() { return card.data.pfnCardRSADecrypt(&card.data, &info); }
    void expectRefusal(DWORD status, const std::string& suffix) {
        log.clear();
        EXPECT_EQ(decrypt(), status);
        EXPECT_EQ(log.file().back(), line(exited(status, suffix)));
        EXPECT_EQ(buffer, block) << "the block stays as it came";
    }
    DriverLog log;
    PlatformSide card{3};
    Bytes block;
    Bytes buffer;
    CARD_RSA_DECRYPT_INFO info{};
};

TEST_F(DecryptionWithTheAuthenticationKey, ShowsTheCardTheBlockReversedInTwoCommands) {
    card.openKey(0);
    card.reader.clearExchanges();
    ASSERT_EQ(decrypt(), 0u);
    const std::string big = toHex(reversed(block));
    const auto lines = journey(card.reader);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "002241B80680011A840181");
    EXPECT_EQ(lines[1], "102A8086FF81" + big.substr(0, 508));
    EXPECT_EQ(lines[2], "002A808602" + big.substr(508) + "FF");
    EXPECT_EQ(info.cbData, secret.size());
}

TEST_F(DecryptionWithTheAuthenticationKey, LeavesTheEndOfTheOldBlockBehindTheMessage) {
    card.openKey(0);
    ASSERT_EQ(decrypt(), 0u);
    EXPECT_EQ(Bytes(buffer.begin() + info.cbData, buffer.end()),
              Bytes(block.begin() + info.cbData, block.end()));
}

TEST_F(DecryptionWithTheAuthenticationKey, WithoutAPinIsASecurityViolation) {
    expectRefusal(status::securityViolation, "");
}

TEST_F(DecryptionWithTheAuthenticationKey, StopsAfterTheFirstBlockWithoutAPin) {
    EXPECT_EQ(decrypt(), status::securityViolation);
    std::size_t blocks = 0;
    for (const auto& exchange : card.reader.exchanges()) blocks += exchange.command[1] == 0x2A;
    EXPECT_EQ(blocks, 1u);
}

TEST_F(DecryptionWithTheAuthenticationKey, ReachesTheOtherHandlerByAThrownPointer) {
    // MSE SET refused: a runtime error thrown as a pointer.
    card.openKey(0);
    card.reader.failTransmit(1, {virtual_card::Fault::Kind::StatusWord, 0x6A88});
    expectRefusal(status::unexpected, "");
}

TEST_F(DecryptionWithTheAuthenticationKey, ReachesTheOtherHandlerByAThrownObject) {
    // PSO refused otherwise than for lack of a PIN: a runtime error thrown as an object.
    card.openKey(0);
    card.reader.failTransmit(2, {virtual_card::Fault::Kind::StatusWord, 0x6A80});
    expectRefusal(status::unexpected, "");
}

TEST_F(DecryptionWithTheAuthenticationKey, ReachesTheOtherHandlerByATransportFailure) {
    card.openKey(0);
    card.reader.failTransmit(3, {virtual_card::Fault::Kind::RemoveCard, 0});
    expectRefusal(status::unexpected, "");
}

TEST_F(DecryptionWithTheAuthenticationKey, WithoutDataFromTheCardIsUnexpected) {
    card.openKey(0);
    card.reader.failTransmit(3, {virtual_card::Fault::Kind::StatusWord, 0x9000});
    expectRefusal(status::unexpected, " (empty data vector)");
}

TEST_F(DecryptionWithTheAuthenticationKey, ChecksThePairOfKeyAndContainer) {
    info.dwKeySpec = 2;
    expectRefusal(status::invalidParameter, " (CMR_417 case 2).");
    info.bContainerIndex = 1;
    info.dwKeySpec = 1;
    expectRefusal(status::invalidParameter, " (CMR_417 case 2).");
    info.dwKeySpec = 3;
    expectRefusal(status::invalidParameter, " (CMR_417 case 1).");
    info.bContainerIndex = 2;
    info.dwKeySpec = 2;
    expectRefusal(status::noKeyContainer, " (CMR_416).");
}

TEST_F(DecryptionWithTheAuthenticationKey, ChecksThePaddingAfterTheSize) {
    info.dwPaddingType = CARD_PADDING_OAEP;
    expectRefusal(0x57, " (pPaddingInfo).");
    int something = 0;
    info.pPaddingInfo = &something;
    expectRefusal(status::unexpected, ". OAEP padding not implemented.");
    info.dwPaddingType = CARD_PADDING_NONE;
    expectRefusal(0x57, ". None padding not implemented.");
    info.dwPaddingType = CARD_PADDING_PSS;
    expectRefusal(0x57, ". None padding not implemented.");
    info.cbData = 255;
    expectRefusal(status::insufficientBuffer, " (not enough data).");
    EXPECT_TRUE(card.reader.exchanges().empty());
}

TEST_F(DecryptionWithTheAuthenticationKey, MarksARecordOfVersionZeroAsVersionOneAndRefusesIt) {
    info.dwVersion = 0;
    expectRefusal(status::revisionMismatch, " (CMR_415).");
    EXPECT_EQ(info.dwVersion, 1u);
}

TEST_F(DecryptionWithTheAuthenticationKey, RefusesNulls) {
    EXPECT_EQ(card.data.pfnCardRSADecrypt(nullptr, &info), status::invalidParameter);
    EXPECT_EQ(card.data.pfnCardRSADecrypt(&card.data, nullptr), status::invalidParameter);
    info.pbData = nullptr;
    expectRefusal(status::invalidParameter, " (CMR_418).");
}

TEST_F(DecryptionWithTheAuthenticationKey, LetsALongerBlockThrough) {
    card.openKey(0);
    buffer.push_back(0);
    block = buffer;
    info.pbData = buffer.data();
    info.cbData = 257;
    // The card has no key of that length: its refusal is what comes back.
    expectRefusal(status::unexpected, "");
}

TEST_F(DecryptionWithTheAuthenticationKey, RefusesABlockThatNoCommandCarries) {
    card.openKey(0);
    buffer.assign(600, 1);
    block = buffer;
    info.pbData = buffer.data();
    info.cbData = 600;
    expectRefusal(status::unexpected, "");
}

TEST(DecryptionOfTheSigningKey, IsMeasuredByTheKeyOfTheFirstContainer) {
    // Container 0 has a P-256 key: 32 bytes are enough for the check, and too few for the script.
    DriverLog log;
    PlatformSide card(6);
    card.acquireOrFail();
    card.openKey(1);
    EXPECT_EQ(card.decrypt(1, Bytes(128, 1)).status, status::unexpected);
    EXPECT_EQ(log.file().back(), line(exited(status::unexpected, " (empty data vector)")));
    EXPECT_EQ(log.output(),
              (LogLines{{"DEBUG", "Decipher failed. Message length shorther than expected."}}));
    EXPECT_EQ(card.decrypt(1, Bytes(31, 1)).status, status::insufficientBuffer);
}

}  // namespace
}  // namespace boundary
