// How long a PIN may be, in bytes. Some cards tell by GET DATA (CardOperations::readPinProperties),
// the others in their authentication object directory.
#pragma once

#include <cstdint>

#include "platform/win32.h"

namespace KelmoraID {

/// The limits for a card that tells none.
inline constexpr BYTE defaultPinMinimum = 4;
inline constexpr BYTE defaultPinMaximum = 12;

/// Whether minimum <= length <= maximum. Nothing is sent.
bool isPinLengthInRange(BYTE minimum, BYTE maximum, std::uint32_t length);

}  // namespace KelmoraID
