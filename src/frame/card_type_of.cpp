#include "frame/card_type_of.h"

#include <array>
#include <span>
#include <string_view>

#include "diag/byte_texts.h"

namespace KelmoraID {
namespace {

struct AtrRow {
    std::string_view key;  ///< lower-case hexadecimal without separators
    CardType cardType;
};

constexpr std::array<AtrRow, 6> atrTable{{
    {"3bdd96008031fe450031b8640429ecc1739401808248", CardType::type3},
    {"3b7f9600008031b865b085050011122460829000", CardType::type4},
    {"3b7f9600008031b865b08504021b1200f6829000", CardType::type5},
    {"3bdf96008031fe450031b8640429ecc173940180829000", CardType::type6},
    {"3b7f9600008031b865b0850300ef1200f6829000", CardType::type7},
    {"3bdd96008031fe450031b8640429ecc1739401808349", CardType::type8},
}};

CardType lookup(std::string_view atr) {
    for (const AtrRow& row : atrTable) {
        if (row.key == atr) return row.cardType;
    }
    return CardType::unknown;
}

// The longest ATR that ISO/IEC 7816-3 knows has 33 bytes; a longer one is in no table. Cutting what
// is printed keeps a strange length from being read.
constexpr DWORD longestAtr = 33;

}  // namespace

CardType cardTypeOf(const CARD_DATA* pCardData) {
    if (pCardData->cbAtr == 0) return CardType::noAtr;
    if (pCardData->cbAtr > longestAtr) return CardType::unknown;
    const std::string text = bytesToHex(std::span<const BYTE>(pCardData->pbAtr, pCardData->cbAtr));
    const CardType exact = lookup(text);
    if (exact != CardType::unknown) return exact;
    return lookup(std::string_view(text).substr(0, text.size() - 2));
}

}  // namespace KelmoraID
