#include <new>
#include <stdexcept>

#include "keys/keys_fixture.h"
#include "support/statuses.h"

namespace KelmoraID {
namespace {

using testing::bytes;
using testing::counting;
using testing::exited;
using testing::hexOf;
using testing::KeysFixture;
using testing::lines;
using testing::LogLines;
using testing::platformCalls;
using testing::reversed;
using testing::TestKey;

constexpr const char* scope = "CardRSADecrypt";
constexpr const char* mse81 = "00 22 41 B8 06 80 01 1A 84 01 81";
constexpr const char* mse82 = "00 22 41 B8 06 80 01 1A 84 01 82";

// A request that is in order but for what a test changes.
struct Request {
    explicit Request(BYTE container = 0, DWORD keySpec = 1, std::size_t length = 256)
        : block(counting(length)) {
        info.dwVersion = 2;
        info.bContainerIndex = container;
        info.dwKeySpec = keySpec;
        info.pbData = block.data();
        info.cbData = static_cast<DWORD>(block.size());
        info.dwPaddingType = 2;
    }
    ByteVector block;
    CARD_RSA_DECRYPT_INFO info{};
};

std::string entered(const CARD_RSA_DECRYPT_INFO& info) {
    return "Entering the function, with parameters, bContainerIndex:'" +
           std::to_string(info.bContainerIndex) + "' cbData:'" + std::to_string(info.cbData) +
           "', dwPaddingType:'" + std::to_string(info.dwPaddingType) + "' dwVersion:'" +
           std::to_string(info.dwVersion) + "'";
}

// Runs a request that fails; the block stays as it came, whatever was sent to the card.
void expectFailure(KeysFixture& keys, Request& request, DWORD status, const std::string& exit) {
    const ByteVector before = request.block;
    const DWORD length = request.info.cbData;
    const std::string entry = entered(request.info);
    EXPECT_EQ(CardRSADecrypt(keys.data, &request.info), status);
    EXPECT_EQ(keys.log.file(), lines(scope, {entry, exit}));
    EXPECT_EQ(request.block, before);
    EXPECT_EQ(request.info.cbData, length);
}

std::string firstBlock(const ByteVector& data) {
    return "10 2A 80 86 FF 81" + hexOf({data.begin(), data.begin() + 254});
}

TEST(CardRSADecrypt, RefusesNullPointersWithTheExitLineAlone) {
    KeysFixture keys(CardType::type3);
    Request request;
    EXPECT_EQ(CardRSADecrypt(nullptr, &request.info), status::invalidParameter);
    EXPECT_EQ(CardRSADecrypt(keys.data, nullptr), status::invalidParameter);
    EXPECT_EQ(keys.log.file(), lines(scope, {exited(status::invalidParameter, " (CMR_413/414)."),
                                             exited(status::invalidParameter, " (CMR_413/414).")}));
}

TEST(CardRSADecrypt, MarksARecordOfVersion0AsVersion1AndRefusesIt) {
    KeysFixture keys(CardType::type3);
    Request request;
    request.info.dwVersion = 0;
    EXPECT_EQ(CardRSADecrypt(keys.data, &request.info), status::revisionMismatch);
    EXPECT_EQ(request.info.dwVersion, 1u);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered(request.info),
                                             exited(status::revisionMismatch, " (CMR_415).")}));
}

TEST(CardRSADecrypt, RefusesVersion1OfAVersion7CardAndVersion3OfAny) {
    KeysFixture keys(CardType::type3);
    for (const DWORD version : {1u, 3u}) {
        Request request(9, 9);
        request.info.dwVersion = version;
        expectFailure(keys, request, status::revisionMismatch,
                      exited(status::revisionMismatch, " (CMR_415)."));
    }
    keys.data->dwVersion = 6;
    Request request(9, 9);
    request.info.dwVersion = 3;
    expectFailure(keys, request, status::revisionMismatch,
                  exited(status::revisionMismatch, " (CMR_415)."));
}

TEST(CardRSADecrypt, TakesVersion1OfACardOfAnotherVersion) {
    KeysFixture keys(CardType::type3);
    keys.data->dwVersion = 6;
    Request request(9);
    request.info.dwVersion = 0;
    EXPECT_EQ(CardRSADecrypt(keys.data, &request.info), status::noKeyContainer);
}

TEST(CardRSADecrypt, RefusesAContainerBeyondTheList) {
    KeysFixture keys(CardType::type3);
    Request request(2, 9);
    expectFailure(keys, request, status::noKeyContainer,
                  exited(status::noKeyContainer, " (CMR_416)."));
}

TEST(CardRSADecrypt, RefusesKeySpecificationsOtherThan1And2) {
    KeysFixture keys(CardType::type3);
    for (const DWORD keySpec : {0u, 3u}) {
        Request request(0, keySpec);
        request.info.pbData = nullptr;
        expectFailure(keys, request, status::invalidParameter,
                      exited(status::invalidParameter, " (CMR_417 case 1)."));
    }
}

