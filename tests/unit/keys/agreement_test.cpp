#include <cstdio>
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
using testing::TestKey;

constexpr const char* scope = "CardConstructDHAgreement";
constexpr const char* destroyScope = "CardDestroyDHAgreement";
constexpr const char* entered = "Entering the function";
constexpr const char* mse01 = "00 22 41 B8 09 80 04 FF 30 04 00 84 01 01";
constexpr const char* mse91 = "00 22 41 B8 09 80 04 FF 30 04 00 84 01 91";
constexpr const char* reservedIsNull = "with parameters, pbReserverd is NULL.";

using Agreements = std::map<std::uint8_t, ByteVector>;

// A request that is in order but for what a test changes: a key blob with coordinates 08, 09, 0A
// ...
struct Request {
    explicit Request(std::size_t coordinates = 64) : blob(counting(8 + coordinates)) {
        info.dwVersion = 2;
        info.pbPublicKey = blob.data();
        info.dwPublicKey = static_cast<DWORD>(blob.size());
        info.bSecretAgreementIndex = 0xEE;
    }
    ByteVector blob;
    CARD_DH_AGREEMENT_INFO info{};
};

std::string parameters(const CARD_DH_AGREEMENT_INFO& info) {
    char text[300];
    std::snprintf(text, sizeof(text),
                  "Entering the function, with parameters, bContainerIndex:'0x%08x', "
                  "cbReserved:'0x%08x', dwFlags:'0x%08x', dwPublicKey:'0x%08x', "
                  "dwVersion:'0x%08x'",
                  info.bContainerIndex, info.cbReserved, info.dwFlags, info.dwPublicKey,
                  info.dwVersion);
    return text;
}

std::string publicKeyLine(const ByteVector& blob) {
    std::string text = "with parameters, pbPublicKey:'";
    for (const BYTE byte : blob) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), "%x ", byte);
        text += digits;
    }
    return text + "', ";
}

std::string decipher(const ByteVector& data) {
    return "00 2A 80 86" + hexOf({static_cast<BYTE>(data.size())}) + hexOf(data) + "00";
}

ByteVector point(const char* prefix, std::size_t coordinates = 64) {
    ByteVector result = bytes(prefix);
    const ByteVector blob = counting(8 + coordinates);
    result.insert(result.end(), blob.begin() + 8, blob.end());
    return result;
}

// A whole agreement on card type 6 that gives this secret.
void agree(KeysFixture& keys, BYTE expectedIndex, const std::string& secret) {
    Request request;
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000").expect(decipher(point("04")), secret + "9000");
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), 0u);
    EXPECT_EQ(request.info.bSecretAgreementIndex, expectedIndex);
    EXPECT_EQ(keys.log.file().back().message,
              exited(status::success, ". Added DH secret agreement to index '" +
                                          std::to_string(expectedIndex) + "'."));
}

void destroy(KeysFixture& keys, BYTE index) {
    keys.expectPinQuery();
    EXPECT_EQ(CardDestroyDHAgreement(keys.data, index, 0), 0u);
}

// A request that is refused with the entry line alone, before anything is sent.
void expectSilentRefusal(KeysFixture& keys, Request& request, DWORD status) {
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), status);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered}));
    EXPECT_EQ(keys.log.output(), LogLines{});
    EXPECT_EQ(keys.card.statusCalls(), 0);
    EXPECT_EQ(keys.context.secretAgreements, Agreements{});
    EXPECT_EQ(request.info.bSecretAgreementIndex, 0xEE);
}

// A request that fails in the script, with the PIN open.
void expectFailure(KeysFixture& keys, Request& request, DWORD status, const std::string& exit) {
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), status);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered, parameters(request.info),
                                             publicKeyLine(request.blob), reservedIsNull, exit}));
    EXPECT_EQ(keys.context.secretAgreements, Agreements{});
    EXPECT_EQ(request.info.bSecretAgreementIndex, 0xEE);
}

TEST(CardConstructDHAgreement, RefusesNullPointersWithTheEntryLineAlone) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    EXPECT_EQ(CardConstructDHAgreement(nullptr, &request.info), status::invalidParameter);
    EXPECT_EQ(CardConstructDHAgreement(keys.data, nullptr), status::invalidParameter);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered, entered}));
}

