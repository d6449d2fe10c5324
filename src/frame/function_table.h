// The table of entry points in CARD_DATA.
#pragma once

#include "platform/minidriver.h"

namespace KelmoraID {

/// Fills the record's slots, each with its entry point behind the guard of the boundary.
/// @param ecCard  whether the authentication certificate has an EC key: only then are the three
///                slots of agreement and derivation filled, otherwise they are NULL
void fillFunctionTable(CARD_DATA& card, bool ecCard);

}  // namespace KelmoraID
