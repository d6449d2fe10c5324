// The reading of the card at acquisition: its identity and its certificates, once, and the objects
// that later entry points answer from.
#pragma once

#include "platform/minidriver.h"

namespace KelmoraID {

/// Reads the card behind hScard and leaves a CardContext in pvVendorSpecific.
/// @return 0, or the status of the step that failed: SCARD_E_UNEXPECTED (no serial number or
/// label),
///         SCARD_E_FILE_NOT_FOUND (a certificate missing), ERROR_NOT_ENOUGH_MEMORY (a certificate
///         that the platform does not take; the half-filled CardContext then stays)
DWORD readCard(PCARD_DATA pCardData);

}  // namespace KelmoraID
