// A card that wants to hold its caller for ever: how many commands an entry point sends at most,
// computed here from what the driver does, and reached by a card that plays along for as long as it
// can. docs/architecture.md has the same numbers.
#include "between.h"
#include "desktop.h"
#include "other_party.h"
#include "support/statuses.h"

namespace boundary {
namespace {

// What a command costs at most: itself, and the GET RESPONSEs that may follow it.
constexpr int chain = 1 + 64;
// Commands of one object of the file-reading kind.
constexpr int reading = 10'000;
// PINs and deciphering: each command goes out once more after a reset.
constexpr int tries = 2;

enum class Mode {
    playsAlong,      ///< whole answers, in as many pieces, resets and large files as are borne
    oneByteForEver,  ///< 61xx with one byte of data to each command
    nothingForEver,  ///< 61xx without data
    silentRest,      ///< 61xx, and nothing at all to GET RESPONSE
    largeFiles,      ///< each file is 1 MiB
    hugeFiles,       ///< each file is larger than any that is read
    resetForEver,    ///< each command meets a card that was reset
};
constexpr Mode modes[] = {Mode::playsAlong,  Mode::oneByteForEver, Mode::nothingForEver,
                          Mode::silentRest,  Mode::largeFiles,     Mode::hugeFiles,
                          Mode::resetForEver};

// Stands between the driver and a reader with a good card.
class HostileReader {
public:
    explicit HostileReader(PlatformSide& card)
        : between_(card, [this](Between&, const Bytes& command, std::uint8_t* reply,
                                std::uint32_t* replyLength) {
              return transmit(command, reply, replyLength);
          }) {}

    Mode mode = Mode::playsAlong;
    int commands = 0;

private:
    static bool isGetResponse(const Bytes& command) { return command[1] == 0xC0; }
    // Of the sequences that reconnect: SELECT without response, VERIFY, GET DATA, the deciphering.
    static bool isTriedAgain(const Bytes& command) {
        switch (command[1]) {
            case 0xA4:
                return command[3] == 0x0C;
            case 0x20:
            case 0xCB:
                return true;
            case 0x22:
                return command[3] == 0xB8;
            default:
                return command[1] == 0x2A && command[2] == 0x80;
        }
    }
    // SELECT, VERIFY and MSE SET of those sequences do not ask for the rest of an answer.
    static bool isGathered(const Bytes& command) {
        return !isTriedAgain(command) || command[1] == 0xCB || command[1] == 0x2A;
    }

    std::int32_t transmit(const Bytes& command, std::uint8_t* reply, std::uint32_t* replyLength) {
        ++commands;
        if (mode == Mode::resetForEver) {
            *replyLength = 0;
            return static_cast<std::int32_t>(status::resetCard);
        }
        if (!isGetResponse(command)) current_ = command;
        const bool comesAgain = mode == Mode::playsAlong && isTriedAgain(current_);
        wasReset_ = comesAgain && !wasReset_;
        if (wasReset_) {
            *replyLength = 0;
            return static_cast<std::int32_t>(status::resetCard);
        }
        const Bytes bytes = answer(command);
        std::copy(bytes.begin(), bytes.end(), reply);
        *replyLength = static_cast<std::uint32_t>(bytes.size());
        return 0;
    }

    Bytes answer(const Bytes& command) {
        if (mode == Mode::oneByteForEver) return {0xEE, 0x61, 0x01};
        if (mode == Mode::nothingForEver) return {0x61, 0x01};
        if (mode == Mode::silentRest) return isGetResponse(command) ? Bytes{} : Bytes{0x61, 0x01};
        if (isGetResponse(command) && mode == Mode::playsAlong)
            return ++pieces_ < 64 ? piece() : rest_;
        rest_ = answerOfTheCard(command);
        pieces_ = 0;
        if (mode != Mode::playsAlong || !isGathered(command)) return rest_;
        return piece();
    }
    Bytes piece() {
        Bytes bytes;
        if (rest_.size() > 2) {
            bytes.push_back(rest_.front());
            rest_.erase(rest_.begin());
        }
        bytes.insert(bytes.end(), {0x61, 0x01});
        return bytes;
    }