TEST(CardConstructDHAgreement, RefusesVersionsOtherThan2First) {
    for (const DWORD version : {0u, 1u, 3u}) {
        KeysFixture keys(CardType::type6, TestKey::p256);
        Request request;
        request.info.dwVersion = version;
        request.info.pbPublicKey = nullptr;
        request.info.bContainerIndex = 3;
        expectSilentRefusal(keys, request, status::revisionMismatch);
    }
}

TEST(CardConstructDHAgreement, RefusesNoPublicKeyBeforeTheContainer) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    request.info.pbPublicKey = nullptr;
    request.info.bContainerIndex = 3;
    expectSilentRefusal(keys, request, status::invalidParameter);
}

TEST(CardConstructDHAgreement, TellsAKeyOfTheWrongKindFromNoKey) {
    struct Row {
        CardType cardType;
        BYTE container;
        DWORD status;
    };
    for (const Row& row : {Row{CardType::type6, 1, status::invalidParameter},
                           Row{CardType::type5, 1, status::invalidParameter},
                           Row{CardType::type5, 2, status::invalidParameter},
                           Row{CardType::type6, 2, status::noKeyContainer},
                           Row{CardType::type6, 3, status::noKeyContainer},
                           Row{CardType::type5, 3, status::noKeyContainer},
                           Row{CardType::type6, 255, status::noKeyContainer}}) {
        KeysFixture keys(row.cardType, TestKey::p256);
        Request request;
        request.info.bContainerIndex = row.container;
        request.info.dwFlags = 1;
        expectSilentRefusal(keys, request, row.status);
    }
}

TEST(CardConstructDHAgreement, RefusesFlags) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    request.info.dwFlags = 1;
    expectSilentRefusal(keys, request, status::invalidParameter);
}

TEST(CardConstructDHAgreement, RefusesABlobThatIsShorterThanItsHeader) {
    for (const DWORD length : {0u, 7u}) {
        KeysFixture keys(CardType::type6, TestKey::p256);
        Request request;
        request.info.dwPublicKey = length;
        expectSilentRefusal(keys, request, status::invalidParameter);
    }
}

TEST(CardConstructDHAgreement, SendsNoMseSetWithoutAVerifiedPin) {
    for (const char* reply : {"63C3", "63C0", "6983", "6300"}) {
        KeysFixture keys(CardType::type6, TestKey::p256);
        Request request;
        keys.expectPinQuery(reply);
        EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), status::securityViolation);
        EXPECT_EQ(keys.log.file(), lines(scope, {entered}));
        EXPECT_EQ(keys.log.output(), LogLines{});
        EXPECT_EQ(keys.context.secretAgreements, Agreements{});
    }
}

TEST(CardConstructDHAgreement, CountsAPinQueryThatFailsAsAClosedPin) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    keys.expectPinQuery("6A80");
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), status::securityViolation);
    EXPECT_EQ(keys.log.file(), lines(scope, {entered}));
}

TEST(CardConstructDHAgreement, SendsThePointIn65BytesOnCardType6) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    const ByteVector data = point("04");
    ASSERT_EQ(data.size(), 65u);
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000").expect(decipher(data), "0A 0B 9000");
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), 0u);
    EXPECT_EQ(keys.log.file(),
              lines(scope,
                    {entered, parameters(request.info), publicKeyLine(request.blob), reservedIsNull,
                     exited(status::success, ". Added DH secret agreement to index '1'.")}));
    EXPECT_EQ(keys.log.output(), LogLines{});
    EXPECT_EQ(request.info.bSecretAgreementIndex, 1);
    EXPECT_EQ(keys.context.secretAgreements, (Agreements{{1, bytes("0A 0B")}}));
}

TEST(CardConstructDHAgreement, SendsThePointIn66BytesOnCardsWithASecondSigningKey) {
    for (const CardType cardType : {CardType::type4, CardType::type5, CardType::type7}) {
        KeysFixture keys(cardType, TestKey::p256);
        Request request;
        const ByteVector data = point("00 04");
        ASSERT_EQ(data.size(), 66u);
        keys.expectPinQuery();
        keys.card.expect(mse01, "9000").expect(decipher(data), "0A 0B 9000");
        EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), 0u);
    }
}

TEST(CardConstructDHAgreement, SendsTheLongerFormWithTheOtherReferenceOnCardType8) {
    KeysFixture keys(CardType::type8, TestKey::p256);
    Request request;
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000").expect(decipher(point("00 04")), "0A 0B 9000");
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), 0u);
}

