// VERIFY and what the card's answer means. Nothing is kept: the state of a PIN lives on the card,
// and is asked for by a VERIFY without data.
#include <fmt/format.h>

#include "apdu/verify.h"
#include "card/card_operations.h"
#include "card/thrown_pointer.h"
#include "log/logger.h"

namespace KelmoraID {
namespace {

constexpr std::uint16_t wrongLength = 0x6700;

PinVerifyResult::Status statusOf(const FINEID::Verify& verify) {
    if (verify.verified()) return PinVerifyResult::verified;
    return verify.blocked() ? PinVerifyResult::blocked : PinVerifyResult::wrong;
}

// The card's word on a PIN, by a VERIFY without data. Every failure is false.
bool pinHasStatus(CardOperations& card, PinId pinId, PinVerifyResult::Status status) {
    try {
        return card.VerifyPin(pinId, std::nullopt).value().status == status;
    } catch (const std::exception& exception) {
        logError(fmt::format("VerifyPin failed. Exception: {}", exception.what()));
    } catch (...) {  // A runtime error thrown as a pointer, among others.
        logError("VerifyPin failed with an unknown exception.");
    }
    return false;
}

}  // namespace

std::optional<PinVerifyResult> CardOperations::VerifyPin(PinId pinId,
                                                         std::optional<ByteVector> pin) {
    const BYTE reference = pinReference(pinId, true).value();
    FINEID::Verify verify(reference, cardType, std::move(pin));
    if (verify.Transmit(hScard, sendPci).success()) {
        return PinVerifyResult{verify.attemptsRemaining(), statusOf(verify)};
    }
    if (verify.Sw1Sw2() == wrongLength) return std::nullopt;
    logDebug("Error: Failed to verify PIN. Exception.");
    throwPointer("Failed to verify PIN.");
}

bool CardOperations::isPinVerified(PinId pinId) {
    return pinHasStatus(*this, pinId, PinVerifyResult::verified);
}

bool CardOperations::isPinBlocked(PinId pinId) {
    return pinHasStatus(*this, pinId, PinVerifyResult::blocked);
}

}  // namespace KelmoraID
