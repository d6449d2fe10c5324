// The companion application's PIN dialog at work: shown again until the PIN is right, the card has
// no attempts left, the user gives up, or something fails.
#pragma once

#include "pin/attempt_verify_pin.h"

namespace KelmoraID {

/// Loads the dialog library for the length of the call and asks for a PIN as often as it takes.
/// @param pcAttemptsRemaining  may be NULL; written only before the dialog is shown again after a
///                             wrong PIN
/// @return the status of CardAuthenticateEx; a dialog ended without a PIN is SCARD_W_WRONG_CHV
DWORD runPinDialog(PinId pinId, PDWORD pcAttemptsRemaining, const CardContext& context,
                   CardOperations& card, const AttemptVerifyPin& attemptVerifyPin);

}  // namespace KelmoraID
