// CardSetProperty: the platform's parent window and the context of the next PIN prompt.
#include <algorithm>
#include <array>
#include <cstring>

#include "log/logger.h"
#include "session/card_context.h"
#include "session/entry_log.h"
#include "session/entry_points.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

constexpr const char* scope = "CardSetProperty";

// Known by name, and not to be set through this system.
constexpr std::array<WideStringView, 9> readOnlyProperties{
    WIDE_TEXT("Read Only Mode"),
    WIDE_TEXT("Cache Mode"),
    WIDE_TEXT("Supports Windows x.509 Enrollment"),
    WIDE_TEXT("Card Identifier"),
    WIDE_TEXT("Card Serial Number"),
    WIDE_TEXT("PIN Information"),
    WIDE_TEXT("PIN Strength Verify"),
    WIDE_TEXT("PIN Strength Change"),
    WIDE_TEXT("PIN Strength Unblock"),
};

// quirk: pin-context-in-characters. The length counts wide characters, not bytes. The text ends at
// its terminator, and nothing behind that is read.
WideString textOf(const BYTE* pbData, DWORD cbDataLen) {
    WideString text;
    for (DWORD index = 0; index < cbDataLen; ++index) {
        WCHAR character;
        std::memcpy(&character, pbData + std::size_t{index} * sizeof(character), sizeof(character));
        if (character == 0) break;
        text.push_back(character);
    }
    return text;
}

DWORD setPinContext(CardContext& context, const BYTE* pbData, DWORD cbDataLen, DWORD dwFlags) {
    if (dwFlags != 0) return SCARD_E_INVALID_PARAMETER;
    if (pbData == nullptr || cbDataLen == 0) {
        logToFile(scope, "Pin context string, pbData or cbDataLen was empty, returning.");
        return SCARD_S_SUCCESS;  // The old text stays.
    }
    context.pinContextString = wideToUtf8(textOf(pbData, cbDataLen)).c_str();
    logToFile(scope, "Pin context string: {}", context.pinContextString);
    return exitWith(scope, SCARD_S_SUCCESS);
}

DWORD setParentWindow(CardContext& context, const BYTE* pbData, DWORD cbDataLen, DWORD dwFlags) {
    // quirk: window-of-8-bytes. Of which the lower 4 are the handle.
    if (cbDataLen != 8 || dwFlags != 0) return SCARD_E_INVALID_PARAMETER;
    std::uint32_t window;
    std::memcpy(&window, pbData, sizeof(window));
    if (window != 0 && !IsWindow(reinterpret_cast<HWND>(static_cast<ULONG_PTR>(window)))) {
        return SCARD_E_INVALID_PARAMETER;
    }
    context.parentWindow = window;
    return exitWith(scope, SCARD_S_SUCCESS);
}

}  // namespace

DWORD WINAPI CardSetProperty(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData,
                             DWORD cbDataLen, DWORD dwFlags) {
    if (pCardData == nullptr || wszProperty == nullptr || *wszProperty == 0) {
        return SCARD_E_INVALID_PARAMETER;
    }
    logToFile(scope,
              "Entering the function, with parameters, wszProperty:'{}', "
              "dwFlags:'{}', cbDataLen:'{}'",
              wideToUtf8(wszProperty).c_str(), dwFlags, cbDataLen);
    const WideStringView property(wszProperty);
    if (property == WIDE_TEXT("PIN Context String")) {
        return setPinContext(contextOf(pCardData), pbData, cbDataLen, dwFlags);
    }
    if (pbData == nullptr) return SCARD_E_INVALID_PARAMETER;
    if (property == WIDE_TEXT("Parent Window")) {
        return setParentWindow(contextOf(pCardData), pbData, cbDataLen, dwFlags);
    }
    const bool readOnly = std::find(readOnlyProperties.begin(), readOnlyProperties.end(),
                                    property) != readOnlyProperties.end();
    return readOnly ? SCARD_E_UNSUPPORTED_FEATURE : SCARD_E_INVALID_PARAMETER;
}

}  // namespace KelmoraID
