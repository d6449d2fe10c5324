// The generations of FINEID cards that the system tells apart.
#pragma once

#include <cstdint>

namespace KelmoraID {

/// Worked out from the ATR on each use and never stored. The values 3 to 8 are supported cards;
/// they steer PIN references and length rules, the ESIGN directory select, and signing. The value 0
/// is never produced.
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

/// Whether cards of this type have a second signing key: types 4, 5 and 7.
constexpr bool hasSecondSigningKey(CardType type) {
    return type == CardType::type4 || type == CardType::type5 || type == CardType::type7;
}

}  // namespace KelmoraID
