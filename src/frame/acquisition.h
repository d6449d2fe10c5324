// The acquisition of a card, as the export does it behind the guard of the boundary.
#pragma once

#include "platform/minidriver.h"

namespace KelmoraID {

/// CardAcquireContext (Smart Card Minidriver specification 7.07, section 4.1.1): checks the record,
/// recognises the card, reads it and fills the function table.
/// @return a status; what an acquisition throws passes
DWORD WINAPI acquireContext(PCARD_DATA pCardData, DWORD dwFlags);

}  // namespace KelmoraID
