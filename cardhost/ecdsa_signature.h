// The two forms of an ECDSA signature.
#pragma once

#include "bytes.h"

namespace cardhost {

/// The ECDSA-Sig-Value (RFC 3279, 2.2.3) of r and s in a row, both of the same length.
Bytes ecdsaSigValue(ByteView rAndS);

}  // namespace cardhost
