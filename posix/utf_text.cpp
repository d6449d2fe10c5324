#include "posix/utf_text.h"

#include <cstddef>
#include <cstdint>

namespace KelmoraID::platform {
namespace {

constexpr char16_t replacement = 0xFFFD;

// The well-formed sequences by their first byte (the Unicode Standard, table 3-7): the second
// byte's range differs, the further bytes are always 80 to BF.
struct Sequence {
    std::uint8_t firstLow;
    std::uint8_t firstHigh;
    std::uint8_t secondLow;
    std::uint8_t secondHigh;
    std::size_t length;
};
constexpr Sequence sequences[] = {
    {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

const Sequence* sequenceOf(std::uint8_t first) {
    for (const Sequence& sequence : sequences) {
        if (first >= sequence.firstLow && first <= sequence.firstHigh) return &sequence;
    }
    return nullptr;
}

void appendUtf16(std::u16string& text, char32_t character) {
    if (character < 0x10000) {
        text += static_cast<char16_t>(character);
        return;
    }
    text += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
    text += static_cast<char16_t>(0xDC00 + (character & 0x3FF));
}

void appendUtf8(std::string& text, char32_t character) {
    const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xC0 | character >> 6);
        append(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        append(0xE0 | character >> 12);
        append(0x80 | (character >> 6 & 0x3F));
        append(0x80 | (character & 0x3F));
    } else {
        append(0xF0 | character >> 18);
        append(0x80 | (character >> 12 & 0x3F));
        append(0x80 | (character >> 6 & 0x3F));
        append(0x80 | (character & 0x3F));
    }
}

bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

}  // namespace

std::u16string utf16Of(std::string_view text) {
    std::u16string result;
    result.reserve(text.size());
    std::size_t at = 0;
    while (at < text.size()) {
        const auto first = static_cast<std::uint8_t>(text[at++]);
        if (first < 0x80) {
            result += static_cast<char16_t>(first);
            continue;
        }
        const Sequence* sequence = sequenceOf(first);
        if (sequence == nullptr) {
            result += replacement;
            continue;
        }
        char32_t character = first & (0xFFU >> (sequence->length + 1));
        std::size_t taken = 1;
        for (; taken < sequence->length && at < text.size(); ++taken) {
            const auto next = static_cast<std::uint8_t>(text[at]);
            const std::uint8_t low = taken == 1 ? sequence->secondLow : std::uint8_t{0x80};
            const std::uint8_t high = taken == 1 ? sequence->secondHigh : std::uint8_t{0xBF};
            if (next < low || next > high) break;
            character = character << 6 | (next & 0x3FU);
            ++at;
        }
        appendUtf16(result, taken == sequence->length ? character : char32_t{replacement});
    }
    return result;
}

std::string utf8Of(std::u16string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char16_t unit = text[at];
        if (isHighSurrogate(unit) && at + 1 < text.size() && isLowSurrogate(text[at + 1])) {
            const char16_t low = text[++at];
            appendUtf8(result, 0x10000 + ((unit - 0xD800U) << 10) + (low - 0xDC00U));
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            appendUtf8(result, replacement);
        } else {
            appendUtf8(result, unit);
        }
    }
    return result;
}

}  // namespace KelmoraID::platform
