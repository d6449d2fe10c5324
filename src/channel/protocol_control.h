// Which protocol control record a card needs.
#pragma once

#include "platform/win32.h"

namespace KelmoraID {

/// Asks the platform for the card's active protocol and gives a copy of the T=0 record for T=0, and
/// of the T=1 record for any other answer. A failed call, or a handle of 0, thus means T=1.
SCARD_IO_REQUEST protocolControlOf(SCARDHANDLE hCard);

}  // namespace KelmoraID
