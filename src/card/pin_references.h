// Which PIN reference a PinId means on each generation of card.
#pragma once

#include <optional>

#include "card/pin_types.h"
#include "platform/win32.h"
#include "profiles/card_type.h"

namespace KelmoraID {

/// The reference byte of a PIN (ISO/IEC 7816-4, 11.5.6), as GET DATA uses it; VERIFY adds 80 to it
/// on CardType 6.
/// @return no value for a PinId outside 1 to 4
std::optional<BYTE> pinReferenceOf(PinId pinId, CardType cardType);

}  // namespace KelmoraID
