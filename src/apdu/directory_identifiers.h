// The two directories whose identifiers are fixed in commands.
#pragma once

#include <array>

#include "platform/win32.h"

namespace KelmoraID {

inline constexpr std::array<BYTE, 2> MfIdentifier{0x3F, 0x00};     ///< the root directory
inline constexpr std::array<BYTE, 2> EsignIdentifier{0x50, 0x16};  ///< the ESIGN directory

}  // namespace KelmoraID