    // As the good card, but for the size of its files; what a larger file holds more is zeros.
    Bytes answerOfTheCard(const Bytes& command) {
        Bytes bytes(258);
        auto length = static_cast<std::uint32_t>(bytes.size());
        EXPECT_EQ(between_.pass(command, bytes.data(), &length), 0);
        bytes.resize(length);
        const bool isFile =
            command[1] == 0xA4 && command[3] == 0x04 && (command[2] == 0x02 || command[2] == 0x09);
        if (isFile && bytes.size() >= 2 && (bytes.end()[-2] == 0x90 || bytes.end()[-2] == 0x61)) {
            return mode == Mode::hugeFiles
                       ? Bytes{0x62, 0x05, 0x80, 0x03, 0x10, 0x00, 0x01, 0x90, 0x00}
                       : Bytes{0x62, 0x05, 0x80, 0x03, 0x10, 0x00, 0x00, 0x90, 0x00};
        }
        if (command[1] == 0xB0) {
            Bytes chunk = bytes.size() == command.back() + 2u ? bytes : Bytes(command.back() + 2u);
            chunk.end()[-2] = 0x90;
            chunk.end()[-1] = 0x00;
            return chunk;
        }
        if (bytes.size() == 2 && bytes[0] == 0x61) {
            const Bytes gathered = answerOfTheCard({0x00, 0xC0, 0x00, 0x00, bytes[1]});
            return gathered;
        }
        return bytes;
    }

    Between between_;
    Bytes current_;
    Bytes rest_;
    int pieces_ = 0;
    bool wasReset_ = false;
};

bool isAskedForLimitsByGetData(const PlatformSide& card) {
    return const_cast<PlatformSide&>(card).reader.card().generation().knowsGetData;
}

// An entry point, and how many commands it may cost.
struct Row {
    const char* entryPoint;
    int (*most)(const PlatformSide& card);
    bool (*fits)(const PlatformSide& card);
    DWORD (*act)(PlatformSide& card);
    BYTE container = 0;  ///< whose key is open
};

bool always(const PlatformSide&) {
    return true;
}
bool hasEcKey(const PlatformSide& card) {
    return card.isEcKey(0);
}
bool hasThirdKey(const PlatformSide& card) {
    return card.containers() > 2;
}
bool hasRsaKey(const PlatformSide& card) {
    return card.rsaContainer() < card.containers();
}

// PIN 1 lies in the root, PIN 4 in a directory below it.
template <PIN_ID pinId>
constexpr int selections = pinId == 1 ? 1 : 2;
template <PIN_ID pinId>
constexpr int verification = tries*(selections<pinId> + 1);
template <PIN_ID pinId>
int mostOfAPin(const PlatformSide& card) {
    if (!isAskedForLimitsByGetData(card)) return reading + verification<pinId>;
    return tries * (1 + selections<pinId> + chain) + verification<pinId>;
}
template <PIN_ID pinId>
DWORD enterPin(PlatformSide& card) {
    return card.authenticate(pinId, card.pin(pinId == 1 ? virtual_card::PinRole::Authentication
                                                        : virtual_card::PinRole::Signature));
}

// A wrong PIN 4 and the right one. Behind the wrong one the card is asked whether the PIN is
// blocked, by a VERIFY without data.
int mostOfTheDialog(const PlatformSide& card) {
    return 2 * mostOfAPin<4>(card) + verification<4>;
}
DWORD enterPinsInTheDialog(PlatformSide& card) {
    const std::string right = card.pin(virtual_card::PinRole::Signature);
    Desktop desktop;
    EXPECT_TRUE(Desktop::isUp());
    desktop.script->pins[0] = "98765432";
    desktop.script->pins[1] = right.c_str();
    return card.data.pfnCardAuthenticateEx(&card.data, 4, 0, nullptr, 0, nullptr, nullptr, nullptr);
}

// With PSO HASH on the cards that want it.
int mostOfASignature(const PlatformSide& card) {
    return (hasThirdKey(card) ? 3 : 2) * chain;
}
template <BYTE container>
DWORD sign(PlatformSide& card) {
    return card.signMessage(container, "text").status;
}

Bytes rsaBlock;
BYTE secretIndex = 0;

const Row rows[] = {
    {"CardAcquireContext", [](const PlatformSide&) { return reading; }, always,
     [](PlatformSide& card) { return card.acquire(); }},
    {"CardAuthenticateEx, PIN 1", mostOfAPin<1>, always, enterPin<1>},
    {"CardAuthenticateEx, PIN 4", mostOfAPin<4>, always, enterPin<4>},
    {"CardAuthenticateEx, dialog", mostOfTheDialog, always, enterPinsInTheDialog},
    {"CardSignData, container 0", mostOfASignature, always, sign<0>},
    {"CardSignData, container 1", mostOfASignature, always, sign<1>, 1},
    {"CardSignData, container 2", mostOfASignature, hasThirdKey, sign<2>, 2},
    {"CardRSADecrypt", [](const PlatformSide&) { return tries * (1 + 2 * chain); }, hasRsaKey,
     [](PlatformSide& card) { return card.decrypt(card.rsaContainer(), rsaBlock).status; }},
    {"CardConstructDHAgreement", [](const PlatformSide&) { return tries * (2 + 1 + chain); },
     hasEcKey, [](PlatformSide& card) { return card.agreeWithItself(&secretIndex); }},
    {"CardDeriveKey", [](const PlatformSide&) { return tries * 2; }, hasEcKey,
     [](PlatformSide& card) { return card.derive(secretIndex).status; }},
    {"CardDestroyDHAgreement", [](const PlatformSide&) { return tries * 2; }, hasEcKey,
     [](PlatformSide& card) {
         return card.data.pfnCardDestroyDHAgreement(&card.data, secretIndex, 0);
     }},
};

class HostileCard : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(EveryCard, HostileCard, ::testing::ValuesIn(allCardTypes()));

// How many commands an entry point sends to a card that was good up to there.
int commandsOf(const Row& row, int cardType, Mode mode) {
    PlatformSide card(cardType);
    if (row.act != rows[0].act) {
        card.acquireOrFail();
        card.openKey(0);
        if (hasEcKey(card)) {
            EXPECT_EQ(card.agreeWithItself(&secretIndex), 0u);
        }
        if (hasRsaKey(card)) {
            card.openKey(card.rsaContainer());
            rsaBlock = encryptedTo(card.certificate(card.rsaContainer()), "a secret");
        }
        if (row.container != 0) card.openKey(row.container);
    }
    HostileReader hostile(card);
    hostile.mode = mode;
    row.act(card);
    return hostile.commands;
}

TEST_P(HostileCard, CostsNoMoreCommandsThanAreComputed) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.entryPoint);
        PlatformSide card(GetParam());
        if (!row.fits(card)) continue;
        const int most = row.most(card);
        for (const Mode mode : modes) {
            SCOPED_TRACE(int(mode));
            const int commands = commandsOf(row, GetParam(), mode);
            EXPECT_LE(commands, most);
            // So low that nothing was computed too high.
            EXPECT_TRUE(mode != Mode::playsAlong || commands == most) << commands;
        }
    }
}

