// One attempt with one PIN in hand: the length against the card's limits, the form in which the PIN
// goes to the card, and VERIFY.
#pragma once

#include <optional>

#include "card/card_operations.h"
#include "session/card_context.h"

namespace KelmoraID {

/// Made by CardAuthenticateEx for its PinId and called for each PIN that it has in hand. Holds
/// references only.
class AttemptVerifyPin {
public:
    AttemptVerifyPin(const CardContext& context, const CARD_DATA& cardData, const PinId& pinId,
                     CardOperations& card)
        : context_(context), cardData_(cardData), pinId_(pinId), card_(card) {}

    /// @param pin     the PIN bytes, sent as they are; may be NULL
    /// @param length  their number
    /// @return no value when the length is not within the card's limits, the pointer is NULL (no
    ///         VERIFY was sent then) or the card answered 6700
    /// @throws whatever VerifyPin throws; a pointer to std::runtime_error "Failed to verify PIN."
    ///         when the limits could not be read by GET DATA; std::length_error for more than 12
    ///         bytes on a card that wants PINs padded to 12
    std::optional<PinVerifyResult> operator()(const BYTE* pin, DWORD length) const;

private:
    bool isLengthAllowed(DWORD length) const;

    const CardContext& context_;
    const CARD_DATA& cardData_;
    const PinId& pinId_;
    CardOperations& card_;
};

}  // namespace KelmoraID
