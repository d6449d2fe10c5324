// Stands where winscard.dll stands, with the readers of a machine that a test describes by the
// variable KELMORA_TEST_READERS: NAME|CONNECT|ATR|HOLD for each, with ';' between. CONNECT and HOLD
// are the codes (hexadecimal) with which the card is connected and held. Without the variable no
// service answers. A card answers each command as one that knows none.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "winscard_types.h"

namespace {

struct Reader {
    std::wstring name;
    LONG connect = SCARD_S_SUCCESS;
    std::string atr;
    LONG hold = SCARD_S_SUCCESS;
};

LONG codeOf(const std::string& digits) {
    return static_cast<LONG>(std::strtoul(digits.c_str(), nullptr, 16));
}

Reader readerOf(const std::string& text) {
    std::istringstream parts(text);
    std::string name, connect, atr, hold;
    std::getline(parts, name, '|');
    std::getline(parts, connect, '|');
    std::getline(parts, atr, '|');
    std::getline(parts, hold, '|');
    Reader reader{std::wstring(name.begin(), name.end()), codeOf(connect), {}, codeOf(hold)};
    for (std::size_t i = 0; i + 1 < atr.size(); i += 2) {
        reader.atr.push_back(static_cast<char>(codeOf(atr.substr(i, 2))));
    }
    return reader;
}

const std::vector<Reader>& readers() {
    static const std::vector<Reader> list = [] {
        std::vector<Reader> made;
        const char* described = std::getenv("KELMORA_TEST_READERS");
        std::istringstream texts(described == nullptr ? "" : described);
        for (std::string text; std::getline(texts, text, ';');) made.push_back(readerOf(text));
        return made;
    }();
    return list;
}

void assign(LPDWORD where, DWORD value) {
    if (where != nullptr) *where = value;
}

/// A card's handle is the number of its reader, from 1 on.
const Reader& readerWith(SCARDHANDLE card) {
    return readers().at(card - 1);
}

}  // namespace

extern "C" {

extern const SCARD_IO_REQUEST g_rgSCardT0Pci = {SCARD_PROTOCOL_T0, sizeof(SCARD_IO_REQUEST)};
extern const SCARD_IO_REQUEST g_rgSCardT1Pci = {SCARD_PROTOCOL_T1, sizeof(SCARD_IO_REQUEST)};

LONG WINAPI SCardEstablishContext(DWORD, LPCVOID, LPCVOID, LPSCARDCONTEXT context) {
    *context = 1;
    return std::getenv("KELMORA_TEST_READERS") == nullptr ? SCARD_E_NO_SERVICE : SCARD_S_SUCCESS;
}

LONG WINAPI SCardReleaseContext(SCARDCONTEXT) {
    return SCARD_S_SUCCESS;
}

LONG WINAPI SCardListReadersW(SCARDCONTEXT, LPCWSTR, LPWSTR names, LPDWORD length) {
    if (readers().empty()) return SCARD_E_NO_READERS_AVAILABLE;
    std::wstring all;
    for (const Reader& reader : readers()) all += reader.name + L'\0';
    all += L'\0';
    if (names != nullptr) std::copy(all.begin(), all.end(), names);
    *length = static_cast<DWORD>(all.size());
    return SCARD_S_SUCCESS;
}

LONG WINAPI SCardConnectW(SCARDCONTEXT, LPCWSTR name, DWORD, DWORD, LPSCARDHANDLE card,
                          LPDWORD protocol) {
    const auto found = std::find_if(readers().begin(), readers().end(),
                                    [&](const Reader& reader) { return reader.name == name; });
    if (found == readers().end()) return SCARD_E_UNKNOWN_READER;
    *card = static_cast<SCARDHANDLE>(found - readers().begin()) + 1;
    *protocol = SCARD_PROTOCOL_T1;
    return found->connect;
}

LONG WINAPI SCardReconnect(SCARDHANDLE, DWORD, DWORD, DWORD, LPDWORD protocol) {
    assign(protocol, SCARD_PROTOCOL_T1);
    return SCARD_S_SUCCESS;
}

LONG WINAPI SCardDisconnect(SCARDHANDLE, DWORD) {
    return SCARD_S_SUCCESS;
}

LONG WINAPI SCardBeginTransaction(SCARDHANDLE card) {
    return readerWith(card).hold;
}

LONG WINAPI SCardEndTransaction(SCARDHANDLE, DWORD) {
    return SCARD_S_SUCCESS;
}

LONG WINAPI SCardStatusW(SCARDHANDLE card, LPWSTR, LPDWORD, LPDWORD state, LPDWORD protocol,
                         LPBYTE atr, LPDWORD atrLength) {
    constexpr DWORD specific = 6;
    assign(state, specific);
    assign(protocol, SCARD_PROTOCOL_T1);
    if (atrLength == nullptr) return SCARD_S_SUCCESS;
    const std::string& bytes = readerWith(card).atr;
    const DWORD room = *atrLength;
    *atrLength = static_cast<DWORD>(bytes.size());
    if (atr == nullptr) return SCARD_S_SUCCESS;
    if (room < bytes.size()) return SCARD_E_INSUFFICIENT_BUFFER;
    std::memcpy(atr, bytes.data(), bytes.size());
    return SCARD_S_SUCCESS;
}

LONG WINAPI SCardTransmit(SCARDHANDLE, LPCSCARD_IO_REQUEST, const BYTE*, DWORD, LPSCARD_IO_REQUEST,
                          LPBYTE reply, LPDWORD length) {
    constexpr BYTE unknownCommand[] = {0x6D, 0x00};
    if (*length < sizeof(unknownCommand)) return SCARD_E_INSUFFICIENT_BUFFER;
    std::memcpy(reply, unknownCommand, sizeof(unknownCommand));
    *length = sizeof(unknownCommand);
    return SCARD_S_SUCCESS;
}

}  // extern "C"
