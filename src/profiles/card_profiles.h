// The supported cards, one row a type: how a card is recognised, and everything in which the types
// differ. All other code asks the row; no type is compared elsewhere. What goes by the context's
// hasSecondSignCert instead, as it was settled at acquisition, has no column here.
#pragma once

#include <optional>
#include <span>

#include "platform/win32.h"
#include "profiles/card_type.h"

namespace KelmoraID {

struct CardProfile {
    CardType type;
    std::span<const BYTE>
        atr;  ///< as the card sends it (ISO/IEC 7816-3); empty where none is known

    /// Whether there is a third certificate, with a second signing key.
    bool hasSecondSigningKey;

    // PINs: the references of GET DATA and VERIFY (ISO/IEC 7816-4, 11.5.6)
    // --------------------------
    BYTE userPin;
    BYTE administratorPin;  ///< the unblock PIN has the same reference
    BYTE signaturePin;
    BYTE verifyOffset;  ///< what VERIFY adds to the reference
    /// Whether a PIN's limits are in the authentication object directory and not to be had by GET
    /// DATA, on a card without a second signing key. Those with one go by the context.
    bool pinLimitsInDirectory;

    /// Whether SELECT of the ESIGN directory goes out with P1 00 in place of 01.
    bool selectsEsignUnderMasterFile;

    // Keys
    // -----------------------------------------------------------------------------------------
    bool hashesBeforeSigning;  ///< whether PSO HASH comes before the signature command
    /// Le of the signature command: the length of a raw ECDSA signature on the card's curve; 00
    /// asks for what there is.
    BYTE signatureLe;
    /// Whether a byte 00 goes ahead of the point in ECDH, on a card without a second signing key.
    /// Those with one go by the context.
    bool zeroBeforePoint;
};

/// The supported cards, in the order of their types.
std::span<const CardProfile> supportedCards();

/// Whether the type is that of a supported card.
bool isSupported(CardType type);

/// The row of a type. A type that is no supported card has the row of an ordinary two-key card
/// without an ATR: an entry point may be called with a record whose ATR has changed meanwhile.
const CardProfile& profileOf(CardType type);

/// The supported card with that ATR, or with an ATR that only lacks the last byte of it (the check
/// byte TCK of ISO/IEC 7816-3, which some readers add).
/// @return NULL for any other ATR, an empty one included
const CardProfile* findCardByAtr(std::span<const BYTE> atr);

}  // namespace KelmoraID
