// The short-lived object for PIN and decipher sequences. It goes by the card's row, sends command
// objects and throws on failure; every entry point builds its own on the stack. One file holds one
// group of its operations.
//
// Runtime errors of the selections, of the PIN operations and of MSE SET are thrown as pointers
// (thrown_pointer.h), and so the log tells such a failure ("unknown exception") from one of the
// transport.
#pragma once

#include <optional>
#include <utility>

#include "bytes/byte_vector.h"
#include "card/pin_types.h"
#include "profiles/card_type.h"

namespace KelmoraID {

class CardOperations {
public:
    /// Asks the platform for the active protocol; otherwise stores what it is given.
    CardOperations(SCARDHANDLE hScard, CardType cardType);

    // Selections (card_operations.cpp). Each throws a pointer to std::runtime_error on failure.

    /// "Failed to select FINEID application." FineidAid alone, without fallback, no response data.
    void SelectFineidApplication();
    /// "Failed to select root."
    void selectRoot();
    /// "Failed to select parent." No operation calls it.
    void selectParent();
    /// "Failed to select ESIGN directory.", or as selectRoot, which it begins with.
    void selectEsignDirectory();

    // PINs (pin_references.cpp, pin_limits.cpp, pin_verification.cpp)

    /// The PIN's reference on this card, after selecting its directory if selectApplication is
    /// set; no value, and nothing sent, for a PinId outside 1 to 4.
    std::optional<BYTE> pinReference(PinId pinId, bool selectApplication);
    /// The PIN's limits by GET DATA: (maximum, minimum), in bytes. @throws a pointer to
    /// std::runtime_error, "Failed to read PIN properties."; std::bad_optional_access for a PinId
    /// outside 1 to 4; TransmitError
    std::pair<BYTE, BYTE> readPinProperties(PinId pinId);
    /// Whether the length is within the card's limits; reads the card whatever the length.
    bool isPinLengthValid(PinId pinId, std::uint32_t length);
    /// VERIFY with the PIN, or without data to ask for its state. No value: the card refused the
    /// form of the command (6700). @throws a pointer to std::runtime_error, "Failed to verify
    /// PIN.", for any other refusal than a wrong or a blocked PIN; the rest as readPinProperties
    std::optional<PinVerifyResult> VerifyPin(PinId pinId, std::optional<ByteVector> pin);
    /// Whether the card says that the PIN is open, or blocked. Never throw: every failure is false.
    bool isPinVerified(PinId pinId);
    bool isPinBlocked(PinId pinId);

    // Deciphering (decipher_scripts.cpp)

    /// The RSA decipher script, in two chained blocks.
    /// @param data       the block, in the order of the card
    /// @param length     its length in bytes, which may have wrapped
    /// @param dwKeySpec  AT_KEYEXCHANGE for the key of container 0, else that of container 1
    /// @return the message as the card gave it; empty if the length is below 256 or the card gave
    ///         nothing
    /// @throws std::logic_error when the PIN is not verified (6982); std::runtime_error for any
    ///         other refusal; a pointer to one where MSE SET is refused; TransmitError
    ByteVector decipherRsa(const ByteVector& data, std::uint16_t length, DWORD dwKeySpec);
    /// The ECDH decipher script, in one command. @param data the other party's point, as the card
    /// takes it @return the shared secret; empty if the card gave nothing @throws as decipherRsa
    ByteVector decipherEcdh(const ByteVector& data, bool hasSecondSignCert);

private:
    SCARDHANDLE hScard;
    SCARD_IO_REQUEST sendPci;
    CardType cardType;
};

}  // namespace KelmoraID
