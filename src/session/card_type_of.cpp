#include "session/card_type_of.h"

#include "profiles/card_profiles.h"

namespace KelmoraID {
namespace {

// The longest ATR that ISO/IEC 7816-3 knows has 33 bytes; a longer one is in no table. A strange
// length is thus never read.
constexpr DWORD longestAtr = 33;

}  // namespace

CardType cardTypeOf(const CARD_DATA* pCardData) {
    if (pCardData->cbAtr == 0) return CardType::noAtr;
    if (pCardData->cbAtr > longestAtr) return CardType::unknown;
    const CardProfile* card = findCardByAtr({pCardData->pbAtr, pCardData->cbAtr});
    return card != nullptr ? card->type : CardType::unknown;
}

}  // namespace KelmoraID