TEST(CardConstructDHAgreement, GoesByTheContextForTheReferenceAndTheForm) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    keys.context.hasSecondSignCert = true;
    Request request;
    keys.expectPinQuery();
    keys.card.expect(mse01, "9000").expect(decipher(point("00 04")), "0A 0B 9000");
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), 0u);
}

TEST(CardConstructDHAgreement, WritesTheReservedPointerInItsLine) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request(0);
    request.info.pbReserved = reinterpret_cast<PBYTE>(static_cast<ULONG_PTR>(0x1234));
    request.info.cbReserved = 0x10;
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000").expect(decipher(bytes("04")), "0A 9000");
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), 0u);
    EXPECT_EQ(
        keys.log.file(),
        lines(scope, {entered,
                      ("Entering the function, with parameters, bContainerIndex:'0x00000000', "
                       "cbReserved:'0x00000010', dwFlags:'0x00000000', dwPublicKey:'0x00000008', "
                       "dwVersion:'0x00000002'"),
                      "with parameters, pbPublicKey:'0 1 2 3 4 5 6 7 ', ",
                      "with parameters, pbReserved:'0x00001234'",
                      exited(status::success, ". Added DH secret agreement to index '1'.")}));
}

TEST(CardConstructDHAgreement, TakesTheSecretByGetResponse) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000").expect(decipher(point("04")), "6102");
    keys.card.expect("00 C0 00 00 02", "0A 0B 9000");
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &request.info), 0u);
    EXPECT_EQ(keys.context.secretAgreements, (Agreements{{1, bytes("0A 0B")}}));
}

TEST(CardConstructDHAgreement, FailsWhenTheCardGivesNothing) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000").expect(decipher(point("04")), "9000");
    expectFailure(keys, request, status::unexpected, exited(status::unexpected, " (failure)"));
    EXPECT_EQ(keys.log.output(),
              (LogLines{{"DEBUG", "Decipher failed. No decrypted data returned by card."}}));
}

TEST(CardConstructDHAgreement, ReportsTheCards6982AsASecurityViolation) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000").expect(decipher(point("04")), "6982");
    expectFailure(keys, request, status::securityViolation,
                  exited(status::securityViolation, " (security violation)"));
}

TEST(CardConstructDHAgreement, ReportsAnObjectOfAnotherFamilyAsOther) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000").expect(decipher(point("04")), "6A80");
    expectFailure(keys, request, status::unexpected, exited(status::unexpected, " (other)"));
}

TEST(CardConstructDHAgreement, ReportsAPointerAsOther) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    keys.expectPinQuery();
    keys.card.expect(mse91, "6A88");
    expectFailure(keys, request, status::unexpected, exited(status::unexpected, " (other)"));
}

TEST(CardConstructDHAgreement, HandsALogicErrorToTheFirstHandlerAndAPointerToOneToTheSecond) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request;
    std::logic_error planted("planted");
    // The PIN query is answered; the third command meets the fault.
    int sent = 0;
    std::function<void()> fault;
    platformCalls().SCardTransmit = [&](auto, auto, auto, auto, auto, BYTE* reply,
                                        DWORD* received) -> LONG {
        if (++sent % 3 == 0) fault();
        reply[0] = 0x90;
        reply[1] = 0x00;
        *received = 2;
        return 0;
    };
    fault = [] { throw std::out_of_range("planted"); };
    expectFailure(keys, request, status::securityViolation,
                  exited(status::securityViolation, " (security violation)"));
    fault = [&] { throw &planted; };
    expectFailure(keys, request, status::unexpected, exited(status::unexpected, " (other)"));
    fault = [] { throw std::bad_alloc(); };
    expectFailure(keys, request, status::unexpected, exited(status::unexpected, " (other)"));
    EXPECT_EQ(sent, 9);
}

TEST(CardConstructDHAgreement, SendsNoPointThatOneCommandCannotCarry) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    Request request(255);
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000");
    expectFailure(keys, request, status::unexpected, exited(status::unexpected, " (other)"));
    Request longest(254);
    keys.expectPinQuery();
    keys.card.expect(mse91, "9000").expect(decipher(point("04", 254)), "0A 9000");
    EXPECT_EQ(CardConstructDHAgreement(keys.data, &longest.info), 0u);
}

