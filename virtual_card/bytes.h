// Byte strings of the virtual card, and their hexadecimal text.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace virtual_card {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// The bytes of a hexadecimal text; blanks between them are passed over.
/// @throws std::invalid_argument for anything that is not pairs of digits
Bytes fromHex(std::string_view text);

/// Upper-case hexadecimal without separators.
std::string toHex(ByteView bytes);

/// Appends one byte string to another.
inline void append(Bytes& to, ByteView what) {
    to.insert(to.end(), what.begin(), what.end());
}

}  // namespace virtual_card
