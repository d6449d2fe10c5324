// Whole journeys: what the driver asks of a card and what that says, compared byte for byte with
// the conversations in tests/data/journeys. No extra command is sent, nothing selected is
// remembered.
#include <botan/auto_rng.h>
#include <botan/bigint.h>
#include <botan/ecdh.h>
#include <botan/pubkey.h>
#include <botan/x509_key.h>
#include <botan/x509cert.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "platform_side.h"
#include "recording/parser.h"
#include "recording/replay_card.h"
#include "recording/writer.h"

namespace boundary {
namespace {

PIN_ID pinOf(PlatformSide& card, BYTE container) {
    return card.key(container).pin == virtual_card::PinRole::Authentication ? 1 : 4;
}

// The steps of a journey, each an entry point that has to succeed. What a step does to the card is
// written by whoever listens at the seam.
class Traveller {
public:
    /// Is told of an entry point ahead of it and behind it, and whether the card's answers to it
    /// are another each time.
    struct Listener {
        std::function<void(const std::string& call, bool isRandom)> before = [](const auto&, bool) {
        };
        std::function<void()> after = [] {};
    };

    Traveller(PlatformSide& card, Listener listener)
        : card_(card), listener_(std::move(listener)) {}

    void acquire() {
        step("CardAcquireContext", [&] { return card_.acquire(); });
    }

    void release() {
        step("CardDeleteContext", [&] {
            card_.release();
            return DWORD{0};
        });
    }

    // What needs no command.
    void readFromMemory() {
        step("CardReadFile cardid", [&] { return card_.readFile(nullptr, "cardid").status; });
        step("CardReadFile mscp/kxc00", [&] { return card_.readFile("mscp", "kxc00").status; });
        step("CardGetProperty \"PIN Information\", flags 1",
             [&] { return card_.property(WIDE_TEXT("PIN Information"), 1).status; });
    }

    void openKey(BYTE container) {
        const PIN_ID pin = pinOf(card_, container);
        step("CardAuthenticateEx with PIN " + std::to_string(pin),
             [&] { return card_.authenticate(pin, card_.pin(card_.key(container).pin)); });
    }

    // A hash of 32 bytes as the older provider hands it over.
    void sign(BYTE container) {
        signWith(card_.signingInfo(container, hash_), card_.isEcKey(container));
    }

    void signByPss(BYTE container) { signWith(card_.pssInfo(container, hash_), true); }

    void decrypt(BYTE container) {
        const Bytes block = blockFor(container);
        step("CardRSADecrypt with container " + std::to_string(container),
             [&] { return card_.decrypt(container, block).status; });
    }

    void agree() {
        Bytes blob = peerBlob();
        CARD_DH_AGREEMENT_INFO info{};
        info.dwVersion = 2;
        info.dwPublicKey = static_cast<DWORD>(blob.size());
        info.pbPublicKey = blob.data();
        step("CardConstructDHAgreement with container 0",
             [&] { return card_.data.pfnCardConstructDHAgreement(&card_.data, &info); });
        const BYTE secret = info.bSecretAgreementIndex;
        step("CardDestroyDHAgreement of secret " + std::to_string(secret),
             [&] { return card_.data.pfnCardDestroyDHAgreement(&card_.data, secret, 0); });
    }

    BYTE containers() const {
        return static_cast<BYTE>(card_.reader.card().generation().keys.size());
    }
    bool isEcKey(BYTE container) const { return card_.isEcKey(container); }

private:
    template <typename Work>
    void step(const std::string& call, const Work& work, bool isRandom = false) {
        listener_.before(call, isRandom);
        EXPECT_EQ(work(), 0u) << call;
        listener_.after();
    }

    void signWith(const CARD_SIGNING_INFO& info, bool isRandom) {
        step(
            "CardSignData with container " + std::to_string(info.bContainerIndex),
            [&] { return card_.sign(info).status; }, isRandom);
    }

    std::unique_ptr<Botan::Public_Key> publicKey(BYTE container) {
        const Bytes certificate = card_.certificate(container);
        return Botan::X509_Certificate(certificate).load_subject_public_key();
    }

