// Where secrets go: no line of a log, no output and no caller's buffer holds a PIN, and the
// driver's own memory holds what SECURITY.md says when it is given back, and nothing else.
#include <algorithm>
#include <fstream>
#include <iterator>

#include "driver_memory.h"
#include "fault_journeys.h"
#include "other_party.h"
#include "platform/fixed_paths.h"
#include "secret_search.h"
#include "support/platform_calls.h"
#include "support/statuses.h"

namespace faults {
namespace {

using boundary::Answer;
using virtual_card::Fault;
using virtual_card::PinRole;

bool beginsWith(const Bytes& bytes, const Bytes& head) {
    return bytes.size() >= head.size() && std::equal(head.begin(), head.end(), bytes.begin());
}

// The blocks that the driver gives back with a secret in them, as they were.
class GivenBack {
public:
    explicit GivenBack(Bytes secret) : secret_(std::move(secret)) {
        onGivenBack = [this](const void* block, std::size_t size) {
            const auto* first = static_cast<const std::uint8_t*>(block);
            Bytes bytes(first, first + size);
            if (holds(bytes, secret_)) blocks.push_back(std::move(bytes));
        };
    }
    ~GivenBack() { onGivenBack = nullptr; }
    GivenBack(const GivenBack&) = delete;
    GivenBack& operator=(const GivenBack&) = delete;

    std::vector<Bytes> blocks;

private:
    Bytes secret_;
};

// Both channels of the log, as text.
class Log {
public:
    std::string text() {
        std::ifstream file(logFilePath(), std::ios::binary);
        std::string all{std::istreambuf_iterator<char>(file), {}};
        for (const auto& line : capture_.output()) all += line.scope + line.message + "\n";
        return all;
    }

private:
    KelmoraID::testing::LogCapture capture_;
};

bool isPadded(const PlatformSide& card) {
    return card.containers() > 2;
}

// A wrong PIN, so that its digits stand nowhere else.
const std::string wrongPin = "73519264";

class Secrets : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { hookCertificates(); }
    void TearDown() override { KelmoraID::testing::platformCalls() = {}; }
};
INSTANTIATE_TEST_SUITE_P(EveryCard, Secrets, ::testing::ValuesIn(boundary::allCardTypes()));

// The copies of a PIN among the blocks: by what they are.
struct Copies {
    int plain = 0;    // the PIN alone
    int padded = 0;   // with the zeros behind it that the card wants
    int encoded = 0;  // the command
    int others = 0;
};
Copies copiesIn(const std::vector<Bytes>& blocks, const Bytes& pin) {
    Bytes padded = pin;
    padded.resize(12);
    Copies copies;
    for (const Bytes& block : blocks) {
        if (block == pin) {
            ++copies.plain;
        } else if (beginsWith(block, padded)) {  // its block has grown by steps
            ++copies.padded;
        } else if (beginsWith(block, {0x00, 0x20, 0x00})) {
            ++copies.encoded;
        } else {
            ++copies.others;
        }
    }
    return copies;
}

TEST_P(Secrets, OfAPinTheCommandsCopyIsWipedAndTheRequestsAreNot) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    const GivenBack given(bytesOf(wrongPin));
    EXPECT_EQ(card.authenticate(1, wrongPin), status::wrongPin);
    const Copies copies = copiesIn(given.blocks, bytesOf(wrongPin));
    // The request's own copy, and, where it is padded, the buffer that became too small; the copy
    // of the VERIFY object would be one more.
    EXPECT_EQ(copies.plain, 1);
    EXPECT_EQ(copies.padded, isPadded(card) ? 1 : 0);
    EXPECT_EQ(copies.encoded, 1);
    EXPECT_EQ(copies.others, 0);
}

