// Bytes as text and back, in the forms that names, logs and tests use.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "bytes/byte_vector.h"

namespace KelmoraID {

/// Lower-case hexadecimal, two digits a byte, nothing between: {01 AB} gives "01ab".
std::string bytesToHex(std::span<const BYTE> bytes);

/// Lower-case hexadecimal, two digits a byte, one blank between bytes: {01 AB} gives "01 ab".
std::string bytesToHexSpaced(std::span<const BYTE> bytes);

/// Each byte by "{:x} ": no leading zero, and a blank behind every byte, the last included:
/// {01 AB} gives "1 ab ".
std::string bytesToLogHex(std::span<const BYTE> bytes);

/// The value of one hexadecimal digit of either case, 0 to 15.
/// @throws std::invalid_argument "Invalid hex character"
int hexDigitValue(char digit);

/// The bytes of a hexadecimal text, as a string. The text is walked two characters at a time, so
/// the terminator behind an odd last digit fails as an invalid character.
/// @throws std::invalid_argument "Invalid hex character"
std::string hexToString(const std::string& hex);

/// The bytes of a hexadecimal text.
/// @throws std::invalid_argument "Hex string must have an even length", "Invalid hex character"
ByteVector hexToBytes(const std::string& hex);

/// Whether the text holds one of the characters of the set.
bool containsAnyOf(std::string_view text, std::string_view characters);

/// The index of the first occurrence of a byte, or -1.
int findByte(const ByteVector& bytes, BYTE byte);

}  // namespace KelmoraID