    // The same block each time: PKCS#1 v1.5 padding (RFC 8017, 7.2.1) with one value for all
    // filler.
    Bytes blockFor(BYTE container) {
        const auto key = publicKey(container);
        const std::string message = "for the card alone";
        Bytes padded((key->key_length() + 7) / 8, 0x55);
        padded[0] = 0;
        padded[1] = 2;
        *(padded.end() - static_cast<std::ptrdiff_t>(message.size()) - 1) = 0;
        std::copy(message.begin(), message.end(),
                  padded.end() - static_cast<std::ptrdiff_t>(message.size()));
        const auto block = Botan::PK_Encryptor_EME(*key, random_, "Raw")
                               .encrypt(padded.data(), padded.size(), random_);
        return reversed({block.begin(), block.end()});
    }

    // The same key of the other party each time, as the platform hands it over.
    Bytes peerBlob() {
        const auto key = publicKey(0);
        const auto& ecKey = dynamic_cast<const Botan::EC_PublicKey&>(*key);
        const Botan::ECDH_PrivateKey peer(random_, ecKey.domain(),
                                          Botan::BigInt(0x0123456789ABCDEF));
        const auto point = peer.public_value();
        Bytes blob = fromHex("45434B3100000000");
        blob[4] = static_cast<std::uint8_t>((point.size() - 1) / 2);
        blob.insert(blob.end(), point.begin() + 1, point.end());
        return blob;
    }

