// Wide text: 16-bit text at the boundary on every build. WCHAR is wchar_t on Windows and char16_t
// elsewhere; WIDE_TEXT makes a literal of it.
#pragma once

#include <string>
#include <string_view>

#include "platform/win32.h"

#ifdef _WIN32
#define WIDE_TEXT(literal) L##literal
#else
#define WIDE_TEXT(literal) u##literal
#endif

static_assert(sizeof(WCHAR) == 2, "wide text is 16-bit text on every build");

using WideString = std::basic_string<WCHAR>;
using WideStringView = std::basic_string_view<WCHAR>;
