// How many tries a PIN has left, by the query that costs none: VERIFY without data (ISO/IEC 7816-4,
// 11.5.6).
#pragma once

#include <functional>
#include <vector>

#include "bytes.h"
#include "doctor/card_facts.h"

namespace cardhost::doctor {

/// Sends a command and gives the whole reply; throws a Failure where the card does not answer.
using SendCommand = std::function<Bytes(ByteView command)>;

/// The PINs of authentication and of signature on a card with this ATR; none for a card that is
/// none of ours. Selects directories of the card, and sends no PIN.
std::vector<PinTries> pinTries(ByteView atr, const SendCommand& send);

}  // namespace cardhost::doctor
