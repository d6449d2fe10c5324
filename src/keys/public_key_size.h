// The size of a public key, as the list of containers tells it.
#pragma once

#include "platform/minidriver.h"

namespace KelmoraID {

/// The size of a certificate's public key in bits, as the container's record holds it.
/// An EC key: four times the bytes of the point less its mark, so that P-521 is reported with 528
/// bits. An RSA key: the bit length of its modulus; 0 if the key cannot be read.
/// @param card  whose allocator has the decoded key for a while
WORD publicKeyBits(const CARD_DATA& card, PCCERT_CONTEXT certificate);

}  // namespace KelmoraID
