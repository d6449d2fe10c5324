// KERNEL32's conversions of terminated texts, whose terminator is converted along. The ANSI page is
// ISO 8859-1 here.
#include <algorithm>
#include <climits>
#include <string>
#include <string_view>

#include "platform/win32.h"
#include "posix/utf_text.h"

namespace {

using KelmoraID::platform::utf16Of;
using KelmoraID::platform::utf8Of;

// A length of -1 says that the text is terminated; no other is in use.
bool isOffered(bool knowsPage, DWORD flags, const void* text, int length) {
    if (text != nullptr && length == -1 && flags == 0 && knowsPage) return true;
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
}

std::u16string wideOfAnsi(std::string_view text) {
    std::u16string wide;
    for (const char c : text) wide += static_cast<BYTE>(c);
    return wide;
}

template <typename Character>
int deliver(const std::basic_string<Character>& result, Character* buffer, int room) {
    const std::size_t count = result.size() + 1;
    const std::size_t most = room == 0 ? INT_MAX : static_cast<std::size_t>(std::max(room, 0));
    if (count > most) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    if (room != 0) std::copy_n(result.c_str(), count, buffer);
    return static_cast<int>(count);
}

}  // namespace

int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                               LPWSTR lpWideCharStr, int cchWideChar) {
    const bool knowsPage = CodePage == CP_UTF8 || CodePage == CP_ACP;
    if (!isOffered(knowsPage, dwFlags, lpMultiByteStr, cbMultiByte)) return 0;
    return deliver(CodePage == CP_UTF8 ? utf16Of(lpMultiByteStr) : wideOfAnsi(lpMultiByteStr),
                   lpWideCharStr, cchWideChar);
}

int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar,
                               LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR, LPBOOL) {
    if (!isOffered(CodePage == CP_UTF8, dwFlags, lpWideCharStr, cchWideChar)) return 0;
    return deliver(utf8Of(lpWideCharStr), lpMultiByteStr, cbMultiByte);
}
