#include "registry/registry.h"

#include <fmt/format.h>

#include <algorithm>

#include "log/logger.h"

namespace KelmoraID {
namespace {

constexpr std::size_t lengthStep = 255;
// An honest registry needs three calls, and one more for each time that the value grows meanwhile.
constexpr int mostCalls = 64;
// No setting comes near this many characters: a larger figure is not a length.
constexpr std::size_t mostCharacters = 0x1000000;

}  // namespace

WideString readRegistryString(const WideString& key, const WideString& value) {
    WideString text(lengthStep, WCHAR{});
    DWORD byteCount = static_cast<DWORD>(text.size() * sizeof(WCHAR));
    const auto read = [&] {
        return RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), value.c_str(), RRF_RT_REG_SZ, nullptr,
                            text.data(), &byteCount);
    };

    LSTATUS status = read();
    if (status == ERROR_FILE_NOT_FOUND) return {};
    for (int calls = 1; status == ERROR_MORE_DATA && calls < mostCalls; ++calls) {
        const std::size_t reported = byteCount / sizeof(WCHAR);
        const std::size_t length = reported > text.size() ? reported : text.size() + lengthStep;
        if (length > mostCharacters) break;
        // quirk: characters-for-bytes. The smaller number makes that call report more data again.
        byteCount = static_cast<DWORD>(reported > text.size() ? length : length * sizeof(WCHAR));
        text.resize(length);
        status = read();
    }
    if (status != ERROR_SUCCESS) {
        logError(fmt::format("Could not read registry. Windows system error code: '{}'.", status));
        // quirk: scope-of-the-registry. The pairing's, whoever reads.
        logToFile("AdAttributeService", "Could not read registry.");
        return {};
    }
    const std::size_t withTerminator =
        std::min<std::size_t>(byteCount / sizeof(WCHAR), text.size());
    text.resize(withTerminator == 0 ? 0 : withTerminator - 1);
    return text;
}

}  // namespace KelmoraID
