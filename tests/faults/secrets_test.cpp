// Where secrets go: no line of a log, no output and no caller's buffer holds a PIN, and the
// driver's own memory holds what SECURITY.md says when it is given back, and nothing else.
#include <algorithm>
#include <cctype>
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

// Whether a PIN stands there by itself: between other digits it is part of an address in a line of
// the log.
bool holdsPin(const Bytes& block, const Bytes& pin) {
    const auto isDigit = [&](auto at) { return std::isxdigit(*at) != 0; };
    for (auto at = block.begin();; ++at) {
        at = std::search(at, block.end(), pin.begin(), pin.end());
        if (at == block.end()) return false;
        const auto end = at + static_cast<std::ptrdiff_t>(pin.size());
        if ((at == block.begin() || !isDigit(at - 1)) && (end == block.end() || !isDigit(end))) {
            return true;
        }
    }
}

// The blocks that the driver gives back with a secret in them, as they were.
class GivenBack {
public:
    explicit GivenBack(Bytes secret, bool (*isIn)(const Bytes&, const Bytes&) = holds)
        : secret_(std::move(secret)) {
        onGivenBack = [this, isIn](const void* block, std::size_t size) {
            const auto* first = static_cast<const std::uint8_t*>(block);
            Bytes bytes(first, first + size);
            if (isIn(bytes, secret_)) blocks.push_back(std::move(bytes));
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

// One of the PINs of a journey, up to the end of the context; the answer to an exchange is lost.
struct Watched {
    DWORD status = 0;
    Copies copies;
    std::size_t exchanges = 0;
};
Watched watch(int cardType, const Journey& journey, const EnteredPin& pin, std::size_t lost = 0) {
    KelmoraID::testing::platformCalls() = {};
    hookCertificates();
    hookSurroundings(journey);
    PlatformSide card(cardType);
    journey.prepare(card);
    if (lost != 0)
        card.reader.failTransmit(lost, {Fault::Kind::TransportError, status::removedCard});
    const Bytes text = bytesOf(textOf(card, pin));
    const GivenBack given(text, holdsPin);
    const std::size_t before = card.reader.exchanges().size();
    Watched watched;
    watched.status = journey.act(card).status;
    watched.exchanges = card.reader.exchanges().size() - before;
    card.release();
    watched.copies = copiesIn(given.blocks, text);
    return watched;
}

// By either call and by the dialog, right and wrong, of both PINs.
template <typename Work>
void eachJourneyWithAPin(Work work) {
    int count = 0;
    for (const Journey& journey : journeys) {
        if (journey.pins.empty()) continue;
        SCOPED_TRACE(journey.entryPoint + std::string(", ") + journey.variant);
        work(journey);
        ++count;
    }
    EXPECT_GE(count, 8);
}

TEST_P(Secrets, OfAPinTheCommandsCopyIsWipedAndTheRequestsAreNot) {
    const bool padded = isPadded(PlatformSide(GetParam()));
    eachJourneyWithAPin([&](const Journey& journey) {
        for (const EnteredPin& pin : journey.pins) {
            const Copies copies = watch(GetParam(), journey, pin).copies;
            // The request's own copy, and, where it is padded, the buffer that became too small;
            // the copy of the VERIFY object would be one more.
            EXPECT_EQ(copies.plain, 1);
            EXPECT_EQ(copies.padded, padded ? 1 : 0);
            EXPECT_EQ(copies.encoded, 1);
            EXPECT_EQ(copies.others, 0);
        }
    });
}

TEST_P(Secrets, OfAPinTheCommandsCopyIsNotWipedWhereTheReaderGivesNoResponse) {
    const bool padded = isPadded(PlatformSide(GetParam()));
    eachJourneyWithAPin([&](const Journey& journey) {
        // The last exchange is the VERIFY of the last PIN.
        const EnteredPin& pin = journey.pins.back();
        const std::size_t verify = watch(GetParam(), journey, pin).exchanges;
        const Watched lost = watch(GetParam(), journey, pin, verify);
        EXPECT_EQ(lost.status, status::unexpected);
        EXPECT_EQ(lost.copies.plain, padded ? 1 : 2);
        EXPECT_EQ(lost.copies.padded, padded ? 2 : 0);
        EXPECT_EQ(lost.copies.others, 0);
    });
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

// All that a caller can ask for beside what an entry point is there to give.
std::vector<Bytes> outputsOf(PlatformSide& card) {
    std::vector<Bytes> outputs;
    for (const DWORD flags : {0u, 1u, 4u}) {
        for (const LPCWSTR name :
             {WIDE_TEXT("PIN Information"), WIDE_TEXT("Card Identifier"), WIDE_TEXT("Key Sizes"),
              WIDE_TEXT("Capabilities"), WIDE_TEXT("Free Space"), WIDE_TEXT("PIN List"),
              WIDE_TEXT("PIN Context String"), WIDE_TEXT("Authenticated State")}) {
            outputs.push_back(card.property(name, flags).bytes);
        }
    }
    for (const char* file : {"cardid", "cardcf", "cardapps"}) {
        outputs.push_back(card.readFile(nullptr, file).bytes);
    }
    outputs.push_back(card.readFile("mscp", "cmapfile").bytes);
    for (BYTE container = 0; container < card.containers(); ++container) {
        outputs.push_back(card.certificate(container));
        outputs.push_back(card.publicKey(container));
        outputs.push_back(card.containerProperty(container, WIDE_TEXT("PIN Identifier")).bytes);
        outputs.push_back(card.signMessage(container, "a message").bytes);
    }
    return outputs;
}

// Neither in the byte order of the card nor in that of the platform.
void expectNowhere(const Bytes& secret, Log& log, const std::vector<Bytes>& outputs) {
    const std::string text = log.text();
    EXPECT_FALSE(text.empty());
    for (const Bytes& form : {secret, boundary::reversed(secret)}) {
        expectNotIn(text, form);
        for (const Bytes& output : outputs) EXPECT_FALSE(holds(output, form));
    }
}

TEST_P(Secrets, OfAPinNothingIsInALogOrAnOutput) {
    Log log;
    PlatformSide card(GetParam());
    card.acquireOrFail();
    DWORD attempts = 0;
    EXPECT_EQ(card.authenticate(1, wrongPin, &attempts), status::wrongPin);
    std::vector<Bytes> outputs = outputsOf(card);
    // Each place where the reader can fail has lines of its own.
    for (std::size_t n = 1; n <= 4; ++n) {
        card.reader.failTransmit(n, {Fault::Kind::TransportError, status::lostData});
        card.authenticate(1, wrongPin);
        card.reader.clearFaults();
    }
    card.reader.resetCard();
    card.reconnect();
    std::ranges::move(outputsOf(card), std::back_inserter(outputs));
    expectNowhere(bytesOf(wrongPin), log, outputs);
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

// Agrees with another party; what the caller's record and buffer hold then are outputs.
BYTE agree(PlatformSide& card, boundary::OtherParty& other, std::vector<Bytes>& outputs) {
    Bytes blob = other.blob();
    CARD_DH_AGREEMENT_INFO info{};
    info.dwVersion = 2;
    info.dwPublicKey = static_cast<DWORD>(blob.size());
    info.pbPublicKey = blob.data();
    EXPECT_EQ(card.data.pfnCardConstructDHAgreement(&card.data, &info), 0u);
    outputs.push_back(blob);
    const auto* record = reinterpret_cast<const BYTE*>(&info);
    outputs.emplace_back(record, record + sizeof(info));
    return info.bSecretAgreementIndex;
}

// CardDeriveKey by a hash of the platform's, with a text ahead of the secret and one behind it.
Bytes derive(PlatformSide& card, BYTE index, LPCWSTR hash, DWORD flags = 0) {
    WideString name(hash);
    WideString kdf(WIDE_TEXT("HASH"));
    char ahead[] = "ahead";
    char behind[] = "behind";
    BCryptBuffer buffers[] = {
        {static_cast<ULONG>((name.size() + 1) * sizeof(WCHAR)), KDF_HASH_ALGORITHM, name.data()},
        {5, KDF_SECRET_PREPEND, ahead},
        {6, KDF_SECRET_APPEND, behind}};
    BCryptBufferDesc list{BCRYPTBUFFER_VERSION, 3, buffers};
    CARD_DERIVE_KEY info{};
    info.dwVersion = 2;
    info.dwFlags = flags;
    info.pwszKDF = kdf.data();
    info.bSecretAgreementIndex = index;
    info.pParameterList = &list;
    EXPECT_EQ(card.data.pfnCardDeriveKey(&card.data, &info), 0u);
    if (info.pbDerivedKey == nullptr) return {};
    const Bytes key(info.pbDerivedKey, info.pbDerivedKey + info.cbDerivedKey);
    card.data.pfnCspFree(info.pbDerivedKey);
    return key;
}

TEST_P(SecretsOfEcCards, OfAnAgreementOnlyTheDerivedKeyIsGivenAndNothingIsWiped) {
    Log log;
    PlatformSide card(GetParam());
    card.acquireOrFail();
    card.openKey(0);
    boundary::OtherParty other(card.certificate(0));
    const Bytes secret = other.secret();
    const std::string text(secret.begin(), secret.end());
    std::vector<Bytes> outputs;
    BYTE index = 0;
    {
        // The reply as it arrived, what was taken out of it, and where the command kept it; the
        // context's own stays.
        const GivenBack secrets(secret);
        index = agree(card, other, outputs);
        const auto isBare = [&](const Bytes& block) { return block == secret; };
        EXPECT_EQ(std::ranges::count_if(secrets.blocks, isBare), 3);
        EXPECT_EQ(secrets.blocks.size(), 4u);
    }
    struct Row {
        LPCWSTR name;
        const char* hash;
    };
    std::vector<Bytes> keys;
    for (const Row& row :
         {Row{WIDE_TEXT("SHA1"), "SHA-1"}, Row{WIDE_TEXT("SHA256"), "SHA-256"},
          Row{WIDE_TEXT("SHA384"), "SHA-384"}, Row{WIDE_TEXT("SHA512"), "SHA-512"}}) {
        SCOPED_TRACE(row.hash);
        keys.push_back(boundary::hashOf(row.hash, "ahead" + text + "behind"));
        {
            // The copy that is hashed; the agreement itself stays.
            const GivenBack secrets(secret);
            EXPECT_EQ(derive(card, index, row.name), keys.back());
            EXPECT_EQ(secrets.blocks.size(), 1u);
        }
        const GivenBack derived(keys.back());
        derive(card, index, row.name);
        EXPECT_EQ(derived.blocks.size(), 1u);
        EXPECT_EQ(derive(card, index, row.name, CARD_BUFFER_SIZE_ONLY), Bytes());
        EXPECT_EQ(derived.blocks.size(), 1u) << "for the size nothing is derived";
    }
    std::ranges::move(outputsOf(card), std::back_inserter(outputs));
    {
        const GivenBack secrets(secret);
        EXPECT_EQ(card.data.pfnCardDestroyDHAgreement(&card.data, index, 0), 0u);
        EXPECT_EQ(secrets.blocks.size(), 1u);
    }
    expectNowhere(secret, log, outputs);
    for (const Bytes& key : keys) expectNowhere(key, log, outputs);
}

TEST_P(SecretsOfEcCards, AnAgreementThatIsNotDestroyedGoesWithTheContext) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    card.openKey(0);
    boundary::OtherParty other(card.certificate(0));
    std::vector<Bytes> outputs;
    agree(card, other, outputs);
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
    EXPECT_EQ(boundary::reversed(answer.bytes), bytesOf(message));
    const std::vector<Bytes> outputs = outputsOf(card);
    card.release();
    EXPECT_EQ(given.blocks.size(), 5u);
    expectNowhere(bytesOf(message), log, outputs);
}

}  // namespace
}  // namespace faults
