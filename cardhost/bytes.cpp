#include "bytes.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include <fmt/format.h>

namespace cardhost {

namespace {

constexpr char32_t replacement = 0xFFFD;

int digitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/// Takes one code point off the front of a UTF-8 text; U+FFFD for a byte that starts none.
char32_t takeCodePoint(std::string_view& text) {
    constexpr std::array<char32_t, 4> smallest = {0, 0x80, 0x800, 0x10000};
    const auto lead = static_cast<std::uint8_t>(text.front());
    text.remove_prefix(1);
    if (lead < 0x80) return lead;
    const std::size_t more = lead >= 0xF0 && lead < 0xF5   ? 3
                             : lead >= 0xE0 && lead < 0xF0 ? 2
                             : lead >= 0xC2 && lead < 0xE0 ? 1
                                                           : 0;
    if (more == 0 || text.size() < more) return replacement;
    char32_t point = lead & (0x3Fu >> more);
    for (std::size_t i = 0; i < more; ++i) {
        const auto next = static_cast<std::uint8_t>(text[i]);
        if ((next & 0xC0u) != 0x80) return replacement;
        point = (point << 6) | (next & 0x3Fu);
    }
    text.remove_prefix(more);
    const bool isSurrogate = point >= 0xD800 && point < 0xE000;
    return point < smallest[more] || point > 0x10FFFF || isSurrogate ? replacement : point;
}

void appendUtf8(std::string& text, char32_t point) {
    const auto put = [&text](char32_t value) { text += static_cast<char>(value); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0 | (point >> 6));
        put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        put(0xE0 | (point >> 12));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    } else {
        put(0xF0 | (point >> 18));
        put(0x80 | ((point >> 12) & 0x3F));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    }
}

}  // namespace

std::string hexSpaced(ByteView bytes) {
    return fmt::format("{:02X}", fmt::join(bytes, " "));
}

std::string hex(ByteView bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

Bytes bytesOfHex(std::string_view text) {
    Bytes bytes;
    int high = -1;
    for (const char c : text) {
        const int digit = digitOf(c);
        if (digit < 0) {
            if ((c == ' ' || c == ':') && high < 0) continue;
            throw std::invalid_argument("not a hexadecimal text");
        }
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
            high = -1;
        }
    }
    if (high >= 0) throw std::invalid_argument("an odd number of hexadecimal digits");
    return bytes;
}

Bytes reversed(ByteView bytes) {
    return Bytes(bytes.rbegin(), bytes.rend());
}

WideText wide(std::string_view utf8Text) {
    WideText text;
    while (!utf8Text.empty()) {
        const char32_t point = takeCodePoint(utf8Text);
        if (point < 0x10000) {
            text += static_cast<WCHAR>(point);
        } else {
            text += static_cast<WCHAR>(0xD800 + ((point - 0x10000) >> 10));
            text += static_cast<WCHAR>(0xDC00 + ((point - 0x10000) & 0x3FF));
        }
    }
    return text;
}

std::string utf8(std::basic_string_view<WCHAR> text) {
    std::string result;
    const auto isIn = [](char32_t unit, char32_t first) {
        return unit >= first && unit < first + 0x400;
    };
    text = text.substr(0, text.find(WCHAR{0}));
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char32_t unit = static_cast<std::uint16_t>(text[i]);
        if (isIn(unit, 0xD800) && i + 1 < text.size() &&
            isIn(static_cast<std::uint16_t>(text[i + 1]), 0xDC00)) {
            const char32_t low = static_cast<std::uint16_t>(text[++i]);
            appendUtf8(result, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
        } else {
            appendUtf8(result, unit >= 0xD800 && unit < 0xE000 ? replacement : unit);
        }
    }
    return result;
}

}  // namespace cardhost
