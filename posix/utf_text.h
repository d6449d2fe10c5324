// UTF-8 and UTF-16 text, from one to the other, as the platform's own conversions do it.
#pragma once

#include <string>
#include <string_view>

namespace KelmoraID::platform {

/// UTF-8 as UTF-16. Each maximal part of an ill-formed sequence becomes one U+FFFD (the Unicode
/// Standard, section 3.9).
std::u16string utf16Of(std::string_view text);

/// UTF-16 as UTF-8. An unpaired surrogate becomes U+FFFD.
std::string utf8Of(std::u16string_view text);

}  // namespace KelmoraID::platform