// To a command object the end of its patience is a failed transmission, with a line in the log.
TEST(HostileCardOfType3, IsToldOfInTheLogWhereACommandObjectGivesUp) {
    PlatformSide card(3);
    card.acquireOrFail();
    DriverLog log;
    {
        const Between between(card, [](Between& reader, const Bytes& command, std::uint8_t* reply,
                                       std::uint32_t* replyLength) {
            constexpr BYTE getDataIns = 0xCB;
            constexpr BYTE getResponseIns = 0xC0;
            if (command[1] != getDataIns && command[1] != getResponseIns) {
                return reader.pass(command, reply, replyLength);
            }
            reply[0] = 0x61;
            reply[1] = 0x01;
            *replyLength = 2;
            return std::int32_t{0};
        });
        enterPin<1>(card);
    }
    const KelmoraID::testing::LogLine line{"Transmit",
                                           "ERROR: Failed to transmit an apdu. Tried reconnecting: "
                                           "false. Error: 0x-7fefffe1"};
    const auto lines = log.file();
    EXPECT_NE(std::ranges::find(lines, line), lines.end());
}

TEST_P(HostileCard, IsAskedNothingByTheOtherEntryPoints) {
    PlatformSide card(GetParam());
    card.acquireOrFail();
    const DWORD before = static_cast<DWORD>(card.reader.exchanges().size());
    card.readFile("mscp", "kxc00");
    card.listFiles("mscp");
    card.property(WIDE_TEXT("PIN Information"), 1);
    card.containerProperty(0, WIDE_TEXT("PIN Identifier"));
    card.publicKey(0);
    card.release();
    EXPECT_EQ(card.reader.exchanges().size(), before);
}

}  // namespace
}  // namespace boundary
