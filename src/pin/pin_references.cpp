#include "pin/pin_references.h"

#include <algorithm>
#include <array>

#include "card/card_operations.h"

namespace KelmoraID {
namespace {

struct References {
    BYTE user;
    BYTE administratorAndUnblock;
    BYTE signature;
};

struct ReferencesOfCard {
    CardType cardType;
    References references;
};

constexpr std::array<ReferencesOfCard, 5> referencesByCard{{
    {CardType::type4, {0x11, 0x83, 0x82}},
    {CardType::type5, {0x11, 0x83, 0x82}},
    {CardType::type7, {0x11, 0x83, 0x82}},
    {CardType::type6, {0x01, 0x02, 0x01}},
    {CardType::type8, {0x03, 0x12, 0x04}},
}};
constexpr References referencesOfAnyOtherCard{0x11, 0x12, 0x95};

References referencesOf(CardType cardType) {
    const auto* row = std::find_if(
        referencesByCard.begin(), referencesByCard.end(),
        [cardType](const ReferencesOfCard& entry) { return entry.cardType == cardType; });
    return row == referencesByCard.end() ? referencesOfAnyOtherCard : row->references;
}

}  // namespace

std::optional<BYTE> pinReferenceOf(PinId pinId, CardType cardType) {
    switch (pinId) {
        case PinId::user:
            return referencesOf(cardType).user;
        case PinId::administrator:
        case PinId::unblock:
            return referencesOf(cardType).administratorAndUnblock;
        case PinId::signature:
            return referencesOf(cardType).signature;
    }
    return std::nullopt;  // The platform gives the number, so that others occur.
}

std::optional<BYTE> CardOperations::pinReference(PinId pinId, bool selectApplication) {
    const std::optional<BYTE> reference = pinReferenceOf(pinId, cardType);
    if (reference && selectApplication) {
        if (pinId == PinId::signature) {
            selectEsignDirectory();
        } else {
            selectRoot();
        }
    }
    return reference;
}

}  // namespace KelmoraID
