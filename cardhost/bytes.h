// Bytes and texts, in the forms that the whole program uses.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/minidriver.h"

namespace cardhost {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;
using WideText = std::basic_string<WCHAR>;

/// Upper-case hexadecimal, a blank between bytes.
std::string hexSpaced(ByteView bytes);

/// Lower-case hexadecimal with nothing between.
std::string hex(ByteView bytes);

/// Bytes of a hexadecimal text, blanks and colons allowed between them; throws
/// std::invalid_argument on anything else.
Bytes bytesOfHex(std::string_view text);

/// The bytes in the opposite order: the platform's RSA blocks are little-endian, all else is
/// big-endian.
Bytes reversed(ByteView bytes);

/// UTF-16 of a UTF-8 text. Malformed input gives U+FFFD.
WideText wide(std::string_view utf8);

/// UTF-8 of a UTF-16 text, up to its first NUL.
std::string utf8(std::basic_string_view<WCHAR> text);

}  // namespace cardhost
