// The names and meanings of the statuses that a driver or PC/SC answers with.
#pragma once

#include <string>

#include "platform/minidriver.h"

namespace cardhost {

/// "0x8010006B SCARD_W_WRONG_CHV (the PIN is wrong)"; the number alone for one without a name.
std::string statusText(DWORD status);

/// The same without the number; empty for one without a name.
std::string statusMeaning(DWORD status);

}  // namespace cardhost
