#include "pin/attempt_verify_pin.h"

#include <stdexcept>

#include "card/card_transaction_handler.h"
#include "card/pin_limits.h"
#include "card/thrown_pointer.h"
#include "log/logger.h"
#include "profiles/card_profiles.h"
#include "session/card_type_of.h"

namespace KelmoraID {
namespace {

constexpr std::size_t paddedPinLength = 12;

// By the card's authentication object directory: the cards that do not answer GET DATA.
bool isLengthAllowedByDirectories(SCARDHANDLE hScard, PinId pinId, DWORD length) {
    CardTransactionHandler handler(hScard);
    auto [minimum, maximum] = handler.GetPinMinMaxLength(pinId == PinId::user ? 0 : 1);
    if (minimum == 0 || maximum == 0) {
        logDebug(
            "lambda attemptVerifyPin: Error: Could not get PIN min and/or max values from card. "
            "Using default values.");
        minimum = defaultPinMinimum;
        maximum = defaultPinMaximum;
    }
    logDropped("lambda-attemptVerifyPin: min, max: ({}, {})", minimum, maximum);
    return isPinLengthInRange(minimum, maximum, length);
}

bool isLengthAllowedByGetData(CardOperations& card, PinId pinId, DWORD length) {
    try {
        return card.isPinLengthValid(pinId, length);
    } catch (...) {
        logToFile("CardAuthenticateEx", "Pin length validation failed with an unknown exception.");
    }
    throwPointer("Failed to verify PIN.");
}

}  // namespace

bool AttemptVerifyPin::isLengthAllowed(DWORD length) const {
    if (context_.hasSecondSignCert || profileOf(cardTypeOf(&cardData_)).pinLimitsInDirectory) {
        return isLengthAllowedByDirectories(cardData_.hScard, pinId_, length);
    }
    return isLengthAllowedByGetData(card_, pinId_, length);
}

std::optional<PinVerifyResult> AttemptVerifyPin::operator()(const BYTE* pin, DWORD length) const {
    logDropped("Entering lambda attemptVerifyPin.");
    const bool lengthAllowed = isLengthAllowed(length);  // Asked of the card before all else.
    if (pin == nullptr || !lengthAllowed) {
        logDebug("lambda attemptVerifyPin: Error.");
        return std::nullopt;
    }
    ByteVector bytes(pin, pin + length);
    if (context_.hasSecondSignCert) {
        // The text is this system's own, the same whatever the runtime library says.
        if (bytes.size() > paddedPinLength) throw std::length_error("vector too long");
        bytes.resize(paddedPinLength, 0);
    }
    return card_.VerifyPin(pinId_, std::move(bytes));
}

}  // namespace KelmoraID
