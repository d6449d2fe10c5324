// The directories in which a card itself tells the references of its PINs and keys (ISO/IEC
// 7816-15), in a conversation: a call of its own, past the driver, which knows them by the card's
// row. Who writes the row of a new card reads them there.
#pragma once

#include "card_source.h"

namespace cardhost {

/// Reads them, as far as the card lets. Nothing where a recorded card was not asked for them.
/// @return how many were read, or nothing
std::optional<int> askDirectories(const ConnectedCard& card, const Trace& trace);

}  // namespace cardhost