TEST(CardConstructDHAgreement, CountsAgreementsFrom1) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    agree(keys, 1, "0A");
    agree(keys, 2, "0B");
    EXPECT_EQ(keys.context.secretAgreements, (Agreements{{1, {0x0A}}, {2, {0x0B}}}));
}

TEST(CardConstructDHAgreement, ReusesADestroyedIndexOnlyAboveTheLargest) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    agree(keys, 1, "0A");
    agree(keys, 2, "0B");
    destroy(keys, 1);
    agree(keys, 3, "0C");
    destroy(keys, 3);
    agree(keys, 3, "0D");
    destroy(keys, 3);
    destroy(keys, 2);
    agree(keys, 1, "0E");
    agree(keys, 2, "0F");
    destroy(keys, 2);
    agree(keys, 2, "10");
}

TEST(CardConstructDHAgreement, WrapsFrom255To0AndKeepsTheSecretThatStandsThere) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    keys.context.secretAgreements = {{255, {0xFF}}};
    agree(keys, 0, "0A");
    EXPECT_EQ(keys.context.secretAgreements, (Agreements{{0, {0x0A}}, {255, {0xFF}}}));
    agree(keys, 0, "0B");  // The same report; the old secret stays.
    EXPECT_EQ(keys.context.secretAgreements, (Agreements{{0, {0x0A}}, {255, {0xFF}}}));
}

TEST(CardConstructDHAgreement, WorksWithoutACardContext) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    keys.data->hSCardCtx = 0;
    agree(keys, 1, "0A");
}

TEST(CardDestroyDHAgreement, WritesItsLineBeforeItLooksAtTheRecord) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    EXPECT_EQ(CardDestroyDHAgreement(nullptr, 0x1F, 16), status::invalidParameter);
    EXPECT_EQ(keys.log.file(),
              lines(destroyScope, {"Entering the function, with parameters, "
                                   "bSecretAgreementIndex:'0x0000001f', dwFlags:'16'"}));
}

TEST(CardDestroyDHAgreement, RefusesAnUnknownIndexAndFlagsWithoutAskingTheCard) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    keys.context.secretAgreements = {{1, {0x0A}}};
    EXPECT_EQ(CardDestroyDHAgreement(keys.data, 2, 0), status::invalidParameter);
    EXPECT_EQ(CardDestroyDHAgreement(keys.data, 1, 1), status::invalidParameter);
    EXPECT_EQ(keys.card.statusCalls(), 0);
    EXPECT_EQ(keys.log.file(),
              lines(destroyScope, {"Entering the function, with parameters, "
                                   "bSecretAgreementIndex:'0x00000002', dwFlags:'0'",
                                   "Entering the function, with parameters, "
                                   "bSecretAgreementIndex:'0x00000001', dwFlags:'1'"}));
    EXPECT_EQ(keys.context.secretAgreements.size(), 1u);
}

TEST(CardDestroyDHAgreement, DestroysNothingWhileThePinIsClosed) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    keys.context.secretAgreements = {{1, {0x0A}}};
    keys.data->hSCardCtx = 0;  // Looked at only afterwards.
    keys.expectPinQuery("63C3");
    EXPECT_EQ(CardDestroyDHAgreement(keys.data, 1, 0), status::securityViolation);
    EXPECT_EQ(keys.context.secretAgreements.size(), 1u);
}

TEST(CardDestroyDHAgreement, DestroysNothingWithoutACardContext) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    keys.context.secretAgreements = {{1, {0x0A}}};
    keys.data->hSCardCtx = 0;
    keys.expectPinQuery();
    EXPECT_EQ(CardDestroyDHAgreement(keys.data, 1, 0), status::invalidParameter);
    EXPECT_EQ(keys.context.secretAgreements.size(), 1u);
}

TEST(CardDestroyDHAgreement, ErasesTheSecretWithItsEntryLineAlone) {
    KeysFixture keys(CardType::type6, TestKey::p256);
    keys.context.secretAgreements = {{1, {0x0A}}, {2, {0x0B}}};
    destroy(keys, 1);
    EXPECT_EQ(keys.context.secretAgreements, (Agreements{{2, {0x0B}}}));
    EXPECT_EQ(keys.log.file(),
              lines(destroyScope, {"Entering the function, with parameters, "
                                   "bSecretAgreementIndex:'0x00000001', dwFlags:'0'"}));
    EXPECT_EQ(keys.log.output(), LogLines{});
}

}  // namespace
}  // namespace KelmoraID