TEST(CardRSADecrypt, RefusesAKeySpecificationThatDoesNotFitTheContainer) {
    KeysFixture keys(CardType::type4);
    for (const auto& [container, keySpec] :
         {std::pair(BYTE{0}, 2u), std::pair(BYTE{1}, 1u), std::pair(BYTE{2}, 1u)}) {
        Request request(container, keySpec);
        request.info.pbData = nullptr;
        expectFailure(keys, request, status::invalidParameter,
                      exited(status::invalidParameter, " (CMR_417 case 2)."));
    }
}

TEST(CardRSADecrypt, RefusesContainer2WithoutSecondSigningKeyByTheListOrByThePair) {
    KeysFixture keys(CardType::type3);
    Request request(2, 2);
    expectFailure(keys, request, status::noKeyContainer,
                  exited(status::noKeyContainer, " (CMR_416)."));
    keys.context.containers.push_back(keys.context.containers[1]);
    expectFailure(keys, request, status::invalidParameter,
                  exited(status::invalidParameter, " (CMR_417 case 2)."));
}

TEST(CardRSADecrypt, RefusesNoBlock) {
    KeysFixture keys(CardType::type3);
    Request request;
    request.info.pbData = nullptr;
    request.info.cbData = 0;
    expectFailure(keys, request, status::invalidParameter,
                  exited(status::invalidParameter, " (CMR_418)."));
}

TEST(CardRSADecrypt, ComparesTheBlockWithTheKeyOfContainer0AlsoForAnother) {
    KeysFixture keys(CardType::type3, TestKey::rsa2048, TestKey::rsa1024);
    Request request(1, 2, 255);
    expectFailure(keys, request, status::insufficientBuffer,
                  exited(status::insufficientBuffer, " (not enough data)."));
    EXPECT_EQ(keys.card.statusCalls(), 0);
}

TEST(CardRSADecrypt, RefusesAllPaddingsButPkcs1BeforeAnyCommand) {
    KeysFixture keys(CardType::type3);
    for (const DWORD type : {0u, 1u, 4u, 0xFFFFFFFFu}) {
        Request request;
        request.info.dwPaddingType = type;
        request.info.pPaddingInfo = &request;
        expectFailure(keys, request, 0x57,
                      exited(status::wrongParameter, ". None padding not implemented."));
    }
    Request oaep;
    oaep.info.dwPaddingType = 8;
    oaep.info.pPaddingInfo = &oaep;
    expectFailure(keys, oaep, status::unexpected,
                  exited(status::unexpected, ". OAEP padding not implemented."));
    oaep.info.pPaddingInfo = nullptr;
    expectFailure(keys, oaep, 0x57, exited(status::wrongParameter, " (pPaddingInfo)."));
    EXPECT_EQ(keys.log.output(), LogLines{});
}

TEST(CardRSADecrypt, ShowsTheCardTheBlockReversedAndGivesTheMessageReversed) {
    KeysFixture keys(CardType::type6);
    Request request;
    const ByteVector sent = reversed(request.block);
    keys.card.expect(mse81, "9000")
        .expect(firstBlock(sent), "9000")
        .expect("00 2A 80 86 02 01 00 FF", "A1 A2 A3 9000");
    const std::string entry = entered(request.info);
    EXPECT_EQ(CardRSADecrypt(keys.data, &request.info), 0u);
    EXPECT_EQ(keys.log.file(), lines(scope, {entry, exited(status::success)}));
    EXPECT_EQ(keys.log.output(), LogLines{});
    EXPECT_EQ(request.info.cbData, 3u);
    // Behind the message the end of the old block stays.
    ByteVector expected = counting(256);
    expected[0] = 0xA3;
    expected[1] = 0xA2;
    expected[2] = 0xA1;
    EXPECT_EQ(request.block, expected);
    EXPECT_EQ(keys.card.statusCalls(), 1);
}

TEST(CardRSADecrypt, TakesAMessageAsLongAsTheBlock) {
    KeysFixture keys(CardType::type3);
    Request request;
    const ByteVector sent = reversed(request.block);
    const ByteVector message(256, 0x5A);
    keys.card.expect(mse81, "9000")
        .expect(firstBlock(sent), "9000")
        .expect("00 2A 80 86 02 01 00 FF", hexOf(message) + "9000");
    EXPECT_EQ(CardRSADecrypt(keys.data, &request.info), 0u);
    EXPECT_EQ(request.info.cbData, 256u);
    EXPECT_EQ(request.block, message);
}

TEST(CardRSADecrypt, NamesTheSecondKeyForContainers1And2) {
    for (const BYTE container : {BYTE{1}, BYTE{2}}) {
        KeysFixture keys(CardType::type4);
        Request request(container, 2);
        keys.card.expect(mse82, "9000")
            .expect(firstBlock(reversed(request.block)), "9000")
            .expect("00 2A 80 86 02 01 00 FF", "A1 9000");
        EXPECT_EQ(CardRSADecrypt(keys.data, &request.info), 0u);
    }
}