TEST_P(Secrets, OfAPinTheCommandsCopyIsNotWipedWhereTheReaderGivesNoResponse) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    EXPECT_EQ(card.authenticate(1, card.pin(PinRole::Authentication)), 0u);
    const auto& exchanges = card.reader.exchanges();
    const std::size_t before = exchanges.size();
    card.authenticate(1, wrongPin);
    // The VERIFY is the last of them: the same again, and its answer is lost.
    const std::size_t verify = exchanges.size() - before;
    card.reader.failTransmit(verify, {Fault::Kind::TransportError, status::removedCard});
    const GivenBack given(bytesOf(wrongPin));
    EXPECT_EQ(card.authenticate(1, wrongPin), status::unexpected);
    const Copies copies = copiesIn(given.blocks, bytesOf(wrongPin));
    EXPECT_EQ(copies.plain, isPadded(card) ? 1 : 2);
    EXPECT_EQ(copies.padded, isPadded(card) ? 2 : 0);
    EXPECT_EQ(copies.others, 0);
}

// The buffer may be out of its scope, and is still on the stack.
__attribute__((noinline, no_sanitize("address"))) Bytes peek(const volatile char* at,
                                                             std::size_t size) {
    Bytes bytes;
    for (std::size_t n = 0; n < size; ++n) bytes.push_back(static_cast<std::uint8_t>(at[n]));
    return bytes;
}

// The dialog's library goes behind everything that had to do with the PIN, and on its way out it
// looks at the buffer.
Bytes leftInTheBuffer;

TEST_P(Secrets, OfThePinsFromTheDialogTheBufferIsNeitherClearedNorWiped) {
    const auto journey = std::ranges::find_if(journeys, [](const Journey& row) {
        return std::string(row.variant) == "dialog, wrong PIN first";
    });
    ASSERT_NE(journey, journeys.end());
    PlatformSide card(GetParam());
    journey->prepare(card);
    hookSurroundings(*journey);
    leftInTheBuffer.clear();
    KelmoraID::testing::platformCalls().FreeLibrary = [](HMODULE) -> BOOL {
        const char* buffer = givenHandles().pinBuffer;
        if (buffer != nullptr) leftInTheBuffer = peek(buffer, pinBufferSize);
        return TRUE;
    };
    ASSERT_EQ(journey->act(card).status, 0u);
    Bytes expected = bytesOf("000000000000");
    expected.push_back(0);
    const auto enter = [&](const EnteredPin& pin) {
        const std::string text = textOf(card, pin);
        std::copy(text.c_str(), text.c_str() + text.size() + 1, expected.begin());
    };
    const auto& found = givenHandles().foundInPinBuffer;
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0], expected);
    enter(journey->pins[0]);
    EXPECT_EQ(found[1], expected);
    enter(journey->pins[1]);
    EXPECT_EQ(leftInTheBuffer, expected);
}

TEST_P(Secrets, OfAPinNothingIsInALogOrAnOutput) {
    Log log;
    PlatformSide card(GetParam());
    card.acquireOrFail();
    std::vector<Bytes> outputs;
    const auto look = [&] {
        outputs.push_back(card.property(WIDE_TEXT("PIN Information"), 1).bytes);
        outputs.push_back(card.property(WIDE_TEXT("PIN Information"), 4).bytes);
        outputs.push_back(card.readFile("mscp", "cmapfile").bytes);
        outputs.push_back(card.readFile(nullptr, "cardcf").bytes);
        outputs.push_back(card.containerProperty(0, WIDE_TEXT("PIN Identifier")).bytes);
    };
    DWORD attempts = 0;
    EXPECT_EQ(card.authenticate(1, wrongPin, &attempts), status::wrongPin);
    look();
    // Each place where the reader can fail has lines of its own.
    for (std::size_t n = 1; n <= 4; ++n) {
        card.reader.failTransmit(n, {Fault::Kind::TransportError, status::lostData});
        card.authenticate(1, wrongPin);
        card.reader.clearFaults();
    }
    look();
    card.reader.resetCard();
    card.reconnect();
    for (BYTE container = 0; container < card.containers(); ++container) {
        outputs.push_back(card.signMessage(container, "a message").bytes);
    }
    for (const Bytes& output : outputs) EXPECT_FALSE(holds(output, bytesOf(wrongPin)));
    const std::string text = log.text();
    EXPECT_NE(text.find("CardAuthenticateEx"), std::string::npos) << "nothing was logged";
    expectNotIn(text, bytesOf(wrongPin));
}

