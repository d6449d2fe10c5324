// The dialog for a PIN over an honest card: what the registry says of it, its library, the window
// in front, and what it hands over. This program's calls stand in the stand-in platform's place.
#include <algorithm>
#include <string>
#include <string_view>

#include "callers_record.h"
#include "fuzz_target.h"
#include "hostile_card.h"
#include "known_statuses.h"
#include "session/entry_points.h"

namespace {

constexpr DWORD error = 126;
constexpr std::size_t roomForPin = 13;
constexpr int mostCalls = 12;

// The answers are used up from the front; at their end everything goes well, but no PIN is entered.
struct Machine {
    fuzz::FuzzInput answers;
    WideString companion = answers.wideText();  // the command that starts it
    int loaded = 0;
    int entered = 0;
};
Machine* machine = nullptr;

std::int32_t promptCodeEntry(std::int32_t kind, std::int32_t second, std::int32_t third,
                             std::int32_t reason, const char* title, const char* text, std::int32_t,
                             std::int32_t eighth, char* pin) {
    static constexpr const char* pins[] = {"1234", "123456", "12345678", "0000", ""};
    fuzz::require(kind >= 0 && kind <= 2 && reason >= 0 && reason <= 2, "kind and reason exist");
    fuzz::require(second == 30 && third == 1 && eighth == 0, "the constants are the library's");
    fuzz::require((title == nullptr) == (text == nullptr), "a text has its title");
    if (text != nullptr) fuzz::readAll(text, std::char_traits<char>::length(text));
    const std::uint8_t choice = machine->answers.byte();
    if (choice == 0) return 1;
    std::fill_n(pin, roomForPin, '\0');
    if (choice < 0xC0) {
        const std::string_view known = pins[choice % std::size(pins)];
        std::copy(known.begin(), known.end(), pin);
    } else {
        const fuzz::Bytes bytes = machine->answers.bytes(roomForPin);
        std::copy(bytes.begin(), bytes.end(), pin);  // Its terminator may be missing.
    }
    ++machine->entered;
    return 0;
}

void authenticate(fuzz::CallersRecord& record, const fuzz::HostileCard& card,
                  fuzz::FuzzInput& input) {
    const std::uint8_t choice = input.byte();
    if (choice & 0x10) {
        WideString text = input.wideText();
        record.data.pfnCardSetProperty(&record.data, WIDE_TEXT("PIN Context String"),
                                       reinterpret_cast<PBYTE>(text.data()),
                                       static_cast<DWORD>(text.size() + 1), 0);
    }
    const PIN_ID pinId = choice & 0x20 ? 2 + (choice & 1) : choice & 1 ? 4 : 1;
    const DWORD flags = (choice & 2 ? CARD_AUTHENTICATE_GENERATE_SESSION_PIN : 0) |
                        (choice & 4 ? CARD_PIN_SILENT_CONTEXT : 0);
    PBYTE sessionPin = nullptr;
    DWORD sessionPinSize = 0;
    DWORD attempts = 0;
    const int before = machine->entered;
    const DWORD status =
        record.data.pfnCardAuthenticateEx(&record.data, pinId, flags, nullptr, 0, &sessionPin,
                                          &sessionPinSize, choice & 8 ? nullptr : &attempts);
    fuzz::require(fuzz::isKnownStatus(status), "a call ends with a known status");
    fuzz::require(status != 0 || machine->entered > before, "nobody is let in without a PIN");
    fuzz::require(card.pinsSent() <= machine->entered, "no PIN goes out but those entered");
}

}  // namespace

extern "C" {

LSTATUS WINAPI RegGetValueW(HKEY, LPCWSTR, LPCWSTR lpValue, DWORD, LPDWORD, PVOID pvData,
                            LPDWORD pcbData) {
    const bool isCompanion = WideStringView(lpValue) == WIDE_TEXT("Kelmora ID");
    if (!isCompanion || machine->companion.empty()) return ERROR_FILE_NOT_FOUND;
    const auto size = static_cast<DWORD>((machine->companion.size() + 1) * sizeof(WCHAR));
    const DWORD room = *pcbData;
    *pcbData = size;
    if (room < size) return ERROR_MORE_DATA;
    std::copy_n(machine->companion.c_str(), size / sizeof(WCHAR), static_cast<WCHAR*>(pvData));
    return ERROR_SUCCESS;
}

HMODULE WINAPI LoadLibraryExW(LPCWSTR lpLibFileName, HANDLE, DWORD) {
    fuzz::require(WideStringView(lpLibFileName).ends_with(WIDE_TEXT("\\CodeEntryLibrary.dll")),
                  "no library is loaded but the dialog's");
    if (machine->answers.byte() >= 0xF0) return nullptr;
    ++machine->loaded;
    return machine;
}

FARPROC WINAPI GetProcAddress(HMODULE, LPCSTR) {
    fuzz::require(machine->loaded > 0, "the library is loaded");
    if (machine->answers.byte() >= 0xF0) return nullptr;
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(promptCodeEntry));
}

BOOL WINAPI FreeLibrary(HMODULE) {
    fuzz::require(--machine->loaded >= 0, "what is freed was loaded");
    return TRUE;
}

BOOL WINAPI SetCurrentDirectoryW(LPCWSTR lpPathName) {
    const WideStringView path(lpPathName);
    fuzz::readAll(path.data(), path.size() * sizeof(WCHAR));
    return machine->answers.byte() >= 0xF0 ? FALSE : TRUE;
}

DWORD WINAPI GetLastError() {
    return error;
}

void WINAPI SetLastError(DWORD) {}

BOOL WINAPI IsWindow(HWND) {
    return TRUE;
}

HWND WINAPI GetForegroundWindow() {
    return machine;
}

int WINAPI GetClassNameW(HWND, LPWSTR lpClassName, int nMaxCount) {
    const std::uint8_t choice = machine->answers.byte();
    if (choice >= 0xF0) return static_cast<int>(choice) - 0xF1;  // -1, 0, or more than is written
    WideString name = WIDE_TEXT("Window");
    if (choice >= 0xE0) name = WIDE_TEXT("LogonUI Logon Window");
    if (choice >= 0xE8) name.assign(static_cast<std::size_t>(nMaxCount), WCHAR{0xD83D});
    const std::size_t length = std::min(name.size(), static_cast<std::size_t>(nMaxCount));
    std::copy_n(name.begin(), length, lpClassName);  // Without its terminator.
    return static_cast<int>(length);
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const std::uint8_t honest[] = {input.byte(), 0};
    fuzz::HostileCard card(fuzz::FuzzInput(honest, sizeof(honest)));
    const fuzz::Bytes answers = input.longBlock();
    Machine own{fuzz::FuzzInput(answers.data(), answers.size())};
    machine = &own;
    fuzz::CallersRecord record(card.atr(), fuzz::HostileCard::contextHandle,
                               fuzz::HostileCard::cardHandle);
    fuzz::require(CardAcquireContext(&record.data, 0) == 0, "an honest card is acquired");
    for (int made = 0; made < mostCalls && !input.atEnd(); ++made) {
        authenticate(record, card, input);
    }
    return 0;
}