TEST(CardRSADecrypt, FailsForA128ByteBlockOfA1024BitKey) {
    KeysFixture keys(CardType::type3, TestKey::rsa1024);
    Request request(0, 1, 128);
    keys.card.expect(mse81, "9000");
    expectFailure(keys, request, status::unexpected,
                  exited(status::unexpected, " (empty data vector)"));
    EXPECT_EQ(keys.log.output(),
              (LogLines{{"DEBUG", "Decipher failed. Message length shorther than expected."}}));
}

TEST(CardRSADecrypt, FailsWhenTheCardGivesNothing) {
    KeysFixture keys(CardType::type3);
    Request request;
    keys.card.expect(mse81, "9000")
        .expect(firstBlock(reversed(request.block)), "9000")
        .expect("00 2A 80 86 02 01 00 FF", "9000");
    expectFailure(keys, request, status::unexpected,
                  exited(status::unexpected, " (empty data vector)"));
}

TEST(CardRSADecrypt, TakesTheLengthOfTheBlockAs16Bits) {
    KeysFixture keys(CardType::type3);
    Request wrapped(0, 1, 65536 + 100);
    keys.card.expect(mse81, "9000");
    expectFailure(keys, wrapped, status::unexpected,
                  exited(status::unexpected, " (empty data vector)"));
    Request longer(0, 1, 65536 + 256);
    keys.card.expect(mse81, "9000").expect(firstBlock(reversed(longer.block)), "9000");
    expectFailure(keys, longer, status::unexpected, exited(status::unexpected));
}

TEST(CardRSADecrypt, SendsNoLastBlockThatOneCommandCannotCarry) {
    KeysFixture keys(CardType::type3);
    Request request(0, 1, 510);
    keys.card.expect(mse81, "9000").expect(firstBlock(reversed(request.block)), "9000");
    expectFailure(keys, request, status::unexpected, exited(status::unexpected));
}

TEST(CardRSADecrypt, ReportsAClosedPinAsASecurityViolation) {
    KeysFixture keys(CardType::type3);
    Request request;
    keys.card.expect(mse81, "9000").expect(firstBlock(reversed(request.block)), "6982");
    expectFailure(keys, request, status::securityViolation, exited(status::securityViolation));
}

TEST(CardRSADecrypt, ReportsAnObjectOfAnotherFamilyAsUnexpected) {
    KeysFixture keys(CardType::type3);
    Request request;
    keys.card.expect(mse81, "9000").expect(firstBlock(reversed(request.block)), "6A80");
    expectFailure(keys, request, status::unexpected, exited(status::unexpected));
}

TEST(CardRSADecrypt, ReportsAPointerAsUnexpected) {
    KeysFixture keys(CardType::type3);
    Request request;
    keys.card.expect(mse81, "6A88");
    expectFailure(keys, request, status::unexpected, exited(status::unexpected));
}

TEST(CardRSADecrypt, ReportsAFailedTransmissionAsUnexpected) {
    KeysFixture keys(CardType::type3);
    Request request;
    keys.card.expectFailure(mse81, SCARD_W_REMOVED_CARD);
    const ByteVector before = request.block;
    EXPECT_EQ(CardRSADecrypt(keys.data, &request.info), status::unexpected);
    EXPECT_EQ(request.block, before);
    const LogLines file = keys.log.file();
    ASSERT_EQ(file.size(), 3u);
    EXPECT_EQ(file[1].scope, "Transmit");
    EXPECT_EQ(file[2], (testing::LogLine{scope, exited(status::unexpected)}));
}

TEST(CardRSADecrypt, HandsALogicErrorToTheFirstHandlerAndAPointerToOneToTheSecond) {
    KeysFixture keys(CardType::type3);
    Request request;
    platformCalls().SCardTransmit = [](auto&&...) -> LONG { throw std::out_of_range("planted"); };
    expectFailure(keys, request, status::securityViolation, exited(status::securityViolation));
    std::logic_error planted("planted");
    platformCalls().SCardTransmit = [&](auto&&...) -> LONG { throw &planted; };
    expectFailure(keys, request, status::unexpected, exited(status::unexpected));
    platformCalls().SCardTransmit = [](auto&&...) -> LONG { throw std::bad_alloc(); };
    expectFailure(keys, request, status::unexpected, exited(status::unexpected));
    platformCalls().SCardTransmit = [](auto&&...) -> LONG { throw 7; };
    expectFailure(keys, request, status::unexpected, exited(status::unexpected));
}

TEST(CardRSADecrypt, WorksWithoutACardContext) {
    KeysFixture keys(CardType::type3);
    keys.data->hSCardCtx = 0;
    Request request;
    keys.card.expect(mse81, "6A88");
    expectFailure(keys, request, status::unexpected, exited(status::unexpected));
}

}  // namespace
}  // namespace KelmoraID
