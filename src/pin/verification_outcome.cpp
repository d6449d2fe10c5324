#include "pin/verification_outcome.h"

#include <fmt/format.h>

#include "log/logger.h"

namespace KelmoraID {

GuardedAttempt attemptGuarded(const AttemptVerifyPin& attemptVerifyPin, const BYTE* pin,
                              DWORD length) {
    try {
        return {false, attemptVerifyPin(pin, length)};
    } catch (...) {
        logToFile(authenticationScope, "Failed to verify PIN. Aborting...");
        return {true, std::nullopt};
    }
}

void tellAttempts(PDWORD pcAttemptsRemaining, std::int32_t attemptsRemaining) {
    if (pcAttemptsRemaining == nullptr) return;
    *pcAttemptsRemaining = static_cast<DWORD>(attemptsRemaining);
    logDebug(fmt::format("CMR_80: PIN attempts remaining: {}.", attemptsRemaining));
}

DWORD exitWithRefusedPin(PinVerifyResult::Status status) {
    constexpr auto wrong = static_cast<DWORD>(SCARD_W_WRONG_CHV);
    constexpr auto blocked = static_cast<DWORD>(SCARD_W_CHV_BLOCKED);
    // quirk: line-of-two-statuses. It leaves open which of the two it is.
    logToFile(authenticationScope,
              "Exiting the function, with status code: '{:#010x}' or '{:#010x}'", wrong, blocked);
    return status == PinVerifyResult::blocked ? blocked : wrong;
}

}  // namespace KelmoraID
