// How many tries a PIN has left, by the query that costs none: VERIFY without data (ISO/IEC 7816-4,
// 7.5.6). It goes to the card past the driver, which offers no such question.
#pragma once

#include <optional>

#include "card_source.h"

namespace cardhost {

/// The tries left of PIN 1 or 4; nothing where the card is of no known type or does not tell (which
/// is so for a PIN that is verified).
std::optional<unsigned> triesLeft(const ConnectedCard& card, PIN_ID pin, const Trace& trace);

}  // namespace cardhost
