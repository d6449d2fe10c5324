// The list of key containers: one record for each key of the card, with a name that is derived from
// the card and not stored on it, so that the same card has the same containers on every machine.
#pragma once

#include <string>

#include "session/card_context.h"

namespace KelmoraID {

/// Fills the context's containers from its identifier and its certificates.
void listContainers(const CARD_DATA& card, CardContext& context);

/// The name of a container: a GUID made of the SHA-1 of the text, in the manner of a version 5 UUID
/// (RFC 4122, 4.3) without its name space, and with the byte 80 in place of the ninth byte.
/// @param wszGuid  gets the braced form, 38 characters and a terminator; it stays as it was when a
///                 step of the platform fails, without a report
void containerGuidName(const std::string& text, WCHAR (&wszGuid)[40]);

/// The size of a certificate's public key in bits, as the container's record holds it.
/// An EC key: four times the bytes of the point less its mark, so that P-521 is reported with 528
/// bits. An RSA key: the bit length of its modulus; 0 if the key cannot be read.
WORD publicKeyBits(const CARD_DATA& card, PCCERT_CONTEXT certificate);

}  // namespace KelmoraID
