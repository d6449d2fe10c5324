#include "doctor/printable.h"

#include <algorithm>
#include <cstdint>

namespace cardhost::doctor {

namespace {

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// The character at the beginning of the text and its length; a length of 0 where it is none.
struct Character {
    char32_t code = 0;
    std::size_t length = 0;
};

Character firstOf(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {};
    char32_t code = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(text[i])) return {};
        code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3F);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isValid =
        code >= smallest[length] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return isValid ? Character{code, length} : Character{};
}

bool isHarmless(char32_t code) {
    const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool isDirection = code == 0x61C || (code >= 0x200B && code <= 0x200F) ||
                             (code >= 0x2028 && code <= 0x202E) ||
                             (code >= 0x2066 && code <= 0x2069) || code == 0xFEFF;
    return !isControl && !isDirection;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const Character character = firstOf(text);
        if (character.length != 0 && isHarmless(character.code)) {
            result += text.substr(0, character.length);
        } else {
            result += '?';
        }
        text.remove_prefix(std::max<std::size_t>(character.length, 1));
    }
    return result;
}

std::size_t widthOf(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return !isContinuation(byte); }));
}

std::vector<std::string> wrapped(std::string_view text, std::size_t room) {
    std::vector<std::string> lines(1);
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        std::string_view word = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t taken = lines.back().empty() ? 0 : widthOf(lines.back()) + 1;
        if (taken != 0 && taken + widthOf(word) > room) lines.emplace_back();
        while (lines.back().empty() && widthOf(word) > room) {
            std::size_t cut = 0;
            std::size_t characters = 0;
            while (characters < room || isContinuation(word[cut])) {
                if (!isContinuation(word[cut])) ++characters;
                ++cut;
                if (cut == word.size()) break;
            }
            lines.back() = word.substr(0, cut);
            word.remove_prefix(cut);
            lines.emplace_back();
        }
        if (!lines.back().empty()) lines.back() += ' ';
        lines.back() += word;
    }
    return lines;
}

}  // namespace cardhost::doctor
