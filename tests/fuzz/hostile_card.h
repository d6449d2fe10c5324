// A card that means harm, behind the card seam. The input says, exchange by exchange, what it does:
// answer honestly (a virtual card stands behind it), change or cut an honest answer, say something
// of its own, tell lengths that are not so, fail as PC/SC fails, or serve a file of its own.
//
// It checks its caller as well: the handle, the form of the command, and that the room for the
// reply is really there.
#pragma once

#include <optional>

#include "fuzz_input.h"
#include "virtual_card/virtual_card.h"
#include "virtual_card/winscard/card_seam.h"

namespace fuzz {

/// What the card does at one exchange, as the first byte of a step of the input says. Seeds are
/// written with these names (make_corpus.cpp), so a new one goes to the end.
enum class Deed : std::uint8_t {
    Honest,
    ChangeByte,   ///< place (2), change (1)
    OtherStatus,  ///< status word (2): the honest data with another status word
    OwnData,      ///< block: these bytes and 9000
    OwnReply,     ///< block: these bytes, whatever they are
    MoreWaiting,  ///< block, SW2: these bytes and 61xx
    Fail,         ///< code, block left in the buffer, length told (4): not carried out
    ClaimLength,  ///< length told (4): honest bytes
    Cut,          ///< bytes left (1): an honest answer's front
    LoseReply,    ///< code: carried out, no answer
    StateSize,    ///< size (4): control parameters of a file of that size
    ServeFile,    ///< longBlock: from now on the file that is selected has this content
    HonestRun,    ///< count (1): so many honest answers more
};
inline constexpr std::size_t deedCount = 13;

/// What it does when the input is at its end.
/// ForEver starts over like FromTheStart, and for far longer; one value of its own and rare, since
/// such a run takes a second.
enum class AtEnd : std::uint8_t { Honest, Removed, FromTheStart, ForEver = 0xEE };

/// PC/SC codes as readers give them.
inline constexpr std::uint32_t readerCodes[] = {
    0x80100003, 0x80100008, 0x8010000C, 0x8010000F, 0x80100010, 0x80100016, 0x80100017,
    0x8010001D, 0x8010001E, 0x8010001F, 0x80100066, 0x80100067, 0x80100068, 0x80100069,
    0x00000001, 0x00000006, 0x00000016, 0x0000001F, 0xFFFFFFFF,
};

class HostileCard {
public:
    /// Takes the generation and AtEnd from the input, a byte each; the steps are what follows.
    explicit HostileCard(FuzzInput input);
    ~HostileCard();
    HostileCard(const HostileCard&) = delete;
    HostileCard& operator=(const HostileCard&) = delete;

    static constexpr std::uintptr_t cardHandle = 0xCA2D;
    static constexpr std::uintptr_t contextHandle = 0xC021;

    const virtual_card::Generation& generation() const { return card_.generation(); }
    const Bytes& atr() const { return card_.atr(); }
    /// How often a PIN came to it.
    int pinsSent() const { return pinsSent_; }

private:
    struct Answer {
        std::uint32_t code = 0;
        Bytes bytes;
        std::optional<std::uint32_t> claimedLength;
    };
    struct ServedFile {
        Bytes content;
        bool isSelected = false;
    };

    std::uint32_t transmit(const Bytes& command, std::uint8_t* reply, std::uint32_t* length);
    std::uint32_t reconnect();
    Answer answer(const Bytes& command);
    Answer answerByDeed(Deed deed, const Bytes& command);
    std::optional<Bytes> serve(const Bytes& command);

    FuzzInput input_;
    virtual_card::VirtualCard card_;
    AtEnd atEnd_;
    std::size_t firstStep_;
    CardSeam seam_{};
    std::optional<ServedFile> file_;
    std::size_t honestLeft_ = 0;
    std::size_t exchanges_ = 0;
    std::size_t getResponsesInARow_ = 0;
    int pinsSent_ = 0;
};

}  // namespace fuzz
