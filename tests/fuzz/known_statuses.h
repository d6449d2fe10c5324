// The statuses that a call of the product may end with, whatever it was given.
#pragma once

#include "platform/minidriver.h"

namespace fuzz {

/// Whether the product may end a call of the table or the export with it.
bool isKnownStatus(DWORD status);

}  // namespace fuzz
