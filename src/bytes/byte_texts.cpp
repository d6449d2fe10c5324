#include "bytes/byte_texts.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace KelmoraID {
namespace {

// The digit of the low four bits.
char hexDigit(int value) {
    return "0123456789abcdef"[value & 0x0F];
}

BYTE byteOfDigits(char high, char low) {
    // The high digit is looked at first: of two bad ones it is the one that fails.
    const int highValue = hexDigitValue(high);
    return static_cast<BYTE>(highValue * 16 + hexDigitValue(low));
}

}  // namespace

std::string bytesToHex(std::span<const BYTE> bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const BYTE byte : bytes) {
        text += hexDigit(byte >> 4);
        text += hexDigit(byte);
    }
    return text;
}

std::string bytesToHexSpaced(std::span<const BYTE> bytes) {
    std::string text;
    text.reserve(bytes.size() * 3);
    for (const BYTE byte : bytes) {
        if (!text.empty()) text += ' ';
        text += hexDigit(byte >> 4);
        text += hexDigit(byte);
    }
    return text;
}

std::string bytesToLogHex(std::span<const BYTE> bytes) {
    std::string text;
    text.reserve(bytes.size() * 3);
    for (const BYTE byte : bytes) {
        if (byte > 0x0F) text += hexDigit(byte >> 4);
        text += hexDigit(byte);
        text += ' ';
    }
    return text;
}

int hexDigitValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    throw std::invalid_argument("Invalid hex character");
}

std::string hexToString(const std::string& hex) {
    std::string text;
    text.reserve(hex.size() / 2);
    // Behind an odd last digit hex[i + 1] is the string's terminator, which is no digit.
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        text.push_back(static_cast<char>(byteOfDigits(hex[i], hex[i + 1])));
    }
    return text;
}

ByteVector hexToBytes(const std::string& hex) {
    if (hex.size() % 2 != 0) throw std::invalid_argument("Hex string must have an even length");
    ByteVector bytes;
    bytes.reserve(hex.size() / 2);
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        bytes.push_back(byteOfDigits(hex[i], hex[i + 1]));
    }
    return bytes;
}

bool containsAnyOf(std::string_view text, std::string_view characters) {
    return text.find_first_of(characters) != std::string_view::npos;
}

int findByte(const ByteVector& bytes, BYTE byte) {
    const auto found = std::find(bytes.begin(), bytes.end(), byte);
    return found == bytes.end() ? -1 : static_cast<int>(found - bytes.begin());
}

}  // namespace KelmoraID