    PlatformSide& card_;
    Listener listener_;
    Bytes hash_ = Bytes(32, 0x11);
    Botan::AutoSeeded_RNG random_;
};

void logon(Traveller& traveller) {
    traveller.acquire();
    traveller.readFromMemory();
    traveller.openKey(0);
    traveller.sign(0);
    traveller.openKey(1);
    traveller.release();
}

void signatures(Traveller& traveller) {
    traveller.acquire();
    for (BYTE container = 0; container < traveller.containers(); ++container) {
        traveller.openKey(container);
        traveller.sign(container);
        if (!traveller.isEcKey(container)) {
            traveller.openKey(container);
            traveller.signByPss(container);
        }
    }
    traveller.release();
}

void decryption(Traveller& traveller) {
    traveller.acquire();
    for (BYTE container = 0; container < traveller.containers(); ++container) {
        if (traveller.isEcKey(container)) continue;
        traveller.openKey(container);
        traveller.decrypt(container);
    }
    traveller.release();
}

void agreement(Traveller& traveller) {
    traveller.acquire();
    traveller.openKey(0);
    traveller.agree();
    traveller.release();
}

struct Journey {
    std::string name;
    int cardType;
    void (*travel)(Traveller& traveller);
};

// Those of every card that its keys allow.
std::vector<Journey> journeys() {
    std::vector<Journey> list;
    const auto add = [&list](const char* name, const std::vector<int>& cardTypes, auto travel) {
        for (const int cardType : cardTypes) list.push_back({name, cardType, travel});
    };
    add("logon", allCardTypes(), logon);
    add("signatures", allCardTypes(), signatures);
    add("decryption", rsaCardTypes(), decryption);
    add("agreement", ecCardTypes(), agreement);
    return list;
}

void PrintTo(const Journey& journey, std::ostream* stream) {
    *stream << journey.name << " of card type " << journey.cardType;
}

std::string fileName(const Journey& journey) {
    return "card-type-" + std::to_string(journey.cardType) + "-" + journey.name + ".txt";
}

// The build puts the folder beside the program (tests/boundary/CMakeLists.txt).
std::filesystem::path folder(const char* name) {
    return std::filesystem::path(programFolder()) / name;
}

std::string kept(const std::string& name) {
    const auto path = folder("journeys") / name;
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path << " cannot be read";
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// The journey with the virtual card as a conversation. What a card chooses at random, the
// signatures of EC keys and of PSS, is 00.
std::string seen(const Journey& journey) {
    PlatformSide card(journey.cardType);
    std::string text;
    bool isRandom = false;
    recording::Writer writer([&](const std::string& line) { text += line + '\n'; });
    writer.note("Journey of the tests: " + journey.name + ", virtual card of type " +
                std::to_string(journey.cardType) +
                ".\nSignatures by ECDSA and PSS are random: 00 here.");
    writer.begin(card.atr, card.reader.card().generation().protocol == 0 ? recording::Protocol::t0
                                                                         : recording::Protocol::t1);
    card.reader.onExchange = [&](const virtual_card::Exchange& exchange) {
        writer.command(exchange.command);
        recording::Reply reply{exchange.reply, exchange.code, {}};
        if (isRandom && reply.bytes.size() > 2)
            std::fill(reply.bytes.begin(), reply.bytes.end() - 2, 0);
        writer.reply(reply);
    };
    Traveller::Listener listener;
    listener.before = [&](const std::string& call, bool random) {
        writer.call(call);
        isRandom = random;
    };
    listener.after = [&] { writer.result({}); };
    Traveller traveller(card, listener);
    journey.travel(traveller);
    writer.end();
    return text;
}

// The first line in which two texts differ.
std::string difference(const std::string& seen, const std::string& kept) {
    std::istringstream left(seen), right(kept);
    std::string ofSeen, ofKept;
    for (int number = 1;; ++number) {
        const bool hasSeen = static_cast<bool>(std::getline(left, ofSeen));
        const bool hasKept = static_cast<bool>(std::getline(right, ofKept));
        if (hasSeen && hasKept && ofSeen == ofKept) continue;
        return "line " + std::to_string(number) + "\n  seen: " + (hasSeen ? ofSeen : "(end)") +
               "\n  kept: " + (hasKept ? ofKept : "(end)");
    }
}

class EveryJourney : public ::testing::TestWithParam<Journey> {};
INSTANTIATE_TEST_SUITE_P(Kept, EveryJourney, ::testing::ValuesIn(journeys()), [](const auto& row) {
    return row.param.name + std::to_string(row.param.cardType);
});

TEST_P(EveryJourney, IsExactlyTheOneThatIsKept) {
    const std::string now = seen(GetParam());
    const std::string then = kept(fileName(GetParam()));
    if (now == then) return;
    std::filesystem::create_directories(folder("journeys-seen"));
    const auto path = folder("journeys-seen") / fileName(GetParam());
    std::ofstream(path, std::ios::binary) << now;
    FAIL() << fileName(GetParam()) << ": " << difference(now, then)
           << "\nThe whole of what was seen: " << path;
}

TEST_P(EveryJourney, IsPlayedAgainByTheFileAlone) {
    const auto conversation = recording::parse(kept(fileName(GetParam())));
    recording::ReplayCard replay(conversation);
    PlatformSide card(GetParam().cardType);  // for its PINs and keys; its reader stays idle
    putBehindTheSeam(replay.seam());
    card.data.hScard = replay.cardHandle();
    card.data.hSCardCtx = replay.contextHandle();
    Traveller::Listener listener;
    listener.before = [&](const std::string& call, bool) { replay.beginCall(call); };
    Traveller traveller(card, listener);
    GetParam().travel(traveller);
    EXPECT_EQ(replay.mismatch(), "");
    EXPECT_TRUE(replay.isAtEnd());
}

// The PINs' bytes and padding, which no conversation holds.
class PinBytes : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(EveryCard, PinBytes, ::testing::ValuesIn(allCardTypes()),
                         ::testing::PrintToStringParamName());

TEST_P(PinBytes, AreExactlyThoseThatAreKept) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    std::istringstream lines(kept("card-type-" + std::to_string(GetParam()) + "-pins.txt"));
    std::set<PIN_ID> pins;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("#")) continue;
        std::istringstream fields(line);
        unsigned container = 0;
        std::string command;
        ASSERT_TRUE(fields >> container >> command) << line;
        ASSERT_LT(container, card.containers());
        card.openKey(static_cast<BYTE>(container));
        EXPECT_EQ(toHex(card.reader.exchanges().back().command), command) << line;
        pins.insert(pinOf(card, static_cast<BYTE>(container)));
    }
    EXPECT_EQ(pins, (std::set<PIN_ID>{1, 4})) << "one line at least for each PIN";
}

}  // namespace
}  // namespace boundary
