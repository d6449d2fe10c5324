// What the files for Windows share beside the operations that every system has.
#pragma once

#include <string>

#include "os.h"
#include "platform/win32.h"

namespace cardhost::os {

/// The system's own words for an error code; the number where it has none.
std::string reasonOf(DWORD error);

}  // namespace cardhost::os
