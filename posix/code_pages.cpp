// KERNEL32's code-page conversions for UTF-8 and for the ANSI page, which is windows-1252 here.
// Flags and a page's best-fit characters are not in use and not offered.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <exception>
#include <string>
#include <string_view>

#include "platform/win32.h"
#include "posix/utf_text.h"

namespace KelmoraID::platform {
namespace {

constexpr DWORD ERROR_INVALID_FLAGS = 1004;

// What windows-1252 has at 80 to 9F; everything else is as in ISO 8859-1. The five places without a
// character map to the control of the same number, as on Windows.
constexpr char16_t windows1252[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

std::u16string wideOfAnsi(std::string_view text) {
    std::u16string result;
    result.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        result +=
            byte >= 0x80 && byte < 0xA0 ? windows1252[byte - 0x80] : static_cast<char16_t>(byte);
    }
    return result;
}

std::string ansiOfWide(std::u16string_view text, char standIn, bool& used) {
    std::string result;
    result.reserve(text.size());
    for (const char16_t unit : text) {
        if (unit < 0x80 || (unit >= 0xA0 && unit < 0x100)) {
            result += static_cast<char>(unit);
            continue;
        }
        const auto* found = std::find(std::begin(windows1252), std::end(windows1252), unit);
        if (found == std::end(windows1252)) {
            used = true;
            result += standIn;
        } else {
            result += static_cast<char>(0x80 + (found - std::begin(windows1252)));
        }
    }
    return result;
}

// The source as the caller means it: a negative length takes the text up to its terminator and the
// terminator with it.
template <typename Character>
std::basic_string_view<Character> source(const Character* text, int length) {
    if (length >= 0) return {text, static_cast<std::size_t>(length)};
    return {text, std::char_traits<Character>::length(text) + 1};
}

template <typename Character>
int deliver(const std::basic_string<Character>& result, Character* buffer, int room) {
    if (result.size() > INT_MAX) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (room == 0) return static_cast<int>(result.size());
    const std::size_t fitting = std::min(result.size(), static_cast<std::size_t>(room));
    std::copy_n(result.begin(), fitting, buffer);
    if (fitting < result.size()) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    return static_cast<int>(result.size());
}

// The checks of both directions. Returns 0 or the last error.
DWORD refusal(UINT page, DWORD flags, const void* from, int length, const void* to, int room) {
    if (from == nullptr || length == 0 || room < 0 || (to == nullptr && room != 0) || from == to) {
        return ERROR_INVALID_PARAMETER;
    }
    if (page != CP_ACP && page != CP_UTF8) return ERROR_INVALID_PARAMETER;
    return flags == 0 ? 0 : ERROR_INVALID_FLAGS;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                               LPWSTR lpWideCharStr, int cchWideChar) try {
    const DWORD refused =
        refusal(CodePage, dwFlags, lpMultiByteStr, cbMultiByte, lpWideCharStr, cchWideChar);
    if (refused != 0) {
        SetLastError(refused);
        return 0;
    }
    const std::string_view text = source(lpMultiByteStr, cbMultiByte);
    return deliver(CodePage == CP_UTF8 ? utf16Of(text) : wideOfAnsi(text), lpWideCharStr,
                   cchWideChar);
} catch (const std::exception&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar,
                               LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR lpDefaultChar,
                               LPBOOL lpUsedDefaultChar) try {
    const DWORD refused =
        refusal(CodePage, dwFlags, lpWideCharStr, cchWideChar, lpMultiByteStr, cbMultiByte);
    if (refused != 0) {
        SetLastError(refused);
        return 0;
    }
    const std::u16string_view text = source(lpWideCharStr, cchWideChar);
    if (CodePage == CP_UTF8) {
        // UTF-8 has every character: a stand-in may not be asked for.
        if (lpDefaultChar != nullptr || lpUsedDefaultChar != nullptr) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
        return deliver(utf8Of(text), lpMultiByteStr, cbMultiByte);
    }
    bool used = false;
    const std::string ansi =
        ansiOfWide(text, lpDefaultChar == nullptr ? '?' : *lpDefaultChar, used);
    if (lpUsedDefaultChar != nullptr) *lpUsedDefaultChar = used ? TRUE : FALSE;
    return deliver(ansi, lpMultiByteStr, cbMultiByte);
} catch (const std::exception&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}
