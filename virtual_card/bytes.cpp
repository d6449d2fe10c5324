#include "virtual_card/bytes.h"

#include <stdexcept>

namespace virtual_card {

namespace {

unsigned digitOf(char character) {
    if (character >= '0' && character <= '9') return static_cast<unsigned>(character - '0');
    if (character >= 'a' && character <= 'f') return static_cast<unsigned>(character - 'a' + 10);
    if (character >= 'A' && character <= 'F') return static_cast<unsigned>(character - 'A' + 10);
    throw std::invalid_argument("not a hexadecimal digit");
}

}  // namespace

Bytes fromHex(std::string_view text) {
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    bool half = false;
    unsigned high = 0;
    for (char character : text) {
        if (character == ' ') continue;
        unsigned digit = digitOf(character);
        if (half) bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
        high = digit;
        half = !half;
    }
    if (half) throw std::invalid_argument("an odd number of hexadecimal digits");
    return bytes;
}

std::string toHex(ByteView bytes) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

}  // namespace virtual_card
