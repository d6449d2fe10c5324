// ole32's text form of a GUID.

#include <cstdint>

#include "platform/win32.h"

int WINAPI StringFromGUID2(const GUID& rguid, LPWSTR lpsz, int cchMax) {
    constexpr int needed = 39;  // 32 digits, 4 hyphens, 2 braces and the terminator
    if (lpsz == nullptr || cchMax < needed) return 0;
    const auto put = [&lpsz](std::uint32_t value, int digits) {
        for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
            *lpsz++ = u"0123456789ABCDEF"[value >> shift & 0xF];
        }
    };
    *lpsz++ = u'{';
    put(rguid.Data1, 8);
    *lpsz++ = u'-';
    put(rguid.Data2, 4);
    *lpsz++ = u'-';
    put(rguid.Data3, 4);
    *lpsz++ = u'-';
    for (int i = 0; i < 8; ++i) {
        if (i == 2) *lpsz++ = u'-';
        put(rguid.Data4[i], 2);
    }
    *lpsz++ = u'}';
    *lpsz = 0;
    return needed;
}
