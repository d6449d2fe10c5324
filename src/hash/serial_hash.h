// The digest that turns a long serial number into the card's identity.
#pragma once

#include <string>

#include "bytes/byte_vector.h"

namespace KelmoraID {

/// The first 16 bytes of the SHA-256 (FIPS 180-4) of the bytes of the string.
/// @return 16 bytes; all zero when the platform's hash fails, with a line on the ERROR channel that
///         names the failing call and the last system error. The caller is not told.
ByteVector hashOfSerial(const std::string& serial);

}  // namespace KelmoraID
