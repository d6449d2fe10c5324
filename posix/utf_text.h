// UTF-8 and UTF-16 text, from one to the other. What is ill-formed becomes U+FFFD.
#pragma once

#include <utf8.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace KelmoraID::platform {

inline std::u16string utf16Of(std::string_view text) {
    return utf8::utf8to16(utf8::replace_invalid(text));
}

/// Unit by unit: the library's own function ends at an unpaired surrogate.
inline std::string utf8Of(std::u16string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        char32_t character = text[at];
        const char32_t next = at + 1 < text.size() ? text[at + 1] : u'\0';
        if ((character & 0xFC00) == 0xD800 && (next & 0xFC00) == 0xDC00) {
            character = 0x10000 + ((character & 0x3FF) << 10) + (next & 0x3FF);
            ++at;
        } else if ((character & 0xF800) == 0xD800) {
            character = 0xFFFD;
        }
        utf8::append(character, result);
    }
    return result;
}

}  // namespace KelmoraID::platform
