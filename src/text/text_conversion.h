// Conversions between UTF-8, the system's ANSI code page and wide text. The terminator is part of
// what the platform converts, so a result is one element longer than its text and ends in a NUL of
// its own: whoever compares or prints it uses the terminated form, c_str(). A failure of the
// platform's conversion gives an empty or a NUL-filled string.
#pragma once

#include <string>

#include "bytes/byte_vector.h"
#include "platform/wide_text.h"

namespace KelmoraID {

/// UTF-8 to wide text, with a NUL element at the end. The input ends at its first NUL.
WideString utf8ToWide(const std::string& text);

/// Wide text to UTF-8, with a NUL element at the end. The input ends at its first NUL.
std::string wideToUtf8(const WideString& text);

/// Text in the system's ANSI code page to UTF-8, by way of wide text; NUL element at the end.
std::string ansiToUtf8(const std::string& text);

/// Bytes in the system's ANSI code page, up to the first zero byte, to UTF-8: as ansiToUtf8.
std::string ansiBytesToUtf8(const ByteVector& bytes);

}  // namespace KelmoraID
