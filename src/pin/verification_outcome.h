// What both ways to a PIN, the external dialog and the platform's prompt, have in common around one
// attempt: the guard, the attempts handed to the caller, and the end with a refused PIN. All lines
// stand under the entry point's name.
#pragma once

#include <cstdint>
#include <optional>

#include "pin/attempt_verify_pin.h"

namespace KelmoraID {

inline constexpr const char* authenticationScope = "CardAuthenticateEx";

struct GuardedAttempt {
    bool aborted;  ///< something was thrown; the log has its line, and there is no outcome
    std::optional<PinVerifyResult> outcome;
};

/// One attempt inside the guard that catches everything, thrown pointers included.
GuardedAttempt attemptGuarded(const AttemptVerifyPin& attemptVerifyPin, const BYTE* pin,
                              DWORD length);

/// Stores the attempts where the caller wants them, with a line; -1 arrives as it is. Does nothing
/// for NULL.
void tellAttempts(PDWORD pcAttemptsRemaining, std::int32_t attemptsRemaining);

/// The exit line that names both statuses, and the status that holds: SCARD_W_CHV_BLOCKED for a
/// blocked PIN, else SCARD_W_WRONG_CHV.
DWORD exitWithRefusedPin(PinVerifyResult::Status status);

}  // namespace KelmoraID
