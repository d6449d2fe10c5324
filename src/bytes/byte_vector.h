// The byte vector of the system: a standard vector of the platform's BYTE.
#pragma once

#include <vector>

#include "platform/win32.h"

namespace KelmoraID {

using ByteVector = std::vector<BYTE>;

}  // namespace KelmoraID
