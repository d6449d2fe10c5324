// ADVAPI32's RegGetValueW over the settings file (platform/fixed_paths.h): a section for each key
// of HKEY_LOCAL_MACHINE, a line for each text value. UTF-8.
//
//     # a comment
//     [SOFTWARE\Kelmora\KelmoraID]
//     ADRSURL = https://directory.example:443;https://spare.example:443
//
// Blanks around a name and a value are not part of them. What cannot be read is not there.
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "platform/fixed_paths.h"
#include "platform/win32.h"
#include "posix/utf_text.h"

namespace KelmoraID::platform {
namespace {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::optional<std::string> valueText(std::string_view key, std::string_view name) {
    std::ifstream file(settingsFilePath());
    bool inside = false;
    for (std::string whole; std::getline(file, whole);) {
        const std::string_view line = trimmed(whole);
        if (line.starts_with('#')) continue;
        if (line.starts_with('[') && line.ends_with(']')) {
            inside = line.substr(1, line.size() - 2) == key;
            continue;
        }
        const std::size_t equals = line.find('=');
        if (inside && equals != line.npos && trimmed(line.substr(0, equals)) == name) {
            return std::string(trimmed(line.substr(equals + 1)));
        }
    }
    return std::nullopt;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

// A key may be asked for with a backslash at its end.
LSTATUS WINAPI RegGetValueW(HKEY hkey, LPCWSTR lpSubKey, LPCWSTR lpValue, DWORD dwFlags, LPDWORD,
                            PVOID pvData, LPDWORD pcbData) {
    if (hkey != HKEY_LOCAL_MACHINE || dwFlags != RRF_RT_REG_SZ) return ERROR_INVALID_PARAMETER;
    std::string key = utf8Of(lpSubKey);
    if (key.ends_with('\\')) key.pop_back();
    const std::optional<std::string> value = valueText(key, utf8Of(lpValue));
    if (!value) return ERROR_FILE_NOT_FOUND;
    const std::u16string text = utf16Of(*value);
    const auto needed = static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR));
    const DWORD room = *pcbData;
    *pcbData = needed;
    if (room < needed) return ERROR_MORE_DATA;
    std::memcpy(pvData, text.c_str(), needed);
    return ERROR_SUCCESS;
}
