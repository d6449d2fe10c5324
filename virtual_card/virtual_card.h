// A FINEID card in software: command bytes in, reply bytes out. It has files, PINs, keys and
// certificates of its own and refuses what a card refuses.
//
// Nothing of the minidriver is in it, so that no mistake can hide on both sides.
#pragma once

#include <string>

#include "virtual_card/card_state.h"

namespace virtual_card {

class VirtualCard {
public:
    explicit VirtualCard(const Generation& generation);

    /// Carries out one command APDU. @return the data and the status word; never empty
    Bytes transmit(ByteView command);

    /// Power-on or warm reset: no PIN is verified, nothing is selected but the master file. Tries
    /// stay as they are.
    void reset() { state_.reset(); }

    /// The answer to reset.
    const Bytes& atr() const { return atr_; }
    const Generation& generation() const { return state_.generation; }

    unsigned triesLeft(PinRole role) { return state_.security.pinOf(role).triesLeft; }
    bool isVerified(PinRole role) { return state_.security.pinOf(role).verified; }

    /// What a card keeps without power, the tries left of each PIN, as a text of a few lines.
    std::string saveState() const;
    /// Takes such a text. @throws std::runtime_error, the card being unchanged, for a text that
    /// saveState of this generation does not write
    void loadState(const std::string& text);

private:
    Reply carryOut(const Command& command);

    CardState state_;
    Bytes atr_;
};

}  // namespace virtual_card