TEST_P(Secrets, OfThePinThatIsRightNothingIsInALog) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    Log log;
    EXPECT_EQ(card.authenticate(4, card.pin(PinRole::Signature)), 0u);
    EXPECT_EQ(card.authenticate(1, card.pin(PinRole::Authentication)), 0u);
    const std::string text = log.text();
    expectNotIn(text, bytesOf(card.pin(PinRole::Signature)));
    expectNotIn(text, bytesOf(card.pin(PinRole::Authentication)));
}

class SecretsOfEcCards : public Secrets {};
INSTANTIATE_TEST_SUITE_P(EveryEcCard, SecretsOfEcCards,
                         ::testing::ValuesIn(boundary::ecCardTypes()));

TEST_P(SecretsOfEcCards, OfAnAgreementOnlyTheDerivedKeyIsGivenAndNothingIsWiped) {
    Log log;
    PlatformSide card(GetParam());
    card.acquireOrFail();
    card.openKey(0);
    boundary::OtherParty other(card.certificate(0));
    const Bytes secret = other.secret();
    Bytes blob = other.blob();
    CARD_DH_AGREEMENT_INFO info{};
    info.dwVersion = 2;
    info.dwPublicKey = static_cast<DWORD>(blob.size());
    info.pbPublicKey = blob.data();
    {
        // The reply as it arrived, what was taken out of it, and where the command kept it; the
        // context's own stays.
        const GivenBack secrets(secret);
        ASSERT_EQ(card.data.pfnCardConstructDHAgreement(&card.data, &info), 0u);
        const auto isBare = [&](const Bytes& block) { return block == secret; };
        EXPECT_EQ(std::ranges::count_if(secrets.blocks, isBare), 3);
        EXPECT_EQ(secrets.blocks.size(), 4u);
    }
    const Bytes key = boundary::hashOf("SHA-1", std::string(secret.begin(), secret.end()));
    {
        const GivenBack secrets(secret);
        const Answer derived = card.derive(info.bSecretAgreementIndex);
        EXPECT_EQ(derived.bytes, key);
        EXPECT_FALSE(holds(derived.bytes, secret));
        // The copy that is hashed; the agreement itself stays.
        EXPECT_EQ(secrets.blocks.size(), 1u);
    }
    {
        const GivenBack keys(key);
        card.derive(info.bSecretAgreementIndex);
        EXPECT_EQ(keys.blocks.size(), 1u);
    }
    {
        const GivenBack secrets(secret);
        EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, info.bSecretAgreementIndex, 0),
                  0u);
        EXPECT_EQ(secrets.blocks.size(), 1u);
    }
    const std::string text = log.text();
    expectNotIn(text, secret);
    expectNotIn(text, key);
}

TEST_P(SecretsOfEcCards, AnAgreementThatIsNotDestroyedGoesWithTheContext) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    card.openKey(0);
    boundary::OtherParty other(card.certificate(0));
    Bytes blob = other.blob();
    CARD_DH_AGREEMENT_INFO info{};
    info.dwVersion = 2;
    info.dwPublicKey = static_cast<DWORD>(blob.size());
    info.pbPublicKey = blob.data();
    ASSERT_EQ(card.data.pfnCardConstructDHAgreement(&card.data, &info), 0u);
    const GivenBack secrets(other.secret());
    card.release();
    EXPECT_EQ(secrets.blocks.size(), 1u);
}

class SecretsOfRsaCards : public Secrets {};
INSTANTIATE_TEST_SUITE_P(EveryRsaCard, SecretsOfRsaCards,
                         ::testing::ValuesIn(boundary::rsaCardTypes()));

TEST_P(SecretsOfRsaCards, OfADecryptedMessageTheCallerHasOneAndTheCopiesAreNotWiped) {
    Log log;
    PlatformSide card(GetParam());
    card.acquireOrFail();
    const BYTE container = card.rsaContainer();
    card.openKey(container);
    const std::string message = "the key of the whole archive";
    const Bytes block = boundary::encryptedTo(card.certificate(container), message);
    const GivenBack given(bytesOf(message));
    const Answer answer = card.decrypt(container, block);
    ASSERT_EQ(answer.status, 0u);
    EXPECT_TRUE(holds(boundary::reversed(answer.bytes), bytesOf(message)));
    EXPECT_EQ(given.blocks.size(), 5u);
    expectNotIn(log.text(), bytesOf(message));
}

}  // namespace
}  // namespace faults
