// The card's security state: the PINs with their tries left and whether each was verified since
// the last reset, and the security environment that MSE SET writes for the operations to come.
#pragma once

#include <optional>

#include "virtual_card/generations.h"

namespace virtual_card {

struct PinState {
    const PinRow* row;
    unsigned triesLeft;  ///< kept for good: it survives power cycles
    bool verified = false;

    bool blocked() const { return triesLeft == 0; }
};

/// What MSE SET chose for COMPUTE DIGITAL SIGNATURE.
struct SignatureEnvironment {
    const KeyRow* key;
    std::uint8_t algorithm;  ///< high nibble the hash, low nibble the scheme
};

struct SecurityEnvironment {
    std::optional<SignatureEnvironment> signature;
    const KeyRow* decipherKey = nullptr;  ///< what MSE SET chose for DECIPHER
    Bytes hash;                           ///< given by PSO HASH; empty when there is none
};

class SecurityState {
public:
    explicit SecurityState(const Generation& generation);

    SecurityEnvironment environment;

    std::vector<PinState>& pins() { return pins_; }
    const std::vector<PinState>& pins() const { return pins_; }

    /// The PIN that VERIFY reaches by this reference in this directory, or nullptr.
    PinState* findPin(std::uint16_t directory, std::uint8_t reference);
    /// The PIN that GET DATA reaches in this directory, or nullptr.
    PinState* findPinByDataReference(std::uint16_t directory, std::uint8_t reference);
    PinState& pinOf(PinRole role);

    /// Compares a PIN with the card's. A right one opens it and gives all tries back; a wrong one
    /// closes it and costs one. A blocked PIN is not compared. @return whether it was right
    bool verify(PinState& pin, ByteView value, std::size_t blockLength);

    /// As a reset leaves it: no PIN verified, no environment. The tries stay.
    void reset();

private:
    std::vector<PinState> pins_;
};

}  // namespace virtual_card
