#include "card/pin_references.h"

#include "card/card_operations.h"
#include "profiles/card_profiles.h"

namespace KelmoraID {

std::optional<BYTE> pinReferenceOf(PinId pinId, CardType cardType) {
    switch (pinId) {
        case PinId::user:
            return profileOf(cardType).userPin;
        case PinId::administrator:
        case PinId::unblock:
            return profileOf(cardType).administratorPin;
        case PinId::signature:
            return profileOf(cardType).signaturePin;
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
