// The recognition of a card by its ATR.
#pragma once

#include "platform/minidriver.h"
#include "profiles/card_type.h"

namespace KelmoraID {

/// The type of the card by the record's ATR: a card is accepted if its ATR equals one of the table,
/// or equals one with any one byte behind it.
CardType cardTypeOf(const CARD_DATA* pCardData);

}  // namespace KelmoraID
