// The one parser of card data: a scan of TLV elements at one level of a byte vector. It knows tags
// of one byte and lengths of the short form and of the forms 81 and 82 (ISO/IEC 8825-1, 8.1); it
// never descends, and every other form ends it.
#pragma once

#include <optional>
#include <span>

#include "bytes/byte_vector.h"

namespace KelmoraID {

/// Reads the element at the front of the buffer and removes it from there.
/// @return false, with nothing changed, at the end of the data and at malformed bytes alike
bool readNextElement(ByteVector& buffer, BYTE& tag, ByteVector& value);

/// Finds the occurrence-th element of a tag at this level, counted from 1.
/// @return its value, which lies in the data; none if there is no such element
std::optional<std::span<const BYTE>> findValue(std::span<const BYTE> data, BYTE tag,
                                               int occurrence = 1);

/// The same with a copy of the value. The data may be that of the result.
/// @return whether it was found; the value is its value, or empty
bool findElement(std::span<const BYTE> data, BYTE tag, ByteVector& value, int occurrence = 1);

}  // namespace KelmoraID
