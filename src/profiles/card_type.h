// The generations of FINEID cards that the system tells apart.
#pragma once

#include <cstdint>

namespace KelmoraID {

/// Worked out from the ATR on each use and never stored. The values from 3 on are supported cards;
/// in what they differ is told by their rows (profiles/card_profiles.h). The value 0 is never
/// produced.
enum class CardType : std::uint32_t {
    unknown = 1,  ///< the ATR is not in the table
    noAtr = 2,    ///< there is no ATR
    type3 = 3,    ///< two certificates
    type4 = 4,    ///< three certificates: a second signing key
    type5 = 5,    ///< three certificates: a second signing key
    type6 = 6,    ///< two certificates
    type7 = 7,    ///< three certificates: a second signing key
    type8 = 8,    ///< two certificates
};

}  // namespace KelmoraID
