// ADVAPI32's RegGetValueW over the settings file (platform/fixed_paths.h): a section for each key
// of HKEY_LOCAL_MACHINE, a line for each value. UTF-8.
//
//     # a comment; a line that begins with ';' is one too
//     [SOFTWARE\Kelmora\KelmoraID]
//     ADRSURL = https://directory.example:443;https://spare.example:443
//     Retries = dword:00000003
//
// Keys and names match whatever the case of their ASCII letters. Blanks around a name and a value
// are not part of them. Where a name stands twice under a key, the first counts.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "platform/fixed_paths.h"
#include "platform/win32.h"
#include "posix/utf_text.h"

namespace KelmoraID::platform {
namespace {

constexpr LSTATUS ERROR_ACCESS_DENIED = 5;
constexpr LSTATUS ERROR_READ_FAULT = 30;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_DWORD = 4;

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string_view withoutEndingBackslash(std::string_view key) {
    while (key.ends_with('\\')) key.remove_suffix(1);
    return key;
}

bool sameName(std::string_view left, std::string_view right) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [lower](char a, char b) { return lower(a) == lower(b); });
}

// The value's text as it stands in the file, or nothing. status tells why not.
std::optional<std::string> valueText(std::string_view key, std::string_view name, LSTATUS& status) {
    status = ERROR_FILE_NOT_FOUND;
    errno = 0;
    std::ifstream file(settingsFilePath(), std::ios::binary);
    if (!file) {
        if (errno != ENOENT && errno != ENOTDIR) status = ERROR_ACCESS_DENIED;
        return std::nullopt;
    }
    bool inside = false;
    bool first = true;
    std::string whole;
    while (std::getline(file, whole)) {
        std::string_view line = whole;
        if (first && line.starts_with("\xEF\xBB\xBF")) line.remove_prefix(3);
        first = false;
        line = trimmed(line);
        if (line.empty() || line.front() == '#' || line.front() == ';') continue;
        if (line.front() == '[' && line.back() == ']') {
            const std::string_view section = trimmed(line.substr(1, line.size() - 2));
            inside = sameName(withoutEndingBackslash(section), key);
            continue;
        }
        const std::size_t equals = line.find('=');
        if (!inside || equals == std::string_view::npos) continue;
        if (sameName(trimmed(line.substr(0, equals)), name)) {
            return std::string(trimmed(line.substr(equals + 1)));
        }
    }
    if (file.bad()) status = ERROR_READ_FAULT;
    return std::nullopt;
}

}  // namespace
}  // namespace KelmoraID::platform

using namespace KelmoraID::platform;

// Of the restrictions of types only the plain string is offered.
LSTATUS WINAPI RegGetValueW(HKEY hkey, LPCWSTR lpSubKey, LPCWSTR lpValue, DWORD dwFlags,
                            LPDWORD pdwType, PVOID pvData, LPDWORD pcbData) try {
    if (hkey != HKEY_LOCAL_MACHINE) return ERROR_INVALID_HANDLE;
    if (dwFlags != RRF_RT_REG_SZ || (pvData != nullptr && pcbData == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    const std::string key = lpSubKey == nullptr ? std::string() : utf8Of(lpSubKey);
    const std::string name = lpValue == nullptr ? std::string() : utf8Of(lpValue);
    LSTATUS status = ERROR_SUCCESS;
    const std::optional<std::string> value = valueText(withoutEndingBackslash(key), name, status);
    if (!value) return status;
    if (value->starts_with("dword:")) {
        if (pdwType != nullptr) *pdwType = REG_DWORD;
        return ERROR_UNSUPPORTED_TYPE;
    }
    if (pdwType != nullptr) *pdwType = REG_SZ;
    if (pcbData == nullptr) return ERROR_SUCCESS;
    const std::u16string text = utf16Of(*value);
    const auto needed = static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR));
    const DWORD room = *pcbData;
    *pcbData = needed;
    if (pvData == nullptr) return ERROR_SUCCESS;
    if (room < needed) return ERROR_MORE_DATA;
    std::memcpy(pvData, text.c_str(), needed);
    return ERROR_SUCCESS;
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}
