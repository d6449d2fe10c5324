// ole32's text form of a GUID.
#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "platform/win32.h"

int WINAPI StringFromGUID2(const GUID& rguid, LPWSTR lpsz, int cchMax) {
    const BYTE* last = rguid.Data4;
    const std::string text = fmt::format("{{{:08X}-{:04X}-{:04X}-{:02X}{:02X}-{:02X}}}",
                                         rguid.Data1, rguid.Data2, rguid.Data3, last[0], last[1],
                                         fmt::join(last + 2, last + sizeof(rguid.Data4), ""));
    const auto needed = static_cast<int>(text.size()) + 1;
    if (cchMax < needed) return 0;
    std::copy_n(text.c_str(), needed, lpsz);
    return needed;
}
